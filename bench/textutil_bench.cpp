// textutil_bench.cpp - the checksum fold beside zlib's crc32, the UTF-8 scans beside a
// plain byte loop and strlen, and the LIKE matchers on long rows.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <zlib.h>

#include "qv/encoding.h"
#include "qv/textutil.h"

namespace {

std::vector<unsigned char> random_buffer(size_t size) {
    std::mt19937 random(42);
    std::vector<unsigned char> bytes(size);
    for (auto &b : bytes) b = static_cast<unsigned char>(random());
    return bytes;
}

// Mostly ASCII with a two-byte character every 64 bytes, terminated.
std::string mixed_text(size_t size) {
    std::string text;
    while (text.size() + 2 < size) {
        text.append(62, 'a');
        text.append("\xC3\xA9");
    }
    return text;
}

void BM_crc32_L(benchmark::State &state) {
    auto bytes = random_buffer(static_cast<size_t>(state.range(0)));
    uint32_t crc = 0;
    for (auto _ : state) {
        crc = crc32_L(crc, bytes.data(), bytes.size());
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_crc32_L)->Arg(4096)->Arg(1 << 20);

void BM_zlib_crc32(benchmark::State &state) {
    auto bytes = random_buffer(static_cast<size_t>(state.range(0)));
    uLong crc = 0;
    for (auto _ : state) {
        crc = crc32(crc, bytes.data(), static_cast<uInt>(bytes.size()));
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_zlib_crc32)->Arg(4096)->Arg(1 << 20);

void BM_IsASCIIString_L(benchmark::State &state) {
    std::string text(static_cast<size_t>(state.range(0)), 'a');
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(IsASCIIString_L(text.data(), static_cast<int32_t>(text.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_IsASCIIString_L)->Arg(64)->Arg(4096)->Arg(1 << 20);

// The obvious loop, kept from being turned into the same word scan.
void BM_ascii_byte_loop(benchmark::State &state) {
    std::string text(static_cast<size_t>(state.range(0)), 'a');
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        bool ascii = true;
        for (char c : text) {
            if (static_cast<unsigned char>(c) >= 0x80) {
                ascii = false;
                break;
            }
        }
        benchmark::DoNotOptimize(ascii);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_ascii_byte_loop)->Arg(64)->Arg(4096)->Arg(1 << 20);

void BM_StrlenUTF8_L(benchmark::State &state) {
    std::string text = mixed_text(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(StrlenUTF8_L(text.c_str()));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_StrlenUTF8_L)->Arg(64)->Arg(4096)->Arg(1 << 20);

// Counting the bytes that are not trail bytes: right only for valid text.
void BM_utf8_count_loop(benchmark::State &state) {
    std::string text = mixed_text(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        int32_t count = 0;
        for (const char *p = text.c_str(); *p != '\0'; ++p)
            count += (static_cast<unsigned char>(*p) & 0xC0) != 0x80;
        benchmark::DoNotOptimize(count);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_utf8_count_loop)->Arg(64)->Arg(4096)->Arg(1 << 20);

void BM_strlen(benchmark::State &state) {
    std::string text = mixed_text(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(std::strlen(text.c_str()));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_strlen)->Arg(64)->Arg(4096)->Arg(1 << 20);

// LIKE over a long row whose literal runs occur only at the end: the matchers jump from one
// occurrence of a run's first byte to the next.
void BM_Is_Like_L(benchmark::State &state) {
    std::string text = mixed_text(static_cast<size_t>(state.range(0))) + "needle end";
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(Is_Like_L(text.c_str(), "%need%end"));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Is_Like_L)->Arg(64)->Arg(4096);

void BM_Is_Like8_L(benchmark::State &state) {
    std::string text = mixed_text(static_cast<size_t>(state.range(0))) + "needle end";
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(Is_Like8_L(text.c_str(), "%need%end"));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Is_Like8_L)->Arg(64)->Arg(4096);

} // namespace

BENCHMARK_MAIN();
