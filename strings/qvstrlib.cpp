// qvstrlib.cpp - the counted strings, part one: the shared views, decoding and encoding of
// code points, allocation and copy, measurement and comparison.
//
// The module "qvstrlib" spans qvstrlib.cpp, qvstrlib_class.cpp (classes, case, numbers)
// and qvstrlib_edit.cpp (search and edit); they share qvstrlib_internal.hpp.
#define QV_MODULE "qvstrlib"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <climits>
#include <cstring>
#include <memory>

#include "core/raise.hpp"
#include "qv/alloc.h"
#include "strings/qvstrlib_internal.hpp"

namespace qv::strlib {

bool force_code_point_path = false;

namespace {

constexpr int32_t kReplacement = 0xFFFD;

bool is_unicode_scalar(int64_t cp) {
    return cp >= 0 && cp <= 0x10FFFF && !U_IS_SURROGATE(cp);
}

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
        UChar32 c;
        U8_NEXT(p, i, v.bytes, c);
        out[n++] = c < 0 ? kReplacement : c;
    }
    return n;
}

int32_t decode_utf16(const View &v, int32_t *out) {
    int32_t units = v.bytes / 2, i = 0, n = 0;
    while (i < units) {
        uint16_t lead, trail;
        std::memcpy(&lead, v.text + 2 * i, 2);
        ++i;
        int32_t c = lead;
        if (U16_IS_LEAD(lead) && i < units) {
            std::memcpy(&trail, v.text + 2 * i, 2);
            if (U16_IS_TRAIL(trail)) {
                c = U16_GET_SUPPLEMENTARY(lead, trail);
                ++i;
            }
        }
        out[n++] = U_IS_SURROGATE(c) ? kReplacement : c;
    }
    return n;
}

int32_t decode_utf32(const View &v, int32_t *out) {
    int32_t n = v.bytes / 4;
    for (int32_t i = 0; i < n; ++i) {
        int32_t c;
        std::memcpy(&c, v.text + 4 * i, 4);
        out[i] = is_unicode_scalar(c) ? c : kReplacement;
    }
    return n;
}

// Single-byte encodings whose high bytes are not the code points (or are invalid, as in
// ASCII) go through the service one byte at a time.
int32_t decode_single_byte(const View &v, int32_t *out) {
    bool latin1 = is_latin1(v.encoding);
    for (int32_t i = 0; i < v.bytes; ++i) {
        auto b = static_cast<uint8_t>(v.text[i]);
        if (b < 0x80 || latin1) {
            out[i] = b;
            continue;
        }
        QV_CODEPOINT_ITER_T iter;
        int32_t c = kReplacement;
        if (CodePointIterInit_L(&iter, v.encoding, v.text + i, 1) == 0) {
            c = NextCodePoint_L(&iter);
            CodePointIterEnd_L(&iter);
        }
        out[i] = c < 0 ? kReplacement : c;
    }
    return v.bytes;
}

bool decode_through_service(const View &v, CodePoints &out) {
    char *utf32 = nullptr;
    int32_t bytes = 0;
    if (ConvertEncoding_L(v.encoding, v.text, v.bytes, UTF32Encoding_L(), &utf32, &bytes) != 0 ||
        utf32 == nullptr)
        return false;
    out.data = reinterpret_cast<int32_t *>(utf32);
    out.count = bytes / 4;
    return true;
}

int32_t encode_utf8(const int32_t *cps, int32_t count, char *out) {
    auto *p = reinterpret_cast<uint8_t *>(out);
    int32_t i = 0;
    for (int32_t k = 0; k < count; ++k) {
        UChar32 c = is_unicode_scalar(cps[k]) ? cps[k] : kReplacement;
        U8_APPEND_UNSAFE(p, i, c);
    }
    return i;
}

int32_t encode_utf16(const int32_t *cps, int32_t count, char *out) {
    int32_t bytes = 0;
    for (int32_t k = 0; k < count; ++k) {
        UChar32 c = is_unicode_scalar(cps[k]) ? cps[k] : kReplacement;
        uint16_t units[2];
        int32_t n = 0;
        U16_APPEND_UNSAFE(units, n, c);
        std::memcpy(out + bytes, units, 2 * n);
        bytes += 2 * n;
    }
    return bytes;
}

int32_t encode_latin1(const int32_t *cps, int32_t count, char *out) {
    for (int32_t k = 0; k < count; ++k)
        out[k] = static_cast<char>(cps[k] >= 0 && cps[k] <= 0xFF ? cps[k] : 0x1A);
    return count;
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

int32_t *new_code_points(int64_t count) {
    if (count < 1) count = 1;
    if (count > INT32_MAX / 4) {
        QV_RAISE(ALLOC_FAILURE);
        return nullptr;
    }
    return static_cast<int32_t *>(QV_MALLOC(static_cast<size_t>(count) * 4));
}

bool decode(const View &v, CodePoints &out) {
    std::free(out.data);
    out.data = nullptr;
    out.count = 0;
    if (v.is_null() || v.bytes == 0) {
        out.data = new_code_points(1);
        return out.data != nullptr;
    }
    const QV_ENCODING_T *e = v.encoding;
    bool inline_form = is_utf8(e) || is_utf16(e) || is_utf32(e) || single_byte(e);
    if (!inline_form) return decode_through_service(v, out);
    out.data = new_code_points(v.bytes);
    if (out.data == nullptr) return false;
    if (is_utf8(e))
        out.count = decode_utf8(v, out.data);
    else if (is_utf16(e))
        out.count = decode_utf16(v, out.data);
    else if (is_utf32(e))
        out.count = decode_utf32(v, out.data);
    else
        out.count = decode_single_byte(v, out.data);
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
    } else if (ConvertEncoding_L(UTF32Encoding_L(), reinterpret_cast<const char *>(cps), count * 4,
                                 encoding, &out, &n) != 0) {
        return nullptr;
    }
    if (bytes != nullptr) *bytes = n;
    return out;
}

bool can_encode(const QV_ENCODING_T *encoding, int32_t code_point) {
    if (!is_unicode_scalar(code_point)) return false;
    if (code_point < 0x80 && encoding->ascii_compatible) return true;
    if (is_utf8(encoding) || is_utf16(encoding) || is_utf32(encoding)) return true;
    if (is_latin1(encoding)) return code_point <= 0xFF;
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

} // namespace qv::strlib

using namespace qv::strlib;

namespace {

// Characters in a UTF-8 text, U+FFFD per invalid subpart; ASCII eight bytes at a time.
int32_t count_utf8(const char *text, int32_t bytes) {
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
        UChar32 c;
        U8_NEXT(p, i, bytes, c);
        ++n;
    }
    return n;
}

int32_t count_utf16(const char *text, int32_t bytes) {
    int32_t units = bytes / 2, n = 0;
    for (int32_t i = 0; i < units; ++n) {
        uint16_t lead, trail;
        std::memcpy(&lead, text + 2 * i++, 2);
        if (U16_IS_LEAD(lead) && i < units) {
            std::memcpy(&trail, text + 2 * i, 2);
            if (U16_IS_TRAIL(trail)) ++i;
        }
    }
    return n;
}

} // namespace

int32_t qv::strlib::count_chars(const View &v) {
    if (v.is_null()) return 0;
    const QV_ENCODING_T *e = v.encoding;
    if (single_byte(e)) return v.bytes;
    if (e->utf8_direct) return count_utf8(v.text, v.bytes);
    if (e == UTF16Encoding_L()) return count_utf16(v.text, v.bytes);
    if (e == UTF32Encoding_L()) return v.bytes / 4;
    return -1;
}

int32_t qv::strlib::walk_to_char(const View &v, int32_t n) {
    if (n <= 0) return 0;
    if (v.encoding->utf8_direct && v.encoding->max_bytes > 1) {
        const auto *p = reinterpret_cast<const uint8_t *>(v.text);
        int32_t i = 0;
        for (int32_t k = 0; k < n && i < v.bytes; ++k) {
            UChar32 c;
            U8_NEXT(p, i, v.bytes, c);
        }
        return i;
    }
    if (v.encoding == UTF16Encoding_L()) {
        int32_t units = v.bytes / 2, i = 0;
        for (int32_t k = 0; k < n && i < units; ++k) {
            uint16_t lead, trail;
            std::memcpy(&lead, v.text + 2 * i++, 2);
            if (U16_IS_LEAD(lead) && i < units) {
                std::memcpy(&trail, v.text + 2 * i, 2);
                if (U16_IS_TRAIL(trail)) ++i;
            }
        }
        return 2 * i;
    }
    if (v.encoding == UTF32Encoding_L()) return 4LL * n > v.bytes ? v.bytes : 4 * n;
    if (single_byte(v.encoding)) return n < v.bytes ? n : v.bytes;
    return -1;
}

namespace {

// Bytes of the first n characters of a text in another encoding: the length of their
// re-encoding, which for a stateless encoding is the bytes they came from.
int32_t bytes_through_code_points(const View &v, int32_t n) {
    CodePoints cps;
    if (!decode(v, cps)) return 0;
    if (n >= cps.count) return v.bytes;
    int32_t bytes = 0;
    HeapBlock text(encode_text(cps.data, n, v.encoding, &bytes));
    return text.get() != nullptr ? bytes : 0;
}

int32_t sign_of(int64_t difference) {
    return difference < 0 ? -1 : difference > 0 ? 1 : 0;
}

int32_t compare_bytes(const View &a, const View &b, int32_t limit) {
    int32_t n = a.bytes < b.bytes ? a.bytes : b.bytes;
    if (limit >= 0 && limit < n) n = limit;
    int r = n > 0 ? std::memcmp(a.text, b.text, n) : 0;
    if (r != 0) return sign_of(r);
    int32_t la = limit >= 0 && limit < a.bytes ? limit : a.bytes;
    int32_t lb = limit >= 0 && limit < b.bytes ? limit : b.bytes;
    return sign_of(static_cast<int64_t>(la) - lb);
}

// Bytes are code points: ASCII text, or Latin-1.
bool bytes_are_code_points(const View &v) {
    if (v.is_null()) return !force_code_point_path;
    if (bytes_are_chars(v) && v.encoding == Latin1Encoding_L()) return true;
    return ascii_bytes(v);
}

// Compares the first `limit` (<0: all) code points; null compares as empty.
int32_t compare_code_points(const View &a, const View &b, int32_t limit) {
    if (bytes_are_code_points(a) && bytes_are_code_points(b)) return compare_bytes(a, b, limit);
    CodePoints ca, cb;
    if (!decode(a, ca) || !decode(b, cb)) return 0;
    int32_t n = ca.count < cb.count ? ca.count : cb.count;
    if (limit >= 0 && limit < n) n = limit;
    for (int32_t i = 0; i < n; ++i)
        if (ca.data[i] != cb.data[i]) return ca.data[i] < cb.data[i] ? -1 : 1;
    int32_t la = limit >= 0 && limit < ca.count ? limit : ca.count;
    int32_t lb = limit >= 0 && limit < cb.count ? limit : cb.count;
    return sign_of(static_cast<int64_t>(la) - lb);
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

// Lower-cased deep copy of a view, through the members themselves.
struct LowerCopy {
    QV_STRING_T copy{nullptr, nullptr};
    explicit LowerCopy(const View &v) {
        QV_STRING_T source{const_cast<char *>(v.text), v.encoding};
        Astrcpy_SL(&copy, &source);
        ToLower_SL(&copy);
    }
    LowerCopy(const LowerCopy &) = delete;
    LowerCopy &operator=(const LowerCopy &) = delete;
    ~LowerCopy() { FreeString_SL(&copy); }
};

int32_t compare_views(const View &a, const View &b, int32_t n, uint8_t case_sensitive) {
    if (case_sensitive) return compare_code_points(a, b, n);
    LowerCopy la(a), lb(b);
    return compare_code_points(view_of(&la.copy), view_of(&lb.copy), n);
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

QV_STRING_T *Astrcat_SL(QV_STRING_T *dst, const QV_STRING_T *src) {
    View add = view_of(src);
    if (dst == nullptr || add.is_null()) return dst;
    if (dst->text == nullptr) {
        const QV_ENCODING_T *keep = dst->encoding;
        Astrcpy_SL(dst, src);
        if (dst->text == nullptr) dst->encoding = keep;
        return dst;
    }
    View base = view_of(dst);
    HeapBlock converted;
    const char *bytes = add.text;
    int32_t n = add.bytes;
    if (add.encoding != base.encoding && !(base.encoding->ascii_compatible &&
                                           add.encoding->ascii_compatible && all_ascii(bytes, n))) {
        char *out = nullptr;
        if (ConvertEncoding_L(add.encoding, add.text, add.bytes, base.encoding, &out, &n) != 0)
            return dst;
        converted.reset(out);
        bytes = out;
    }
    int32_t w = terminator_width(base.encoding);
    size_t size = static_cast<size_t>(base.bytes) + n + w;
    auto *text = static_cast<char *>(QV_REALLOC(dst->text, size));
    if (text == nullptr) return dst;
    std::memcpy(text + base.bytes, bytes, n);
    std::memset(text + base.bytes + n, 0, w);
    dst->text = text;
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

QV_STRING_T *CodePointToString_SL(QV_STRING_T *dst, int32_t code_point,
                                  const QV_ENCODING_T *encoding) {
    if (SetNull_SL(dst) == nullptr) return nullptr;
    const QV_ENCODING_T *e = encoding != nullptr ? encoding : PlatformEncoding_L();
    if (!can_encode(e, code_point)) return nullptr;
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
    if (v.is_null() || n <= 0) return 0;
    if (bytes_are_chars(v)) return n < v.bytes ? n : v.bytes;
    if (!force_code_point_path) {
        int32_t walked = walk_to_char(v, n);
        if (walked >= 0) return walked;
    }
    return bytes_through_code_points(v, n);
}

int32_t GetBytesFromChars_SL(const QV_STRING_T *s, int32_t n, char *buffer, int32_t capacity) {
    const QV_ENCODING_T *e = encoding_of(s);
    int32_t w = terminator_width(e);
    if (buffer == nullptr || capacity < w) return -1;
    int32_t bytes = BytesForChars_SL(s, n);
    while (bytes > capacity - w) bytes = BytesForChars_SL(s, --n);
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
    return compare_code_points(view_of(a), view_of(b), -1);
}

int32_t Strcoll_SL(const QV_STRING_T *a, const QV_STRING_T *b) {
    View va = view_of(a), vb = view_of(b);
    icu::Collator *collator = process_collator();
    if (collator == nullptr) return compare_code_points(va, vb, -1);
    CodePoints ca, cb;
    if (!decode(va, ca) || !decode(vb, cb)) return 0;
    icu::UnicodeString ua = icu::UnicodeString::fromUTF32(ca.data, ca.count);
    icu::UnicodeString ub = icu::UnicodeString::fromUTF32(cb.data, cb.count);
    UErrorCode status = U_ZERO_ERROR;
    UCollationResult r = collator->compare(ua, ub, status);
    if (U_FAILURE(status)) return compare_code_points(va, vb, -1);
    return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

int32_t Strcomp_SL(const QV_STRING_T *a, const QV_STRING_T *b, int32_t n, uint8_t case_sensitive) {
    return compare_views(view_of(a), view_of(b), n, case_sensitive);
}

int32_t StrcompE_SL(const QV_STRING_T *a, const char *text, const QV_ENCODING_T *encoding,
                    int32_t n, uint8_t case_sensitive) {
    return compare_views(view_of(a), view_of(text, encoding), n, case_sensitive);
}

// Two UTF-8 texts, or two texts in the same single-byte encoding, go to the matchers as they
// are (the UTF-8 matcher is as fast as the byte one on ASCII text); other pairs are brought
// to one encoding first.
uint8_t Is_Like_SL(const QV_STRING_T *text, const QV_STRING_T *pattern) {
    if (pattern == nullptr || pattern->text == nullptr) return 1;
    const QV_ENCODING_T *te = encoding_of(text), *pe = encoding_of(pattern);
    const char *text_bytes = text != nullptr ? text->text : nullptr;
    if (is_utf8(te) && is_utf8(pe)) return Is_Like8_L(text_bytes, pattern->text);
    if (te == pe && single_byte(te) && !force_code_point_path)
        return Is_Like_L(text_bytes, pattern->text);
    View t = view_of(text), p = view_of(pattern);
    static const char kEmpty[4] = {0, 0, 0, 0};
    if (t.is_null()) t = view_of(kEmpty, t.encoding);
    if (bytes_are_chars(t) && bytes_compatible(t, p) && bytes_compatible(p, t))
        return Is_Like_L(t.text, p.text);
    const char *side[2] = {t.text, p.text};
    HeapBlock converted[2];
    const View *views[2] = {&t, &p};
    for (int i = 0; i < 2; ++i) {
        if (views[i]->encoding->utf8_direct) continue;
        char *out = nullptr;
        if (ConvertEncoding_L(views[i]->encoding, views[i]->text, views[i]->bytes, UTF8Encoding_L(),
                              &out, nullptr) != 0)
            return 0;
        converted[i].reset(out);
        side[i] = out;
    }
    return Is_Like8_L(side[0], side[1]);
}
