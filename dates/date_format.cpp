// date_format.cpp - date and time format patterns: the token table, parsing a pattern,
// printing a date with it and reading a date back, the kept text of the last failure, and
// the cache of patterns given as text.
//
// The token table is searched in its order (longest forms first where one token begins
// another), each entry with its lengths, the part of the date it names (a pattern names
// each part once), the field it reads or writes, a level letter, whether it belongs to the
// date or the time, and two marks: A is clear on the tokens that can stand for either the
// month or the minute ("mm", "m", "mi") and on the meridian markers; B is set on the tokens
// that print a derived value or none of their own field, and marks a pattern that holds
// one, whose reading must then check or derive fields.
//
// Printing dispatches on the token's place in the table; reading gathers what each token
// gives, then settles the date from the strongest source (a Julian day, a day of the year,
// a week, else month and day) and checks every other part read against it.
//
// Patterns given as text are parsed once and kept in a small cache (the last few distinct
// texts), so a caller that passes the same pattern on every row parses it once.
//
// Part of the date module.
#define QV_MODULE "date"
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "core/raise.hpp"
#include "dates/date.hpp"
#include "dates/pattern.hpp"
#include "qv/date.h"
#include "qv/message.h"
#include "qv/textutil.h"

namespace pattern = qv::pattern;

struct QV_DATE_FORMAT_T {
    pattern::Parsed parsed;
};

namespace {

// ---- The token table ------------------------------------------------------------------------

// clang-format off
enum Component : uint8_t {
    year_part, week_part, quarter_part, zone_hours_part, zone_minutes_part, month_part, minute_part,
    day_part, hour_part, second_part, fraction_part, meridian_part
};
// clang-format on

// clang-format off
enum class Field : uint8_t {
    none, year, month, day, hour, minute, second, fraction, zone_hours, zone_minutes, meridian
};
// clang-format on

struct DateToken {
    const char *text;
    uint8_t min, max;
    uint8_t component;
    Field field;
    char level; // 'Y', 'M', 'D' or 0
    bool date_token;
    bool mark_a;
    bool mark_b;
    bool number; // read as digits
};

using F = Field;
constexpr DateToken date_tokens[] = {
    {"syyyy", 5, 5, year_part, F::year, 'Y', true, true, false, true},
    {"yyyy", 4, 4, year_part, F::year, 'Y', true, true, false, true},
    {"yyy", 3, 3, year_part, F::year, 0, true, true, true, true},
    {"yy", 2, 2, year_part, F::year, 0, true, true, false, true},
    {"y", 1, 1, year_part, F::year, 0, true, true, true, true},
    {"iyyy", 4, 4, year_part, F::year, 0, true, true, true, true},
    {"iyy", 3, 3, year_part, F::year, 0, true, true, true, true},
    {"iy", 2, 2, year_part, F::year, 0, true, true, true, true},
    {"iw", 2, 2, week_part, F::none, 0, true, true, true, true},
    {"i", 1, 1, year_part, F::year, 0, true, true, true, true},
    {"q", 1, 1, quarter_part, F::none, 0, true, true, true, true},
    {"stzh", 4, 4, zone_hours_part, F::zone_hours, 0, false, true, false, true},
    {"tzm", 3, 3, zone_minutes_part, F::zone_minutes, 0, false, true, false, true},
    {"month", 5, 5, month_part, F::month, 'M', true, true, false, false},
    {"mon", 3, 3, month_part, F::month, 'M', true, true, false, false},
    {"mmm", 3, 3, month_part, F::month, 'M', true, true, false, false},
    {"mi", 2, 2, minute_part, F::minute, 0, false, false, false, true},
    {"mm", 2, 2, month_part, F::month, 0, true, false, false, true},
    {"m", 1, 1, month_part, F::month, 0, true, false, false, true},
    {"ww", 2, 2, week_part, F::none, 0, true, true, true, true},
    {"w", 1, 1, week_part, F::none, 0, true, true, true, true},
    {"day", 3, 3, day_part, F::none, 'D', true, true, true, false},
    {"dy", 2, 2, day_part, F::none, 'D', true, true, true, false},
    {"ddd", 3, 3, day_part, F::day, 0, true, true, false, true},
    {"ddth", 4, 4, day_part, F::day, 'D', true, true, true, true},
    {"dd", 2, 2, day_part, F::day, 'D', true, true, false, true},
    {"d", 1, 1, day_part, F::none, 0, true, true, true, true},
    {"j", 1, 1, day_part, F::day, 0, true, true, false, true},
    {"hh24", 4, 4, hour_part, F::hour, 0, false, true, false, true},
    {"hh12", 4, 4, hour_part, F::hour, 0, false, true, false, true},
    {"hh", 1, 2, hour_part, F::hour, 0, false, true, false, true},
    {"sssss", 5, 5, second_part, F::none, 0, false, true, true, true},
    {"ss", 1, 2, second_part, F::second, 0, false, true, false, true},
    {"fffffffff", 1, 9, fraction_part, F::fraction, 0, false, true, false, true},
    {"am", 2, 2, meridian_part, F::meridian, 0, false, false, false, false},
    {"pm", 2, 2, meridian_part, F::meridian, 0, false, false, false, false},
};

// The tokens by their place in the table.
// clang-format off
enum Token : uint8_t {
    t_syyyy, t_yyyy, t_yyy, t_yy, t_y, t_iyyy, t_iyy, t_iy, t_iw, t_i, t_q, t_stzh, t_tzm, t_month,
    t_mon, t_mmm, t_mi, t_mm, t_m, t_ww, t_w, t_day, t_dy, t_ddd, t_ddth, t_dd, t_d, t_j, t_hh24,
    t_hh12, t_hh, t_sssss, t_ss, t_fraction, t_am, t_pm, token_count
};
// clang-format on
static_assert(std::size(date_tokens) == 36 && token_count == 36);
static_assert(std::string_view(date_tokens[t_iw].text) == "iw" &&
              std::string_view(date_tokens[t_mi].text) == "mi" &&
              std::string_view(date_tokens[t_ddth].text) == "ddth" &&
              std::string_view(date_tokens[t_sssss].text) == "sssss" &&
              std::string_view(date_tokens[t_pm].text) == "pm");

// Marks of a parsed pattern.
constexpr uint32_t has_zone = 0x1;    // prints or reads "stzh"
constexpr uint32_t has_derived = 0x2; // holds a mark-B token
constexpr uint32_t has_date = 0x4;    // holds a date token

constexpr bool needs_day_number(uint8_t token) {
    switch (token) {
        // clang-format off
        case t_iyyy: case t_iyy: case t_iy: case t_i: case t_iw: case t_ww: case t_day:
        case t_dy: case t_ddd: case t_d: case t_j: return true;
        // clang-format on
        default: return false;
    }
}
constexpr uint32_t needs_day_number_mark = 0x8;

// ---- The last failure -------------------------------------------------------------------------

char format_error[512];

// ---- Parsing and the cache ----------------------------------------------------------------

QV_DATE_FORMAT_T *parse_format(const char *pattern) {
    if (pattern == nullptr) {
        qv::set_format_error("no date format was given");
        return nullptr;
    }
    void *block = nullptr;
    const auto outcome = pattern::parse(pattern, std::span<const DateToken>(date_tokens),
                                        sizeof(QV_DATE_FORMAT_T), &block);
    if (outcome == pattern::Outcome::repeated) {
        PWMessage *message = NewMessage_L(QV_MSG_DATE_FORMAT_REPEATED, MESSAGE_SEVERITY_ERROR);
        MessageAddText_L(message, pattern);
        qv::set_format_error("%s", message != nullptr ? StringMessage_L(message) : pattern);
        FreeMessage_L(message);
        return nullptr;
    }
    if (block == nullptr) return nullptr;
    auto *format = static_cast<QV_DATE_FORMAT_T *>(block);
    for (uint32_t i = 0; i < format->parsed.count; ++i) {
        const uint8_t token = format->parsed.items[i].token;
        if (token == pattern::literal_item) continue;
        if (token == t_stzh) format->parsed.marks |= has_zone;
        if (date_tokens[token].mark_b) format->parsed.marks |= has_derived;
        if (date_tokens[token].date_token) format->parsed.marks |= has_date;
        if (needs_day_number(token)) format->parsed.marks |= needs_day_number_mark;
    }
    return format;
}

pattern::Cache<QV_DATE_FORMAT_T> cache;

// The parsed pattern to use: `format`, else `text` (null: `fallback`) parsed or found in the
// cache. Null when the pattern does not parse.
const QV_DATE_FORMAT_T *format_to_use(const char *text, const QV_DATE_FORMAT_T *format,
                                      const char *fallback) {
    if (format != nullptr) return format;
    return cache.find_or_add(text != nullptr ? text : fallback, parse_format);
}

// ---- Printing -------------------------------------------------------------------------------

const char *const case_models[] = {"a", "AA", "Aa"}; // CopyCaps_L models by Casing

// Bytes of the first `characters` UTF-8 characters of `text`.
std::size_t utf8_prefix(const char *text, int characters) {
    std::size_t at = 0;
    while (text[at] != '\0' && characters > 0) {
        ++at;
        while ((static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
        --characters;
    }
    return at;
}

// A glossary name (or its first three characters) in the token's letter case.
void put_name(pattern::Writer &writer, const char *name, bool short_form, pattern::Casing casing) {
    if (name == nullptr) return;
    char source[128], cased[128];
    std::size_t size = short_form ? utf8_prefix(name, 3) : std::strlen(name);
    if (size >= sizeof source) { // a name that long is cut at a character's start
        size = sizeof source - 1;
        while (size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0) == 0x80) --size;
    }
    std::memcpy(source, name, size);
    source[size] = '\0';
    CopyCaps_L(cased, source, case_models[static_cast<int>(casing)]);
    writer.put(cased, size);
}

// Numbers are written in place where they fit (the usual case), else through a copy.
void put_number(pattern::Writer &writer, int64_t value, int width, bool plus = false,
                std::size_t keep = SIZE_MAX) {
    char digits[32];
    char *at = writer.reserve(sizeof digits);
    const std::size_t length =
        pattern::format_integer(at != nullptr ? at : digits, value, width, plus);
    const std::size_t kept = std::min(length, keep);
    if (at != nullptr)
        writer.advance(kept);
    else
        writer.put(digits, kept);
}

// The last `keep` characters of value printed "%04d" (the ISO year tokens).
void put_last_digits(pattern::Writer &writer, int64_t value, std::size_t keep) {
    char digits[32];
    const std::size_t length = pattern::format_integer(digits, value, 4, false);
    const std::size_t from = keep < length ? length - keep : 0;
    writer.put(digits + from, length - from);
}

const char *ordinal_suffix(int32_t day) {
    if (day % 100 >= 11 && day % 100 <= 13) return "th";
    switch (day % 10) {
        case 1: return "st";
        case 2: return "nd";
        case 3: return "rd";
        default: return "th";
    }
}

void put_cased(pattern::Writer &writer, const char *word, pattern::Casing casing) {
    char cased[8];
    CopyCaps_L(cased, word, case_models[static_cast<int>(casing)]);
    writer.put(cased, std::strlen(cased));
}

void print_token(pattern::Writer &w, const pattern::Item &item, const QV_DATE_T &date,
                 int64_t day) {
    const int32_t hour = date.hour;
    switch (static_cast<Token>(item.token)) {
        case t_syyyy:
            date.year > 0 ? put_number(w, date.year, 4) : put_number(w, date.year, 5, true);
            break;
        case t_yyyy: put_number(w, date.year, 4); break;
        case t_yyy: put_number(w, date.year % 1000, 3); break;
        case t_yy: put_number(w, date.year % 100, 2); break;
        case t_y: put_number(w, date.year % 10, 1); break;
        case t_iyyy:
        case t_iyy:
        case t_iy:
        case t_i: put_last_digits(w, qv::iso_week_of(day).year, item.length); break;
        case t_iw: put_number(w, qv::iso_week_of(day).week, 2); break;
        case t_q: put_number(w, (date.month + 2) / 3, 1); break;
        case t_stzh:
            w.put(date.zone < 0 ? "-" : "+");
            put_number(w, std::abs(date.zone / 100), 2);
            break;
        case t_tzm: put_number(w, std::abs(date.zone % 100), 2); break;
        case t_month: put_name(w, MonthGloss_L(date.month - 1), false, item.casing); break;
        case t_mon:
        case t_mmm: put_name(w, MonthGloss_L(date.month - 1), true, item.casing); break;
        case t_mi: put_number(w, date.minute, 2); break;
        case t_mm: put_number(w, date.month, 2); break;
        case t_m: put_number(w, date.month, 1); break;
        case t_ww: put_number(w, (qv::day_of_year(date) + 6) / 7, 2); break;
        case t_w: put_number(w, (date.day + 6) / 7, 1); break;
        case t_day: put_name(w, DayGloss_L(qv::weekday_of(day)), false, item.casing); break;
        case t_dy: put_name(w, DayGloss_L(qv::weekday_of(day)), true, item.casing); break;
        case t_ddd: put_number(w, qv::day_of_year(date), 3); break;
        case t_ddth:
            put_number(w, date.day, 2);
            put_cased(w, ordinal_suffix(date.day),
                      item.casing == pattern::Casing::upper ? item.casing : pattern::Casing::lower);
            break;
        case t_dd: put_number(w, date.day, 2); break;
        case t_d: put_number(w, qv::weekday_of(day) + 1, 1); break;
        case t_j: put_number(w, day, 7); break;
        case t_hh24:
        case t_hh: put_number(w, hour, 2); break;
        case t_hh12: put_number(w, hour % 12 == 0 ? 12 : hour % 12, 2); break;
        case t_sssss: put_number(w, hour * 3600 + date.minute * 60 + date.second, 5); break;
        case t_ss: put_number(w, date.second, 2); break;
        case t_fraction: put_number(w, date.fraction, 9, false, item.length); break;
        case t_am:
        case t_pm: put_cased(w, hour < 12 ? "am" : "pm", item.casing); break;
        case token_count: break;
    }
}

int32_t print_date(QV_DATE_T &date, const QV_DATE_FORMAT_T &format, char *out, int32_t size) {
    const pattern::Parsed &parsed = format.parsed;
    if ((parsed.marks & has_zone) != 0 && date.zone == 0) date.zone = GetDefaultTimeZone_L();
    const int64_t day = (parsed.marks & needs_day_number_mark) != 0 ? qv::day_number_of(date) : 0;
    pattern::Writer writer(out, size);
    for (uint32_t i = 0; i < parsed.count; ++i) {
        const pattern::Item &item = parsed.items[i];
        if (item.token == pattern::literal_item)
            writer.put(parsed.text + item.offset, item.size);
        else
            print_token(writer, item, date, day);
    }
    return writer.finish();
}

// ---- Reading --------------------------------------------------------------------------------

// What the tokens of a pattern gave.
// clang-format off
enum Part : uint32_t {
    p_year = 1 << 0, p_iso_year = 1 << 1, p_month = 1 << 2, p_day = 1 << 3,
    p_day_of_year = 1 << 4, p_julian = 1 << 5, p_weekday = 1 << 6, p_week = 1 << 7,
    p_quarter = 1 << 8, p_hour = 1 << 9, p_minute = 1 << 10, p_second = 1 << 11,
    p_seconds_of_day = 1 << 12, p_fraction = 1 << 13, p_meridian = 1 << 14, p_zone = 1 << 15,
    p_zone_minutes = 1 << 16,
};
// clang-format on
constexpr uint32_t date_parts = p_year | p_iso_year | p_month | p_day | p_day_of_year | p_julian |
                                p_weekday | p_week | p_quarter;

struct Reading {
    uint32_t have = 0;
    int64_t year = 0, julian = 0;
    int32_t month = 0, day = 0, day_of_year = 0, weekday = 0, week = 0, quarter = 0;
    uint8_t week_token = 0;
    int32_t hour = 0, minute = 0, second = 0, seconds_of_day = 0, fraction = 0;
    bool twelve_hour = false, pm = false;
    int zone_sign = 1;
    int32_t zone_hours = 0, zone_minutes = 0;
    int16_t named_zone = 0;
    bool zone_by_name = false;
};

struct ReadState {
    pattern::Cursor cursor;
    const QV_DATE_FORMAT_T &format;
    Reading reading;

    bool fail(const char *why, ...) __attribute__((format(printf, 2, 3)));
};

bool ReadState::fail(const char *why, ...) {
    char reason[256];
    va_list arguments;
    va_start(arguments, why);
    std::vsnprintf(reason, sizeof reason, why, arguments);
    va_end(arguments);
    return pattern::reading_failed("date", cursor, format.parsed.text, reason);
}

// How many digits a number token reads: its printed width when another number follows at
// once, else as many as it can print.
int digits_to_read(const pattern::Item &item) {
    const bool tight = (item.flags & pattern::item_number_follows) != 0;
    switch (item.token) {
        case t_syyyy:
        case t_yyyy:
        case t_iyyy: return tight ? 4 : 5;
        case t_yyy:
        case t_yy:
        case t_y:
        case t_iyy:
        case t_iy:
        case t_i: return item.length;
        case t_q:
        case t_w:
        case t_d: return 1;
        case t_ddd: return 3;
        case t_j: return tight ? 7 : 8;
        case t_sssss: return 5;
        case t_fraction: return tight ? item.length : 9;
        default: return 2;
    }
}

// The year nearest this one whose last `digits` digits are `value`.
int64_t complete_year(uint64_t value, int digits) {
    QV_DATE_T now{};
    CurrentTimestamp_L(&now);
    int64_t modulus = 1;
    for (int i = 0; i < digits; ++i) modulus *= 10;
    const int64_t current = now.year;
    int64_t year =
        current - ((current % modulus) + modulus) % modulus + static_cast<int64_t>(value);
    if (year >= current + modulus / 2) year -= modulus;
    if (year < current - modulus / 2) year += modulus;
    return year;
}

// Takes the longest of the twelve month or seven day names (or their first three
// characters) at the cursor; its index, or -1.
int read_name(pattern::Cursor &cursor, bool months) {
    const int count = months ? 12 : 7;
    int best = -1;
    std::size_t best_length = 0;
    for (int i = 0; i < count; ++i) {
        const char *name = months ? MonthGloss_L(i) : DayGloss_L(i);
        if (name == nullptr) continue;
        for (std::size_t length : {std::strlen(name), utf8_prefix(name, 3)}) {
            pattern::Cursor probe = cursor;
            if (length > best_length && probe.word(std::string_view(name, length)) != 0)
                best = i, best_length = length;
        }
    }
    cursor.at += best_length;
    return best;
}

bool read_meridian(ReadState &state) {
    pattern::Cursor &c = state.cursor;
    const char *am = GetAM_L(), *pm = GetPM_L();
    if (c.word("am") != 0 || (am != nullptr && c.word(am) != 0))
        return state.reading.pm = false, true;
    if (c.word("pm") != 0 || (pm != nullptr && c.word(pm) != 0))
        return state.reading.pm = true, true;
    return state.fail("'am' or 'pm' was expected at position %zu", c.position());
}

bool read_zone_hours(ReadState &state) {
    pattern::Cursor &c = state.cursor;
    Reading &r = state.reading;
    const char *start = c.at;
    while (c.at != c.end && ((*c.at >= 'a' && *c.at <= 'z') || (*c.at >= 'A' && *c.at <= 'Z')))
        ++c.at;
    if (c.at != start) {
        if (!qv::find_zone(start, static_cast<std::size_t>(c.at - start), &r.named_zone))
            return state.fail("'%.*s' is not a known time zone", static_cast<int>(c.at - start),
                              start);
        r.zone_by_name = true;
        r.have |= p_zone | p_zone_minutes;
        return true;
    }
    r.zone_sign = c.sign();
    uint64_t hours = 0;
    if (!c.digits(2, hours))
        return state.fail("a time zone was expected at position %zu", c.position());
    r.zone_hours = static_cast<int32_t>(hours);
    r.have |= p_zone;
    return true;
}

// Reads one number token into the reading.
bool read_number(ReadState &state, const pattern::Item &item) {
    pattern::Cursor &c = state.cursor;
    Reading &r = state.reading;
    const int sign = item.token == t_syyyy || item.token == t_yyyy ? c.sign() : 1;
    uint64_t value = 0;
    int count = 0;
    if (!c.digits(digits_to_read(item), value, &count))
        return state.fail("a number was expected at position %zu", c.position());
    const auto number = static_cast<int32_t>(std::min<uint64_t>(value, INT32_MAX));
    switch (item.token) {
        case t_syyyy:
        case t_yyyy: r.year = sign * static_cast<int64_t>(value), r.have |= p_year; break;
        case t_yyy:
        case t_yy:
        case t_y: r.year = complete_year(value, item.length), r.have |= p_year; break;
        case t_iyyy: r.year = number, r.have |= p_iso_year; break;
        case t_iyy:
        case t_iy:
        case t_i: r.year = complete_year(value, item.length), r.have |= p_iso_year; break;
        case t_iw:
        case t_ww:
        case t_w: r.week = number, r.week_token = item.token, r.have |= p_week; break;
        case t_q: r.quarter = number, r.have |= p_quarter; break;
        case t_tzm: r.zone_minutes = number, r.have |= p_zone_minutes; break;
        case t_mi: r.minute = number, r.have |= p_minute; break;
        case t_mm:
        case t_m: r.month = number, r.have |= p_month; break;
        case t_ddd: r.day_of_year = number, r.have |= p_day_of_year; break;
        case t_ddth:
            for (const char *suffix : {"st", "nd", "rd", "th"})
                if (c.word(suffix) != 0) return r.day = number, r.have |= p_day, true;
            return state.fail("an ordinal suffix was expected at position %zu", c.position());
        case t_dd: r.day = number, r.have |= p_day; break;
        case t_d: r.weekday = number, r.have |= p_weekday; break;
        case t_j: r.julian = number, r.have |= p_julian; break;
        case t_hh24:
        case t_hh: r.hour = number, r.have |= p_hour; break;
        case t_hh12: r.hour = number, r.twelve_hour = true, r.have |= p_hour; break;
        case t_sssss: r.seconds_of_day = number, r.have |= p_seconds_of_day; break;
        case t_ss: r.second = number, r.have |= p_second; break;
        case t_fraction:
            for (int n = count; n < 9; ++n) value *= 10;
            r.fraction = static_cast<int32_t>(value), r.have |= p_fraction;
            break;
        default: break;
    }
    return true;
}

bool read_token(ReadState &state, const pattern::Item &item) {
    Reading &r = state.reading;
    pattern::Cursor &c = state.cursor;
    switch (item.token) {
        case t_month:
        case t_mon:
        case t_mmm: {
            const int month = read_name(c, true);
            if (month < 0)
                return state.fail("a month name was expected at position %zu", c.position());
            r.month = month + 1, r.have |= p_month;
            return true;
        }
        case t_day:
        case t_dy: {
            const int weekday = read_name(c, false);
            if (weekday < 0)
                return state.fail("a day name was expected at position %zu", c.position());
            r.weekday = weekday + 1, r.have |= p_weekday;
            return true;
        }
        case t_am:
        case t_pm: r.have |= p_meridian; return read_meridian(state);
        case t_stzh: return read_zone_hours(state);
        default: return read_number(state, item);
    }
}

// ---- Settling the fields ----------------------------------------------------------------

bool settle_time(ReadState &state, QV_DATE_T &date) {
    Reading &r = state.reading;
    if ((r.have & p_hour) != 0 && (r.twelve_hour || (r.have & p_meridian) != 0) && r.hour >= 1 &&
        r.hour <= 12) {
        r.hour = r.hour % 12 + (r.pm ? 12 : 0);
    } else if (r.twelve_hour) {
        return state.fail("hour %d is out of range (1 to 12)", r.hour);
    } else if ((r.have & p_meridian) != 0 && (r.hour >= 12) != r.pm) {
        return state.fail("hour %d does not agree with %s", r.hour, r.pm ? "pm" : "am");
    }
    if ((r.have & p_seconds_of_day) != 0) {
        if (r.seconds_of_day >= qv::seconds_per_day)
            return state.fail("second %d of the day is out of range", r.seconds_of_day);
        const int32_t parts[] = {r.seconds_of_day / 3600, r.seconds_of_day / 60 % 60,
                                 r.seconds_of_day % 60};
        const bool agree = ((r.have & p_hour) == 0 || r.hour == parts[0]) &&
                           ((r.have & p_minute) == 0 || r.minute == parts[1]);
        if (!agree) return state.fail("the seconds since midnight do not agree with the time");
        r.hour = parts[0], r.minute = parts[1], r.second = parts[2];
    }
    if (r.hour > 23) return state.fail("hour %d is out of range (0 to 23)", r.hour);
    if (r.minute > 59) return state.fail("minute %d is out of range", r.minute);
    if (r.second > 59) return state.fail("second %d is out of range", r.second);
    date.hour = static_cast<uint8_t>(r.hour);
    date.minute = static_cast<uint8_t>(r.minute);
    date.second = static_cast<uint8_t>(r.second);
    date.fraction = r.fraction;
    if (r.zone_by_name) {
        date.zone = r.named_zone;
    } else if ((r.have & p_zone) != 0) {
        if (r.zone_hours > 23 || r.zone_minutes > 59)
            return state.fail("the zone %02d:%02d is out of range", r.zone_hours, r.zone_minutes);
        date.zone = static_cast<int16_t>(r.zone_sign * (r.zone_hours * 100 + r.zone_minutes));
    }
    return true;
}

// The first of the 7 days from `start` that falls on the reading's day of the week
// (1 Sunday .. 7), or `start` when no day of the week was read.
int64_t on_weekday(const Reading &r, int64_t start) {
    if ((r.have & p_weekday) == 0) return start;
    return start + ((r.weekday - 1 - qv::weekday_of(start)) % 7 + 7) % 7;
}

// The day fixed by a Julian day, a day of the year or a week; false when none of them
// was read.
bool derived_day(ReadState &state, int64_t &day) {
    Reading &r = state.reading;
    if ((r.have & p_julian) != 0) {
        day = r.julian;
    } else if ((r.have & p_day_of_year) != 0) {
        day = qv::day_number(r.year, 1, 1) + r.day_of_year - 1;
    } else if ((r.have & p_week) != 0 && r.week_token == t_iw) {
        const int32_t iso_weekday = (r.have & p_weekday) != 0 ? (r.weekday + 5) % 7 + 1 : 1;
        day = qv::iso_year_start(r.year) + (r.week - 1) * 7 + iso_weekday - 1;
    } else if ((r.have & p_week) != 0 && r.week_token == t_ww && (r.have & p_day) == 0) {
        day = on_weekday(r, qv::day_number(r.year, 1, 1) + (r.week - 1) * 7);
    } else if ((r.have & p_week) != 0 && r.week_token == t_w && (r.have & p_day) == 0) {
        const int32_t month = (r.have & p_month) != 0 ? r.month : 1;
        if (month < 1 || month > 12) return false; // the month check words it
        day = on_weekday(r, qv::day_number(r.year, month, 1) + (r.week - 1) * 7);
    } else {
        return false;
    }
    return true;
}

// Checks every part read against the settled day.
bool parts_agree(ReadState &state, int64_t day) {
    const Reading &r = state.reading;
    QV_DATE_T date{};
    const qv::CivilDate civil = qv::civil_from_day_number(day);
    date.year = static_cast<int16_t>(civil.year);
    date.month = static_cast<uint8_t>(civil.month);
    date.day = static_cast<uint8_t>(civil.day);
    const qv::IsoWeek iso = qv::iso_week_of(day);
    const int32_t week = r.week_token == t_iw   ? iso.week
                         : r.week_token == t_ww ? (qv::day_of_year(date) + 6) / 7
                                                : (civil.day + 6) / 7;
    const struct {
        uint32_t part;
        bool agrees;
        const char *name;
    } checks[] = {
        {p_year, r.year == civil.year, "year"},
        {p_iso_year, r.year == iso.year, "ISO year"},
        {p_month, r.month == civil.month, "month"},
        {p_day, r.day == civil.day, "day"},
        {p_quarter, r.quarter == (civil.month + 2) / 3, "quarter"},
        {p_week, r.week == week, "week"},
        {p_weekday, r.weekday == qv::weekday_of(day) + 1, "day of the week"},
    };
    for (const auto &check : checks)
        if ((r.have & check.part) != 0 && !check.agrees)
            return state.fail("the %s does not agree with the date %lld-%02d-%02d", check.name,
                              static_cast<long long>(civil.year), civil.month, civil.day);
    return true;
}

bool settle_date(ReadState &state, QV_DATE_T &date) {
    Reading &r = state.reading;
    if ((r.have & date_parts) == 0) return true; // a time of day
    if ((r.have & (p_year | p_iso_year)) == 0) {
        QV_DATE_T now{};
        CurrentTimestamp_L(&now);
        r.year = now.year;
    }
    if ((r.have & p_day_of_year) != 0 &&
        (r.day_of_year < 1 || r.day_of_year > (qv::is_leap_year(r.year) ? 366 : 365)))
        return state.fail("day %d of the year does not exist in %lld", r.day_of_year,
                          static_cast<long long>(r.year));
    if ((r.have & p_week) != 0 && (r.week < 1 || r.week > (r.week_token == t_w ? 5 : 53)))
        return state.fail("week %d is out of range", r.week);
    if ((r.have & p_weekday) != 0 && (r.weekday < 1 || r.weekday > 7))
        return state.fail("day %d of the week is out of range (1 to 7)", r.weekday);
    if ((r.have & p_quarter) != 0 && (r.quarter < 1 || r.quarter > 4))
        return state.fail("quarter %d is out of range", r.quarter);
    int64_t day = 0;
    if (!derived_day(state, day)) {
        if ((r.have & p_weekday) != 0)
            return state.fail("a day of the week needs a week to fix the date");
        const int32_t month = (r.have & p_month) != 0     ? r.month
                              : (r.have & p_quarter) != 0 ? r.quarter * 3 - 2
                                                          : 1;
        const int32_t day_of_month = (r.have & p_day) != 0 ? r.day : 1;
        if (month < 1 || month > 12) return state.fail("month %d is out of range", month);
        if (day_of_month < 1 || day_of_month > qv::days_in_month(month, r.year))
            return state.fail("day %d does not exist in month %d of %lld", day_of_month, month,
                              static_cast<long long>(r.year));
        // Without derived tokens, Julian days or days of the year there is nothing to check.
        const bool derived = (state.format.parsed.marks & has_derived) != 0;
        if (!derived && (r.have & (p_day_of_year | p_julian)) == 0) {
            if (r.year < INT16_MIN || r.year > INT16_MAX)
                return state.fail("year %lld is out of range", static_cast<long long>(r.year));
            date.year = static_cast<int16_t>(r.year);
            date.month = static_cast<uint8_t>(month);
            date.day = static_cast<uint8_t>(day_of_month);
            return true;
        }
        day = qv::day_number(r.year, month, day_of_month);
    }
    if (!parts_agree(state, day)) return false;
    const qv::CivilDate civil = qv::civil_from_day_number(day);
    if (civil.year < INT16_MIN || civil.year > INT16_MAX)
        return state.fail("year %lld is out of range", static_cast<long long>(civil.year));
    date.year = static_cast<int16_t>(civil.year);
    date.month = static_cast<uint8_t>(civil.month);
    date.day = static_cast<uint8_t>(civil.day);
    return true;
}

bool read_date(const char *text, const QV_DATE_FORMAT_T &format, bool time_only, QV_DATE_T *out) {
    ReadState state{pattern::cursor_over(text), format, {}};
    if (state.cursor.ended()) return state.fail("the text is empty");
    QV_DATE_T date{};
    const bool read = pattern::read_items(
        state.cursor, format.parsed, t_fraction,
        [&](const pattern::Item &item) { return read_token(state, item); },
        [&](const char *reason) { return state.fail("%s", reason); });
    if (!read || !settle_time(state, date)) return false;
    if ((format.parsed.marks & has_date) != 0 && !settle_date(state, date)) return false;
    if (time_only) date.year = 0, date.month = 0, date.day = 0;
    *out = date;
    return true;
}

} // namespace

void qv::set_format_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(format_error, sizeof format_error, format, arguments);
    va_end(arguments);
}

void qv::clear_format_error() {
    format_error[0] = '\0';
}

extern "C" {

QV_API const char *GetInternalDatetimeFormat_L(void) {
    return "syyyy-mm-dd hh:mi:ss.fffffffff";
}
QV_API const char *GetInternalDateFormat_L(void) {
    return "syyyy-mm-dd";
}
QV_API const char *GetInternalDatetimeTZFormat_L(void) {
    return "syyyy-mm-dd hh:mi:ss.fffffffff stzh:tzm";
}
QV_API const char *GetInternalTimeFormat_L(void) {
    return "hh:mi:ss.fffffffff";
}
QV_API const char *GetInternalTimeTZFormat_L(void) {
    return "hh:mi:ss.fffffffff stzh:tzm";
}

QV_API QV_DATE_FORMAT_T *ParseDateFormat_L(const char *pattern) {
    return parse_format(pattern);
}

QV_API void FreeParsedDateFormat_L(QV_DATE_FORMAT_T *format) {
    std::free(format);
}

QV_API const char *DateFormatError_L(void) {
    return format_error;
}

QV_API int32_t CharToInternalDate_L(const char *text, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, QV_DATE_T *out) {
    if (text == nullptr || out == nullptr) return -1;
    const QV_DATE_FORMAT_T *use = format_to_use(pattern, format, GetInternalDatetimeFormat_L());
    return use != nullptr && read_date(text, *use, false, out) ? 0 : -1;
}

QV_API int32_t CharToInternalTime_L(const char *text, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, QV_DATE_T *out) {
    if (text == nullptr || out == nullptr) return -1;
    const QV_DATE_FORMAT_T *use = format_to_use(pattern, format, GetInternalTimeFormat_L());
    return use != nullptr && read_date(text, *use, true, out) ? 0 : -1;
}

QV_API uint8_t IsValidDate_L(const char *text, const char *pattern) {
    QV_DATE_T date{};
    if (text == nullptr) return 0;
    const QV_DATE_FORMAT_T *use = format_to_use(pattern, nullptr, GetInternalDatetimeTZFormat_L());
    return use != nullptr && read_date(text, *use, false, &date) ? 1 : 0;
}

QV_API int32_t InternalDateToChar_L(QV_DATE_T *date, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, char *out, int32_t size) {
    pattern::Writer empty(out, size);
    if (date == nullptr) return empty.finish();
    const QV_DATE_FORMAT_T *use = format_to_use(pattern, format, GetInternalDatetimeFormat_L());
    if (use == nullptr) return empty.finish(), -1;
    return print_date(*date, *use, out, size);
}

QV_API int32_t InternalTimeToChar_L(QV_DATE_T *time, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, char *out, int32_t size) {
    return InternalDateToChar_L(
        time, pattern != nullptr || format != nullptr ? pattern : GetInternalTimeFormat_L(), format,
        out, size);
}

QV_API int32_t InternalTimezoneToChar_L(QV_DATE_T *date, char *out, int32_t size) {
    return InternalDateToChar_L(date, "stzh:tzm", nullptr, out, size);
}

} // extern "C"
