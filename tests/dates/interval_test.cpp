// interval_test.cpp - intervals: ordering, differences, the Add operations and their sign
// rules, the 32-bit wrap of adding seconds, conversions from counts, the text forms and
// patterns with round trips, bad input and allocation failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <tuple>

#include "capture.hpp"
#include "qv/date.h"
#include "qv/interval.h"

namespace {

using ::testing::HasSubstr;
using DS = QV_INTERVAL_DS_T;
using YM = QV_INTERVAL_YM_T;

std::string text(const DS &v) {
    char out[96];
    std::snprintf(out, sizeof out, "%s%u %02u:%02u:%02u.%09u", v.negative ? "-" : "+", v.days,
                  v.hours, v.minutes, v.seconds, v.fraction);
    return out;
}

std::string text(const YM &v) {
    char out[64];
    std::snprintf(out, sizeof out, "%s%u-%02u", v.negative ? "-" : "+", v.years, v.months);
    return out;
}

std::string print(const DS &v, const char *pattern) {
    char out[128];
    return InternalIntervalToChar_L(&v, pattern, nullptr, out, sizeof out) < 0 ? "<bad>" : out;
}

std::string print(const YM &v, const char *pattern) {
    char out[128];
    return InternalIntervalYMToChar_L(&v, pattern, nullptr, out, sizeof out) < 0 ? "<bad>" : out;
}

TEST(Interval, OrderingBySignedFields) {
    const DS minus_day{1, 1, 0, 0, 0, 0}, plus_day{0, 1, 0, 0, 0, 0}, zero{},
        minus_zero{1, 0, 0, 0, 0, 0}, plus_hour{0, 0, 1, 0, 0, 0}, more_fraction{0, 0, 1, 0, 0, 1},
        huge{0, 4000000000u, 0, 0, 0, 0}, minus_huge{1, 4000000000u, 0, 0, 0, 0};
    EXPECT_LT(CompareInternalInterval_L(&minus_day, &plus_day), 0);
    EXPECT_GT(CompareInternalInterval_L(&plus_day, &plus_hour), 0);
    EXPECT_LT(CompareInternalInterval_L(&plus_hour, &more_fraction), 0);
    EXPECT_EQ(CompareInternalInterval_L(&zero, &minus_zero), 0);
    EXPECT_EQ(CompareInternalInterval_L(&huge, &minus_huge), INT32_MAX);
    EXPECT_EQ(CompareInternalInterval_L(nullptr, nullptr), 0);
    EXPECT_EQ(CompareInternalInterval_L(nullptr, &zero), -1);
    EXPECT_EQ(CompareInternalInterval_L(&zero, nullptr), 1);
    const YM minus_year{1, 1, 0}, plus_month{0, 0, 1}, ym_zero{}, ym_minus_zero{1, 0, 0};
    EXPECT_LT(CompareInternalIntervalYM_L(&minus_year, &plus_month), 0);
    EXPECT_EQ(CompareInternalIntervalYM_L(&ym_zero, &ym_minus_zero), 0);
    EXPECT_EQ(CompareInternalIntervalYM_L(nullptr, &ym_zero), -1);
}

TEST(Interval, Differences) {
    const YM a{0, 2, 3}, b{1, 1, 6};
    int64_t months = 0;
    EXPECT_EQ(MonthsBetweenInternalInterval_L(&a, &b, &months), 0);
    EXPECT_EQ(months, 27 + 18);
    EXPECT_EQ(MonthsBetweenInternalInterval_L(&b, &a, &months), 0);
    EXPECT_EQ(months, -45);
    EXPECT_EQ(MonthsBetweenInternalInterval_L(&a, &b, nullptr), -1);
    const DS x{0, 1, 0, 0, 1, 500000000}, y{1, 0, 0, 0, 1, 250000000};
    double seconds = 0;
    EXPECT_EQ(SecsBetweenInternalInterval_L(&x, &y, &seconds), 0);
    EXPECT_DOUBLE_EQ(seconds, 86401.5 + 1.25);
    const DS wide{0, 100000, 0, 0, 0, 0}; // beyond 32 bits of seconds: exact here
    EXPECT_EQ(SecsBetweenInternalInterval_L(&wide, nullptr, &seconds), -1);
    EXPECT_EQ(SecsBetweenInternalInterval_L(&wide, &x, &seconds), 0);
    EXPECT_DOUBLE_EQ(seconds, 100000.0 * 86400 - 86401.5);
}

TEST(Interval, AddMonthsRenormalises) {
    const std::tuple<YM, int64_t, YM> cases[] = {
        {{0, 1, 11}, 3, {0, 2, 2}}, {{0, 1, 0}, -24, {1, 1, 0}}, {{0, 0, 6}, -6, {0, 0, 0}},
        {{1, 0, 6}, 6, {0, 0, 0}},  {{1, 2, 1}, 1, {1, 2, 0}},   {{1, 0, 1}, 13, {0, 1, 0}},
    };
    for (auto [from, count, expected] : cases) {
        YM out{};
        EXPECT_EQ(AddMonthsToInternalInterval_L(&from, count, &out), 0);
        EXPECT_EQ(text(out), text(expected)) << text(from) << " + " << count;
    }
    YM out{};
    EXPECT_EQ(MonthsToInternalInterval_L(-25, &out), 0);
    EXPECT_EQ(text(out), "-2-01");
    EXPECT_EQ(MonthsToInternalInterval_L(INT64_MIN, &out), 0);
    EXPECT_EQ(out.negative, 1);
    EXPECT_EQ(MonthsToInternalInterval_L(0, nullptr), -1);
    EXPECT_EQ(AddMonthsToInternalInterval_L(nullptr, 1, nullptr), -1);
}

// One field moves; the others keep their magnitudes and take the new sign.
TEST(Interval, AddYearsAndDaysSignRules) {
    DS minus_hours{1, 0, 5, 0, 0, 0};
    EXPECT_EQ(AddDaysToInternalInterval_L(&minus_hours, 1, nullptr), 0);
    EXPECT_EQ(text(minus_hours), "+1 05:00:00.000000000");
    const std::tuple<DS, int64_t, DS> days[] = {
        {{0, 2, 3, 0, 0, 0}, -2, {0, 0, 3, 0, 0, 0}},
        {{1, 1, 3, 0, 0, 0}, -1, {1, 2, 3, 0, 0, 0}},
        {{0, 1, 3, 0, 0, 0}, -4, {1, 3, 3, 0, 0, 0}},
    };
    for (auto [from, count, expected] : days) {
        DS out{};
        EXPECT_EQ(AddDaysToInternalInterval_L(&from, count, &out), 0);
        EXPECT_EQ(text(out), text(expected)) << text(from) << " + " << count << " days";
    }
    YM minus_months{1, 0, 6};
    YM out{};
    EXPECT_EQ(AddYearsToInternalInterval_L(&minus_months, 1, &out), 0);
    EXPECT_EQ(text(out), "+1-06");
    EXPECT_EQ(text(minus_months), "-0-06"); // the input is left alone when out is given
    EXPECT_EQ(AddYearsToInternalInterval_L(&out, -3, nullptr), 0);
    EXPECT_EQ(text(out), "-2-06");
    DS wide{0, 5, 0, 0, 0, 0};
    EXPECT_EQ(AddDaysToInternalInterval_L(&wide, INT64_MAX, nullptr), 0); // wraps, unchecked
    YM wide_months{1, 7, 0};
    EXPECT_EQ(AddMonthsToInternalInterval_L(&wide_months, INT64_MIN, nullptr), 0);
    EXPECT_EQ(AddDaysToInternalInterval_L(nullptr, 1, nullptr), -1);
    EXPECT_EQ(AddYearsToInternalInterval_L(nullptr, 1, nullptr), -1);
}

TEST(Interval, AddSecondsKeepsTheThirtyTwoBitTotal) {
    const std::tuple<DS, double, DS> cases[] = {
        {{0, 1, 0, 0, 0, 0}, 3600.5, {0, 1, 1, 0, 0, 500000000}},
        {{1, 0, 1, 0, 0, 0}, 7200, {0, 0, 1, 0, 0, 0}},
        {{1, 0, 0, 0, 0, 500000000}, 0.5, {0, 0, 0, 0, 0, 0}},
        {{0, 0, 0, 0, 59, 999999999}, 1e-9, {0, 0, 0, 1, 0, 0}},
        // 49711 days are 4295030400 seconds, which wrap to 63104 (17:31:44).
        {{0, 49711, 0, 0, 0, 0}, 0, {0, 0, 17, 31, 44, 0}},
        {{1, 49711, 0, 0, 0, 0}, 0, {1, 0, 17, 31, 44, 0}},
        {{0, 49710, 0, 0, 0, 0}, 0, {0, 49710, 0, 0, 0, 0}},
    };
    for (auto [from, seconds, expected] : cases) {
        DS out{};
        EXPECT_EQ(AddSecsToInternalInterval_L(&from, seconds, &out), 0);
        EXPECT_EQ(text(out), text(expected)) << text(from) << " + " << seconds << " s";
    }
    DS v{};
    EXPECT_EQ(AddSecsToInternalInterval_L(&v, NAN, nullptr), -1);
    EXPECT_EQ(AddSecsToInternalInterval_L(nullptr, 1, nullptr), -1);
}

TEST(Interval, SecondsToInterval) {
    const std::tuple<double, DS> cases[] = {
        {-90061.25, {1, 1, 1, 1, 1, 250000000}},
        {1.9999999999, {0, 0, 0, 0, 2, 0}},
        {-0.0000000001, {0, 0, 0, 0, 0, 0}},
        {59.0000000004, {0, 0, 0, 0, 59, 0}},
        {86400.0 * 4294967296.0 + 3, {0, 0, 0, 0, 3, 0}}, // days wrap at 32 bits
    };
    for (auto [seconds, expected] : cases) {
        DS out{};
        EXPECT_EQ(SecsToInternalInterval_L(seconds, &out), 0);
        EXPECT_EQ(text(out), text(expected)) << seconds;
    }
    DS out{};
    EXPECT_EQ(SecsToInternalInterval_L(1e300, &out), 0); // defined, if meaningless
    EXPECT_EQ(SecsToInternalInterval_L(INFINITY, &out), -1);
    EXPECT_EQ(SecsToInternalInterval_L(1, nullptr), -1);
}

TEST(IntervalText, PlainAndDefaultForms) {
    const DS v{0, 1, 2, 3, 4, 5}, minus_hours{1, 0, 5, 0, 0, 0},
        wide{0, 4294967295u, 23, 59, 59, 999999999};
    const std::tuple<DS, const char *, const char *> ds[] = {
        {v, nullptr, "1 02:03:04.000000005"},
        {minus_hours, nullptr, "-0 05:00:00.000000000"},
        {wide, nullptr, "4294967295 23:59:59.999999999"},
        {v, GetInternalIntervalFormat_L(), "+000000001 02:03:04.000000005"},
        {minus_hours, "sddd hh:mi:ss", "-000 05:00:00"},
        {minus_hours, "hh24:mi", "-05:00"},
        {v, "DDD\"d\" HH\"h\" MI\"m\" SS.FFF\"s\"", "001d 02h 03m 04.000s"},
        {v, "syyyyyyyyy-mm", "<bad>"},
        {v, "dd dd", "<bad>"},
    };
    for (auto [interval, pattern, expected] : ds)
        EXPECT_EQ(print(interval, pattern), expected) << (pattern ? pattern : "plain");
    const YM y{0, 1, 2}, minus_y{1, 0, 11};
    EXPECT_EQ(print(y, nullptr), "1-02");
    EXPECT_EQ(print(minus_y, nullptr), "-0-11");
    EXPECT_EQ(print(y, GetInternalIntervalYMFormat_L()), "+000000001-02");
    EXPECT_EQ(print(minus_y, "yy \"years\" mm"), "-00 years 11");
    EXPECT_EQ(print(y, "hh"), "<bad>");
    EXPECT_THAT(DateFormatError_L(), HasSubstr("'hh' is not a year-to-month format"));
    char out[8] = "x";
    EXPECT_EQ(InternalIntervalToChar_L(nullptr, nullptr, nullptr, out, sizeof out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(InternalIntervalToChar_L(&v, nullptr, nullptr, out, sizeof out), 20);
    EXPECT_STREQ(out, "1 02:03");
}

TEST(IntervalText, PatternsAndTheirKinds) {
    const std::tuple<const char *, uint32_t> kinds[] = {
        {"sddd hh:mi:ss", QV_TYPE_INTERVAL_DS},
        {"syyyyyyyyy-mm", QV_TYPE_INTERVAL_YM},
        {"\"literal\"", QV_TYPE_INTERVAL_DS | QV_TYPE_INTERVAL_YM},
        {"yyyy hh", 0},
        {"ss ss", 0},
        {"ddddddddddd", 0}, // eleven d: days named twice
    };
    for (auto [pattern, types] : kinds) EXPECT_EQ(ValidIntervalFormat_L(pattern), types) << pattern;
    EXPECT_EQ(ValidIntervalFormat_L(nullptr), 0u);
    EXPECT_EQ(ParseIntervalFormat_L("yyyy hh"), nullptr);
    EXPECT_STREQ(DateFormatError_L(),
                 "The interval format 'yyyy hh' mixes day-to-second and year-to-month parts.");
    EXPECT_EQ(ParseIntervalFormat_L("mi mi"), nullptr);
    EXPECT_STREQ(DateFormatError_L(),
                 "The interval format 'mi mi' names the same part more than once.");
    QV_INTERVAL_FORMAT_T *format = ParseIntervalFormat_L("ddd hh");
    ASSERT_NE(format, nullptr);
    const DS v{1, 3, 4, 0, 0, 0};
    char out[32];
    EXPECT_EQ(InternalIntervalToChar_L(&v, nullptr, format, out, sizeof out), 7);
    EXPECT_STREQ(out, "-003 04");
    DS back{};
    EXPECT_EQ(CharToInternalInterval_L(out, nullptr, format, &back), 0);
    EXPECT_EQ(text(back), "-3 04:00:00.000000000");
    YM ym{};
    EXPECT_EQ(CharToInternalIntervalYM_L("1-02", nullptr, format, &ym), -1);
    FreeParsedIntervalFormat_L(format);
}

TEST(IntervalText, PrintThenReadRoundTrips) {
    std::mt19937 random(5);
    const char *ds_patterns[] = {nullptr, GetInternalIntervalFormat_L(), "dddddddddd hh24miss.ff",
                                 "sd\"d\" hh\"h\" mi\"m\" ss\"s\" fffffffff"};
    for (const char *pattern : ds_patterns)
        for (int i = 0; i < 2000; ++i) {
            const DS v{static_cast<uint8_t>(random() % 2),
                       static_cast<uint32_t>(random()),
                       static_cast<uint32_t>(random() % 24),
                       static_cast<uint32_t>(random() % 60),
                       static_cast<uint32_t>(random() % 60),
                       static_cast<uint32_t>(random() % 100) * 10000000u};
            DS back{};
            const std::string printed = print(v, pattern);
            ASSERT_EQ(CharToInternalInterval_L(printed.c_str(), pattern, nullptr, &back), 0)
                << printed << ": " << DateFormatError_L();
            ASSERT_EQ(text(back), text(v)) << printed;
        }
    for (const char *pattern :
         {static_cast<const char *>(nullptr), GetInternalIntervalYMFormat_L(), "yyyyyyyyyymm"})
        for (int i = 0; i < 2000; ++i) {
            const YM v{static_cast<uint8_t>(random() % 2), static_cast<uint32_t>(random()),
                       static_cast<uint32_t>(1 + random() % 11)};
            YM back{};
            const std::string printed = print(v, pattern);
            ASSERT_EQ(CharToInternalIntervalYM_L(printed.c_str(), pattern, nullptr, &back), 0)
                << printed << ": " << DateFormatError_L();
            ASSERT_EQ(text(back), text(v)) << printed;
        }
}

TEST(IntervalText, ReadingAndRecognising) {
    const std::tuple<const char *, const char *, std::string> ds[] = {
        {"5", nullptr, "+5 00:00:00.000000000"},
        {" -1 02:03 ", nullptr, "-1 02:03:00.000000000"},
        {"-0 00:00:00", nullptr, "+0 00:00:00.000000000"}, // a negative zero is not negative
        {"+12 1:2:3.5", nullptr, "+12 01:02:03.500000000"},
        {"4294967295 00:00:00", nullptr, "+4294967295 00:00:00.000000000"},
        {"10:30", "hh:mi", "+0 10:30:00.000000000"},
        {"-10:30", "hh:mi", "-0 10:30:00.000000000"},
    };
    for (auto [input, pattern, expected] : ds) {
        DS out{};
        ASSERT_EQ(CharToInternalInterval_L(input, pattern, nullptr, &out), 0)
            << input << ": " << DateFormatError_L();
        EXPECT_EQ(text(out), expected) << input;
    }
    const std::tuple<const char *, const char *, const char *> bad[] = {
        {"1 24:00:00", nullptr, "hour 24 is out of range (0 to 23)"},
        {"1 23:60", nullptr, "minute 60 is out of range (0 to 59)"},
        {"4294967296", nullptr, "day count 4294967296 is out of range"},
        {"1 x", nullptr, "a number was expected at position 3"},
        {"1 02:03:04.5 x", nullptr, "the text goes on after the format ends, at position 13"},
        {"", nullptr, "the text is empty"},
        {"1-02", "yyyy-mm", "is not a day-to-second format"},
    };
    for (auto [input, pattern, reason] : bad) {
        DS out{0, 77, 0, 0, 0, 0};
        EXPECT_EQ(CharToInternalInterval_L(input, pattern, nullptr, &out), -1) << input;
        EXPECT_THAT(DateFormatError_L(), HasSubstr(reason)) << input;
        EXPECT_EQ(out.days, 77u);
    }
    YM ym{};
    EXPECT_EQ(CharToInternalIntervalYM_L("1-12", nullptr, nullptr, &ym), -1);
    EXPECT_STREQ(DateFormatError_L(), "'1-12' does not fit the interval format 'syyyyyyyyy-mm': "
                                      "month 12 is out of range (0 to 11)");
    EXPECT_EQ(CharToInternalIntervalYM_L("-3-04", nullptr, nullptr, &ym), 0);
    EXPECT_EQ(text(ym), "-3-04");

    EXPECT_EQ(IsValidInterval_L("+001 02:03:04", nullptr, QV_TYPE_INTERVAL_DS), 1);
    EXPECT_EQ(IsValidInterval_L("+001 25:03:04", nullptr, QV_TYPE_INTERVAL_DS), 0);
    EXPECT_EQ(IsValidInterval_L("+000000001-02", nullptr, QV_TYPE_INTERVAL_YM), 1);
    EXPECT_EQ(IsValidInterval_L("1-02", nullptr, QV_TYPE_DATE), 0);

    const std::tuple<const char *, bool> plain[] = {
        {"1 02:03:04", true},   {"-1 02:03:04.123", true}, {"+000000001 02:03:04.000000000", true},
        {"1 2:03:04", true},    {"1 02:03", false},        {"1 24:00:00", false},
        {" 1 02:03:04", false}, {"1 02:03:04.", false},    {"12345678901 00:00:00", false},
    };
    for (auto [input, valid] : plain)
        EXPECT_EQ(IsInternalInterval_L(input, nullptr), valid) << input;
    DS recognised{};
    EXPECT_EQ(IsInternalInterval_L("-0 00:00:00.5", &recognised), 1);
    EXPECT_EQ(text(recognised), "-0 00:00:00.500000000");
    EXPECT_EQ(IsInternalIntervalYM_L("-12-11", &ym), 1);
    EXPECT_EQ(text(ym), "-12-11");
    for (const char *input : {"12-12", "12", "-12-", "1-2-3", ""})
        EXPECT_EQ(IsInternalIntervalYM_L(input, nullptr), 0) << input;
    EXPECT_EQ(IsInternalInterval_L(nullptr, nullptr), 0);
}

TEST(IntervalText, AllocationFailures) {
    for (const char *symbol : qvtest::fail_each_allocation(
             [] { FreeParsedIntervalFormat_L(ParseIntervalFormat_L("sddd hh:mi:ss")); }))
        EXPECT_EQ(symbol, ALLOC_FAILURE);
    int run = 0;
    std::string pattern;
    const auto raised = qvtest::fail_each_allocation(
        [&] {
            DS v{};
            CharToInternalInterval_L("1 02:03", pattern.c_str(), nullptr, &v);
        },
        [&] { pattern = "ddd hh:mi \"" + std::to_string(run++) + "\""; });
    EXPECT_EQ(raised.size(), 1u);
    for (const char *symbol : raised) EXPECT_EQ(symbol, ALLOC_FAILURE);
}

} // namespace
