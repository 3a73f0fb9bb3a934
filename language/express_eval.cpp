// express_eval.cpp - evaluation (module "express"): Solve_Expression_L runs the steps that
// validation prepared over the operand table of its depth and converts the value left into
// the result type; the failure helper every step uses.
//
// An evaluation opens no status context: a failure raised inside a step unwinds through
// Solve_Expression_L, whose Evaluation object then leaves the result NULL and the depth as
// it was, like a failure returned by a step when no context is open.
#define QV_MODULE "express"

#include "core/raise.hpp"
#include "language/express_eval.hpp"
#include "qv/message.h"
#include "values/dataval.hpp"

namespace {

using namespace qv::express;

// One evaluation under way: its depth is taken while it runs; unless it completes, the
// result is left NULL.
class Evaluation {
  public:
    explicit Evaluation(EXPRESSION_T &expression) : expression_(expression) { ++expression.depth; }
    Evaluation(const Evaluation &) = delete;
    Evaluation &operator=(const Evaluation &) = delete;
    ~Evaluation() {
        --expression_.depth;
        if (!completed_) FreeValue_L(&expression_.result);
    }
    void complete() { completed_ = true; }

  private:
    EXPRESSION_T &expression_;
    bool completed_ = false;
};

// A result the last step wrote that does not have the bound type (its operands' types
// changed since validation): converted from a copy of itself.
bool reconverted_result(EXPRESSION_T &expression, const QV_DATATYPE_T &type) {
    qv::values::HeldValue computed(expression.result); // takes over what the result owns
    expression.result.is_null = 1;
    return convert_into_result(expression.result, type, *computed);
}

bool finish(EXPRESSION_T &expression, const Program &program, const QV_VALUE_T &value) {
    QV_VALUE_T &result = expression.result;
    const QV_DATATYPE_T &type = program.bound;
    if (program.writes_result) [[likely]]
        return fits_result(result.descriptor, type) || reconverted_result(expression, type);
    if (value.descriptor.type == type.type && (type.type & fixed_types) != 0 &&
        result.owns_payload == 0) {
        result.descriptor = type;
        result.payload = value.payload;
        result.is_null = value.is_null;
        return true;
    }
    return convert_into_result(expression.result, type, value);
}

} // namespace

namespace qv::express {

bool fail(uint32_t number, std::initializer_list<PWParam> parameters, int line) {
    if (ErrorsSuppressed_L() == 0) {
        PWMessage message(number, MESSAGE_SEVERITY_ERROR);
        for (const PWParam &parameter : parameters) message << parameter;
        LogMessage_L(&message);
    }
    except_raise(GENERAL_ERROR, QV_MODULE, line, 0, 0, nullptr);
    return false;
}

bool convert_into_result(QV_VALUE_T &out, const QV_DATATYPE_T &type, const QV_VALUE_T &value) {
    if (type.type == 0) {
        CopyValue_L(&out, &value);
        return true;
    }
    const QV_DATATYPE_T &d = out.descriptor;
    if (d.type != type.type || d.precision != type.precision || d.scale != type.scale)
        SetValueTypePrecScale_L(&out, type.type, type.precision, type.scale);
    if (ConvertValue_L(&out, &value, 0, 0) != QV_CONVERT_TOO_LONG) {
        if (type.type == QV_TYPE_CHAR && type.precision == 0 &&
            value.descriptor.type == QV_TYPE_CHAR)
            out.descriptor.precision = value.descriptor.precision;
        return true;
    }
    qv::HeapText name(DisplayDataType_L(&type, 1));
    return QV_EVAL_FAIL(QV_MSG_RESULT_DOES_NOT_FIT, name.get());
}

} // namespace qv::express

extern "C" {

QV_API int32_t SetExpressionResultType_L(EXPRESSION_T *expression, const QV_DATATYPE_T *type) {
    if (expression == nullptr) return -1;
    if (type == nullptr || type->type == 0) {
        if (expression->result_declared != 0) expression->validated = 0; // found again
        expression->result_declared = 0;
        return 0;
    }
    expression->result_type = {type->type, type->precision, type->scale, 0};
    expression->result_declared = 1;
    if (Program *program = program_of(expression)) program->bound = expression->result_type;
    return 0;
}

QV_API int32_t Solve_Expression_L(EXPRESSION_T *expression) {
    if (expression == nullptr) return -1;
    if (expression->validated == 0 && Validate_Expression_L(expression) != 1) [[unlikely]] {
        FreeValue_L(&expression->result);
        return -1;
    }
    const int32_t depth = expression->depth;
    if ((depth >= expression->stack_count || expression->operands[depth] == nullptr) &&
        !prepare_depth(expression, depth)) [[unlikely]]
        return -1;
    QV_VALUE_T *const *values = expression->operands[depth];
    const Program &program = *program_of(expression);
    Evaluation evaluation(*expression);
    for (const Step &step : program.steps)
        if (!step.run(step, values)) [[unlikely]]
            return -1;
    if (!finish(*expression, program, *values[program.result])) return -1;
    evaluation.complete();
    return 0;
}

} // extern "C"
