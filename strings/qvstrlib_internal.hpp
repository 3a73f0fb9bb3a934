// qvstrlib_internal.hpp - what the files of the counted-string module ("qvstrlib") share.
//
// A string argument is read as a View: its text, byte length (without terminator) and
// encoding (never null here). A View is handled on the byte path when its bytes stand for
// characters, and otherwise as an array of 32-bit code points (CodePoints) decoded from the
// text: UTF-8, UTF-16 and UTF-32 in the platform's byte order inline with the decoders of
// utf.hpp, single-byte encodings through their byte table, anything else through the
// encoding service. Results built as code points are encoded back into the string's
// encoding with encode_text.
//
// Invalid sequences read as U+FFFD on both paths. A result built from characters writes
// them as the encoding's substitution character, so the byte path copies a run of bytes
// only when every character in it is valid (clean).
//
// Heap blocks are held by qv::HeapArray / qv::HeapText, so a raise that unwinds through a
// member leaves nothing behind.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/heap.hpp"
#include "qv/encoding.h"
#include "qv/qvstrlib.h"
#include "strings/utf.hpp"

namespace qv::strlib {

// Test hook: when set, every member takes its code-point path.
extern bool force_code_point_path;

struct View {
    const char *text = nullptr; // null for a null record or text
    int32_t bytes = 0;
    const QV_ENCODING_T *encoding = nullptr;
    bool is_null() const { return text == nullptr; }
};

inline const QV_ENCODING_T *encoding_of(const QV_STRING_T *s) {
    return s != nullptr && s->encoding != nullptr ? s->encoding : PlatformEncoding_L();
}
inline int32_t terminator_width(const QV_ENCODING_T *encoding) {
    int32_t w = encoding != nullptr ? encoding->terminator_width : 1;
    return w == 2 || w == 4 ? w : 1;
}
// Bytes before the terminator of a text in `encoding`.
int32_t byte_length(const char *text, const QV_ENCODING_T *encoding);
View view_of(const QV_STRING_T *s);
View view_of(const char *text, const QV_ENCODING_T *encoding);

inline bool all_ascii(const char *text, int32_t n) {
    return utf::all_ascii(text, static_cast<size_t>(n));
}
// One byte per character, ASCII-compatible, one-byte terminator.
inline bool single_byte(const QV_ENCODING_T *e) {
    return e->max_bytes == 1 && e->min_bytes == 1 && e->ascii_compatible &&
           e->terminator_width == 1;
}
// UTF-8 itself (not ASCII, which is single-byte).
inline bool is_utf8(const QV_ENCODING_T *e) {
    return e->utf8_direct && e->max_bytes > 1;
}
// An ASCII byte in a text of this encoding is always one whole character, whatever the other
// bytes are: UTF-8 and the single-byte encodings.
inline bool ascii_byte_is_char(const QV_ENCODING_T *e) {
    return e->ascii_compatible && e->terminator_width == 1 && (single_byte(e) || is_utf8(e));
}
// True when each of the n bytes of a single-byte text is a character of its encoding (an
// ASCII text, a Latin-1 one, or one avoiding the bytes that are no character).
bool single_bytes_valid(const QV_ENCODING_T *e, const char *text, int32_t n);
// Bytes stand for characters (lengths, positions, byte matching and copying are exact).
inline bool bytes_are_chars(const View &v) {
    if (force_code_point_path) return false;
    const QV_ENCODING_T *e = v.encoding;
    if (!e->ascii_compatible || e->terminator_width != 1) return false;
    return single_byte(e) ? single_bytes_valid(e, v.text, v.bytes) : all_ascii(v.text, v.bytes);
}
// The text is ASCII: bytes are characters and byte properties are character properties.
inline bool ascii_bytes(const View &v) {
    if (force_code_point_path) return false;
    const QV_ENCODING_T *e = v.encoding;
    return e->ascii_compatible && e->terminator_width == 1 && all_ascii(v.text, v.bytes);
}
// `other` can be matched or copied byte for byte against `main` (already on the byte path).
inline bool bytes_compatible(const View &main, const View &other) {
    if (other.is_null()) return true;
    if (!bytes_are_chars(other)) return false;
    return other.encoding == main.encoding || all_ascii(other.text, other.bytes);
}

// Decoded code points of a text.
struct CodePoints {
    HeapArray<int32_t> data;
    int32_t count = 0;
};

// Decodes a view (a null view gives 0 code points). False when allocation failed.
bool decode(const View &v, CodePoints &out);
// A work array for `count` code points (at least one slot). Null when allocation failed.
int32_t *new_code_points(int64_t count);
// Heap text of the code points in `encoding`, ended by its terminator; *bytes (when given)
// its byte length. Null when allocation failed.
char *encode_text(const int32_t *code_points, int32_t count, const QV_ENCODING_T *encoding,
                  int32_t *bytes);
// True when `encoding` can hold code_point.
bool can_encode(const QV_ENCODING_T *encoding, int32_t code_point);
// Heap copy of n bytes ended by the encoding's terminator; null when allocation failed.
char *copy_bytes(const char *bytes, int32_t n, const QV_ENCODING_T *encoding);
// Replaces s's text (freeing the old one) with `text` when text is not null.
void adopt(QV_STRING_T *s, char *text);
// Stores a code-point result in s's own encoding, replacing its text. False on failure.
bool store_code_points(QV_STRING_T *s, const int32_t *cps, int32_t count);
// Sets `out` to the code points in `encoding`. False on failure (out null).
bool set_code_points(QV_STRING_T *out, const int32_t *cps, int32_t count,
                     const QV_ENCODING_T *encoding);

// Code points per character class; ASCII bytes through a table.
bool is_space(int32_t cp);
bool is_alpha(int32_t cp);
bool is_digit(int32_t cp);
bool is_alnum(int32_t cp);

// Characters of a view walked inline (UTF-8, UTF-16, UTF-32, single-byte): -1 for other
// encodings.
int32_t count_chars(const View &v);
// Byte offset of character n (0-based) of a view walked inline, or of the first character
// that would end beyond `limit` bytes, whichever comes first (the byte length when the text
// is shorter); -1 for other encodings. *clean, when given, becomes false when an invalid
// sequence lies before that offset.
int32_t walk_chars(const View &v, int32_t n, int32_t limit, bool *clean = nullptr);
inline int32_t walk_to_char(const View &v, int32_t n) {
    return walk_chars(v, n, v.bytes);
}

// Finds needle (m code points) in hay (n) from index `from`; -1 when absent.
int32_t find_code_points(const int32_t *hay, int32_t n, const int32_t *needle, int32_t m,
                         int32_t from);

} // namespace qv::strlib
