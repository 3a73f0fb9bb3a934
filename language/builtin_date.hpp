// builtin_date.hpp - what the date, time, zone and interval built-ins share (module
// "builtin"; builtin_date.cpp, builtin_date_zone.cpp and builtin_interval.cpp), and the
// date branch of ToChar.
//
// Date arguments are read from their payload when they hold a DATE, TIME or one of their
// zone forms, else through the value conversions; a result of a date type takes the type of
// its date argument (DATE WITH TIME ZONE stays zoned, anything else is DATE) and a DATE or
// TIME result never carries a zone. Moves of a date that would leave the years
// -32768..32767 give NULL instead of the wrapped year the record would hold. Patterns
// arrive as texts (read as UTF-8); an omitted or NULL pattern is the function's default,
// and a pattern that does not parse gives NULL.
#pragma once

#include <cstdint>

#include "language/builtin_shared.hpp"
#include "qv/date.h"
#include "qv/interval.h"

namespace qv::builtin {

constexpr bool is_date_type(uint32_t type) {
    return type == QV_TYPE_DATE || type == QV_TYPE_DATE_TZ;
}
constexpr bool is_time_type(uint32_t type) {
    return type == QV_TYPE_TIME || type == QV_TYPE_TIME_TZ;
}
constexpr bool is_zoned_type(uint32_t type) {
    return type == QV_TYPE_DATE_TZ || type == QV_TYPE_TIME_TZ;
}
inline uint32_t type_of(const QV_VALUE_T *value) {
    return value != nullptr ? value->descriptor.type : 0;
}
// The date type a result takes after its date argument.
inline uint32_t date_type_after(const QV_VALUE_T *value) {
    return type_of(value) == QV_TYPE_DATE_TZ ? QV_TYPE_DATE_TZ : QV_TYPE_DATE;
}

// A present argument as a date: the payload of the date and time types, else converted
// (ValueToDateTime_L). False when absent or unreadable.
bool read_date(const QV_VALUE_T *value, QV_DATE_T &out);
// The result (typed already) holds `date`; the zone is dropped unless the type is zoned.
void store_date(QV_VALUE_T *result, QV_DATE_T date);

// The text of an optional pattern argument as UTF-8: `fallback` when it is omitted or NULL.
class PatternArgument {
  public:
    // False when the argument is present but has no text form.
    bool read(const QV_VALUE_T *value, const char *fallback);
    const char *get() const { return text_; }
    bool given() const { return given_; }

  private:
    values::TextForm form_;
    const char *text_ = nullptr;
    bool given_ = false;
};

// The text of a present argument as UTF-8 (false when absent or without a text form).
bool read_utf8(const QV_VALUE_T *value, values::TextForm &form);

// True when a date pattern parses (patterns are parsed once and kept by the date module).
bool date_pattern_parses(const char *pattern);

// The result (typed CHAR) becomes the text `print(out, size)` writes, a printer that returns
// the whole length as snprintf does (-1 for a pattern that does not parse: NULL).
template <class Print>
void store_printed(QV_VALUE_T *result, Print print) {
    char local[256];
    const int32_t length = print(local, static_cast<int32_t>(sizeof local));
    if (length <= 0) return set_null(result);
    if (static_cast<std::size_t>(length) < sizeof local)
        return store_text_copy(result, {local, static_cast<std::size_t>(length)}, nullptr);
    HeapText text(static_cast<char *>(QV_MALLOC(static_cast<std::size_t>(length) + 1)));
    if (text == nullptr) return set_null(result);
    print(text.get(), length + 1);
    store_text(result, QV_STRING_T{text.release(), nullptr});
}

// The result (typed CHAR) becomes the date printed with the pattern (null: the default of
// the kind), as a time when `time`; NULL when the pattern does not parse.
void store_date_text(QV_VALUE_T *result, QV_DATE_T date, const char *pattern, bool time);

// Moves that keep the year within its range; false (the date unchanged) otherwise. A time
// of day (month 0) wraps at midnight.
bool add_seconds(QV_DATE_T &date, double seconds);
bool add_days(QV_DATE_T &date, double days);
bool add_months(QV_DATE_T &date, int64_t months);
bool add_years(QV_DATE_T &date, int64_t years);

// ToChar( value, format ) for a present format and a value of a date, time or interval
// type: stores the value printed with the format (NULL when it does not parse) and returns
// true. Returns false, touching nothing, for any other call, which ToChar answers itself.
bool to_char_with_format(QV_VALUE_T *result, const QV_VALUE_T *value, const QV_VALUE_T *format);

} // namespace qv::builtin
