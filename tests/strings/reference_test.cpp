// reference_test.cpp - comparisons, searches and case mappings of the counted strings beside
// ICU run here as the reference, on ASCII, Latin-1, windows-1252, UTF-8 and invalid UTF-8
// texts; and a long text that a walk costing n^2 would not finish.
#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qv/qvstrlib.h"

namespace {

// The bytes of a text in an encoding, owned; made by ICU's converter from UTF-8 (or taken as
// they are for raw UTF-8, invalid sequences included).
struct Text {
    std::string bytes;
    const char *encoding;
};

Text in(const char *encoding, const std::string &utf8) {
    if (std::strcmp(encoding, "UTF-8") == 0) return {utf8, encoding};
    UErrorCode status = U_ZERO_ERROR;
    std::vector<char> out(utf8.size() * 4 + 8);
    const int32_t n = ucnv_convert(encoding, "UTF-8", out.data(), static_cast<int32_t>(out.size()),
                                   utf8.data(), static_cast<int32_t>(utf8.size()), &status);
    EXPECT_TRUE(U_SUCCESS(status)) << encoding << " " << utf8;
    return {std::string(out.data(), static_cast<size_t>(n)), encoding};
}

// A counted string holding a copy of the bytes; freed at the end of its scope.
struct Counted {
    QV_STRING_T s;
    explicit Counted(const Text &t)
        : s{static_cast<char *>(std::malloc(t.bytes.size() + 1)), LookupEncoding_L(t.encoding)} {
        std::memcpy(s.text, t.bytes.c_str(), t.bytes.size() + 1);
    }
    ~Counted() { FreeString_SL(&s); }
    Counted(const Counted &) = delete;
};

// ICU's reading of the text: U8_NEXT for UTF-8 (U+FFFD for each ill-formed part), the
// converter for the others.
std::u32string icu_decode(const Text &t) {
    std::u32string out;
    const auto *p = reinterpret_cast<const uint8_t *>(t.bytes.data());
    const auto n = static_cast<int32_t>(t.bytes.size());
    if (std::strcmp(t.encoding, "UTF-8") == 0) {
        for (int32_t i = 0; i < n;) {
            UChar32 c;
            U8_NEXT(p, i, n, c);
            out.push_back(static_cast<char32_t>(c < 0 ? 0xFFFD : c));
        }
        return out;
    }
    UErrorCode status = U_ZERO_ERROR;
    UConverter *cnv = ucnv_open(t.encoding, &status);
    const char *at = t.bytes.data(), *end = at + t.bytes.size();
    while (at < end && U_SUCCESS(status))
        out.push_back(static_cast<char32_t>(ucnv_getNextUChar(cnv, &at, end, &status)));
    ucnv_close(cnv);
    return out;
}

std::u16string utf16(const std::u32string &cps) {
    std::u16string out;
    for (char32_t c : cps) {
        if (c > 0xFFFF) {
            out.push_back(static_cast<char16_t>(U16_LEAD(c)));
            out.push_back(static_cast<char16_t>(U16_TRAIL(c)));
        } else {
            out.push_back(static_cast<char16_t>(c));
        }
    }
    return out;
}

std::string icu_encode(const std::u32string &cps, const char *encoding) {
    const std::u16string units = utf16(cps);
    UErrorCode status = U_ZERO_ERROR;
    UConverter *cnv = ucnv_open(encoding, &status);
    std::vector<char> out(units.size() * 4 + 8);
    const int32_t n = ucnv_fromUChars(cnv, out.data(), static_cast<int32_t>(out.size()),
                                      reinterpret_cast<const UChar *>(units.data()),
                                      static_cast<int32_t>(units.size()), &status);
    ucnv_close(cnv);
    return std::string(out.data(), static_cast<size_t>(n));
}

// True when the encoding holds the code point (it converts without a substitution).
bool holds(const char *encoding, char32_t c) {
    if (std::strcmp(encoding, "UTF-8") == 0) return true;
    UErrorCode status = U_ZERO_ERROR;
    UConverter *cnv = ucnv_open(encoding, &status);
    ucnv_setFromUCallBack(cnv, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    UChar units[2];
    int32_t k = 0;
    U16_APPEND_UNSAFE(units, k, c);
    char out[8];
    ucnv_fromUChars(cnv, out, sizeof out, units, k, &status);
    ucnv_close(cnv);
    return U_SUCCESS(status);
}

// The code points after a one-to-one case mapping that keeps a character whose mapping
// the encoding cannot hold.
std::u32string icu_case(const std::u32string &cps, const char *encoding, bool upper) {
    std::u32string out;
    for (char32_t c : cps) {
        const auto mapped = static_cast<char32_t>(upper ? u_toupper(static_cast<UChar32>(c))
                                                        : u_tolower(static_cast<UChar32>(c)));
        out.push_back(holds(encoding, mapped) ? mapped : c);
    }
    return out;
}

int sign(int v) {
    return (v > 0) - (v < 0);
}
int compare_code_points(const std::u32string &a, const std::u32string &b) {
    return a == b                                                                 ? 0
           : std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end()) ? -1
                                                                                  : 1;
}
std::u32string lowered(const std::u32string &cps, const char *encoding) {
    return icu_case(cps, encoding, false);
}

int icu_collate(const std::u32string &a, const std::u32string &b) {
    static UCollator *collator = [] {
        UErrorCode status = U_ZERO_ERROR;
        return ucol_open(uloc_getDefault(), &status);
    }();
    const std::u16string ua = utf16(a), ub = utf16(b);
    const UCollationResult r = ucol_strcoll(
        collator, reinterpret_cast<const UChar *>(ua.data()), static_cast<int32_t>(ua.size()),
        reinterpret_cast<const UChar *>(ub.data()), static_cast<int32_t>(ub.size()));
    return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

// Pairs of texts in one encoding, compared both ways; the first of each pair is also
// searched for the second and mapped to upper and lower case.
struct Pair {
    const char *encoding;
    std::string a, b;
};

std::vector<Pair> pairs() {
    const std::string bad_tail = std::string("Caf\xC3", 4);         // cut-short lead
    const std::string stray = std::string("ab\x80\x80 cd", 7);      // stray continuations
    const std::string surrogate = std::string("x\xED\xA0\x80y", 5); // encoded surrogate
    const std::string overlong = std::string("\xC0\xAF\xE0\x80\xAFz", 6);
    const std::string four = std::string("a\xF0\x9F\x98\x80", 5); // U+1F600
    return {
        {"US-ASCII", "Customer total 1834", "Customer total 1835"},
        {"US-ASCII", "ORDER total", "order TOTAL"},
        {"US-ASCII", "abc", "abcd"},
        {"ISO-8859-1",
         "Stra\xC3\x9F"
         "e \xC3\xA9t\xC3\xA9",
         "STRASSE \xC3\x89T\xC3\x89"},
        {"ISO-8859-1", "\xC3\xA0 la", "\xC3\x80 LA"},
        {"ISO-8859-1", "caf\xC3\xA9", "cafe"},
        {"windows-1252", "\xE2\x82\xAC 10 \xC5\x93uvre", "\xE2\x82\xAC 10 \xC5\x92UVRE"},
        {"windows-1252",
         "\xE2\x80\x9CGr\xC3\xB6\xC3\x9F"
         "e\xE2\x80\x9D",
         "\xE2\x80\x9Cgr\xC3\xB6\xC3\x9F"
         "e\xE2\x80\x9D"},
        {"windows-1252",
         "\xC5\xA0"
         "a",
         "\xE2\x82\xAC"
         "a"},
        {"UTF-8", "Kund\xC3\xA9 \xE6\xB3\xA8\xE6\x96\x87 \xCE\xA9mega",
         "KUND\xC3\x89 \xE6\xB3\xA8\xE6\x96\x87 \xCF\x89MEGA"},
        {"UTF-8",
         "\xE2\x82\xAC"
         "1",
         "\xEF\xBF\xBD"
         "1"},
        {"UTF-8", four, "a\xEF\xBF\xBF"},
        {"UTF-8", "\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA8"},
        {"UTF-8", bad_tail, "Caf\xC3\xA9"},
        {"UTF-8", bad_tail, "Caf"},
        {"UTF-8", stray, "ab\xEF\xBF\xBD\xEF\xBF\xBD cd"},
        {"UTF-8", stray, std::string("ab\x80", 3)},
        {"UTF-8", surrogate, "x\xEF\xBF\xBDy"},
        {"UTF-8", overlong, "\xEF\xBF\xBD\xEF\xBF\xBDz"},
        {"UTF-8", std::string("\xE2\x82", 2), "\xE2\x82\xAC"},
        {"UTF-8", "", "a"},
    };
}

TEST(AgainstIcu, ComparisonsOfEveryEncoding) {
    for (const Pair &pair : pairs()) {
        for (int turn = 0; turn < 2; ++turn) {
            const Text a = in(pair.encoding, turn == 0 ? pair.a : pair.b);
            const Text b = in(pair.encoding, turn == 0 ? pair.b : pair.a);
            const std::u32string ca = icu_decode(a), cb = icu_decode(b);
            Counted sa(a), sb(b);
            SCOPED_TRACE(std::string(pair.encoding) + ": " + a.bytes + " | " + b.bytes);
            EXPECT_EQ(Strcmp_SL(&sa.s, &sb.s), compare_code_points(ca, cb));
            EXPECT_EQ(Strcmp_SL(&sa.s, &sa.s), 0);
            EXPECT_EQ(Strcomp_SL(&sa.s, &sb.s, -1, 1), compare_code_points(ca, cb));
            EXPECT_EQ(Strcomp_SL(&sa.s, &sb.s, -1, 0),
                      compare_code_points(lowered(ca, a.encoding), lowered(cb, b.encoding)));
            const size_t n = 3;
            EXPECT_EQ(sign(Strcomp_SL(&sa.s, &sb.s, n, 1)),
                      compare_code_points(ca.substr(0, n), cb.substr(0, n)));
            EXPECT_EQ(Strcoll_SL(&sa.s, &sb.s), icu_collate(ca, cb));
        }
    }
}

TEST(AgainstIcu, SearchesOfEveryEncoding) {
    for (const Pair &pair : pairs()) {
        const Text hay = in(pair.encoding, pair.a + "|" + pair.b + "|" + pair.a);
        const std::u32string ch = icu_decode(hay);
        for (const std::string *needle_text : {&pair.a, &pair.b}) {
            if (needle_text->empty()) continue;
            const Text needle = in(pair.encoding, *needle_text);
            const std::u32string cn = icu_decode(needle);
            Counted sh(hay), sn(needle);
            SCOPED_TRACE(std::string(pair.encoding) + ": " + needle.bytes);
            for (int occurrence = 1; occurrence <= 3; ++occurrence) {
                size_t at = std::u32string::npos, from = 0;
                for (int k = 0; k < occurrence; ++k, from = at + 1)
                    if ((at = ch.find(cn, from)) == std::u32string::npos) break;
                const int32_t expected =
                    at == std::u32string::npos ? 0 : static_cast<int32_t>(at) + 1;
                EXPECT_EQ(InString_SL(&sh.s, &sn.s, 1, occurrence), expected) << occurrence;
            }
        }
    }
}

// The fields of "a|b|a" (a and b of each pair), as ICU's reading of the text splits them.
TEST(AgainstIcu, FieldsOfEveryEncoding) {
    for (const Pair &pair : pairs()) {
        const Text row = in(pair.encoding, pair.a + "|" + pair.b + "|" + pair.a);
        const std::u32string cps = icu_decode(row);
        Counted s(row), bar(Text{"|", "US-ASCII"});
        SCOPED_TRACE(std::string(pair.encoding) + ": " + row.bytes);
        size_t begin = 0;
        for (int32_t field = 1; field <= 3; ++field) {
            const size_t end = std::min(cps.find(U'|', begin), cps.size());
            const std::u32string expected = cps.substr(begin, end - begin);
            QV_STRING_T out{nullptr, nullptr};
            EXPECT_EQ(ExtractString_SL(&s.s, field, &bar.s, &out),
                      static_cast<int32_t>(expected.size()));
            ASSERT_NE(out.text, nullptr);
            EXPECT_EQ(std::string(out.text), icu_encode(expected, row.encoding)) << field;
            FreeString_SL(&out);
            begin = end + 1;
        }
        QV_STRING_T out{nullptr, nullptr};
        EXPECT_EQ(ExtractString_SL(&s.s, 4, &bar.s, &out), -1);
        EXPECT_EQ(out.text, nullptr);
    }
}

TEST(AgainstIcu, CaseMappingsOfEveryEncoding) {
    for (const Pair &pair : pairs()) {
        for (const std::string *source : {&pair.a, &pair.b}) {
            const Text t = in(pair.encoding, *source);
            const std::u32string cps = icu_decode(t);
            SCOPED_TRACE(std::string(pair.encoding) + ": " + t.bytes);
            for (bool upper : {true, false}) {
                Counted s(t);
                upper ? ToUpper_SL(&s.s) : ToLower_SL(&s.s);
                EXPECT_EQ(std::string(s.s.text),
                          icu_encode(icu_case(cps, t.encoding, upper), t.encoding))
                    << (upper ? "upper" : "lower");
            }
        }
    }
}

// Long UTF-8 texts of pieces valid and invalid in a fixed pseudo-random order, so that runs
// read sixteen bytes at a time meet every kind of piece at every offset.
TEST(AgainstIcu, LongMixedUtf8) {
    const std::string pieces[] = {
        "a",    "Hello, ",      "\xC3\xA9", "\xE2\x82\xAC", "\xE6\xB3\xA8", "\xF0\x9F\x98\x80",
        "\x80", "\xE2\x82",     "\xC0\xAF", "\xED\xA0\x80", "\xE0\xA4\x85", "\xF4\x90\x80",
        "\xC3", "\xEF\xBF\xBD", "\xDF\xBF", "\xEE\x80\x80"};
    uint32_t seed = 12345;
    for (int round = 0; round < 400; ++round) {
        std::string text;
        for (int k = 0; k < 120; ++k) {
            seed = seed * 1103515245u + 12345u;
            // Mostly plain pieces, so that long valid runs occur between the odd ones.
            const uint32_t pick = (seed >> 16) % 64;
            text += pieces[pick < 48 ? pick % 6 : pick % 16];
        }
        const Text t{text, "UTF-8"};
        const std::u32string cps = icu_decode(t);
        Counted s(t);
        SCOPED_TRACE(round);
        ASSERT_EQ(Strlen_SL(&s.s), static_cast<int32_t>(cps.size()));
        const auto *p = reinterpret_cast<const uint8_t *>(text.data());
        for (int32_t n : {1, 7, 16, 17, 40, 100, 1000}) {
            int32_t expected = 0;
            U8_FWD_N(p, expected, static_cast<int32_t>(text.size()), n);
            EXPECT_EQ(BytesForChars_SL(&s.s, n), expected) << n;
        }
        // The text against itself with one byte changed.
        for (size_t at : {size_t{0}, text.size() / 3, text.size() / 2, text.size() - 1}) {
            std::string other = text;
            other[at] = static_cast<char>(other[at] == 'a' ? 0xC3 : 'a');
            const Text o{other, "UTF-8"};
            Counted so(o);
            EXPECT_EQ(Strcmp_SL(&s.s, &so.s), compare_code_points(cps, icu_decode(o))) << at;
        }
    }
}

// A million characters of one, two and three bytes: a walk that measured its text once per
// character would take hours here.
TEST(LongText, GetBytesFromCharsOfAMillionCharacters) {
    constexpr int32_t n = 1000000;
    std::string text;
    for (int32_t i = 0; i < n; i += 3) text += "a\xC3\xA9\xE2\x82\xAC";
    Counted s(Text{text, "UTF-8"});
    const auto *p = reinterpret_cast<const uint8_t *>(text.data());
    int32_t expected = 0;
    U8_FWD_N(p, expected, static_cast<int32_t>(text.size()), n);
    std::vector<char> buffer(text.size() + 1);
    ASSERT_EQ(GetBytesFromChars_SL(&s.s, n, buffer.data(), static_cast<int32_t>(buffer.size())),
              expected);
    EXPECT_EQ(std::memcmp(buffer.data(), text.data(), static_cast<size_t>(expected)), 0);
    EXPECT_EQ(buffer[static_cast<size_t>(expected)], '\0');
    // A buffer of 1000 bytes takes the whole characters that fit before its terminator
    // (166 groups of six bytes, then "a" and "\xC3\xA9").
    EXPECT_EQ(GetBytesFromChars_SL(&s.s, n, buffer.data(), 1000), 999);
    EXPECT_EQ(BytesForChars_SL(&s.s, n), expected);
}

} // namespace
