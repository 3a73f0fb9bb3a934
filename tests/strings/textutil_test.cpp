// textutil_test.cpp - the byte text routines: LIKE matching, soundex, padding, trimming,
// translation, case copying, quotes, the checksum fold and UUIDs.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "capture.hpp"
#include "qv/alloc.h"
#include "qv/encoding.h"
#include "qv/textutil.h"

namespace {

using qvtest::take;
using ::testing::MatchesRegex;

// The fold as its definition reads, one byte at a time, with the table built bit by bit.
uint32_t reference_fold(uint32_t crc, const std::vector<uint8_t> &bytes) {
    for (uint8_t byte : bytes) {
        uint32_t entry = (byte ^ crc) & 0xFF;
        for (int bit = 0; bit < 8; ++bit)
            entry = (entry & 1) ? (entry >> 1) ^ 0xEDB88320u : entry >> 1;
        crc = entry ^ (crc >> 8);
    }
    return crc;
}

std::vector<uint8_t> random_bytes(std::mt19937 &random, size_t length) {
    std::vector<uint8_t> bytes(length);
    for (auto &b : bytes) b = static_cast<uint8_t>(random());
    return bytes;
}

// LIKE as its definition reads: a slow recursive match over characters, where a character
// is one byte, or one UTF-8 character as DecodeUTF8_L steps over it, compared by code point.
using Chars = std::vector<int32_t>;
Chars characters(const std::string &s, bool utf8) {
    Chars out;
    for (size_t at = 0, n; at < s.size(); at += n) {
        const auto left = static_cast<int32_t>(std::min<size_t>(s.size() - at, 4));
        int32_t c = static_cast<uint8_t>(s[at]);
        n = utf8 ? static_cast<size_t>(DecodeUTF8_L(s.data() + at, left, &c)) : 1;
        out.push_back(c);
    }
    return out;
}

bool model_like(const Chars &t, size_t ti, const Chars &p, size_t pi) {
    if (pi == p.size()) return ti == t.size();
    if (p[pi] == '%')
        return model_like(t, ti, p, pi + 1) || (ti < t.size() && model_like(t, ti + 1, p, pi));
    if (ti == t.size()) return false;
    if (p[pi] == '_') return model_like(t, ti + 1, p, pi + 1);
    if (p[pi] == '\\' && pi + 1 < p.size()) ++pi;
    return p[pi] == t[ti] && model_like(t, ti + 1, p, pi + 1);
}

std::string random_piece_text(std::mt19937 &random, const std::vector<std::string> &pieces,
                              size_t most) {
    std::string text;
    size_t length = random() % (most + 1);
    for (size_t i = 0; i < length; ++i) text += pieces[random() % pieces.size()];
    return text;
}

} // namespace

// Rows: text, pattern, whether Is_Like_L and whether Is_Like8_L match. A null text is empty,
// a null pattern matches anything; case matters; the last "%" has to swallow the first "abc";
// "\" escapes the next character ("\x" is a literal "x") and a final one stands for itself;
// "_" is one byte, or one UTF-8 character, and backtracking moves by whole characters, an
// invalid byte being one. UTF-8 characters compare by code point: a literal never matches
// part of a character, and every invalid sequence reads as U+FFFD.
TEST(TextLike, BytesAndUtf8Characters) {
    const std::tuple<const char *, const char *, int, int> cases[] = {
        {"", "", 1, 1},
        {"a", "", 0, 0},
        {"", "%", 1, 1},
        {nullptr, "%", 1, 1},
        {nullptr, "_", 0, 0},
        {"x", nullptr, 1, 1},
        {"Abc", "abc", 0, 0},
        {"abc", "ab", 0, 0},
        {"ab", "abc", 0, 0},
        {"ab", "ab%%", 1, 1},
        {"abcabc", "%bc", 1, 1},
        {"50%", "50\\%", 1, 1},
        {"a\\b", "a\\\\b", 1, 1},
        {"ab\\", "ab\\", 1, 1},
        {"ab", "ab\\", 0, 0},
        {"x", "\\x", 1, 1},
        {"caf\xC3\xA9", "caf_", 0, 1},
        {"caf\xC3\xA9", "caf__", 1, 0},
        {"\xF0\x9D\x84\x9E", "_", 0, 1},
        {"\xC3\xA9\xC3\xA9", "%__\xC3\xA9", 1, 0},
        {"\xC3\xA9", "\\\xC3\xA9", 1, 1},
        {"x\x80y", "x_y", 1, 1},
        {"\xC3\xA9", "\xC3_", 1, 0},
        {"x\xE2\x82\xAC", "x\xE2\x82%", 1, 0},
        {"\xE2\x82\xACz", "%\xE2\x82_z", 1, 0},
        {"\xFF", "\xFE", 0, 1},
        {"a\xE2\x82z", "a\xEF\xBF\xBDz", 0, 1},
        {"ab\xF0\x9F\x98", "%\xC0", 0, 1}};
    for (const auto &[text, pattern, bytes, utf8] : cases) {
        EXPECT_EQ(Is_Like_L(text, pattern), bytes) << text << " LIKE " << pattern;
        EXPECT_EQ(Is_Like8_L(text, pattern), utf8) << text << " LIKE " << pattern;
    }
    // A pattern that makes a naive backtracking matcher explode.
    std::string text(3000, 'a'), pattern;
    for (int i = 0; i < 40; ++i) pattern += "%a";
    pattern += "%b";
    EXPECT_EQ(Is_Like_L(text.c_str(), pattern.c_str()), 0);
    EXPECT_EQ(Is_Like8_L(text.c_str(), pattern.c_str()), 0);
    EXPECT_EQ(Is_Like_L((text + "b").c_str(), pattern.c_str()), 1);
}

// Texts and patterns from a small alphabet (repeats make the "%" backtracking work), both
// with invalid and truncated UTF-8 sequences and the replacement character.
TEST(TextLike, MatchersAgreeWithTheDefinition) {
    const std::vector<std::string> pattern_pieces = {
        "a",   "b",        "ab",           "%",    "%",    "_",        "\\",          "\\%",
        "\\_", "\xC3\xA9", "\xE2\x82\xAC", "\xC3", "\x80", "\xE2\x82", "\xEF\xBF\xBD"};
    std::vector<std::string> text_pieces = pattern_pieces;
    text_pieces.insert(text_pieces.end(), {"\xF0\x9F\x98\x80", "\xA9", "\xAC"});
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        std::string text = random_piece_text(random, text_pieces, 7);
        std::string pattern = random_piece_text(random, pattern_pieces, 6);
        for (bool utf8 : {false, true}) {
            bool expected = model_like(characters(text, utf8), 0, characters(pattern, utf8), 0);
            uint8_t got = utf8 ? Is_Like8_L(text.c_str(), pattern.c_str())
                               : Is_Like_L(text.c_str(), pattern.c_str());
            ASSERT_EQ(got, expected ? 1 : 0)
                << (utf8 ? "utf8 '" : "bytes '") << text << "' LIKE '" << pattern << "'";
        }
    }
}

TEST(TextSoundex, ClassicNames) {
    const std::pair<const char *, const char *> cases[] = {
        {"Robert", "R163"},   {"Rupert", "R163"},     {"Rubin", "R150"},
        {"Ashcraft", "A261"}, {"Ashcroft", "A261"},   {"Tymczak", "T522"},
        {"Pfister", "P236"},  {"Honeyman", "H555"},   {"Lee", "L000"},
        {"lloyd", "L300"},    {"Washington", "W252"}, {"A", "A000"},
        {"  o'Hara", "O600"}, {"Jackson", "J250"},    {"", ""},
        {"123 !", ""},        {nullptr, ""},
    };
    for (const auto &[name, code] : cases) {
        char out[5] = "xxxx";
        EXPECT_STREQ(Soundex_L(name, out), code) << name;
    }
    EXPECT_EQ(Soundex_L("Robert", nullptr), nullptr);
}

// Rows: text, length, pad, at left, the byte form's result and the UTF-8 form's.
TEST(TextPad, BytesAndUtf8Characters) {
    const std::tuple<const char *, int32_t, const char *, int32_t, const char *, const char *>
        cases[] = {
            {"ab", 5, nullptr, 0, "ab   ", "ab   "},
            {"ab", 5, "", 1, "   ab", "   ab"},
            {"ab", 7, "xy", 1, "xyxyxab", "xyxyxab"},
            {"abcdef", 3, "*", 0, "abc", "abc"},
            {"abcdef", 3, "*", 1, "abc", "abc"},
            {"ab", 0, "*", 0, "", ""},
            {"ab", -4, "*", 0, "", ""},
            {nullptr, 2, "*", 0, "**", "**"},
            {"\xC3\xA9", 3, "*", 0, "\xC3\xA9*", "\xC3\xA9**"},
            {"\xC3\xA9t\xC3\xA9", 2, "*", 0, "\xC3\xA9", "\xC3\xA9t"},
            {"a", 4, "\xE2\x82\xAC.", 1, "\xE2\x82\xAC\x61", "\xE2\x82\xAC.\xE2\x82\xAC\x61"},
        };
    for (const auto &[text, length, pad, at_left, bytes, utf8] : cases) {
        EXPECT_EQ(take(Pad_L(text, length, pad, at_left)), bytes) << text;
        EXPECT_EQ(take(Pad8_L(text, length, pad, at_left)), utf8) << text;
    }
    // An allocation failure raises; without a status context it reports and gives null.
    char *padded = nullptr;
    EXPECT_EQ(qvtest::fail_each_allocation([&] { padded = Pad_L("ab", 5, "*", 0); }),
              std::vector<const char *>{ALLOC_FAILURE});
    EXPECT_EQ(take(padded), "ab***");
    TestFailAllocation_L(0);
    EXPECT_EQ(Pad8_L("ab", 5, "*", 0), nullptr);
    TestFailAllocation_L(-1);
}

// Rows: text, set, where, the byte form's result and the UTF-8 form's.
TEST(TextTrim, BytesAndUtf8Characters) {
    const std::tuple<const char *, const char *, int32_t, const char *, const char *> cases[] = {
        {"  ab  ", nullptr, QV_TRIM_BOTH, "ab", "ab"},
        {"  ab  ", nullptr, QV_TRIM_LEFT, "ab  ", "ab  "},
        {"  ab  ", nullptr, QV_TRIM_RIGHT, "  ab", "  ab"},
        {"\t\r\n\v\f a b\r\n", nullptr, QV_TRIM_BOTH, "a b", "a b"},
        {"    ", nullptr, QV_TRIM_BOTH, "", ""},
        {"", nullptr, QV_TRIM_BOTH, "", ""},
        {"xxaxbxx", "x", QV_TRIM_BOTH, "axb", "axb"},
        {"  ab  ", "", QV_TRIM_BOTH, "  ab  ", "  ab  "},
        {"  ab  ", nullptr, 0, "  ab  ", "  ab  "},
        {"\x1Fz", nullptr, QV_TRIM_BOTH, "\x1Fz", "\x1Fz"}, // a control but not white space
        // No-break space and ideographic space are white space only to the UTF-8 form.
        {"\xC2\xA0z\xE3\x80\x80", nullptr, QV_TRIM_BOTH, "\xC2\xA0z\xE3\x80\x80", "z"},
        // A set character trims whole characters: "é" in the set does not cut "è".
        {"\xC3\xA9\xC3\xA8\xC3\xA9", "\xC3\xA9", QV_TRIM_BOTH, "\xA8", "\xC3\xA8"},
    };
    for (const auto &[text, set, where, bytes, utf8] : cases) {
        std::string byte_text = text, utf8_text = text;
        EXPECT_STREQ(TrimUtil_L(byte_text.data(), set, where), bytes) << text;
        EXPECT_STREQ(TrimUtil8_L(utf8_text.data(), set, where), utf8) << text;
    }
    EXPECT_EQ(TrimUtil_L(nullptr, nullptr, QV_TRIM_BOTH), nullptr);
    EXPECT_EQ(TrimUtil8_L(nullptr, nullptr, QV_TRIM_BOTH), nullptr);
    char line[] = " value \r\n";
    EXPECT_STREQ(RTrim_L(line), " value");
    EXPECT_EQ(RTrim_L(nullptr), nullptr);
}

// Translate rows: text, from, to, result; CopyCaps rows: source, model, result.
TEST(TextTranslateAndCopyCaps, MapsRemovesAndFollowsTheModel) {
    const std::tuple<const char *, const char *, const char *, const char *> translations[] = {
        {"hello", "el", "ip", "hippo"},
        {"hello", "lo", "L", "heLL"}, // "o" has no partner: removed
        {"hello", "l", nullptr, "heo"},
        {"abcabc", "aa", "xy", "xbcxbc"}, // the first mention
                                          // decides
        {"abc", "", "xyz", "abc"},
        {"abc", nullptr, "xyz", "abc"},
        {"", "a", "b", ""},
        {"a\xE9", "\xE9", "e", "ae"},
    };
    for (const auto &[text, from, to, result] : translations) {
        std::string buffer = text;
        EXPECT_STREQ(Translate_L(buffer.data(), from, to), result) << text;
    }
    EXPECT_EQ(Translate_L(nullptr, "a", "b"), nullptr);

    const std::tuple<const char *, const char *, const char *> copies[] = {
        {"hello world", "A-1", "HELLO WORLD"}, // all the model's letters upper
        {"HELLO world", "Abc", "Hello world"},
        {"  hello", "Abc", "  Hello"},
        {"Hello", "aBC", "hello"},
        {"Hello", nullptr, "hello"},
        {"", "ABC", ""},
        {"caf\xC3\xA9", "ABC", "CAF\xC3\xA9"},
    };
    for (const auto &[source, model, result] : copies) {
        std::vector<char> target(std::strlen(source) + 1, 'x');
        EXPECT_STREQ(CopyCaps_L(target.data(), source, model), result) << model;
    }
    EXPECT_EQ(CopyCaps_L(nullptr, "a", "A"), nullptr);
}

TEST(TextIsQuoted, SingleQuotedLiterals) {
    const std::tuple<const char *, bool, int32_t> cases[] = {
        {"'abc'", true, 3}, {"''", true, 0},    {"'it''s'", true, 4}, {"''''", true, 1},
        {"'", false, 1},    {"'abc", false, 4}, {"'a'b'", false, 5},  {"'''", false, 3},
        {"abc", false, 3},  {"", false, 0},     {"\"a\"", false, 3},  {nullptr, false, 0}};
    for (const auto &[text, quoted, expected_length] : cases) {
        int32_t length = -1;
        EXPECT_EQ(IsQuoted_L(text, &length), quoted) << text;
        EXPECT_EQ(length, expected_length) << text;
    }
    EXPECT_EQ(IsQuoted_L("'a'", nullptr), 1);
}

TEST(TextCrc32, MatchesTheByteWiseDefinitionAndChains) {
    std::mt19937 random(12345);
    // Every length up to 300, then one long buffer, each from an unaligned start.
    const auto pool = random_bytes(random, 70008);
    for (size_t length = 0; length <= 300; length = length < 300 ? length + 1 : 70000) {
        const uint8_t *start = pool.data() + length % 8;
        const std::vector<uint8_t> bytes(start, start + length);
        for (uint32_t previous : {0u, 0xFFFFFFFFu, static_cast<uint32_t>(random())})
            EXPECT_EQ(crc32_L(previous, start, length), ~reference_fold(previous, bytes)) << length;
    }
    EXPECT_EQ(crc32_L(0x1234, nullptr, 10), ~0x1234u);
    // The usual CRC-32 (zlib's crc32(0, ...)) is this fold started from all ones.
    EXPECT_EQ(crc32_L(0xFFFFFFFFu, "123456789", 9), 0xCBF43926u);
    // Feeding a result straight back folds from the inverted state, so one fold over a+b is
    // resumed by inverting the result first.
    for (int round = 0; round < 50; ++round) {
        auto a = random_bytes(random, random() % 40);
        auto b = random_bytes(random, 1 + random() % 40);
        std::vector<uint8_t> both = a;
        both.insert(both.end(), b.begin(), b.end());
        uint32_t first = crc32_L(0, a.data(), a.size());
        EXPECT_EQ(crc32_L(first, b.data(), b.size()), ~reference_fold(~reference_fold(0, a), b));
        EXPECT_EQ(crc32_L(~first, b.data(), b.size()), crc32_L(0, both.data(), both.size()));
    }
}

TEST(TextUuid, ShapeVersionAndUniqueness) {
    std::set<std::string> seen;
    for (int i = 0; i < 3000; ++i) {
        char out[37];
        ASSERT_EQ(CreateUUID_L(out), out);
        // Random (version 4), with the variant bits 10.
        ASSERT_THAT(std::string(out), MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-"
                                                   "[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
        EXPECT_TRUE(seen.insert(out).second) << out;
    }
    EXPECT_EQ(CreateUUID_L(nullptr), nullptr);
}
