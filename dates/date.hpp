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
// The date's day number; 0 for a time of day (month 0).
int64_t day_number_of(const QV_DATE_T &date);
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
int64_t local_seconds(const QV_DATE_T &date);
inline int64_t moment_seconds(const QV_DATE_T &date) {
    return local_seconds(date) - zone_seconds(date.zone);
}
// Moves the date by whole seconds and nanoseconds (any sign); a time of day wraps at
// midnight.
void add_to_date(QV_DATE_T &date, int64_t seconds, int64_t nanoseconds);

// The zone named by `name` (a table abbreviation, LOCAL or a numeric text), when known.
bool find_zone(const char *name, std::size_t length, int16_t *zone);

// Keeps the text of the last format failure (printf-style), read by DateFormatError_L.
void set_format_error(const char *format, ...) __attribute__((format(printf, 1, 2)));
void clear_format_error();

} // namespace qv
