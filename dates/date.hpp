// date.hpp - what the files of the date and interval modules share: the calendar as day
// numbers, moments as seconds, the date-literal recogniser the data types install, and the
// kept text of the last format failure.
//
// Day numbers are Julian day numbers of this calendar (see qv/date.h): consecutive, equal
// to the standard numbers from 1600 on. A moment is a day number times 86400 plus the
// seconds of the day, minus the zone's displacement; nanoseconds travel beside it.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "qv/datatype.h"

namespace qv {

// True when `text` is a date literal (IsInternalDate_L), with the parts present in *flag
// (QV_DATE_LITERAL_...), which the data types keep in the lowest byte of a DATE's extra.
bool recognise_date_literal(const char *text, uint8_t *flag);

constexpr int64_t seconds_per_day = 86400;
constexpr int32_t nanoseconds_per_second = 1000000000;

struct CivilDate {
    int64_t year;
    int32_t month; // 1..12
    int32_t day;   // 1..31
};

bool is_leap_year(int64_t year);
int32_t days_in_month(int32_t month, int64_t year);
// The day number of a calendar date; months beyond 1..12 carry into the year and days
// beyond the month run on into the next.
int64_t day_number(int64_t year, int32_t month, int32_t day);
CivilDate civil_from_day_number(int64_t number);
constexpr int64_t unix_epoch_day = 2440588;      // 1970-01-01
constexpr int64_t gregorian_start_day = 2305448; // 1600-01-01

// Days from a March-based year's 1 March to the first of month `m` (1..12).
constexpr int32_t march_day_of_month_start(int32_t m) {
    return (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5;
}
// The day number of a Gregorian date from 1600 on, month 1..12: days of the March-based
// years (then positive, so plain unsigned division does) plus the days from 1 March to the
// month, found by one multiplication (979 * M - 2919) / 32 for M = 3 (March) .. 14 (next
// February).
constexpr int64_t gregorian_day_number(int64_t y, int32_t m, int32_t d) {
    const uint32_t january_or_february = m <= 2;
    const auto year = static_cast<uint32_t>(y) - january_or_february;
    const auto month = static_cast<uint32_t>(m) + 12 * january_or_february;
    const uint32_t century = year / 100;
    const uint32_t days = 1461 * year / 4 - century + century / 4 + (979 * month - 2919) / 32 +
                          static_cast<uint32_t>(d) - 1;
    return static_cast<int64_t>(days) + 1721120;
}
// Any date (months beyond 12 carry into the year); kept out of line, off the short way.
[[gnu::noinline]] int64_t any_day_number_of(const QV_DATE_T &date);
// The date's day number; 0 for a time of day (month 0). Gregorian dates take the short way.
inline int64_t day_number_of(const QV_DATE_T &date) {
    if (date.year >= 1600 && date.month >= 1 && date.month <= 12)
        return gregorian_day_number(date.year, date.month, date.day);
    return any_day_number_of(date);
}
// 0 (Sunday) .. 6 (Saturday).
inline int32_t weekday_of(int64_t number) {
    return static_cast<int32_t>(((number + 1) % 7 + 7) % 7);
}
// 1 (Monday) .. 7 (Sunday), as ISO 8601 numbers them.
inline int32_t iso_weekday_of(int64_t number) {
    return static_cast<int32_t>((number % 7 + 7) % 7) + 1;
}
int32_t day_of_year(const QV_DATE_T &date);
struct IsoWeek {
    int64_t year;
    int32_t week;
};
IsoWeek iso_week_of(int64_t number);
// Day number of the Monday of week 1 of an ISO year.
int64_t iso_year_start(int64_t iso_year);

// Zone displacement in seconds (530 is 19800).
inline int64_t zone_seconds(int16_t zone) {
    return static_cast<int64_t>(zone / 100) * 3600 + static_cast<int64_t>(zone % 100) * 60;
}
// The date as seconds since day 0 (local fields only) / as a moment (zone subtracted).
inline int64_t local_seconds(const QV_DATE_T &date) {
    return day_number_of(date) * seconds_per_day + date.hour * 3600 + date.minute * 60 +
           date.second;
}
inline int64_t moment_seconds(const QV_DATE_T &date) {
    return local_seconds(date) - zone_seconds(date.zone);
}
// The time from b to a (a minus b, as moments) in whole seconds and nanoseconds of the same
// sign.
void elapsed(const QV_DATE_T &a, const QV_DATE_T &b, int64_t &seconds, int64_t &nanoseconds);
// Moves the date by whole seconds and nanoseconds (any sign); a time of day wraps at
// midnight.
void add_to_date(QV_DATE_T &date, int64_t seconds, int64_t nanoseconds);

// The zone named by `name` (a table abbreviation, LOCAL or a numeric text), when known.
bool find_zone(const char *name, std::size_t length, int16_t *zone);

// Keeps the text of the last format failure (printf-style), read by DateFormatError_L.
void set_format_error(const char *format, ...) __attribute__((format(printf, 1, 2)));
void clear_format_error();

} // namespace qv
