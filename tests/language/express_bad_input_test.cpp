// Bad input to the parser: invalid UTF-8, NUL bytes, unterminated quotes and braces, texts of
// a megabyte, deep nesting, every token out of place, odd arguments, and memory running out
// at each allocation of a long parse. Every failure must name a message and a position
// inside the text, mark the text, and leave nothing behind (the sanitizer build sees leaks).
#include <string>
#include <vector>

#include "express_cases.hpp"
#include "language/express.hpp"

namespace {

using namespace qvtest;

using BadInputTest = CaptureTest;

TEST_F(BadInputTest, InvalidUtf8AndNulBytes) {
    const std::pair<std::string, std::string> cases[] = {
        {"a \xff b", error(QV_MSG_UNEXPECTED_CHARACTER, 2)},
        {"abc\xe2\x82", error(QV_MSG_UNEXPECTED_CHARACTER, 3)}, // a character cut short
        {"\xc3", error(QV_MSG_UNEXPECTED_CHARACTER, 0)},
        {"\xed\xa0\x80", error(QV_MSG_UNEXPECTED_CHARACTER, 0)}, // a surrogate
        {"'\xff\xfe' & \"x\xff\"", "'\xff\xfe' \"x\xff\" &"},    // kept as written
        {"$a\xff", error(QV_MSG_UNEXPECTED_CHARACTER, 2)},
        {"{$\xff}", "{$\xff}"},
    };
    for (const auto &[text, expected] : cases) EXPECT_EQ(outcome(text), expected);
    // A NUL byte ends a C text; inside a counted view it is a character like any other.
    EXPECT_EQ(outcome(std::string("a\0+ b", 5)), "a");
    qv::express::Parser parser(std::string_view("a\0b", 3), nullptr, 0, 100);
    qv::express::Token token;
    EXPECT_EQ(parser.next_token(plain, token), EXP_TOKEN_NAME);
    EXPECT_EQ(parser.next_token(plain, token), 0);
    EXPECT_EQ(GetExpressionError_L(nullptr), QV_MSG_UNEXPECTED_CHARACTER);
}

TEST_F(BadInputTest, TextsOfAMegabyte) {
    const std::string mega(1 << 20, 'x');
    EXPECT_EQ(outcome("'" + mega + "'").size(), mega.size() + 2);
    EXPECT_EQ(outcome(mega + " + 1"), mega + " 1 +");
    EXPECT_EQ(outcome(std::string(1 << 20, ' ') + "a"), "a");
    EXPECT_EQ(outcome("// " + mega), "nothing");
    EXPECT_EQ(outcome("'" + mega), error(QV_MSG_QUOTE_NOT_CLOSED, 0));
    EXPECT_EQ(outcome("{$" + mega), error(QV_MSG_BRACE_NOT_CLOSED, 0));
    EXPECT_EQ(outcome("\"" + mega), error(QV_MSG_QUOTE_NOT_CLOSED, 0));
    EXPECT_EQ(outcome(std::string(1 << 20, '1')), error(0, 0)); // more than 77 digits
    std::string negated(1 << 20, '-');
    EXPECT_EQ(outcome(negated + "5"), "5");
    std::string nots;
    for (int i = 0; i < (1 << 18); ++i) nots += "NOT ";
    EXPECT_EQ(outcome(nots + "a").size(), std::string("a").size() + 4 * (1 << 18));
    std::string sum = "1";
    for (int i = 0; i < 100000; ++i) sum += "+1";
    EXPECT_EQ(outcome(sum).size(), 4 * 100000 + 1);
    EXPECT_EQ(outcome(sum + " +").substr(0, 6), "error ");
}

TEST_F(BadInputTest, DeepNesting) {
    auto repeated = [](const char *text) {
        std::string out;
        for (int i = 0; i < 10000; ++i) out += text;
        return out;
    };
    for (const std::string &text :
         {repeated("("), repeated("-("), repeated("F("), repeated("NOT (")})
        EXPECT_EQ(outcome(text).substr(0, 15), "error " + hex(QV_MSG_RECURSION_LIMIT) + "@")
            << text.substr(0, 10);
}

// Every token of the language, put where it does not belong: a message with a position in
// the text and the text marked, or a parse.
TEST_F(BadInputTest, EveryTokenOutOfPlace) {
    std::vector<std::string> tokens = {"1",    "'s'", "x",   "\"q\"", "$v",
                                       "{$w}", "?",   "F()", ".",     "~"};
    for (const EXP_TOKEN_T *row = Get_Tokens_L(); row->text != nullptr; ++row)
        tokens.push_back(row->text);
    for (const char *loop_word : {"FOR", "TO", "DOWNTO"}) tokens.push_back(loop_word);
    const char *const places[] = {
        "%",  "a %",   "a + %", "% a", "(%)", "F(%)", "F(1, %", "x IN (%)", "x BETWEEN % AND 1",
        "-%", "NOT %", "x IS %"};
    const int32_t masks[] = {plain, condition, script | EXP_MASK_ASSIGN | EXP_MASK_PLACEHOLDER, -1,
                             0};
    int failures = 0;
    for (const std::string &token : tokens)
        for (const std::string place : places)
            for (int32_t mask : masks) {
                const std::string text =
                    place.substr(0, place.find('%')) + token + place.substr(place.find('%') + 1);
                ClearMessageContext_L();
                TerminateMessages_L(nullptr);
                InitMessages_L(&context);
                const std::string result = outcome(text, mask);
                if (result.rfind("error ", 0) != 0) continue;
                ++failures;
                uint32_t position = 0;
                GetExpressionError_L(&position);
                EXPECT_LE(position, text.size()) << text;
                EXPECT_NE(Msgbuf8[0], '\0') << text;
                const std::vector<std::string> logged = texts_of(context);
                ASSERT_EQ(logged.size(), 1u) << text;
                EXPECT_NE(logged[0].find(">>>"), std::string::npos) << text;
            }
    EXPECT_GT(failures, 500);
}

TEST_F(BadInputTest, OddArguments) {
    const ExpFunction *const with_null[] = {nullptr, host_functions};
    EXPRESSION_T *e = New_Expression_L("G(1)");
    EXPECT_EQ(Parse_Expression_L(e, plain, with_null, 2), 1); // a null table is skipped
    EXPECT_EQ(raised_by([&] { Parse_Expression_L(e, plain, host_tables, -1); }), GENERAL_ERROR);
    EXPECT_EQ(GetExpressionError_L(nullptr), QV_MSG_FUNCTION_NOT_FOUND);
    EXPECT_EQ(raised_by([&] { Parse_Expression_L(e, plain, nullptr, INT32_MAX); }), GENERAL_ERROR);
    EXPECT_EQ(raised_by([&] { Parse_Expression_L(e, 0, host_tables, 1); }), GENERAL_ERROR);
    EXPECT_EQ(GetExpressionError_L(nullptr), QV_MSG_UNEXPECTED_CHARACTER); // "(" needs bit 1
    EXPECT_EQ(Parse_Expression_L(e, -1, host_tables, 1), 1);
    Free_Expression_L(e);
    // Without any status context a failure reports and returns 0.
    e = New_Expression_L("a +");
    EXPECT_EQ(Parse_Expression_L(e, plain, nullptr, 0), 0);
    EXPECT_EQ(GetExpressionError_L(nullptr), QV_MSG_OPERATOR_OUT_OF_PLACE);
    EXPECT_EQ(e->items->count, 0);
    Free_Expression_L(e);
}

// Memory running out at each allocation of a long parse: the failure symbol, nothing kept,
// Msgbuf8 saying so; then the same parse whole.
TEST_F(BadInputTest, AllocationFailures) {
    const char *text = "If(x > 50, Upper(t.\"a b\") & 'It''s', G(-y, 2.5)) + $v * {$w} - "
                       "Info(c, 'x') NOT IN (1, -2, ?) AND z BETWEEN 1 AND 2";
    // Set, so that the preference is read from the environment (a failure reading qv.ini
    // only hides the file).
    ScopedEnvironment limit("QV_MAX_RECURSION", "100");
    for (bool text_order : {false, true}) {
        EXPRESSION_T *e = New_Expression_L(text);
        int32_t parsed = 0;
        bool failed_before = false;
        const std::vector<const char *> raised = fail_each_allocation(
            [&] {
                failed_before = true;
                parsed = (text_order ? Simple_Parse_Expression_L : Parse_Expression_L)(
                    e, condition | EXP_MASK_PLACEHOLDER, host_tables, 1);
            },
            [&] { // after each failed run: nothing kept, and Msgbuf8 says why
                if (!failed_before || e->items->count == 28) return;
                EXPECT_EQ(e->items->count, 0);
                EXPECT_STREQ(Msgbuf8, "not enough memory to parse the expression");
            });
        // The first allocation is the status context's, without which the parse runs
        // unprotected and whole; every later one fails the parse.
        ASSERT_GT(raised.size(), 20u);
        EXPECT_EQ(raised[0], nullptr);
        for (std::size_t i = 1; i < raised.size(); ++i) EXPECT_EQ(raised[i], ALLOC_FAILURE) << i;
        EXPECT_EQ(parsed, 1);
        EXPECT_EQ(e->item_count, 28);
        Free_Expression_L(e);
    }
    EXPRESSION_T *made = nullptr;
    for (const char *symbol : fail_each_allocation([&] { made = New_Expression_L(text); },
                                                   [&] { Free_Expression_L(made); }))
        EXPECT_EQ(symbol, ALLOC_FAILURE);
    ASSERT_EQ(Parse_Expression_L(made, condition | EXP_MASK_PLACEHOLDER, host_tables, 1), 1);
    char *explained = nullptr;
    fail_each_allocation([&] { explained = ExplainExpression_L(made); },
                         [&] { std::free(explained); });
    EXPECT_NE(std::string(explained).find("call      If  3 arguments"), std::string::npos);
    std::free(explained);
    Free_Expression_L(made);
}

} // namespace
