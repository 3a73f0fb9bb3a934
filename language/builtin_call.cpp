// builtin_call.cpp - the dispatcher of the calling contract (module "builtin").
//
// A form-A handler of maximum count N is called with N argument pointers. The 17 call
// shapes (N = 0..16) are made by one template and kept in a table indexed by N, so a call
// costs the checks of the frame, one indexed load and two indirect calls. Each shape passes
// the given arguments and a null pointer for every position past the count, without
// reading the frame's array there: a frame may hold just the arguments given.
#define QV_MODULE "builtin"

#include <array>
#include <cstddef>
#include <utility>

#include "qv/builtin.h"

namespace {

using Arguments = QV_VALUE_T *const *;
using Caller = void (*)(EXP_HANDLER_T, QV_VALUE_T *, EXP_CALL_FRAME_T *, Arguments, uint32_t);

template <std::size_t>
using ArgumentPointer = QV_VALUE_T *;

// Calls `handler` as handler(result, frame, argument 1, ..., argument N), position i
// getting arguments[i] when i < given and null otherwise.
template <std::size_t... Position>
void call_form_a(EXP_HANDLER_T handler, QV_VALUE_T *result, EXP_CALL_FRAME_T *frame,
                 Arguments arguments, uint32_t given, std::index_sequence<Position...>) {
    using Handler = void (*)(QV_VALUE_T *, EXP_CALL_FRAME_T *, ArgumentPointer<Position>...);
    reinterpret_cast<Handler>(handler)(result, frame,
                                       (Position < given ? arguments[Position] : nullptr)...);
}

template <std::size_t N>
void call_with(EXP_HANDLER_T handler, QV_VALUE_T *result, EXP_CALL_FRAME_T *frame,
               Arguments arguments, uint32_t given) {
    call_form_a(handler, result, frame, arguments, given, std::make_index_sequence<N>{});
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
    const uint32_t given = frame->argument_count > 0 ? frame->argument_count : 0;
    if (maximum > QV_MAX_ARGUMENTS || given > maximum || (given > 0 && frame->arguments == nullptr))
        return -1;
    form_a_callers[maximum](function.handler, result, frame, frame->arguments, given);
    return 0;
}

} // extern "C"
