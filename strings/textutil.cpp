// textutil.cpp - general routines on terminated byte texts: wildcard matching, soundex,
// padding, trimming, translation, case copying, quote recognition, the checksum fold and
// UUIDs.
//
// The plain forms treat one byte as one character; the ...8 forms step over UTF-8
// characters with the decoder of utf.hpp (an invalid sequence is one character), so both
// give the same answers on ASCII text. Letter case here is ASCII only.
#include <array>
#include <bit>
#include <cstring>
#include <random>

#include <sys/random.h>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "core/raise.hpp"
#include "qv/encoding.h"
#include "qv/textutil.h"
#include "strings/utf.hpp"

namespace {

const char *or_empty(const char *text) {
    return text != nullptr ? text : "";
}

bool is_ascii_upper(unsigned char c) {
    return c >= 'A' && c <= 'Z';
}
bool is_ascii_lower(unsigned char c) {
    return c >= 'a' && c <= 'z';
}
bool is_ascii_letter(unsigned char c) {
    return is_ascii_upper(c) || is_ascii_lower(c);
}
char to_ascii_upper(char c) {
    return is_ascii_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}
char to_ascii_lower(char c) {
    return is_ascii_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

// White space of the byte forms: the ASCII members of Unicode's White_Space.
bool is_byte_space(unsigned char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Bytes taken by the character at `text` (at least 1 unless at the terminator), and its
// code point (U+FFFD for an invalid sequence). The terminator is never a trail byte, so a
// bound of 4 cannot read past it.
size_t utf8_code_point(const char *text, int32_t *code_point) {
    *code_point = 0;
    if (*text == '\0') return 0;
    const auto length = static_cast<int32_t>(strnlen(text, 4));
    return static_cast<size_t>(qv::utf::decode_utf8(text, length, *code_point));
}

size_t utf8_step(const char *text) {
    int32_t ignored;
    return static_cast<unsigned char>(*text) < 0x80 ? (*text != '\0')
                                                    : utf8_code_point(text, &ignored);
}

// ---------------------------------------------------------------------------------------
// Wildcard matching
// ---------------------------------------------------------------------------------------

// LIKE matching without recursion: on a mismatch the matcher goes back to the last "%" seen
// and lets it swallow more text. Each "%" only moves forward, so the work is at most (text
// length x pattern length) and usually linear. A character is one byte in the byte form and
// one UTF-8 character in the UTF-8 form, where characters compare by code point: every
// invalid sequence (one character, as DecodeUTF8_L steps over it) reads as U+FFFD.
//
// Literal runs between wildcards are compared as a whole with memcmp. In the UTF-8 form,
// equal bytes match when they end where a character of the text ends (or the run is clean:
// valid UTF-8 holding no U+FFFD, whose last character is whole); bytes that first differ in
// two ASCII bytes do not match; otherwise the run is compared character by character, unless
// it is clean (an invalid sequence of the text reads as U+FFFD, which equals none of its
// characters). After a "%", the matcher looks for the next place where the literal run that
// follows it can match (memchr on its first byte) instead of trying every character in
// between; this is exact when the run's first character is valid and not U+FFFD, since that
// character is the same bytes wherever it occurs. Other runs are looked for character by
// character.

constexpr char kLikeSpecials[] = "%_\\";

template <bool Utf8>
size_t like_step(const char *t, const char *end) {
    if (!Utf8 || static_cast<unsigned char>(*t) < 0x80) return 1;
    return static_cast<size_t>(
        qv::utf::utf8_step(t, static_cast<int32_t>(std::min<ptrdiff_t>(end - t, 4))));
}

// The literal that a pattern position starts with: a run of plain bytes, or one escaped
// character. `bytes` is 0 when the position holds "_"; `used` counts the pattern bytes
// taken, the escape included.
struct Literal {
    const char *bytes_at = nullptr;
    size_t bytes = 0;
    size_t used = 0;
};

template <bool Utf8>
[[gnu::always_inline]] inline Literal literal_at(const char *p) {
    if (*p == '_') return {p, 0, 0};
    if (*p != '\\') {
        size_t n = std::strcspn(p, kLikeSpecials);
        return {p, n, n};
    }
    const char *escaped = p[1] != '\0' ? p + 1 : p; // a final "\" stands for itself
    size_t n = Utf8 ? utf8_step(escaped) : 1;
    return {escaped, n, static_cast<size_t>(escaped - p) + n};
}

bool is_clean(const Literal &run) {
    return qv::utf::is_clean_utf8(run.bytes_at, run.bytes);
}

// The characters of [a, a + an) against the text at t, one by one by code point; where
// the text after them starts, or null.
const char *match_chars(const char *a, size_t an, const char *t, const char *end) {
    for (const char *stop = a + an; a < stop;) {
        if (t == end) return nullptr;
        int32_t ca = 0, ct = 0;
        a += qv::utf::decode_utf8(a, static_cast<int32_t>(stop - a), ca);
        t += qv::utf::decode_utf8(t, static_cast<int32_t>(end - t), ct);
        if (ca != ct) return nullptr;
    }
    return t;
}

// True when no character of the text goes on into `at` (the characters before it being whole
// from a boundary on): `at` holds no trail byte. A stray trail byte there says no too, and
// the caller compares character by character.
bool ends_character(const char *at, const char *end) {
    return at == end || !qv::utf::is_trail_byte(static_cast<uint8_t>(*at));
}

// How many of the first n bytes of a and b are equal: eight at a time, then one by one.
size_t common_prefix(const char *a, const char *b, size_t n) {
    size_t k = 0;
    for (; k + 8 <= n; k += 8) {
        uint64_t x, y;
        std::memcpy(&x, a + k, 8);
        std::memcpy(&y, b + k, 8);
        if (x != y) {
            if constexpr (std::endian::native == std::endian::little)
                return k + static_cast<size_t>(std::countr_zero(x ^ y)) / 8;
            break;
        }
    }
    while (k < n && a[k] == b[k]) ++k;
    return k;
}

// The literal `run` against the text at t (a character boundary): where the text after it
// starts, or null.
template <bool Utf8>
[[gnu::always_inline]] inline const char *match_literal(const char *t, const char *end,
                                                        const Literal &run) {
    const size_t n = run.bytes, limit = std::min(n, static_cast<size_t>(end - t));
    const size_t k = common_prefix(t, run.bytes_at, limit);
    if (k == n && (!Utf8 || ends_character(t + n, end))) return t + n;
    if (!Utf8) return nullptr;
    if (k < limit && (static_cast<uint8_t>(t[k]) | static_cast<uint8_t>(run.bytes_at[k])) < 0x80)
        return nullptr; // no character goes on into two different ASCII bytes
    if (is_clean(run)) return k == n ? t + n : nullptr; // its last character is whole
    return match_chars(run.bytes_at, n, t, end);
}

// True when the first character of a run is valid and not U+FFFD: it then has the same
// bytes wherever it occurs in a text.
bool starts_exactly(const Literal &run) {
    return qv::utf::clean_char_length(reinterpret_cast<const uint8_t *>(run.bytes_at), run.bytes) >
           0;
}

// Where `run` (not empty) first matches at or after t: its start, and in *after where the
// text after it starts; null when nowhere. `exact_start`: starts_exactly(run), or the byte
// form.
template <bool Utf8>
const char *find_run(const char *t, const char *end, const Literal &run, bool exact_start,
                     const char **after) {
    if (!exact_start) {
        for (; t < end; t += like_step<Utf8>(t, end))
            if ((*after = match_literal<Utf8>(t, end, run)) != nullptr) return t;
        return nullptr;
    }
    const auto first = static_cast<unsigned char>(run.bytes_at[0]);
    while (t < end) {
        const void *hit = std::memchr(t, first, static_cast<size_t>(end - t));
        if (hit == nullptr) return nullptr;
        t = static_cast<const char *>(hit);
        if ((*after = match_literal<Utf8>(t, end, run)) != nullptr) return t;
        ++t;
    }
    return nullptr;
}

// Patterns without "_" or "\" whose only "%"s end them: an exact or a prefix comparison.
// Returns 1 or 0 when the comparison decides, -1 when the matcher must: a pattern of another
// kind, or in the UTF-8 form a prefix that is not clean.
template <bool Utf8>
int like_by_comparison(const char *text, const char *pattern) {
    if (pattern[0] == '%' && pattern[1] != '%' && pattern[1] != '\0') return -1; // "%x...": no
    size_t n = std::strcspn(pattern, kLikeSpecials);
    bool exact = pattern[n] == '\0';
    if (!exact && (pattern[n] != '%' || pattern[n + std::strspn(pattern + n, "%")] != '\0'))
        return -1;
    if (Utf8 && !qv::utf::is_clean_utf8(pattern, n)) return -1;
    return exact ? std::strcmp(text, pattern) == 0 : std::strncmp(text, pattern, n) == 0;
}

template <bool Utf8>
bool like_match(const char *text, const char *pattern) {
    int compared = like_by_comparison<Utf8>(text, pattern);
    if (compared >= 0) return compared == 1;
    const char *t = text;
    const char *end = text + std::strlen(text);
    const char *p = pattern;
    const char *star_pattern = nullptr; // pattern just after the last "%" run
    const char *star_text = nullptr;    // where that "%" currently stops swallowing
    Literal star_run;                   // the literal that follows it
    bool star_exact = true;             // starts_exactly(star_run), or the byte form
    // Lets the last "%" swallow text up to the next place where what follows it can start,
    // beginning at `from`; false when there is none.
    auto resume_after_star = [&](const char *from) {
        if (star_run.bytes == 0) {
            star_text = from;
            t = from;
            p = star_pattern;
            return true;
        }
        star_text = find_run<Utf8>(from, end, star_run, star_exact, &t);
        if (star_text == nullptr) return false;
        p = star_pattern + star_run.used;
        return true;
    };
    for (;;) {
        char c = *p;
        if (c == '%') {
            while (*p == '%') ++p;
            if (*p == '\0') return true; // a trailing "%" takes the rest
            star_pattern = p;
            star_run = literal_at<Utf8>(p);
            star_exact = !Utf8 || starts_exactly(star_run);
            if (!resume_after_star(t)) return false;
            continue;
        }
        if (c == '\0') {
            if (t == end) return true;
        } else if (t == end) {
            return false; // only "%"s could still match nothing, and they were handled above
        } else if (c == '_') {
            t += like_step<Utf8>(t, end);
            ++p;
            continue;
        } else {
            Literal run = literal_at<Utf8>(p);
            if (const char *after = match_literal<Utf8>(t, end, run)) {
                t = after;
                p += run.used;
                continue;
            }
        }
        if (star_pattern == nullptr || star_text == end) return false;
        if (!resume_after_star(star_text + like_step<Utf8>(star_text, end))) return false;
    }
}

size_t byte_step(const char *text) {
    return *text != '\0' ? 1 : 0;
}

// ---------------------------------------------------------------------------------------
// Soundex
// ---------------------------------------------------------------------------------------

// Digit of each letter A-Z; '0' for vowels (they separate equal digits) and '-' for H and W
// (they do not).
constexpr std::array<char, 26> soundex_digits = {
    '0', '1', '2', '3', '0', '1', '2', '-', '0', '2', '2', '4', '5',
    '5', '0', '1', '2', '6', '2', '3', '0', '1', '-', '2', '0', '2',
};
static_assert(soundex_digits['R' - 'A'] == '6' && soundex_digits['W' - 'A'] == '-' &&
              soundex_digits['Z' - 'A'] == '2');

char soundex_digit(unsigned char letter) {
    return soundex_digits[to_ascii_upper(letter) - 'A'];
}

// ---------------------------------------------------------------------------------------
// Padding
// ---------------------------------------------------------------------------------------

// Byte length of the first `count` characters of text, or of all when it has fewer;
// *characters receives how many were counted.
template <class Step>
size_t prefix_bytes(const char *text, int64_t count, int64_t *characters, Step step) {
    size_t bytes = 0;
    int64_t seen = 0;
    for (; seen < count && text[bytes] != '\0'; ++seen) bytes += step(text + bytes);
    *characters = seen;
    return bytes;
}

// Builds the padded text; null when allocation fails (ALLOC_FAILURE raised).
template <class Step>
char *pad_text(const char *text, int32_t length, const char *pad, int32_t at_left, Step step) {
    text = or_empty(text);
    if (pad == nullptr || *pad == '\0') pad = " ";
    if (length <= 0) return QV_STRDUP("");
    int64_t kept = 0;
    size_t kept_bytes = prefix_bytes(text, length, &kept, step);
    int64_t missing = length - kept;
    // Bytes of the padding: whole repetitions of pad, then a prefix of it.
    int64_t pad_characters = 0;
    size_t pad_bytes_all = prefix_bytes(pad, INT64_MAX, &pad_characters, step);
    int64_t whole = missing / pad_characters;
    int64_t part = 0;
    size_t part_bytes = prefix_bytes(pad, missing % pad_characters, &part, step);
    size_t padding = static_cast<size_t>(whole) * pad_bytes_all + part_bytes;
    auto *out = static_cast<char *>(QV_MALLOC(kept_bytes + padding + 1));
    if (out == nullptr) return nullptr;
    char *at = out;
    auto put_padding = [&] {
        for (int64_t i = 0; i < whole; ++i, at += pad_bytes_all)
            std::memcpy(at, pad, pad_bytes_all);
        std::memcpy(at, pad, part_bytes);
        at += part_bytes;
    };
    if (at_left) put_padding();
    std::memcpy(at, text, kept_bytes);
    at += kept_bytes;
    if (!at_left) put_padding();
    *at = '\0';
    return out;
}

// ---------------------------------------------------------------------------------------
// Trimming
// ---------------------------------------------------------------------------------------

// True when the UTF-8 character [c, c+length) is one of the characters of `set`.
bool in_utf8_set(const char *c, size_t length, const char *set) {
    for (const char *s = set; *s != '\0';) {
        size_t step = utf8_step(s);
        if (step == length && std::memcmp(s, c, length) == 0) return true;
        s += step;
    }
    return false;
}

// Trims whatever `trimmed(position, &bytes)` accepts, stepping character by character.
template <class Trimmed>
char *trim_characters(char *text, int32_t where, Trimmed trimmed) {
    if (text == nullptr) return nullptr;
    size_t start = 0;
    size_t length = std::strlen(text);
    size_t step = 0;
    if (where & QV_TRIM_LEFT)
        while (start < length && trimmed(text + start, &step)) start += step;
    size_t end = length;
    if (where & QV_TRIM_RIGHT) {
        // Walk forward: the end is just after the last character that stays.
        end = start;
        for (size_t at = start; at < length; at += step)
            if (!trimmed(text + at, &step)) end = at + step;
    }
    std::memmove(text, text + start, end - start);
    text[end - start] = '\0';
    return text;
}

// ---------------------------------------------------------------------------------------
// Checksum fold: the reflected CRC-32 table, sliced eight bytes at a time, and carry-less
// multiplication where the processor has it (both bit-identical to the byte-wise fold)
// ---------------------------------------------------------------------------------------

using CrcTables = std::array<std::array<uint32_t, 256>, 8>;

constexpr CrcTables make_crc_tables() {
    CrcTables tables{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        tables[0][i] = c;
    }
    // tables[k][i]: the fold of byte i followed by k zero bytes.
    for (size_t k = 1; k < 8; ++k)
        for (size_t i = 0; i < 256; ++i)
            tables[k][i] = (tables[k - 1][i] >> 8) ^ tables[0][tables[k - 1][i] & 0xFF];
    return tables;
}
constexpr CrcTables crc_tables = make_crc_tables();
static_assert(crc_tables[0][1] == 0x77073096u && crc_tables[0][255] == 0x2D02EF8Du);

uint32_t fold_bytewise(uint32_t crc, const uint8_t *p, size_t length) {
    for (size_t i = 0; i < length; ++i) crc = crc_tables[0][(p[i] ^ crc) & 0xFF] ^ (crc >> 8);
    return crc;
}

uint32_t fold_sliced(uint32_t crc, const uint8_t *p, size_t length) {
    if constexpr (std::endian::native == std::endian::little) {
        const auto &t = crc_tables;
        for (; length >= 8; p += 8, length -= 8) {
            uint64_t word;
            std::memcpy(&word, p, 8);
            word ^= crc;
            crc = t[7][word & 0xFF] ^ t[6][(word >> 8) & 0xFF] ^ t[5][(word >> 16) & 0xFF] ^
                  t[4][(word >> 24) & 0xFF] ^ t[3][(word >> 32) & 0xFF] ^
                  t[2][(word >> 40) & 0xFF] ^ t[1][(word >> 48) & 0xFF] ^ t[0][word >> 56];
        }
    }
    return fold_bytewise(crc, p, length);
}

#if defined(__x86_64__)
// Carry-less multiplication folding (the method of Intel's "Fast CRC Computation for
// Generic Polynomials Using PCLMULQDQ"): four 128-bit lanes are folded 64 bytes at a
// time, then into one lane, then reduced to 32 bits with a Barrett step. The constants are
// powers of x modulo the bit-reflected polynomial; `length` is a multiple of 16, >= 64.
#define QV_CLMUL_TARGET __attribute__((target("pclmul,sse4.1")))

QV_CLMUL_TARGET inline __m128i load(const uint8_t *at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
}

// x * k (x's low half times k's low, x's high half times k's high) plus `next`.
QV_CLMUL_TARGET inline __m128i fold_lane(__m128i x, __m128i k, __m128i next) {
    __m128i low = _mm_clmulepi64_si128(x, k, 0x00);
    __m128i high = _mm_clmulepi64_si128(x, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(high, low), next);
}

QV_CLMUL_TARGET uint32_t fold_clmul(uint32_t crc, const uint8_t *p, size_t length) {
    const __m128i k1k2 = _mm_set_epi64x(0x01c6e41596, 0x0154442bd4);
    const __m128i k3k4 = _mm_set_epi64x(0x00ccaa009e, 0x01751997d0);
    const __m128i k5 = _mm_set_epi64x(0, 0x0163cd6124);
    const __m128i barrett = _mm_set_epi64x(0x01f7011641, 0x01db710641);
    __m128i x1 = _mm_xor_si128(load(p), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x2 = load(p + 16), x3 = load(p + 32), x4 = load(p + 48);
    for (p += 64, length -= 64; length >= 64; p += 64, length -= 64) {
        x1 = fold_lane(x1, k1k2, load(p));
        x2 = fold_lane(x2, k1k2, load(p + 16));
        x3 = fold_lane(x3, k1k2, load(p + 32));
        x4 = fold_lane(x4, k1k2, load(p + 48));
    }
    x1 = fold_lane(x1, k3k4, x2);
    x1 = fold_lane(x1, k3k4, x3);
    x1 = fold_lane(x1, k3k4, x4);
    for (; length >= 16; p += 16, length -= 16) x1 = fold_lane(x1, k3k4, load(p));
    // 128 bits to 64.
    const __m128i low32 = _mm_setr_epi32(~0, 0, ~0, 0);
    __m128i x = _mm_xor_si128(_mm_srli_si128(x1, 8), _mm_clmulepi64_si128(x1, k3k4, 0x10));
    x = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(x, low32), k5, 0x00),
                      _mm_srli_si128(x, 4));
    // Barrett reduction to 32 bits.
    __m128i t = _mm_clmulepi64_si128(_mm_and_si128(x, low32), barrett, 0x10);
    t = _mm_clmulepi64_si128(_mm_and_si128(t, low32), barrett, 0x00);
    return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(x, t), 1));
}

bool has_clmul() {
    static const bool supported =
        __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return supported;
}
#endif

uint32_t fold(uint32_t crc, const uint8_t *p, size_t length) {
#if defined(__x86_64__)
    if (length >= 64 && has_clmul()) {
        size_t bulk = length & ~static_cast<size_t>(15);
        crc = fold_clmul(crc, p, bulk);
        p += bulk;
        length -= bulk;
    }
#endif
    return fold_sliced(crc, p, length);
}

// ---------------------------------------------------------------------------------------
// UUIDs
// ---------------------------------------------------------------------------------------

void random_bytes(uint8_t *out, size_t count) {
    ssize_t got = getrandom(out, count, 0);
    if (got == static_cast<ssize_t>(count)) return;
    // No kernel source of randomness: fall back to a generator seeded once.
    thread_local std::mt19937_64 generator{std::random_device{}()};
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(generator() >> 56);
}

} // namespace

extern "C" uint8_t Is_Like_L(const char *text, const char *pattern) {
    if (pattern == nullptr) return 1;
    return like_match<false>(or_empty(text), pattern) ? 1 : 0;
}

extern "C" uint8_t Is_Like8_L(const char *text, const char *pattern) {
    if (pattern == nullptr) return 1;
    return like_match<true>(or_empty(text), pattern) ? 1 : 0;
}

// American Soundex: the first letter, then the digits of the following letters, where a
// letter with the digit of the letter before it (H and W between them do not count, a
// vowel does) adds nothing; cut or padded with zeros to three digits. Characters other than
// ASCII letters are skipped.
extern "C" char *Soundex_L(const char *text, char *out) {
    if (out == nullptr) return nullptr;
    out[0] = '\0';
    const auto *p = reinterpret_cast<const unsigned char *>(or_empty(text));
    while (*p != '\0' && !is_ascii_letter(*p)) ++p;
    if (*p == '\0') return out;
    out[0] = to_ascii_upper(static_cast<char>(*p));
    char previous = soundex_digit(*p);
    int digits = 0;
    for (++p; *p != '\0' && digits < 3; ++p) {
        if (!is_ascii_letter(*p)) continue;
        char digit = soundex_digit(*p);
        if (digit == '-') continue;
        if (digit != '0' && digit != previous) out[1 + digits++] = digit;
        previous = digit;
    }
    while (digits < 3) out[1 + digits++] = '0';
    out[4] = '\0';
    return out;
}

extern "C" char *Pad_L(const char *text, int32_t length, const char *pad, int32_t at_left) {
    return pad_text(text, length, pad, at_left, byte_step);
}

extern "C" char *Pad8_L(const char *text, int32_t length, const char *pad, int32_t at_left) {
    return pad_text(text, length, pad, at_left, utf8_step);
}

extern "C" char *TrimUtil_L(char *text, const char *set, int32_t where) {
    return trim_characters(text, where, [set](const char *c, size_t *step) {
        *step = 1;
        if (set == nullptr) return is_byte_space(static_cast<unsigned char>(*c));
        return std::strchr(set, *c) != nullptr;
    });
}

extern "C" char *TrimUtil8_L(char *text, const char *set, int32_t where) {
    return trim_characters(text, where, [set](const char *c, size_t *step) {
        int32_t code_point;
        *step = utf8_code_point(c, &code_point);
        if (set == nullptr) return IsSpaceCodePoint_L(code_point) != 0;
        return in_utf8_set(c, *step, set);
    });
}

extern "C" char *RTrim_L(char *text) {
    return TrimUtil_L(text, nullptr, QV_TRIM_RIGHT);
}

extern "C" char *Translate_L(char *text, const char *from, const char *to) {
    if (text == nullptr || from == nullptr) return text;
    to = or_empty(to);
    // Per byte: -1 keeps it, -2 removes it, else the byte it becomes. The first mention of
    // a byte in `from` decides.
    std::array<int, 256> map;
    map.fill(-1);
    size_t to_length = std::strlen(to);
    for (size_t i = 0; from[i] != '\0'; ++i) {
        auto &slot = map[static_cast<unsigned char>(from[i])];
        if (slot == -1) slot = i < to_length ? static_cast<unsigned char>(to[i]) : -2;
    }
    char *write = text;
    for (const char *read = text; *read != '\0'; ++read) {
        int mapped = map[static_cast<unsigned char>(*read)];
        if (mapped == -1)
            *write++ = *read;
        else if (mapped >= 0)
            *write++ = static_cast<char>(mapped);
    }
    *write = '\0';
    return text;
}

// The model decides: all upper when it has letters and none is lower case; capitalised
// when its first byte is an upper-case letter; otherwise all lower.
extern "C" char *CopyCaps_L(char *target, const char *source, const char *model) {
    if (target == nullptr) return nullptr;
    source = or_empty(source);
    model = or_empty(model);
    bool has_letter = false, has_lower = false;
    for (const auto *m = reinterpret_cast<const unsigned char *>(model); *m != '\0'; ++m) {
        has_letter = has_letter || is_ascii_letter(*m);
        has_lower = has_lower || is_ascii_lower(*m);
    }
    bool all_upper = has_letter && !has_lower;
    bool capitalised = is_ascii_upper(static_cast<unsigned char>(model[0]));
    bool first_letter = true;
    size_t i = 0;
    for (; source[i] != '\0'; ++i) {
        char c = source[i];
        bool upper = all_upper || (capitalised && first_letter);
        target[i] = upper ? to_ascii_upper(c) : to_ascii_lower(c);
        if (is_ascii_letter(static_cast<unsigned char>(c))) first_letter = false;
    }
    target[i] = '\0';
    return target;
}

extern "C" uint8_t IsQuoted_L(const char *text, int32_t *length) {
    text = or_empty(text);
    size_t bytes = std::strlen(text);
    if (length != nullptr) *length = static_cast<int32_t>(bytes);
    if (bytes < 2 || text[0] != '\'' || text[bytes - 1] != '\'') return 0;
    int32_t inner = 0;
    for (size_t i = 1; i < bytes - 1; ++i, ++inner) {
        if (text[i] != '\'') continue;
        if (i + 1 >= bytes - 1 || text[i + 1] != '\'') return 0;
        ++i;
    }
    if (length != nullptr) *length = inner;
    return 1;
}

extern "C" uint32_t crc32_L(uint32_t previous, const void *bytes, size_t length) {
    if (bytes == nullptr) length = 0;
    return ~fold(previous, static_cast<const uint8_t *>(bytes), length);
}

extern "C" char *CreateUUID_L(char *out) {
    if (out == nullptr) return nullptr;
    uint8_t bytes[16];
    random_bytes(bytes, sizeof bytes);
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80); // variant 10xx
    static constexpr char hex[] = "0123456789abcdef";
    char *at = out;
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) *at++ = '-';
        *at++ = hex[bytes[i] >> 4];
        *at++ = hex[bytes[i] & 0x0F];
    }
    *at = '\0';
    return out;
}
