// builtin2_call.hpp - calls of the built-in table written as expression text, for the
// tests of the date, time, interval, file and mail built-ins.
//
// Until the expression evaluator arrives, a call is read here: a function name and its
// arguments, each NULL, TRUE, FALSE, a number (StringToBestNumberType_L, a leading '-'
// allowed), a quoted text ('it''s'; a date literal as the parser reads one: DATE, or DATE
// WITH TIME ZONE when it gives a zone), or a call of its own. The call is checked against
// its row's argument counts and dispatched through CallFunction_L, as the evaluator will.
#pragma once

#include <gtest/gtest.h>
#include <strings.h>

#include <cctype>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "language.hpp"
#include "qv/date.h"
#include "qv/precise.h"

namespace qvtest {

struct ValueDeleter {
    void operator()(QV_VALUE_T *value) const {
        FreeValue_L(value);
        delete value;
    }
};
using OwnedValue = std::unique_ptr<QV_VALUE_T, ValueDeleter>;

inline OwnedValue new_value() {
    return OwnedValue(new QV_VALUE_T{});
}

// The built-in row named `name` (letter case ignored); null when there is none.
inline const ExpFunction *builtin_row(std::string_view name) {
    for (const ExpFunction *row = Get_BuiltInFns_L(); row->name != nullptr; ++row)
        if (name.size() == std::strlen(row->name) &&
            strncasecmp(row->name, name.data(), name.size()) == 0)
            return row;
    return nullptr;
}

// Calls `row` with the arguments in `mode`; the result value.
inline OwnedValue call_row(const ExpFunction *row, const std::vector<QV_VALUE_T *> &arguments,
                           int32_t mode = QV_MODE_EVALUATE) {
    OwnedValue result = new_value();
    EXP_CALL_FRAME_T frame{};
    frame.function = row;
    frame.argument_count = static_cast<int32_t>(arguments.size());
    frame.arguments = const_cast<QV_VALUE_T **>(arguments.data());
    frame.mode = mode;
    EXPECT_EQ(CallFunction_L(result.get(), &frame), 0) << row->name;
    return result;
}

class CallReader {
  public:
    explicit CallReader(std::string_view text) : text_(text) {}

    OwnedValue read() {
        OwnedValue value = operand();
        skip_blanks();
        if (at_ < text_.size()) fail("text after the call");
        return value;
    }
    bool failed() const { return failed_; }

  private:
    void fail(const char *why) {
        if (!failed_) ADD_FAILURE() << why << " at " << at_ << " in: " << text_;
        failed_ = true;
    }
    void skip_blanks() {
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_]))) ++at_;
    }
    bool take(char c) {
        skip_blanks();
        if (at_ < text_.size() && text_[at_] == c) {
            ++at_;
            return true;
        }
        return false;
    }
    std::string_view word() {
        const std::size_t start = at_;
        while (at_ < text_.size() &&
               (std::isalnum(static_cast<unsigned char>(text_[at_])) || text_[at_] == '_'))
            ++at_;
        return text_.substr(start, at_ - start);
    }

    OwnedValue operand() {
        skip_blanks();
        OwnedValue value = new_value();
        if (at_ >= text_.size()) {
            fail("an operand was expected");
            return value;
        }
        const char c = text_[at_];
        if (c == '\'') return quoted();
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '.') return number();
        const std::string_view name = word();
        if (name.empty()) {
            fail("an operand was expected");
            return value;
        }
        if (strncasecmp(name.data(), "NULL", name.size()) == 0 && name.size() == 4) {
            value->is_null = 1;
            return value;
        }
        if (name.size() <= 5 && (strncasecmp(name.data(), "TRUE", name.size()) == 0 ||
                                 strncasecmp(name.data(), "FALSE", name.size()) == 0)) {
            SetBooleanValue_L(value.get(), name.size() == 4);
            return value;
        }
        return call(name);
    }

    OwnedValue quoted() {
        std::string text;
        ++at_;
        while (true) {
            if (at_ >= text_.size()) {
                fail("the quote is not closed");
                break;
            }
            if (text_[at_] == '\'') {
                if (at_ + 1 < text_.size() && text_[at_ + 1] == '\'') {
                    text += '\'';
                    at_ += 2;
                    continue;
                }
                ++at_;
                break;
            }
            text += text_[at_++];
        }
        OwnedValue value = new_value();
        QV_DATE_T date{};
        uint8_t parts = 0;
        if (IsInternalDate_L(text.c_str(), &date, &parts))
            SetDateValue_L(value.get(),
                           parts & QV_DATE_LITERAL_ZONE ? QV_TYPE_DATE_TZ : QV_TYPE_DATE, &date);
        else
            SetTextValue_L(value.get(), text.c_str(), nullptr);
        return value;
    }

    OwnedValue number() {
        const std::size_t start = at_;
        if (text_[at_] == '-') ++at_;
        while (at_ < text_.size() && (std::isdigit(static_cast<unsigned char>(text_[at_])) ||
                                      text_[at_] == '.' || text_[at_] == 'e' || text_[at_] == 'E' ||
                                      ((text_[at_] == '-' || text_[at_] == '+') &&
                                       (text_[at_ - 1] == 'e' || text_[at_ - 1] == 'E'))))
            ++at_;
        OwnedValue value = new_value();
        const std::string digits(text_.substr(start, at_ - start));
        if (StringToBestNumberType_L(digits.c_str(), value.get(), 0, nullptr) != 0)
            fail("not a number");
        return value;
    }

    OwnedValue call(std::string_view name) {
        const ExpFunction *row = builtin_row(name);
        std::vector<OwnedValue> owned;
        if (row == nullptr) fail("no such function");
        if (!take('(')) fail("'(' was expected");
        if (!take(')')) {
            do owned.push_back(operand());
            while (!failed_ && take(','));
            if (!take(')')) fail("')' was expected");
        }
        if (failed_ || row == nullptr) return new_value();
        const auto count = static_cast<uint32_t>(owned.size());
        if (count < row->min_args || count > row->max_args) {
            fail("argument count outside the row's");
            return new_value();
        }
        std::vector<QV_VALUE_T *> arguments;
        for (OwnedValue &argument : owned) arguments.push_back(argument.get());
        return call_row(row, arguments);
    }

    std::string_view text_;
    std::size_t at_ = 0;
    bool failed_ = false;
};

// The value a call gives.
inline OwnedValue evaluate(std::string_view call) {
    return CallReader(call).read();
}

// The text form of the value a call gives; "NULL" for NULL.
inline std::string result_of(std::string_view call) {
    OwnedValue value = evaluate(call);
    return value->is_null ? std::string("NULL") : text_of(value.get());
}

// The type name of a value ("DATE WITH TIME ZONE") followed by its text form.
inline std::string typed(const QV_VALUE_T *value) {
    const QV_DATATYPE_SPEC_T *spec = GetDataTypeSpec_L(value->descriptor.type);
    const std::string name = spec != nullptr ? spec->name : "?";
    return name + " " + (value->is_null ? std::string("NULL") : text_of(value));
}
inline std::string typed_result_of(std::string_view call) {
    return typed(evaluate(call).get());
}

// Values made in one call.
inline OwnedValue text_value(const char *text) {
    OwnedValue value = new_value();
    SetTextValue_L(value.get(), text, nullptr);
    return value;
}
inline OwnedValue integer_value(int64_t n) {
    OwnedValue value = new_value();
    SetIntegerValue_L(value.get(), n);
    return value;
}
inline OwnedValue float_value(double x) {
    OwnedValue value = new_value();
    SetFloatValue_L(value.get(), x);
    return value;
}
inline OwnedValue date_value(const QV_DATE_T &date, uint32_t type = QV_TYPE_DATE) {
    OwnedValue value = new_value();
    SetDateValue_L(value.get(), type, &date);
    return value;
}
inline OwnedValue interval_value(const QV_INTERVAL_DS_T &interval) {
    OwnedValue value = new_value();
    SetValueType_L(value.get(), QV_TYPE_INTERVAL_DS);
    value->is_null = 0;
    value->payload.interval_ds = interval;
    return value;
}
inline OwnedValue interval_value(const QV_INTERVAL_YM_T &interval) {
    OwnedValue value = new_value();
    SetValueType_L(value.get(), QV_TYPE_INTERVAL_YM);
    value->is_null = 0;
    value->payload.interval_ym = interval;
    return value;
}
inline OwnedValue null_value(uint32_t type) {
    OwnedValue value = new_value();
    SetValueType_L(value.get(), type);
    value->is_null = 1;
    return value;
}

// Calls the built-in `name` with values.
inline OwnedValue call(const char *name, std::initializer_list<QV_VALUE_T *> arguments) {
    const ExpFunction *row = builtin_row(name);
    if (row == nullptr) {
        ADD_FAILURE() << "no built-in " << name;
        return new_value();
    }
    return call_row(row, std::vector<QV_VALUE_T *>(arguments));
}

// A table of calls and the texts their results print.
struct CallCase {
    const char *call;
    const char *expected;
};
inline void expect_results(std::initializer_list<CallCase> cases) {
    for (const CallCase &c : cases) EXPECT_EQ(result_of(c.call), c.expected) << c.call;
}

} // namespace qvtest
