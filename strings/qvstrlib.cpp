// qvstrlib.cpp - the counted strings, part one: the shared views, decoding and encoding of
// code points, allocation and copy, measurement and comparison.
//
// The module "qvstrlib" spans qvstrlib.cpp, qvstrlib_class.cpp (classes, case, numbers)
// and qvstrlib_edit.cpp (search and edit); they share qvstrlib_internal.hpp.
#define QV_MODULE "qvstrlib"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/ucol.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/append.hpp"
#include "core/raise.hpp"
#include "qv/alloc.h"
#include "strings/encoding.hpp"
#include "strings/qvstrlib_internal.hpp"

namespace qv::strlib {

bool force_code_point_path = false;

namespace {

using utf::replacement;
constexpr bool little_endian = std::endian::native == std::endian::little;

bool is_utf16(const QV_ENCODING_T *e) {
    return e == UTF16Encoding_L();
}
bool is_utf32(const QV_ENCODING_T *e) {
    return e == UTF32Encoding_L();
}
bool is_latin1(const QV_ENCODING_T *e) {
    return e == Latin1Encoding_L();
}

int32_t decode_utf8(const View &v, int32_t *out) {
    const auto *p = reinterpret_cast<const uint8_t *>(v.text);
    int32_t i = 0, n = 0;
    while (i < v.bytes) {
        if (p[i] < 0x80)
            out[n++] = p[i++];
        else
            i += utf::decode_utf8(p + i, v.bytes - i, out[n++]);
    }
    return n;
}

// One unit sequence of UTF-16 / UTF-32 in the platform's order; `invalid` for a bad one.
int32_t decode_utf16(const uint8_t *p, int32_t n, int32_t &c, int32_t invalid = replacement) {
    return utf::decode_utf16<little_endian>(p, n, c, invalid);
}
int32_t decode_utf32(const uint8_t *p, int32_t n, int32_t &c, int32_t invalid = replacement) {
    return utf::decode_utf32<little_endian>(p, n, c, invalid);
}

template <class Decode>
int32_t decode_units(const View &v, int32_t *out, Decode decode_one) {
    const auto *p = reinterpret_cast<const uint8_t *>(v.text);
    int32_t i = 0, n = 0;
    while (i < v.bytes) i += decode_one(p + i, v.bytes - i, out[n++], replacement);
    return n;
}

// Through the byte table of a single-byte encoding; false when the service has none.
bool decode_single_byte(const View &v, int32_t *out) {
    const auto *p = reinterpret_cast<const uint8_t *>(v.text);
    if (is_latin1(v.encoding)) {
        for (int32_t i = 0; i < v.bytes; ++i) out[i] = p[i];
        return true;
    }
    const SingleByteTable *table = single_byte_table(v.encoding);
    if (table == nullptr) return false;
    for (int32_t i = 0; i < v.bytes; ++i) {
        int32_t c = table->code_points[p[i]];
        out[i] = c < 0 ? replacement : c;
    }
    return true;
}

bool decode_through_service(const View &v, CodePoints &out) {
    char *utf32 = nullptr;
    int32_t bytes = 0;
    if (ConvertEncoding_L(v.encoding, v.text, v.bytes, UTF32Encoding_L(), &utf32, &bytes) != 0 ||
        utf32 == nullptr)
        return false;
    out.data.reset(reinterpret_cast<int32_t *>(utf32));
    out.count = bytes / 4;
    // Converting UTF-32 to itself copies: values that are no characters read as U+FFFD, and so
    // does a U+0000 that a stateful encoding (UTF-7 ...) yields inside a text it cannot end.
    auto no_character = [](int32_t c) { return c == 0 || !utf::is_scalar(c); };
    std::replace_if(out.data.get(), out.data.get() + out.count, no_character, replacement);
    return true;
}

int32_t scalar_or_replacement(int32_t c) {
    return utf::is_scalar(c) ? c : replacement;
}

int32_t encode_utf8(const int32_t *cps, int32_t count, char *out) {
    auto *p = reinterpret_cast<uint8_t *>(out);
    int32_t i = 0;
    for (int32_t k = 0; k < count; ++k) {
        if (cps[k] >= 0 && cps[k] < 0x80)
            p[i++] = static_cast<uint8_t>(cps[k]);
        else
            i += utf::encode_utf8(scalar_or_replacement(cps[k]), p + i);
    }
    return i;
}

int32_t encode_utf16(const int32_t *cps, int32_t count, char *out) {
    auto *p = reinterpret_cast<uint8_t *>(out);
    int32_t bytes = 0;
    for (int32_t k = 0; k < count; ++k)
        bytes += utf::encode_utf16<little_endian>(scalar_or_replacement(cps[k]), p + bytes);
    return bytes;
}

int32_t encode_latin1(const int32_t *cps, int32_t count, char *out) {
    for (int32_t k = 0; k < count; ++k)
        out[k] = static_cast<char>(cps[k] >= 0 && cps[k] <= 0xFF ? cps[k] : 0x1A);
    return count;
}

// Offset after at most n UTF-8 characters of [p, p + bytes), each ending within `limit` when
// Limited; *clean becomes false when Tracking finds an invalid sequence.
template <bool Limited, bool Tracking>
int32_t walk_utf8(const uint8_t *p, int32_t bytes, int32_t n, int32_t limit, bool *clean) {
    int32_t i = 0;
    bool valid = true;
    const int32_t runs_end = Limited && limit < bytes ? limit : bytes;
    int32_t retry = 0; // where plain blocks are looked for again
    for (int32_t k = 0; k < n && i < bytes; ++k) {
#if defined(__SSE2__)
        // Plain text (utf.hpp) is whole valid characters: walked 32 bytes at a time.
        if (i >= retry) {
            int32_t chars = 0;
            const int32_t run = utf::plain_blocks(p + i, runs_end - i, n - k, &chars);
            i += run;
            k += chars;
            retry = i + utf::plain_block; // the decoder reads what stopped the blocks
        }
        if (k >= n || i >= bytes) break;
#endif
        if (p[i] < 0x80) {
            if (Limited && i >= limit) break;
            ++i;
            continue;
        }
        int32_t c = 0;
        const int32_t used = utf::decode_utf8(p + i, bytes - i, c, -1);
        if (Limited && i + used > limit) break;
        if (Tracking) valid = valid && c >= 0;
        i += used;
    }
    if (Tracking && !valid) *clean = false;
    return i;
}

// The same over units of UTF-16 or UTF-32 in the platform's order.
template <class Decode>
int32_t walk_units(const uint8_t *p, int32_t bytes, int32_t n, int32_t limit, bool *clean,
                   Decode decode_one) {
    int32_t i = 0;
    for (int32_t k = 0; k < n && i < bytes; ++k) {
        int32_t c = 0;
        int32_t used = decode_one(p + i, bytes - i, c, -1);
        if (i + used > limit) break;
        if (c < 0 && clean != nullptr) *clean = false;
        i += used;
    }
    return i;
}

// Bytes of the first n characters (at most `limit`) by stepping the encoding service's
// iterator: the bytes each character was read from. When they are all the characters, the
// bytes after the last one (a closing shift sequence) go with them.
int32_t walk_by_iteration(const View &v, int32_t n, int32_t limit) {
    QV_CODEPOINT_ITER_T iter;
    if (CodePointIterInit_L(&iter, v.encoding, v.text, v.bytes) != 0) return 0;
    int32_t taken = 0, k = 0;
    for (; k <= n; ++k) {
        if (NextCodePoint_L(&iter) < 0) {
            if (v.bytes <= limit) taken = v.bytes;
            break;
        }
        auto at = static_cast<int32_t>(iter.position - v.text);
        if (at > limit || k == n) break;
        taken = at;
    }
    CodePointIterEnd_L(&iter);
    return taken;
}

// The bytes of at most n characters that fit in `limit` bytes.
int32_t bytes_for_chars(const View &v, int32_t n, int32_t limit) {
    if (v.is_null() || n <= 0) return 0;
    if (bytes_are_chars(v)) return std::min({n, v.bytes, limit});
    if (!force_code_point_path) {
        int32_t walked = walk_chars(v, n, limit);
        if (walked >= 0) return walked;
    }
    return walk_by_iteration(v, n, limit);
}

} // namespace

int32_t byte_length(const char *text, const QV_ENCODING_T *encoding) {
    if (text == nullptr) return 0;
    int32_t w = terminator_width(encoding);
    if (w == 1) {
        size_t n = std::strlen(text);
        return n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
    }
    static constexpr char kZeros[4] = {0, 0, 0, 0};
    int32_t n = 0;
    while (std::memcmp(text + n, kZeros, w) != 0) n += w;
    return n;
}

View view_of(const char *text, const QV_ENCODING_T *encoding) {
    View v;
    v.encoding = encoding != nullptr ? encoding : PlatformEncoding_L();
    v.text = text;
    v.bytes = byte_length(text, v.encoding);
    return v;
}

View view_of(const QV_STRING_T *s) {
    return view_of(s != nullptr ? s->text : nullptr, encoding_of(s));
}

const qv::SingleByteTable *writing_table(const QV_ENCODING_T *e) {
    if (!single_byte(e)) return nullptr;
    const qv::SingleByteTable *table = qv::single_byte_table(e);
    return table != nullptr && table->writes_bytes ? table : nullptr;
}

bool single_bytes_valid(const QV_ENCODING_T *e, const char *text, int32_t n) {
    if (is_latin1(e) || all_ascii(text, n)) return true;
    const SingleByteTable *table = single_byte_table(e);
    if (table == nullptr) return false;
    if (table->every_byte_a_character) return true;
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    return std::all_of(p, p + n, [table](uint8_t b) { return table->code_points[b] >= 0; });
}

int32_t *new_code_points(int64_t count) {
    if (count < 1) count = 1;
    if (count > INT32_MAX / 4) {
        QV_RAISE(ALLOC_FAILURE);
        return nullptr;
    }
    return static_cast<int32_t *>(QV_MALLOC(static_cast<size_t>(count) * 4));
}

bool decode(const View &v, CodePoints &out) {
    out.data.reset();
    out.count = 0;
    if (v.is_null() || v.bytes == 0) {
        out.data.reset(new_code_points(1));
        return out.data != nullptr;
    }
    const QV_ENCODING_T *e = v.encoding;
    if (!is_utf8(e) && !is_utf16(e) && !is_utf32(e) && !single_byte(e))
        return decode_through_service(v, out);
    out.data.reset(new_code_points(v.bytes));
    if (out.data == nullptr) return false;
    int32_t *cps = out.data.get();
    if (is_utf8(e))
        out.count = decode_utf8(v, cps);
    else if (is_utf16(e))
        out.count = decode_units(v, cps, decode_utf16);
    else if (is_utf32(e))
        out.count = decode_units(v, cps, decode_utf32);
    else if (decode_single_byte(v, cps))
        out.count = v.bytes;
    else
        return decode_through_service(v, out);
    return true;
}

char *encode_text(const int32_t *cps, int32_t count, const QV_ENCODING_T *encoding,
                  int32_t *bytes) {
    int32_t w = terminator_width(encoding);
    int32_t n = -1;
    char *out = nullptr;
    if (count <= 0) {
        n = 0;
        out = copy_bytes("", 0, encoding);
        if (out == nullptr) return nullptr;
    } else if (is_utf8(encoding) || is_utf16(encoding) || is_latin1(encoding)) {
        int64_t room = is_latin1(encoding) ? count : 4LL * count;
        if (room > INT32_MAX - 8) {
            QV_RAISE(ALLOC_FAILURE);
            return nullptr;
        }
        out = static_cast<char *>(QV_MALLOC(static_cast<size_t>(room + w)));
        if (out == nullptr) return nullptr;
        n = is_utf8(encoding)    ? encode_utf8(cps, count, out)
            : is_utf16(encoding) ? encode_utf16(cps, count, out)
                                 : encode_latin1(cps, count, out);
        std::memset(out + n, 0, w);
    } else if (const qv::SingleByteTable *table = writing_table(encoding)) {
        out = static_cast<char *>(QV_MALLOC(static_cast<size_t>(count) + 1));
        if (out == nullptr) return nullptr;
        for (int32_t k = 0; k < count; ++k) out[k] = static_cast<char>(table->write(cps[k]));
        out[count] = '\0';
        n = count;
    } else if (ConvertEncoding_L(UTF32Encoding_L(), reinterpret_cast<const char *>(cps), count * 4,
                                 encoding, &out, &n) != 0) {
        return nullptr;
    }
    if (bytes != nullptr) *bytes = n;
    return out;
}

bool can_encode(const QV_ENCODING_T *encoding, int32_t code_point) {
    if (!utf::is_scalar(code_point)) return false;
    if (code_point < 0x80 && encoding->ascii_compatible) return true;
    if (is_utf8(encoding) || is_utf16(encoding) || is_utf32(encoding)) return true;
    if (is_latin1(encoding)) return code_point <= 0xFF;
    if (const qv::SingleByteTable *table = writing_table(encoding))
        return table->byte_of(code_point) >= 0;
    char buffer[16];
    return EncodeCodePoint_L(encoding, code_point, buffer, sizeof buffer) > 0;
}

char *copy_bytes(const char *bytes, int32_t n, const QV_ENCODING_T *encoding) {
    int32_t w = terminator_width(encoding);
    if (n < 0) n = 0;
    auto *out = static_cast<char *>(QV_MALLOC(static_cast<size_t>(n) + w));
    if (out == nullptr) return nullptr;
    if (n > 0) std::memcpy(out, bytes, n);
    std::memset(out + n, 0, w);
    return out;
}

void adopt(QV_STRING_T *s, char *text) {
    if (text == nullptr) return;
    std::free(s->text);
    s->text = text;
}

bool store_code_points(QV_STRING_T *s, const int32_t *cps, int32_t count) {
    char *text = encode_text(cps, count, encoding_of(s), nullptr);
    adopt(s, text);
    return text != nullptr;
}

bool set_code_points(QV_STRING_T *out, const int32_t *cps, int32_t count,
                     const QV_ENCODING_T *encoding) {
    SetNull_SL(out);
    if (out == nullptr) return false;
    out->text = encode_text(cps, count, encoding, nullptr);
    if (out->text != nullptr) out->encoding = encoding;
    return out->text != nullptr;
}

int32_t find_code_points(const int32_t *hay, int32_t n, const int32_t *needle, int32_t m,
                         int32_t from) {
    if (m <= 0 || m > n) return -1;
    for (int32_t i = from < 0 ? 0 : from; i <= n - m; ++i)
        if (hay[i] == needle[0] && std::memcmp(hay + i, needle, 4 * static_cast<size_t>(m)) == 0)
            return i;
    return -1;
}

int32_t count_chars(const View &v) {
    if (v.is_null()) return 0;
    const QV_ENCODING_T *e = v.encoding;
    if (single_byte(e)) return v.bytes;
    if (e->utf8_direct) return utf::count_utf8(v.text, v.bytes);
    if (is_utf16(e)) {
        const auto *p = reinterpret_cast<const uint8_t *>(v.text);
        int32_t n = 0;
        for (int32_t i = 0; i < v.bytes; ++n) {
            int32_t c = 0;
            i += decode_utf16(p + i, v.bytes - i, c);
        }
        return n;
    }
    if (is_utf32(e)) return (v.bytes + 3) / 4;
    return -1;
}

int32_t walk_chars(const View &v, int32_t n, int32_t limit, bool *clean) {
    if (n <= 0 || limit <= 0) return 0;
    const QV_ENCODING_T *e = v.encoding;
    const auto *p = reinterpret_cast<const uint8_t *>(v.text);
    if (is_utf8(e)) {
        if (limit < v.bytes)
            return clean ? walk_utf8<true, true>(p, v.bytes, n, limit, clean)
                         : walk_utf8<true, false>(p, v.bytes, n, limit, clean);
        return clean ? walk_utf8<false, true>(p, v.bytes, n, limit, clean)
                     : walk_utf8<false, false>(p, v.bytes, n, limit, clean);
    }
    if (is_utf16(e)) return walk_units(p, v.bytes, n, limit, clean, decode_utf16);
    if (is_utf32(e)) return walk_units(p, v.bytes, n, limit, clean, decode_utf32);
    if (!single_byte(e)) return -1;
    int32_t bytes = std::min({n, v.bytes, limit});
    if (clean != nullptr && !single_bytes_valid(e, v.text, bytes)) *clean = false;
    return bytes;
}

} // namespace qv::strlib

using namespace qv::strlib;

namespace {

int32_t sign_of(int64_t difference) {
    return difference < 0 ? -1 : difference > 0 ? 1 : 0;
}

int32_t ascii_lower(int32_t c) {
    return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

// The code point ToLower_SL would leave in a text of encoding `e`.
int32_t lower_in(const QV_ENCODING_T *e, int32_t c) {
    if (c < 0x80) return ascii_lower(c);
    int32_t lower = u_tolower(c);
    return lower != c && can_encode(e, lower) ? lower : c;
}

// Reads the code points of a view one at a time, as decode() reads them, without a copy:
// UTF-8, UTF-16, UTF-32 and the single-byte encodings with a byte table. A UTF-8 or
// single-byte reader may be given a terminated text of unknown length (bytes INT32_MAX): it
// stops at the terminator, which no sequence reads past.
class CodePointReader {
  public:
    explicit CodePointReader(const View &v)
        : p_(reinterpret_cast<const uint8_t *>(v.text)), bytes_(v.is_null() ? 0 : v.bytes) {
        const QV_ENCODING_T *e = v.encoding;
        if (is_utf8(e))
            kind_ = Kind::utf8;
        else if (is_utf16(e))
            kind_ = Kind::utf16;
        else if (is_utf32(e))
            kind_ = Kind::utf32;
        else if (is_latin1(e))
            kind_ = Kind::latin1;
        else if (single_byte(e) && (table_ = qv::single_byte_table(e)) != nullptr)
            kind_ = Kind::table;
    }
    bool readable() const { return kind_ != Kind::none; }
    // Steps over bytes already read elsewhere (whole characters).
    void skip(int32_t bytes) { at_ += bytes; }

    // The next code point; -1 at the end.
    int32_t next() {
        if (at_ >= bytes_) return -1;
        const uint8_t b = p_[at_];
        int32_t c = 0;
        switch (kind_) {
            case Kind::utf8:
                if (b < 0x80) {
                    ++at_;
                    return b == 0 ? -1 : b;
                }
                at_ += qv::utf::decode_utf8(p_ + at_, bytes_ - at_, c);
                return c;
            case Kind::latin1: ++at_; return b == 0 ? -1 : b;
            case Kind::table:
                ++at_;
                if (b == 0) return -1;
                c = table_->code_points[b];
                return c < 0 ? replacement : c;
            case Kind::utf16: at_ += decode_utf16(p_ + at_, bytes_ - at_, c); return c;
            case Kind::utf32: at_ += decode_utf32(p_ + at_, bytes_ - at_, c); return c;
            case Kind::none: break;
        }
        return -1;
    }

  private:
    enum class Kind { none, utf8, utf16, utf32, latin1, table };
    const uint8_t *p_;
    int32_t bytes_;
    int32_t at_ = 0;
    Kind kind_ = Kind::none;
    const SingleByteTable *table_ = nullptr;
};

// Compares the first `limit` (<0: all) code points of two sequences read through next()
// (-1 at the end), lower-cased as ToLower_SL would when `fold`.
template <class NextA, class NextB>
int32_t compare_sequences(NextA next_a, const QV_ENCODING_T *ea, NextB next_b,
                          const QV_ENCODING_T *eb, int32_t limit, bool fold) {
    for (int32_t k = 0; limit < 0 || k < limit; ++k) {
        int32_t ca = next_a(), cb = next_b();
        if (ca < 0 || cb < 0) return sign_of(static_cast<int64_t>(ca) - cb);
        if (fold) ca = lower_in(ea, ca), cb = lower_in(eb, cb);
        if (ca != cb) return ca < cb ? -1 : 1;
    }
    return 0;
}

// The run of bytes at the start of two texts (at most `limit` when >= 0) in which both
// bytes are ASCII characters and the same (without case unless case_sensitive): its length,
// which the readers then step over. A difference within it decides: INT32_MIN when a is
// greater there, -1 when it is less.
int32_t ascii_prefix(const View &a, const View &b, int32_t limit, bool case_sensitive) {
    if (a.is_null() || b.is_null() || !ascii_byte_is_char(a.encoding) ||
        !ascii_byte_is_char(b.encoding))
        return 0;
    const auto *pa = reinterpret_cast<const uint8_t *>(a.text);
    const auto *pb = reinterpret_cast<const uint8_t *>(b.text);
    int32_t n = std::min(a.bytes, b.bytes);
    if (limit >= 0 && limit < n) n = limit;
    int32_t k = 0;
    for (; k < n; ++k) {
        int32_t x = pa[k], y = pb[k];
        if (((x | y) & 0x80) != 0 || x == 0 || y == 0) break;
        if (x == y) continue;
        if (!case_sensitive) x = ascii_lower(x), y = ascii_lower(y);
        if (x != y) return x > y ? INT32_MIN : -1;
    }
    return k;
}

// Compares the first `limit` (<0: all) code points, lower-cased as ToLower_SL would when not
// case_sensitive; null compares as empty. Texts are read in place; only encodings the
// readers do not know are decoded into copies.
int32_t compare_views(const View &a, const View &b, int32_t limit, bool case_sensitive) {
    CodePointReader ra(a), rb(b);
    if (ra.readable() && rb.readable()) {
        const int32_t k = ascii_prefix(a, b, limit, case_sensitive);
        if (k < 0) return k == INT32_MIN ? 1 : -1;
        ra.skip(k);
        rb.skip(k);
        return compare_sequences([&] { return ra.next(); }, a.encoding, [&] { return rb.next(); },
                                 b.encoding, limit < 0 ? -1 : limit - k, !case_sensitive);
    }
    CodePoints ca, cb;
    if (!decode(a, ca) || !decode(b, cb)) return 0;
    const int32_t *da = ca.data.get(), *db = cb.data.get();
    int32_t ia = 0, ib = 0;
    return compare_sequences([&] { return ia < ca.count ? da[ia++] : -1; }, a.encoding,
                             [&] { return ib < cb.count ? db[ib++] : -1; }, b.encoding, limit,
                             !case_sensitive);
}

// The first offset at which two terminated texts differ, or at which both end. Sixteen
// bytes at a time where neither read crosses into another page (so it cannot fault, though
// it may look past the terminator: hence no address checking here).
#if defined(__SSE2__)
constexpr uintptr_t page = 4096, wide = 16;

// Bits of the bytes of a[0, 16) that differ from b's or end a.
__attribute__((no_sanitize_address)) inline unsigned stops_within(const uint8_t *a,
                                                                  const uint8_t *b) {
    const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a));
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b));
    const auto same = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(va, vb)));
    const auto ends =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(va, _mm_setzero_si128())));
    return (~same & 0xFFFFu) | ends;
}

// Bytes from p to the end of its page.
inline uintptr_t room_in_page(const uint8_t *p) {
    return page - (reinterpret_cast<uintptr_t>(p) & (page - 1));
}

__attribute__((no_sanitize_address)) size_t first_difference(const uint8_t *a, const uint8_t *b) {
    for (size_t i = 0;;) {
        const uintptr_t left = std::min(room_in_page(a + i), room_in_page(b + i));
        if (left >= 2 * wide) {
            const unsigned low = stops_within(a + i, b + i);
            const unsigned high = stops_within(a + i + wide, b + i + wide);
            if ((low | high) != 0) return i + std::countr_zero(low | high << wide);
            i += 2 * wide;
        } else if (left >= wide) {
            const unsigned low = stops_within(a + i, b + i);
            if (low != 0) return i + std::countr_zero(low);
            i += wide;
        } else {
            if (a[i] != b[i] || a[i] == 0) return i;
            ++i;
        }
    }
}
#else
size_t first_difference(const uint8_t *a, const uint8_t *b) {
    size_t i = 0;
    while (a[i] == b[i] && a[i] != 0) ++i;
    return i;
}
#endif

// Strcmp_SL on two texts of one encoding in which bytes order as their characters do:
// Latin-1 and the other single-byte encodings (through the byte table), and UTF-8, whose
// byte order is code-point order for valid text. Finds the first differing byte; unless both
// bytes there are ASCII, compares the code points from the start of the character holding
// it (a byte that is no continuation byte starts a character in both texts, since the bytes
// before are the same). False when the pair is not one of these.
bool compare_in_place(const QV_STRING_T *a, const QV_STRING_T *b, int32_t *result) {
    const QV_ENCODING_T *e = encoding_of(a);
    if (force_code_point_path || e != encoding_of(b)) return false;
    const bool utf8 = is_utf8(e);
    const SingleByteTable *table = nullptr;
    if (!utf8 && !is_latin1(e) &&
        (!single_byte(e) || (table = qv::single_byte_table(e)) == nullptr))
        return false;
    const auto *pa = reinterpret_cast<const uint8_t *>(a != nullptr && a->text ? a->text : "");
    const auto *pb = reinterpret_cast<const uint8_t *>(b != nullptr && b->text ? b->text : "");
    size_t i = first_difference(pa, pb);
    const uint8_t x = pa[i], y = pb[i];
    if (x == y) {
        *result = 0;
    } else if (x < 0x80 && y < 0x80) {
        *result = x < y ? -1 : 1;
    } else if (!utf8) {
        auto code = [table](uint8_t byte) {
            if (byte == 0) return -1;
            const int32_t c = table != nullptr ? table->code_points[byte] : byte;
            return c < 0 ? replacement : c;
        };
        *result = sign_of(static_cast<int64_t>(code(x)) - code(y));
    } else {
        auto continuation = [](uint8_t byte) { return (byte & 0xC0) == 0x80; };
        if (continuation(x) || continuation(y))
            while (i > 0 && continuation(pa[--i])) {
            }
        const View rest_a{reinterpret_cast<const char *>(pa + i), INT32_MAX, e};
        const View rest_b{reinterpret_cast<const char *>(pb + i), INT32_MAX, e};
        *result = compare_views(rest_a, rest_b, -1, true);
    }
    return true;
}

// The process collator, made on first use; null when ICU cannot make one.
icu::Collator *process_collator() {
    static std::unique_ptr<icu::Collator> collator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Collator> made(
            icu::Collator::createInstance(icu::Locale::getDefault(), status));
        return U_SUCCESS(status) ? std::move(made) : nullptr;
    }();
    return collator.get();
}

// A heap copy of a view's text converted to `to` (*bytes its length): the encoding
// service's conversion, or, when that holds a U+0000 (which would end the text), the text's
// characters as decode() reads them. Null when it failed.
char *converted_text(const View &v, const QV_ENCODING_T *to, int32_t *bytes) {
    char *out = nullptr;
    if (ConvertEncoding_L(v.encoding, v.text, v.bytes, to, &out, bytes) != 0) return nullptr;
    if (byte_length(out, to) == *bytes) return out;
    std::free(out);
    CodePoints cps;
    return decode(v, cps) ? encode_text(cps.data.get(), cps.count, to, bytes) : nullptr;
}

// True when [bytes, bytes + n) lies within the text of s (then appending it to s must read it
// before s's text moves).
bool lies_within(const QV_STRING_T *s, int32_t s_bytes, const char *bytes) {
    auto at = reinterpret_cast<uintptr_t>(bytes), begin = reinterpret_cast<uintptr_t>(s->text);
    return at >= begin && at <= begin + static_cast<uintptr_t>(s_bytes);
}

// Appends n bytes to dst's text, whose terminator is one byte. The bytes may be (part of)
// dst's own text, which growing moves.
QV_STRING_T *append_bytes(QV_STRING_T *dst, const char *bytes, int32_t n) {
    size_t length = 0;
    const uintptr_t from =
        reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(dst->text);
    char *text =
        qv::prepare_append(dst->text, static_cast<size_t>(n), &length, QV_MODULE, __LINE__);
    if (text == nullptr) return dst;
    const bool own = from <= length;
    std::memmove(text + length, own ? text + from : bytes, static_cast<size_t>(n));
    text[length + n] = '\0';
    dst->text = text;
    return dst;
}

// Appends through code points, for encodings whose texts do not join by their bytes (a
// byte-order mark, a shift state).
QV_STRING_T *append_code_points(QV_STRING_T *dst, const View &base, const View &add) {
    CodePoints a, b;
    if (!decode(base, a) || !decode(add, b)) return dst;
    qv::HeapArray<int32_t> joined(new_code_points(int64_t{a.count} + b.count));
    if (joined == nullptr) return dst;
    std::copy_n(a.data.get(), a.count, joined.get());
    std::copy_n(b.data.get(), b.count, joined.get() + a.count);
    store_code_points(dst, joined.get(), a.count + b.count);
    return dst;
}

} // namespace

// ---- Allocation and copy -------------------------------------------------------------

QV_STRING_T *SetNull_SL(QV_STRING_T *s) {
    if (s != nullptr) {
        s->text = nullptr;
        s->encoding = nullptr;
    }
    return s;
}

QV_STRING_T *PreAlloc_SL(QV_STRING_T *s, const QV_ENCODING_T *encoding, int32_t bytes) {
    if (SetNull_SL(s) == nullptr) return nullptr;
    s->encoding = encoding;
    int64_t size = static_cast<int64_t>(bytes < 0 ? 0 : bytes) + terminator_width(encoding);
    s->text = static_cast<char *>(QV_CALLOC(static_cast<size_t>(size)));
    return s;
}

void FreeString_SL(QV_STRING_T *s) {
    if (s == nullptr) return;
    std::free(s->text);
    s->text = nullptr;
}

// Raises ZERO_ALLOC_FAILURE for an empty size, as the allocation helpers do.
QV_STRING_T *Astrcpy_SL(QV_STRING_T *dst, const QV_STRING_T *src) {
    View v = view_of(src);
    if (SetNull_SL(dst) == nullptr || v.is_null()) return dst;
    size_t size = static_cast<size_t>(v.bytes) + terminator_width(v.encoding);
    auto *text = static_cast<char *>(QV_CALLOC(size));
    if (text == nullptr) return dst;
    std::memcpy(text, v.text, v.bytes);
    dst->text = text;
    dst->encoding = src->encoding;
    return dst;
}

QV_STRING_T *AstrcpyE_SL(QV_STRING_T *dst, const char *text, const QV_ENCODING_T *encoding) {
    QV_STRING_T source{const_cast<char *>(text), encoding};
    return Astrcpy_SL(dst, &source);
}

QV_STRING_T *Astrncpy_SL(QV_STRING_T *dst, const QV_STRING_T *src, int32_t n) {
    View v = view_of(src);
    if (SetNull_SL(dst) == nullptr || v.is_null()) return dst;
    int32_t bytes = BytesForChars_SL(src, n);
    dst->text = copy_bytes(v.text, bytes, v.encoding);
    if (dst->text != nullptr) dst->encoding = src->encoding;
    return dst;
}

// A text with a one-byte terminator grows through core/append.hpp: amortised, measured from
// where the last append left it.
QV_STRING_T *Astrcat_SL(QV_STRING_T *dst, const QV_STRING_T *src) {
    View add = view_of(src);
    if (dst == nullptr || add.is_null()) return dst;
    if (dst->text == nullptr) {
        const QV_ENCODING_T *keep = dst->encoding;
        Astrcpy_SL(dst, src);
        if (dst->text == nullptr) dst->encoding = keep;
        return dst;
    }
    const QV_ENCODING_T *base_encoding = encoding_of(dst);
    // Two texts of one UTF-8 or single-byte encoding (the common case) join by their bytes.
    if (add.encoding == base_encoding && (is_utf8(base_encoding) || single_byte(base_encoding)))
        return append_bytes(dst, add.text, add.bytes);
    if (!qv::bytes_concatenate(base_encoding) || !qv::bytes_concatenate(add.encoding))
        return append_code_points(dst, view_of(dst), add);
    qv::HeapText converted;
    const char *bytes = add.text;
    int32_t n = add.bytes;
    if (add.encoding != base_encoding && !(base_encoding->ascii_compatible &&
                                           add.encoding->ascii_compatible && all_ascii(bytes, n))) {
        converted.reset(converted_text(add, base_encoding, &n));
        if (converted == nullptr) return dst;
        bytes = converted.get();
    }
    const int32_t w = terminator_width(base_encoding);
    if (w == 1) return append_bytes(dst, bytes, n);
    // The text appended may be (part of) dst's own, which the reallocation moves.
    const int32_t base_bytes = byte_length(dst->text, base_encoding);
    const bool own = lies_within(dst, base_bytes, bytes);
    const ptrdiff_t offset = bytes - dst->text;
    size_t size = static_cast<size_t>(base_bytes) + n + w;
    auto *text = static_cast<char *>(QV_REALLOC(dst->text, size));
    if (text == nullptr) return dst;
    dst->text = text;
    std::memmove(text + base_bytes, own ? text + offset : bytes, n);
    std::memset(text + base_bytes + n, 0, w);
    return dst;
}

QV_STRING_T *AstrcatE_SL(QV_STRING_T *dst, const char *text, const QV_ENCODING_T *encoding) {
    QV_STRING_T source{const_cast<char *>(text), encoding};
    return Astrcat_SL(dst, &source);
}

QV_STRING_T *VAsprintf_SL(QV_STRING_T *dst, const char *format, va_list arguments) {
    if (SetNull_SL(dst) == nullptr) return nullptr;
    char *text = nullptr;
    VAsprintf_L(&text, format, arguments);
    dst->text = text;
    if (text != nullptr) dst->encoding = UTF8Encoding_L();
    return dst;
}

QV_STRING_T *Asprintf_SL(QV_STRING_T *dst, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VAsprintf_SL(dst, format, arguments);
    va_end(arguments);
    return dst;
}

// U+0000 would end the text it stands in, so it gives null like a value the encoding cannot
// hold.
QV_STRING_T *CodePointToString_SL(QV_STRING_T *dst, int32_t code_point,
                                  const QV_ENCODING_T *encoding) {
    if (SetNull_SL(dst) == nullptr) return nullptr;
    const QV_ENCODING_T *e = encoding != nullptr ? encoding : PlatformEncoding_L();
    if (code_point == 0 || !can_encode(e, code_point)) return nullptr;
    if (!set_code_points(dst, &code_point, 1, e)) return nullptr;
    dst->encoding = encoding;
    return dst;
}

// ---- Measurement ----------------------------------------------------------------------

int32_t Strlen_SL(const QV_STRING_T *s) {
    if (s == nullptr || s->text == nullptr) return 0;
    View v = view_of(s);
    int32_t n = force_code_point_path ? -1 : count_chars(v);
    if (n >= 0) return n;
    CodePoints cps;
    return decode(v, cps) ? cps.count : 0;
}

int32_t Bytelen_SL(const QV_STRING_T *s, uint8_t with_terminator) {
    if (s == nullptr || s->text == nullptr) return 0;
    const QV_ENCODING_T *e = encoding_of(s);
    return byte_length(s->text, e) + (with_terminator ? terminator_width(e) : 0);
}

int32_t BytesForChars_SL(const QV_STRING_T *s, int32_t n) {
    View v = view_of(s);
    return bytes_for_chars(v, n, v.bytes);
}

int32_t GetBytesFromChars_SL(const QV_STRING_T *s, int32_t n, char *buffer, int32_t capacity) {
    const QV_ENCODING_T *e = encoding_of(s);
    int32_t w = terminator_width(e);
    if (buffer == nullptr || capacity < w) return -1;
    int32_t bytes = bytes_for_chars(view_of(s), n, capacity - w);
    if (bytes > 0) std::memcpy(buffer, s->text, bytes);
    std::memset(buffer + bytes, 0, w);
    return bytes;
}

uint8_t IsEmpty_SL(const QV_STRING_T *s) {
    if (s == nullptr || s->text == nullptr) return 1;
    const QV_ENCODING_T *e = encoding_of(s);
    static constexpr char kZeros[4] = {0, 0, 0, 0};
    return std::memcmp(s->text, kZeros, terminator_width(e)) == 0;
}

// ---- Comparison -------------------------------------------------------------------------

int32_t Strcmp_SL(const QV_STRING_T *a, const QV_STRING_T *b) {
    int32_t result = 0;
    if (compare_in_place(a, b, &result)) return result;
    return compare_views(view_of(a), view_of(b), -1, true);
}

int32_t Strcoll_SL(const QV_STRING_T *a, const QV_STRING_T *b) {
    icu::Collator *collator = process_collator();
    UErrorCode status = U_ZERO_ERROR;
    if (collator != nullptr && !force_code_point_path && is_utf8(encoding_of(a)) &&
        is_utf8(encoding_of(b))) {
        // The collator reads UTF-8 itself, an invalid sequence as U+FFFD as decode() does.
        const char *ta = a != nullptr && a->text != nullptr ? a->text : "";
        const char *tb = b != nullptr && b->text != nullptr ? b->text : "";
        const UCollationResult r =
            ucol_strcollUTF8(collator->toUCollator(), ta, -1, tb, -1, &status);
        if (U_SUCCESS(status)) return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
        status = U_ZERO_ERROR;
    }
    View va = view_of(a), vb = view_of(b);
    if (collator == nullptr) return compare_views(va, vb, -1, true);
    CodePoints ca, cb;
    if (!decode(va, ca) || !decode(vb, cb)) return 0;
    icu::UnicodeString ua = icu::UnicodeString::fromUTF32(ca.data.get(), ca.count);
    icu::UnicodeString ub = icu::UnicodeString::fromUTF32(cb.data.get(), cb.count);
    UCollationResult r = collator->compare(ua, ub, status);
    if (U_FAILURE(status)) return compare_views(va, vb, -1, true);
    return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

int32_t Strcomp_SL(const QV_STRING_T *a, const QV_STRING_T *b, int32_t n, uint8_t case_sensitive) {
    int32_t result = 0;
    if (n < 0 && case_sensitive != 0 && compare_in_place(a, b, &result)) return result;
    return compare_views(view_of(a), view_of(b), n, case_sensitive != 0);
}

int32_t StrcompE_SL(const QV_STRING_T *a, const char *text, const QV_ENCODING_T *encoding,
                    int32_t n, uint8_t case_sensitive) {
    return compare_views(view_of(a), view_of(text, encoding), n, case_sensitive != 0);
}

// Two UTF-8 texts, or two texts in the same single-byte encoding, go to the matchers as they
// are (the UTF-8 matcher is as fast as the byte one on ASCII text); other pairs are brought
// to one encoding first.
uint8_t Is_Like_SL(const QV_STRING_T *text, const QV_STRING_T *pattern) {
    if (pattern == nullptr || pattern->text == nullptr) return 1;
    const QV_ENCODING_T *te = encoding_of(text), *pe = encoding_of(pattern);
    const char *text_bytes = text != nullptr ? text->text : nullptr;
    if (is_utf8(te) && is_utf8(pe)) return Is_Like8_L(text_bytes, pattern->text);
    View t = view_of(text), p = view_of(pattern);
    static const char kEmpty[4] = {0, 0, 0, 0};
    if (t.is_null()) t = view_of(kEmpty, t.encoding);
    if (bytes_are_chars(t) && bytes_compatible(t, p) && bytes_compatible(p, t))
        return Is_Like_L(t.text, p.text);
    const char *side[2] = {t.text, p.text};
    qv::HeapText converted[2];
    const View *views[2] = {&t, &p};
    for (int i = 0; i < 2; ++i) {
        if (is_utf8(views[i]->encoding) || ascii_bytes(*views[i])) continue;
        int32_t bytes = 0;
        converted[i].reset(converted_text(*views[i], UTF8Encoding_L(), &bytes));
        if (converted[i] == nullptr) return 0;
        side[i] = converted[i].get();
    }
    return Is_Like8_L(side[0], side[1]);
}
