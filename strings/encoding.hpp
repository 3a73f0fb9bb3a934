// encoding.hpp - what the encoding service (encoding.cpp) tells the counted strings beyond
// the public descriptor: the characters of a single-byte encoding's bytes, and whether an
// encoding carries a byte-order mark.
#pragma once

#include <array>
#include <cstdint>

#include "qv/encoding.h"

namespace qv {

// The code point of each byte of a single-byte encoding (one byte per character, terminator
// of one byte), -1 for a byte that is no character of it (0x80-0xFF in ASCII, the unassigned
// bytes of windows-1252 ...). Made with the descriptor, kept for the process.
struct SingleByteTable {
    std::array<int32_t, 256> code_points;
    bool every_byte_a_character;
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
