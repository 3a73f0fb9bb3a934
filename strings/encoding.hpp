// encoding.hpp - what the encoding service (encoding.cpp) tells the counted strings beyond
// the public descriptor: the characters of a single-byte encoding's bytes, and whether an
// encoding carries a byte-order mark.
#pragma once

#include <array>
#include <cstdint>

#include "qv/encoding.h"

namespace qv {

// The tables of a single-byte encoding (one byte per character, terminator of one byte),
// made with its descriptor and kept for the process.
//
// Reading: the code point of each byte, -1 for a byte that is no character of it
// (0x80-0xFF in ASCII, the unassigned bytes of windows-1252 ...).
//
// Writing, when `writes_bytes`: the byte conversion writes for each code point the encoding
// holds (as ICU's converter writes it, fallbacks it takes included), and the one byte it
// writes for any other code point (its substitution character, which may differ for code
// points up to U+00FF). Without `writes_bytes` (a substitution of other than one byte) only
// the converter writes the encoding.
//
// Case: the byte ToUpper_SL / ToLower_SL leave for each byte, so that the character's case
// mapping, when the encoding holds it, is written as conversion writes it (a byte that is no
// character becomes the substitution byte). Valid when `writes_bytes`.
struct SingleByteTable {
    std::array<int32_t, 256> code_points;
    bool every_byte_a_character;
    bool writes_bytes;
    std::array<int16_t, 256> low_bytes;   // the byte of U+0000..U+00FF, -1 when not held
    std::array<uint32_t, 256> high_bytes; // (code point << 8) | byte above U+00FF, sorted
    int32_t high_count;
    uint8_t substitute_low;  // written for a code point up to U+00FF it does not hold
    uint8_t substitute_high; // and for any other
    std::array<uint8_t, 256> upper;
    std::array<uint8_t, 256> lower;

    // The byte of a code point the encoding holds, -1 for others.
    int32_t byte_of(int32_t code_point) const;
    // The byte conversion writes for a code point (non-characters as U+FFFD).
    uint8_t write(int32_t code_point) const;
};
// The table of a single-byte encoding; null for other encodings and for descriptors the
// service does not know.
const SingleByteTable *single_byte_table(const QV_ENCODING_T *encoding);

// True when two texts in `encoding` make one text by putting their bytes together. Not so
// for the generic "UTF-16" and "UTF-32" (a text may start with a byte-order mark naming its
// order; without one it is in the platform's order, and texts the library writes in them
// carry no mark) nor for stateful encodings such as ISO-2022-JP or UTF-7 (a text may end in
// a shifted state).
bool bytes_concatenate(const QV_ENCODING_T *encoding);

} // namespace qv
