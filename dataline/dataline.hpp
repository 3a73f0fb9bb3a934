// dataline.hpp - the data-line module's name reading for the library's own readers: code
// points at a byte position, the name-character classes, and identifiers read as spans of
// the text (no copies) with the heap block that ParseIdentifier_L hands out built from them.
// What a name is: qv/dataline.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "qv/dataline.h"
#include "qv/encoding.h"

namespace qv::dataline {

// The code point at text[at] (at < text.size()) and the bytes it takes; an invalid
// sequence is U+FFFD over the bytes DecodeUTF8_L steps.
struct CodePoint {
    int32_t value;
    uint32_t size;
};
inline CodePoint code_point_at(std::string_view text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) return {lead, 1};
    const std::size_t left = text.size() - at;
    int32_t value = 0;
    const int32_t size =
        DecodeUTF8_L(text.data() + at, left > 4 ? 4 : static_cast<int32_t>(left), &value);
    return {value, static_cast<uint32_t>(size)};
}

bool may_start(int32_t code_point, int32_t name_class);
bool may_continue(int32_t code_point, int32_t name_class);

// One part of an identifier: the bytes [begin, end) of the text (inside the quotes for a
// quoted part) and the number of doubled quotes among them. The quote is '"' for a name;
// other readers reuse the record for texts closed by another character ("}").
struct NamePart {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t doubled = 0;
    bool quoted = false;
    char quote = '"';
    std::size_t size() const { return end - begin - doubled; } // bytes once unquoted
};

// Reads a text closed by `quote` (a doubled quote standing for one) whose first byte is
// text[begin]: fills `part` (begin, end before the closing quote, doubled, quoted, quote)
// and returns true, or false when the text ends first.
bool closed_part(std::string_view text, std::size_t begin, char quote, NamePart &part);

// Where the bare part that starts at `at` ends. In the expression class a ":" directly
// followed by "=" ends it.
std::size_t bare_part_end(std::string_view text, std::size_t at, int32_t name_class);

// The result of reading an identifier: `status` > 0 when one was read (then `end` is the
// position after it), else a QV_NAME_ code with `end` at the fault (the opening quote of an
// unclosed part, the position after a "." that no part follows, an empty quoted part).
struct Identifier {
    int32_t status;
    std::size_t end;
};

// Reads one part at `at`: a bare part when the code point there may start a name, a quoted
// part at '"'. Fills `part`; returns QV_NAME_NONE when neither starts there.
Identifier read_part(std::string_view text, std::size_t at, int32_t name_class, NamePart &part);

// Reads the identifier at `at`, calling each(const NamePart &) for every part in order.
template <class EachPart>
Identifier read_identifier(std::string_view text, std::size_t at, int32_t name_class,
                           EachPart &&each) {
    NamePart part;
    Identifier read = read_part(text, at, name_class, part);
    while (read.status > 0) {
        each(part);
        if (read.end >= text.size() || text[read.end] != '.') break;
        Identifier next = read_part(text, read.end + 1, name_class, part);
        if (next.status == QV_NAME_NONE) return {QV_NAME_PART_EXPECTED, read.end + 1};
        read = next;
    }
    return read;
}

// Copies the part's text, doubled quotes (part.quote) made single, to `out` (part.size() bytes, no
// terminator); returns the position after it.
char *copy_part(std::string_view text, const NamePart &part, char *out);

// One heap block: the parts' pointers, then each part's text and a terminator, then
// `extra` bytes for the caller (*extra_at points at them; may be null when extra is 0).
// Null after an allocation failure (ALLOC_FAILURE raised from `module`).
char **name_block(std::string_view text, std::span<const NamePart> parts, std::size_t extra,
                  char **extra_at, const char *module, int line);

} // namespace qv::dataline
