// format_bench.cpp - the library's formatter beside the C library's snprintf.
//
// Each Asprintf_L iteration formats afresh: it frees and nulls the text of the previous
// iteration first, so the result's allocation is measured too. The snprintf peers write
// into a malloc'd buffer of the right size and free it, in two ways: with the size worked
// out once before the loop (the cheapest fair peer: one malloc and one snprintf), and with
// the size measured in each iteration by snprintf(nullptr, 0, ...) (what a caller that
// does not know the size must do).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qv/alloc.h"

// The arguments, in variables the compiler cannot see through, so that it does not work
// out snprintf's results at compile time.
const char *bench_program = "loader";
const char *bench_table = "CUSTOMER";
int bench_row = 12345;
int bench_rows = 99999;
unsigned bench_hex = 0xBEEFu;
std::string bench_long_text(150, 'w');

namespace {

// The three formats: a log line, zero-padded hexadecimal, a long text in a wide field.
#define QV_LOG_LINE_ARGS                                                                           \
    "%s: row %d of %d loaded into %s\n", bench_program, bench_row, bench_rows, bench_table
#define QV_HEX_ARGS "%08x", bench_hex
#define QV_WIDE_TEXT_ARGS "%-200s", bench_long_text.c_str()

template <class Format>
void asprintf_fresh(benchmark::State &state, Format format) {
    char *out = nullptr;
    for (auto _ : state) {
        std::free(out);
        out = nullptr;
        format(&out);
        benchmark::DoNotOptimize(out);
    }
    std::free(out);
}

template <class Format>
void snprintf_known_size(benchmark::State &state, Format format) {
    const auto size = static_cast<std::size_t>(format(nullptr, 0)) + 1;
    for (auto _ : state) {
        auto *buffer = static_cast<char *>(std::malloc(size));
        format(buffer, size);
        benchmark::DoNotOptimize(buffer);
        std::free(buffer);
    }
}

template <class Format>
void snprintf_measured(benchmark::State &state, Format format) {
    for (auto _ : state) {
        const auto size = static_cast<std::size_t>(format(nullptr, 0)) + 1;
        auto *buffer = static_cast<char *>(std::malloc(size));
        format(buffer, size);
        benchmark::DoNotOptimize(buffer);
        std::free(buffer);
    }
}

#define QV_FORMAT_BENCHMARKS(name, ARGS)                                                           \
    void BM_##name##_Asprintf_L(benchmark::State &state) {                                         \
        asprintf_fresh(state, [](char **out) { Asprintf_L(out, ARGS); });                          \
    }                                                                                              \
    void BM_##name##_snprintf_known_size(benchmark::State &state) {                                \
        snprintf_known_size(state, [](char *buffer, std::size_t size) {                            \
            return std::snprintf(buffer, size, ARGS);                                              \
        });                                                                                        \
    }                                                                                              \
    void BM_##name##_snprintf_measured(benchmark::State &state) {                                  \
        snprintf_measured(state, [](char *buffer, std::size_t size) {                              \
            return std::snprintf(buffer, size, ARGS);                                              \
        });                                                                                        \
    }                                                                                              \
    BENCHMARK(BM_##name##_Asprintf_L);                                                             \
    BENCHMARK(BM_##name##_snprintf_known_size);                                                    \
    BENCHMARK(BM_##name##_snprintf_measured);

QV_FORMAT_BENCHMARKS(LogLine, QV_LOG_LINE_ARGS)
QV_FORMAT_BENCHMARKS(ZeroPaddedHex, QV_HEX_ARGS)
QV_FORMAT_BENCHMARKS(WideText, QV_WIDE_TEXT_ARGS)

} // namespace

BENCHMARK_MAIN();
