// interval.cpp - the arithmetic of day-second and year-month intervals: ordering, months
// and seconds between, the four Add operations with their sign rules, and the conversions
// from counts of seconds and months.
//
// An interval is a sign and magnitudes. Differences and month sums are worked out on the
// signed totals in 64 bits; the Add of years or days combines one field only and lets the
// other fields take the new sign; the Add of seconds keeps its 32-bit total, which wraps
// above about 49710 days, as the operation has always done.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "dates/date.hpp"
#include "qv/interval.h"

static_assert(std::is_standard_layout_v<QV_INTERVAL_DS_T> &&
              std::is_trivially_copyable_v<QV_INTERVAL_DS_T> && sizeof(QV_INTERVAL_DS_T) == 24);
static_assert(std::is_standard_layout_v<QV_INTERVAL_YM_T> &&
              std::is_trivially_copyable_v<QV_INTERVAL_YM_T> && sizeof(QV_INTERVAL_YM_T) == 12);

namespace {

template <class Interval>
Interval &target(Interval *interval, Interval *out) {
    if (out == nullptr) return *interval;
    *out = *interval;
    return *out;
}

int64_t signed_value(uint8_t negative, uint64_t magnitude) {
    return negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
}

int64_t total_months(const QV_INTERVAL_YM_T &interval) {
    return signed_value(interval.negative,
                        static_cast<uint64_t>(interval.years) * 12 + interval.months);
}

// The first unequal pair of signed fields, its difference limited to int32_t.
template <std::size_t N>
int32_t compare_fields(const int64_t (&a)[N], const int64_t (&b)[N]) {
    for (std::size_t i = 0; i < N; ++i) {
        if (a[i] == b[i]) continue;
        const int64_t difference = a[i] - b[i];
        return static_cast<int32_t>(std::clamp<int64_t>(difference, INT32_MIN, INT32_MAX));
    }
    return 0;
}

// The interval's signed seconds and nanoseconds, exact.
void signed_total(const QV_INTERVAL_DS_T &interval, int64_t &seconds, int64_t &nanoseconds) {
    const uint64_t magnitude =
        ((static_cast<uint64_t>(interval.days) * 24 + interval.hours) * 60 + interval.minutes) *
            60 +
        interval.seconds;
    seconds = signed_value(interval.negative, magnitude);
    nanoseconds = signed_value(interval.negative, interval.fraction);
}

// Adds `count` to one field of magnitude `field`; the interval takes the sign of the
// result.
// Signed sums wrap instead of overflowing (the fields are not checked).
int64_t wrapping_sum(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

uint32_t add_to_field(uint8_t &negative, uint32_t field, int64_t count) {
    const int64_t value = wrapping_sum(signed_value(negative, field), count);
    negative = value < 0 ? 1 : 0;
    return static_cast<uint32_t>(value < 0 ? 0 - static_cast<uint64_t>(value) : value);
}

} // namespace

extern "C" {

QV_API int32_t CompareInternalInterval_L(const QV_INTERVAL_DS_T *a, const QV_INTERVAL_DS_T *b) {
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    const int64_t left[] = {signed_value(a->negative, a->days), signed_value(a->negative, a->hours),
                            signed_value(a->negative, a->minutes),
                            signed_value(a->negative, a->seconds),
                            signed_value(a->negative, a->fraction)};
    const int64_t right[] = {
        signed_value(b->negative, b->days), signed_value(b->negative, b->hours),
        signed_value(b->negative, b->minutes), signed_value(b->negative, b->seconds),
        signed_value(b->negative, b->fraction)};
    return compare_fields(left, right);
}

QV_API int32_t CompareInternalIntervalYM_L(const QV_INTERVAL_YM_T *a, const QV_INTERVAL_YM_T *b) {
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    const int64_t left[] = {signed_value(a->negative, a->years),
                            signed_value(a->negative, a->months)};
    const int64_t right[] = {signed_value(b->negative, b->years),
                             signed_value(b->negative, b->months)};
    return compare_fields(left, right);
}

QV_API int32_t MonthsBetweenInternalInterval_L(const QV_INTERVAL_YM_T *a, const QV_INTERVAL_YM_T *b,
                                               int64_t *out) {
    if (a == nullptr || b == nullptr || out == nullptr) return -1;
    *out = total_months(*a) - total_months(*b);
    return 0;
}

QV_API int32_t SecsBetweenInternalInterval_L(const QV_INTERVAL_DS_T *a, const QV_INTERVAL_DS_T *b,
                                             double *out) {
    if (a == nullptr || b == nullptr || out == nullptr) return -1;
    int64_t seconds_a, nanoseconds_a, seconds_b, nanoseconds_b;
    signed_total(*a, seconds_a, nanoseconds_a);
    signed_total(*b, seconds_b, nanoseconds_b);
    *out = static_cast<double>(seconds_a - seconds_b) +
           static_cast<double>(nanoseconds_a - nanoseconds_b) / qv::nanoseconds_per_second;
    return 0;
}

QV_API int32_t AddMonthsToInternalInterval_L(QV_INTERVAL_YM_T *interval, int64_t months,
                                             QV_INTERVAL_YM_T *out) {
    if (interval == nullptr) return -1;
    QV_INTERVAL_YM_T &changed = target(interval, out);
    return MonthsToInternalInterval_L(wrapping_sum(total_months(changed), months), &changed);
}

QV_API int32_t AddYearsToInternalInterval_L(QV_INTERVAL_YM_T *interval, int64_t years,
                                            QV_INTERVAL_YM_T *out) {
    if (interval == nullptr) return -1;
    QV_INTERVAL_YM_T &changed = target(interval, out);
    changed.years = add_to_field(changed.negative, changed.years, years);
    return 0;
}

QV_API int32_t AddDaysToInternalInterval_L(QV_INTERVAL_DS_T *interval, int64_t days,
                                           QV_INTERVAL_DS_T *out) {
    if (interval == nullptr) return -1;
    QV_INTERVAL_DS_T &changed = target(interval, out);
    changed.days = add_to_field(changed.negative, changed.days, days);
    return 0;
}

QV_API int32_t AddSecsToInternalInterval_L(QV_INTERVAL_DS_T *interval, double seconds,
                                           QV_INTERVAL_DS_T *out) {
    if (interval == nullptr || !std::isfinite(seconds)) return -1;
    QV_INTERVAL_DS_T &changed = target(interval, out);
    const uint32_t whole =
        ((changed.days * 24u + changed.hours) * 60u + changed.minutes) * 60u + changed.seconds;
    double total = static_cast<double>(whole) +
                   static_cast<double>(changed.fraction) / qv::nanoseconds_per_second;
    if (changed.negative) total = -total;
    return SecsToInternalInterval_L(total + seconds, &changed);
}

QV_API int32_t SecsToInternalInterval_L(double seconds, QV_INTERVAL_DS_T *out) {
    if (out == nullptr || !std::isfinite(seconds)) return -1;
    const double magnitude = std::fabs(seconds);
    double whole = std::floor(magnitude);
    double nanoseconds = std::round((magnitude - whole) * qv::nanoseconds_per_second);
    if (nanoseconds >= qv::nanoseconds_per_second) whole += 1, nanoseconds = 0;
    const double days = std::floor(whole / qv::seconds_per_day);
    const auto rest = static_cast<uint32_t>(std::fmod(whole, qv::seconds_per_day));
    out->negative = seconds < 0 && (whole > 0 || nanoseconds > 0) ? 1 : 0;
    out->days = static_cast<uint32_t>(std::fmod(days, 4294967296.0));
    out->hours = rest / 3600;
    out->minutes = rest / 60 % 60;
    out->seconds = rest % 60;
    out->fraction = static_cast<uint32_t>(nanoseconds);
    return 0;
}

QV_API int32_t MonthsToInternalInterval_L(int64_t months, QV_INTERVAL_YM_T *out) {
    if (out == nullptr) return -1;
    const uint64_t magnitude = months < 0 ? 0 - static_cast<uint64_t>(months) : months;
    out->negative = months < 0 ? 1 : 0;
    out->years = static_cast<uint32_t>(magnitude / 12);
    out->months = static_cast<uint32_t>(magnitude % 12);
    return 0;
}

} // extern "C"
