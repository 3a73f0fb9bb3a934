// express_eval.hpp - the inside of the evaluator (module "express"): the prepared form that
// validation makes of a parsed expression, the routines that compute its steps, and what
// validation, evaluation, calls and tracing share.
//
// The prepared form. Validation walks the postfix list once, as an evaluation would, and
// writes down what each evaluation must do as a flat array of steps. Every value an
// evaluation reads has an index in the expression's operand table (EXPRESSION_T::operands,
// one table per depth of recursion): the index of a literal, a bound name or a variable
// points at that value itself (borrowed, never copied); the index of an operator's or a
// call's result points at a value of that depth's stack, one value per step, so a step's
// result never shares a record with its operands and keeps its type (and its text block)
// from one evaluation to the next. A step names the routine that computes it, chosen for
// the types its operands had at validation (a routine checks them again and hands values
// of other types to the general rule of its operator), the index it writes and the
// indices it reads. An evaluation runs the steps in order and converts the value at the
// result index into the result type.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "core/heap.hpp"
#include "language/express.hpp"
#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/express.h"
#include "qv/msgclass.h"

namespace qv::express {

struct Step;
// Computes one step. Returns false after a failure, which has been logged and raised (the
// raise returned because no status context was open).
using Executor = bool (*)(const Step &step, QV_VALUE_T *const *values);

// What a function-call step needs beyond its operands.
struct CallSite {
    EXP_CALL_FRAME_T *frame = nullptr;   // the item's frame
    EXP_USER_FUNCTION_T *user = nullptr; // the user-defined function called, or null
    bool wraps = false;                  // a position's mask is ARRAY: wrap other values
    QV_DATATYPE_T user_type{};           // a user-defined function's result type
    // Bit i: argument i (below 64), at an ARRAY position, is a variable, handed over as it
    // is so that the handler may change it (ArrayAddItem($a, x)).
    uint64_t unwrapped = 0;
};

struct Step {
    Executor run = nullptr;
    int32_t out = 0;               // the index the step writes
    int32_t a = 0, b = 0, c = 0;   // the indices it reads: operands in order
    int32_t count = 0;             // IN: elements; call: arguments
    const int32_t *list = nullptr; // their indices
    EXP_ITEM_T *item = nullptr;    // the item it comes from (position, operator, function)
    CallSite *call = nullptr;
};

// Where an index of the operand table points: a borrowed value, or a value of the stack.
struct Source {
    QV_VALUE_T *borrowed = nullptr;
    int32_t slot = -1;
};

struct Program {
    Vector<Step> steps;
    Vector<int32_t> lists;
    Vector<CallSite> calls;
    Vector<Source> sources;     // one per index of the operand table
    int32_t result = 0;         // the index of the value the expression leaves
    bool writes_result = false; // that index is the expression's result record itself
    // The type every result is converted into: the declared result type, or the type
    // validation found with a CHAR's length dropped (a length validation derives describes
    // the text; it never cuts it).
    QV_DATATYPE_T bound{};
};

// Types whose payload is a plain copy (no memory, no precision that matters).
inline constexpr uint32_t fixed_types = QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_BOOLEAN |
                                        QV_TYPE_DATE | QV_TYPE_TIME | QV_TYPE_TIME_TZ |
                                        QV_TYPE_DATE_TZ | QV_TYPE_INTERVAL_DS | QV_TYPE_INTERVAL_YM;

// The type the evaluation converts results into, for a result type `type` the host
// declared (`declared`) or validation found.
inline QV_DATATYPE_T result_bound(const QV_DATATYPE_T &type, bool declared) {
    QV_DATATYPE_T bound{type.type, type.precision, type.scale, 0};
    if (!declared && type.type == QV_TYPE_CHAR) bound.precision = 0;
    return bound;
}

// Whether a value of type `type` is a result of type `result` as it stands: the same type
// code, and for types with a precision the same scale and the same precision (or a result
// precision of 0, no limit). A result type 0 takes every value.
inline bool fits_result(const QV_DATATYPE_T &type, const QV_DATATYPE_T &result) {
    if (result.type == 0) return true;
    if (type.type != result.type) return false;
    return (type.type & fixed_types) != 0 ||
           (type.scale == result.scale &&
            (result.precision == 0 || type.precision == result.precision));
}

// Three-valued truth: NULL, and a value that does not read as a truth value, are unknown.
enum class Truth : uint8_t { no, yes, unknown };

inline Truth truth_of(const QV_VALUE_T &value) {
    if (value.is_null != 0) return Truth::unknown;
    if (value.descriptor.type == QV_TYPE_BOOLEAN)
        return value.payload.boolean != 0 ? Truth::yes : Truth::no;
    uint8_t truth = 0;
    if (ValueToBoolean_L(&value, &truth) != QV_VALUE_OK) return Truth::unknown;
    return truth != 0 ? Truth::yes : Truth::no;
}

// Whether a condition holds: it reads as TRUE.
inline bool holds(const QV_VALUE_T &value) {
    return truth_of(value) == Truth::yes;
}

// `value` into `out` in the type `type`: copied when the type is 0, converted otherwise. A CHAR
// converted into a CHAR without a length keeps the length it had. False, with the failure
// logged and raised, when the value does not fit.
bool convert_into_result(QV_VALUE_T &out, const QV_DATATYPE_T &type, const QV_VALUE_T &value);

// What validation knows of an operand's type: its descriptor (type 0: unknown), or that it
// is the literal NULL, which has no type.
struct StaticType {
    QV_DATATYPE_T desc{};
    bool null_literal = false;
};

// ---- The prepared form (express_validate.cpp) ----------------------------------------------

inline Program *program_of(const EXPRESSION_T *expression) {
    return static_cast<Program *>(expression->prepared);
}
// Frees the prepared form and the per-depth stacks and tables; the expression is no longer
// validated. Its result, bindings and frames stay.
void free_program(EXPRESSION_T *expression);
// Makes the stack and the operand table of `depth` when they are not made yet. False after
// an allocation failure (raised).
bool prepare_depth(EXPRESSION_T *expression, int32_t depth);
// Points index `index` of the operand table at `value`, at every depth made so far.
void repoint_operand(EXPRESSION_T *expression, int32_t index, QV_VALUE_T *value);
// The types of a value that an ARRAY argument position wraps into a one-element array.
inline constexpr uint32_t wrapped_types = 0x1fe9f;

// ---- Operators (express_operators.cpp) -----------------------------------------------------

// The routine of an operator for operands of these types (the right one ignored for
// operators of one operand); null for an unknown operator code.
Executor operator_executor(int32_t code, const StaticType &left, const StaticType &right);
// The routine of LIKE or NOT LIKE (`code`) for a constant pattern it can match by bytes,
// with the length it compares in `prefix` (-1: the whole text); null for other patterns.
Executor like_executor(int32_t code, const QV_VALUE_T &pattern, int32_t &prefix);
// The type of the value an operator leaves, as far as validation can tell.
StaticType operator_type(int32_t code, const StaticType &left, const StaticType &right);

// ---- Calls (express_call.cpp) --------------------------------------------------------------

bool call_function(const Step &step, QV_VALUE_T *const *values);
// The routine of a call of `record` with `count` arguments: a user-defined call, If and
// IfNull as steps that choose an argument without the dispatcher, or call_function.
Executor call_executor(const ExpFunction &record, const CallSite &site, int32_t count);
bool call_user_function(const Step &step, QV_VALUE_T *const *values);
// Finds the variable of a reference that did not exist at validation.
bool resolve_variable(const Step &step, QV_VALUE_T *const *values);
// The user-defined function whose record is `record`, searched in every function array of
// the current function struct; null when none has it.
EXP_USER_FUNCTION_T *find_user_function(const ExpFunction *record);

// Runs a user-defined function's body once its parameters hold the arguments; returns the
// value the body gave (the function's result before its conversion), or null after a
// failure (raised). The script layer installs its runner; until then a body is an
// expression, evaluated with Solve_Expression_L.
using BodyRunner = const QV_VALUE_T *(*)(EXP_USER_FUNCTION_T *function);
void install_body_runner(BodyRunner runner);

// Calls of user-defined functions (and script runs) under way, checked against
// recursion_limit.
extern int32_t run_nesting;

// ---- Failures ---------------------------------------------------------------------------

// Logs message `number` with its parameters at severity error (unless errors are
// suppressed), raises GENERAL_ERROR from this module and returns false.
bool fail(uint32_t number, std::initializer_list<PWParam> parameters, int line);
#define QV_EVAL_FAIL(number, ...) ::qv::express::fail((number), {__VA_ARGS__}, __LINE__)

// ---- Tracing (express_trace.cpp) -----------------------------------------------------------

// The trace options while a trace file is open, else 0: what the evaluator tests before it
// writes a trace line.
extern uint32_t trace_active;
// The indentation of trace lines: levels of user-defined calls.
extern int32_t trace_depth;

void trace_function_call(const EXP_CALL_FRAME_T &frame, const QV_VALUE_T &result);
void trace_user_entry(const EXP_USER_FUNCTION_T &function, const EXP_CALL_FRAME_T &frame,
                      int32_t depth);
void trace_user_return(const EXP_USER_FUNCTION_T &function, const QV_VALUE_T &result,
                       int32_t depth);
// Continues the trace line with a value: its type and a blank when `typed`, then the value
// ('text' for the string types, <NULL> for NULL).
void trace_value(const QV_VALUE_T &value, bool typed);

// ---- Values ------------------------------------------------------------------------------

// Frees what a value owns (a computed value about to be overwritten).
inline void release(QV_VALUE_T &value) {
    if (value.owns_payload != 0) [[unlikely]]
        FreeValue_L(&value);
}
inline void put_integer(QV_VALUE_T &value, int64_t integer) {
    release(value);
    value.descriptor = {QV_TYPE_INTEGER, 0, 0, 0};
    value.payload.integer = integer;
    value.is_null = 0;
}
inline void put_real(QV_VALUE_T &value, double real) {
    release(value);
    value.descriptor = {QV_TYPE_FLOAT, 0, 0, 0};
    value.payload.real = real;
    value.is_null = 0;
}
inline void put_boolean(QV_VALUE_T &value, bool truth) {
    release(value);
    value.descriptor = {QV_TYPE_BOOLEAN, 0, 0, 0};
    value.payload.boolean = truth ? 1 : 0;
    value.is_null = 0;
}
// NULL of the type (type, precision and scale).
inline void put_null(QV_VALUE_T &value, const QV_DATATYPE_T &type) {
    release(value);
    value.descriptor = {type.type, type.precision, type.scale, 0};
    value.is_null = 1;
}
inline void put_null(QV_VALUE_T &value, uint32_t type) {
    put_null(value, QV_DATATYPE_T{type, 0, 0, 0});
}

} // namespace qv::express
