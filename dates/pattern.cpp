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
