// express_eval_support.hpp - what the evaluator suites share: a fixture whose scripts are
// freed as expressions, an expression that frees itself, the raw value an evaluation left
// before its conversion, and a few host functions with real handlers (conditions, counts,
// arrays) for calls made without the built-in library.
#pragma once

#include <cstring>
#include <string>

#include "language.hpp"
#include "language/express.hpp"
#include "language/express_eval.hpp"
#include "qv/express.h"

namespace qvtest {

constexpr int32_t kMask = EXP_MASK_EXPRESSION | EXP_MASK_CONDITION | EXP_MASK_PLACEHOLDER;

// The language fixture with expressions as scripts, no trace file, the default recursion
// limit and errors collected in the message context.
class EvalTest : public LanguageTest {
  protected:
    void SetUp() override {
        LanguageTest::SetUp();
        qv::install_script_freer(Free_Expression_L);
        qv::express::recursion_limit = qv::express::default_recursion_limit;
    }
    void TearDown() override {
        TraceOff_L();
        LanguageTest::TearDown();
        qv::install_script_freer(Free_Expression_L); // the library's own, as at load
    }
    std::vector<std::string> messages() const { return texts_of(context); }
};

// A parsed expression that frees itself; parsing failures fail the test.
class Expression {
  public:
    explicit Expression(const char *text, const ExpFunction *const *tables = nullptr,
                        int32_t table_count = 0)
        : e_(New_Expression_L(text)) {
        EXPECT_EQ(Parse_Expression_L(e_, kMask, tables, table_count), 1) << text;
    }
    Expression(const Expression &) = delete;
    Expression &operator=(const Expression &) = delete;
    ~Expression() { Free_Expression_L(e_); }

    EXPRESSION_T *get() const { return e_; }
    EXPRESSION_T *operator->() const { return e_; }
    Expression &bind(const char *name, QV_VALUE_T *value) {
        EXPECT_GT(BindExpressionName_L(e_, name, value), 0) << name;
        return *this;
    }
    // Solves and returns the result's text form ("<null>" for NULL, "failed" for -1).
    std::string solve() const {
        if (Solve_Expression_L(e_) != 0) return "failed";
        return text_of(&e_->result);
    }
    // The value the steps left, before its conversion into the result type (when its step
    // writes the result itself, that is the result).
    const QV_VALUE_T &raw() const { return *e_->operands[0][qv::express::program_of(e_)->result]; }

  private:
    EXPRESSION_T *e_;
};

// ---- Host functions -------------------------------------------------------------------------

// Pick( condition, when true, when false ): If with a copy of the chosen value, typed as
// the second argument.
inline void pick(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *condition,
                 QV_VALUE_T *yes, QV_VALUE_T *no) {
    if (frame->mode != QV_MODE_EVALUATE) {
        QV_DATATYPE_T type = yes->descriptor;
        QV_DATATYPE_T other = no->descriptor;
        BestDataType_L(&type, &other, 0);
        SetValueTypePrecScale_L(result, type.type, type.precision, type.scale);
        return;
    }
    uint8_t truth = 0;
    const bool chosen = condition != nullptr && condition->is_null == 0 &&
                        ValueToBoolean_L(condition, &truth) == QV_VALUE_OK && truth != 0;
    CopyValue_L(result, chosen ? yes : no);
}

// OrElse( value, outcome ): IfNull.
inline void or_else(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value,
                    QV_VALUE_T *outcome) {
    if (frame->mode != QV_MODE_EVALUATE) {
        QV_DATATYPE_T type = value->descriptor;
        QV_DATATYPE_T other = outcome->descriptor;
        BestDataType_L(&type, &other, 0);
        SetValueTypePrecScale_L(result, type.type, type.precision, type.scale);
        return;
    }
    CopyValue_L(result, value->is_null == 0 ? value : outcome);
}

// Given( a [, b [, c]] ): how many positions received a pointer, as "a.b.c" of 1 and 0 (so
// that null pointers past the count show).
inline void given(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a, QV_VALUE_T *b,
                  QV_VALUE_T *c) {
    SetValueType_L(result, QV_TYPE_CHAR);
    if (frame->mode != QV_MODE_EVALUATE) return;
    std::string shown;
    for (QV_VALUE_T *v : {a, b, c})
        shown += v != nullptr ? (shown.empty() ? "1" : ".1") : (shown.empty() ? "0" : ".0");
    SetTextValue_L(result, shown.c_str(), nullptr);
}

// Elements( array ): the element count of its one argument, whose position takes arrays
// only (so other values arrive wrapped).
inline void elements(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array) {
    SetValueType_L(result, QV_TYPE_INTEGER);
    if (frame->mode != QV_MODE_EVALUATE) return;
    SetIntegerValue_L(result,
                      array->descriptor.type == QV_TYPE_ARRAY ? ArrayValueCount_L(array) : -1);
}

// Count( value ... ): form B, the number of arguments given.
inline void count(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    SetValueType_L(result, QV_TYPE_INTEGER);
    if (frame->mode != QV_MODE_EVALUATE) return;
    SetIntegerValue_L(result, frame->argument_count);
}

// Half( number ): a FLOAT, NULL for NULL.
inline void half(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *number) {
    SetValueType_L(result, QV_TYPE_FLOAT);
    if (frame->mode != QV_MODE_EVALUATE) return;
    double x = 0;
    if (number == nullptr || number->is_null != 0 || ValueToDouble_L(number, &x) != 0)
        return FreeValue_L(result);
    SetFloatValue_L(result, x / 2);
}

// Tick(): TRUE, counting its calls in `ticks`.
inline int ticks = 0;
inline void tick(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    SetValueType_L(result, QV_TYPE_BOOLEAN);
    if (frame->mode != QV_MODE_EVALUATE) return;
    ++ticks;
    SetBooleanValue_L(result, 1);
}

inline ExpFunction host_function(const char *name, EXP_HANDLER_T handler, uint32_t minimum,
                                 uint32_t maximum, uint32_t result_type,
                                 std::initializer_list<uint32_t> masks, uint8_t repeat = 0) {
    ExpFunction row{};
    row.name = name;
    row.usage = name;
    row.number = 9100;
    row.handler = handler;
    row.category = QV_CATEGORY_MISCELLANEOUS;
    row.max_args = maximum;
    row.min_args = minimum;
    row.result_type = result_type;
    uint32_t i = 0;
    for (uint32_t mask : masks) row.arg_types[i++] = mask;
    row.repeat = repeat;
    return row;
}

inline const ExpFunction eval_functions[] = {
    host_function("Pick", QV_EXP_HANDLER(pick), 3, 3, 0,
                  {QV_TYPE_BOOLEAN, QV_MASK_ANY, QV_MASK_ANY}),
    host_function("OrElse", QV_EXP_HANDLER(or_else), 2, 2, 0, {QV_MASK_ANY, QV_MASK_ANY}),
    host_function("Given", QV_EXP_HANDLER(given), 0, 3, QV_TYPE_CHAR,
                  {QV_MASK_ANY, QV_MASK_ANY, QV_MASK_ANY}),
    host_function("Elements", QV_EXP_HANDLER(elements), 1, 1, QV_TYPE_INTEGER, {QV_TYPE_ARRAY}),
    host_function("Count", QV_EXP_HANDLER(count), 0, QV_UNLIMITED_ARGUMENTS, QV_TYPE_INTEGER,
                  {QV_MASK_ANY}, 1),
    host_function("Half", QV_EXP_HANDLER(half), 1, 1, QV_TYPE_FLOAT, {QV_MASK_NUMBER}),
    host_function("Tick", QV_EXP_HANDLER(tick), 0, 0, QV_TYPE_BOOLEAN, {}),
    ExpFunction{},
};
inline const ExpFunction *const eval_tables[] = {eval_functions};

// A user-defined function of one parameter `n` (INTEGER) returning `result_type`, without a
// body yet, declared in the current function array.
inline EXP_USER_FUNCTION_T *declare(const char *name, uint32_t result_type) {
    EXP_USER_FUNCTION_T *f = NewFunction(name, nullptr, nullptr, 0);
    ExpFunction &record = *f->record;
    record.name = strdup(name);
    record.usage = strdup(name);
    record.category = QV_CATEGORY_USER;
    record.max_args = record.min_args = 1;
    record.result_type = result_type;
    record.arg_types[0] = QV_MASK_NUMBER;
    CreateVariable_L(f->parameters, "n", QV_TYPE_INTEGER, 0, 0, nullptr);
    return f;
}

} // namespace qvtest
