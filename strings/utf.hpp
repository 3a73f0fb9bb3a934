// utf.hpp - the one home of the Unicode transformation formats: decoding and encoding one
// character of UTF-8, UTF-16 and UTF-32, counting UTF-8 characters, and the ASCII scan.
// Header-only and allocation-free; every floor from strings/ up uses it (the exported
// DecodeUTF8_L, StrlenUTF8_L and IsASCIIString_L are thin faces over it).
//
// Invalid input follows ICU's rule for how much one U+FFFD covers: the longest start of a
// well-formed sequence, at least one unit (a stray trail byte, an overlong or surrogate
// form, a sequence cut short by a non-trail byte or by the end are each one character).
// Iterating a text with these decoders and converting it with ICU therefore give the same
// code points. A decoder never reads past the length it is given.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qv::utf {

inline constexpr int32_t replacement = 0xFFFD;
inline constexpr int32_t max_code_point = 0x10FFFF;

constexpr bool is_surrogate(int64_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}
constexpr bool is_lead_surrogate(uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool is_trail_surrogate(uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}
// A Unicode scalar value: a code point that is not a surrogate.
constexpr bool is_scalar(int64_t c) {
    return c >= 0 && c <= max_code_point && !is_surrogate(c);
}

// ---- UTF-8 ------------------------------------------------------------------------------

// Trail bytes a lead byte announces: 0 for ASCII, trail bytes and bytes that never lead
// (0xC0, 0xC1, 0xF5-0xFF).
inline constexpr std::array<uint8_t, 256> trail_bytes = [] {
    std::array<uint8_t, 256> table{};
    for (int b = 0xC2; b <= 0xDF; ++b) table[b] = 1;
    for (int b = 0xE0; b <= 0xEF; ++b) table[b] = 2;
    for (int b = 0xF0; b <= 0xF4; ++b) table[b] = 3;
    return table;
}();
static_assert(trail_bytes[0x41] == 0 && trail_bytes[0x80] == 0 && trail_bytes[0xC1] == 0 &&
              trail_bytes[0xC2] == 1 && trail_bytes[0xE0] == 2 && trail_bytes[0xF4] == 3 &&
              trail_bytes[0xF5] == 0);

constexpr bool is_trail_byte(uint8_t b) {
    return (b & 0xC0) == 0x80;
}

// Which second bytes may follow a lead byte, so that overlong forms, surrogates and values
// beyond U+10FFFF are refused at once: bit (second >> 5) of lead3_seconds[lead & 0xF] for
// the three-byte leads (0xA0-0xBF after 0xE0, 0x80-0x9F after 0xED, 0x80-0xBF otherwise),
// bit (lead - 0xF0) of lead4_seconds[second >> 4] for the four-byte leads (0x90-0xBF after
// 0xF0, 0x80-0x8F after 0xF4, 0x80-0xBF otherwise). Later trail bytes are 0x80-0xBF.
inline constexpr uint8_t lead3_seconds[16] = {0x20, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30,
                                              0x30, 0x30, 0x30, 0x30, 0x30, 0x10, 0x30, 0x30};
inline constexpr uint8_t lead4_seconds[16] = {0,    0,    0,    0,    0, 0, 0, 0,
                                              0x1E, 0x0F, 0x0F, 0x0F, 0, 0, 0, 0};

// The six low bits of a trail byte, or more than 0x3F for any other byte.
constexpr uint32_t trail_bits(uint8_t b) {
    return static_cast<uint8_t>(b - 0x80);
}

// Decodes the character at p (length >= 1 bytes available). Stores its code point, or
// `invalid` for an invalid sequence, and returns the bytes it takes (1 to 4).
constexpr int32_t decode_utf8(const uint8_t *p, int32_t length, int32_t &code_point,
                              int32_t invalid = replacement) {
    int32_t c = p[0];
    if (c < 0x80) {
        code_point = c;
        return 1;
    }
    code_point = invalid;
    if (length < 2) return 1;
    const uint8_t second = p[1];
    if (c < 0xE0) {
        if (c < 0xC2 || trail_bits(second) > 0x3F) return 1;
        code_point = ((c & 0x1F) << 6) | (second & 0x3F);
        return 2;
    }
    int32_t used = 2; // lead and second byte, valid so far
    if (c < 0xF0) {
        c &= 0x0F;
        if ((lead3_seconds[c] & (1 << (second >> 5))) == 0) return 1;
        c = (c << 6) | (second & 0x3F);
    } else {
        c -= 0xF0;
        if (c > 4 || (lead4_seconds[second >> 4] & (1 << c)) == 0) return 1;
        c = (c << 6) | (second & 0x3F);
        if (length < 3 || trail_bits(p[2]) > 0x3F) return 2; // cut short
        c = (c << 6) | static_cast<int32_t>(trail_bits(p[2]));
        used = 3;
    }
    if (length <= used || trail_bits(p[used]) > 0x3F) return used; // cut short
    code_point = (c << 6) | static_cast<int32_t>(trail_bits(p[used]));
    return used + 1;
}

inline int32_t decode_utf8(const char *p, int32_t length, int32_t &code_point,
                           int32_t invalid = replacement) {
    return decode_utf8(reinterpret_cast<const uint8_t *>(p), length, code_point, invalid);
}

// Bytes the character at p takes (length >= 1).
inline int32_t utf8_step(const char *p, int32_t length) {
    if (static_cast<uint8_t>(*p) < 0x80) return 1;
    int32_t ignored = 0;
    return decode_utf8(p, length, ignored);
}

// Bytes UTF-8 takes for a scalar value.
constexpr int32_t utf8_length(int32_t c) {
    return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
}

// Writes a scalar value; returns the bytes written (1 to 4).
constexpr int32_t encode_utf8(int32_t c, uint8_t *out) {
    if (c < 0x80) {
        out[0] = static_cast<uint8_t>(c);
        return 1;
    }
    const int32_t length = utf8_length(c);
    constexpr uint8_t lead_marks[5] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (int32_t i = length - 1; i > 0; --i, c >>= 6)
        out[i] = static_cast<uint8_t>(0x80 | (c & 0x3F));
    out[0] = static_cast<uint8_t>(lead_marks[length] | c);
    return length;
}

inline int32_t encode_utf8(int32_t c, char *out) {
    return encode_utf8(c, reinterpret_cast<uint8_t *>(out));
}

// ---- The ASCII scan -----------------------------------------------------------------------

// True when each of the n bytes is below 0x80. Eight bytes are read at a time and OR-ed
// together, looked at every 32 bytes; the last word overlaps the ones before it, so short
// texts cost a few loads.
inline bool all_ascii(const char *text, std::size_t n) {
    constexpr uint64_t high = 0x8080808080808080ULL;
    auto word = [text](std::size_t at) {
        uint64_t w;
        std::memcpy(&w, text + at, 8);
        return w;
    };
    if (n < 8) {
        unsigned seen = 0;
        for (std::size_t i = 0; i < n; ++i) seen |= static_cast<uint8_t>(text[i]);
        return (seen & 0x80) == 0;
    }
    uint64_t seen = word(n - 8);
    std::size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        seen |= word(i) | word(i + 8) | word(i + 16) | word(i + 24);
        if ((seen & high) != 0) return false;
    }
    for (; i + 8 <= n; i += 8) seen |= word(i);
    return (seen & high) == 0;
}

// Characters in `bytes` bytes of UTF-8, one per invalid sequence; ASCII eight bytes at a time.
inline int32_t count_utf8(const char *text, int32_t bytes) {
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    int32_t i = 0, n = 0;
    while (i < bytes) {
        if (i + 8 <= bytes) {
            uint64_t word;
            std::memcpy(&word, p + i, 8);
            if ((word & 0x8080808080808080ULL) == 0) {
                i += 8;
                n += 8;
                continue;
            }
        }
        int32_t c = 0;
        i += p[i] < 0x80 ? 1 : decode_utf8(p + i, bytes - i, c);
        ++n;
    }
    return n;
}

// The bytes of the character at p (left >= 1 bytes available) when it is valid and not
// U+FFFD, else 0.
constexpr size_t clean_char_length(const uint8_t *p, size_t left) {
    const uint8_t c = p[0];
    if (c < 0x80) return 1;
    if (c < 0xE0) return c >= 0xC2 && left >= 2 && trail_bits(p[1]) <= 0x3F ? 2 : 0;
    if (c < 0xF0)
        return left >= 3 && (lead3_seconds[c & 0x0F] & (1 << (p[1] >> 5))) != 0 &&
                       trail_bits(p[2]) <= 0x3F && !(c == 0xEF && p[1] == 0xBF && p[2] == 0xBD)
                   ? 3
                   : 0;
    return c <= 0xF4 && left >= 4 && (lead4_seconds[p[1] >> 4] & (1 << (c - 0xF0))) != 0 &&
                   trail_bits(p[2]) <= 0x3F && trail_bits(p[3]) <= 0x3F
               ? 4
               : 0;
}

// True when the n bytes are valid UTF-8 holding no U+FFFD: such bytes occur in a UTF-8 text
// exactly where their characters do (an invalid sequence of the text reads as U+FFFD, which
// they cannot match, and a valid character has one encoding).
inline bool is_clean_utf8(const char *text, size_t n) {
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    for (size_t i = 0, step = 0; i < n; i += step)
        if ((step = clean_char_length(p + i, n - i)) == 0) return false;
    return true;
}

// ---- UTF-16 and UTF-32, in either byte order ---------------------------------------------

template <int Width, bool Little>
constexpr uint32_t read_unit(const uint8_t *p) {
    uint32_t value = 0;
    for (int i = 0; i < Width; ++i) value |= uint32_t{p[Little ? i : Width - 1 - i]} << (8 * i);
    return value;
}

template <int Width, bool Little>
constexpr void write_unit(uint32_t value, uint8_t *out) {
    for (int i = 0; i < Width; ++i)
        out[Little ? i : Width - 1 - i] = static_cast<uint8_t>(value >> (8 * i));
}

// Decodes one UTF-16 character from `length` bytes (>= 1); a lone surrogate, or a final odd
// byte, is one invalid character (`invalid` stored). Returns the bytes taken.
template <bool Little>
constexpr int32_t decode_utf16(const uint8_t *p, int32_t length, int32_t &code_point,
                               int32_t invalid = replacement) {
    code_point = invalid;
    if (length < 2) return length;
    const uint32_t unit = read_unit<2, Little>(p);
    if (!is_surrogate(unit)) {
        code_point = static_cast<int32_t>(unit);
        return 2;
    }
    if (!is_lead_surrogate(unit)) return 2;
    if (length < 4) return length; // a lead cut off by the end takes what follows it
    const uint32_t trail = read_unit<2, Little>(p + 2);
    if (!is_trail_surrogate(trail)) return 2;
    code_point = static_cast<int32_t>(0x10000 + ((unit - 0xD800) << 10) + (trail - 0xDC00));
    return 4;
}

// Writes a scalar value as one or two units; returns the bytes written (2 or 4).
template <bool Little>
constexpr int32_t encode_utf16(int32_t c, uint8_t *out) {
    if (c < 0x10000) {
        write_unit<2, Little>(static_cast<uint32_t>(c), out);
        return 2;
    }
    write_unit<2, Little>(static_cast<uint32_t>(0xD800 + ((c - 0x10000) >> 10)), out);
    write_unit<2, Little>(static_cast<uint32_t>(0xDC00 + (c & 0x3FF)), out + 2);
    return 4;
}

// Decodes one UTF-32 character from `length` bytes (>= 1); a surrogate, a value beyond
// U+10FFFF or a short tail is one invalid character. Returns the bytes taken.
template <bool Little>
constexpr int32_t decode_utf32(const uint8_t *p, int32_t length, int32_t &code_point,
                               int32_t invalid = replacement) {
    code_point = invalid;
    if (length < 4) return length;
    const uint32_t unit = read_unit<4, Little>(p);
    if (is_scalar(unit)) code_point = static_cast<int32_t>(unit);
    return 4;
}

template <bool Little>
constexpr int32_t encode_utf32(int32_t c, uint8_t *out) {
    write_unit<4, Little>(static_cast<uint32_t>(c), out);
    return 4;
}

// ---- Compile-time checks ------------------------------------------------------------------

namespace check {
constexpr bool second_byte_allowed(int lead, int second) {
    if (lead >= 0xE0 && lead <= 0xEF)
        return (lead3_seconds[lead & 0xF] & (1 << (second >> 5))) != 0;
    return (lead4_seconds[second >> 4] & (1 << (lead - 0xF0))) != 0;
}
static_assert(second_byte_allowed(0xE0, 0xA0) && !second_byte_allowed(0xE0, 0x9F) &&
              second_byte_allowed(0xED, 0x9F) && !second_byte_allowed(0xED, 0xA0) &&
              second_byte_allowed(0xF0, 0x90) && !second_byte_allowed(0xF0, 0x8F) &&
              second_byte_allowed(0xF4, 0x8F) && !second_byte_allowed(0xF4, 0x90) &&
              !second_byte_allowed(0xE1, 0xC0) && !second_byte_allowed(0xF1, 0x7F));
constexpr int32_t decoded(std::array<uint8_t, 4> bytes, int32_t length) {
    int32_t c = 0;
    return decode_utf8(bytes.data(), length, c) == length ? c : -1;
}
static_assert(decoded({0xE2, 0x82, 0xAC, 0}, 3) == 0x20AC);
static_assert(decoded({0xF0, 0x9D, 0x84, 0x9E}, 4) == 0x1D11E);
static_assert(decoded({0xC0, 0xAF, 0, 0}, 1) == replacement);    // overlong: one byte
static_assert(decoded({0xE2, 0x82, 0x41, 0}, 2) == replacement); // cut short: two bytes
constexpr bool round_trips(int32_t c) {
    std::array<uint8_t, 4> bytes{};
    const int32_t length = encode_utf8(c, bytes.data());
    return length == utf8_length(c) && decoded(bytes, length) == c;
}
static_assert(round_trips(0x7F) && round_trips(0x80) && round_trips(0x7FF) && round_trips(0x800) &&
              round_trips(0xFFFF) && round_trips(0x10000) && round_trips(max_code_point));
} // namespace check

} // namespace qv::utf
