// values_bench.cpp - the value operations on the evaluator's hot path beside their closest
// standard peers: ConvertValue_L of INTEGER, FLOAT and DATE into CHAR beside std::to_chars
// (and strftime), of CHAR into NUMBER beside strtod, CompareValue_L of CHAR and NUMBER
// beside strcmp and a comparison of doubles, and ChecksumValue_L of a 10-column row beside
// zlib's crc32 over the same bytes.
//
// Each loop walks 1024 generated values. Conversions write into one destination value, as
// the evaluator converts row after row into its result slot.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>
#include <zlib.h>

#include <charconv>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qv/dataval.h"
#include "qv/date.h"
#include "qv/precise.h"
#include "qv/qvstrlib.h"

namespace {

constexpr std::size_t kCount = 1024;

struct Values {
    std::vector<QV_VALUE_T> values;
    Values() : values(kCount) {}
    Values(const Values &) = delete;
    ~Values() {
        for (QV_VALUE_T &v : values) FreeValue_L(&v);
    }
    QV_VALUE_T &operator[](std::size_t i) { return values[i % kCount]; }
};

std::mt19937_64 &random_engine() {
    static std::mt19937_64 engine(1);
    return engine;
}

std::vector<int64_t> integers() {
    std::vector<int64_t> all;
    for (std::size_t i = 0; i < kCount; ++i)
        all.push_back(static_cast<int64_t>(random_engine()() % 2000000000) - 1000000000);
    return all;
}

std::vector<double> doubles() {
    std::vector<double> all;
    std::uniform_real_distribution<double> d(-1e6, 1e6);
    for (std::size_t i = 0; i < kCount; ++i) all.push_back(d(random_engine()));
    return all;
}

std::vector<std::string> decimal_texts() {
    std::vector<std::string> all;
    for (std::size_t i = 0; i < kCount; ++i) {
        char text[32];
        std::snprintf(text, sizeof text, "%lld.%04lld",
                      static_cast<long long>(random_engine()() % 100000000) - 50000000,
                      static_cast<long long>(random_engine()() % 10000));
        all.push_back(text);
    }
    return all;
}

std::vector<std::string> words() {
    std::vector<std::string> all;
    for (std::size_t i = 0; i < kCount; ++i) {
        std::string w = "customer-";
        for (int k = 0; k < 8; ++k) w += static_cast<char>('a' + random_engine()() % 26);
        all.push_back(w);
    }
    return all;
}

QV_DATE_T random_date() {
    QV_DATE_T d{};
    d.year = static_cast<int16_t>(1900 + random_engine()() % 200);
    d.month = static_cast<uint8_t>(1 + random_engine()() % 12);
    d.day = static_cast<uint8_t>(1 + random_engine()() % 28);
    d.hour = static_cast<uint8_t>(random_engine()() % 24);
    d.minute = static_cast<uint8_t>(random_engine()() % 60);
    d.second = static_cast<uint8_t>(random_engine()() % 60);
    d.fraction = static_cast<int32_t>(random_engine()() % 1000000000);
    return d;
}

// ---- INTEGER to CHAR ------------------------------------------------------------------------

void BM_ConvertValue_IntegerToChar(benchmark::State &state) {
    Values sources;
    std::vector<int64_t> all = integers();
    for (std::size_t i = 0; i < kCount; ++i) SetIntegerValue_L(&sources[i], all[i]);
    QV_VALUE_T dest{};
    dest.descriptor.type = QV_TYPE_CHAR;
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(ConvertValue_L(&dest, &sources[i++], 0, 0));
    FreeValue_L(&dest);
}
BENCHMARK(BM_ConvertValue_IntegerToChar);

void BM_ToChars_Integer(benchmark::State &state) {
    std::vector<int64_t> all = integers();
    char out[24];
    std::size_t i = 0;
    for (auto _ : state) {
        *std::to_chars(out, out + 23, all[i++ % kCount]).ptr = '\0';
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ToChars_Integer);

// The same work as the conversion's: the digits copied into a heap text that is kept and
// reused while it has room.
void BM_ToChars_IntegerIntoHeapText(benchmark::State &state) {
    std::vector<int64_t> all = integers();
    char *text = static_cast<char *>(std::malloc(8));
    std::size_t i = 0;
    for (auto _ : state) {
        char digits[24];
        const auto length = static_cast<std::size_t>(
            std::to_chars(digits, digits + 23, all[i++ % kCount]).ptr - digits);
        if (malloc_usable_size(text) < length + 1) {
            std::free(text);
            text = static_cast<char *>(std::malloc(length + 1));
        }
        std::memcpy(text, digits, length);
        text[length] = '\0';
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
    std::free(text);
}
BENCHMARK(BM_ToChars_IntegerIntoHeapText);

// ---- FLOAT to CHAR --------------------------------------------------------------------------

void BM_ConvertValue_FloatToChar(benchmark::State &state) {
    Values sources;
    std::vector<double> all = doubles();
    for (std::size_t i = 0; i < kCount; ++i) SetFloatValue_L(&sources[i], all[i]);
    QV_VALUE_T dest{};
    dest.descriptor.type = QV_TYPE_CHAR;
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(ConvertValue_L(&dest, &sources[i++], 0, 0));
    FreeValue_L(&dest);
}
BENCHMARK(BM_ConvertValue_FloatToChar);

// The same 15 significant digits the library prints.
void BM_ToChars_Double15(benchmark::State &state) {
    std::vector<double> all = doubles();
    char out[48];
    std::size_t i = 0;
    for (auto _ : state) {
        *std::to_chars(out, out + 47, all[i++ % kCount], std::chars_format::general, 15).ptr = '\0';
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ToChars_Double15);

// ---- CHAR to NUMBER ------------------------------------------------------------------------

void BM_ConvertValue_CharToNumber(benchmark::State &state) {
    Values sources;
    std::vector<std::string> all = decimal_texts();
    for (std::size_t i = 0; i < kCount; ++i) SetTextValue_L(&sources[i], all[i].c_str(), nullptr);
    QV_VALUE_T dest{};
    NewPrecise_L(&dest, 20, 4);
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(ConvertValue_L(&dest, &sources[i++], 0, 0));
}
BENCHMARK(BM_ConvertValue_CharToNumber);

void BM_Strtod(benchmark::State &state) {
    std::vector<std::string> all = decimal_texts();
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(std::strtod(all[i++ % kCount].c_str(), nullptr));
}
BENCHMARK(BM_Strtod);

// ---- DATE to CHAR --------------------------------------------------------------------------

void BM_ConvertValue_DateToChar(benchmark::State &state) {
    Values sources;
    for (std::size_t i = 0; i < kCount; ++i) {
        QV_DATE_T d = random_date();
        SetDateValue_L(&sources[i], QV_TYPE_DATE, &d);
    }
    QV_VALUE_T dest{};
    dest.descriptor.type = QV_TYPE_CHAR;
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(ConvertValue_L(&dest, &sources[i++], 0, 0));
    FreeValue_L(&dest);
}
BENCHMARK(BM_ConvertValue_DateToChar);

void BM_Strftime_Date(benchmark::State &state) {
    std::vector<struct tm> all;
    std::vector<int32_t> fractions;
    for (std::size_t i = 0; i < kCount; ++i) {
        QV_DATE_T d = random_date();
        struct tm t {};
        t.tm_year = d.year - 1900, t.tm_mon = d.month - 1, t.tm_mday = d.day;
        t.tm_hour = d.hour, t.tm_min = d.minute, t.tm_sec = d.second;
        all.push_back(t);
        fractions.push_back(d.fraction);
    }
    char out[64];
    std::size_t i = 0;
    for (auto _ : state) {
        const std::size_t k = i++ % kCount;
        std::size_t n = std::strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &all[k]);
        std::snprintf(out + n, sizeof out - n, ".%09d", fractions[k]);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Strftime_Date);

// ---- Comparison ------------------------------------------------------------------------------

void BM_CompareValue_Char(benchmark::State &state) {
    Values sources;
    std::vector<std::string> all = words();
    for (std::size_t i = 0; i < kCount; ++i) SetTextValue_L(&sources[i], all[i].c_str(), nullptr);
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CompareValue_L(&sources[i], &sources[i + 1]));
        ++i;
    }
}
BENCHMARK(BM_CompareValue_Char);

void BM_CompareValue_CharEqual(benchmark::State &state) {
    Values sources, copies;
    std::vector<std::string> all = words();
    for (std::size_t i = 0; i < kCount; ++i) {
        SetTextValue_L(&sources[i], all[i].c_str(), nullptr);
        SetTextValue_L(&copies[i], all[i].c_str(), nullptr);
    }
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CompareValue_L(&sources[i], &copies[i]));
        ++i;
    }
}
BENCHMARK(BM_CompareValue_CharEqual);

// The collation beneath the comparison of texts, alone.
void BM_Strcoll_SL(benchmark::State &state) {
    std::vector<std::string> all = words();
    std::vector<QV_STRING_T> texts;
    for (std::string &w : all) texts.push_back({w.data(), nullptr});
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Strcoll_SL(&texts[i % kCount], &texts[(i + 1) % kCount]));
        ++i;
    }
}
BENCHMARK(BM_Strcoll_SL);

void BM_Strcmp(benchmark::State &state) {
    std::vector<std::string> all = words();
    std::vector<const char *> texts;
    for (const std::string &w : all) texts.push_back(w.c_str());
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::strcmp(texts[i % kCount], texts[(i + 1) % kCount]));
        ++i;
    }
}
BENCHMARK(BM_Strcmp);

// NUMBERs of one scale, and of three scales mixed (brought to a common scale exactly).
void compare_numbers(benchmark::State &state, int32_t scales) {
    Values sources;
    std::vector<std::string> all = decimal_texts();
    for (std::size_t i = 0; i < kCount; ++i) {
        const auto step = static_cast<int32_t>(i % scales);
        NewPrecise_L(&sources[i], 12 + step, 4 + step);
        StringToPrecise_L(&sources[i], all[i].c_str());
    }
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CompareValue_L(&sources[i], &sources[i + 1]));
        ++i;
    }
}
void BM_CompareValue_Number(benchmark::State &state) {
    compare_numbers(state, 1);
}
BENCHMARK(BM_CompareValue_Number);
void BM_CompareValue_NumberScales(benchmark::State &state) {
    compare_numbers(state, 3);
}
BENCHMARK(BM_CompareValue_NumberScales);

[[gnu::noinline]] int compare_doubles(const double *a, const double *b) {
    return (*a > *b) - (*a < *b);
}

void BM_CompareDoubles(benchmark::State &state) {
    std::vector<double> all = doubles();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(compare_doubles(&all[i % kCount], &all[(i + 1) % kCount]));
        ++i;
    }
}
BENCHMARK(BM_CompareDoubles);

// ---- Checksum of a row ------------------------------------------------------------------

struct Row {
    QV_VALUE_T columns[10] = {};
    std::string bytes; // what the columns fold, back to back
    std::vector<std::string> pieces;
    Row(const Row &) = delete;
    Row() = default;
    ~Row() {
        for (QV_VALUE_T &v : columns) FreeValue_L(&v);
    }
};

std::vector<Row> &rows() {
    static std::vector<Row> made(kCount);
    static bool filled = false;
    if (filled) return made;
    filled = true;
    std::vector<std::string> names = words(), amounts = decimal_texts();
    for (std::size_t i = 0; i < kCount; ++i) {
        QV_VALUE_T *c = made[i].columns;
        SetIntegerValue_L(&c[0], static_cast<int64_t>(i) * 7919);
        SetTextValue_L(&c[1], names[i].c_str(), nullptr);
        SetTextValue_L(&c[2], names[(i + 1) % kCount].c_str(), nullptr);
        NewPrecise_L(&c[3], 12, 4);
        StringToPrecise_L(&c[3], amounts[i].c_str());
        SetFloatValue_L(&c[4], static_cast<double>(i) / 3);
        QV_DATE_T d = random_date();
        SetDateValue_L(&c[5], QV_TYPE_DATE, &d);
        SetBooleanValue_L(&c[6], i % 2);
        c[7].descriptor.type = QV_TYPE_CHAR;
        c[7].is_null = 1;
        SetTextValue_L(&c[8], "open", nullptr);
        SetIntegerValue_L(&c[9], static_cast<int64_t>(i));
        for (QV_VALUE_T &v : made[i].columns) {
            std::string piece;
            switch (v.descriptor.type) {
                case QV_TYPE_INTEGER:
                case QV_TYPE_FLOAT:
                    piece.assign(reinterpret_cast<const char *>(&v.payload), 8);
                    break;
                case QV_TYPE_BOOLEAN: piece.assign(1, static_cast<char>(v.payload.boolean)); break;
                case QV_TYPE_NUMBER:
                    piece.assign(reinterpret_cast<const char *>(&v.payload), 34);
                    break;
                default: {
                    char *text = ValueToChar_L(&v);
                    piece = text != nullptr ? text : "~&%NULL%&~";
                    std::free(text);
                }
            }
            made[i].bytes += piece;
            made[i].pieces.push_back(piece);
        }
    }
    return made;
}

void BM_ChecksumValue_Row(benchmark::State &state) {
    std::vector<Row> &all = rows();
    std::size_t i = 0;
    for (auto _ : state) {
        uint32_t checksum = 0;
        for (const QV_VALUE_T &v : all[i++ % kCount].columns) ChecksumValue_L(&v, &checksum);
        benchmark::DoNotOptimize(checksum);
    }
}
BENCHMARK(BM_ChecksumValue_Row);

// zlib over the same bytes, one call per column (as the fold goes) and one call per row.
void BM_Crc32_RowByColumn(benchmark::State &state) {
    std::vector<Row> &all = rows();
    std::size_t i = 0;
    for (auto _ : state) {
        uLong checksum = 0;
        for (const std::string &piece : all[i++ % kCount].pieces)
            checksum = crc32(checksum, reinterpret_cast<const Bytef *>(piece.data()),
                             static_cast<uInt>(piece.size()));
        benchmark::DoNotOptimize(checksum);
    }
}
BENCHMARK(BM_Crc32_RowByColumn);

void BM_Crc32_RowAtOnce(benchmark::State &state) {
    std::vector<Row> &all = rows();
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string &bytes = all[i++ % kCount].bytes;
        benchmark::DoNotOptimize(crc32(0, reinterpret_cast<const Bytef *>(bytes.data()),
                                       static_cast<uInt>(bytes.size())));
    }
}
BENCHMARK(BM_Crc32_RowAtOnce);

} // namespace

BENCHMARK_MAIN();
