// builtin_string.cpp - the text built-ins (module "builtin"): Substr, Left, Right, Length,
// InStr, CountStr, ExtractStr, Replace, Translate, the pads and trims, the case functions,
// Collapse, Soundex, Char, the character tests, Concat, ConcatSep, Checksum, I18NString and
// I18NConvert.
//
// Each hands its work to one counted-string operation (qv/qvstrlib.h), so characters are
// counted, not bytes, in whatever encoding the text is: the result is in the encoding of
// the first string argument (text in the ASCII encoding, as the language marks plain
// literals, is read as the UTF-8 it also is, so that its results may hold any character),
// and a second string in another encoding is read through its own; characters the result's
// encoding cannot hold become its substitute. An argument that is not text is taken by its text
// form (UTF-8), except in Substr, whose string must be CHAR or CLOB. Positions and counts beyond 32
// bits are cut to the 32-bit range, where they mean the same (to the end, from the start).
#define QV_MODULE "builtin"

#include <cstring>

#include "language/builtin_shared.hpp"
#include "qv/encoding.h"

namespace {

using namespace qv::builtin;
using qv::values::TextForm;

// The text of `value`, copied into the result (its own block reused when it has room),
// edited there in place by edit(&text) and kept; NULL when the value has no text or the
// edit leaves none.
template <class Edit>
void store_edited(QV_VALUE_T *result, const QV_VALUE_T *value, Edit edit) {
    TextArgument text;
    if (!text.read(value)) return set_null(result);
    const QV_STRING_T *string = text.get();
    const std::size_t size = qv::values::terminator_width(string->encoding) == 1
                                 ? std::strlen(string->text)
                                 : static_cast<std::size_t>(Bytelen_SL(string, 0));
    if (!qv::values::copy_text_into(*result, {string->text, size}, string->encoding))
        return set_null(result);
    edit(&result->payload.string); // replaces the text, freeing the old one, when it must grow
    null_if_empty(result);
}

// The byte range [from, to) of the SubString_SL window (start, count) of a UTF-8 text when
// the text is ASCII up to the window's end, so that bytes are characters and only those
// bytes are read (as SubString_SL takes it); false otherwise.
bool ascii_window(const QV_STRING_T *text, int64_t start, int64_t count, std::size_t &from,
                  std::size_t &to) {
    if (start < 0 || count < 0 || !qv::values::is_utf8(text->encoding)) return false;
    const auto begin = static_cast<std::size_t>(start > 0 ? start - 1 : 0);
    to = strnlen(text->text, begin + static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < to; ++i)
        if (static_cast<unsigned char>(text->text[i]) >= 0x80) return false;
    from = begin < to ? begin : to;
    return true;
}

// The window of SubString_SL stored; NULL for its failures. Start and count are cut to 32
// bits first.
void store_window(QV_VALUE_T *result, const QV_STRING_T *text, int64_t start, int64_t count) {
    start = clamp32(start);
    count = clamp32(count);
    std::size_t from = 0, to = 0;
    if (ascii_window(text, start, count, from, to))
        return store_text_copy(result, {text->text + from, to - from}, text->encoding);
    QV_STRING_T out{};
    if (SubString_SL(text, static_cast<int32_t>(start), static_cast<int32_t>(count), &out) < 0)
        return set_null(result);
    store_text(result, out);
}

// ---- Windows ---------------------------------------------------------------------------------

// SubStr( string, from [, count] ): the type is CHAR of the string's length.
void substring(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *from,
               QV_VALUE_T *count) {
    if (!begin(result, frame, QV_TYPE_CHAR, s != nullptr ? s->descriptor.precision : 0)) return;
    TextArgument text;
    int64_t start = 0, n = 0;
    if (!text.read(s, true) || !read_integer(from, start) || !optional_integer(count, -1, n))
        return set_null(result);
    store_window(result, text.get(), start, n);
}

// Left( value, n ) and Right( value, n ): the first or last n characters; NULL for n <= 0.
template <bool FromEnd>
void edge(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *count) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextArgument text;
    int64_t n = 0;
    if (!text.read(s) || !read_integer(count, n) || n <= 0) return set_null(result);
    n = clamp32(n);
    if (FromEnd) return store_window(result, text.get(), -n, -1);
    store_window(result, text.get(), 1, n);
}

void length(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    TextArgument text;
    if (!text.read(s)) return set_null(result);
    store_integer(result, Strlen_SL(text.get()));
}

// ---- Searches --------------------------------------------------------------------------------

// InStr( string, search [, start [, occurrence]] ): start and occurrence default to 1.
void in_string(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *search,
               QV_VALUE_T *start, QV_VALUE_T *occurrence) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    TextArgument text, needle;
    int64_t from = 0, nth = 0;
    if (!text.read(s) || !needle.read(search) || !optional_integer(start, 1, from) ||
        !optional_integer(occurrence, 1, nth))
        return set_null(result);
    store_integer(result, InString_SL(text.get(), needle.get(), clamp32(from), clamp32(nth)));
}

// CountStr( string, search ): non-overlapping occurrences, as an INTEGER.
void count_string(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *search) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    TextArgument text, needle;
    if (!text.read(s) || !needle.read(search)) return set_null(result);
    store_integer(result, CountString_SL(text.get(), needle.get()));
}

// ExtractStr( string, n [, separator] ): the field number is checked before the string.
void extract_string(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *field,
                    QV_VALUE_T *separator) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    int64_t n = 0;
    TextArgument text, by;
    if (!read_integer(field, n) || n < 1 || !text.read(s)) return set_null(result);
    QV_STRING_T out{};
    if (ExtractString_SL(text.get(), clamp32(n), by.read(separator) ? by.get() : nullptr, &out) < 0)
        return set_null(result);
    store_text(result, out);
}

// ---- Edits -----------------------------------------------------------------------------------

// Replace( string, search [, replacement] ): an omitted replacement removes. NULL when the
// result would pass kMaxResultBytes.
void replace(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *search,
             QV_VALUE_T *replacement) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextArgument text, needle, with;
    if (!text.read(s) || !needle.read(search)) return set_null(result);
    const QV_STRING_T *by = with.read(replacement) ? with.get() : nullptr;
    if (by != nullptr) {
        const auto bytes = static_cast<std::size_t>(Bytelen_SL(text.get(), 0));
        const auto needle_bytes = static_cast<std::size_t>(Bytelen_SL(needle.get(), 0));
        const auto with_bytes = static_cast<std::size_t>(Bytelen_SL(by, 0));
        if (needle_bytes > 0 && with_bytes > needle_bytes &&
            bytes + bytes / needle_bytes * with_bytes > kMaxResultBytes &&
            bytes + static_cast<std::size_t>(CountString_SL(text.get(), needle.get())) *
                        with_bytes >
                kMaxResultBytes)
            return set_null(result);
    }
    store_edited(result, s, [&](QV_STRING_T *copy) { ReplaceString_SL(copy, needle.get(), by); });
}

// Translate( string, from [, to] ): characters of `from` become those at the same place in
// `to`, or go when `to` is shorter or omitted.
void translate(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *from,
               QV_VALUE_T *to) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextArgument text, old_chars, new_chars;
    if (!text.read(s) || !old_chars.read(from)) return set_null(result);
    QV_STRING_T out{};
    Translate_SL(text.get(), old_chars.get(), new_chars.read(to) ? new_chars.get() : nullptr, &out);
    store_text(result, out);
}

// LPad and RPad( string, length [, pad] ): exactly `length` characters, padded with
// repetitions of pad (a space when omitted) or cut. NULL for a length of 0 or less or above
// kMaxPadCharacters.
template <bool AtLeft>
void pad(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *length,
         QV_VALUE_T *fill) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    int64_t n = 0;
    TextArgument with;
    if (!read_integer(length, n) || n <= 0 || n > kMaxPadCharacters) return set_null(result);
    const QV_STRING_T *by = with.read(fill) ? with.get() : nullptr;
    store_edited(result, s,
                 [&](QV_STRING_T *copy) { Pad_SL(copy, static_cast<int32_t>(n), by, AtLeft); });
}

// LTrim, RTrim and Trim( string [, set] ): the characters of set (white space when omitted
// or empty) taken off the start, the end or both.
template <int32_t Where>
void trim(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *set) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextArgument chars;
    const QV_STRING_T *by = chars.read(set) ? chars.get() : nullptr;
    store_edited(result, s, [&](QV_STRING_T *copy) { TrimUtil_SL(copy, by, Where); });
}

// InitCap and Collapse: one in-place operation on a copy.
template <auto Edit>
void edited(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    store_edited(result, s, [](QV_STRING_T *copy) { Edit(copy); });
}

// The ASCII letters of a terminated text in upper (or lower) case, in place, up to the end
// or the first byte beyond ASCII; false when there is such a byte.
template <bool Upper>
bool ascii_case(char *text) {
    constexpr unsigned char from = Upper ? 'a' : 'A';
    for (auto *p = reinterpret_cast<unsigned char *>(text); *p != 0; ++p) {
        if (*p >= 0x80) return false;
        if (static_cast<unsigned char>(*p - from) < 26) *p ^= 0x20;
    }
    return true;
}

// Upper and Lower: a UTF-8 text that is all ASCII changed by bytes; any other by Edit
// (ToUpper_SL, ToLower_SL), which maps every character, the ASCII letters changed already
// included, the same way.
template <auto Edit, bool Upper>
void change_case(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    store_edited(result, s, [](QV_STRING_T *copy) {
        if (!qv::values::is_utf8(copy->encoding) || !ascii_case<Upper>(copy->text)) Edit(copy);
    });
}

void soundex(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextArgument text;
    QV_STRING_T out{};
    if (!text.read(s) || Soundex_SL(text.get(), &out) == 0) return set_null(result);
    store_text(result, out);
}

// Char( code point ): the one-character text in UTF-8 (a CHAR, whatever the row's mask
// says); NULL for a value that is not a Unicode scalar value, and for 0 (an empty text).
void character(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *code) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    int64_t cp = 0;
    QV_STRING_T out{};
    if (!read_integer(code, cp) || cp < 0 || cp > 0x10FFFF ||
        CodePointToString_SL(&out, static_cast<int32_t>(cp), UTF8Encoding_L()) == nullptr)
        return set_null(result);
    store_text(result, out);
}

// The character tests: BOOLEAN.
template <uint8_t (*Test)(const QV_STRING_T *)>
void test(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    TextArgument text;
    if (!text.read(s)) return set_null(result);
    store_boolean(result, Test(text.get()) != 0);
}

// ---- Joins (form B) --------------------------------------------------------------------------

// The text of a CHAR or CLOB in memory and in UTF-8, where it stands; false for others.
bool utf8_text(const QV_VALUE_T &value, std::string_view &text) {
    return qv::values::own_text(value, text) && qv::values::is_utf8(value.payload.string.encoding);
}

// The text form of a present argument in UTF-8: utf8_text, or any other value's made in
// `form`; false when it has none.
bool utf8_form(const QV_VALUE_T *value, TextForm &form, std::string_view &text) {
    if (!present(value)) return false;
    if (utf8_text(*value, text)) return true;
    if (!form.make_utf8(*value)) return false;
    text = form.view();
    return true;
}

// Concat of a few arguments that are NULL or UTF-8 texts in memory: joined straight into
// the result. False (nothing done) for other arguments, whose text forms must be made.
bool concat_texts(QV_VALUE_T *result, Arguments given) {
    constexpr int32_t kMostPieces = 8;
    std::string_view pieces[kMostPieces];
    if (given.count > kMostPieces) return false;
    for (int32_t i = 0; i < given.count; ++i) {
        if (present(given[i]) && !utf8_text(*given[i], pieces[i])) return false;
    }
    store_joined(result, {pieces, static_cast<std::size_t>(given.count)});
    return true;
}

// Concat( value [, value ... ] ): the text forms joined, in UTF-8; a NULL has no text form
// and adds nothing, so only all NULL (or all empty) gives NULL.
void concat(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments given) {
    if (!begin(result, frame, QV_TYPE_CHAR) || concat_texts(result, given)) return;
    TextJoiner joined;
    for (const QV_VALUE_T *value : given) {
        TextForm form;
        std::string_view text;
        if (utf8_form(value, form, text)) joined.append(text);
    }
    joined.store(result);
}

// ConcatSep( separator, value [, value ... ] ): the text forms of the values with the
// separator between them. NULL values are left out with their separator (a NULL has no
// text form); a NULL separator joins with nothing.
void concat_separated(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments given) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextForm separator;
    std::string_view between;
    if (!utf8_form(given[0], separator, between)) between = {};
    TextJoiner joined;
    bool first = true;
    for (int32_t i = 1; i < given.count; ++i) {
        TextForm form;
        std::string_view text;
        if (!utf8_form(given[i], form, text)) continue;
        if (!first) joined.append(between);
        joined.append(text);
        first = false;
    }
    joined.store(result);
}

// Checksum( value [, value ... ] ): the values folded in order by ChecksumValue_L from 0,
// NULLs included (they fold a marker); never NULL.
void checksum(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments given) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    uint32_t sum = 0;
    for (const QV_VALUE_T *value : given) ChecksumValue_L(value, &sum);
    store_integer(result, sum);
}

// ---- Encodings -------------------------------------------------------------------------------

// The encoding an argument names (UTF-8 when omitted or NULL); null for an unknown name.
const QV_ENCODING_T *named_encoding(const QV_VALUE_T *name) {
    if (!present(name)) return UTF8Encoding_L();
    TextForm form;
    if (!form.make_utf8(*name)) return nullptr;
    return LookupEncoding_L(form.data());
}

// I18NString( string [, encoding] ): the string's bytes, unchanged, taken as text in the
// named encoding. NULL for an unknown encoding.
void i18n_string(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s, QV_VALUE_T *encoding) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextArgument text;
    const QV_ENCODING_T *target = nullptr;
    if (!text.read(s) || (target = named_encoding(encoding)) == nullptr) return set_null(result);
    const QV_STRING_T *string = text.get();
    store_text_copy(result, {string->text, static_cast<std::size_t>(Bytelen_SL(string, 0))},
                    target);
}

// I18NConvert( string [, encoding] ): the string converted into the named encoding
// (characters it cannot hold become its substitute). NULL for an unknown encoding.
void i18n_convert(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *s,
                  QV_VALUE_T *encoding) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    TextArgument text;
    const QV_ENCODING_T *target = nullptr;
    char *converted = nullptr;
    if (!text.read(s) || (target = named_encoding(encoding)) == nullptr ||
        ConvertEncoding_L(text.get()->encoding, text.get()->text, -1, target, &converted,
                          nullptr) != 0)
        return set_null(result);
    store_text(result, QV_STRING_T{converted, target});
}

} // namespace

extern "C" {

QV_API void BI_substr(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                      QV_VALUE_T *a3) {
    run<substring>(result, frame, a1, a2, a3);
}
QV_API void BI_left(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<edge<false>>(result, frame, a1, a2);
}
QV_API void BI_right(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<edge<true>>(result, frame, a1, a2);
}
QV_API void BI_length(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<length>(result, frame, a1);
}
QV_API void BI_in_str(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                      QV_VALUE_T *a3, QV_VALUE_T *a4) {
    run<in_string>(result, frame, a1, a2, a3, a4);
}
QV_API void BI_count_str(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                         QV_VALUE_T *a2) {
    run<count_string>(result, frame, a1, a2);
}
QV_API void BI_extract_str(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                           QV_VALUE_T *a2, QV_VALUE_T *a3) {
    run<extract_string>(result, frame, a1, a2, a3);
}
QV_API void BI_replace(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                       QV_VALUE_T *a3) {
    run<replace>(result, frame, a1, a2, a3);
}
QV_API void BI_translate(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                         QV_VALUE_T *a2, QV_VALUE_T *a3) {
    run<translate>(result, frame, a1, a2, a3);
}
QV_API void BI_lpad(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                    QV_VALUE_T *a3) {
    run<pad<true>>(result, frame, a1, a2, a3);
}
QV_API void BI_rpad(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                    QV_VALUE_T *a3) {
    run<pad<false>>(result, frame, a1, a2, a3);
}
QV_API void BI_ltrim(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<trim<QV_TRIM_LEFT>>(result, frame, a1, a2);
}
QV_API void BI_rtrim(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<trim<QV_TRIM_RIGHT>>(result, frame, a1, a2);
}
QV_API void BI_trim(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<trim<QV_TRIM_BOTH>>(result, frame, a1, a2);
}
QV_API void BI_lower(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<change_case<ToLower_SL, false>>(result, frame, a1);
}
QV_API void BI_upper(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<change_case<ToUpper_SL, true>>(result, frame, a1);
}
QV_API void BI_initcap(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<edited<Initcap_SL>>(result, frame, a1);
}
QV_API void BI_collapse(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<edited<Collapse_SL>>(result, frame, a1);
}
QV_API void BI_soundex(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<soundex>(result, frame, a1);
}
QV_API void BI_char(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<character>(result, frame, a1);
}
QV_API void BI_is_alpha(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsAlphaStr_SL>>(result, frame, a1);
}
QV_API void BI_is_alphanumeric(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsAlnum_SL>>(result, frame, a1);
}
QV_API void BI_is_digit(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsDigit_SL>>(result, frame, a1);
}
QV_API void BI_is_float(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsLocaleFloat_SL>>(result, frame, a1);
}
QV_API void BI_is_integer(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsLocaleInteger_SL>>(result, frame, a1);
}
QV_API void BI_is_lower(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsLower_SL>>(result, frame, a1);
}
QV_API void BI_is_numeric(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsLocaleNumeric_SL>>(result, frame, a1);
}
QV_API void BI_is_upper(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<test<IsUpper_SL>>(result, frame, a1);
}
QV_API void BI_concat(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run_b<concat>(result, frame);
}
QV_API void BI_concat_sep(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run_b<concat_separated>(result, frame);
}
QV_API void BI_checksum(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run_b<checksum>(result, frame);
}
QV_API void BI_i18n_string(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                           QV_VALUE_T *a2) {
    run<i18n_string>(result, frame, a1, a2);
}
QV_API void BI_i18n_convert(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                            QV_VALUE_T *a2) {
    run<i18n_convert>(result, frame, a1, a2);
}

} // extern "C"
