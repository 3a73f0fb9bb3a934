// qvstrlib_edges_test.cpp - the counted strings where hosts and fuzzing found faults: texts
// whose bytes are not all characters (invalid sequences, shift sequences, byte-order marks),
// limit values, a string appended to itself and null output records.
#include <cctype>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "capture.hpp"
#include "qv/qvstrlib.h"
#include "strings/counted.hpp"
#include "strings/qvstrlib_internal.hpp"

namespace {

using namespace std::string_literals;
using qvtest::Str;
using qvtest::utf8_of;

// A counted string over bytes given as they are (a heap copy of exactly their size plus a
// terminator, so the address sanitizer sees any read past them).
struct Bytes {
    QV_STRING_T s{nullptr, nullptr};
    Bytes(const std::string &bytes, const char *encoding) {
        s.encoding = LookupEncoding_L(encoding);
        int32_t width = s.encoding->terminator_width;
        s.text = static_cast<char *>(std::calloc(bytes.size() + width, 1));
        std::memcpy(s.text, bytes.data(), bytes.size());
    }
    Bytes(const Bytes &) = delete;
    ~Bytes() { FreeString_SL(&s); }
    QV_STRING_T *operator&() { return &s; }
};

std::string bytes_of(const QV_STRING_T *s) {
    if (s == nullptr || s->text == nullptr) return "<null>";
    return std::string(s->text, static_cast<size_t>(Bytelen_SL(s, 0)));
}

// Runs `body` on both paths: the one the members choose, and the code-point path forced.
template <class Body>
auto both_paths(Body body) {
    auto chosen = body();
    qv::strlib::force_code_point_path = true;
    auto forced = body();
    qv::strlib::force_code_point_path = false;
    return std::pair(chosen, forced);
}

// Bytes of the first n characters are measured by reading them, never by re-encoding: an
// invalid byte that reads as U+FFFD (4 bytes in GB18030) takes its one byte. Rows: encoding,
// text, n, the bytes BytesForChars_SL gives.
TEST(CountedMeasure, BytesForCharsAreTheBytesRead) {
    const std::tuple<const char *, std::string, int32_t, int32_t> cases[] = {
        {"GB18030", "\xFF\xFF", 1, 1},
        {"GB18030", "j\xFF\xFA;ipB", 3, 3},
        {"GB18030", "a\x81\x30\x81\x30z", 2, 5},
        {"Shift_JIS", "\x82\xA0x\xFF", 3, 4},
        {"ISO-2022-JP", "\x1B$B\x30\x21\x1B(Bab", 2, 9},
        {"UTF-8", "a\xFF\xE2\x82", 3, 4},
        {"UTF-16", "\xFE\xFF\x00\x61\x00\x62"s, 1, 4},
    };
    for (const auto &[encoding, text, n, bytes] : cases) {
        Bytes s(text, encoding);
        const auto [chosen, forced] = both_paths([&] { return BytesForChars_SL(&s, n); });
        EXPECT_EQ(chosen, bytes) << encoding << " " << n;
        EXPECT_EQ(forced, bytes) << encoding << " " << n;
        QV_STRING_T copy;
        Astrncpy_SL(&copy, &s, n);
        EXPECT_EQ(bytes_of(&copy), text.substr(0, static_cast<size_t>(bytes))) << encoding;
        FreeString_SL(&copy);
        char buffer[64];
        EXPECT_EQ(GetBytesFromChars_SL(&s, n, buffer, sizeof buffer), bytes) << encoding;
        EXPECT_EQ(BytesForChars_SL(&s, INT32_MAX), Bytelen_SL(&s, 0)) << encoding;
    }
}

// Asking for every character that fits (n = INT32_MAX) walks the text once: on a text the
// encoding service reads through ICU, measuring again for each n would allocate each time.
TEST(CountedMeasure, GetBytesFromCharsTakesWholeCharactersThatFit) {
    Bytes gb(std::string(26, 'x') + "\xFF\xFF", "GB18030");
    char buffer[8], roomy[64];
    TestFailAllocation_L(0);
    EXPECT_EQ(GetBytesFromChars_SL(&gb, INT32_MAX, buffer, sizeof buffer), 7);
    EXPECT_EQ(GetBytesFromChars_SL(&gb, INT32_MAX, roomy, sizeof roomy), 28);
    EXPECT_FALSE(TestAllocationFailed_L());
    TestFailAllocation_L(-1);

    Str utf8("日本語", UTF8Encoding_L());
    for (int32_t capacity : {1, 3, 4, 7, 8})
        EXPECT_EQ(GetBytesFromChars_SL(&utf8, INT32_MAX, buffer, capacity), (capacity - 1) / 3 * 3)
            << capacity;
    EXPECT_STREQ(buffer, "日本");
    Str wide("a😀b", UTF16Encoding_L());
    EXPECT_EQ(GetBytesFromChars_SL(&wide, INT32_MAX, buffer, 6), 2); // the pair does not fit
    EXPECT_EQ(GetBytesFromChars_SL(&wide, INT32_MAX, buffer, 8), 6);
}

// Texts in a stateful encoding may hold bytes without characters (a shift sequence alone):
// such a pad pads with spaces, such a search is empty and found nowhere.
TEST(CountedStateful, TextsOfNoCharacters) {
    Bytes s("ab", "ISO-2022-JP"), shift("\x1B(B", "ISO-2022-JP"), abc("abc", "ISO-2022-JP");
    EXPECT_EQ(Strlen_SL(&shift), 0);
    EXPECT_EQ(Pad_SL(&s, 5, &shift, 0), 5);
    EXPECT_EQ(utf8_of(&s), "ab   ");
    EXPECT_EQ(InString_SL(&abc, &shift, 1, 1), 0);
    EXPECT_EQ(InString_SL(&abc, &shift, -1, 1), 0);
    // A text may end shifted: appending joins characters, not bytes.
    Bytes kanji("\x1B$B\x30\x21", "ISO-2022-JP");
    AstrcatE_SL(&kanji, "ab", ASCIIEncoding_L());
    Astrcat_SL(&kanji, &abc);
    EXPECT_EQ(Strlen_SL(&kanji), 6);
    EXPECT_EQ(utf8_of(&kanji), "亜ababc");
    // UTF-7 can write U+0000 without a zero byte; a terminated text cannot hold it.
    Bytes nul("a+AAA-b", "UTF-7"), empty("", "UTF-16BE");
    EXPECT_EQ(Strlen_SL(&nul), 3);
    EXPECT_EQ(Pad_SL(&empty, 4, &nul, 0), 4);
    EXPECT_EQ(utf8_of(&empty), "a\xEF\xBF\xBD"
                               "ba");
    Astrcat_SL(&empty, &nul);
    EXPECT_EQ(Strlen_SL(&empty), 7);
    QV_STRING_T like{const_cast<char *>("a_b"), UTF8Encoding_L()};
    EXPECT_TRUE(Is_Like_SL(&nul, &like));
}

// Both paths read an invalid sequence as U+FFFD, and a member that builds a text writes it
// as the encoding's substitution character; the bytes ASCII cannot hold are no characters of
// it. Rows: encoding, text, the member, what it leaves (bytes).
TEST(CountedInvalid, BothPathsWriteTheSubstitutionCharacter) {
    using Member = std::string (*)(QV_STRING_T *);
    auto substring = [](QV_STRING_T *s) {
        QV_STRING_T out;
        SubString_SL(s, 1, 3, &out);
        std::string r = bytes_of(&out);
        FreeString_SL(&out);
        return r;
    };
    auto replace = [](QV_STRING_T *s) {
        QV_STRING_T add{const_cast<char *>("\xC5"), s->encoding};
        ReplaceSubString_SL(s, 1, 0, &add);
        return bytes_of(s);
    };
    auto trim = [](QV_STRING_T *s) {
        TrimUtil_SL(s, nullptr, QV_TRIM_BOTH);
        return bytes_of(s);
    };
    const std::tuple<const char *, std::string, Member, std::string> cases[] = {
        {"UTF-8",
         "a\xFF"
         "b",
         substring,
         "a\xEF\xBF\xBD"
         "b"},
        {"UTF-8",
         "\xE2\x82"
         "ab",
         substring,
         "\xEF\xBF\xBD"
         "ab"},
        {"US-ASCII", "", replace, "\x1A"},
        {"US-ASCII", " a\xC5 ", trim, "a\x1A"},
        {"ISO-8859-3", "x\xA5y", substring, "x\x1Ay"},
        {"windows-1252", "x\x81y", substring, "x\x81y"}, // every byte is a character
        {"UTF-16", "\x00\xD8\x61\x00\x62\x00"s, substring, "\xFD\xFF\x61\x00\x62\x00"s},
    };
    for (const auto &[encoding, text, member, expected] : cases) {
        const auto [chosen, forced] = both_paths([&] {
            Bytes s(text, encoding);
            return member(&s);
        });
        EXPECT_EQ(chosen, expected) << encoding << " " << text;
        EXPECT_EQ(forced, expected) << encoding << " " << text;
    }
}

TEST(CountedCopies, AppendingAStringToItself) {
    Str s("abcdefghijklmnopqrstuvwxyz0123456789", UTF8Encoding_L());
    for (int i = 0; i < 4; ++i) Astrcat_SL(&s, &s);
    EXPECT_EQ(Bytelen_SL(&s, 0), 576);
    EXPECT_EQ(utf8_of(&s).substr(540), "abcdefghijklmnopqrstuvwxyz0123456789");
    Str t("héllo", UTF16Encoding_L());
    AstrcatE_SL(&t, t.s.text + 4, UTF16Encoding_L()); // its own tail, "llo"
    AstrcatE_SL(&t, t.s.text, UTF16Encoding_L());
    EXPECT_EQ(utf8_of(&t), "héllollohéllollo");
}

// Generic "UTF-16" and "UTF-32" texts read their byte-order mark as their order; the texts
// the library builds in them have none.
TEST(CountedCopies, ByteOrderMarkedEncodingsBuildTextsWithoutAMark) {
    for (const char *name : {"UTF-16", "UTF-32"}) {
        const QV_ENCODING_T *e = LookupEncoding_L(name);
        Str ab("ab", e);
        EXPECT_EQ(Bytelen_SL(&ab, 0), 2 * e->terminator_width) << name;
        QV_STRING_T x;
        ASSERT_NE(CodePointToString_SL(&x, 'x', e), nullptr);
        EXPECT_EQ(Bytelen_SL(&x, 0), e->terminator_width) << name;
        Astrcat_SL(&ab, &x);
        EXPECT_EQ(Strlen_SL(&ab), 3) << name;
        EXPECT_EQ(utf8_of(&ab), "abx") << name;
        FreeString_SL(&x);
    }
    // A text with a mark of the other order is read in that order, the mark not counted.
    Bytes big("\xFE\xFF\x00h\x00i"s, "UTF-16"), little("\xFF\xFE"
                                                       "a\0"s,
                                                       "UTF-16");
    EXPECT_EQ(Strlen_SL(&big), 2);
    Astrcat_SL(&little, &big);
    EXPECT_EQ(utf8_of(&little), "ahi");
    EXPECT_EQ(bytes_of(&little), "a\0h\0i\0"s);
    // A text that starts with U+FEFF keeps it behind a mark.
    QV_STRING_T feff;
    ASSERT_NE(CodePointToString_SL(&feff, 0xFEFF, LookupEncoding_L("UTF-16")), nullptr);
    EXPECT_EQ(Strlen_SL(&feff), 1);
    EXPECT_EQ(bytes_of(&feff), "\xFF\xFE\xFF\xFE");
    FreeString_SL(&feff);
}

// Every member with an output record takes a null one and stores nothing.
TEST(CountedNulls, NullOutputRecordsAreAccepted) {
    Str s("a,b,c", UTF8Encoding_L()), sep(",", UTF8Encoding_L()), wide("a,é", UTF16Encoding_L());
    for (QV_STRING_T *text : {&s.s, &wide.s}) {
        EXPECT_EQ(ExtractString_SL(text, 2, nullptr, nullptr), -1);
        EXPECT_EQ(ExtractString_SL(text, 2, &sep, nullptr), -1);
        EXPECT_EQ(SubString_SL(text, 2, 1, nullptr), -1);
        EXPECT_EQ(Translate_SL(text, &sep, &sep, nullptr), 0);
        EXPECT_EQ(Soundex_SL(text, nullptr), 0);
        EXPECT_EQ(AStripAlNum_SL(nullptr, text), nullptr);
        EXPECT_EQ(Astrcpy_SL(nullptr, text), nullptr);
        EXPECT_EQ(Astrncpy_SL(nullptr, text, 2), nullptr);
        EXPECT_EQ(Astrcat_SL(nullptr, text), nullptr);
        EXPECT_EQ(AstrcatE_SL(nullptr, "x", nullptr), nullptr);
        EXPECT_EQ(CodePointToString_SL(nullptr, 'x', nullptr), nullptr);
        EXPECT_EQ(PreAlloc_SL(nullptr, nullptr, 4), nullptr);
        EXPECT_EQ(Asprintf_SL(nullptr, "%d", 1), nullptr);
        EXPECT_EQ(GetBytesFromChars_SL(text, 2, nullptr, 8), -1);
        EXPECT_EQ(ToInteger_SL(text, nullptr), -1);
    }
    EXPECT_EQ(Strqchr_SL(&s, nullptr, ','), 1);
    EXPECT_EQ(utf8_of(&s), "a");
}

TEST(CountedResults, ExactLengthsEncodingsAndCharacters) {
    // Translate_SL gives the byte length of its result.
    Str hello("heLLo", UTF16Encoding_L()), from("L", UTF16Encoding_L()), to("l", UTF16Encoding_L());
    QV_STRING_T out;
    EXPECT_EQ(Translate_SL(&hello, &from, &to, &out), 10);
    EXPECT_EQ(utf8_of(&out), "hello");
    FreeString_SL(&out);
    Str latin("héLLo", Latin1Encoding_L()), from8("L", UTF8Encoding_L());
    EXPECT_EQ(Translate_SL(&latin, &from8, &from8, &out), 5);
    FreeString_SL(&out);
    // A replacement that is not ASCII is written as a character of the encoding.
    Str control("a\x01"
                "b",
                UTF8Encoding_L());
    EXPECT_EQ(MakePrintable_SL(&control, 0xBF), 3);
    EXPECT_EQ(bytes_of(&control), "a\xC2\xBF"
                                  "b");
    // The soundex code is ASCII, whatever the text's encoding.
    Str name("Tymczak", UTF16Encoding_L());
    EXPECT_EQ(Soundex_SL(&name, &out), 1);
    EXPECT_EQ(out.encoding, ASCIIEncoding_L());
    EXPECT_EQ(bytes_of(&out), "T522");
    FreeString_SL(&out);
    // U+0000 would end the text: no one-character string holds it.
    EXPECT_EQ(CodePointToString_SL(&out, 0, UTF8Encoding_L()), nullptr);
    EXPECT_EQ(out.text, nullptr);
}

// Case mapping of ASCII text works eight bytes at a time: every byte at every offset.
TEST(CountedCase, AsciiTextAtEveryOffset) {
    std::string all;
    for (int c = 1; c < 128; ++c) all += static_cast<char>(c);
    for (size_t offset = 0; offset < 8; ++offset) {
        std::string text = all.substr(offset) + all.substr(0, offset);
        std::string upper = text, lower = text;
        for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        for (char &c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        Str s(text.c_str(), UTF8Encoding_L());
        EXPECT_EQ(bytes_of(ToUpper_SL(&s)), upper) << offset;
        EXPECT_EQ(bytes_of(ToLower_SL(&s)), lower) << offset;
    }
}

} // namespace
