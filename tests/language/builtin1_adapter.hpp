// builtin1_adapter.hpp - the built-in call tables of the builtin1 suites, run through a
// small stand-in for the expression language: it reads a call whose arguments are literals
// ('text' with '' for a quote, numbers as the language recognises them, NULL, TRUE, FALSE),
// nested calls, parentheses, a leading minus and the array operator "&", and dispatches each
// call through CallFunction_L, first described (as a check of the expression does) and then
// evaluated. The same tables are meant to run through the expression language itself once
// it is there.
#pragma once

#include <cctype>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "language.hpp"
#include "qv/date.h"
#include "qv/encoding.h"
#include "qv/precise.h"

namespace qvtest::builtin1 {

// A value that frees itself and can be moved.
struct Owned {
    QV_VALUE_T value{};
    Owned() = default;
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    ~Owned() { FreeValue_L(&value); }
};
using OwnedPtr = std::unique_ptr<Owned>;

// What evaluating a call gave: the value and the type its described call set.
struct Outcome {
    OwnedPtr result = std::make_unique<Owned>();
    uint32_t described_type = 0;
    std::string error; // set when the text could not be read
    const QV_VALUE_T &value() const { return result->value; }
};

class Reader {
  public:
    explicit Reader(std::string_view text) : text_(text) {}

    // The whole text as one expression; the last call's described type in `described`.
    OwnedPtr expression(uint32_t *described, std::string &error) {
        OwnedPtr value = chain(described);
        skip();
        if (value != nullptr && at_ < text_.size()) fail("text after the expression");
        error = error_;
        return error_.empty() ? std::move(value) : nullptr;
    }

  private:
    void fail(const std::string &why) {
        if (error_.empty()) error_ = why + " at " + std::to_string(at_);
    }
    void skip() {
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_]))) ++at_;
    }
    bool take(char c) {
        skip();
        if (at_ < text_.size() && text_[at_] == c) return ++at_, true;
        return false;
    }

    // term ("&" term)*: the array operator, its operands' elements joined.
    OwnedPtr chain(uint32_t *described) {
        OwnedPtr left = term(described);
        while (left != nullptr && take('&')) {
            OwnedPtr right = term(described);
            if (right == nullptr) return nullptr;
            left = join(std::move(left), std::move(right));
        }
        return left;
    }
    static OwnedPtr join(OwnedPtr left, OwnedPtr right) {
        auto joined = std::make_unique<Owned>();
        ModifyArray_L(&joined->value, 0);
        for (Owned *side : {left.get(), right.get()}) {
            QV_VALUE_T &v = side->value;
            if (v.descriptor.type != QV_TYPE_ARRAY || v.is_null) {
                AppendArrayValue_L(&joined->value, &v);
                continue;
            }
            for (int64_t i = 0; i < ArrayValueCount_L(&v); ++i)
                AppendArrayValue_L(&joined->value, ArrayValueItem_L(&v, i));
        }
        return joined;
    }

    OwnedPtr term(uint32_t *described) {
        skip();
        if (at_ < text_.size() && text_[at_] == '-' && at_ + 1 < text_.size() &&
            (std::isdigit(static_cast<unsigned char>(text_[at_ + 1])) || text_[at_ + 1] == '.'))
            return number();
        if (take('(')) {
            OwnedPtr inner = chain(described);
            if (!take(')')) fail("missing )");
            return inner;
        }
        if (at_ < text_.size() && text_[at_] == '\'') return quoted();
        if (at_ < text_.size() &&
            (std::isdigit(static_cast<unsigned char>(text_[at_])) || text_[at_] == '.'))
            return number();
        return word(described);
    }

    OwnedPtr number() {
        const std::size_t start = at_++;
        while (at_ < text_.size() &&
               (std::isalnum(static_cast<unsigned char>(text_[at_])) || text_[at_] == '.' ||
                ((text_[at_] == '-' || text_[at_] == '+') &&
                 (text_[at_ - 1] == 'e' || text_[at_ - 1] == 'E'))))
            ++at_;
        auto value = std::make_unique<Owned>();
        const std::string digits(text_.substr(start, at_ - start));
        if (StringToBestNumberType_L(digits.c_str(), &value->value, 0, nullptr) != 0)
            fail("bad number " + digits);
        return value;
    }

    // A quoted literal: a date when it reads as one, as the language's own reader does.
    OwnedPtr quoted() {
        std::string text;
        for (++at_;; ++at_) {
            if (at_ >= text_.size()) return fail("unterminated quote"), nullptr;
            if (text_[at_] == '\'') {
                if (at_ + 1 < text_.size() && text_[at_ + 1] == '\'') {
                    text += '\'';
                    ++at_;
                    continue;
                }
                ++at_;
                break;
            }
            text += text_[at_];
        }
        auto value = std::make_unique<Owned>();
        QV_DATE_T date{};
        uint8_t flag = 0;
        if (IsInternalDate_L(text.c_str(), &date, &flag))
            SetDateValue_L(&value->value,
                           (flag & QV_DATE_LITERAL_ZONE) ? QV_TYPE_DATE_TZ : QV_TYPE_DATE, &date);
        else
            SetTextValue_L(&value->value, text.c_str(),
                           IsASCIIString_L(text.c_str(), -1) ? ASCIIEncoding_L()
                                                             : UTF8Encoding_L());
        return value;
    }

    OwnedPtr word(uint32_t *described) {
        const std::size_t start = at_;
        while (at_ < text_.size() &&
               (std::isalnum(static_cast<unsigned char>(text_[at_])) || text_[at_] == '_'))
            ++at_;
        const std::string name(text_.substr(start, at_ - start));
        if (name.empty()) return fail("unexpected character"), nullptr;
        auto value = std::make_unique<Owned>();
        if (strcasecmp(name.c_str(), "NULL") == 0) {
            FreeValue_L(&value->value);
            return value;
        }
        if (strcasecmp(name.c_str(), "TRUE") == 0 || strcasecmp(name.c_str(), "FALSE") == 0) {
            SetBooleanValue_L(&value->value, name.size() == 4);
            return value;
        }
        if (!take('(')) return fail("unknown name " + name), nullptr;
        return call(name, described);
    }

    OwnedPtr call(const std::string &name, uint32_t *described) {
        const ExpFunction *row = Get_BuiltInFns_L();
        while (row->name != nullptr && StricmpUTF8_L(row->name, name.c_str()) != 0) ++row;
        if (row->name == nullptr) return fail("no function " + name), nullptr;
        std::vector<OwnedPtr> arguments;
        if (!take(')')) {
            do {
                OwnedPtr argument = chain(nullptr);
                if (argument == nullptr) return nullptr;
                arguments.push_back(std::move(argument));
            } while (take(','));
            if (!take(')')) return fail("missing ) after the arguments of " + name), nullptr;
        }
        if (arguments.size() < row->min_args || arguments.size() > row->max_args)
            return fail("argument count of " + name), nullptr;
        std::vector<QV_VALUE_T *> pointers;
        for (OwnedPtr &argument : arguments) pointers.push_back(&argument->value);
        auto result = std::make_unique<Owned>();
        EXP_CALL_FRAME_T frame{row,
                               static_cast<int32_t>(pointers.size()),
                               pointers.data(),
                               QV_MODE_DESCRIBE,
                               nullptr,
                               nullptr};
        CallFunction_L(&result->value, &frame);
        if (described != nullptr) *described = result->value.descriptor.type;
        FreeValue_L(&result->value);
        frame.mode = QV_MODE_EVALUATE;
        CallFunction_L(&result->value, &frame);
        return result;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string error_;
};

inline Outcome evaluate(std::string_view expression) {
    Outcome outcome;
    Reader reader(expression);
    OwnedPtr value = reader.expression(&outcome.described_type, outcome.error);
    if (value != nullptr) outcome.result = std::move(value);
    return outcome;
}

// ---- Expectations ------------------------------------------------------------------------------

struct Expected {
    uint32_t type = 0;
    bool null = false;
    std::string text; // the text form (UTF-8), when not a FLOAT compared as a double
    bool by_double = false;
    double real = 0;
};
inline Expected is(uint32_t type, std::string text) {
    return {type, false, std::move(text)};
}
inline Expected null_of(uint32_t type) {
    return {type, true, {}};
}
inline Expected integer(int64_t n) {
    return is(QV_TYPE_INTEGER, std::to_string(n));
}
inline Expected text(std::string t) {
    return is(QV_TYPE_CHAR, std::move(t));
}
inline Expected truth(bool b) {
    return is(QV_TYPE_BOOLEAN, b ? "TRUE" : "FALSE");
}
// A FLOAT equal to `x` bit for bit (NaN matches NaN; -0.0 differs from 0.0).
inline Expected real(double x) {
    Expected e{QV_TYPE_FLOAT, false, {}};
    e.by_double = true;
    e.real = x;
    return e;
}

struct Case {
    std::string expression;
    Expected expected;
};

// Checks one call; the described type must agree with the evaluated one unless `loose`.
inline void check(const Case &c, bool loose = false) {
    SCOPED_TRACE(c.expression);
    Outcome got = evaluate(c.expression);
    ASSERT_EQ(got.error, "");
    const QV_VALUE_T &v = got.value();
    EXPECT_EQ(v.descriptor.type, c.expected.type);
    EXPECT_EQ(v.is_null != 0, c.expected.null);
    if (!loose) {
        EXPECT_EQ(got.described_type, v.descriptor.type) << "described type";
    }
    if (c.expected.null || v.is_null) return;
    if (c.expected.by_double) {
        const double x = v.payload.real, want = c.expected.real;
        EXPECT_TRUE((std::isnan(x) && std::isnan(want)) ||
                    (x == want && std::signbit(x) == std::signbit(want)))
            << x << " against " << want;
        return;
    }
    EXPECT_EQ(text_of(&v), c.expected.text);
}

inline void check_all(const std::vector<Case> &cases, bool loose = false) {
    for (const Case &c : cases) check(c, loose);
}

} // namespace qvtest::builtin1
