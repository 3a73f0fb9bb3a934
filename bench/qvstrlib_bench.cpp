// qvstrlib_bench.cpp - the counted strings beside their direct peers, per data row: the
// standard library on ASCII text, ICU's UnicodeString on UTF-8 text (conversion in and out
// included, since the counted strings take and give UTF-8).
#include <benchmark/benchmark.h>
#include <unicode/unistr.h>

#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

#include "qv/qvstrlib.h"

namespace {

const char kAscii[] = "Customer 004211, Springfield Road 17, order total 1834.50 EUR paid";
const char kUtf8[] = "Kundé 004211, Straße Ωmega 17, 注文 合計 1834.50 € bezahlt ok";
const char kNeedle[] = "total";
const char kNeedle8[] = "合計";
const char kPattern[] = "%order%EUR%";
const char kPattern8[] = "%注文%€%";

QV_STRING_T make(const char *text) {
    QV_STRING_T s;
    AstrcpyE_SL(&s, text, UTF8Encoding_L());
    return s;
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

void BM_ToUpper_SL(benchmark::State &state, const char *text) {
    QV_STRING_T source = make(text);
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

BENCHMARK_CAPTURE(BM_Strlen_SL, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strlen_std, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strlen_loop, ascii, kAscii);
BENCHMARK_CAPTURE(BM_Strlen_SL, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strlen_loop, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_Strlen_icu, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_ToUpper_SL, ascii, kAscii);
BENCHMARK_CAPTURE(BM_ToUpper_std, ascii, kAscii);
BENCHMARK_CAPTURE(BM_ToUpper_SL, utf8, kUtf8);
BENCHMARK_CAPTURE(BM_ToUpper_icu, utf8, kUtf8);
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
BENCHMARK_CAPTURE(BM_Is_Like_SL, ascii, kAscii, kPattern);
BENCHMARK_CAPTURE(BM_Is_Like_hand, ascii, kAscii, kPattern);
BENCHMARK_CAPTURE(BM_Is_Like_L, ascii, kAscii, kPattern);
BENCHMARK_CAPTURE(BM_Is_Like_SL, utf8, kUtf8, kPattern8);
BENCHMARK_CAPTURE(BM_Is_Like_icu, utf8, kUtf8, kPattern8);

} // namespace

BENCHMARK_MAIN();
