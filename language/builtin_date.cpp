// builtin_date.cpp - the date and time built-ins (module "builtin"): AddToDate,
// AddMonthsToDate, AddYearsToDate, FirstOfMonth, LastOfMonth, DatetimeNow and SysDate,
// DaysBetween, SecondsBetween, MonthsBetween, IsLeapYear, IsLeapYearDay, IsValidDate,
// IsValidTime, ToDate and ToTime, over the internal date operations of qv/date.h; and the
// helpers the zone and interval built-ins share with them (builtin_date.hpp).
//
// Differences count a minus b, positive when a is later, as whole units cut toward zero;
// they take two values of one kind (dates, times or intervals) and give NULL for a mixed
// pair. Dates with zones are compared as moments.
#define QV_MODULE "builtin"

#include "language/builtin_date.hpp"

#include <cmath>

#include "dates/date.hpp"

namespace qv::builtin {

namespace {

// Seconds from day 0 to the first moment the record can hold and past the last one.
const double first_second = static_cast<double>(day_number(-32768, 1, 1)) * seconds_per_day;
const double end_second = static_cast<double>(day_number(32767, 12, 31) + 1) * seconds_per_day;

bool year_in_range(int64_t year) {
    return year >= INT16_MIN && year <= INT16_MAX;
}

} // namespace

bool read_date(const QV_VALUE_T *value, QV_DATE_T &out) {
    if (!present(value)) return false;
    const uint32_t type = value->descriptor.type;
    if (is_date_type(type) || is_time_type(type)) {
        out = value->payload.date;
        return true;
    }
    return ValueToDateTime_L(value, &out) == QV_VALUE_OK;
}

void store_date(QV_VALUE_T *result, QV_DATE_T date) {
    if (!is_zoned_type(result->descriptor.type)) date.zone = 0;
    result->payload.date = date;
    result->is_null = 0;
}

bool read_utf8(const QV_VALUE_T *value, qv::values::TextForm &form) {
    return present(value) && form.make_utf8(*value);
}

bool PatternArgument::read(const QV_VALUE_T *value, const char *fallback) {
    given_ = present(value);
    if (!given_) {
        text_ = fallback;
        return true;
    }
    if (!form_.make_utf8(*value)) return false;
    text_ = form_.data();
    return true;
}

bool date_pattern_parses(const char *pattern) {
    QV_DATE_T date{2000, 1, 1, 0, 0, 0, 0, 0};
    return InternalDateToChar_L(&date, pattern, nullptr, nullptr, 0) >= 0;
}

void store_date_text(QV_VALUE_T *result, QV_DATE_T date, const char *pattern, bool time) {
    auto print = time ? InternalTimeToChar_L : InternalDateToChar_L;
    store_printed(result, [&](char *out, int32_t size) {
        QV_DATE_T copy = date; // printing a zone may write the default zone into the date
        return print(&copy, pattern, nullptr, out, size);
    });
}

namespace {

bool lands_in_range(const QV_DATE_T &date, double seconds) {
    if (date.month == 0) return std::isfinite(seconds);
    const double moved = static_cast<double>(local_seconds(date)) + seconds;
    return moved >= first_second && moved < end_second;
}

} // namespace

bool add_seconds(QV_DATE_T &date, double seconds) {
    return lands_in_range(date, seconds) && AddSecsToInternalDate_L(&date, seconds, nullptr) == 0;
}

bool add_days(QV_DATE_T &date, double days) {
    if (days != std::trunc(days)) return add_seconds(date, days * seconds_per_day);
    return lands_in_range(date, days * seconds_per_day) &&
           AddDaysToInternalDate_L(&date, static_cast<int64_t>(days), nullptr) == 0;
}

bool add_months(QV_DATE_T &date, int64_t months) {
    if (months > 12 * 65536 || months < -12 * 65536) return false;
    const int64_t zero_based = int64_t{date.month} - 1 + months;
    const int64_t carry = zero_based >= 0 ? zero_based / 12 : -((11 - zero_based) / 12);
    if (!year_in_range(date.year + carry)) return false;
    return AddMonthsToInternalDate_L(&date, months, nullptr) == 0;
}

bool add_years(QV_DATE_T &date, int64_t years) {
    if (years > 65536 || years < -65536 || !year_in_range(date.year + years)) return false;
    return AddYearsToInternalDate_L(&date, years, nullptr) == 0;
}

namespace {

// The day-second interval as signed seconds (for the range check only).
double interval_seconds(const QV_INTERVAL_DS_T &iv) {
    const double seconds = ((static_cast<double>(iv.days) * 24 + iv.hours) * 60 + iv.minutes) * 60 +
                           iv.seconds + iv.fraction / 1e9;
    return iv.negative ? -seconds : seconds;
}

bool add_interval(QV_DATE_T &date, const QV_VALUE_T &interval) {
    if (interval.descriptor.type == QV_TYPE_INTERVAL_YM) {
        const QV_INTERVAL_YM_T &ym = interval.payload.interval_ym;
        const int64_t months = int64_t{ym.years} * 12 + ym.months;
        return add_months(date, ym.negative ? -months : months);
    }
    const QV_INTERVAL_DS_T &ds = interval.payload.interval_ds;
    return lands_in_range(date, interval_seconds(ds)) &&
           AddIntervalToInternalDate_L(&date, &ds, nullptr, nullptr) == 0;
}

// ---- Moving a date ----------------------------------------------------------------------

// AddToDate( date, number | interval ): a number counts days (a fraction of a day moves the
// time), an interval of either kind is added as it is.
void add_to_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *date, QV_VALUE_T *by) {
    if (!begin(result, frame, date_type_after(date))) return;
    QV_DATE_T moved{};
    double days = 0;
    if (!read_date(date, moved) || !present(by)) return set_null(result);
    const uint32_t type = by->descriptor.type;
    const bool done = type == QV_TYPE_INTERVAL_DS || type == QV_TYPE_INTERVAL_YM
                          ? add_interval(moved, *by)
                          : read_double(by, days) && add_days(moved, days);
    if (!done) return set_null(result);
    store_date(result, moved);
}

using Mover = bool (*)(QV_DATE_T &date, int64_t count);

// AddMonthsToDate and AddYearsToDate: the count cut to an integer; a day past the end of
// the new month becomes its last day.
template <Mover move>
void add_count(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *date, QV_VALUE_T *count) {
    if (!begin(result, frame, date_type_after(date))) return;
    QV_DATE_T moved{};
    int64_t n = 0;
    if (!read_date(date, moved) || !read_integer(count, n) || !move(moved, n))
        return set_null(result);
    store_date(result, moved);
}

// FirstOfMonth and LastOfMonth (MonthEnds_L on the result).
template <uint8_t first>
void month_end(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *date) {
    if (!begin(result, frame, date_type_after(date))) return;
    QV_DATE_T day{};
    if (!read_date(date, day) || day.month < 1 || day.month > 12) return set_null(result);
    store_date(result, day);
    MonthEnds_L(result, first);
}

// ---- The current time ---------------------------------------------------------------------

// SysDate( [format] ): the current local timestamp as a DATE; with a format argument, its
// text (a NULL format: "syyyy-mm-dd").
void sys_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *format) {
    if (!begin(result, frame, format != nullptr ? QV_TYPE_CHAR : QV_TYPE_DATE)) return;
    QV_DATE_T now{};
    CurrentTimestamp_L(&now);
    if (format == nullptr) return store_date(result, now);
    PatternArgument pattern;
    if (!pattern.read(format, GetInternalDateFormat_L())) return set_null(result);
    store_date_text(result, now, pattern.get(), false);
}

// ---- Differences ----------------------------------------------------------------------------

enum class Kind { none, date, time, interval_ds, interval_ym };

Kind kind_of(const QV_VALUE_T *value) {
    if (!present(value)) return Kind::none;
    const uint32_t type = value->descriptor.type;
    if (is_date_type(type)) return Kind::date;
    if (is_time_type(type)) return Kind::time;
    if (type == QV_TYPE_INTERVAL_DS) return Kind::interval_ds;
    if (type == QV_TYPE_INTERVAL_YM) return Kind::interval_ym;
    return Kind::none;
}

// The kind both arguments share, none when they differ.
Kind common_kind(const QV_VALUE_T *a, const QV_VALUE_T *b) {
    const Kind kind = kind_of(a);
    return kind == kind_of(b) ? kind : Kind::none;
}

// Seconds between two day-second intervals, cut toward zero; false beyond 64 bits.
bool interval_difference(const QV_VALUE_T *a, const QV_VALUE_T *b, double unit, int64_t &out) {
    double seconds = 0;
    SecsBetweenInternalInterval_L(&a->payload.interval_ds, &b->payload.interval_ds, &seconds);
    return whole_to_integer(std::trunc(seconds / unit), out);
}

// DaysBetween( a, b ): whole days from b to a, of two dates or two day-second intervals.
void days_between(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a, QV_VALUE_T *b) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    int64_t days = 0;
    switch (common_kind(a, b)) {
        case Kind::date:
            DaysBetweenInternalDate_L(&a->payload.date, &b->payload.date, &days);
            return store_integer(result, days);
        case Kind::interval_ds:
            if (!interval_difference(a, b, seconds_per_day, days)) break;
            return store_integer(result, days);
        default: break;
    }
    set_null(result);
}

// SecondsBetween( a, b ): whole seconds from b to a, of two dates, two times or two
// day-second intervals.
void seconds_between(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a, QV_VALUE_T *b) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    int64_t seconds = 0;
    switch (common_kind(a, b)) {
        case Kind::date:
        case Kind::time:
            SecsBetweenInternalDate_L(&a->payload.date, &b->payload.date, &seconds, nullptr);
            return store_integer(result, seconds);
        case Kind::interval_ds:
            if (!interval_difference(a, b, 1, seconds)) break;
            return store_integer(result, seconds);
        default: break;
    }
    set_null(result);
}

// The date at UTC when it is zoned, else as it stands.
QV_DATE_T as_utc(const QV_VALUE_T &value) {
    QV_DATE_T date = value.payload.date;
    if (value.descriptor.type == QV_TYPE_DATE_TZ)
        add_seconds(date, -static_cast<double>(zone_seconds(date.zone)));
    date.zone = 0;
    return date;
}

// Whole months from an earlier date `from` to `to`: the most months that, added to `from`
// with the month-end rule, do not pass `to`.
int64_t months_forward(const QV_DATE_T &to, const QV_DATE_T &from) {
    int64_t months = (int64_t{to.year} * 12 + to.month) - (int64_t{from.year} * 12 + from.month);
    QV_DATE_T reached = from;
    AddMonthsToInternalDate_L(&reached, months, nullptr);
    if (CompareInternalDate_L(&reached, &to) > 0) --months;
    return months;
}

// MonthsBetween( a, b ): whole months from b to a, of two dates (negative when a is
// earlier: the months from a to b, negated) or two year-month intervals.
void months_between(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a, QV_VALUE_T *b) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    switch (common_kind(a, b)) {
        case Kind::date: {
            const QV_DATE_T x = as_utc(*a), y = as_utc(*b);
            if (CompareInternalDate_L(&x, &y) >= 0)
                return store_integer(result, months_forward(x, y));
            return store_integer(result, -months_forward(y, x));
        }
        case Kind::interval_ym: {
            int64_t months = 0;
            MonthsBetweenInternalInterval_L(&a->payload.interval_ym, &b->payload.interval_ym,
                                            &months);
            return store_integer(result, months);
        }
        default: return set_null(result);
    }
}

// ---- Tests --------------------------------------------------------------------------------

void is_leap_year(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *date) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    QV_DATE_T day{};
    if (!read_date(date, day) || day.month == 0) return set_null(result);
    store_boolean(result, IsLeapYear_L(day.year) != 0);
}

void is_leap_year_day(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *date) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    QV_DATE_T day{};
    if (!read_date(date, day) || day.month == 0) return set_null(result);
    store_boolean(result, day.month == 2 && day.day == 29);
}

// IsValidDate / IsValidTime( value [, format] ): TRUE for a value of the kind; text is read
// with the format (by default the zoned datetime / time pattern); numbers (IsValidTime)
// must convert. NULL for a format that does not parse.
template <bool time>
void is_valid_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value,
                   QV_VALUE_T *format) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    if (!present(value)) return set_null(result);
    const uint32_t type = value->descriptor.type;
    if (time ? is_time_type(type) : is_date_type(type)) return store_boolean(result, true);
    if (type != QV_TYPE_CHAR && type != QV_TYPE_CLOB) {
        QV_DATE_T unused{};
        const bool reads = time && ValueToTime_L(value, &unused) == QV_VALUE_OK;
        return store_boolean(result, reads);
    }
    qv::values::TextForm text;
    PatternArgument pattern;
    if (!read_utf8(value, text) ||
        !pattern.read(format,
                      time ? GetInternalTimeTZFormat_L() : GetInternalDatetimeTZFormat_L()) ||
        !date_pattern_parses(pattern.get()))
        return set_null(result);
    store_boolean(result, IsValidDate_L(text.data(), pattern.get()) != 0);
}

// ---- Conversions ----------------------------------------------------------------------------

// ToDate( text | integer [, format] ): text read with the format (without one, a date
// literal or the default zoned pattern); an INTEGER is a Julian day number; a date stays
// itself. Text that gives only a time of day is not a date: NULL.
void to_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value, QV_VALUE_T *format) {
    if (!begin(result, frame, date_type_after(value))) return;
    if (!present(value)) return set_null(result);
    QV_DATE_T date{};
    const uint32_t type = value->descriptor.type;
    bool done = false;
    if (type == QV_TYPE_INTEGER) {
        const int64_t day = value->payload.integer;
        done = day >= INT32_MIN && day <= INT32_MAX &&
               JulianToInternalDate_L(static_cast<int32_t>(day), &date) == 0;
    } else if ((type == QV_TYPE_CHAR || type == QV_TYPE_CLOB) && present(format)) {
        qv::values::TextForm text;
        PatternArgument pattern;
        done = read_utf8(value, text) && pattern.read(format, nullptr) &&
               CharToInternalDate_L(text.data(), pattern.get(), nullptr, &date) == 0;
    } else {
        done = read_date(value, date);
    }
    if (!done || date.month == 0) return set_null(result);
    store_date(result, date);
}

// ToTime( value [, format] ): text read with the format (default "hh:mi:ss.fffffffff",
// or a date literal's time); numbers are seconds since midnight; a date gives its time.
void to_time(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value, QV_VALUE_T *format) {
    if (!begin(result, frame, QV_TYPE_TIME)) return;
    if (!present(value)) return set_null(result);
    QV_DATE_T time{};
    const uint32_t type = value->descriptor.type;
    bool done = false;
    if ((type == QV_TYPE_CHAR || type == QV_TYPE_CLOB) && present(format)) {
        qv::values::TextForm text;
        PatternArgument pattern;
        done = read_utf8(value, text) && pattern.read(format, nullptr) &&
               CharToInternalTime_L(text.data(), pattern.get(), nullptr, &time) == 0;
    } else {
        done = ValueToTime_L(value, &time) == QV_VALUE_OK;
    }
    if (!done) return set_null(result);
    time.year = 0;
    time.month = 0;
    time.day = 0;
    store_date(result, time);
}

} // namespace

bool to_char_with_format(QV_VALUE_T *result, const QV_VALUE_T *value, const QV_VALUE_T *format) {
    if (!present(value) || !present(format)) return false;
    const uint32_t type = value->descriptor.type;
    const bool date = is_date_type(type), time = is_time_type(type);
    const bool interval = type == QV_TYPE_INTERVAL_DS || type == QV_TYPE_INTERVAL_YM;
    if (!date && !time && !interval) return false;
    PatternArgument pattern;
    if (!pattern.read(format, nullptr)) {
        set_null(result);
        return true;
    }
    if (!interval) {
        store_date_text(result, value->payload.date, pattern.get(), time);
        return true;
    }
    store_printed(result, [&](char *out, int32_t size) {
        return type == QV_TYPE_INTERVAL_DS
                   ? InternalIntervalToChar_L(&value->payload.interval_ds, pattern.get(), nullptr,
                                              out, size)
                   : InternalIntervalYMToChar_L(&value->payload.interval_ym, pattern.get(), nullptr,
                                                out, size);
    });
    return true;
}

} // namespace qv::builtin

using namespace qv::builtin;

extern "C" {

QV_API void BI_add_to_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                           QV_VALUE_T *a2) {
    run<add_to_date>(result, frame, a1, a2);
}
QV_API void BI_add_months_to_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                  QV_VALUE_T *a2) {
    run<add_count<add_months>>(result, frame, a1, a2);
}
QV_API void BI_add_years_to_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                 QV_VALUE_T *a2) {
    run<add_count<add_years>>(result, frame, a1, a2);
}
QV_API void BI_first_of_month(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<month_end<1>>(result, frame, a1);
}
QV_API void BI_last_of_month(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<month_end<0>>(result, frame, a1);
}
QV_API void BI_sys_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<sys_date>(result, frame, a1);
}
// DatetimeNow is SysDate without a format; its row has no argument positions, so it is
// called with none.
QV_API void BI_datetime_now(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run<sys_date>(result, frame, static_cast<QV_VALUE_T *>(nullptr));
}
QV_API void BI_days_between(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                            QV_VALUE_T *a2) {
    run<days_between>(result, frame, a1, a2);
}
QV_API void BI_seconds_between(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                               QV_VALUE_T *a2) {
    run<seconds_between>(result, frame, a1, a2);
}
QV_API void BI_months_between(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                              QV_VALUE_T *a2) {
    run<months_between>(result, frame, a1, a2);
}
QV_API void BI_is_leap_year(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<is_leap_year>(result, frame, a1);
}
QV_API void BI_is_leap_year_day(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<is_leap_year_day>(result, frame, a1);
}
QV_API void BI_is_valid_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                             QV_VALUE_T *a2) {
    run<is_valid_date<false>>(result, frame, a1, a2);
}
QV_API void BI_is_valid_time(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                             QV_VALUE_T *a2) {
    run<is_valid_date<true>>(result, frame, a1, a2);
}
QV_API void BI_to_date(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                       QV_VALUE_T *a2) {
    run<to_date>(result, frame, a1, a2);
}
QV_API void BI_to_time(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                       QV_VALUE_T *a2) {
    run<to_time>(result, frame, a1, a2);
}

} // extern "C"
