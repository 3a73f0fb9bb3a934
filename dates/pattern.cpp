// pattern.cpp - the pieces of format patterns that dates and intervals share: token
// matching with its letter-case rule, the parsed block, integer printing and the reading
// cursor.
//
// Part of the date module.
#define QV_MODULE "date"
#include "dates/pattern.hpp"

#include "dates/date.hpp"

namespace qv::pattern {

bool match_token(const char *at, std::string_view token, Casing &casing) {
    int letters = 0, uppers = 0;
    bool first_upper = false;
    for (std::size_t i = 0; i < token.size(); ++i) {
        if (lower(at[i]) != token[i]) return false; // also stops at the terminator
        if (token[i] < 'a' || token[i] > 'z') continue;
        if (is_upper(at[i])) first_upper = first_upper || letters == 0, ++uppers;
        ++letters;
    }
    if (uppers == 0)
        casing = Casing::lower;
    else if (uppers == letters)
        casing = Casing::upper;
    else if (uppers == 1 && first_upper)
        casing = Casing::capital;
    else
        return false;
    return true;
}

void *allocate_block(std::size_t header_size, uint32_t count, std::size_t text_size) {
    static_assert(alignof(Item) <= alignof(Parsed));
    return QV_MALLOC(header_size + count * sizeof(Item) + text_size);
}

std::size_t format_unsigned(char *buffer, uint64_t value, int width) {
    char digits[24];
    int n = 0;
    do digits[n++] = static_cast<char>('0' + value % 10), value /= 10;
    while (value != 0);
    std::size_t length = 0;
    for (int pad = width - n; pad > 0; --pad) buffer[length++] = '0';
    while (n > 0) buffer[length++] = digits[--n];
    return length;
}

std::size_t format_integer(char *buffer, int64_t value, int width, bool plus) {
    std::size_t length = 0;
    if (value < 0 || plus) buffer[length++] = value < 0 ? '-' : '+';
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : value;
    return length + format_unsigned(buffer + length, magnitude, width - static_cast<int>(length));
}

bool Cursor::digits(int max, uint64_t &value, int *count) {
    int n = 0;
    value = 0;
    while (n < max && at != end && *at >= '0' && *at <= '9')
        value = value * 10 + static_cast<uint64_t>(*at++ - '0'), ++n;
    if (count != nullptr) *count = n;
    return n > 0;
}

int Cursor::sign() {
    if (at == end || (*at != '+' && *at != '-')) return 1;
    return *at++ == '-' ? -1 : 1;
}

bool Cursor::literal(const Item &item, const char *pattern_text) {
    const char *expected = pattern_text + item.offset;
    if (static_cast<std::size_t>(end - at) < item.size) return false;
    for (uint32_t i = 0; i < item.size; ++i) {
        const char want = expected[i], have = at[i];
        const bool same = (item.flags & item_quoted) != 0 ? want == have
                          : is_separator(want)            ? is_separator(have)
                                                          : lower(want) == lower(have);
        if (!same) return false;
    }
    at += item.size;
    return true;
}

std::size_t Cursor::word(std::string_view word) {
    if (word.empty() || static_cast<std::size_t>(end - at) < word.size()) return 0;
    for (std::size_t i = 0; i < word.size(); ++i)
        if (lower(at[i]) != lower(word[i])) return 0;
    at += word.size();
    return word.size();
}

Cursor cursor_over(const char *text) {
    const char *end = text + std::strlen(text);
    while (*text == ' ' || *text == '\t') ++text;
    while (end > text && (end[-1] == ' ' || end[-1] == '\t')) --end;
    return {text, text, end};
}

bool reading_failed(const char *kind, const Cursor &cursor, const char *pattern_text,
                    const char *reason) {
    const auto shown = std::min<std::ptrdiff_t>(cursor.end - cursor.start, 80);
    qv::set_format_error("'%.*s' does not fit the %s format '%.80s': %s", static_cast<int>(shown),
                         cursor.start, kind, pattern_text, reason);
    return false;
}

} // namespace qv::pattern
