// builtin_interval.cpp - the interval built-ins (module "builtin"): AddDaysToInterval,
// AddSecondsToInterval, AddMonthsToInterval, AddYearsToInterval, IsValidIntervalDS,
// IsValidIntervalYM, ToIntervalDS and ToIntervalYM, over qv/interval.h.
//
// The Add functions follow the interval operations' sign rules: days and years move one
// field, the others keep their magnitudes and take the new sign; months and seconds
// re-normalise the whole interval. A result whose days or years would pass 32 bits is NULL
// rather than the wrapped field (AddSecondsToInterval keeps its operation's own 32-bit
// limit on the seconds it starts from). Texts are read with a pattern when one is given,
// else in the plain or default forms; numbers count seconds (day-second) or months
// (year-month).
#define QV_MODULE "builtin"

#include <cmath>

#include "language/builtin_date.hpp"

namespace {

using namespace qv::builtin;

constexpr int64_t kMaxField = UINT32_MAX;

bool read_interval(const QV_VALUE_T *value, QV_INTERVAL_DS_T &out) {
    if (!present(value)) return false;
    if (value->descriptor.type == QV_TYPE_INTERVAL_DS) {
        out = value->payload.interval_ds;
        return true;
    }
    return ValueToInterval_L(value, &out) == QV_VALUE_OK;
}

bool read_interval(const QV_VALUE_T *value, QV_INTERVAL_YM_T &out) {
    if (!present(value)) return false;
    if (value->descriptor.type == QV_TYPE_INTERVAL_YM) {
        out = value->payload.interval_ym;
        return true;
    }
    return ValueToIntervalYM_L(value, &out) == QV_VALUE_OK;
}

void store(QV_VALUE_T *result, const QV_INTERVAL_DS_T &interval) {
    result->payload.interval_ds = interval;
    result->is_null = 0;
}
void store(QV_VALUE_T *result, const QV_INTERVAL_YM_T &interval) {
    result->payload.interval_ym = interval;
    result->is_null = 0;
}

// The signed field plus the count stays within 32 bits of magnitude.
bool field_fits(uint32_t field, uint8_t negative, int64_t count) {
    if (count > 2 * kMaxField || count < -2 * kMaxField) return false;
    const int64_t moved = (negative ? -int64_t{field} : int64_t{field}) + count;
    return moved >= -kMaxField && moved <= kMaxField;
}

bool move_days(QV_INTERVAL_DS_T &interval, int64_t days) {
    return field_fits(interval.days, interval.negative, days) &&
           AddDaysToInternalInterval_L(&interval, days, nullptr) == 0;
}

bool move_years(QV_INTERVAL_YM_T &interval, int64_t years) {
    return field_fits(interval.years, interval.negative, years) &&
           AddYearsToInternalInterval_L(&interval, years, nullptr) == 0;
}

bool move_months(QV_INTERVAL_YM_T &interval, int64_t months) {
    const int64_t total = int64_t{interval.years} * 12 + interval.months;
    if (months > 24 * kMaxField || months < -24 * kMaxField) return false;
    const int64_t moved = (interval.negative ? -total : total) + months;
    return moved / 12 >= -kMaxField && moved / 12 <= kMaxField &&
           AddMonthsToInternalInterval_L(&interval, months, nullptr) == 0;
}

// The seconds an interval of 2^32 days holds: a sum beyond it would wrap the days.
constexpr double kMaxSeconds = 4294967296.0 * 86400.0;

bool move_seconds(QV_INTERVAL_DS_T &interval, double seconds) {
    return std::fabs(seconds) < kMaxSeconds - 4294967296.0 &&
           AddSecsToInternalInterval_L(&interval, seconds, nullptr) == 0;
}

template <class Interval, class Count>
using Adder = bool (*)(Interval &interval, Count count);

inline bool read_count(const QV_VALUE_T *value, int64_t &out) {
    return read_integer(value, out);
}
inline bool read_count(const QV_VALUE_T *value, double &out) {
    return read_double(value, out);
}

// The Add functions: the interval (of the result's kind) moved by the count.
template <class Interval, class Count, uint32_t type, Adder<Interval, Count> add>
void add_to_interval(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *interval,
                     QV_VALUE_T *count) {
    if (!begin(result, frame, type)) return;
    Interval moved{};
    Count n{};
    if (!read_interval(interval, moved) || !read_count(count, n) || !add(moved, n))
        return set_null(result);
    store(result, moved);
}

// IsValidIntervalDS / YM( value [, format] ): TRUE for an interval of the kind and for a
// number that converts to one; text is read with the format (by default "sddd hh:mi:ss" /
// "syyyyyyyyy-mm"). NULL for a format that is not a pattern of the kind.
template <class Interval, uint32_t type>
void is_valid_interval(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value,
                       QV_VALUE_T *format) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    if (!present(value)) return set_null(result);
    const uint32_t value_type = value->descriptor.type;
    if (value_type != QV_TYPE_CHAR && value_type != QV_TYPE_CLOB) {
        Interval unused{};
        return store_boolean(result, read_interval(value, unused));
    }
    qv::values::TextForm text;
    PatternArgument pattern;
    if (!read_utf8(value, text) || !pattern.read(format, nullptr) ||
        (pattern.given() && (ValidIntervalFormat_L(pattern.get()) & type) == 0))
        return set_null(result);
    store_boolean(result, IsValidInterval_L(text.data(), pattern.get(), type) != 0);
}

int32_t read_text(const char *text, const char *pattern, QV_INTERVAL_DS_T &out) {
    return CharToInternalInterval_L(text, pattern, nullptr, &out);
}
int32_t read_text(const char *text, const char *pattern, QV_INTERVAL_YM_T &out) {
    return CharToInternalIntervalYM_L(text, pattern, nullptr, &out);
}

// ToIntervalDS / YM( value [, format] ): text read with the format, else the value
// converted (texts in the plain or default forms, numbers as counts, intervals as they are).
template <class Interval, uint32_t type>
void to_interval(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value,
                 QV_VALUE_T *format) {
    if (!begin(result, frame, type)) return;
    Interval interval{};
    bool done = false;
    const uint32_t value_type = type_of(value);
    if ((value_type == QV_TYPE_CHAR || value_type == QV_TYPE_CLOB) && present(format)) {
        qv::values::TextForm text;
        PatternArgument pattern;
        done = read_utf8(value, text) && pattern.read(format, nullptr) &&
               read_text(text.data(), pattern.get(), interval) == 0;
    } else {
        done = read_interval(value, interval);
    }
    if (!done) return set_null(result);
    store(result, interval);
}

} // namespace

extern "C" {

QV_API void BI_add_days_to_interval(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                    QV_VALUE_T *a2) {
    run<add_to_interval<QV_INTERVAL_DS_T, int64_t, QV_TYPE_INTERVAL_DS, move_days>>(result, frame,
                                                                                    a1, a2);
}
QV_API void BI_add_seconds_to_interval(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                       QV_VALUE_T *a2) {
    run<add_to_interval<QV_INTERVAL_DS_T, double, QV_TYPE_INTERVAL_DS, move_seconds>>(result, frame,
                                                                                      a1, a2);
}
QV_API void BI_add_months_to_interval(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                      QV_VALUE_T *a2) {
    run<add_to_interval<QV_INTERVAL_YM_T, int64_t, QV_TYPE_INTERVAL_YM, move_months>>(result, frame,
                                                                                      a1, a2);
}
QV_API void BI_add_years_to_interval(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                     QV_VALUE_T *a2) {
    run<add_to_interval<QV_INTERVAL_YM_T, int64_t, QV_TYPE_INTERVAL_YM, move_years>>(result, frame,
                                                                                     a1, a2);
}
QV_API void BI_is_valid_interval_ds(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                    QV_VALUE_T *a2) {
    run<is_valid_interval<QV_INTERVAL_DS_T, QV_TYPE_INTERVAL_DS>>(result, frame, a1, a2);
}
QV_API void BI_is_valid_interval_ym(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                    QV_VALUE_T *a2) {
    run<is_valid_interval<QV_INTERVAL_YM_T, QV_TYPE_INTERVAL_YM>>(result, frame, a1, a2);
}
QV_API void BI_to_interval_ds(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                              QV_VALUE_T *a2) {
    run<to_interval<QV_INTERVAL_DS_T, QV_TYPE_INTERVAL_DS>>(result, frame, a1, a2);
}
QV_API void BI_to_interval_ym(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                              QV_VALUE_T *a2) {
    run<to_interval<QV_INTERVAL_YM_T, QV_TYPE_INTERVAL_YM>>(result, frame, a1, a2);
}

} // extern "C"
