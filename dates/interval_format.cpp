// interval_format.cpp - interval texts: the pattern tokens of intervals, parsing a pattern,
// printing and reading both kinds, the plain text forms and their recognisers.
//
// A parsed interval pattern is a date-module pattern block (dates/pattern.hpp) over the
// interval token table; its marks hold the interval types it serves and whether a token
// carries the sign. Both kinds print from one array of field values indexed by part, so
// the plain forms are patterns too: "d hh:mi:ss.fffffffff" and "y-mm", whose first number
// takes a "-" when the interval is negative.
//
// Part of the interval module.
#define QV_MODULE "interval"
#include <cstdlib>
#include <span>

#include "dates/date.hpp"
#include "dates/pattern.hpp"
#include "qv/interval.h"

namespace pattern = qv::pattern;

struct QV_INTERVAL_FORMAT_T {
    pattern::Parsed parsed;
};

namespace {

enum IntervalPart : uint8_t {
    days_part,
    hours_part,
    minutes_part,
    seconds_part,
    fraction_part,
    years_part,
    months_part,
    part_count
};
constexpr uint32_t day_second_parts = 0x1F;
constexpr uint32_t year_month_parts = 0x60;

struct IntervalToken {
    const char *text;
    uint8_t min, max;
    uint8_t component;
    bool number;    // every interval token reads digits
    bool signed_;   // carries the sign
    uint64_t limit; // largest value read
};

constexpr IntervalToken interval_tokens[] = {
    {"sdddddddddd", 2, 11, days_part, true, true, UINT32_MAX},
    {"syyyyyyyyyy", 2, 11, years_part, true, true, UINT32_MAX},
    {"dddddddddd", 1, 10, days_part, true, false, UINT32_MAX},
    {"yyyyyyyyyy", 1, 10, years_part, true, false, UINT32_MAX},
    {"hh24", 4, 4, hours_part, true, false, 23},
    {"hh", 1, 2, hours_part, true, false, 23},
    {"mi", 2, 2, minutes_part, true, false, 59},
    {"mm", 1, 2, months_part, true, false, 11},
    {"ss", 1, 2, seconds_part, true, false, 59},
    {"fffffffff", 1, 9, fraction_part, true, false, 999999999},
};
constexpr uint8_t t_fraction = 9;
static_assert(std::string_view(interval_tokens[t_fraction].text) == "fffffffff");

constexpr const char *part_names[part_count] = {"day count", "hour",       "minute", "second",
                                                "fraction",  "year count", "month"};

// Marks of a parsed interval pattern, beside the interval type codes it serves.
constexpr uint32_t has_sign_token = 0x1;

uint32_t served_types(const pattern::Parsed &parsed) {
    return parsed.marks & (QV_TYPE_INTERVAL_DS | QV_TYPE_INTERVAL_YM);
}

QV_INTERVAL_FORMAT_T *parse_format(const char *text) {
    if (text == nullptr) {
        qv::set_format_error("no interval format was given");
        return nullptr;
    }
    void *block = nullptr;
    const auto outcome = pattern::parse(text, std::span<const IntervalToken>(interval_tokens),
                                        sizeof(QV_INTERVAL_FORMAT_T), &block);
    if (outcome == pattern::Outcome::repeated) {
        qv::set_format_error("The interval format '%.200s' names the same part more than once.",
                             text);
        return nullptr;
    }
    if (block == nullptr) return nullptr;
    auto *format = static_cast<QV_INTERVAL_FORMAT_T *>(block);
    pattern::Parsed &parsed = format->parsed;
    const bool day_second = (parsed.components & day_second_parts) != 0;
    const bool year_month = (parsed.components & year_month_parts) != 0;
    if (day_second && year_month) {
        qv::set_format_error(
            "The interval format '%.200s' mixes day-to-second and year-to-month parts.", text);
        std::free(block);
        return nullptr;
    }
    parsed.marks = (year_month ? 0 : QV_TYPE_INTERVAL_DS) | (day_second ? 0 : QV_TYPE_INTERVAL_YM);
    for (uint32_t i = 0; i < parsed.count; ++i)
        if (parsed.items[i].token != pattern::literal_item &&
            interval_tokens[parsed.items[i].token].signed_)
            parsed.marks |= has_sign_token;
    return format;
}

pattern::Cache<QV_INTERVAL_FORMAT_T> cache;

// The parsed pattern to use, serving `type`; null (the reason kept) when it does not parse
// or serves the other kind.
const QV_INTERVAL_FORMAT_T *format_to_use(const char *text, const QV_INTERVAL_FORMAT_T *format,
                                          const char *fallback, uint32_t type) {
    if (format == nullptr)
        format = cache.find_or_add(text != nullptr ? text : fallback, parse_format);
    if (format == nullptr) return nullptr;
    if ((served_types(format->parsed) & type) == 0) {
        qv::set_format_error("The interval format '%.200s' is not a %s format.",
                             format->parsed.text,
                             type == QV_TYPE_INTERVAL_DS ? "day-to-second" : "year-to-month");
        return nullptr;
    }
    return format;
}

// ---- Printing and reading, both kinds -------------------------------------------------------

// Digits a token prints at least: the count of its d, y or f letters, else 2.
int printed_width(const pattern::Item &item) {
    const IntervalToken &token = interval_tokens[item.token];
    switch (token.component) {
        case days_part:
        case years_part: return item.length - (token.signed_ ? 1 : 0);
        case fraction_part: return item.length;
        default: return 2;
    }
}

struct Fields {
    bool negative = false;
    uint64_t value[part_count] = {};
};

int32_t print_interval(const Fields &fields, const pattern::Parsed &parsed, char *out,
                       int32_t size) {
    pattern::Writer writer(out, size);
    bool sign_pending = (parsed.marks & has_sign_token) == 0;
    char digits[32];
    for (uint32_t i = 0; i < parsed.count; ++i) {
        const pattern::Item &item = parsed.items[i];
        if (item.token == pattern::literal_item) {
            writer.put(parsed.text + item.offset, item.size);
            continue;
        }
        const IntervalToken &token = interval_tokens[item.token];
        if (token.signed_) writer.put(fields.negative ? "-" : "+");
        if (sign_pending && fields.negative) writer.put("-");
        sign_pending = false;
        const uint64_t value = fields.value[token.component];
        if (token.component == fraction_part) {
            pattern::format_unsigned(digits, value, 9);
            writer.put(digits, item.length);
        } else {
            writer.put(digits, pattern::format_unsigned(digits, value, printed_width(item)));
        }
    }
    return writer.finish();
}

// A negative zero is not negative.
void settle_sign(Fields &fields, bool negative) {
    bool zero = true;
    for (uint64_t value : fields.value) zero = zero && value == 0;
    fields.negative = negative && !zero;
}

bool read_interval(const char *text, const pattern::Parsed &parsed, Fields &fields) {
    pattern::Cursor cursor = pattern::cursor_over(text);
    auto fail = [&](const char *reason) {
        return pattern::reading_failed("interval", cursor, parsed.text, reason);
    };
    if (cursor.ended()) return fail("the text is empty");
    bool sign_pending = (parsed.marks & has_sign_token) == 0;
    int sign = 1;
    auto read_token = [&](const pattern::Item &item) {
        const IntervalToken &token = interval_tokens[item.token];
        if (token.signed_ || sign_pending) sign = cursor.sign();
        sign_pending = false;
        const bool runs = token.component == days_part || token.component == years_part;
        const bool tight = (item.flags & pattern::item_number_follows) != 0;
        const int most = tight ? printed_width(item) : runs ? 10 : item.token == t_fraction ? 9 : 2;
        uint64_t value = 0;
        int count = 0;
        char reason[128];
        if (!cursor.digits(most, value, &count)) {
            std::snprintf(reason, sizeof reason, "a number was expected at position %zu",
                          cursor.position());
            return fail(reason);
        }
        if (item.token == t_fraction)
            for (int n = count; n < 9; ++n) value *= 10;
        if (value > token.limit) {
            std::snprintf(reason, sizeof reason, "%s %llu is out of range (0 to %llu)",
                          part_names[token.component], static_cast<unsigned long long>(value),
                          static_cast<unsigned long long>(token.limit));
            return fail(reason);
        }
        fields.value[token.component] = value;
        return true;
    };
    if (!pattern::read_items(cursor, parsed, t_fraction, read_token, fail)) return false;
    settle_sign(fields, sign < 0);
    return true;
}

Fields fields_of(const QV_INTERVAL_DS_T &interval) {
    Fields fields;
    fields.negative = interval.negative != 0;
    fields.value[days_part] = interval.days;
    fields.value[hours_part] = interval.hours;
    fields.value[minutes_part] = interval.minutes;
    fields.value[seconds_part] = interval.seconds;
    fields.value[fraction_part] = interval.fraction;
    return fields;
}

Fields fields_of(const QV_INTERVAL_YM_T &interval) {
    Fields fields;
    fields.negative = interval.negative != 0;
    fields.value[years_part] = interval.years;
    fields.value[months_part] = interval.months;
    return fields;
}

void store(const Fields &fields, QV_INTERVAL_DS_T &out) {
    out.negative = fields.negative ? 1 : 0;
    out.days = static_cast<uint32_t>(fields.value[days_part]);
    out.hours = static_cast<uint32_t>(fields.value[hours_part]);
    out.minutes = static_cast<uint32_t>(fields.value[minutes_part]);
    out.seconds = static_cast<uint32_t>(fields.value[seconds_part]);
    out.fraction = static_cast<uint32_t>(fields.value[fraction_part]);
}

void store(const Fields &fields, QV_INTERVAL_YM_T &out) {
    out.negative = fields.negative ? 1 : 0;
    out.years = static_cast<uint32_t>(fields.value[years_part]);
    out.months = static_cast<uint32_t>(fields.value[months_part]);
}

// Patterns of each kind: the default, the plain form, and the validity test's default.
struct Kind {
    uint32_t type;
    const char *default_pattern;
    const char *plain_pattern;
    const char *validity_pattern;
};
constexpr Kind day_second{QV_TYPE_INTERVAL_DS, "sddddddddd hh:mi:ss.fffffffff",
                          "d hh:mi:ss.fffffffff", "sddd hh:mi:ss"};
constexpr Kind year_month{QV_TYPE_INTERVAL_YM, "syyyyyyyyy-mm", "y-mm", "syyyyyyyyy-mm"};

template <class Interval>
int32_t interval_to_char(const Kind &kind, const Interval *interval, const char *text,
                         const QV_INTERVAL_FORMAT_T *format, char *out, int32_t size) {
    pattern::Writer empty(out, size);
    if (interval == nullptr) return empty.finish();
    const char *use_text = text == nullptr && format == nullptr ? kind.plain_pattern : text;
    const QV_INTERVAL_FORMAT_T *use =
        format_to_use(use_text, format, kind.plain_pattern, kind.type);
    if (use == nullptr) return empty.finish(), -1;
    return print_interval(fields_of(*interval), use->parsed, out, size);
}

template <class Interval>
int32_t char_to_interval(const Kind &kind, const char *text, const char *pattern_text,
                         const QV_INTERVAL_FORMAT_T *format, Interval *out) {
    if (text == nullptr || out == nullptr) return -1;
    const QV_INTERVAL_FORMAT_T *use =
        format_to_use(pattern_text, format, kind.default_pattern, kind.type);
    Fields fields;
    if (use == nullptr || !read_interval(text, use->parsed, fields)) return -1;
    store(fields, *out);
    return 0;
}

// ---- The strict recognisers of the plain forms ----------------------------------------------

bool exact_digits(pattern::Cursor &cursor, int least, int most, uint64_t limit, uint64_t &value) {
    int count = 0;
    return cursor.digits(most, value, &count) && count >= least && value <= limit;
}

bool take(pattern::Cursor &cursor, char c) {
    if (cursor.ended() || *cursor.at != c) return false;
    ++cursor.at;
    return true;
}

pattern::Cursor exact_cursor(const char *text) {
    return {text, text, text + std::strlen(text)};
}

} // namespace

extern "C" {

QV_API const char *GetInternalIntervalFormat_L(void) {
    return day_second.default_pattern;
}
QV_API const char *GetInternalIntervalYMFormat_L(void) {
    return year_month.default_pattern;
}

QV_API QV_INTERVAL_FORMAT_T *ParseIntervalFormat_L(const char *pattern) {
    return parse_format(pattern);
}

QV_API void FreeParsedIntervalFormat_L(QV_INTERVAL_FORMAT_T *format) {
    std::free(format);
}

QV_API uint32_t ValidIntervalFormat_L(const char *pattern) {
    if (pattern == nullptr) return 0;
    const QV_INTERVAL_FORMAT_T *format = cache.find_or_add(pattern, parse_format);
    return format != nullptr ? served_types(format->parsed) : 0;
}

QV_API int32_t CharToInternalInterval_L(const char *text, const char *pattern,
                                        const QV_INTERVAL_FORMAT_T *format, QV_INTERVAL_DS_T *out) {
    return char_to_interval(day_second, text, pattern, format, out);
}

QV_API int32_t CharToInternalIntervalYM_L(const char *text, const char *pattern,
                                          const QV_INTERVAL_FORMAT_T *format,
                                          QV_INTERVAL_YM_T *out) {
    return char_to_interval(year_month, text, pattern, format, out);
}

QV_API int32_t InternalIntervalToChar_L(const QV_INTERVAL_DS_T *interval, const char *pattern,
                                        const QV_INTERVAL_FORMAT_T *format, char *out,
                                        int32_t size) {
    return interval_to_char(day_second, interval, pattern, format, out, size);
}

QV_API int32_t InternalIntervalYMToChar_L(const QV_INTERVAL_YM_T *interval, const char *pattern,
                                          const QV_INTERVAL_FORMAT_T *format, char *out,
                                          int32_t size) {
    return interval_to_char(year_month, interval, pattern, format, out, size);
}

QV_API uint8_t IsValidInterval_L(const char *text, const char *pattern, uint32_t type) {
    const Kind *kind = type == QV_TYPE_INTERVAL_DS   ? &day_second
                       : type == QV_TYPE_INTERVAL_YM ? &year_month
                                                     : nullptr;
    if (kind == nullptr || text == nullptr) return 0;
    const QV_INTERVAL_FORMAT_T *use =
        format_to_use(pattern, nullptr, kind->validity_pattern, kind->type);
    Fields fields;
    return use != nullptr && read_interval(text, use->parsed, fields) ? 1 : 0;
}

QV_API uint8_t IsInternalInterval_L(const char *text, QV_INTERVAL_DS_T *out) {
    if (text == nullptr) return 0;
    pattern::Cursor c = exact_cursor(text);
    Fields fields;
    uint64_t *v = fields.value;
    const bool negative = c.sign() < 0;
    int count = 0;
    bool fits = exact_digits(c, 1, 10, UINT32_MAX, v[days_part]) && take(c, ' ') &&
                exact_digits(c, 1, 2, 23, v[hours_part]) && take(c, ':') &&
                exact_digits(c, 2, 2, 59, v[minutes_part]) && take(c, ':') &&
                exact_digits(c, 2, 2, 59, v[seconds_part]);
    if (fits && take(c, '.')) {
        fits = c.digits(9, v[fraction_part], &count);
        for (int n = count; n < 9; ++n) v[fraction_part] *= 10;
    }
    if (!fits || !c.ended()) return 0;
    settle_sign(fields, negative);
    if (out != nullptr) store(fields, *out);
    return 1;
}

QV_API uint8_t IsInternalIntervalYM_L(const char *text, QV_INTERVAL_YM_T *out) {
    if (text == nullptr) return 0;
    pattern::Cursor c = exact_cursor(text);
    Fields fields;
    const bool negative = c.sign() < 0;
    if (!exact_digits(c, 1, 10, UINT32_MAX, fields.value[years_part]) || !take(c, '-') ||
        !exact_digits(c, 1, 2, 11, fields.value[months_part]) || !c.ended())
        return 0;
    settle_sign(fields, negative);
    if (out != nullptr) store(fields, *out);
    return 1;
}

} // extern "C"
