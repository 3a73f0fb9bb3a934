// qvstrlib_bench.cpp - the counted strings beside their peers, per data row: the standard
// library on ASCII text (strcmp, memchr, std::string_view::find ...), ICU on the rest: its
// UnicodeString (conversion in and out included, since the counted strings take and give
// UTF-8), its UTF-8 macros (U8_NEXT, U8_FWD_N), u_toupper loops, a cached converter for
// windows-1252, u_strCaseCompare and ucol_strcollUTF8 with a collator made once.
#include <benchmark/benchmark.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/ucnv.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <cctype>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <strings.h>
#include <vector>

#include "qv/qvstrlib.h"

namespace {

const char kAscii[] = "Customer 004211, Springfield Road 17, order total 1834.50 EUR paid";
const char kUtf8[] = "Kundé 004211, Straße Ωmega 17, 注文 合計 1834.50 € bezahlt ok";
const char kNeedle[] = "total";
const char kNeedle8[] = "合計";
const char kPattern[] = "%order%EUR%";
const char kPattern8[] = "%注文%€%";
// Texts of windows-1252 characters (held here in UTF-8).
const char kWestern[] = "Kundé 004211, Straße Œuvre 17 – “Größe” 1834,50 € bezahlt";

// A row of 20 fields, all ASCII or with one "é" in its third field.
const char kRow[] = "4211,Springfield Road 17,Customer name,2024-03-01,1834.50,EUR,paid,"
                    "web,DE,Berlin,10115,standard,3,0.19,348.56,2183.06,ok,none,7,last field";
const char kRow8[] = "4211,Springfield Road 17,Customér name,2024-03-01,1834.50,EUR,paid,"
                     "web,DE,Berlin,10115,standard,3,0.19,348.56,2183.06,ok,none,7,last field";
constexpr int kRowFields = 20;

QV_STRING_T make(const char *text, const QV_ENCODING_T *encoding = UTF8Encoding_L()) {
    QV_STRING_T s{nullptr, encoding};
    ConvertEncoding_L(UTF8Encoding_L(), text, -1, encoding, &s.text, nullptr);
    return s;
}

// The text with its last letter changed, so that a comparison reads all of it.
std::string changed_at_end(const char *text) {
    std::string changed(text);
    changed.back() = static_cast<char>(changed.back() + 1);
    return changed;
}

// The text with every code point upper-cased one to one (as ToUpper_SL maps them).
std::string upper_utf8(const char *text) {
    std::string out;
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    const auto n = static_cast<int32_t>(std::strlen(text));
    for (int32_t i = 0; i < n;) {
        UChar32 c;
        U8_NEXT(p, i, n, c);
        char bytes[4];
        int32_t k = 0;
        U8_APPEND_UNSAFE(bytes, k, u_toupper(c));
        out.append(bytes, k);
    }
    return out;
}

icu::UnicodeString utf16(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
}

// A plain LIKE over units: "%" any run, "_" one unit.
template <class Unit>
bool like(const Unit *t, int tn, const Unit *p, int pn) {
    int ti = 0, pi = 0, star = -1, mark = 0;
    while (ti < tn) {
        if (pi < pn && (p[pi] == '_' || p[pi] == t[ti]))
            ++ti, ++pi;
        else if (pi < pn && p[pi] == '%')
            star = pi++, mark = ti;
        else if (star >= 0)
            pi = star + 1, ti = ++mark;
        else
            return false;
    }
    while (pi < pn && p[pi] == '%') ++pi;
    return pi == pn;
}

// ---- Length ----------------------------------------------------------------------------

void BM_Strlen_SL(benchmark::State &state, const char *text) {
    QV_STRING_T s = make(text);
    for (auto _ : state) benchmark::DoNotOptimize(Strlen_SL(&s));
    FreeString_SL(&s);
}
void BM_Strlen_std(benchmark::State &state, const char *text) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(std::strlen(text));
    }
}
void BM_Strlen_loop(benchmark::State &state, const char *text) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        int n = 0;
        for (const char *p = text; *p; ++p) n += (*p & 0xC0) != 0x80;
        benchmark::DoNotOptimize(n);
    }
}
void BM_Strlen_icu(benchmark::State &state, const char *text) {
    for (auto _ : state) benchmark::DoNotOptimize(icu::UnicodeString::fromUTF8(text).countChar32());
}

// The bytes of n characters of a long UTF-8 text (a third of them two or three bytes long).
std::string long_utf8(int64_t characters) {
    std::string text;
    text.reserve(static_cast<size_t>(characters) * 2);
    for (int64_t i = 0; i < characters; i += 3) text += "aé€";
    return text;
}
void BM_GetBytesFromChars_SL(benchmark::State &state) {
    const auto n = static_cast<int32_t>(state.range(0));
    std::string text = long_utf8(n);
    QV_STRING_T s = make(text.c_str());
    std::vector<char> buffer(text.size() + 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            GetBytesFromChars_SL(&s, n, buffer.data(), static_cast<int32_t>(buffer.size())));
    FreeString_SL(&s);
}
void BM_GetBytesFromChars_icu(benchmark::State &state) {
    const auto n = static_cast<int32_t>(state.range(0));
    std::string text = long_utf8(n);
    std::vector<char> buffer(text.size() + 1);
    const auto *p = reinterpret_cast<const uint8_t *>(text.c_str());
    const auto length = static_cast<int32_t>(text.size());
    for (auto _ : state) {
        int32_t i = 0;
        U8_FWD_N(p, i, length, n);
        std::memcpy(buffer.data(), p, static_cast<size_t>(i));
        buffer[static_cast<size_t>(i)] = 0;
        benchmark::DoNotOptimize(buffer.data());
    }
}

// ---- Case ------------------------------------------------------------------------------

void BM_ToUpper_SL(benchmark::State &state, const char *text, const char *encoding) {
    QV_STRING_T source = make(text, LookupEncoding_L(encoding));
    for (auto _ : state) {
        QV_STRING_T s;
        Astrcpy_SL(&s, &source);
        ToUpper_SL(&s);
        benchmark::DoNotOptimize(s.text);
        FreeString_SL(&s);
    }
    FreeString_SL(&source);
}
void BM_ToUpper_std(benchmark::State &state, const char *text) {
    for (auto _ : state) {
        char *s = strdup(text);
        for (char *p = s; *p; ++p)
            *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
        benchmark::DoNotOptimize(s);
        free(s);
    }
}
void BM_ToUpper_icu(benchmark::State &state, const char *text) {
    for (auto _ : state) {
        std::string out;
        icu::UnicodeString::fromUTF8(text).toUpper().toUTF8String(out);
        benchmark::DoNotOptimize(out.data());
    }
}
// U8_NEXT, u_toupper and U8_APPEND_UNSAFE into a new text.
void BM_ToUpper_u_toupper(benchmark::State &state, const char *text) {
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    const auto n = static_cast<int32_t>(std::strlen(text));
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        auto *out = static_cast<uint8_t *>(malloc(static_cast<size_t>(n) + 4));
        int32_t k = 0;
        for (int32_t i = 0; i < n;) {
            UChar32 c;
            U8_NEXT(p, i, n, c);
            U8_APPEND_UNSAFE(out, k, u_toupper(c));
        }
        out[k] = 0;
        benchmark::DoNotOptimize(out);
        free(out);
    }
}
// A single-byte text through a converter opened once: to UTF-16, u_toupper per unit (the
// text is all BMP), back, into a new text.
void BM_ToUpper_icu_converter(benchmark::State &state, const char *text, const char *encoding) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter *converter = ucnv_open(encoding, &status);
    QV_STRING_T source = make(text, LookupEncoding_L(encoding));
    const char *bytes = source.text;
    const auto n = static_cast<int32_t>(std::strlen(bytes));
    std::vector<UChar> units(static_cast<size_t>(n) + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        status = U_ZERO_ERROR;
        int32_t count = ucnv_toUChars(converter, units.data(), n + 1, bytes, n, &status);
        for (int32_t i = 0; i < count; ++i) units[i] = static_cast<UChar>(u_toupper(units[i]));
        auto *out = static_cast<char *>(malloc(static_cast<size_t>(n) + 1));
        ucnv_fromUChars(converter, out, n + 1, units.data(), count, &status);
        benchmark::DoNotOptimize(out);
        free(out);
    }
    FreeString_SL(&source);
    ucnv_close(converter);
}

// ---- Substrings and search -----------------------------------------------------------------

void BM_SubString_SL(benchmark::State &state, const char *text) {
    QV_STRING_T s = make(text);
    for (auto _ : state) {
        QV_STRING_T out;
        SubString_SL(&s, 10, 20, &out);
        benchmark::DoNotOptimize(out.text);
        FreeString_SL(&out);
    }
    FreeString_SL(&s);
}
void BM_SubString_std(benchmark::State &state, const char *text) {
    std::string_view view(text);
    for (auto _ : state) {
        std::string out(view.substr(9, 20));
        benchmark::DoNotOptimize(out.data());
    }
}
void BM_SubString_malloc(benchmark::State &state, const char *text) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        char *out = static_cast<char *>(malloc(21));
        std::memcpy(out, text + 9, 20);
        out[20] = 0;
        benchmark::DoNotOptimize(out);
        free(out);
    }
}
// The least a terminated text without a stored length allows: find out that the window's
// bytes are there (strnlen to its end), then allocate and copy. SubString_SL must also check
// that those bytes are ASCII before it may take bytes for characters.
void BM_SubString_strnlen(benchmark::State &state, const char *text) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        size_t bytes = strnlen(text, 29);
        size_t from = bytes < 9 ? bytes : 9;
        char *out = static_cast<char *>(malloc(bytes - from + 1));
        std::memcpy(out, text + from, bytes - from);
        out[bytes - from] = 0;
        benchmark::DoNotOptimize(out);
        free(out);
    }
}
void BM_SubString_icu(benchmark::State &state, const char *text) {
    for (auto _ : state) {
        std::string out;
        icu::UnicodeString u = icu::UnicodeString::fromUTF8(text);
        u.tempSubString(u.moveIndex32(0, 9), 20).toUTF8String(out);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_InString_SL(benchmark::State &state, const char *text, const char *needle) {
    QV_STRING_T s = make(text), n = make(needle);
    for (auto _ : state) benchmark::DoNotOptimize(InString_SL(&s, &n, 1, 1));
    FreeString_SL(&s);
    FreeString_SL(&n);
}
// The needle is hidden from the optimiser, as a needle read from a data row would be: a
// constant one lets the compiler fold its length and first byte into the search.
void BM_InString_std(benchmark::State &state, const char *text, const char *needle) {
    std::string_view view(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(view);
        benchmark::DoNotOptimize(needle);
        benchmark::DoNotOptimize(view.find(needle) + 1);
    }
}
// The C library's search on terminated texts, also with a hidden needle.
void BM_InString_strstr(benchmark::State &state, const char *text, const char *needle) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(needle);
        const char *at = std::strstr(text, needle);
        benchmark::DoNotOptimize(at == nullptr ? 0 : at - text + 1);
    }
}
void BM_InString_icu(benchmark::State &state, const char *text, const char *needle) {
    for (auto _ : state) {
        icu::UnicodeString u = icu::UnicodeString::fromUTF8(text);
        int32_t at = u.indexOf(icu::UnicodeString::fromUTF8(needle));
        benchmark::DoNotOptimize(at < 0 ? 0 : u.countChar32(0, at) + 1);
    }
}

// Every field of a row, one call per field, each into a text of its own.
void BM_ExtractString_SL(benchmark::State &state, const char *row) {
    QV_STRING_T s = make(row), comma = make(",");
    for (auto _ : state) {
        for (int32_t field = 1; field <= kRowFields; ++field) {
            QV_STRING_T out;
            benchmark::DoNotOptimize(ExtractString_SL(&s, field, &comma, &out));
            FreeString_SL(&out);
        }
    }
    FreeString_SL(&s);
    FreeString_SL(&comma);
}
// One pass with memchr, each field copied into a malloc'd text.
void BM_ExtractString_memchr(benchmark::State &state, const char *row) {
    const size_t length = std::strlen(row);
    for (auto _ : state) {
        benchmark::DoNotOptimize(row);
        const char *at = row, *end = row + length;
        for (int field = 0; field < kRowFields; ++field) {
            const auto *comma = static_cast<const char *>(std::memchr(at, ',', end - at));
            const char *stop = comma != nullptr ? comma : end;
            auto *out = static_cast<char *>(malloc(static_cast<size_t>(stop - at) + 1));
            std::memcpy(out, at, static_cast<size_t>(stop - at));
            out[stop - at] = 0;
            benchmark::DoNotOptimize(out);
            free(out);
            at = stop + 1;
        }
    }
}

void BM_Is_Like_SL(benchmark::State &state, const char *text, const char *pattern) {
    QV_STRING_T s = make(text), p = make(pattern);
    for (auto _ : state) benchmark::DoNotOptimize(Is_Like_SL(&s, &p));
    FreeString_SL(&s);
    FreeString_SL(&p);
}
void BM_Is_Like_hand(benchmark::State &state, const char *text, const char *pattern) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(like(text, static_cast<int>(std::strlen(text)), pattern,
                                      static_cast<int>(std::strlen(pattern))));
    }
}
void BM_Is_Like_L(benchmark::State &state, const char *text, const char *pattern) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(Is_Like_L(text, pattern));
    }
}
void BM_Is_Like_icu(benchmark::State &state, const char *text, const char *pattern) {
    for (auto _ : state) {
        icu::UnicodeString t = icu::UnicodeString::fromUTF8(text);
        icu::UnicodeString p = icu::UnicodeString::fromUTF8(pattern);
        benchmark::DoNotOptimize(like(t.getBuffer(), t.length(), p.getBuffer(), p.length()));
    }
}

// ---- Comparison ------------------------------------------------------------------------------

// Two texts that differ only in their last byte.
void BM_Strcmp_SL(benchmark::State &state, const char *text) {
    std::string other = changed_at_end(text);
    QV_STRING_T a = make(text), b = make(other.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(Strcmp_SL(&a, &b));
    FreeString_SL(&a);
    FreeString_SL(&b);
}
void BM_Strcmp_strcmp(benchmark::State &state, const char *text) {
    std::string other = changed_at_end(text);
    const char *b = other.c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(b);
        benchmark::DoNotOptimize(std::strcmp(text, b));
    }
}
// With both lengths known.
void BM_Strcmp_memcmp(benchmark::State &state, const char *text) {
    std::string other = changed_at_end(text);
    const char *b = other.c_str();
    const size_t n = other.size();
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(b);
        benchmark::DoNotOptimize(std::memcmp(text, b, n));
    }
}

// A text against its upper-cased form: equal without case, so every character is compared.
void BM_Strcomp_SL_nocase(benchmark::State &state, const char *text) {
    std::string upper = upper_utf8(text);
    QV_STRING_T a = make(text), b = make(upper.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(Strcomp_SL(&a, &b, -1, 0));
    FreeString_SL(&a);
    FreeString_SL(&b);
}
void BM_Strcomp_strcasecmp(benchmark::State &state, const char *text) {
    std::string upper = upper_utf8(text);
    const char *b = upper.c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(b);
        benchmark::DoNotOptimize(strcasecmp(text, b));
    }
}
// ICU's case-folded comparison of the same texts held in UTF-16 (converted before the loop).
void BM_Strcomp_u_strCaseCompare(benchmark::State &state, const char *text) {
    icu::UnicodeString a = utf16(text), b = utf16(upper_utf8(text));
    const UChar *pa = a.getTerminatedBuffer(), *pb = b.getTerminatedBuffer();
    for (auto _ : state) {
        benchmark::DoNotOptimize(pa);
        UErrorCode status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(u_strCaseCompare(pa, -1, pb, -1, U_FOLD_CASE_DEFAULT, &status));
    }
}

UCollator *default_collator() {
    static UCollator *collator = [] {
        UErrorCode status = U_ZERO_ERROR;
        return ucol_open(uloc_getDefault(), &status); // the collator Strcoll_SL uses
    }();
    return collator;
}
void BM_Strcoll_SL(benchmark::State &state, const char *text) {
    std::string other = changed_at_end(text);
    QV_STRING_T a = make(text), b = make(other.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(Strcoll_SL(&a, &b));
    FreeString_SL(&a);
    FreeString_SL(&b);
}
void BM_Strcoll_ucol_strcollUTF8(benchmark::State &state, const char *text) {
    std::string other = changed_at_end(text);
    const char *b = other.c_str();
    UCollator *collator = default_collator();
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        UErrorCode status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(ucol_strcollUTF8(collator, text, -1, b, -1, &status));
    }
}

// ---- Iteration and descriptors ----------------------------------------------------------------

void BM_NextCodePoint_L(benchmark::State &state, const char *text) {
    const auto n = static_cast<int32_t>(std::strlen(text));
    for (auto _ : state) {
        QV_CODEPOINT_ITER_T iter;
        CodePointIterInit_L(&iter, UTF8Encoding_L(), text, n);
        int32_t sum = 0;
        for (int32_t c; (c = NextCodePoint_L(&iter)) >= 0;) sum += c;
        CodePointIterEnd_L(&iter);
        benchmark::DoNotOptimize(sum);
    }
}
void BM_NextCodePoint_U8_NEXT(benchmark::State &state, const char *text) {
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    const auto n = static_cast<int32_t>(std::strlen(text));
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        int32_t sum = 0;
        for (int32_t i = 0; i < n;) {
            UChar32 c;
            U8_NEXT(p, i, n, c);
            sum += c;
        }
        benchmark::DoNotOptimize(sum);
    }
}

void BM_LookupEncoding_L(benchmark::State &state) {
    const char *name = "windows-1252";
    for (auto _ : state) {
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(LookupEncoding_L(name));
    }
}
// A map from the names asked for to their descriptors, as a caller could keep one.
void BM_LookupEncoding_map(benchmark::State &state) {
    std::map<std::string, const QV_ENCODING_T *, std::less<>> names;
    for (const char *known : {"UTF-8", "US-ASCII", "ISO-8859-1", "UTF-16LE", "windows-1252"})
        names.emplace(known, LookupEncoding_L(known));
    const char *name = "windows-1252";
    for (auto _ : state) {
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(names.find(std::string_view(name))->second);
    }
}

BENCHMARK_CAPTURE(BM_Strlen_SL, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strlen_std, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strlen_loop, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strlen_SL, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strlen_loop, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strlen_icu, utf8, kUtf8);
BENCHMARK(BM_GetBytesFromChars_SL)->Arg(10000)->Arg(1000000);
BENCHMARK(BM_GetBytesFromChars_icu)->Arg(10000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_ToUpper_SL, ascii, kAscii, "UTF-8");
BENCHMARK_CAPTURE(BM_ToUpper_std, ascii, kAscii);
BENCHMARK_CAPTURE(BM_ToUpper_SL, utf8, kUtf8, "UTF-8");
BENCHMARK_CAPTURE(BM_ToUpper_icu, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_ToUpper_u_toupper, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_ToUpper_SL, cp1252, kWestern, "windows-1252");
BENCHMARK_CAPTURE(BM_ToUpper_icu_converter, cp1252, kWestern, "windows-1252");
BENCHMARK_CAPTURE(BM_SubString_SL, ascii, kAscii);
BENCHMARK_CAPTURE(BM_SubString_std, ascii, kAscii);
BENCHMARK_CAPTURE(BM_SubString_malloc, ascii, kAscii);
BENCHMARK_CAPTURE(BM_SubString_strnlen, ascii, kAscii);
BENCHMARK_CAPTURE(BM_SubString_SL, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_SubString_icu, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_InString_SL, ascii, kAscii, kNeedle);
BENCHMARK_CAPTURE(BM_InString_std, ascii, kAscii, kNeedle);
BENCHMARK_CAPTURE(BM_InString_strstr, ascii, kAscii, kNeedle);
BENCHMARK_CAPTURE(BM_InString_SL, utf8, kUtf8, kNeedle8);
BENCHMARK_CAPTURE(BM_InString_icu, utf8, kUtf8, kNeedle8);
BENCHMARK_CAPTURE(BM_ExtractString_SL, ascii, kRow);
BENCHMARK_CAPTURE(BM_ExtractString_memchr, ascii, kRow);
BENCHMARK_CAPTURE(BM_ExtractString_SL, utf8, kRow8);
BENCHMARK_CAPTURE(BM_ExtractString_memchr, utf8, kRow8);
BENCHMARK_CAPTURE(BM_Is_Like_SL, ascii, kAscii, kPattern);
BENCHMARK_CAPTURE(BM_Is_Like_hand, ascii, kAscii, kPattern);
BENCHMARK_CAPTURE(BM_Is_Like_L, ascii, kAscii, kPattern);
BENCHMARK_CAPTURE(BM_Is_Like_SL, utf8, kUtf8, kPattern8);
BENCHMARK_CAPTURE(BM_Is_Like_icu, utf8, kUtf8, kPattern8);
BENCHMARK_CAPTURE(BM_Strcmp_SL, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strcmp_strcmp, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strcmp_SL, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strcmp_strcmp, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strcmp_memcmp, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strcomp_SL_nocase, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strcomp_strcasecmp, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strcomp_u_strCaseCompare, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strcomp_SL_nocase, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strcomp_u_strCaseCompare, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strcoll_SL, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strcoll_ucol_strcollUTF8, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strcoll_SL, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strcoll_ucol_strcollUTF8, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_NextCodePoint_L, ascii, kAscii);
BENCHMARK_CAPTURE(BM_NextCodePoint_U8_NEXT, ascii, kAscii);
BENCHMARK_CAPTURE(BM_NextCodePoint_L, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_NextCodePoint_U8_NEXT, utf8, kUtf8);
BENCHMARK(BM_LookupEncoding_L);
BENCHMARK(BM_LookupEncoding_map);

} // namespace

BENCHMARK_MAIN();
