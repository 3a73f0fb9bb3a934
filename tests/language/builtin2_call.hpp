// builtin2_call.hpp - calls of the built-in table, written as expression text or made of
// values, for the tests of the date, time, interval, file and mail built-ins.
//
// Texts run through the expression language (Solve_Expression_L), and the tables also
// through the stand-in of the builtin1 suites (builtin1_adapter.hpp), which describes each
// call before it evaluates it, so that the described types are checked too.
#pragma once

#include <gtest/gtest.h>
#include <strings.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "builtin1_adapter.hpp"
#include "language.hpp"
#include "qv/date.h"
#include "qv/express.h"
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

// The value a call gives through the expression language: parsed, validated and solved
// (Solve_Expression_L), its result copied out. A call that does not parse or validate
// fails the test with the message it raised.
inline OwnedValue evaluate(std::string_view call) {
    OwnedValue value = new_value();
    EXPRESSION_T *expression = New_Expression_L(std::string(call).c_str());
    int32_t solved = -1;
    const char *raised = raised_by([&] { solved = Solve_Expression_L(expression); });
    EXPECT_EQ(raised, nullptr) << call << ": " << Msgbuf8;
    EXPECT_EQ(solved, 0) << call;
    if (solved == 0) CopyValue_L(value.get(), &expression->result);
    Free_Expression_L(expression);
    return value;
}

// The value the builtin1 suites' stand-in for the language gives (each call described,
// then evaluated, through CallFunction_L), and in `described` the type the described call
// set.
inline OwnedValue evaluate_by_hand(std::string_view call, uint32_t &described) {
    builtin1::Outcome outcome = builtin1::evaluate(call);
    EXPECT_EQ(outcome.error, "") << call;
    described = outcome.described_type;
    OwnedValue value = new_value();
    *value = outcome.result->value;
    outcome.result->value = QV_VALUE_T{}; // the value's payload now belongs to `value`
    return value;
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
// Each call prints the text expected, run through the expression language and through the
// stand-in; the stand-in's described type is the type of the value.
inline void expect_results(std::initializer_list<CallCase> cases) {
    const auto printed = [](const OwnedValue &value) {
        return value->is_null ? std::string("NULL") : text_of(value.get());
    };
    for (const CallCase &c : cases) {
        EXPECT_EQ(printed(evaluate(c.call)), c.expected) << c.call;
        uint32_t described = 0;
        const OwnedValue by_hand = evaluate_by_hand(c.call, described);
        EXPECT_EQ(printed(by_hand), c.expected) << c.call << " (by hand)";
        EXPECT_EQ(by_hand->descriptor.type, described) << c.call << ": the described type";
    }
}

} // namespace qvtest
