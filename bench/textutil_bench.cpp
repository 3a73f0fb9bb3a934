// textutil_bench.cpp - the checksum fold beside zlib's crc32 and a slicing-by-8 table CRC,
// the UTF-8 scans beside a plain byte loop and strlen, and the LIKE matchers on long rows.
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

// The reflected CRC-32 eight bytes at a time through eight 256-entry tables (the classic
// software method), with zlib's inversions.
struct SlicingTables {
    uint32_t t[8][256];
    SlicingTables() {
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
            t[0][i] = c;
        }
        for (uint32_t i = 0; i < 256; ++i)
            for (int k = 1; k < 8; ++k) t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
    }
};
const SlicingTables slicing;

uint32_t slicing_by_8(uint32_t crc, const unsigned char *p, size_t n) {
    crc = ~crc;
    const auto &t = slicing.t;
    for (; n >= 8; n -= 8, p += 8) {
        uint32_t low, high;
        std::memcpy(&low, p, 4);
        std::memcpy(&high, p + 4, 4);
        low ^= crc;
        crc = t[7][low & 0xFF] ^ t[6][(low >> 8) & 0xFF] ^ t[5][(low >> 16) & 0xFF] ^
              t[4][low >> 24] ^ t[3][high & 0xFF] ^ t[2][(high >> 8) & 0xFF] ^
              t[1][(high >> 16) & 0xFF] ^ t[0][high >> 24];
    }
    for (; n > 0; --n, ++p) crc = (crc >> 8) ^ t[0][(crc ^ *p) & 0xFF];
    return ~crc;
}

void BM_slicing_by_8_crc32(benchmark::State &state) {
    auto bytes = random_buffer(static_cast<size_t>(state.range(0)));
    uint32_t crc = 0;
    for (auto _ : state) {
        crc = slicing_by_8(crc, bytes.data(), bytes.size());
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_slicing_by_8_crc32)->Arg(4096)->Arg(1 << 20);

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
