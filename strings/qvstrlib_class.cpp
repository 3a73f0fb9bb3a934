// qvstrlib_class.cpp - the counted strings, part two: character classes, letter case and
// the number tests. Part of the module "qvstrlib" (see qvstrlib.cpp).
//
// Classes come from ICU's properties: white space is the Unicode White_Space property,
// letters the L categories, digits Nd, upper and lower case the Lu and Ll categories. ASCII
// bytes are looked up in a table that agrees with those properties.
#define QV_MODULE "qvstrlib"

#include <unicode/dcfmtsym.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>

#include <array>

#include "core/raise.hpp"
#include "strings/qvstrlib_internal.hpp"

namespace qv::strlib {

namespace {

enum : uint8_t { kSpace = 1, kAlpha = 2, kDigit = 4, kUpper = 8, kLower = 16 };

constexpr std::array<uint8_t, 128> make_ascii_classes() {
    std::array<uint8_t, 128> t{};
    for (int c = 9; c <= 13; ++c) t[c] = kSpace;
    t[' '] = kSpace;
    for (int c = '0'; c <= '9'; ++c) t[c] = kDigit;
    for (int c = 'A'; c <= 'Z'; ++c) t[c] = kAlpha | kUpper;
    for (int c = 'a'; c <= 'z'; ++c) t[c] = kAlpha | kLower;
    return t;
}
constexpr std::array<uint8_t, 128> kAsciiClasses = make_ascii_classes();
static_assert(kAsciiClasses['\t'] == kSpace && kAsciiClasses['_'] == 0);

bool has_class(int32_t cp, uint8_t wanted) {
    if (cp >= 0 && cp < 0x80) return (kAsciiClasses[cp] & wanted) != 0;
    switch (wanted) {
        case kSpace: return u_isUWhiteSpace(cp);
        case kAlpha: return u_isalpha(cp);
        case kDigit: return u_isdigit(cp);
        case kUpper: return u_isupper(cp);
        case kLower: return u_islower(cp);
        default: return u_isalpha(cp) || u_isdigit(cp);
    }
}

} // namespace

bool is_space(int32_t cp) {
    return has_class(cp, kSpace);
}
bool is_alpha(int32_t cp) {
    return has_class(cp, kAlpha);
}
bool is_digit(int32_t cp) {
    return has_class(cp, kDigit);
}
bool is_alnum(int32_t cp) {
    return has_class(cp, kAlpha | kDigit);
}

} // namespace qv::strlib

using namespace qv::strlib;

namespace {

// Calls visit(code point) for every character until it returns false; false when the
// string could not be read (allocation failure).
template <class Visit>
bool for_each_char(const View &v, Visit visit) {
    if (ascii_bytes(v)) {
        for (int32_t i = 0; i < v.bytes; ++i)
            if (!visit(static_cast<int32_t>(static_cast<uint8_t>(v.text[i])))) break;
        return true;
    }
    CodePoints cps;
    if (!decode(v, cps)) return false;
    for (int32_t i = 0; i < cps.count; ++i)
        if (!visit(cps.data[i])) break;
    return true;
}

template <class Test>
uint8_t every_char(const QV_STRING_T *s, Test test) {
    View v = view_of(s);
    if (v.is_null() || v.bytes == 0) return 0;
    bool all = true;
    if (!for_each_char(v, [&](int32_t cp) { return all = test(cp); })) return 0;
    return all;
}

template <class Test>
uint8_t first_char(const QV_STRING_T *s, Test test) {
    View v = view_of(s);
    bool result = false;
    if (!v.is_null()) for_each_char(v, [&](int32_t cp) { return result = test(cp), false; });
    return result;
}

// At least one character of case `wanted` and none of the other case.
uint8_t all_cased(const QV_STRING_T *s, bool upper) {
    View v = view_of(s);
    bool seen = false, other = false;
    if (v.is_null()) return 0;
    for_each_char(v, [&](int32_t cp) {
        bool up = u_isupper(cp) != 0, low = u_islower(cp) != 0;
        if (cp < 0x80) up = cp >= 'A' && cp <= 'Z', low = cp >= 'a' && cp <= 'z';
        seen = seen || (upper ? up : low);
        other = other || (upper ? low : up);
        return !other;
    });
    return seen && !other;
}

// ---- Numbers ----------------------------------------------------------------------------

struct Separators {
    int32_t decimal = '.';
    int32_t grouping = ',';
};

const Separators &locale_separators() {
    static const Separators separators = [] {
        Separators s;
        UErrorCode status = U_ZERO_ERROR;
        icu::DecimalFormatSymbols symbols(icu::Locale::getDefault(), status);
        if (U_FAILURE(status)) return s;
        icu::UnicodeString d =
            symbols.getSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol);
        icu::UnicodeString g =
            symbols.getSymbol(icu::DecimalFormatSymbols::kGroupingSeparatorSymbol);
        if (d.length() > 0) s.decimal = d.char32At(0);
        if (g.length() > 0 && g.char32At(0) != s.decimal) s.grouping = g.char32At(0);
        return s;
    }();
    return separators;
}

enum class NumberKind { kNone, kInteger, kFloat };

// Reads [ws][sign]digits-with-grouping[decimal digits][exponent][ws] over at(0..n-1).
template <class At>
NumberKind number_kind(At at, int32_t n, const Separators &sep) {
    int32_t i = 0, digits = 0;
    while (i < n && is_space(at(i))) ++i;
    if (i < n && (at(i) == '+' || at(i) == '-')) ++i;
    for (; i < n; ++i) {
        if (is_digit(at(i)))
            ++digits;
        else if (at(i) != sep.grouping || digits == 0 || i + 1 >= n || !is_digit(at(i + 1)))
            break;
    }
    bool fraction = false, exponent = false;
    if (i < n && at(i) == sep.decimal) {
        fraction = true;
        for (++i; i < n && is_digit(at(i)); ++i) ++digits;
    }
    if (digits == 0) return NumberKind::kNone;
    if (i < n && (at(i) == 'e' || at(i) == 'E')) {
        exponent = true;
        if (++i < n && (at(i) == '+' || at(i) == '-')) ++i;
        int32_t start = i;
        while (i < n && is_digit(at(i))) ++i;
        if (i == start) return NumberKind::kNone;
    }
    while (i < n && is_space(at(i))) ++i;
    if (i != n) return NumberKind::kNone;
    return fraction || exponent ? NumberKind::kFloat : NumberKind::kInteger;
}

template <class Body>
auto with_code_points(const View &v, Body body) {
    if (ascii_bytes(v))
        return body(
            [&](int32_t i) { return static_cast<int32_t>(static_cast<uint8_t>(v.text[i])); },
            v.bytes);
    CodePoints cps;
    if (!decode(v, cps)) cps.count = 0;
    return body([&](int32_t i) { return cps.data[i]; }, cps.count);
}

NumberKind classify_number(const QV_STRING_T *s) {
    View v = view_of(s);
    if (v.is_null()) return NumberKind::kNone;
    const Separators &sep = locale_separators();
    return with_code_points(v, [&](auto at, int32_t n) { return number_kind(at, n, sep); });
}

int32_t digit_value(int32_t cp) {
    return cp < 0x80 ? cp - '0' : u_charDigitValue(cp);
}

template <class At>
int32_t read_integer(At at, int32_t n, int64_t *value) {
    int32_t i = 0;
    while (i < n && is_space(at(i))) ++i;
    bool negative = i < n && at(i) == '-';
    if (i < n && (at(i) == '+' || at(i) == '-')) ++i;
    int32_t start = i;
    uint64_t magnitude = 0;
    const uint64_t limit = negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
    bool overflow = false;
    for (; i < n && is_digit(at(i)); ++i) {
        auto d = static_cast<uint64_t>(digit_value(at(i)));
        if (magnitude > (limit - d) / 10)
            overflow = true;
        else
            magnitude = magnitude * 10 + d;
    }
    if (i == start) return -1;
    while (i < n && is_space(at(i))) ++i;
    if (i != n) return -1;
    if (overflow) return -2;
    *value = negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
    return 0;
}

// ---- Case -----------------------------------------------------------------------------

// Maps each code point, leaving those whose mapping the encoding cannot hold.
template <class Map>
void map_code_points(QV_STRING_T *s, Map map) {
    View v = view_of(s);
    CodePoints cps;
    if (!decode(v, cps)) return;
    for (int32_t i = 0; i < cps.count; ++i) {
        int32_t mapped = map(i, cps.data[i]);
        if (mapped != cps.data[i] && can_encode(v.encoding, mapped)) cps.data[i] = mapped;
    }
    store_code_points(s, cps.data.get(), cps.count);
}

// The letters of eight ASCII bytes in another case: `from` is the first letter of the case
// they leave ('a' or 'A'). Each byte plus (0x80 - from) has its high bit set from `from` on,
// plus (0x80 - from - 26) from past the last letter on; the bytes between get 0x20 moved.
uint64_t swap_case_of_letters(uint64_t word, char from) {
    constexpr uint64_t ones = 0x0101010101010101ULL;
    const uint64_t at_or_after = word + ones * static_cast<uint8_t>(0x80 - from);
    const uint64_t past = word + ones * static_cast<uint8_t>(0x80 - from - 26);
    const uint64_t letters = (at_or_after ^ past) & ones * 0x80;
    return from == 'a' ? word - (letters >> 2) : word + (letters >> 2);
}

// The ASCII letters of an ASCII text (in an encoding where ASCII bytes are characters) in
// upper or lower case, in place; false (nothing done) when the text is not all ASCII.
bool ascii_case_in_place(QV_STRING_T *s, bool upper) {
    const QV_ENCODING_T *e = encoding_of(s);
    if (force_code_point_path || !ascii_byte_is_char(e)) return false;
    const size_t n = std::strlen(s->text);
    if (!qv::utf::all_ascii(s->text, n)) return false;
    const char from = upper ? 'a' : 'A';
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        uint64_t word;
        std::memcpy(&word, s->text + i, 8);
        word = swap_case_of_letters(word, from);
        std::memcpy(s->text + i, &word, 8);
    }
    for (; i < n; ++i)
        if (s->text[i] >= from && s->text[i] < from + 26) s->text[i] ^= 0x20;
    return true;
}

int32_t ascii_upper(int32_t c) {
    return c >= 'a' && c <= 'z' ? c - 32 : c;
}
int32_t ascii_lower(int32_t c) {
    return c >= 'A' && c <= 'Z' ? c + 32 : c;
}

QV_STRING_T *change_case(QV_STRING_T *s, bool upper) {
    if (s == nullptr || s->text == nullptr) return s;
    if (ascii_case_in_place(s, upper)) return s;
    map_code_points(s, [&](int32_t, int32_t cp) { return upper ? u_toupper(cp) : u_tolower(cp); });
    return s;
}

} // namespace

// ---- Classification ---------------------------------------------------------------------

uint8_t IsSpaceStr_SL(const QV_STRING_T *s) {
    return every_char(s, is_space);
}
uint8_t IsAlphaStr_SL(const QV_STRING_T *s) {
    return every_char(s, is_alpha);
}
uint8_t IsAlnum_SL(const QV_STRING_T *s) {
    return every_char(s, is_alnum);
}
uint8_t IsDigit_SL(const QV_STRING_T *s) {
    return every_char(s, is_digit);
}
uint8_t IsLower_SL(const QV_STRING_T *s) {
    return all_cased(s, false);
}
uint8_t IsUpper_SL(const QV_STRING_T *s) {
    return all_cased(s, true);
}
uint8_t IsSpace_SL(const QV_STRING_T *s) {
    return first_char(s, is_space);
}
uint8_t IsAlpha_SL(const QV_STRING_T *s) {
    return first_char(s, is_alpha);
}

uint8_t IsLocaleInteger_SL(const QV_STRING_T *s) {
    return classify_number(s) == NumberKind::kInteger;
}
uint8_t IsLocaleFloat_SL(const QV_STRING_T *s) {
    return classify_number(s) == NumberKind::kFloat;
}
uint8_t IsLocaleNumeric_SL(const QV_STRING_T *s) {
    return classify_number(s) != NumberKind::kNone;
}

int32_t ScanForWhiteSpace_SL(const QV_STRING_T *s) {
    View v = view_of(s);
    int32_t position = 0, found = 0;
    if (v.is_null()) return 0;
    for_each_char(v, [&](int32_t cp) {
        ++position;
        if (is_space(cp)) found = position;
        return found == 0;
    });
    return found;
}

int32_t ToInteger_SL(const QV_STRING_T *s, int64_t *value) {
    View v = view_of(s);
    if (v.is_null() || value == nullptr) return -1;
    return with_code_points(v, [&](auto at, int32_t n) { return read_integer(at, n, value); });
}

// ---- Case -------------------------------------------------------------------------------

QV_STRING_T *ToLower_SL(QV_STRING_T *s) {
    return change_case(s, false);
}
QV_STRING_T *ToUpper_SL(QV_STRING_T *s) {
    return change_case(s, true);
}

QV_STRING_T *Initcap_SL(QV_STRING_T *s) {
    if (s == nullptr || s->text == nullptr) return s;
    bool in_word = false;
    if (ascii_bytes(view_of(s))) {
        for (auto *p = reinterpret_cast<unsigned char *>(s->text); *p != 0; ++p) {
            *p = static_cast<unsigned char>(in_word ? ascii_lower(*p) : ascii_upper(*p));
            in_word = is_alnum(*p);
        }
        return s;
    }
    map_code_points(s, [&](int32_t, int32_t cp) {
        int32_t mapped = in_word ? u_tolower(cp) : u_totitle(cp);
        in_word = is_alnum(cp);
        return mapped;
    });
    return s;
}
