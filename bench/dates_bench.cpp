// dates_bench.cpp - dates beside the C library and std::chrono: printing a timestamp with
// the default pattern beside strftime plus snprintf of the nanoseconds, reading it back
// beside strptime plus strtol of the nanoseconds, and the days between two dates beside
// std::chrono's sys_days.
//
// Each loop walks 1024 generated dates, so that nothing is worked out at compile time. The
// library's routines run with a pattern parsed once (ParseDateFormat_L) and, as a caller
// that passes the pattern text on every row does, with the text (found in the cache).
#include <benchmark/benchmark.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qv/date.h"

namespace {

constexpr std::size_t count = 1024;

struct Sample {
    QV_DATE_T date;
    struct tm tm;
    std::chrono::year_month_day ymd;
    std::string text;
};

const std::vector<Sample> &samples() {
    static const std::vector<Sample> made = [] {
        std::vector<Sample> all;
        std::mt19937 random(1);
        for (std::size_t i = 0; i < count; ++i) {
            Sample s{};
            s.date.year = static_cast<int16_t>(1900 + random() % 200);
            s.date.month = static_cast<uint8_t>(1 + random() % 12);
            s.date.day = static_cast<uint8_t>(1 + random() % 28);
            s.date.hour = static_cast<uint8_t>(random() % 24);
            s.date.minute = static_cast<uint8_t>(random() % 60);
            s.date.second = static_cast<uint8_t>(random() % 60);
            s.date.fraction = static_cast<int32_t>(random() % 1000000000);
            s.tm.tm_year = s.date.year - 1900, s.tm.tm_mon = s.date.month - 1;
            s.tm.tm_mday = s.date.day, s.tm.tm_hour = s.date.hour;
            s.tm.tm_min = s.date.minute, s.tm.tm_sec = s.date.second;
            s.ymd = std::chrono::year{s.date.year} / s.date.month / s.date.day;
            char text[64];
            InternalDateToChar_L(&s.date, nullptr, nullptr, text, sizeof text);
            s.text = text;
            all.push_back(s);
        }
        return all;
    }();
    return made;
}

void BM_InternalDateToChar_Parsed(benchmark::State &state) {
    QV_DATE_FORMAT_T *format = ParseDateFormat_L(GetInternalDatetimeFormat_L());
    std::vector<Sample> all = samples();
    char out[64];
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            InternalDateToChar_L(&all[i++ % count].date, nullptr, format, out, sizeof out));
        benchmark::ClobberMemory();
    }
    FreeParsedDateFormat_L(format);
}
BENCHMARK(BM_InternalDateToChar_Parsed);

void BM_InternalDateToChar_Text(benchmark::State &state) {
    std::vector<Sample> all = samples();
    const std::string pattern = GetInternalDatetimeFormat_L();
    char out[64];
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(InternalDateToChar_L(&all[i++ % count].date, pattern.c_str(),
                                                      nullptr, out, sizeof out));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_InternalDateToChar_Text);

void BM_strftime_snprintf(benchmark::State &state) {
    const std::vector<Sample> &all = samples();
    char out[64];
    std::size_t i = 0;
    for (auto _ : state) {
        const Sample &s = all[i++ % count];
        const std::size_t length = std::strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &s.tm);
        benchmark::DoNotOptimize(
            std::snprintf(out + length, sizeof out - length, ".%09d", s.date.fraction));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_strftime_snprintf);

void BM_CharToInternalDate_Parsed(benchmark::State &state) {
    QV_DATE_FORMAT_T *format = ParseDateFormat_L(GetInternalDatetimeFormat_L());
    const std::vector<Sample> &all = samples();
    QV_DATE_T date{};
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            CharToInternalDate_L(all[i++ % count].text.c_str(), nullptr, format, &date));
        benchmark::ClobberMemory();
    }
    FreeParsedDateFormat_L(format);
}
BENCHMARK(BM_CharToInternalDate_Parsed);

void BM_CharToInternalDate_Text(benchmark::State &state) {
    const std::vector<Sample> &all = samples();
    const std::string pattern = GetInternalDatetimeFormat_L();
    QV_DATE_T date{};
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            CharToInternalDate_L(all[i++ % count].text.c_str(), pattern.c_str(), nullptr, &date));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_CharToInternalDate_Text);

void BM_strptime_strtol(benchmark::State &state) {
    const std::vector<Sample> &all = samples();
    struct tm tm {};
    std::size_t i = 0;
    for (auto _ : state) {
        const char *rest = strptime(all[i++ % count].text.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
        long nanoseconds = rest != nullptr && *rest == '.' ? std::strtol(rest + 1, nullptr, 10) : 0;
        benchmark::DoNotOptimize(nanoseconds);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_strptime_strtol);

void BM_DaysBetweenInternalDate(benchmark::State &state) {
    const std::vector<Sample> &all = samples();
    std::size_t i = 0;
    int64_t days = 0;
    for (auto _ : state) {
        DaysBetweenInternalDate_L(&all[i % count].date, &all[(i + 1) % count].date, &days);
        ++i;
        benchmark::DoNotOptimize(days);
    }
}
BENCHMARK(BM_DaysBetweenInternalDate);

void BM_chrono_days_between(benchmark::State &state) {
    const std::vector<Sample> &all = samples();
    std::size_t i = 0;
    for (auto _ : state) {
        const auto days = (std::chrono::sys_days(all[i % count].ymd) -
                           std::chrono::sys_days(all[(i + 1) % count].ymd))
                              .count();
        ++i;
        benchmark::DoNotOptimize(days);
    }
}
BENCHMARK(BM_chrono_days_between);

} // namespace

BENCHMARK_MAIN();
