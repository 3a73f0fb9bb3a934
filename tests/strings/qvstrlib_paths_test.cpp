// qvstrlib_paths_test.cpp - the counted strings beyond the per-encoding table: the byte path
// and the code-point path agreeing on generated strings, null records, bad input (invalid
// UTF-8, extreme positions) and allocation failures.
#include <deque>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "capture.hpp"
#include "qv/qvstrlib.h"
#include "strings/counted.hpp"
#include "strings/qvstrlib_internal.hpp"

namespace {

using qvtest::Str;
using qvtest::utf8_of;
using ::testing::AllOf, ::testing::Each, ::testing::IsEmpty, ::testing::Not;

// Random text from a small alphabet, so that searches hit; multibyte when asked.
std::string random_text(std::mt19937 &random, bool multibyte) {
    static const char *const ascii[] = {"a", "b", " ", "A", ",", "\"", "1", "%", "_"};
    static const char *const wide[] = {"a", "é", "日", "😀", " ", "Ω", ",", "\"", "%", "_"};
    std::string text;
    int length = static_cast<int>(random() % 12);
    for (int i = 0; i < length; ++i)
        text += multibyte ? wide[random() % std::size(wide)] : ascii[random() % std::size(ascii)];
    return text;
}

// Everything a few members say about (text, other), as one comparable line.
std::string describe(const std::string &text, const std::string &other,
                     const QV_ENCODING_T *encoding, int32_t start, int32_t length) {
    Str s(text, encoding), o(other, encoding), upper(text, encoding), padded(text, encoding),
        replaced(text, encoding);
    QV_STRING_T out;
    const int32_t got = SubString_SL(&s, start, length, &out);
    const std::string window = utf8_of(&out);
    FreeString_SL(&out);
    Pad_SL(&padded, length, &o, start & 1);
    std::string r;
    for (int32_t n :
         {Strlen_SL(&s), InString_SL(&s, &o, start, 1 + (length & 1)), CountString_SL(&s, &o),
          Strcmp_SL(&s, &o), int32_t{Is_Like_SL(&s, &o)}, got, ReplaceString_SL(&replaced, &o, &s)})
        r += std::to_string(n) + "|";
    return r + window + "|" + utf8_of(ToUpper_SL(&upper)) + "|" + utf8_of(&padded) + "|" +
           utf8_of(&replaced);
}

TEST(CountedPaths, BytePathAgreesWithCodePointPath) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 400; ++round) {
        bool multibyte = round % 2 == 1;
        std::string text = random_text(random, multibyte), other = random_text(random, multibyte);
        if (round % 5 == 0) other = other.substr(0, 3);
        auto start = static_cast<int32_t>(random() % 15) - 7;
        auto length = static_cast<int32_t>(random() % 10) - 1;
        std::string fast = describe(text, other, UTF8Encoding_L(), start, length);
        std::string wide = describe(text, other, UTF16Encoding_L(), start, length);
        qv::strlib::force_code_point_path = true;
        std::string forced = describe(text, other, UTF8Encoding_L(), start, length);
        qv::strlib::force_code_point_path = false;
        ASSERT_EQ(fast, wide) << "'" << text << "' '" << other << "' " << start << " " << length;
        ASSERT_EQ(fast, forced) << "'" << text << "' '" << other << "' " << start << " " << length;
    }
}

TEST(CountedNulls, NullRecordsAndTextsAreEmpty) {
    QV_STRING_T null_text{nullptr, UTF16Encoding_L()};
    for (QV_STRING_T *s : {static_cast<QV_STRING_T *>(nullptr), &null_text}) {
        EXPECT_EQ(Strlen_SL(s), 0);
        EXPECT_EQ(Bytelen_SL(s, 1), 0);
        EXPECT_EQ(BytesForChars_SL(s, 3), 0);
        EXPECT_TRUE(IsEmpty_SL(s));
        EXPECT_FALSE(IsAlphaStr_SL(s) || IsSpace_SL(s) || IsUpper_SL(s) || IsLocaleNumeric_SL(s));
        EXPECT_EQ(Strchr_SL(s, 'a'), 0);
        EXPECT_EQ(InString_SL(s, s, 1, 1), 0);
        EXPECT_EQ(ScanForWhiteSpace_SL(s), 0);
        EXPECT_EQ(RemoveFirstChar_SL(s), -1);
        EXPECT_EQ(TrimUtil_SL(s, nullptr, QV_TRIM_BOTH), 0);
        EXPECT_EQ(Collapse_SL(s), 0);
        EXPECT_EQ(Pad_SL(s, 3, nullptr, 1), 0);
        EXPECT_EQ(Strcmp_SL(s, nullptr), 0);
        EXPECT_EQ(ToUpper_SL(s), s);
        QV_STRING_T out{reinterpret_cast<char *>(1), nullptr};
        Astrcpy_SL(&out, s);
        EXPECT_EQ(out.text, nullptr);
        EXPECT_EQ(out.encoding, nullptr);
        EXPECT_EQ(Soundex_SL(s, &out), 0);
        EXPECT_EQ(out.text, nullptr);
    }
    EXPECT_EQ(null_text.text, nullptr);
    EXPECT_EQ(SetNull_SL(nullptr), nullptr);
    FreeString_SL(nullptr);
}

TEST(CountedCopies, DeepCopiesKeepEncodingAndTerminator) {
    Str wide("aé😀", UTF16Encoding_L());
    QV_STRING_T copy;
    Astrcpy_SL(&copy, &wide);
    EXPECT_NE(copy.text, wide.s.text);
    EXPECT_EQ(copy.encoding, UTF16Encoding_L());
    EXPECT_EQ(Bytelen_SL(&copy, 0), 8);
    EXPECT_EQ(Bytelen_SL(&copy, 1), 10);
    AstrcatE_SL(&copy, "日", UTF8Encoding_L());
    EXPECT_EQ(utf8_of(&copy), "aé😀日");
    FreeString_SL(&copy);
    EXPECT_EQ(copy.text, nullptr);
    EXPECT_EQ(copy.encoding, UTF16Encoding_L());

    PreAlloc_SL(&copy, UTF16Encoding_L(), 3);
    ASSERT_NE(copy.text, nullptr);
    EXPECT_TRUE(IsEmpty_SL(&copy));
    FreeString_SL(&copy);

    Asprintf_SL(&copy, "%s-%d", "x", 42);
    EXPECT_EQ(utf8_of(&copy), "x-42");
    EXPECT_EQ(copy.encoding, UTF8Encoding_L());
    FreeString_SL(&copy);

    char buffer[6];
    Str text("日本語", UTF8Encoding_L());
    EXPECT_EQ(GetBytesFromChars_SL(&text, 3, buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "日");
    EXPECT_EQ(GetBytesFromChars_SL(&text, 3, buffer, 0), -1);
    EXPECT_EQ(GetBytesFromChars_SL(&text, 3, nullptr, 8), -1);
}

TEST(CountedBadInput, InvalidTextReadsAsReplacementCharacters) {
    const char invalid[] = "a\xC3\x28\xE6\x97\xFF"; // bad trail, cut sequence, bad byte
    QV_STRING_T s{const_cast<char *>(invalid), UTF8Encoding_L()};
    int32_t length = Strlen_SL(&s);
    EXPECT_EQ(length, 5);
    for (int32_t start : {INT32_MIN, -7, -1, 0, 1, 3, 6, INT32_MAX}) {
        for (int32_t count : {-1, 0, 2, INT32_MAX}) {
            QV_STRING_T out;
            int32_t got = SubString_SL(&s, start, count, &out);
            ASSERT_GE(got, 0);
            EXPECT_LE(got, length);
            FreeString_SL(&out);
            EXPECT_GE(InString_SL(&s, &s, start, 1), 0);
        }
    }
    QV_STRING_T copy;
    Astrcpy_SL(&copy, &s);
    ToUpper_SL(&copy);
    EXPECT_EQ(utf8_of(&copy), "A\xEF\xBF\xBD(\xEF\xBF\xBD\xEF\xBF\xBD");
    FreeString_SL(&copy);
    EXPECT_EQ(Strcmp_SL(&s, &s), 0);
    Is_Like_SL(&s, &s); // reads within the text
    // A lone surrogate in UTF-16 is one U+FFFD too.
    const char16_t lone[] = {u'a', 0xD800, u'b', 0};
    QV_STRING_T wide{reinterpret_cast<char *>(const_cast<char16_t *>(lone)), UTF16Encoding_L()};
    EXPECT_EQ(SubString_SL(&wide, 2, 1, &copy), 1);
    EXPECT_EQ(utf8_of(&copy), "\xEF\xBF\xBD");
    FreeString_SL(&copy);
}

// The ASCII shortcuts of SubString_SL and InString_SL read only part of the text; their
// windows and positions must agree with the code-point path where the ASCII part ends, on
// invalid UTF-8, on Latin-1 high bytes and with a needle in another ASCII-compatible
// encoding.
TEST(CountedBadInput, AsciiShortcutsAgreeWithCodePointPath) {
    using Text = std::pair<const char *, const QV_ENCODING_T *>;
    const QV_ENCODING_T *utf8 = UTF8Encoding_L(), *latin1 = Latin1Encoding_L();
    // Octal escapes, which end after three digits: \303\251 is "é", \342\202\254 "€".
    const Text texts[] = {
        {"abcdef", utf8},
        {"\342\202a\342\202\254\357\277\275\303\251\342\202\254", utf8},
        {"abc\303\251def", utf8},
        {"ab\346\227xab\377ab", utf8},
        {"ab\351ab\351ab", latin1},
        {"", utf8},
        {"ab\200ab", ASCIIEncoding_L()},
    };
    const Text needles[] = {{"ab", utf8},       {"b", ASCIIEncoding_L()}, {"x", latin1},
                            {"\303\251", utf8}, {"\342\202\254", utf8},   {"\357\277\275", utf8},
                            {"\342\202", utf8}, {"\351", latin1}};
    auto describe = [&](const Text &t) {
        QV_STRING_T s{const_cast<char *>(t.first), t.second};
        std::string r;
        for (int32_t start = -1; start <= 10; ++start) {
            for (int32_t count : {-1, 0, 1, 3, 4, 20}) {
                QV_STRING_T out;
                int32_t got = SubString_SL(&s, start, count, &out);
                // Invalid bytes are copied as they are on the byte paths and re-encoded on
                // the code-point path, so only the windows are compared.
                r += std::to_string(got) + ":" + std::to_string(Strlen_SL(&out)) + ",";
                FreeString_SL(&out);
            }
            for (const Text &n : needles) {
                QV_STRING_T needle{const_cast<char *>(n.first), n.second};
                for (int32_t occurrence : {1, 2, 3})
                    r += std::to_string(InString_SL(&s, &needle, start, occurrence)) + ",";
            }
        }
        return r;
    };
    for (const Text &t : texts) {
        std::string fast = describe(t);
        qv::strlib::force_code_point_path = true;
        std::string forced = describe(t);
        qv::strlib::force_code_point_path = false;
        EXPECT_EQ(fast, forced) << t.first;
    }
}

using Strings = std::deque<Str>;

// Each failing allocation raises ALLOC_FAILURE from this module, and the unwinding frees what
// was half built (the address sanitizer checks). Rows: texts, their encoding, the member
// working on them, what the last text holds after the run that succeeds. They cover the
// edit buffer, the code-point buffer of a case change and the copied window.
TEST(CountedAllocation, FailuresRaiseAndLeakNothing) {
    using Texts = std::vector<const char *>;
    const std::tuple<Texts, const QV_ENCODING_T *, void (*)(Strings &), const char *> cases[] = {
        {{"日", "xyz", "a日b日c"},
         UTF16Encoding_L(),
         [](Strings &s) { ReplaceString_SL(&s[2], &s[0], &s[1]); },
         "axyzbxyzc"},
        {{"héllo"}, UTF8Encoding_L(), [](Strings &s) { ToUpper_SL(&s[0]); }, "HÉLLO"},
        {{"héllo", nullptr},
         UTF16Encoding_L(),
         [](Strings &s) { SubString_SL(&s[0], 2, 2, &s[1]); },
         "él"}};
    for (const auto &[texts, encoding, act, expected] : cases) {
        Strings s;
        auto make = [&] {
            s.clear();
            for (const char *text : texts) s.emplace_back(text, encoding);
        };
        auto raised = qvtest::fail_each_allocation([&] { act(s); }, make);
        EXPECT_THAT(raised, AllOf(Not(IsEmpty()), Each(ALLOC_FAILURE))) << expected;
        EXPECT_STREQ(Exc_GetFile_L(), "qvstrlib") << expected;
        EXPECT_EQ(utf8_of(&s.back()), expected);
    }
}

TEST(CountedAllocation, WithoutContextMembersReturnNothing) {
    Str s("héllo", UTF16Encoding_L());
    QV_STRING_T out;
    TestFailAllocation_L(0);
    EXPECT_EQ(SubString_SL(&s, 1, 2, &out), -1);
    TestFailAllocation_L(-1);
    EXPECT_EQ(out.text, nullptr);
    EXPECT_EQ(utf8_of(&s), "héllo");
}

} // namespace
