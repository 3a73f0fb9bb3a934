// scan_test.cpp - the tool's light reading of the language: what a text leaves open (the
// REPL's continuation lines), statements told from expressions, a script's top-level
// statements, and the declarations of user-defined functions cut out of a script.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "scan.hpp"

namespace {

using namespace qvtool;

TEST(Scan, WhatATextLeavesOpen) {
    const struct {
        const char *text;
        int parentheses, blocks;
        bool quote, more;
    } cases[] = {
        {"Upper(", 1, 0, false, true},
        {"Upper('a')", 0, 0, false, false},
        {"Upper(')')", 0, 0, false, false},
        {"If(a, 'It''s (', b", 1, 0, false, true},
        {"'unclosed (", 0, 0, true, false},
        {"\"a name (\" + 1", 0, 0, false, false},
        {"{$a)}}b} + (", 1, 0, false, true},
        {"f( // a comment )\n", 1, 0, false, true},
        {"BEGIN $a := 1;", 0, 1, false, true},
        {"BEGIN $a := 1; END", 0, 0, false, false},
        {"CASE $a OF 1: $b := 2;", 0, 1, false, true},
        {"CASE $a BEGIN 1: BEGIN $b := 2 END END", 0, 0, false, false},
        {"$BEGIN := 1", 0, 0, false, false}, // a variable's name is no keyword
        {"1)", -1, 0, false, false},
    };
    for (const auto &c : cases) {
        const Openness open = openness(c.text);
        EXPECT_EQ(open.parentheses, c.parentheses) << c.text;
        EXPECT_EQ(open.blocks, c.blocks) << c.text;
        EXPECT_EQ(open.quote, c.quote) << c.text;
        EXPECT_EQ(open.more_wanted(), c.more) << c.text;
    }
}

TEST(Scan, StatementsToldFromExpressions) {
    for (const char *yes : {"$a := 1", "RETURN 1", "IF $a THEN $b := 1", "LogMsg('x');",
                            "FUNCTION F() BEGIN RETURN 1; END", "  WHILE $a < 3 DO $a := $a + 1"})
        EXPECT_TRUE(looks_like_statements(yes)) << yes;
    for (const char *no : {"1 + 2", "If(a, b, c)", "'a;b' + ':='", "Return(1)", "$a = 1"})
        EXPECT_FALSE(looks_like_statements(no)) << no;
}

TEST(Scan, TopLevelStatements) {
    const std::string text = "FUNCTION F($x) BEGIN RETURN $x; END\n"
                             "$a := F(1);\n"
                             "IF $a > 0 THEN BEGIN $b := 1; END ELSE $b := 2;\n"
                             "LogMsg('a;b');\n"
                             "WHILE $a < 3 DO BEGIN $a := $a + 1 END\n"
                             "RETURN $a";
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"FUNCTION", "FUNCTION F($x) BEGIN RETURN $x; END"},      {"assignment", "$a := F(1)"},
        {"IF", "IF $a > 0 THEN BEGIN $b := 1; END ELSE $b := 2"}, {"call", "LogMsg('a;b')"},
        {"WHILE", "WHILE $a < 3 DO BEGIN $a := $a + 1 END"},      {"RETURN", "RETURN $a"},
    };
    const std::vector<Statement> statements = top_statements(text);
    ASSERT_EQ(statements.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(statements[i].kind, expected[i].first);
        EXPECT_EQ(statements[i].text, expected[i].second);
        EXPECT_EQ(text.substr(statements[i].begin, statements[i].text.size()), statements[i].text);
    }
    EXPECT_TRUE(top_statements(" ;; // nothing\n").empty());
}

TEST(Scan, DeclarationsCutOutInPlace) {
    const std::string text = "$a := 1;\nFUNCTION F($x)\nBEGIN\n  RETURN $x * 2;\nEND\n"
                             "RETURN F($a);";
    const ScriptParts parts = split_declarations(text);
    EXPECT_TRUE(parts.has_declarations);
    ASSERT_EQ(parts.declarations.size(), text.size());
    ASSERT_EQ(parts.statements.size(), text.size());
    EXPECT_EQ(parts.statements, "$a := 1;\n              \n     \n                \n   \n"
                                "RETURN F($a);");
    EXPECT_EQ(parts.declarations, "        \nFUNCTION F($x)\nBEGIN\n  RETURN $x * 2;\nEND\n"
                                  "             ");
    // FUNCTION inside a statement is no declaration; neither is a text without one.
    EXPECT_FALSE(split_declarations("$f := 'FUNCTION'; RETURN FUNCTION_X(1);").has_declarations);
}

} // namespace
