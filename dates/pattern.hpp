// pattern.hpp - format patterns shared by dates and intervals: splitting a pattern into
// tokens of a table and literals, the parsed block, a bounded text writer, printf-exact
// integer printing, and the cursor that reads text back.
//
// A parsed pattern is one malloc'd block: the header, the items, and a copy of the pattern
// text (literal items point into it). Splitting follows the table's order: at each place
// the first entry whose text, cut to some length from its maximum down to its minimum,
// fits the pattern wins; its letters must be all lower case, all upper case, or
// capitalised (so "ddTh" is "dd", the literal "T", then "h"). A double quote opens a
// literal that runs to the next one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "core/raise.hpp"

namespace qv::pattern {

enum class Casing : uint8_t { lower, upper, capital };

constexpr uint8_t literal_item = 0xFF;
constexpr uint8_t item_quoted = 0x1;         // literal: matched exactly
constexpr uint8_t item_number_follows = 0x2; // token: the next item is a number token

struct Item {
    uint8_t token;  // index in the token table, or literal_item
    uint8_t length; // matched length
    Casing casing;
    uint8_t flags;
    uint32_t offset; // literal: its bytes in the pattern copy
    uint32_t size;
};

struct Parsed {
    uint32_t count;
    uint32_t components; // bit per component named
    uint32_t marks;      // the table's own marks
    const Item *items;
    const char *text; // the pattern, terminated
};

// The separators ":-/_,.\"" and the blank.
inline bool is_separator(char c) {
    switch (c) {
        case ' ':
        case ':':
        case '-':
        case '/':
        case '_':
        case ',':
        case '.':
        case '"': return true;
        default: return false;
    }
}
inline char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
inline bool is_upper(char c) {
    return c >= 'A' && c <= 'Z';
}

// The casing of `length` pattern letters equal without case to `token`; false when they
// differ or mix cases.
bool match_token(const char *at, std::string_view token, Casing &casing);

enum class Outcome { parsed, repeated, no_memory };

struct Match {
    int index = -1;
    uint8_t length = 0;
    Casing casing = Casing::lower;
};

// Entries of a token table have: text, min, max (lengths), component (bit number), and a
// number flag telling whether the token is read as digits.
template <class Entry>
Match find_token(const char *at, std::span<const Entry> table) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        for (int length = table[i].max; length >= table[i].min; --length) {
            Casing casing;
            std::string_view text(table[i].text, static_cast<std::size_t>(length));
            if (match_token(at, text, casing))
                return {static_cast<int>(i), static_cast<uint8_t>(length), casing};
        }
    }
    return {};
}

// One pass over the pattern: counts the items (items null) or fills them. Stops with
// `repeated` at a component named twice.
template <class Entry>
Outcome split(const char *pattern, std::span<const Entry> table, Item *items, uint32_t &count,
              uint32_t &components) {
    count = 0;
    components = 0;
    bool in_literal = false;
    for (const char *at = pattern; *at != '\0';) {
        if (*at == '"') {
            const char *end = std::strchr(at + 1, '"');
            std::size_t size = end != nullptr ? end - at - 1 : std::strlen(at + 1);
            if (items != nullptr)
                items[count] = {literal_item,
                                0,
                                Casing::lower,
                                item_quoted,
                                static_cast<uint32_t>(at + 1 - pattern),
                                static_cast<uint32_t>(size)};
            ++count, in_literal = false;
            at += size + 1 + (end != nullptr);
            continue;
        }
        Match match = find_token(at, table);
        if (match.index < 0) {
            if (!in_literal && items != nullptr)
                items[count] = {
                    literal_item, 0, Casing::lower, 0, static_cast<uint32_t>(at - pattern), 0};
            if (!in_literal) ++count;
            if (items != nullptr) ++items[count - 1].size;
            in_literal = true, ++at;
            continue;
        }
        const uint32_t bit = 1u << table[match.index].component;
        if ((components & bit) != 0) return Outcome::repeated;
        components |= bit;
        if (items != nullptr) {
            items[count] = {static_cast<uint8_t>(match.index), match.length, match.casing, 0, 0, 0};
            if (count > 0 && items[count - 1].token != literal_item &&
                table[items[count - 1].token].number && table[match.index].number)
                items[count - 1].flags |= item_number_follows;
        }
        ++count, in_literal = false, at += match.length;
    }
    return Outcome::parsed;
}

// Allocates one block of `header_size` bytes (the Parsed header at its start), the items
// and the pattern copy. Null after ALLOC_FAILURE.
void *allocate_block(std::size_t header_size, uint32_t count, std::size_t text_size);

// Parses `pattern` into a new block whose header (a struct that begins with Parsed) has
// `header_size` bytes; *block is null unless the outcome is `parsed`.
template <class Entry>
Outcome parse(const char *pattern, std::span<const Entry> table, std::size_t header_size,
              void **block) {
    *block = nullptr;
    uint32_t count = 0, components = 0;
    if (split(pattern, table, nullptr, count, components) == Outcome::repeated)
        return Outcome::repeated;
    const std::size_t text_size = std::strlen(pattern) + 1;
    void *memory = allocate_block(header_size, count, text_size);
    if (memory == nullptr) return Outcome::no_memory;
    auto *parsed = static_cast<Parsed *>(memory);
    auto *items = reinterpret_cast<Item *>(static_cast<char *>(memory) + header_size);
    char *text = reinterpret_cast<char *>(items + count);
    std::memcpy(text, pattern, text_size);
    split(pattern, table, items, parsed->count, parsed->components);
    parsed->items = items;
    parsed->text = text;
    parsed->marks = 0;
    *block = memory;
    return Outcome::parsed;
}

// The last few distinct pattern texts a caller used, parsed (Format begins with Parsed;
// blocks are freed with free when pushed out). Lives for the process.
template <class Format>
class Cache {
  public:
    // The parse of `text`, found or made by `parse(text)` (null when it fails).
    template <class Parse>
    const Format *find_or_add(const char *text, Parse &&parse) {
        for (const Format *format : kept_)
            if (format != nullptr && std::strcmp(format->parsed.text, text) == 0) return format;
        Format *format = parse(text);
        if (format == nullptr) return nullptr;
        std::free(kept_[next_]);
        kept_[next_] = format;
        next_ = (next_ + 1) % size;
        return format;
    }

  private:
    static constexpr std::size_t size = 8;
    Format *kept_[size] = {};
    std::size_t next_ = 0;
};

// Text written into a caller's buffer of `size` bytes, cut to fit and terminated;
// `finish` gives the length of the whole text.
class Writer {
  public:
    Writer(char *out, int32_t size)
        : out_(out != nullptr && size > 0 ? out : nullptr),
          room_(out_ != nullptr ? static_cast<std::size_t>(size) - 1 : 0) {}
    void put(const char *text, std::size_t size) {
        if (written_ < room_) {
            const std::size_t n = std::min<std::size_t>(size, room_ - written_);
            std::memcpy(out_ + written_, text, n);
            written_ += n;
        }
        length_ += size;
    }
    void put(std::string_view text) { put(text.data(), text.size()); }
    // Where `size` more bytes can be written in place (then `advance` over those used), or
    // null when they would not fit whole.
    char *reserve(std::size_t size) {
        return written_ == length_ && written_ + size <= room_ ? out_ + written_ : nullptr;
    }
    void advance(std::size_t size) { written_ += size, length_ += size; }
    int32_t finish() {
        if (out_ != nullptr) out_[written_] = '\0';
        return static_cast<int32_t>(std::min<std::size_t>(length_, INT32_MAX));
    }

  private:
    char *out_;
    std::size_t room_;
    std::size_t written_ = 0;
    std::size_t length_ = 0;
};

// printf("%0*llu") of value into buffer (24 bytes at least and `width` + 1); returns the
// length.
inline std::size_t format_unsigned(char *buffer, uint64_t value, int width) {
    char digits[24];
    int n = 0;
    do digits[n++] = static_cast<char>('0' + value % 10), value /= 10;
    while (value != 0);
    std::size_t length = 0;
    for (int pad = width - n; pad > 0; --pad) buffer[length++] = '0';
    while (n > 0) buffer[length++] = digits[--n];
    return length;
}

// printf("%0*lld") of value, with a '+' before a value >= 0 when `plus` ("%+0*lld"); the
// sign counts in the width as printf counts it.
inline std::size_t format_integer(char *buffer, int64_t value, int width, bool plus) {
    std::size_t length = 0;
    if (value < 0 || plus) buffer[length++] = value < 0 ? '-' : '+';
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : value;
    return length + format_unsigned(buffer + length, magnitude, width - static_cast<int>(length));
}

// A cursor over the text being read, up to `end`.
struct Cursor {
    const char *at;
    const char *start;
    const char *end;

    std::size_t position() const { return static_cast<std::size_t>(at - start) + 1; }
    bool ended() const { return at == end; }
    // Reads 1..max digits into value; false when there is none. *count gets how many.
    bool digits(int max, uint64_t &value, int *count = nullptr) {
        int n = 0;
        value = 0;
        while (n < max && at != end && *at >= '0' && *at <= '9')
            value = value * 10 + static_cast<uint64_t>(*at++ - '0'), ++n;
        if (count != nullptr) *count = n;
        return n > 0;
    }
    // Takes an optional '+' or '-'; -1 after '-', else 1.
    int sign() {
        if (at == end || (*at != '+' && *at != '-')) return 1;
        return *at++ == '-' ? -1 : 1;
    }
    // Matches a pattern literal: separators and blanks match any separator or blank, other
    // characters themselves without case, quoted text exactly.
    bool literal(const Item &item, const char *pattern_text) {
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
    // Takes `word` when the text goes on with it (without case); the length taken, or 0.
    std::size_t word(std::string_view word);
};

// A cursor over `text` without the blanks around it.
Cursor cursor_over(const char *text);

// Keeps the failure of reading the cursor's text with a pattern of `kind` ("date"):
// "'<text>' does not fit the <kind> format '<pattern>': <reason>".
bool reading_failed(const char *kind, const Cursor &cursor, const char *pattern_text,
                    const char *reason);

// Reads the items in order: literals through the cursor, tokens through
// `read_token(item)` (false when it failed and said why). The text may end after any
// token; the token `optional` (a fraction) finding no digit after a literal reads as
// nothing and gives the literal's text back, so "10:00:00 +05:30" reads with
// "hh:mi:ss.fffffffff stzh:tzm". Other failures go to `fail(reason)`.
template <class ReadToken, class Fail>
bool read_items(Cursor &cursor, const Parsed &parsed, uint8_t optional, ReadToken &&read_token,
                Fail &&fail) {
    char reason[160];
    const char *before_literal = cursor.at;
    for (uint32_t i = 0; i < parsed.count && !cursor.ended(); ++i) {
        const Item &item = parsed.items[i];
        if (item.token == literal_item) {
            before_literal = cursor.at;
            if (!cursor.literal(item, parsed.text)) {
                std::snprintf(reason, sizeof reason, "'%.*s' was expected at position %zu",
                              static_cast<int>(std::min<uint32_t>(item.size, 40)),
                              parsed.text + item.offset, cursor.position());
                return fail(reason);
            }
            if (cursor.ended() && i + 1 < parsed.count) return fail("the text ends too early");
            continue;
        }
        const bool no_digit = cursor.ended() || *cursor.at < '0' || *cursor.at > '9';
        if (item.token == optional && no_digit && i > 0 &&
            parsed.items[i - 1].token == literal_item) {
            cursor.at = before_literal;
            continue;
        }
        if (!read_token(item)) return false;
    }
    if (cursor.ended()) return true;
    std::snprintf(reason, sizeof reason, "the text goes on after the format ends, at position %zu",
                  cursor.position());
    return fail(reason);
}

} // namespace qv::pattern
