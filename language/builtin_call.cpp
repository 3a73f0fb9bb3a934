// builtin_call.cpp - the dispatcher of the calling contract (module "builtin").
//
// A form-A handler of maximum count N is called with N argument pointers. The 17 call
// shapes (N = 0..16) are made by one template and kept in a table indexed by N, so a call
// costs the checks of the frame, one indexed load and two indirect calls. A frame that gives
// fewer arguments than N is padded with null pointers in a local array; the evaluator's
// frames, which hold N pointers already, are passed as they are.
#define QV_MODULE "builtin"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "qv/builtin.h"

namespace {

using Arguments = QV_VALUE_T *const *;
using Caller = void (*)(EXP_HANDLER_T, QV_VALUE_T *, EXP_CALL_FRAME_T *, Arguments);

template <std::size_t>
using ArgumentPointer = QV_VALUE_T *;

// Calls `handler` as handler(result, frame, arguments[0], ..., arguments[N - 1]).
template <std::size_t... Position>
void call_form_a(EXP_HANDLER_T handler, QV_VALUE_T *result, EXP_CALL_FRAME_T *frame,
                 Arguments arguments, std::index_sequence<Position...>) {
    using Handler = void (*)(QV_VALUE_T *, EXP_CALL_FRAME_T *, ArgumentPointer<Position>...);
    reinterpret_cast<Handler>(handler)(result, frame, arguments[Position]...);
}

template <std::size_t N>
void call_with(EXP_HANDLER_T handler, QV_VALUE_T *result, EXP_CALL_FRAME_T *frame,
               Arguments arguments) {
    call_form_a(handler, result, frame, arguments, std::make_index_sequence<N>{});
}

template <std::size_t... N>
constexpr std::array<Caller, sizeof...(N)> make_callers(std::index_sequence<N...>) {
    return {&call_with<N>...};
}

constexpr auto form_a_callers = make_callers(std::make_index_sequence<QV_MAX_ARGUMENTS + 1>{});
static_assert(form_a_callers.size() == 17);

} // namespace

extern "C" {

QV_API int32_t CallFunction_L(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    if (result == nullptr || frame == nullptr || frame->function == nullptr) return -1;
    const ExpFunction &function = *frame->function;
    if (function.handler == nullptr) return -1;
    if (function.repeat) {
        reinterpret_cast<EXP_FORM_B_HANDLER_T>(function.handler)(result, frame);
        return 0;
    }
    const uint32_t maximum = function.max_args;
    const int32_t count = frame->argument_count;
    if (maximum > QV_MAX_ARGUMENTS || (count > 0 && static_cast<uint32_t>(count) > maximum) ||
        (count > 0 && frame->arguments == nullptr))
        return -1;
    const Caller caller = form_a_callers[maximum];
    if (count >= 0 && static_cast<uint32_t>(count) == maximum) {
        caller(function.handler, result, frame, frame->arguments);
        return 0;
    }
    QV_VALUE_T *padded[QV_MAX_ARGUMENTS] = {};
    if (count > 0) std::copy_n(frame->arguments, count, padded);
    caller(function.handler, result, frame, padded);
    return 0;
}

} // extern "C"
