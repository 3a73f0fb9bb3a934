// format_test.cpp - date format patterns: how patterns split into tokens, the settled
// printing rules against printf, the other tokens against strftime and by example, the
// default zone, print-then-read round trips, reading rules, bad input with its kept
// reasons, and allocation failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "capture.hpp"
#include "qv/alloc.h"
#include "dates/date_records.hpp"
#include "qv/date.h"
#include "qv/message.h"

namespace {

using qvtest::date_fields;
using qvtest::make_date;

using ::testing::HasSubstr;

std::string print(QV_DATE_T d, const char *pattern) {
    char out[256];
    const int32_t length = InternalDateToChar_L(&d, pattern, nullptr, out, sizeof out);
    return length < 0 ? "<bad pattern>" : out;
}

std::optional<QV_DATE_T> read(const char *text, const char *pattern) {
    QV_DATE_T d{};
    if (CharToInternalDate_L(text, pattern, nullptr, &d) != 0) return std::nullopt;
    return d;
}

std::string printf_text(const char *format, long long value) {
    char out[64];
    std::snprintf(out, sizeof out, format, value);
    return out;
}

TEST(DateFormat, PatternsSplitLongestFirst) {
    const QV_DATE_T d = make_date(2009, 1, 2, 9, 5, 7, 123456789);
    const std::tuple<const char *, const char *> cases[] = {
        {"hh24:mi", "09:05"},
        {"mm/dd", "01/02"},
        {"mimm", "0501"},
        {"Month Mon", "<bad pattern>"},
        {"Month", "January"},
        {"Mon", "Jan"},
        {"MONTH", "JANUARY"},
        {"month", "january"},
        {"ddTh", "02T09"},
        {"DDTH", "02ND"},
        {"yyyy\"T\"hh24", "2009T09"},
        {"\"yyyy mm\" yyyy", "yyyy mm 2009"},
        {"\"open", "open"},
        {"hh12sssss", "0932707"},
        {"syyyyyyyy", "<bad pattern>"},
        {"fffffffffff", "<bad pattern>"},
        {"", ""},
        {"T:-/_,.", "T:-/_,."},
    };
    for (auto [pattern, expected] : cases) EXPECT_EQ(print(d, pattern), expected) << pattern;
}

TEST(DateFormat, RepeatedPartIsRefusedWithMessage) {
    EXPECT_EQ(ParseDateFormat_L("yyyy-mm-dd yyyy"), nullptr);
    EXPECT_STREQ(DateFormatError_L(),
                 "The date format 'yyyy-mm-dd yyyy' names the same part of the date more than "
                 "once.");
    for (const char *pattern : {"iyyy-yyyy", "dd ddd", "hh24 hh12", "ww iw", "sssss ss", "am pm",
                                "day dd", "mm month", "fff ff"}) {
        EXPECT_EQ(ParseDateFormat_L(pattern), nullptr) << pattern;
        EXPECT_THAT(DateFormatError_L(), HasSubstr(pattern));
    }
    EXPECT_EQ(ParseDateFormat_L(nullptr), nullptr);
    QV_DATE_FORMAT_T *format = ParseDateFormat_L("yyyy-mm-dd hh24:mi:ss");
    ASSERT_NE(format, nullptr);
    QV_DATE_T d = make_date(2009, 1, 2, 3, 4, 5);
    char out[64];
    EXPECT_EQ(InternalDateToChar_L(&d, "ignored", format, out, sizeof out), 19);
    EXPECT_STREQ(out, "2009-01-02 03:04:05");
    FreeParsedDateFormat_L(format);
}

// The settled rules, against printf over many years, fractions and hours.
TEST(DateFormat, SettledRulesMatchPrintf) {
    std::mt19937 random(11);
    for (int year = -9999; year <= 9999; year += 7) {
        const int hour = (year % 24 + 24) % 24, fraction = static_cast<int>(random() % 1000000000);
        const QV_DATE_T d =
            make_date(year, 1 + (year & 7), 1 + (year & 15), hour, 59, 30, fraction);
        const std::string syyyy = printf_text(year > 0 ? "%04lld" : "%+05lld", year);
        ASSERT_EQ(print(d, "syyyy"), syyyy);
        ASSERT_EQ(print(d, "yyyy"), printf_text("%04lld", year));
        ASSERT_EQ(print(d, "yy"), printf_text("%02lld", year % 100));
        const std::string nine = printf_text("%09lld", fraction);
        ASSERT_EQ(print(d, "fffffffff"), nine);
        ASSERT_EQ(print(d, "fff"), nine.substr(0, 3));
        ASSERT_EQ(print(d, "f"), nine.substr(0, 1));
        ASSERT_EQ(print(d, "hh12"), printf_text("%02lld", d.hour % 12 == 0 ? 12 : d.hour % 12));
        ASSERT_EQ(print(d, "sssss"), printf_text("%05lld", d.hour * 3600 + 59 * 60 + 30));
        ASSERT_EQ(print(d, "am"), d.hour < 12 ? "am" : "pm");
        ASSERT_EQ(print(d, "mm dd hh24 mi ss"), printf_text("%02lld", d.month) +
                                                    printf_text(" %02lld", d.day) +
                                                    printf_text(" %02lld", d.hour) + " 59 30");
        ASSERT_EQ(print(d, "hh"), printf_text("%02lld", d.hour));
    }
    EXPECT_EQ(print(make_date(0, 1, 1), "syyyy"), "+0000");
    EXPECT_EQ(print(make_date(-44, 1, 1), "syyyy"), "-0044");
    EXPECT_EQ(print(make_date(2009, 1, 2), "j"), "2454834");
    EXPECT_EQ(print(make_date(-4712, 1, 1), "j"), printf_text("%07lld", -9));
    EXPECT_EQ(print(make_date(2009, 6, 1, 13), "Month AM"), "June PM");
    EXPECT_EQ(print(make_date(2009, 6, 1, 11), "Pm"), "Am");
}

// Day and month names, ISO weeks and years, days of the year and of the week, every day of
// two centuries against strftime in the C locale (the glossaries are English).
TEST(DateFormat, DerivedTokensMatchStrftime) {
    namespace chr = std::chrono;
    for (chr::sys_days day = chr::year{1900} / 1 / 1; day <= chr::year{2100} / 12 / 31;
         day += chr::days{1}) {
        const chr::year_month_day ymd(day);
        const QV_DATE_T d =
            make_date(static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                      static_cast<unsigned>(ymd.day()));
        struct tm t {};
        t.tm_year = d.year - 1900, t.tm_mon = d.month - 1, t.tm_mday = d.day;
        t.tm_wday = static_cast<int>(chr::weekday(day).c_encoding());
        t.tm_yday = static_cast<int>((day - chr::sys_days(ymd.year() / 1 / 1)).count());
        for (auto [pattern, reference] :
             {std::pair{"iyyy iw ddd Month", "%G %V %j %B"}, std::pair{"iy Day Mon", "%g %A %b"},
              std::pair{"Dy", "%a"}}) {
            char expected[128];
            std::strftime(expected, sizeof expected, reference, &t);
            ASSERT_EQ(print(d, pattern), expected);
        }
        ASSERT_EQ(print(d, "d q ww"), std::to_string(t.tm_wday + 1) + " " +
                                          std::to_string((d.month + 2) / 3) +
                                          printf_text(" %02lld", t.tm_yday / 7 + 1));
        ASSERT_EQ(print(d, "w"), std::to_string((d.day - 1) / 7 + 1));
    }
}

TEST(DateFormat, OtherTokensByExample) {
    const std::tuple<QV_DATE_T, const char *, const char *> cases[] = {
        {make_date(2009, 1, 2), "y mmm", "9 jan"},
        {make_date(2009, 1, 2), "yyy m", "009 1"},
        {make_date(2009, 1, 2), "i", "9"},
        {make_date(2009, 1, 2), "iyy", "009"},
        {make_date(2008, 12, 29), "iyyy-iw mm", "2009-01 12"},
        {make_date(2010, 1, 3), "iyyy-iw", "2009-53"},
        {make_date(2009, 1, 1), "ddth", "01st"},
        {make_date(2009, 1, 2), "ddth", "02nd"},
        {make_date(2009, 1, 3), "Ddth", "03rd"},
        {make_date(2009, 1, 11), "ddth", "11th"},
        {make_date(2009, 1, 12), "ddth", "12th"},
        {make_date(2009, 1, 13), "ddth", "13th"},
        {make_date(2009, 1, 21), "DDTH", "21ST"},
        {make_date(2009, 1, 22), "ddth", "22nd"},
        {make_date(2009, 1, 23), "ddth", "23rd"},
        {make_date(2009, 1, 31), "ddth", "31st"},
        {make_date(2009, 1, 2, 0, 1, 2), "hh12 am sssss", "12 am 00062"},
        {make_date(2009, 1, 2, 12), "hh12 AM", "12 PM"},
        {make_date(2009, 1, 2), "DAY", "FRIDAY"},
        {make_date(2009, 1, 2), "dy", "fri"},
    };
    for (auto [d, pattern, expected] : cases) EXPECT_EQ(print(d, pattern), expected) << pattern;
}

TEST(DateFormat, ZonePrintingWritesTheDefaultZoneIntoTheDate) {
    SetDefaultTimeZone_L(-330);
    QV_DATE_T d = make_date(2009, 1, 2, 3, 4, 5, 6);
    char out[64];
    EXPECT_EQ(InternalDateToChar_L(&d, GetInternalDatetimeTZFormat_L(), nullptr, out, sizeof out),
              36);
    EXPECT_STREQ(out, "2009-01-02 03:04:05.000000006 -03:30");
    EXPECT_EQ(d.zone, -330); // written into the caller's record
    const std::tuple<int, const char *> zones[] = {
        {530, "+05:30"}, {-30, "-00:30"}, {1300, "+13:00"}, {-1200, "-12:00"}, {45, "+00:45"}};
    for (auto [zone, expected] : zones) {
        QV_DATE_T zoned = make_date(2009, 1, 2, 0, 0, 0, 0, zone);
        EXPECT_EQ(InternalTimezoneToChar_L(&zoned, out, sizeof out), 6);
        EXPECT_STREQ(out, expected);
    }
    QV_DATE_T plain = make_date(2009, 1, 2);
    EXPECT_EQ(print(plain, nullptr), "2009-01-02 00:00:00.000000000");
    EXPECT_EQ(plain.zone, 0); // no zone in the pattern, nothing written
    QV_DATE_T time = make_date(0, 0, 0, 23, 59, 58, 1);
    EXPECT_EQ(InternalTimeToChar_L(&time, nullptr, nullptr, out, sizeof out), 18);
    EXPECT_STREQ(out, "23:59:58.000000001");
    EXPECT_EQ(InternalTimeToChar_L(&time, GetInternalTimeTZFormat_L(), nullptr, out, sizeof out),
              25);
    EXPECT_STREQ(out, "23:59:58.000000001 -03:30");
}

TEST(DateFormat, OutputBufferIsCutAndTerminated) {
    QV_DATE_T d = make_date(2009, 1, 2);
    char out[8] = "xxxxxxx";
    EXPECT_EQ(InternalDateToChar_L(&d, GetInternalDateFormat_L(), nullptr, out, 5), 10);
    EXPECT_STREQ(out, "2009");
    EXPECT_EQ(InternalDateToChar_L(&d, GetInternalDateFormat_L(), nullptr, nullptr, 0), 10);
    EXPECT_EQ(InternalDateToChar_L(&d, GetInternalDateFormat_L(), nullptr, out, -1), 10);
    EXPECT_EQ(InternalDateToChar_L(nullptr, nullptr, nullptr, out, sizeof out), 0);
    EXPECT_STREQ(out, "");
    std::strcpy(out, "x");
    EXPECT_EQ(InternalDateToChar_L(&d, "yy yy", nullptr, out, sizeof out), -1);
    EXPECT_STREQ(out, "");
}

// Patterns that carry every field read back to the same date; the others print the same
// text again after a read.
struct RoundTrip {
    const char *pattern;
    int first_year, last_year;
    bool whole; // carries every field of the generated dates
    bool zone, fraction;
};

TEST(DateFormat, PrintThenReadRoundTrips) {
    QV_DATE_T now{};
    CurrentTimestamp_L(&now);
    const RoundTrip trips[] = {
        {GetInternalDatetimeFormat_L(), -32768, 32767, true, false, true},
        {GetInternalDatetimeTZFormat_L(), -9999, 9999, true, true, true},
        {GetInternalDateFormat_L(), -32768, 32767, false, false, false},
        {"yyyymmddhh24missfffffffff", 1000, 9999, true, false, true},
        {"yyyy-mm-dd\"T\"hh24:mi:ss.fffffffffstzh:tzm", 1, 9999, true, true, true},
        {"dd/mm/yyyy hh12:mi:ss am", 1, 9999, false, false, false},
        {"Month ddth, yyyy hh:mi:ss", -9999, 9999, false, false, false},
        {"DD-MON-YYYY HH24.MI.SS.FFF", 1, 9999, false, false, false},
        {"j sssss", -4000, 9999, false, false, false},
        {"yyyy-ddd hh24", -9999, 9999, false, false, false},
        {"iyyy-iw-d", 1, 9999, false, false, false},
        {"yyyy-ww-d", -9999, 9999, false, false, false},
        {"yyyy q mm w d", 1, 9999, false, false, false},
        {"yy-mm-dd", now.year - 49, now.year + 49, false, false, false},
        {"syyyy-mm-dd stzh", -9999, 9999, false, true, false},
        {GetInternalTimeTZFormat_L(), 0, 0, false, true, true},
    };
    std::mt19937 random(3);
    for (const RoundTrip &trip : trips) {
        std::uniform_int_distribution<int> year(trip.first_year, trip.last_year);
        for (int i = 0; i < 3000; ++i) {
            QV_DATE_T d =
                make_date(year(random), 1 + random() % 12, 1, random() % 24, random() % 60,
                          random() % 60, trip.fraction ? random() % 1000000000 : 0);
            d.day = static_cast<uint8_t>(1 + random() % DaysInMonth_L(d.month, d.year));
            if (trip.zone) { // never 0, which would print the default zone
                const int hours = 1 + random() % 23, minutes = random() % 60;
                d.zone = static_cast<int16_t>((random() % 2 ? -1 : 1) * (hours * 100 + minutes));
            }
            const std::string text = print(d, trip.pattern);
            QV_DATE_T back{};
            const bool time_only = trip.first_year == 0 && trip.last_year == 0;
            ASSERT_EQ((time_only ? CharToInternalTime_L : CharToInternalDate_L)(
                          text.c_str(), trip.pattern, nullptr, &back),
                      0)
                << trip.pattern << ": " << text << ": " << DateFormatError_L();
            if (trip.whole) {
                ASSERT_EQ(date_fields(back), date_fields(d)) << trip.pattern << ": " << text;
            }
            ASSERT_EQ(print(back, trip.pattern), text) << trip.pattern;
        }
    }
}

TEST(DateFormat, ReadingRules) {
    const std::tuple<const char *, const char *, QV_DATE_T> cases[] = {
        {" 2009-01-02 ", nullptr, make_date(2009, 1, 2)},
        {"2009/01/02 10.20", nullptr, make_date(2009, 1, 2, 10, 20)},
        {"2009-01-02 10:00:00 +05:30", GetInternalDatetimeTZFormat_L(),
         make_date(2009, 1, 2, 10, 0, 0, 0, 530)},
        {"2009-01-02 10:00:00 CEST", GetInternalDatetimeTZFormat_L(),
         make_date(2009, 1, 2, 10, 0, 0, 0, 200)},
        {"2009-01-02 10:00:00.5 -00:30", GetInternalDatetimeTZFormat_L(),
         make_date(2009, 1, 2, 10, 0, 0, 500000000, -30)},
        {"+0000-01-02", nullptr, make_date(0, 1, 2)},
        {"-0044-03-15", nullptr, make_date(-44, 3, 15)},
        {"12000-01-01", nullptr, make_date(12000, 1, 1)},
        {"2009-7-4", "yyyy-mm-dd", make_date(2009, 7, 4)},
        {"2009-07", "yyyy-mm-dd", make_date(2009, 7, 1)},
        {"JULY 4TH 2009", "month ddth yyyy", make_date(2009, 7, 4)},
        {"jul 4 2009", "Month dd yyyy", make_date(2009, 7, 4)},
        {"2009 T 1", "yyyy \"T\" q", make_date(2009, 1, 1)},
        {"2009 3", "yyyy q", make_date(2009, 7, 1)},
        {"2009 060", "yyyy ddd", make_date(2009, 3, 1)},
        {"2454834", "j", make_date(2009, 1, 2)},
        {"2009-W53-7", "iyyy-\"W\"iw-d", make_date(2010, 1, 2)},
        {"2009-53", "iyyy-iw", make_date(2009, 12, 28)},
        {"2009-01-1 sunday", "yyyy-mm-w day", make_date(2009, 1, 4)},
        {"10:30 PM", "hh:mi am", make_date(0, 0, 0, 22, 30)},
        {"12:30 am", "hh12:mi am", make_date(0, 0, 0, 0, 30)},
        {"37800", "sssss", make_date(0, 0, 0, 10, 30)},
    };
    for (auto [text, pattern, expected] : cases) {
        const std::optional<QV_DATE_T> d = read(text, pattern);
        ASSERT_TRUE(d.has_value()) << text << ": " << DateFormatError_L();
        EXPECT_EQ(date_fields(*d), date_fields(expected)) << text;
    }
    QV_DATE_T time{};
    EXPECT_EQ(
        CharToInternalTime_L("2009-01-02 10:20:30", GetInternalDatetimeFormat_L(), nullptr, &time),
        0);
    EXPECT_EQ(date_fields(time), date_fields(make_date(0, 0, 0, 10, 20, 30)));
    QV_DATE_T now{};
    CurrentTimestamp_L(&now);
    EXPECT_EQ(read("07-04", "mm-dd")->year, now.year); // the current year
    const int64_t nearest = read("00-01-01", "yy-mm-dd")->year;
    EXPECT_LE(std::abs(nearest - now.year), 50);
    EXPECT_EQ(nearest % 100, 0);
    EXPECT_EQ(IsValidDate_L("2009-01-02", nullptr), 1);
    EXPECT_EQ(IsValidDate_L("2009-01-02 10:00:00 +05:30", nullptr), 1);
    EXPECT_EQ(IsValidDate_L("2009-02-29", nullptr), 0);
    EXPECT_EQ(IsValidDate_L(nullptr, nullptr), 0);
}

TEST(DateFormat, BadInputFailsWithItsReasonKept) {
    EXPECT_EQ(read("2009-04-31", "yyyy-mm-dd"), std::nullopt);
    EXPECT_STREQ(DateFormatError_L(), "'2009-04-31' does not fit the date format 'yyyy-mm-dd': "
                                      "day 31 does not exist in month 4 of 2009");
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"1900-02-29", "yyyy-mm-dd", "day 29 does not exist in month 2 of 1900"},
        {"2009-01-02 24:00:00", "yyyy-mm-dd hh24:mi:ss", "hour 24 is out of range (0 to 23)"},
        {"2009-01-02 23:60", "yyyy-mm-dd hh24:mi", "minute 60 is out of range"},
        {"2009-13-01", "yyyy-mm-dd", "month 13 is out of range"},
        {"40000-01-01", "yyyy-mm-dd", "year 40000 is out of range"},
        {"2009-01-02 10:00 XYZ", "yyyy-mm-dd hh24:mi stzh", "'XYZ' is not a known time zone"},
        {"2009-01-02 10:00 +24", "yyyy-mm-dd hh24:mi stzh", "the zone 24:00 is out of range"},
        {"2009-01-02x", "yyyy-mm-dd", "the text goes on after the format ends, at position 11"},
        {"abc", "yyyy", "a number was expected at position 1"},
        {"2009x01", "yyyy\"-\"mm", "'-' was expected at position 5"},
        {"Mai 2009", "month yyyy", "a month name was expected at position 1"},
        {"Freitag", "day", "a day name was expected at position 1"},
        {"2009-01-", "yyyy-mm-dd", "the text ends too early"},
        {"", "yyyy", "the text is empty"},
        {"Friday 2009", "day yyyy", "a day of the week needs a week to fix the date"},
        {"2009-01-9", "yyyy-ww-d", "day 9 of the week is out of range (1 to 7)"},
        {"2009-54", "yyyy-ww", "week 54 is out of range"},
        {"2009 2 01", "yyyy q mm", "the quarter does not agree with the date 2009-01-01"},
        {"2009-01-02 05", "yyyy-mm-dd ww", "the week does not agree with the date 2009-01-02"},
        {"2008-53", "iyyy-iw", "the ISO year does not agree with the date 2008-12-29"},
        {"2009 366", "yyyy ddd", "day 366 of the year does not exist in 2009"},
        {"13:00 am", "hh:mi am", "hour 13 does not agree with am"},
        {"00:30 pm", "hh12:mi pm", "hour 0 is out of range (1 to 12)"},
        {"10:30 xm", "hh:mi am", "'am' or 'pm' was expected at position 7"},
        {"4xx", "ddth", "an ordinal suffix was expected at position 2"},
        {"86400", "sssss", "second 86400 of the day is out of range"},
        {"11 36001", "hh24 sssss", "the seconds since midnight do not agree with the time"},
    };
    for (auto [text, pattern, reason] : cases) {
        QV_DATE_T untouched = make_date(1, 2, 3);
        EXPECT_EQ(CharToInternalDate_L(text, pattern, nullptr, &untouched), -1) << text;
        EXPECT_THAT(DateFormatError_L(), HasSubstr(reason)) << text;
        EXPECT_EQ(untouched.day, 3);
        EXPECT_EQ(IsValidDate_L(text, pattern), 0) << text;
    }
    EXPECT_EQ(CharToInternalDate_L("2009-01-02", "yyyy yyyy", nullptr, nullptr), -1);
    EXPECT_EQ(CharToInternalDate_L(nullptr, nullptr, nullptr, nullptr), -1);
}

TEST(DateFormat, AllocationFailures) {
    for (const char *symbol : qvtest::fail_each_allocation(
             [] { FreeParsedDateFormat_L(ParseDateFormat_L("syyyy-mm-dd hh24:mi:ss")); }))
        EXPECT_EQ(symbol, ALLOC_FAILURE);
    int run = 0;
    std::string pattern;
    const std::vector<const char *> raised = qvtest::fail_each_allocation(
        [&] {
            QV_DATE_T d = make_date(2009, 1, 2);
            char out[64];
            InternalDateToChar_L(&d, pattern.c_str(), nullptr, out, sizeof out);
            QV_DATE_T back{};
            CharToInternalDate_L(out, pattern.c_str(), nullptr, &back);
        },
        [&] {
            UnloadGlossaries_L();
            pattern = "Month dd yyyy \"" + std::to_string(run++) + "\""; // not in the cache
        });
    EXPECT_GE(raised.size(), 2u); // the pattern and the month glossary
    for (const char *symbol : raised) EXPECT_EQ(symbol, ALLOC_FAILURE);
}

} // namespace
