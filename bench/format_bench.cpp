// format_bench.cpp - the library's formatter beside the C library's snprintf, fmt and
// std::to_chars; appending to a text beside std::string; a status context beside a bare
// setjmp; a log-file write beside a buffered fprintf.
//
// Each Asprintf_L iteration formats afresh: it frees and nulls the text of the previous
// iteration first, so the result's allocation is measured too. The snprintf peers write
// into a malloc'd buffer of the right size and free it, in two ways: with the size worked
// out once before the loop (the cheapest fair peer: one malloc and one snprintf), and with
// the size measured in each iteration by snprintf(nullptr, 0, ...) (what a caller that
// does not know the size must do). The fmt and to_chars peers format into a stack buffer
// and copy the result into a malloc'd text, as the formatter hands out a heap text.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <charconv>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "qv/alloc.h"
#include "qv/except.h"
#include "qv/feedback.h"
#include "qv/qvstrlib.h"

// The arguments, in variables the compiler cannot see through, so that it does not work
// out snprintf's results at compile time.
const char *bench_program = "loader";
const char *bench_table = "CUSTOMER";
int bench_row = 12345;
int bench_rows = 99999;
unsigned bench_hex = 0xBEEFu;
double bench_amount = 1834.503271;
double bench_rate = 0.19;
long bench_id = 4000000211L;
std::string bench_long_text(150, 'w');

namespace {

// A malloc'd copy of `size` bytes, ended: what the peers hand out.
char *heap_copy(const char *text, std::size_t size) {
    auto *out = static_cast<char *>(std::malloc(size + 1));
    std::memcpy(out, text, size);
    out[size] = '\0';
    return out;
}

// The formats: a log line, zero-padded hexadecimal, a long text in a wide field, a fixed
// floating-point number, a short pair, and a record line of 20 fields.
#define QV_LOG_LINE_ARGS                                                                           \
    "%s: row %d of %d loaded into %s\n", bench_program, bench_row, bench_rows, bench_table
#define QV_HEX_ARGS "%08x", bench_hex
#define QV_WIDE_TEXT_ARGS "%-200s", bench_long_text.c_str()
#define QV_FLOAT_ARGS "%.6lf", bench_amount
#define QV_SHORT_ARGS "%d %s", bench_row, bench_table
#define QV_RECORD_FORMAT "%s|%d|%s|%s|%.2lf|%ld|%s|%d|%s|%08x|%s|%d|%.6lf|%s|%d|%s|%s|%d|%s|%.2lf\n"
#define QV_RECORD_VALUES                                                                           \
    bench_program, bench_row, bench_table, bench_program, bench_amount, bench_id, bench_table,     \
        bench_rows, bench_program, bench_hex, bench_table, bench_row, bench_rate, bench_program,   \
        bench_rows, bench_table, bench_program, bench_row, bench_table, bench_amount
#define QV_RECORD_ARGS QV_RECORD_FORMAT, QV_RECORD_VALUES

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

// fmt::format_to into a memory buffer, then a heap copy.
template <class Format>
void fmt_heap(benchmark::State &state, Format format) {
    for (auto _ : state) {
        fmt::memory_buffer buffer;
        format(buffer);
        char *out = heap_copy(buffer.data(), buffer.size());
        benchmark::DoNotOptimize(out);
        std::free(out);
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
QV_FORMAT_BENCHMARKS(Float, QV_FLOAT_ARGS)
QV_FORMAT_BENCHMARKS(Short, QV_SHORT_ARGS)
QV_FORMAT_BENCHMARKS(Record, QV_RECORD_ARGS)

void BM_Float_to_chars(benchmark::State &state) {
    for (auto _ : state) {
        char buffer[64];
        auto result = std::to_chars(buffer, buffer + sizeof buffer, bench_amount,
                                    std::chars_format::fixed, 6);
        char *out = heap_copy(buffer, static_cast<std::size_t>(result.ptr - buffer));
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
}
BENCHMARK(BM_Float_to_chars);

void BM_Float_fmt(benchmark::State &state) {
    fmt_heap(state, [](fmt::memory_buffer &buffer) {
        fmt::format_to(std::back_inserter(buffer), "{:.6f}", bench_amount);
    });
}
BENCHMARK(BM_Float_fmt);

void BM_Short_fmt(benchmark::State &state) {
    fmt_heap(state, [](fmt::memory_buffer &buffer) {
        fmt::format_to(std::back_inserter(buffer), "{} {}", bench_row, bench_table);
    });
}
BENCHMARK(BM_Short_fmt);

void BM_Record_fmt(benchmark::State &state) {
    fmt_heap(state, [](fmt::memory_buffer &buffer) {
        fmt::format_to(
            std::back_inserter(buffer),
            "{}|{}|{}|{}|{:.2f}|{}|{}|{}|{}|{:08x}|{}|{}|{:.6f}|{}|{}|{}|{}|{}|{}|{:.2f}\n",
            QV_RECORD_VALUES);
    });
}
BENCHMARK(BM_Record_fmt);

// The record line assembled by hand: texts copied, numbers through std::to_chars.
void BM_Record_to_chars(benchmark::State &state) {
    for (auto _ : state) {
        char buffer[512];
        char *at = buffer, *end = buffer + sizeof buffer;
        auto text = [&](const char *s) {
            const std::size_t n = std::strlen(s);
            std::memcpy(at, s, n);
            at += n;
            *at++ = '|';
        };
        auto number = [&](auto value) {
            at = std::to_chars(at, end, value).ptr;
            *at++ = '|';
        };
        auto fixed = [&](double value, int precision) {
            at = std::to_chars(at, end, value, std::chars_format::fixed, precision).ptr;
            *at++ = '|';
        };
        text(bench_program), number(bench_row), text(bench_table), text(bench_program);
        fixed(bench_amount, 2), number(bench_id), text(bench_table), number(bench_rows);
        text(bench_program);
        char *hex = at;
        at = std::to_chars(at, end, bench_hex, 16).ptr;
        const auto digits = at - hex;
        if (digits < 8) {
            std::memmove(hex + (8 - digits), hex, static_cast<std::size_t>(digits));
            std::memset(hex, '0', static_cast<std::size_t>(8 - digits));
            at = hex + 8;
        }
        *at++ = '|';
        text(bench_table), number(bench_row), fixed(bench_rate, 6), text(bench_program);
        number(bench_rows), text(bench_table), text(bench_program), number(bench_row);
        text(bench_table), fixed(bench_amount, 2);
        at[-1] = '\n';
        char *out = heap_copy(buffer, static_cast<std::size_t>(at - buffer));
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
}
BENCHMARK(BM_Record_to_chars);

// ---- Appending: 16384 pieces to one text ---------------------------------------------------

constexpr int kPieces = 16384;
const char *bench_piece = "row 12345;";

void BM_Append_Asprintf_L(benchmark::State &state) {
    for (auto _ : state) {
        char *out = nullptr;
        for (int i = 0; i < kPieces; ++i) Asprintf_L(&out, "%d,", i);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
}
BENCHMARK(BM_Append_Asprintf_L)->Unit(benchmark::kMicrosecond);

void BM_Append_fmt(benchmark::State &state) {
    for (auto _ : state) {
        std::string out;
        for (int i = 0; i < kPieces; ++i) fmt::format_to(std::back_inserter(out), "{},", i);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Append_fmt)->Unit(benchmark::kMicrosecond);

void BM_Append_string_to_chars(benchmark::State &state) {
    for (auto _ : state) {
        std::string out;
        for (int i = 0; i < kPieces; ++i) {
            char digits[16];
            char *end = std::to_chars(digits, digits + sizeof digits, i).ptr;
            *end++ = ',';
            out.append(digits, end);
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Append_string_to_chars)->Unit(benchmark::kMicrosecond);

void BM_Append_Astrcat_SL(benchmark::State &state) {
    QV_STRING_T piece{nullptr, nullptr};
    AstrcpyE_SL(&piece, bench_piece, UTF8Encoding_L());
    for (auto _ : state) {
        QV_STRING_T out{nullptr, UTF8Encoding_L()};
        for (int i = 0; i < kPieces; ++i) Astrcat_SL(&out, &piece);
        benchmark::DoNotOptimize(out.text);
        FreeString_SL(&out);
    }
    FreeString_SL(&piece);
}
BENCHMARK(BM_Append_Astrcat_SL)->Unit(benchmark::kMicrosecond);

void BM_Append_string(benchmark::State &state) {
    for (auto _ : state) {
        std::string out;
        for (int i = 0; i < kPieces; ++i) {
            benchmark::DoNotOptimize(bench_piece);
            out.append(bench_piece);
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Append_string)->Unit(benchmark::kMicrosecond);

// ---- A status context ------------------------------------------------------------------------

void BM_QV_TRY(benchmark::State &state) {
    for (auto _ : state) {
        QV_TRY("bench", "format_bench") {
            benchmark::ClobberMemory();
        }
        QV_HANDLER {}
        QV_END_TRY("format_bench");
    }
}
BENCHMARK(BM_QV_TRY);

// The floor of any setjmp-based context: saving the jump state.
void BM_setjmp(benchmark::State &state) {
    for (auto _ : state) {
        jmp_buf jump_state;
        if (setjmp(jump_state) == 0) benchmark::ClobberMemory();
        benchmark::DoNotOptimize(&jump_state);
    }
}
BENCHMARK(BM_setjmp);

// ---- The log file ------------------------------------------------------------------------------

std::string bench_log_path(const char *name) {
    return (std::filesystem::temp_directory_path() /
            (std::string(name) + "." + std::to_string(getpid()) + ".log"))
        .string();
}

// "Info_S" writes to the log file only.
void BM_Feedback_L_log_file(benchmark::State &state) {
    const std::string path = bench_log_path("qv_bench_feedback");
    SetFeedbackFile_L(path.c_str(), 0);
    for (auto _ : state) Feedback_L(X_InfoS_FL, "row %d of %s loaded\n", bench_row, bench_table);
    CloseFeedbackFile_L();
    std::remove(path.c_str());
}
BENCHMARK(BM_Feedback_L_log_file);

void BM_Feedback_fprintf(benchmark::State &state) {
    const std::string path = bench_log_path("qv_bench_fprintf");
    FILE *file = std::fopen(path.c_str(), "wb");
    for (auto _ : state) std::fprintf(file, "row %d of %s loaded\r\n", bench_row, bench_table);
    std::fclose(file);
    std::remove(path.c_str());
}
BENCHMARK(BM_Feedback_fprintf);

} // namespace

BENCHMARK_MAIN();
