// builtin_date_zone.cpp - the time-zone built-ins (module "builtin"): SetTimeZone, which
// gives a date or time a zone, and ToTimeZone, which moves it into one.
//
// The zone argument is a name that IsValidTimezone_L accepts (an abbreviation of the zone
// table, LOCAL, or a numeric text such as "+05:30"), or an INTEGER hours x 100 + minutes
// (530, -330) checked by the same rule. The value is a DATE, a TIME, one of their zone
// forms, or text: read with the format when one is given, else as a date literal, the
// zoned time pattern or the zoned datetime pattern. The result is DATE WITH TIME ZONE, or
// TIME WITH TIME ZONE for a time (text that gives only a time of day counts as a time).
// An unknown zone, or a value that does not read, gives NULL.
#define QV_MODULE "builtin"

#include <cstdio>
#include <cstdlib>

#include "dates/date.hpp"
#include "language/builtin_date.hpp"

namespace {

using namespace qv::builtin;

bool read_zone(const QV_VALUE_T *value, int16_t &zone) {
    if (!present(value)) return false;
    const uint32_t type = value->descriptor.type;
    if (type == QV_TYPE_INTEGER || type == QV_TYPE_FLOAT || type == QV_TYPE_NUMBER) {
        int64_t n = 0;
        if (!read_integer(value, n) || n < -2359 || n > 2359) return false;
        char text[16];
        std::snprintf(text, sizeof text, "%c%02d:%02d", n < 0 ? '-' : '+',
                      static_cast<int>(std::llabs(n) / 100), static_cast<int>(std::llabs(n) % 100));
        return IsValidTimezone_L(text, &zone) != 0;
    }
    qv::values::TextForm name;
    return read_utf8(value, name) && IsValidTimezone_L(name.data(), &zone) != 0;
}

// A date or time with what is known of its zone.
struct Moment {
    QV_DATE_T date{};
    bool time = false;  // a time of day
    bool zoned = false; // the zone in date.zone was given
};

bool read_text_moment(const char *text, const char *pattern, Moment &m) {
    uint8_t parts = 0;
    if (pattern != nullptr) {
        if (CharToInternalDate_L(text, pattern, nullptr, &m.date) != 0) return false;
    } else if (IsInternalDate_L(text, &m.date, &parts)) {
        m.zoned = (parts & QV_DATE_LITERAL_ZONE) != 0;
    } else if (CharToInternalTime_L(text, GetInternalTimeTZFormat_L(), nullptr, &m.date) != 0 &&
               CharToInternalDate_L(text, GetInternalDatetimeTZFormat_L(), nullptr, &m.date) != 0) {
        return false; // a time is tried first: "10:05:03" would read as the year 10
    }
    m.time = m.date.month == 0;
    m.zoned = m.zoned || m.date.zone != 0;
    return true;
}

bool read_moment(const QV_VALUE_T *value, const QV_VALUE_T *format, Moment &m) {
    if (!present(value)) return false;
    const uint32_t type = value->descriptor.type;
    if (is_date_type(type) || is_time_type(type)) {
        m.date = value->payload.date;
        m.time = is_time_type(type);
        m.zoned = is_zoned_type(type);
        return true;
    }
    qv::values::TextForm text;
    PatternArgument pattern;
    return (type == QV_TYPE_CHAR || type == QV_TYPE_CLOB) && read_utf8(value, text) &&
           pattern.read(format, nullptr) && read_text_moment(text.data(), pattern.get(), m);
}

// The result type: TIME WITH TIME ZONE for a time, else DATE WITH TIME ZONE (also when the
// value cannot be read).
uint32_t zoned_type(const QV_VALUE_T *value, bool readable, const Moment &m) {
    const bool time = readable ? m.time : is_time_type(type_of(value));
    return time ? QV_TYPE_TIME_TZ : QV_TYPE_DATE_TZ;
}

// SetTimeZone( zone, value [, format] ): the value's fields as they stand, with the zone.
// ToTimeZone( zone, value [, format] ): the same moment seen in the zone: the fields move
// by the difference between the zones (a value without a zone is taken in the default zone
// of qv/date.h; a time of day wraps at midnight).
template <bool move>
void with_zone(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *zone, QV_VALUE_T *value,
               QV_VALUE_T *format) {
    Moment m;
    const bool readable = read_moment(value, format, m);
    if (!begin(result, frame, zoned_type(value, readable, m))) return;
    int16_t target = 0;
    if (!readable || !read_zone(zone, target)) return set_null(result);
    if (move) {
        const int16_t source = m.zoned ? m.date.zone : GetDefaultTimeZone_L();
        const auto shift = qv::zone_seconds(target) - qv::zone_seconds(source);
        if (!add_seconds(m.date, static_cast<double>(shift))) return set_null(result);
    }
    m.date.zone = target;
    store_date(result, m.date);
}

} // namespace

extern "C" {

QV_API void BI_set_time_zone(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                             QV_VALUE_T *a2, QV_VALUE_T *a3) {
    run<with_zone<false>>(result, frame, a1, a2, a3);
}
QV_API void BI_to_time_zone(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                            QV_VALUE_T *a2, QV_VALUE_T *a3) {
    run<with_zone<true>>(result, frame, a1, a2, a3);
}

} // extern "C"
