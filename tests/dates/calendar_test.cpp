// calendar_test.cpp - the calendar and the internal date: Gregorian dates checked day by
// day against std::chrono, the four-year rule and the -4712 exception, Julian day numbers,
// ordering, month, year, day, second and interval arithmetic, differences, date literals
// and time zones.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <random>
#include <string>
#include <tuple>

#include "dates/date.hpp"
#include "dates/date_records.hpp"
#include "qv/date.h"
#include "qv/interval.h"

namespace {

using qvtest::date_fields;
using qvtest::make_date;

namespace chr = std::chrono;

int32_t julian(const QV_DATE_T &d) {
    int32_t number = 0;
    EXPECT_EQ(InternalToJulianDate_L(&d, &number), 0);
    return number;
}

QV_DATE_T from_chrono(chr::year_month_day ymd) {
    return make_date(static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                     static_cast<unsigned>(ymd.day()));
}

// Every day from 1600 to 2400: month lengths, day numbers both ways, weekday, day of year,
// differences and day steps against std::chrono.
TEST(Calendar, GregorianFrom1600MatchesChrono) {
    const chr::sys_days first = chr::year{1600} / 1 / 1, last = chr::year{2400} / 12 / 31;
    std::mt19937 random(7);
    for (chr::sys_days day = first; day <= last; day += chr::days{1}) {
        const chr::year_month_day ymd(day);
        const QV_DATE_T d = from_chrono(ymd);
        ASSERT_EQ(julian(d), day.time_since_epoch().count() + 2440588) << date_fields(d);
        QV_DATE_T back{};
        ASSERT_EQ(JulianToInternalDate_L(julian(d), &back), 0);
        ASSERT_EQ(CompareInternalDate_L(&back, &d), 0) << date_fields(back);
        const auto month_end =
            chr::year_month_day_last(ymd.year(), chr::month_day_last(ymd.month()));
        ASSERT_EQ(DaysInMonth_L(d.month, d.year),
                  static_cast<int>(static_cast<unsigned>(month_end.day())));
        ASSERT_EQ(qv::weekday_of(julian(d)), static_cast<int>(chr::weekday(day).c_encoding()));
        const chr::sys_days january_1 = ymd.year() / 1 / 1;
        ASSERT_EQ(qv::day_of_year(d), (day - january_1).count() + 1);

        // A step that stays within the Gregorian years.
        const int offset = std::uniform_int_distribution<int>(
            std::max(-40000, static_cast<int>((first - day).count())),
            std::min(40000, static_cast<int>((last - day).count())))(random);
        QV_DATE_T moved{};
        ASSERT_EQ(AddDaysToInternalDate_L(const_cast<QV_DATE_T *>(&d), offset, &moved), 0);
        const QV_DATE_T expected = from_chrono(chr::year_month_day(day + chr::days{offset}));
        ASSERT_EQ(CompareInternalDate_L(&moved, &expected), 0) << date_fields(d) << " + " << offset;
        int64_t between = 0;
        ASSERT_EQ(DaysBetweenInternalDate_L(&moved, &d, &between), 0);
        ASSERT_EQ(between, offset);
    }
}

TEST(Calendar, LeapYearRules) {
    const std::tuple<int, int> february[] = {{1900, 28}, {2000, 29},  {1500, 29}, {1700, 28},
                                             {1600, 29}, {-4712, 28}, {-4, 29},   {-4716, 29},
                                             {0, 29},    {-1, 28},    {100, 29},  {2023, 28}};
    for (auto [year, days] : february) EXPECT_EQ(DaysInMonth_L(2, year), days) << year;
    EXPECT_EQ(DaysInMonth_L(0, 2000), 0);
    EXPECT_EQ(DaysInMonth_L(13, 2000), 0);
    EXPECT_EQ(IsLeapYear_L(1500), 1);
    EXPECT_EQ(IsLeapYear_L(-4712), 0);
}

// Before 1600 every day follows the one before: walking the dates by their month lengths
// gives consecutive day numbers, and each converts back.
TEST(Calendar, ConsecutiveDaysBefore1600) {
    int32_t expected = julian(make_date(-6000, 1, 1));
    for (int year = -6000; year <= 1600; ++year)
        for (int month = 1; month <= 12; ++month)
            for (int day = 1; day <= DaysInMonth_L(month, year); ++day) {
                const QV_DATE_T d = make_date(year, month, day);
                ASSERT_EQ(julian(d), expected++) << date_fields(d);
                if (day == 1) {
                    QV_DATE_T back{};
                    ASSERT_EQ(JulianToInternalDate_L(julian(d), &back), 0);
                    ASSERT_EQ(CompareInternalDate_L(&back, &d), 0) << date_fields(back);
                }
            }
}

TEST(Calendar, KnownJulianDayNumbers) {
    const std::tuple<QV_DATE_T, int32_t> known[] = {
        {make_date(2000, 1, 1), 2451545},   {make_date(1970, 1, 1), 2440588},
        {make_date(1858, 11, 17), 2400001}, {make_date(1600, 1, 1), 2305448},
        {make_date(1599, 12, 31), 2305447}, {make_date(2400, 12, 31), 2598007},
    };
    for (auto [d, number] : known) EXPECT_EQ(julian(d), number) << date_fields(d);
    // Before 1600 the four-year rule keeps the leap days of 1500, 1400, 1300, 1100 and 1000
    // that the Gregorian rule skips (the Julian calendar's numbers less 10), and -4712 has
    // none.
    EXPECT_EQ(julian(make_date(1582, 10, 15)), 2299161);
    EXPECT_EQ(julian(make_date(1000, 1, 1)), 2086303 - 5); // Gregorian 2086303
    EXPECT_EQ(julian(make_date(-4712, 3, 1)) - julian(make_date(-4712, 2, 28)), 1);
    QV_DATE_T out{};
    EXPECT_EQ(JulianToInternalDate_L(INT32_MAX, &out), -1);
    EXPECT_EQ(JulianToInternalDate_L(0, nullptr), -1);
    EXPECT_EQ(InternalToJulianDate_L(nullptr, nullptr), -1);
}

TEST(Calendar, Ordering) {
    const QV_DATE_T a = make_date(2009, 5, 1, 10, 0, 0, 5), b = make_date(2009, 5, 1, 10, 0, 0, 7);
    EXPECT_LT(CompareInternalDate_L(&a, &b), 0);
    EXPECT_GT(CompareInternalDate_L(&b, &a), 0);
    EXPECT_EQ(CompareInternalDate_L(&a, &a), 0);
    EXPECT_EQ(CompareInternalDate_L(nullptr, nullptr), 0);
    EXPECT_EQ(CompareInternalDate_L(nullptr, &a), -1);
    EXPECT_EQ(CompareInternalDate_L(&a, nullptr), 1);
    const QV_DATE_T later_year = make_date(2011, 1, 1),
                    zoned = make_date(2009, 5, 1, 10, 0, 0, 5, 100);
    EXPECT_EQ(CompareInternalDate_L(&later_year, &a), 2); // the difference of the years
    EXPECT_GT(CompareInternalDate_L(&zoned, &a), 0);
}

TEST(Calendar, MonthAndYearArithmeticClampsToMonthEnd) {
    const std::tuple<QV_DATE_T, int, QV_DATE_T> months[] = {
        {make_date(2001, 1, 31), 1, make_date(2001, 2, 28)},
        {make_date(2001, 1, 31), 13, make_date(2002, 2, 28)},
        {make_date(2004, 3, 31), -1, make_date(2004, 2, 29)},
        {make_date(2009, 1, 15), -12, make_date(2008, 1, 15)},
        {make_date(2009, 1, 15), -13, make_date(2007, 12, 15)},
        {make_date(1500, 1, 31), 1, make_date(1500, 2, 29)},
        {make_date(2009, 12, 1), 1, make_date(2010, 1, 1)},
        {make_date(2009, 5, 31), -1200, make_date(1909, 5, 31)},
    };
    for (auto [from, count, expected] : months) {
        QV_DATE_T out{};
        EXPECT_EQ(AddMonthsToInternalDate_L(&from, count, &out), 0);
        EXPECT_EQ(date_fields(out), date_fields(expected))
            << date_fields(from) << " + " << count << " months";
    }
    QV_DATE_T in_place = make_date(2008, 2, 29, 13, 14, 15, 16, -330);
    EXPECT_EQ(AddYearsToInternalDate_L(&in_place, 1, nullptr), 0);
    EXPECT_EQ(date_fields(in_place), date_fields(make_date(2009, 2, 28, 13, 14, 15, 16, -330)));
    EXPECT_EQ(AddYearsToInternalDate_L(&in_place, -109, nullptr), 0);
    EXPECT_EQ(date_fields(in_place), date_fields(make_date(1900, 2, 28, 13, 14, 15, 16, -330)));
    EXPECT_EQ(AddMonthsToInternalDate_L(nullptr, 1, nullptr), -1);
    EXPECT_EQ(AddYearsToInternalDate_L(nullptr, 1, nullptr), -1);
    // Counts far beyond the 16-bit years wrap the year (or are refused), never overflow.
    QV_DATE_T far = make_date(2009, 5, 31);
    EXPECT_EQ(AddMonthsToInternalDate_L(&far, INT64_MAX, nullptr), 0);
    EXPECT_EQ(AddYearsToInternalDate_L(&far, INT64_MIN, nullptr), 0);
    EXPECT_EQ(AddDaysToInternalDate_L(&far, INT64_MAX, nullptr), -1);
    EXPECT_EQ(AddMonthsToInternalDate_L(&far, 65536 * 12, &far), 0);
    QV_DATE_T time = make_date(0, 0, 0, 10);
    EXPECT_EQ(AddMonthsToInternalDate_L(&time, 5, nullptr), 0);
    EXPECT_EQ(date_fields(time),
              date_fields(make_date(0, 0, 0, 10))); // a time has no month to move
}

TEST(Calendar, SecondsAndIntervals) {
    const std::tuple<QV_DATE_T, double, QV_DATE_T> seconds[] = {
        {make_date(2009, 12, 31, 23, 59, 59), 1, make_date(2010, 1, 1)},
        {make_date(2010, 1, 1), -0.25, make_date(2009, 12, 31, 23, 59, 59, 750000000)},
        {make_date(2010, 1, 1, 0, 0, 0, 999999999), 1e-9, make_date(2010, 1, 1, 0, 0, 1)},
        {make_date(2010, 3, 1), -86400.0 * 365, make_date(2009, 3, 1)},
        {make_date(0, 0, 0, 23, 0, 0), 7200,
         make_date(0, 0, 0, 1, 0, 0)}, // a time wraps at midnight
        {make_date(0, 0, 0, 1, 0, 0), -7200, make_date(0, 0, 0, 23, 0, 0)},
    };
    for (auto [from, count, expected] : seconds) {
        QV_DATE_T out{};
        EXPECT_EQ(AddSecsToInternalDate_L(&from, count, &out), 0);
        EXPECT_EQ(date_fields(out), date_fields(expected))
            << date_fields(from) << " + " << count << " s";
    }
    QV_DATE_T d = make_date(2009, 1, 31, 12);
    EXPECT_EQ(AddSecsToInternalDate_L(&d, std::nan(""), nullptr), -1);
    EXPECT_EQ(AddSecsToInternalDate_L(&d, 1e19, nullptr), -1);

    const QV_INTERVAL_DS_T minus_day_hour{1, 1, 1, 0, 0, 500000000};
    const QV_INTERVAL_YM_T plus_month{0, 0, 1};
    EXPECT_EQ(AddIntervalToInternalDate_L(&d, &minus_day_hour, &plus_month, nullptr), 0);
    EXPECT_EQ(date_fields(d), date_fields(make_date(2009, 2, 27, 10, 59, 59, 500000000)));
    EXPECT_EQ(AddIntervalToInternalDate_L(nullptr, nullptr, nullptr, nullptr), -1);
}

TEST(Calendar, DifferencesAreFirstMinusSecondAsMoments) {
    const QV_DATE_T a = make_date(2009, 1, 2, 12, 0, 0, 250000000), b = make_date(2009, 1, 1, 18);
    int64_t seconds = 0, days = 0;
    int32_t nanoseconds = 0;
    EXPECT_EQ(SecsBetweenInternalDate_L(&a, &b, &seconds, &nanoseconds), 0);
    EXPECT_EQ(seconds, 18 * 3600);
    EXPECT_EQ(nanoseconds, 250000000);
    EXPECT_EQ(SecsBetweenInternalDate_L(&b, &a, &seconds, &nanoseconds), 0);
    EXPECT_EQ(seconds, -18 * 3600);
    EXPECT_EQ(nanoseconds, -250000000);
    EXPECT_EQ(DaysBetweenInternalDate_L(&a, &b, &days), 0);
    EXPECT_EQ(days, 0); // 18 hours: not a whole day
    // The same moment in two zones: 12:00 at +05:30 is 06:30 UTC.
    const QV_DATE_T india = make_date(2009, 1, 1, 12, 0, 0, 0, 530),
                    utc = make_date(2009, 1, 1, 6, 30);
    EXPECT_EQ(SecsBetweenInternalDate_L(&india, &utc, &seconds, nullptr), 0);
    EXPECT_EQ(seconds, 0);
    EXPECT_EQ(DaysBetweenInternalDate_L(&a, nullptr, &days), -1);
    EXPECT_EQ(SecsBetweenInternalDate_L(&a, &b, nullptr, nullptr), -1);
}

TEST(Calendar, CurrentTimestamp) {
    QV_DATE_T now = make_date(1, 1, 1, 1, 1, 1, 123, 100);
    EXPECT_EQ(CurrentTimestamp_L(&now), 0);
    EXPECT_EQ(now.fraction, 0);
    EXPECT_EQ(now.zone, 0);
    const time_t t = time(nullptr);
    struct tm local {};
    localtime_r(&t, &local);
    EXPECT_EQ(now.year, local.tm_year + 1900);
    EXPECT_EQ(CurrentTimestamp_L(nullptr), -1);
}

TEST(Calendar, DateLiterals) {
    const std::tuple<const char *, std::optional<QV_DATE_T>, uint8_t> literals[] = {
        {"2009-01-02", make_date(2009, 1, 2), QV_DATE_LITERAL_DATE},
        {"-0044-03-15", make_date(-44, 3, 15), QV_DATE_LITERAL_DATE},
        {"2009-1-2 3:04", make_date(2009, 1, 2, 3, 4), QV_DATE_LITERAL_DATE | QV_DATE_LITERAL_TIME},
        {"2009-01-02T03:04:05.5", make_date(2009, 1, 2, 3, 4, 5, 500000000), 0x07},
        {"2009-01-02 03:04:05 -00:30", make_date(2009, 1, 2, 3, 4, 5, 0, -30), 0x0B},
        {"2009-01-02 03:04:05.123456789+05:30", make_date(2009, 1, 2, 3, 4, 5, 123456789, 530),
         0x0F},
        {"2009-04-31", std::nullopt, 0},
        {"1900-02-29", std::nullopt, 0},
        {"2009-01-02 24:00", std::nullopt, 0},
        {"09-01-02", std::nullopt, 0},
        {"2009-01-02 ", std::nullopt, 0},
        {"2009-01-02 10:00:00 CEST", std::nullopt, 0},
        {"'2009-01-02'", std::nullopt, 0},
        {"", std::nullopt, 0},
        {"2009-01-02 10:00:00.1234567890", std::nullopt, 0},
    };
    for (auto [literal, expected, flag] : literals) {
        QV_DATE_T out{};
        uint8_t parts = 0xFF;
        EXPECT_EQ(IsInternalDate_L(literal, &out, &parts), expected ? 1 : 0) << literal;
        EXPECT_EQ(qv::recognise_date_literal(literal, &parts), expected.has_value());
        if (!expected) continue;
        EXPECT_EQ(date_fields(out), date_fields(*expected)) << literal;
        EXPECT_EQ(parts, flag) << literal;
    }
    EXPECT_EQ(IsInternalDate_L(nullptr, nullptr, nullptr), 0);
}

// Sets the process's zone rule for the life of the object (POSIX rules need no zone files).
struct ScopedZone {
    explicit ScopedZone(const char *rule) {
        if (const char *was = getenv("TZ")) old = was;
        setenv("TZ", rule, 1);
        tzset();
    }
    ~ScopedZone() {
        old ? setenv("TZ", old->c_str(), 1) : unsetenv("TZ");
        tzset();
    }
    std::optional<std::string> old;
};

TEST(Zones, NamesNumbersAndLocal) {
    const std::tuple<const char *, std::optional<int16_t>> zones[] = {
        {"CEST", 200}, {"cest", 200},   {"NZDT", 1300}, {"ACST", 930},   {"AKDT", -800},
        {"WEST", 100}, {"UTC", 0},      {"Z", 0},       {"+05:30", 530}, {"-0330", -330},
        {"+5", 500},   {"-00:30", -30}, {"XYZ", {}},    {"+24:00", {}},  {"+05:60", {}},
        {"05:30", {}}, {"", {}},        {"LOCALE", {}}, {"+05:3", {}},
    };
    for (auto [name, expected] : zones) {
        int16_t zone = 12345;
        EXPECT_EQ(IsValidTimezone_L(name, &zone), expected ? 1 : 0) << name;
        if (expected) {
            EXPECT_EQ(zone, *expected) << name;
        }
    }
    EXPECT_EQ(IsValidTimezone_L(nullptr, nullptr), 0);
    ScopedZone india("IST-5:30");
    int16_t zone = 0;
    EXPECT_EQ(IsValidTimezone_L("Local", &zone), 1);
    EXPECT_EQ(zone, 530);
    EXPECT_EQ(GetLocalTimeZone_L(), 530);
    SetDefaultTimeZone_L(-330);
    EXPECT_EQ(GetDefaultTimeZone_L(), -330);
}

TEST(Zones, AdjustUTCTimeToLocalFollowsDaylightSaving) {
    ScopedZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    const std::tuple<QV_DATE_T, QV_DATE_T> moves[] = {
        {make_date(2009, 1, 15, 23, 30), make_date(2009, 1, 16, 0, 30)},
        {make_date(2009, 7, 15, 23, 30), make_date(2009, 7, 16, 1, 30)},
    };
    for (auto [utc, local] : moves) {
        QV_DATE_T out{};
        EXPECT_EQ(AdjustUTCTimeToLocal_L(&utc, &out), 0);
        EXPECT_EQ(date_fields(out), date_fields(local));
    }
    EXPECT_EQ(AdjustUTCTimeToLocal_L(nullptr, nullptr), -1);
}

} // namespace
