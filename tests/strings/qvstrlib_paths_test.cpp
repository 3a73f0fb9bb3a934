// qvstrlib_paths_test.cpp - the counted strings beyond the per-encoding table: the byte path
// and the code-point path agreeing on generated strings, null records, bad input (invalid
// UTF-8, extreme positions) and allocation failures.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>
#include <string>

#include "core/raise.hpp"
#include "qv/alloc.h"
#include "qv/qvstrlib.h"
#include "strings/counted.hpp"
#include "strings/qvstrlib_internal.hpp"

namespace {

using qvtest::Str;
using qvtest::utf8_of;

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
    Str s(text, encoding), o(other, encoding);
    std::string r = std::to_string(Strlen_SL(&s.s)) + "|" +
                    std::to_string(InString_SL(&s.s, &o.s, start, 1 + (length & 1))) + "|" +
                    std::to_string(CountString_SL(&s.s, &o.s)) + "|" +
                    std::to_string(Strcmp_SL(&s.s, &o.s)) + "|" +
                    std::to_string(Is_Like_SL(&s.s, &o.s)) + "|";
    QV_STRING_T out;
    int32_t got = SubString_SL(&s.s, start, length, &out);
    r += std::to_string(got) + utf8_of(&out) + "|";
    FreeString_SL(&out);
    Str upper(text, encoding), padded(text, encoding), replaced(text, encoding);
    r += utf8_of(ToUpper_SL(&upper.s)) + "|";
    Pad_SL(&padded.s, length, &o.s, start & 1);
    r += utf8_of(&padded.s) + "|" + std::to_string(ReplaceString_SL(&replaced.s, &o.s, &s.s));
    r += utf8_of(&replaced.s);
    return r;
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
    Astrcpy_SL(&copy, &wide.s);
    EXPECT_NE(copy.text, wide.s.text);
    EXPECT_EQ(copy.encoding, UTF16Encoding_L());
    EXPECT_EQ(Bytelen_SL(&copy, 0), 8);
    EXPECT_EQ(Bytelen_SL(&copy, 1), 10);
    EXPECT_EQ(Strlen_SL(&copy), 3);
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
    EXPECT_EQ(GetBytesFromChars_SL(&text.s, 3, buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "日");
    EXPECT_EQ(GetBytesFromChars_SL(&text.s, 3, buffer, 0), -1);
    EXPECT_EQ(GetBytesFromChars_SL(&text.s, 3, nullptr, 8), -1);
}

TEST(CountedBadInput, InvalidUtf8ReadsAsReplacementCharacters) {
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
}

// The ASCII shortcuts of SubString_SL and InString_SL read only part of the text; their
// windows and positions must agree with the code-point path where the ASCII part ends, on
// invalid UTF-8, on Latin-1 high bytes and with a needle in another ASCII-compatible
// encoding.
TEST(CountedBadInput, AsciiShortcutsAgreeWithCodePointPath) {
    struct Text {
        const char *bytes;
        const QV_ENCODING_T *encoding;
    };
    const Text texts[] = {
        {"abcdef", UTF8Encoding_L()},
        {"\xE2\x82"
         "a\xE2\x82\xAC\xEF\xBF\xBD\xC3\xA9\xE2\x82\xAC",
         UTF8Encoding_L()},
        {"abc\xC3\xA9"
         "def",
         UTF8Encoding_L()},
        {"ab\xE6\x97"
         "xab\xFF"
         "ab",
         UTF8Encoding_L()},
        {"ab\xE9"
         "ab\xE9"
         "ab",
         Latin1Encoding_L()},
        {"", UTF8Encoding_L()},
        {"ab\x80"
         "ab",
         ASCIIEncoding_L()},
    };
    const Text needles[] = {
        {"ab", UTF8Encoding_L()},           {"b", ASCIIEncoding_L()},
        {"x", Latin1Encoding_L()},          {"\xC3\xA9", UTF8Encoding_L()},
        {"\xE2\x82\xAC", UTF8Encoding_L()}, {"\xEF\xBF\xBD", UTF8Encoding_L()},
        {"\xE2\x82", UTF8Encoding_L()},     {"\xE9", Latin1Encoding_L()},
    };
    auto describe = [&](const Text &t) {
        QV_STRING_T s{const_cast<char *>(t.bytes), t.encoding};
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
                QV_STRING_T needle{const_cast<char *>(n.bytes), n.encoding};
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
        EXPECT_EQ(fast, forced) << t.bytes;
    }
}

TEST(CountedBadInput, OddLengthUtf16AndLoneSurrogates) {
    const char16_t lone[] = {u'a', 0xD800, u'b', 0};
    QV_STRING_T s{reinterpret_cast<char *>(const_cast<char16_t *>(lone)), UTF16Encoding_L()};
    EXPECT_EQ(Strlen_SL(&s), 3);
    QV_STRING_T out;
    EXPECT_EQ(SubString_SL(&s, 2, 1, &out), 1);
    EXPECT_EQ(utf8_of(&out), "\xEF\xBF\xBD");
    FreeString_SL(&out);
}

using Strings = std::vector<std::unique_ptr<Str>>;

Strings make_strings(std::initializer_list<const char *> texts, const QV_ENCODING_T *encoding) {
    Strings strings;
    for (const char *text : texts) strings.push_back(std::make_unique<Str>(text, encoding));
    return strings;
}

// Fails allocation 0, 1, 2 ... of `act` inside a context until it succeeds: every failure
// raises ALLOC_FAILURE from this module, and the unwinding frees what was half built (the
// address sanitizer checks). Returns what the successful run produced.
template <class Act>
std::string allocation_failure_loop(const char *name, std::initializer_list<const char *> texts,
                                    const QV_ENCODING_T *encoding, Act act) {
    for (int32_t fail = 0; fail < 50; ++fail) {
        Strings strings = make_strings(texts, encoding);
        const char *raised = nullptr;
        bool completed = qv::guarded(
            name, "qvstrlib_paths_test", __LINE__,
            [&] {
                TestFailAllocation_L(fail);
                act(strings);
                TestFailAllocation_L(-1);
            },
            [&](const char *symbol) { raised = symbol; });
        bool fired = TestAllocationFailed_L();
        TestFailAllocation_L(-1);
        if (completed && !fired) return utf8_of(&strings[0]->s);
        EXPECT_EQ(raised, ALLOC_FAILURE) << name << " at allocation " << fail;
        EXPECT_STREQ(Exc_GetFile_L(), "qvstrlib") << name << " at allocation " << fail;
    }
    ADD_FAILURE() << name << " never completed";
    return "";
}

TEST(CountedAllocation, FailuresRaiseAndLeakNothing) {
    EXPECT_EQ(
        allocation_failure_loop("ReplaceString", {"a日b日c", "日", "xyz"}, UTF16Encoding_L(),
                                [](Strings &s) { ReplaceString_SL(&s[0]->s, &s[1]->s, &s[2]->s); }),
        "axyzbxyzc");
    EXPECT_EQ(allocation_failure_loop("ToUpper", {"héllo"}, UTF8Encoding_L(),
                                      [](Strings &s) { ToUpper_SL(&s[0]->s); }),
              "HÉLLO");
    EXPECT_EQ(allocation_failure_loop("SubString", {"héllo", ""}, UTF16Encoding_L(),
                                      [](Strings &s) {
                                          FreeString_SL(&s[1]->s);
                                          SubString_SL(&s[0]->s, 2, 2, &s[1]->s);
                                          std::swap(s[0]->s, s[1]->s);
                                      }),
              "él");
    EXPECT_EQ(allocation_failure_loop("Collapse", {"  a  日  "}, UTF16Encoding_L(),
                                      [](Strings &s) { Collapse_SL(&s[0]->s); }),
              "a 日");
}

TEST(CountedAllocation, WithoutContextMembersReturnNothing) {
    Str s("héllo", UTF16Encoding_L());
    QV_STRING_T out;
    TestFailAllocation_L(0);
    EXPECT_EQ(SubString_SL(&s.s, 1, 2, &out), -1);
    TestFailAllocation_L(-1);
    EXPECT_EQ(out.text, nullptr);
    EXPECT_EQ(utf8_of(&s.s), "héllo");
}

} // namespace
