// builtin_conditional.cpp - the conditional built-ins (module "builtin"): Choose, If and
// IfNull. Each gives a copy (CopyValue_L) of one of its arguments, so its result has that
// argument's type; described, its type comes from the arguments too.
#define QV_MODULE "builtin"

#include "language/builtin_shared.hpp"

namespace {

using namespace qv::builtin;

// Describe mode of If and IfNull: the type of `first` widened by the best-type rule to hold
// values of `second` as well.
void begin_widened(QV_VALUE_T *result, const EXP_CALL_FRAME_T *frame, const QV_VALUE_T *first,
                   const QV_VALUE_T *second) {
    QV_DATATYPE_T best{}, other{};
    if (first != nullptr) CopyDataType_L(&best, &first->descriptor);
    if (second != nullptr) CopyDataType_L(&other, &second->descriptor);
    best.extra = other.extra = 0;
    BestDataType_L(&best, &other, 0);
    begin(result, frame, best.type, best.precision, best.scale);
}

// The result becomes a copy of `chosen`, or NULL of `model`'s type when chosen is absent.
void copy_or_null(QV_VALUE_T *result, const QV_VALUE_T *chosen, const QV_VALUE_T *model) {
    if (present(chosen)) {
        CopyValue_L(result, chosen);
        return;
    }
    begin_like(result, nullptr, model);
    set_null(result);
}

// Choose( index, outcome1 [, outcome2 ... ] ): the outcome at the index, which counts from
// 1 and is honoured up to 15 only, however many outcomes are given. Typed as outcome 1;
// NULL for another index, a missing outcome or a NULL one.
void choose(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments given) {
    constexpr int64_t kMaxOutcome = 15;
    if (!begin_like(result, frame, given[1])) return;
    int64_t index = 0;
    if (!read_integer(given[0], index) || index < 1 || index > kMaxOutcome ||
        index >= given.count || !present(given[static_cast<int32_t>(index)]))
        return set_null(result);
    CopyValue_L(result, given[static_cast<int32_t>(index)]);
}

// If( condition, TRUE outcome, FALSE outcome ): the second argument when the condition
// reads as TRUE (as ValueToBoolean_L reads it: TRUE, 'yes', 1 ...), else the third, also
// for a NULL condition or one that does not read as a truth value.
void if_then_else(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *condition,
                  QV_VALUE_T *when_true, QV_VALUE_T *when_false) {
    if (!evaluating(frame)) return begin_widened(result, frame, when_true, when_false);
    const QV_VALUE_T *chosen = optional_truth(condition, false) ? when_true : when_false;
    copy_or_null(result, chosen, chosen);
}

// IfNull( value, NULL outcome ): the value unless it is NULL, else the outcome unless it is
// NULL, else NULL of the value's type.
void if_null(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value, QV_VALUE_T *outcome) {
    if (!evaluating(frame)) return begin_widened(result, frame, value, outcome);
    copy_or_null(result, present(value) ? value : outcome, value);
}

} // namespace

extern "C" {

QV_API void BI_choose(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run_b<choose>(result, frame);
}
QV_API void BI_if(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                  QV_VALUE_T *a3) {
    run<if_then_else>(result, frame, a1, a2, a3);
}
QV_API void BI_if_null(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                       QV_VALUE_T *a2) {
    run<if_null>(result, frame, a1, a2);
}

} // extern "C"
