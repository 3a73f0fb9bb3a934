// date.cpp - the calendar and the internal date: leap years and month lengths, day numbers
// in both directions, ordering, the current timestamp, day, month, year, second and
// interval arithmetic, differences, and the date-literal recogniser.
//
// The calendar has two halves joined without a gap at 1600-01-01. From 1600 on it is the
// Gregorian calendar and day numbers are the standard Julian day numbers, computed by the
// usual 400-year cycle over March-based years. Before 1600 the four-year rule alone holds:
// the same computation over 4-year cycles of 1461 days, shifted so that 1599-12-31 is the
// day before 1600-01-01; and since the year -4712 has no 29 February, every day before 1
// March -4712 is one day further along than the four-year cycle says.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>

#include "core/raise.hpp"
#include "dates/date.hpp"
#include "qv/date.h"

#include <type_traits>

static_assert(std::is_standard_layout_v<QV_DATE_T> && std::is_trivially_copyable_v<QV_DATE_T>);
static_assert(sizeof(QV_DATE_T) == 16 && offsetof(QV_DATE_T, fraction) == 8 &&
              offsetof(QV_DATE_T, zone) == 12);

namespace qv {
namespace {

constexpr int64_t floor_div(int64_t a, int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

constexpr int64_t gregorian_day(int64_t y, int32_t m, int32_t d) {
    return gregorian_day_number(y, m, d);
}

// The four-year count without its anchor: consecutive, 1461 days a cycle.
constexpr int64_t four_year_count(int64_t y, int32_t m, int32_t d) {
    y -= m <= 2;
    const int64_t era = floor_div(y, 4);
    return era * 1461 + (y - era * 4) * 365 + march_day_of_month_start(m) + d - 1;
}
constexpr int64_t four_year_offset = gregorian_start_day - 1 - four_year_count(1599, 12, 31);
constexpr int64_t last_day_before_missing_leap_day =
    four_year_count(-4712, 2, 28) + four_year_offset + 1;

constexpr int64_t calendar_day(int64_t y, int32_t m, int32_t d) {
    if (y >= 1600) return gregorian_day(y, m, d);
    const int64_t number = four_year_count(y, m, d) + four_year_offset;
    return (y < -4712 || (y == -4712 && m <= 2)) ? number + 1 : number;
}

static_assert(calendar_day(2000, 1, 1) == 2451545 && calendar_day(2000, 3, 1) == 2451605);
static_assert(calendar_day(32767, 12, 31) - calendar_day(1600, 1, 1) == 11383877);
static_assert(calendar_day(1600, 1, 1) == gregorian_start_day);
static_assert(calendar_day(1599, 12, 31) == gregorian_start_day - 1);
static_assert(calendar_day(-4712, 3, 1) == calendar_day(-4712, 2, 28) + 1);
static_assert(calendar_day(-4712, 2, 28) == last_day_before_missing_leap_day);

CivilDate civil_from_march_based(int64_t year, int64_t day_of_march_year) {
    const auto doy = static_cast<int32_t>(day_of_march_year);
    const int32_t mp = (5 * doy + 2) / 153;
    const int32_t day = doy - (153 * mp + 2) / 5 + 1;
    const int32_t month = mp < 10 ? mp + 3 : mp - 9;
    return {year + (month <= 2), month, day};
}

CivilDate gregorian_civil(int64_t number) {
    const int64_t z = number - unix_epoch_day + 719468;
    const int64_t era = floor_div(z, 146097);
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    return civil_from_march_based(yoe + era * 400, doe - (365 * yoe + yoe / 4 - yoe / 100));
}

CivilDate four_year_civil(int64_t number) {
    if (number <= last_day_before_missing_leap_day) --number;
    const int64_t z = number - four_year_offset;
    const int64_t era = floor_div(z, 1461);
    const int64_t doe = z - era * 1461;
    const int64_t yoe = std::min<int64_t>(doe / 365, 3);
    return civil_from_march_based(era * 4 + yoe, doe - yoe * 365);
}

// Far more days than the 16-bit years hold; a larger count is refused.
constexpr int64_t most_days = 1000000000000;

constexpr uint8_t leap_month_days[13] = {0, 31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

} // namespace

bool is_leap_year(int64_t year) {
    return year % 4 == 0 && year != -4712 && (year < 1600 || year % 100 != 0 || year % 400 == 0);
}

int32_t days_in_month(int32_t month, int64_t year) {
    if (month < 1 || month > 12) return 0;
    return month == 2 && !is_leap_year(year) ? 28 : leap_month_days[month];
}

int64_t day_number(int64_t year, int32_t month, int32_t day) {
    const int64_t carried = floor_div(month - 1, 12);
    return calendar_day(year + carried, static_cast<int32_t>(month - 1 - carried * 12 + 1), 1) +
           day - 1;
}

CivilDate civil_from_day_number(int64_t number) {
    return number >= gregorian_start_day ? gregorian_civil(number) : four_year_civil(number);
}

int64_t any_day_number_of(const QV_DATE_T &date) {
    if (date.month == 0) return 0;
    if (date.month <= 12) return calendar_day(date.year, date.month, date.day);
    return day_number(date.year, date.month, date.day);
}

int32_t day_of_year(const QV_DATE_T &date) {
    if (date.month == 0) return 0;
    return static_cast<int32_t>(day_number_of(date) - day_number(date.year, 1, 1) + 1);
}

int64_t iso_year_start(int64_t iso_year) {
    const int64_t january_4 = day_number(iso_year, 1, 4);
    return january_4 - iso_weekday_of(january_4) + 1;
}

IsoWeek iso_week_of(int64_t number) {
    // The week belongs to the year of its Thursday.
    const int64_t thursday = number - iso_weekday_of(number) + 4;
    const int64_t year = civil_from_day_number(thursday).year;
    return {year, static_cast<int32_t>((thursday - day_number(year, 1, 1)) / 7 + 1)};
}

namespace {

void set_civil(QV_DATE_T &date, const CivilDate &civil) {
    date.year = static_cast<int16_t>(civil.year);
    date.month = static_cast<uint8_t>(civil.month);
    date.day = static_cast<uint8_t>(civil.day);
}

void set_time_of_day(QV_DATE_T &date, int64_t seconds_of_day) {
    date.hour = static_cast<uint8_t>(seconds_of_day / 3600);
    date.minute = static_cast<uint8_t>(seconds_of_day / 60 % 60);
    date.second = static_cast<uint8_t>(seconds_of_day % 60);
}

// A year moved by a count, wrapping in 16 bits as the record's year does.
int16_t wrapped_year(int16_t year, int64_t count) {
    return static_cast<int16_t>(static_cast<uint64_t>(year) + static_cast<uint64_t>(count));
}

// The record an Add operation changes: `out` holding a copy of the date, or the date.
QV_DATE_T &target(QV_DATE_T *date, QV_DATE_T *out) {
    if (out == nullptr) return *date;
    *out = *date;
    return *out;
}

// Month arithmetic on a date that has one; the day is clamped to the new month's end.
void add_months(QV_DATE_T &date, int64_t months) {
    if (date.month == 0) return;
    const int64_t m = date.month + months % 12; // -10 .. 23: no count can overflow
    const int64_t carry = floor_div(m - 1, 12);
    date.year = wrapped_year(date.year, months / 12 + carry);
    date.month = static_cast<uint8_t>(m - 12 * carry);
    date.day =
        static_cast<uint8_t>(std::min<int32_t>(date.day, days_in_month(date.month, date.year)));
}

} // namespace

void elapsed(const QV_DATE_T &a, const QV_DATE_T &b, int64_t &seconds, int64_t &nanoseconds) {
    seconds = moment_seconds(a) - moment_seconds(b);
    nanoseconds = static_cast<int64_t>(a.fraction) - b.fraction;
    if (seconds > 0 && nanoseconds < 0) --seconds, nanoseconds += nanoseconds_per_second;
    if (seconds < 0 && nanoseconds > 0) ++seconds, nanoseconds -= nanoseconds_per_second;
}

void add_to_date(QV_DATE_T &date, int64_t seconds, int64_t nanoseconds) {
    int64_t fraction = date.fraction + nanoseconds % nanoseconds_per_second;
    seconds += nanoseconds / nanoseconds_per_second + floor_div(fraction, nanoseconds_per_second);
    date.fraction = static_cast<int32_t>(fraction - floor_div(fraction, nanoseconds_per_second) *
                                                        nanoseconds_per_second);
    const int64_t total = date.hour * 3600 + date.minute * 60 + date.second + seconds;
    const int64_t days = floor_div(total, seconds_per_day);
    set_time_of_day(date, total - days * seconds_per_day);
    if (date.month != 0) set_civil(date, civil_from_day_number(day_number_of(date) + days));
}

} // namespace qv

// ---- The date-literal recogniser ----------------------------------------------------------

namespace {

// Reads min..max decimal digits at *p.
bool digits(const char *&p, int min, int max, int32_t &value) {
    int count = 0;
    value = 0;
    while (count < max && *p >= '0' && *p <= '9') value = value * 10 + (*p++ - '0'), ++count;
    return count >= min;
}

bool literal_time(const char *&p, QV_DATE_T &date, uint8_t &flag) {
    int32_t hour = 0, minute = 0, second = 0, fraction = 0;
    if (!digits(p, 1, 2, hour) || *p++ != ':' || !digits(p, 2, 2, minute)) return false;
    if (*p == ':') {
        ++p;
        if (!digits(p, 2, 2, second)) return false;
        if (*p == '.') {
            const char *start = ++p;
            if (!digits(p, 1, 9, fraction)) return false;
            for (auto n = p - start; n < 9; ++n) fraction *= 10;
            flag |= QV_DATE_LITERAL_FRACTION;
        }
    }
    if (hour > 23 || minute > 59 || second > 59) return false;
    date.hour = static_cast<uint8_t>(hour);
    date.minute = static_cast<uint8_t>(minute);
    date.second = static_cast<uint8_t>(second);
    date.fraction = fraction;
    flag |= QV_DATE_LITERAL_TIME;
    return true;
}

bool literal_zone(const char *&p, QV_DATE_T &date, uint8_t &flag) {
    const char *start = p;
    if (*p == ' ') ++p;
    if (*p != '+' && *p != '-') {
        p = start;
        return true; // no zone
    }
    const int sign = *p++ == '-' ? -1 : 1;
    int32_t hours = 0, minutes = 0;
    if (!digits(p, 2, 2, hours) || *p++ != ':' || !digits(p, 2, 2, minutes) || hours > 23 ||
        minutes > 59)
        return false;
    date.zone = static_cast<int16_t>(sign * (hours * 100 + minutes));
    flag |= QV_DATE_LITERAL_ZONE;
    return true;
}

bool literal_date(const char *&p, QV_DATE_T &date) {
    int sign = 1;
    if (*p == '+' || *p == '-') sign = *p++ == '-' ? -1 : 1;
    int32_t year = 0, month = 0, day = 0;
    if (!digits(p, 4, 5, year) || *p++ != '-' || !digits(p, 1, 2, month) || *p++ != '-' ||
        !digits(p, 1, 2, day))
        return false;
    year *= sign;
    if (year < INT16_MIN || year > INT16_MAX || day < 1 || day > qv::days_in_month(month, year))
        return false;
    date.year = static_cast<int16_t>(year);
    date.month = static_cast<uint8_t>(month);
    date.day = static_cast<uint8_t>(day);
    return true;
}

bool read_literal(const char *text, QV_DATE_T &date, uint8_t &flag) {
    const char *p = text;
    date = QV_DATE_T{};
    flag = 0;
    if (!literal_date(p, date)) return false;
    flag = QV_DATE_LITERAL_DATE;
    if (*p == ' ' || *p == 'T') {
        ++p;
        if (!literal_time(p, date, flag) || !literal_zone(p, date, flag)) return false;
    }
    return *p == '\0';
}

} // namespace

bool qv::recognise_date_literal(const char *text, uint8_t *flag) {
    return IsInternalDate_L(text, nullptr, flag) != 0;
}

// ---- Exported operations ------------------------------------------------------------------

extern "C" {

QV_API int32_t DaysInMonth_L(int32_t month, int32_t year) {
    return qv::days_in_month(month, year);
}

QV_API uint8_t IsLeapYear_L(int32_t year) {
    return qv::is_leap_year(year) ? 1 : 0;
}

QV_API int32_t CompareInternalDate_L(const QV_DATE_T *a, const QV_DATE_T *b) {
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    const int32_t differences[] = {a->year - b->year, a->month - b->month,   a->day - b->day,
                                   a->hour - b->hour, a->minute - b->minute, a->second - b->second};
    for (int32_t difference : differences)
        if (difference != 0) return difference;
    if (a->fraction != b->fraction) return a->fraction < b->fraction ? -1 : 1;
    return a->zone - b->zone;
}

QV_API int32_t CurrentTimestamp_L(QV_DATE_T *out) {
    if (out == nullptr) return -1;
    *out = QV_DATE_T{};
    std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) return 0;
    out->year = static_cast<int16_t>(local.tm_year + 1900);
    out->month = static_cast<uint8_t>(local.tm_mon + 1);
    out->day = static_cast<uint8_t>(local.tm_mday);
    out->hour = static_cast<uint8_t>(local.tm_hour);
    out->minute = static_cast<uint8_t>(local.tm_min);
    out->second = static_cast<uint8_t>(std::min(local.tm_sec, 59)); // a leap second
    return 0;
}

QV_API int32_t AddMonthsToInternalDate_L(QV_DATE_T *date, int64_t months, QV_DATE_T *out) {
    if (date == nullptr) return -1;
    qv::add_months(qv::target(date, out), months);
    return 0;
}

QV_API int32_t AddYearsToInternalDate_L(QV_DATE_T *date, int64_t years, QV_DATE_T *out) {
    if (date == nullptr) return -1;
    QV_DATE_T &changed = qv::target(date, out);
    if (changed.month == 0) return 0;
    changed.year = qv::wrapped_year(changed.year, years);
    changed.day = static_cast<uint8_t>(
        std::min<int32_t>(changed.day, qv::days_in_month(changed.month, changed.year)));
    return 0;
}

QV_API int32_t AddDaysToInternalDate_L(QV_DATE_T *date, int64_t days, QV_DATE_T *out) {
    if (date == nullptr || days > qv::most_days || days < -qv::most_days) return -1;
    QV_DATE_T &changed = qv::target(date, out);
    if (changed.month != 0)
        qv::set_civil(changed, qv::civil_from_day_number(qv::day_number_of(changed) + days));
    return 0;
}

QV_API int32_t AddSecsToInternalDate_L(QV_DATE_T *date, double seconds, QV_DATE_T *out) {
    if (date == nullptr || !std::isfinite(seconds) || std::fabs(seconds) > 9e18) return -1;
    const double whole = std::trunc(seconds);
    const auto nanoseconds = std::llround((seconds - whole) * qv::nanoseconds_per_second);
    qv::add_to_date(qv::target(date, out), static_cast<int64_t>(whole), nanoseconds);
    return 0;
}

QV_API int32_t AddIntervalToInternalDate_L(QV_DATE_T *date, const QV_INTERVAL_DS_T *ds,
                                           const QV_INTERVAL_YM_T *ym, QV_DATE_T *out) {
    if (date == nullptr) return -1;
    QV_DATE_T &changed = qv::target(date, out);
    if (ym != nullptr) {
        const int64_t months = static_cast<int64_t>(ym->years) * 12 + ym->months;
        qv::add_months(changed, ym->negative ? -months : months);
    }
    if (ds != nullptr) {
        const int64_t seconds =
            ((static_cast<int64_t>(ds->days) * 24 + ds->hours) * 60 + ds->minutes) * 60 +
            ds->seconds;
        const int64_t sign = ds->negative ? -1 : 1;
        qv::add_to_date(changed, sign * seconds, sign * static_cast<int64_t>(ds->fraction));
    }
    return 0;
}

QV_API int32_t SecsBetweenInternalDate_L(const QV_DATE_T *a, const QV_DATE_T *b, int64_t *seconds,
                                         int32_t *nanoseconds) {
    if (a == nullptr || b == nullptr || seconds == nullptr) return -1;
    int64_t rest = 0;
    qv::elapsed(*a, *b, *seconds, rest);
    if (nanoseconds != nullptr) *nanoseconds = static_cast<int32_t>(rest);
    return 0;
}

QV_API int32_t DaysBetweenInternalDate_L(const QV_DATE_T *a, const QV_DATE_T *b, int64_t *days) {
    if (a == nullptr || b == nullptr || days == nullptr) return -1;
    if (a->zone != b->zone) {
        int64_t seconds = 0, rest = 0;
        qv::elapsed(*a, *b, seconds, rest);
        *days = seconds / qv::seconds_per_day;
        return 0;
    }
    // In one zone: the difference of the days, less one where the times of day, which
    // differ by less than a day, point the other way.
    int64_t whole = qv::day_number_of(*a) - qv::day_number_of(*b);
    const int32_t time =
        (a->hour - b->hour) * 3600 + (a->minute - b->minute) * 60 + (a->second - b->second);
    const int64_t order = time != 0 ? time : static_cast<int64_t>(a->fraction) - b->fraction;
    if (whole > 0 && order < 0) --whole;
    if (whole < 0 && order > 0) ++whole;
    *days = whole;
    return 0;
}

QV_API int32_t InternalToJulianDate_L(const QV_DATE_T *date, int32_t *julian) {
    if (date == nullptr || julian == nullptr) return -1;
    *julian = static_cast<int32_t>(qv::day_number_of(*date));
    return 0;
}

QV_API int32_t JulianToInternalDate_L(int32_t julian, QV_DATE_T *out) {
    if (out == nullptr) return -1;
    const qv::CivilDate civil = qv::civil_from_day_number(julian);
    if (civil.year < INT16_MIN || civil.year > INT16_MAX) return -1;
    *out = QV_DATE_T{};
    qv::set_civil(*out, civil);
    return 0;
}

QV_API uint8_t IsInternalDate_L(const char *text, QV_DATE_T *out, uint8_t *flag) {
    QV_DATE_T date{};
    uint8_t parts = 0;
    if (text == nullptr || !read_literal(text, date, parts)) return 0;
    if (out != nullptr) *out = date;
    if (flag != nullptr) *flag = parts;
    return 1;
}

} // extern "C"
