// Names of the data-line module: the name-character classes against ICU's letters and digits,
// identifiers read from texts (bare, quoted, dotted, malformed), the one-block result, and
// allocation failures.
#include <unicode/uchar.h>

#include <string>
#include <vector>

#include "capture.hpp"
#include "qv/dataline.h"

namespace {

using qvtest::fail_each_allocation;

TEST(NameCharacters, ClassesOfCodePoints) {
    constexpr int32_t plain = QV_NAME_CLASS_PLAIN, expression = QV_NAME_CLASS_EXPRESSION;
    // code point, may start plain, may continue plain, may start expression, may continue it
    const std::tuple<int32_t, bool, bool, bool, bool> cases[] = {
        {'a', 1, 1, 1, 1},   {'Z', 1, 1, 1, 1},      {'_', 1, 1, 1, 1},    {'7', 0, 1, 0, 1},
        {'@', 0, 0, 1, 1},   {':', 0, 0, 0, 1},      {'$', 0, 0, 0, 0},    {'.', 0, 0, 0, 0},
        {' ', 0, 0, 0, 0},   {'"', 0, 0, 0, 0},      {0xE9, 1, 1, 1, 1},   {0x3B1, 1, 1, 1, 1},
        {0x663, 0, 1, 0, 1}, {0x20AC, 0, 0, 0, 0},   {0xFFFD, 0, 0, 0, 0}, {0, 0, 0, 0, 0},
        {-1, 0, 0, 0, 0},    {0x110000, 0, 0, 0, 0},
    };
    for (const auto &[c, start, inside, expression_start, expression_inside] : cases) {
        EXPECT_EQ(IsValidNameChar_L(c, plain), start) << c;
        EXPECT_EQ(IsValidNameCodePoint_L(c, plain), inside) << c;
        EXPECT_EQ(IsValidNameChar_L(c, expression), expression_start) << c;
        EXPECT_EQ(IsValidNameCodePoint_L(c, expression), expression_inside) << c;
    }
    // Beyond ASCII the classes are ICU's letters (start) and letters or digits (inside).
    for (int32_t c = 0x80; c < 0x3000; ++c) {
        ASSERT_EQ(IsValidNameChar_L(c, plain), u_isalpha(c) ? 1 : 0) << c;
        ASSERT_EQ(IsValidNameCodePoint_L(c, expression), u_isalnum(c) ? 1 : 0) << c;
    }
}

// Reads `text`: the result, and the parts as one string joined by "|".
std::pair<int32_t, std::string> read(const char *text,
                                     int32_t name_class = QV_NAME_CLASS_EXPRESSION) {
    char **parts = nullptr;
    int32_t count = -1;
    const int32_t result = ParseIdentifier_L(text, name_class, &parts, &count);
    std::string joined;
    if (result > 0) {
        for (int32_t i = 0; i < count; ++i) joined += (i ? "|" : "") + std::string(parts[i]);
        std::free(parts); // one block
    } else {
        EXPECT_EQ(parts, nullptr) << text;
        EXPECT_EQ(count, -1) << text;
    }
    return {result, joined};
}

TEST(ParseIdentifier, Texts) {
    const std::tuple<const char *, int32_t, int32_t, const char *> cases[] = {
        {"abc def", QV_NAME_CLASS_EXPRESSION, 3, "abc"},
        {"a.b.c+1", QV_NAME_CLASS_EXPRESSION, 5, "a|b|c"},
        {"\"a b\".c", QV_NAME_CLASS_EXPRESSION, 7, "a b|c"},
        {"t.\"x\"\"y\"", QV_NAME_CLASS_EXPRESSION, 8, "t|x\"y"},
        {"\"\"\"\"", QV_NAME_CLASS_EXPRESSION, 4, "\""},
        {"x:=1", QV_NAME_CLASS_EXPRESSION, 1, "x"},
        {"x::=1", QV_NAME_CLASS_EXPRESSION, 2, "x:"},
        {"x:y", QV_NAME_CLASS_EXPRESSION, 3, "x:y"},
        {"x:y", QV_NAME_CLASS_PLAIN, 1, "x"},
        {"@a", QV_NAME_CLASS_EXPRESSION, 2, "@a"},
        {"@a", QV_NAME_CLASS_PLAIN, QV_NAME_NONE, ""},
        {"Größe.prix", QV_NAME_CLASS_PLAIN, 12, "Größe|prix"},
        {"ab\xff", QV_NAME_CLASS_PLAIN, 2, "ab"},
        {"\"\xff\"", QV_NAME_CLASS_PLAIN, 3, "\xff"},
        {"1a", QV_NAME_CLASS_EXPRESSION, QV_NAME_NONE, ""},
        {" a", QV_NAME_CLASS_EXPRESSION, QV_NAME_NONE, ""},
        {"", QV_NAME_CLASS_EXPRESSION, QV_NAME_NONE, ""},
        {"a.", QV_NAME_CLASS_EXPRESSION, QV_NAME_PART_EXPECTED, ""},
        {"a. b", QV_NAME_CLASS_EXPRESSION, QV_NAME_PART_EXPECTED, ""},
        {"a.1", QV_NAME_CLASS_EXPRESSION, QV_NAME_PART_EXPECTED, ""},
        {"\"abc", QV_NAME_CLASS_EXPRESSION, QV_NAME_UNCLOSED_QUOTE, ""},
        {"a.\"b\"\"", QV_NAME_CLASS_EXPRESSION, QV_NAME_UNCLOSED_QUOTE, ""},
        {"\"\"", QV_NAME_CLASS_EXPRESSION, QV_NAME_EMPTY_PART, ""},
        {"a.\"\".b", QV_NAME_CLASS_EXPRESSION, QV_NAME_EMPTY_PART, ""},
    };
    for (const auto &[text, name_class, result, parts] : cases)
        EXPECT_EQ(read(text, name_class), std::make_pair(result, std::string(parts))) << text;
    EXPECT_EQ(ParseIdentifier_L(nullptr, QV_NAME_CLASS_PLAIN, nullptr, nullptr), QV_NAME_NONE);
    EXPECT_EQ(ParseIdentifier_L("a.b", QV_NAME_CLASS_PLAIN, nullptr, nullptr), 3);
    int32_t count = 0;
    EXPECT_EQ(ParseIdentifier_L("a.b", 99, nullptr, &count), 3); // any other class is plain
    EXPECT_EQ(count, 2);
    const std::string mega(1 << 20, 'n');
    EXPECT_EQ(read(mega.c_str()), std::make_pair(int32_t{1 << 20}, mega));
}

TEST(ParseIdentifier, AllocationFailures) {
    char **parts = nullptr;
    const std::vector<const char *> raised = fail_each_allocation(
        [&] { ParseIdentifier_L("a.\"b c\".d", QV_NAME_CLASS_PLAIN, &parts, nullptr); },
        [&] {
            std::free(parts);
            parts = nullptr;
        });
    EXPECT_FALSE(raised.empty());
    for (const char *symbol : raised) EXPECT_EQ(symbol, ALLOC_FAILURE);
    ASSERT_NE(parts, nullptr);
    EXPECT_STREQ(parts[1], "b c");
    std::free(parts);
}

} // namespace
