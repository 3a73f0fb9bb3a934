// qvstrlib_edit.cpp - the counted strings, part three: search and edit. Part of the module
// "qvstrlib" (see qvstrlib.cpp).
//
// Most members here are written once as a template over the character type: uint8_t when
// bytes stand for characters (the byte path), int32_t for decoded code points. dispatch()
// picks the path from the main string and up to two helper strings (a search text, a
// replacement, a set): the byte path needs the helpers in the main string's encoding or in
// ASCII. Results are collected in an Out buffer and become the string's text in its own
// encoding.
#define QV_MODULE "qvstrlib"

#include <unicode/uchar.h>

#include <climits>
#include <cstring>
#include <string_view>

#include "core/raise.hpp"
#include "qv/textutil.h"
#include "strings/qvstrlib_internal.hpp"

using namespace qv::strlib;

namespace {

template <class T>
struct Seq {
    const T *data = nullptr;
    int32_t n = 0;
    T operator[](int32_t i) const { return data[i]; }
};

Seq<uint8_t> byte_seq(const View &v) {
    return {reinterpret_cast<const uint8_t *>(v.text), v.bytes};
}
Seq<int32_t> cp_seq(const CodePoints &c) {
    return {c.data.get(), c.count};
}

// A growing result; `failed` after an allocation failure with no context open.
template <class T>
class Out {
  public:
    void push(T c) {
        if (reserve(1)) data_[n_++] = c;
    }
    void append(Seq<T> s, int32_t from = 0, int32_t to = -1) {
        if (to < 0) to = s.n;
        if (to > from && reserve(to - from)) {
            std::memcpy(data_.get() + n_, s.data + from, sizeof(T) * (to - from));
            n_ += to - from;
        }
    }
    bool failed() const { return failed_; }
    int32_t size() const { return n_; }
    const T *data() const { return data_.get(); }

  private:
    bool reserve(int32_t more) {
        if (failed_) return false;
        if (static_cast<int64_t>(n_) + more <= cap_) return true;
        int64_t cap = (static_cast<int64_t>(n_) + more) * 2 + 16;
        if (cap * static_cast<int64_t>(sizeof(T)) > INT32_MAX) {
            QV_RAISE(ALLOC_FAILURE);
            return !(failed_ = true);
        }
        void *grown = QV_REALLOC(data_.get(), static_cast<size_t>(cap) * sizeof(T));
        if (grown == nullptr) return !(failed_ = true);
        (void)data_.release();
        data_.reset(static_cast<T *>(grown));
        cap_ = static_cast<int32_t>(cap);
        return true;
    }
    qv::HeapArray<T> data_;
    int32_t n_ = 0, cap_ = 0;
    bool failed_ = false;
};

// Heap text of a result in `encoding`; null on failure.
char *make_text(const Out<uint8_t> &out, const QV_ENCODING_T *encoding) {
    if (out.failed()) return nullptr;
    return copy_bytes(reinterpret_cast<const char *>(out.data()), out.size(), encoding);
}
char *make_text(const Out<int32_t> &out, const QV_ENCODING_T *encoding) {
    if (out.failed()) return nullptr;
    return encode_text(out.data(), out.size(), encoding, nullptr);
}

// Replaces s's text with the result; returns its length in characters (0 on failure).
template <class T>
int32_t store(QV_STRING_T *s, const Out<T> &out) {
    char *text = make_text(out, encoding_of(s));
    adopt(s, text);
    return text != nullptr ? out.size() : 0;
}

// out receives the result in `encoding`; returns its length, or -1 on failure or for a null
// out.
template <class T>
int32_t store_into(QV_STRING_T *out, const Out<T> &result, const QV_ENCODING_T *encoding) {
    SetNull_SL(out);
    if (out == nullptr) return -1;
    char *text = make_text(result, encoding != nullptr ? encoding : PlatformEncoding_L());
    if (text == nullptr) return -1;
    out->text = text;
    out->encoding = encoding;
    return result.size();
}

enum class PathNeeds { kStructure, kProperties };

// Runs body(main, helper1, helper2) on bytes or on code points. `failure` is returned when
// decoding fails.
template <class Result, class Body>
Result dispatch(const View &m, const View &a, const View &b, PathNeeds needs, Result failure,
                Body body) {
    bool bytes = needs == PathNeeds::kProperties ? ascii_bytes(m) : bytes_are_chars(m);
    if (bytes && bytes_compatible(m, a) && bytes_compatible(m, b))
        return body(byte_seq(m), byte_seq(a), byte_seq(b));
    CodePoints cm, ca, cb;
    if (!decode(m, cm) || !decode(a, ca) || !decode(b, cb)) return failure;
    return body(cp_seq(cm), cp_seq(ca), cp_seq(cb));
}

const View kNoView{};

int32_t find_in(Seq<uint8_t> hay, Seq<uint8_t> needle, int32_t from) {
    if (needle.n == 0 || from < 0 || static_cast<int64_t>(from) + needle.n > hay.n) return -1;
    std::string_view text(reinterpret_cast<const char *>(hay.data), hay.n);
    size_t at =
        text.find(std::string_view(reinterpret_cast<const char *>(needle.data), needle.n), from);
    return at == std::string_view::npos ? -1 : static_cast<int32_t>(at);
}
int32_t find_in(Seq<int32_t> hay, Seq<int32_t> needle, int32_t from) {
    return find_code_points(hay.data, hay.n, needle.data, needle.n, from);
}

template <class T>
bool matches_at(Seq<T> hay, Seq<T> needle, int32_t at) {
    return std::memcmp(hay.data + at, needle.data, sizeof(T) * needle.n) == 0;
}

template <class T>
bool contains(Seq<T> set, int32_t c) {
    for (int32_t i = 0; i < set.n; ++i)
        if (static_cast<int32_t>(set[i]) == c) return true;
    return false;
}

template <class T>
int32_t index_in(Seq<T> set, int32_t c) {
    for (int32_t i = 0; i < set.n; ++i)
        if (static_cast<int32_t>(set[i]) == c) return i;
    return -1;
}

// The window [begin, end) of a substring request, cut to n characters.
struct Window {
    int32_t begin, end;
};

Window substring_window(int32_t n, int32_t start, int32_t length) {
    int64_t begin = start > 0 ? start - 1LL : start == 0 ? 0 : static_cast<int64_t>(n) + start;
    int64_t end = length < 0 ? n : begin + length;
    if (begin < 0) begin = 0;
    if (begin > n) begin = n;
    if (end > n) end = n;
    if (end < begin) end = begin;
    return {static_cast<int32_t>(begin), static_cast<int32_t>(end)};
}

// Byte range of characters [begin, end) without decoding, or false when the encoding is not
// walked inline or the range holds an invalid sequence (which a copy must not keep).
bool byte_range(const View &v, Window w, int32_t *from, int32_t *to) {
    if (force_code_point_path) return false;
    *from = walk_to_char(v, w.begin);
    if (*from < 0) return false;
    View rest{v.text + *from, v.bytes - *from, v.encoding};
    bool clean = true;
    *to = *from + walk_chars(rest, w.end - w.begin, rest.bytes, &clean);
    return clean;
}

// Where a quote-aware scan for c stops (0-based), or -1.
template <class T>
int32_t unquoted_position(Seq<T> s, int32_t c) {
    bool quoted = false;
    for (int32_t i = 0; i < s.n; ++i) {
        if (s[i] == 34)
            quoted = !quoted;
        else if (!quoted && static_cast<int32_t>(s[i]) == c)
            return i;
    }
    return -1;
}

bool is_printable(int32_t cp) {
    if (cp < 0x80) return cp >= 0x20 && cp < 0x7F;
    return cp != 0xFFFD && u_isprint(cp);
}

template <class T>
int32_t trim_bounds(Seq<T> s, Seq<T> set, int32_t where, int32_t *end) {
    auto trimmed = [&](int32_t c) { return set.n == 0 ? is_space(c) : contains(set, c); };
    int32_t begin = 0, stop = s.n;
    if (where != QV_TRIM_RIGHT)
        while (begin < stop && trimmed(s[begin])) ++begin;
    if (where != QV_TRIM_LEFT)
        while (stop > begin && trimmed(s[stop - 1])) --stop;
    *end = stop;
    return begin;
}

// Bytes of a needle that can be looked for byte by byte in a text in `e` (UTF-8 or
// single-byte): ASCII, a needle in the same single-byte encoding, or a clean UTF-8 needle in
// UTF-8 text. Its byte length, 0 when empty, -1 when it must be decoded.
int32_t byte_searchable_length(const QV_ENCODING_T *e, const QV_STRING_T *search) {
    const QV_ENCODING_T *se = encoding_of(search);
    if (!se->ascii_compatible || se->terminator_width != 1) return -1;
    const char *needle = search->text;
    unsigned char seen = 0;
    size_t n = 0;
    for (; needle[n] != '\0'; ++n) seen |= static_cast<unsigned char>(needle[n]);
    if (n > INT32_MAX) return -1;
    auto m = static_cast<int32_t>(n);
    if ((seen & 0x80) == 0) return m;
    if (single_byte(e)) return se == e && single_bytes_valid(e, needle, m) ? m : -1;
    return is_utf8(se) && qv::utf::is_clean_utf8(needle, n) ? m : -1;
}

// InString_SL forward when the needle can be looked for byte by byte in a UTF-8 or
// single-byte text: every match then starts on a character (an ASCII or lead byte), and its
// position is the characters before it. The text is read only up to the match. -1 when this
// way does not apply.
int32_t find_bytes_forward(const QV_STRING_T *s, const QV_STRING_T *search, int32_t start,
                           int32_t occurrence) {
    const QV_ENCODING_T *e = encoding_of(s);
    if (force_code_point_path || !ascii_byte_is_char(e)) return -1;
    int32_t m = byte_searchable_length(e, search);
    if (m <= 0) return m;
    const char *text = s->text, *at = text;
    if (start > 1) {
        View v = view_of(s);
        at += single_byte(e) ? (start - 1 < v.bytes ? start - 1 : v.bytes)
                             : walk_to_char(v, start - 1);
    }
    for (int32_t seen = 0;; ++at) {
        at = std::strstr(at, search->text);
        if (at == nullptr) return 0;
        if (++seen == occurrence) break;
    }
    auto before = static_cast<int32_t>(at - text);
    if (single_byte(e) || all_ascii(text, before)) return before + 1;
    return count_chars(View{text, before, e}) + 1;
}

const char kComma[] = ",";
const char kSpace[] = " ";

} // namespace

// ---- Search ---------------------------------------------------------------------------

int32_t Strchr_SL(const QV_STRING_T *s, int32_t code_point) {
    View v = view_of(s);
    if (v.is_null() || code_point < 0) return 0;
    if (code_point > 0 && code_point < 0x80 && bytes_are_chars(v)) {
        const void *hit = std::memchr(v.text, code_point, v.bytes);
        return hit == nullptr ? 0
                              : static_cast<int32_t>(static_cast<const char *>(hit) - v.text) + 1;
    }
    CodePoints cps;
    if (!decode(v, cps)) return 0;
    for (int32_t i = 0; i < cps.count; ++i)
        if (cps.data[i] == code_point) return i + 1;
    return 0;
}

int32_t InString_SL(const QV_STRING_T *s, const QV_STRING_T *search, int32_t start,
                    int32_t occurrence) {
    if (s == nullptr || s->text == nullptr || search == nullptr || search->text == nullptr ||
        start == 0 || occurrence < 1)
        return 0;
    if (start > 0) {
        int32_t found = find_bytes_forward(s, search, start, occurrence);
        if (found >= 0) return found;
    }
    View v = view_of(s), needle = view_of(search);
    if (needle.bytes == 0) return 0;
    return dispatch(v, needle, kNoView, PathNeeds::kStructure, 0, [&](auto hay, auto nd, auto) {
        int32_t seen = 0;
        if (start > 0) {
            for (int32_t at = find_in(hay, nd, start - 1); at >= 0; at = find_in(hay, nd, at + 1))
                if (++seen == occurrence) return at + 1;
            return 0;
        }
        if (nd.n == 0) return 0; // a search text of bytes without characters
        int64_t last = static_cast<int64_t>(hay.n) + start;
        if (last > hay.n - nd.n) last = hay.n - nd.n;
        for (auto at = static_cast<int32_t>(last); at >= 0; --at)
            if (matches_at(hay, nd, at) && ++seen == occurrence) return at + 1;
        return 0;
    });
}

int32_t CountString_SL(const QV_STRING_T *s, const QV_STRING_T *search) {
    View v = view_of(s), needle = view_of(search);
    if (v.is_null() || needle.bytes == 0) return 0;
    return dispatch(v, needle, kNoView, PathNeeds::kStructure, 0, [&](auto hay, auto nd, auto) {
        int32_t count = 0;
        for (int32_t at = find_in(hay, nd, 0); at >= 0; at = find_in(hay, nd, at + nd.n)) ++count;
        return count;
    });
}

uint8_t Strqchr_SL(QV_STRING_T *s, QV_STRING_T *rest, int32_t c) {
    if (s == nullptr || s->text == nullptr) return 0;
    if (s->encoding == nullptr) s->encoding = PlatformEncoding_L();
    View v = view_of(s);
    int32_t stop = dispatch(v, kNoView, kNoView, PathNeeds::kStructure, -2,
                            [&](auto text, auto, auto) { return unquoted_position(text, c); });
    if (stop == -2) return 0;
    if (stop < 0) {
        SetNull_SL(rest);
        if (rest != nullptr) {
            rest->text = copy_bytes("", 0, s->encoding);
            rest->encoding = s->encoding;
        }
        return 1;
    }
    SubString_SL(s, stop + 2, -1, rest);
    TruncateString_SL(s, stop);
    return 1;
}

// ---- Edit -----------------------------------------------------------------------------

namespace {

// The byte range of a SubString_SL window counted from the start (start >= 0, length >= 0)
// when the text is single-byte, or UTF-8 whose bytes up to the window's end are ASCII: then
// only those bytes are read. False when this way does not apply.
bool window_in_ascii_prefix(const QV_STRING_T *s, int32_t start, int32_t length, int32_t *from,
                            int32_t *to) {
    const QV_ENCODING_T *e = encoding_of(s);
    if (force_code_point_path || start < 0 || length < 0 || !ascii_byte_is_char(e)) return false;
    int64_t begin = start > 0 ? start - 1LL : 0;
    auto end = static_cast<size_t>(begin + length);
    auto bytes = static_cast<int32_t>(strnlen(s->text, end)); // end < 2^32, so bytes fits
    if (single_byte(e) ? !single_bytes_valid(e, s->text, bytes) : !all_ascii(s->text, bytes))
        return false;
    *from = begin < bytes ? static_cast<int32_t>(begin) : bytes;
    *to = bytes;
    return true;
}

// A UTF-8 window counted from the start, walked without counting the whole text; the
// characters taken, or -1 when this way does not apply (or the window holds an invalid
// sequence).
int32_t utf8_window(const View &v, int32_t start, int32_t length, int32_t *from, int32_t *to) {
    if (force_code_point_path || start < 0 || length < 0 || !is_utf8(v.encoding)) return -1;
    *from = walk_to_char(v, start > 0 ? start - 1 : 0);
    View rest{v.text + *from, v.bytes - *from, v.encoding};
    bool clean = true;
    *to = *from + walk_chars(rest, length, rest.bytes, &clean);
    return clean ? count_chars(View{rest.text, *to - *from, v.encoding}) : -1;
}

// out receives bytes [from, to) of s's text, in s's encoding; returns `characters`, or -1
// (out null) when allocation failed.
int32_t copy_window(QV_STRING_T *out, const QV_STRING_T *s, int32_t from, int32_t to,
                    int32_t characters) {
    const char *source = s->text + from;
    const QV_ENCODING_T *encoding = s->encoding;
    int32_t n = to - from, w = terminator_width(encoding_of(s));
    auto *text = static_cast<char *>(QV_MALLOC(static_cast<size_t>(n) + w));
    out->text = text;
    out->encoding = text != nullptr ? encoding : nullptr;
    if (text == nullptr) return -1;
    std::memcpy(text, source, n);
    for (int32_t k = 0; k < w; ++k) text[n + k] = 0;
    return characters;
}

// SubString_SL beyond the ASCII prefix (kept out of line so that the common call stays short).
[[gnu::noinline]] int32_t substring_of_view(const QV_STRING_T *s, int32_t start, int32_t length,
                                            QV_STRING_T *out) {
    int32_t from = 0, to = 0;
    View v = view_of(s);
    if (v.is_null() || length < -1) {
        SetNull_SL(out);
        return v.is_null() ? -1 : -2;
    }
    if (out == nullptr) return -1;
    int32_t taken = utf8_window(v, start, length, &from, &to);
    if (taken >= 0) return copy_window(out, s, from, to, taken);
    bool bytes = bytes_are_chars(v);
    int32_t n = bytes ? v.bytes : force_code_point_path ? -1 : count_chars(v);
    if (n >= 0) {
        Window w = substring_window(n, start, length);
        if (bytes) from = w.begin, to = w.end;
        if (bytes || byte_range(v, w, &from, &to))
            return copy_window(out, s, from, to, w.end - w.begin);
    }
    CodePoints cps;
    if (!decode(v, cps)) return -1;
    Window w = substring_window(cps.count, start, length);
    Out<int32_t> result;
    result.append(cp_seq(cps), w.begin, w.end);
    return store_into(out, result, s->encoding);
}

} // namespace

int32_t SubString_SL(const QV_STRING_T *s, int32_t start, int32_t length, QV_STRING_T *out) {
    int32_t from = 0, to = 0;
    if (s != nullptr && s->text != nullptr && out != nullptr &&
        window_in_ascii_prefix(s, start, length, &from, &to))
        return copy_window(out, s, from, to, to - from);
    return substring_of_view(s, start, length, out);
}

int32_t TruncateString_SL(QV_STRING_T *s, int32_t n) {
    View v = view_of(s);
    if (v.is_null()) return 0;
    if (n < 0) n = 0;
    int32_t bytes = BytesForChars_SL(s, n);
    if (bytes < v.bytes) std::memset(s->text + bytes, 0, terminator_width(v.encoding));
    return Strlen_SL(s);
}

int32_t ReplaceSubString_SL(QV_STRING_T *s, int32_t start, int32_t length,
                            const QV_STRING_T *replacement) {
    View v = view_of(s), with = view_of(replacement);
    if (start < 1) return -1;
    if (v.is_null()) return 0;
    return dispatch(v, with, kNoView, PathNeeds::kStructure, 0, [&](auto text, auto add, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Window w = substring_window(text.n, start, length);
        Out<T> out;
        out.append(text, 0, w.begin);
        out.append(add);
        out.append(text, w.end);
        return store(s, out);
    });
}

int32_t ReplaceString_SL(QV_STRING_T *s, const QV_STRING_T *search,
                         const QV_STRING_T *replacement) {
    View v = view_of(s), needle = view_of(search), with = view_of(replacement);
    if (v.is_null() || needle.bytes == 0) return 0;
    return dispatch(v, needle, with, PathNeeds::kStructure, 0, [&](auto text, auto nd, auto add) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Out<T> out;
        int32_t count = 0, from = 0;
        for (int32_t at = find_in(text, nd, 0); at >= 0; at = find_in(text, nd, from)) {
            out.append(text, from, at);
            out.append(add);
            from = at + nd.n;
            ++count;
        }
        if (count == 0) return 0;
        out.append(text, from);
        return store(s, out) > 0 || out.size() == 0 ? count : 0;
    });
}

int32_t Translate_SL(const QV_STRING_T *s, const QV_STRING_T *from, const QV_STRING_T *to,
                     QV_STRING_T *out) {
    View v = view_of(s), vf = view_of(from), vt = view_of(to);
    const QV_ENCODING_T *encoding = s != nullptr ? s->encoding : nullptr;
    SetNull_SL(out);
    if (v.is_null() || out == nullptr) return 0;
    if (bytes_are_chars(v) && bytes_compatible(v, vf) && bytes_compatible(v, vt) &&
        bytes_compatible(vf, vt)) {
        char *text = copy_bytes(v.text, v.bytes, v.encoding);
        if (text == nullptr) return 0;
        Translate_L(text, vf.text, vt.text);
        out->text = text;
        out->encoding = encoding;
        return static_cast<int32_t>(std::strlen(text));
    }
    CodePoints cs, cf, ct;
    if (!decode(v, cs) || !decode(vf, cf) || !decode(vt, ct)) return 0;
    qv::HeapArray<int32_t> work(new_code_points(cs.count + 1));
    int32_t *mapped = work.get();
    if (mapped == nullptr) return 0;
    int32_t n = 0;
    for (int32_t i = 0; i < cs.count; ++i) {
        int32_t k = index_in(cp_seq(cf), cs.data[i]);
        if (k < 0)
            mapped[n++] = cs.data[i];
        else if (k < ct.count)
            mapped[n++] = ct.data[k];
    }
    int32_t bytes = 0;
    out->text = encode_text(mapped, n, v.encoding, &bytes);
    if (out->text == nullptr) return 0;
    out->encoding = encoding;
    return bytes;
}

int32_t ExtractString_SL(const QV_STRING_T *s, int32_t field, const QV_STRING_T *separator,
                         QV_STRING_T *out) {
    View v = view_of(s), sep = view_of(separator);
    if (sep.bytes == 0) sep = view_of(kComma, ASCIIEncoding_L());
    if (field < 1 || v.is_null()) {
        SetNull_SL(out);
        return field < 1 ? -2 : -1;
    }
    return dispatch(v, sep, kNoView, PathNeeds::kStructure, -1, [&](auto text, auto sp, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        int32_t begin = 0;
        for (int32_t k = 1; k < field; ++k) {
            int32_t at = find_in(text, sp, begin);
            if (at < 0) {
                SetNull_SL(out);
                return -1;
            }
            begin = at + sp.n;
        }
        int32_t end = find_in(text, sp, begin);
        Out<T> result;
        result.append(text, begin, end < 0 ? text.n : end);
        return store_into(out, result, s->encoding);
    });
}

int32_t RemoveChars_SL(QV_STRING_T *s, const QV_STRING_T *set) {
    View v = view_of(s), vs = view_of(set);
    if (v.is_null()) return 0;
    return dispatch(v, vs, kNoView, PathNeeds::kStructure, 0, [&](auto text, auto chars, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Out<T> out;
        for (int32_t i = 0; i < text.n; ++i)
            if (!contains(chars, text[i])) out.push(text[i]);
        return out.size() == text.n ? text.n : store(s, out);
    });
}

int32_t RemoveFirstChar_SL(QV_STRING_T *s) {
    View v = view_of(s);
    if (v.is_null() || v.bytes == 0) return -1;
    if (ascii_bytes(v)) {
        int32_t c = static_cast<uint8_t>(v.text[0]);
        std::memmove(s->text, s->text + 1, v.bytes);
        return c;
    }
    CodePoints cps;
    if (!decode(v, cps) || cps.count == 0) return -1;
    int32_t c = cps.data[0];
    return store_code_points(s, cps.data.get() + 1, cps.count - 1) ? c : -1;
}

int32_t RemoveLastChar_SL(QV_STRING_T *s) {
    View v = view_of(s);
    if (v.is_null() || v.bytes == 0) return -1;
    if (ascii_bytes(v)) {
        int32_t c = static_cast<uint8_t>(v.text[v.bytes - 1]);
        s->text[v.bytes - 1] = 0;
        return c;
    }
    CodePoints cps;
    if (!decode(v, cps) || cps.count == 0) return -1;
    int32_t c = cps.data[cps.count - 1];
    return store_code_points(s, cps.data.get(), cps.count - 1) ? c : -1;
}

QV_STRING_T *AStripAlNum_SL(QV_STRING_T *dst, const QV_STRING_T *src) {
    View v = view_of(src);
    const QV_ENCODING_T *encoding = src != nullptr ? src->encoding : nullptr;
    if (v.is_null() || dst == nullptr) return SetNull_SL(dst);
    dispatch(v, kNoView, kNoView, PathNeeds::kProperties, 0, [&](auto text, auto, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Out<T> out;
        for (int32_t i = 0; i < text.n; ++i)
            if (is_alnum(text[i])) out.push(text[i]);
        return store_into(dst, out, encoding);
    });
    return dst;
}

int32_t MakePrintable_SL(QV_STRING_T *s, int32_t replacement) {
    View v = view_of(s);
    if (v.is_null()) return 0;
    if (replacement == 0 || (replacement > 0 && !can_encode(v.encoding, replacement)))
        replacement = -1; // U+0000 would end the text
    auto body = [&](auto text, auto, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Out<T> out;
        bool changed = false;
        for (int32_t i = 0; i < text.n; ++i) {
            if (is_printable(text[i])) {
                out.push(text[i]);
                continue;
            }
            changed = true;
            if (replacement >= 0) out.push(static_cast<T>(replacement));
        }
        return changed ? store(s, out) : text.n;
    };
    if (replacement < 0x80) return dispatch(v, kNoView, kNoView, PathNeeds::kProperties, 0, body);
    CodePoints cps;
    if (!decode(v, cps)) return 0;
    return body(cp_seq(cps), 0, 0);
}

int32_t StripComments_SL(QV_STRING_T *s) {
    View v = view_of(s);
    if (v.is_null()) return 0;
    return dispatch(v, kNoView, kNoView, PathNeeds::kStructure, 0, [&](auto text, auto, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Out<T> out;
        int32_t quote = 0;
        bool stripped = false;
        for (int32_t i = 0; i < text.n; ++i) {
            int32_t c = text[i];
            if (quote == 0 && c == '/' && i + 1 < text.n && text[i + 1] == '/') {
                while (i < text.n && text[i] != '\n') ++i;
                stripped = true;
                if (i == text.n) break;
                c = '\n';
            } else if (c == quote) {
                quote = 0;
            } else if (quote == 0 && (c == '"' || c == '\'')) {
                quote = c;
            }
            out.push(static_cast<T>(c));
        }
        return stripped ? store(s, out) : text.n;
    });
}

int32_t Collapse_SL(QV_STRING_T *s) {
    View v = view_of(s);
    if (v.is_null()) return 0;
    return dispatch(v, kNoView, kNoView, PathNeeds::kProperties, 0, [&](auto text, auto, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Out<T> out;
        bool gap = false;
        for (int32_t i = 0; i < text.n; ++i) {
            if (is_space(text[i])) {
                gap = out.size() > 0;
                continue;
            }
            if (gap) out.push(static_cast<T>(' '));
            gap = false;
            out.push(text[i]);
        }
        return store(s, out);
    });
}

int32_t TrimUtil_SL(QV_STRING_T *s, const QV_STRING_T *set, int32_t where) {
    View v = view_of(s), vs = view_of(set);
    if (v.is_null()) return 0;
    if (where != QV_TRIM_LEFT && where != QV_TRIM_RIGHT) where = QV_TRIM_BOTH;
    bool by_set = vs.bytes > 0;
    if (!by_set) vs = kNoView;
    auto needs = by_set ? PathNeeds::kStructure : PathNeeds::kProperties;
    if ((by_set ? bytes_are_chars(v) : ascii_bytes(v)) && bytes_compatible(v, vs)) {
        TrimUtil_L(s->text, by_set ? vs.text : nullptr, where);
        return byte_length(s->text, v.encoding);
    }
    return dispatch(v, vs, kNoView, needs, 0, [&](auto text, auto chars, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        int32_t end = 0;
        int32_t begin = trim_bounds(text, chars, where, &end);
        if (begin == 0 && end == text.n) return text.n;
        Out<T> out;
        out.append(text, begin, end);
        return store(s, out);
    });
}

int32_t Pad_SL(QV_STRING_T *s, int32_t length, const QV_STRING_T *pad, uint8_t at_left) {
    View v = view_of(s), vp = view_of(pad);
    if (v.is_null()) return 0;
    if (vp.bytes == 0) vp = view_of(kSpace, ASCIIEncoding_L());
    if (length < 0) length = 0;
    if (bytes_are_chars(v) && bytes_compatible(v, vp)) {
        char *text = Pad_L(v.text, length, vp.text, at_left);
        adopt(s, text);
        return text != nullptr ? length : 0;
    }
    return dispatch(v, vp, kNoView, PathNeeds::kStructure, 0, [&](auto text, auto fill, auto) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(text[0])>>;
        Out<T> out;
        int32_t keep = text.n < length ? text.n : length;
        if (!at_left) out.append(text, 0, keep);
        for (int32_t i = 0; i < length - keep; ++i)
            out.push(fill.n > 0 ? fill[i % fill.n] : static_cast<T>(' ')); // a pad of no characters
        if (at_left) out.append(text, 0, keep);
        return store(s, out);
    });
}

int32_t Soundex_SL(const QV_STRING_T *s, QV_STRING_T *out) {
    View v = view_of(s);
    SetNull_SL(out);
    if (v.is_null() || out == nullptr) return 0;
    char code[8] = {0};
    if (ascii_bytes(v)) {
        Soundex_L(v.text, code);
    } else {
        CodePoints cps;
        if (!decode(v, cps)) return 0;
        qv::HeapText ascii(static_cast<char *>(QV_MALLOC(static_cast<size_t>(cps.count) + 1)));
        if (ascii == nullptr) return 0;
        for (int32_t i = 0; i < cps.count; ++i)
            ascii.get()[i] = static_cast<char>(cps.data[i] < 0x80 ? cps.data[i] : 0x1A);
        ascii.get()[cps.count] = 0;
        Soundex_L(ascii.get(), code);
    }
    out->text = copy_bytes(code, static_cast<int32_t>(std::strlen(code)), ASCIIEncoding_L());
    if (out->text == nullptr) return 0;
    out->encoding = ASCIIEncoding_L();
    return 1;
}
