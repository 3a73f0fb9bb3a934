// language_bench.cpp - the dispatcher of the calling contract beside a direct call of the
// same handler: form A with a maximum count of 0..16 and every argument given, form A of 16
// with one argument given (the padded path), and form B.
//
// The handlers are not inlined and do the same small work either way (they count the
// arguments they got, plus one), so the difference is what the dispatcher adds: the checks of the
// frame, the table of call shapes and one more indirect call.
#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <utility>

#include "qv/builtin.h"

namespace {

template <std::size_t>
using Pointer = QV_VALUE_T *;

template <class Positions>
struct Handler;
template <std::size_t... Position>
struct Handler<std::index_sequence<Position...>> {
    [[gnu::noinline]] static void call(QV_VALUE_T *result, EXP_CALL_FRAME_T *,
                                       Pointer<Position>... given) {
        result->payload.integer += (1 + ... + (given != nullptr));
    }
};

[[gnu::noinline]] void form_b(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    result->payload.integer += 1 + frame->argument_count;
}

struct Call {
    std::array<QV_VALUE_T, QV_MAX_ARGUMENTS> values{};
    std::array<QV_VALUE_T *, QV_MAX_ARGUMENTS> arguments{};
    QV_VALUE_T result{};
    ExpFunction record{};
    EXP_CALL_FRAME_T frame{};

    Call(uint32_t maximum, int32_t given, EXP_HANDLER_T handler, uint8_t repeat) {
        for (std::size_t i = 0; i < arguments.size(); ++i) arguments[i] = &values[i];
        record.max_args = maximum;
        record.handler = handler;
        record.repeat = repeat;
        frame = {&record, given, arguments.data(), QV_MODE_EVALUATE, nullptr, nullptr};
    }
};

template <std::size_t N>
void dispatched(benchmark::State &state, int32_t given) {
    using Shape = Handler<std::make_index_sequence<N>>;
    Call call(N, given, reinterpret_cast<EXP_HANDLER_T>(&Shape::call), 0);
    for (auto _ : state) {
        CallFunction_L(&call.result, &call.frame);
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(call.result.payload.integer);
}

template <std::size_t... Position>
void direct(benchmark::State &state, std::index_sequence<Position...>) {
    using Shape = Handler<std::index_sequence<Position...>>;
    Call call(sizeof...(Position), sizeof...(Position), nullptr, 0);
    for (auto _ : state) {
        Shape::call(&call.result, &call.frame, call.frame.arguments[Position]...);
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(call.result.payload.integer);
}

template <std::size_t... N>
void register_form_a(std::index_sequence<N...>) {
    (benchmark::RegisterBenchmark(("BM_Dispatch_FormA/" + std::to_string(N)).c_str(),
                                  [](benchmark::State &state) { dispatched<N>(state, N); }),
     ...);
    (benchmark::RegisterBenchmark(
         ("BM_Direct_FormA/" + std::to_string(N)).c_str(),
         [](benchmark::State &state) { direct(state, std::make_index_sequence<N>{}); }),
     ...);
}

const int registered = [] {
    register_form_a(std::make_index_sequence<QV_MAX_ARGUMENTS + 1>{});
    return 0;
}();

void BM_Dispatch_FormA16_OneGiven(benchmark::State &state) {
    dispatched<QV_MAX_ARGUMENTS>(state, 1);
}
BENCHMARK(BM_Dispatch_FormA16_OneGiven);

void BM_Dispatch_FormB(benchmark::State &state) {
    Call call(QV_UNLIMITED_ARGUMENTS, 3, reinterpret_cast<EXP_HANDLER_T>(form_b), 1);
    for (auto _ : state) {
        CallFunction_L(&call.result, &call.frame);
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(call.result.payload.integer);
}
BENCHMARK(BM_Dispatch_FormB);

void BM_Direct_FormB(benchmark::State &state) {
    Call call(QV_UNLIMITED_ARGUMENTS, 3, nullptr, 1);
    for (auto _ : state) {
        form_b(&call.result, &call.frame);
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(call.result.payload.integer);
}
BENCHMARK(BM_Direct_FormB);

} // namespace

BENCHMARK_MAIN();
