// The expression parser: tables of texts with the postfix form they parse to or the message
// and position they fail with (grouped by what they exercise), every message of the parser
// with its text, the text-order form of Simple_Parse_Expression_L, the tables, the tokens a
// script sees, what the entry points log, and the records' life.
#include <cstring>
#include <tuple>

#include "express_cases.hpp"
#include "language/express.hpp"

namespace {

using namespace qvtest;

struct Case {
    const char *text;
    int32_t mask;
    std::string expected; // rendered items, "nothing", or error(number, position)
};

class ExpressionTest : public CaptureTest {
  protected:
    void check(std::initializer_list<Case> cases) {
        for (const Case &c : cases) EXPECT_EQ(outcome(c.text, c.mask), c.expected) << c.text;
    }
};

TEST_F(ExpressionTest, PrecedenceAndAssociativity) {
    check({
        {"a & b + c", plain, "a b & c +"},
        {"a + b & c", plain, "a b c & +"},
        {"a * b & c / d", plain, "a b * c & d /"},
        {"a - b - c", plain, "a b - c -"},
        {"a / b / c", plain, "a b / c /"},
        {"a - (b - c)", plain, "a b c - -"},
        {"(x + y) * 2.5 - z / 3", plain, "x y + 2.5f * z 3 / -"},
        {"a + 1 = b * 2", condition, "a 1 + b 2 * ="},
        {"a < b = c", condition, "a b < c ="},
        {"a OR b AND c", condition, "a b c AND OR"},
        {"a AND b OR c AND d", condition, "a b AND c d AND OR"},
        {"NOT a = b", condition, "a b = NOT"},
        {"NOT a AND b", condition, "a NOT b AND"},
        {"a AND NOT b OR c", condition, "a b NOT AND c OR"},
        {"a = NOT b = c", condition, "a b c = NOT ="},
        {"NOT NOT a", condition, "a NOT NOT"},
        {"x > 10 AND y < 20 OR name LIKE 'A%'", condition, "x 10 > y 20 < AND name 'A%' LIKE OR"},
        {"a <> b != c >= d <= e", condition, "a b <> c != d >= e <="},
    });
}

TEST_F(ExpressionTest, UnaryMinus) {
    check({
        {"-5", plain, "-5"},
        {"- 5", plain, "-5"},
        {"--5", plain, "5"},
        {"---5", plain, "-5"},
        {"-2.5", plain, "-2.5f"},
        {"-12345678901234567890", plain, "-12345678901234567890n"},
        {"-9223372036854775807", plain, "-9223372036854775807"},
        {"5 - -3", plain, "5 -3 -"},
        {"a--b", plain, "a -b -"},
        {"-x * y", plain, "-x y *"},
        {"-$v", plain, "-$v"},
        {"-G(1)", plain, "1 -G/1"},
        {"-(a + b) * 3", plain, "a b + neg 3 *"},
        {"--(a)", plain, "a"},
        {"-'a'", plain, error(QV_MSG_NEGATED_NON_NUMBER, 0)},
        {"1 + - TRUE", plain, error(QV_MSG_NEGATED_NON_NUMBER, 4)},
        {"-NULL", plain, error(QV_MSG_NEGATED_NON_NUMBER, 0)},
        {"- -'a'", plain, "'a'"}, // an even number of signs negates nothing
        {"-", plain, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 1)},
        {"- * 2", plain, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 2)},
        {"-NOT a", condition, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 1)},
    });
}

TEST_F(ExpressionTest, FusedOperatorsInAndBetween) {
    check({
        {"x NOT IN (1,2)", condition, "x 1 2 NOT IN/2"},
        {"x NOT LIKE 'a%'", condition, "x 'a%' NOT LIKE"},
        {"x NOT BETWEEN 1 AND 5", condition, "x 1 5 NOT BETWEEN/2"},
        {"x IS NOT NULL", condition, "x NULL IS NOT"},
        {"x IS NULL", condition, "x NULL IS"},
        {"x IN (1, -2, $v)", condition, "x 1 -2 $v IN/3"},
        {"x IN (--y, ?)", condition | EXP_MASK_PLACEHOLDER, "x y ? IN/2"},
        {"x BETWEEN -1 AND -$y", condition, "x -1 -$y BETWEEN/2"},
        {"x BETWEEN 1 AND 5 AND y", condition, "x 1 5 BETWEEN/2 y AND"},
        {"a + x BETWEEN 1 AND 2 = z", condition, "a x + 1 2 BETWEEN/2 z ="},
        {"NOT x IN (1)", condition, "x 1 IN/1 NOT"},
        // What binds tighter than BETWEEN after its upper bound applies to that bound.
        {"x BETWEEN 1 AND 5 * 2", condition, "x 1 5 2 * BETWEEN/2"},
        {"x IN (1+1)", condition, error(QV_MSG_ARGUMENT_LIST_BROKEN, 7)},
        {"x IN (G(1))", condition, error(QV_MSG_ARGUMENT_LIST_BROKEN, 7)},
        {"x IN ((1))", condition, error(QV_MSG_SIMPLE_OPERAND_EXPECTED, 6)},
        {"x IN ()", condition, error(QV_MSG_SIMPLE_OPERAND_EXPECTED, 6)},
        {"x IN (1,)", condition, error(QV_MSG_SIMPLE_OPERAND_EXPECTED, 8)},
        {"x IN (1", condition, error(QV_MSG_TEXT_ENDED_IN_LIST, 7)},
        {"x IN 1", condition, error(QV_MSG_IN_LIST_EXPECTED, 5)},
        {"x IN (-'a')", condition, error(QV_MSG_NEGATED_NON_NUMBER, 6)},
        {"x BETWEEN G(1) AND 2", condition, error(QV_MSG_KEYWORD_EXPECTED, 11)},
        {"x BETWEEN 1 OR 2", condition, error(QV_MSG_KEYWORD_EXPECTED, 12)},
        {"x BETWEEN (1) AND 2", condition, error(QV_MSG_SIMPLE_OPERAND_EXPECTED, 10)},
        {"x NOT y", condition, error(QV_MSG_KEYWORD_EXPECTED, 6)},
        {"x NOT = 1", condition, error(QV_MSG_KEYWORD_EXPECTED, 6)},
        {"x IS = 1", condition, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 5)},
        {"NOT AND x", condition, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 4)},
    });
}

TEST_F(ExpressionTest, Literals) {
    check({
        {"'It''s'", plain, "'It''s'"},
        {"''", plain, "''"},
        {"''''", plain, "''''"},
        {"'a' & 'b'", plain, "'a' 'b' &"},
        {"NULL", plain, "NULL"},
        {"TRUE = FALSE", condition, "TRUE FALSE ="},
        {"'2009-04-30'", plain, "d'2009-04-30 00:00:00.000000000'"},
        {"'2009-04-30 12:34 +05:30'", plain, "d'2009-04-30 12:34:00.000000000 +05:30'"},
        {"'2009-13-01'", plain, "'2009-13-01'"}, // no such month: text
        {"12", plain, "12"},
        {".5", plain, "0.5f"},
        {"1.", plain, "1"},
        {"1e3", plain, "1000"},
        {"1.5E-1", plain, "0.15f"},
        {"1e", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 1)}, // 1, then the name e
        {"007", plain, "7"},
        {"1.2.3", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 3)},
        {"1.23456789012345678", plain, "1.23456789012345678n"},
        {"'abc", plain, error(QV_MSG_QUOTE_NOT_CLOSED, 0)},
        {"'ab''", plain, error(QV_MSG_QUOTE_NOT_CLOSED, 0)},
    });
    // The literal's value: a CHAR of its length in characters, ASCII or UTF-8.
    EXPRESSION_T *e = New_Expression_L("'Größe'");
    ASSERT_EQ(Parse_Expression_L(e, plain, nullptr, 0), 1);
    auto *item = static_cast<EXP_ITEM_T *>(QV_LIST_DATA(e->items->next));
    EXPECT_EQ(item->value.descriptor.precision, 5);
    EXPECT_EQ(item->value.payload.string.encoding, UTF8Encoding_L());
    EXPECT_TRUE(item->constant && item->value.owns_payload && !item->value.is_null);
    Free_Expression_L(e);
}

TEST_F(ExpressionTest, NamesVariablesAndComments) {
    check({
        {"ANDROID", condition, "ANDROID"},
        {"AND", plain, "\"AND\""}, // written back quoted: a word elsewhere
        {"a AND b", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 2)},
        {"null + and", condition, "null and +"}, // words are spelt in capitals
        {"\"AND\" + \"x y\"", condition, "\"AND\" \"x y\" +"},
        {"orders.total", plain, "orders.total"},
        {"a.\"b c\".d", plain, "a.\"b c\".d"},
        {"\"a\"\"b\"", plain, "\"a\"\"b\""},
        {"\"plain\"", plain, "plain"},
        {"_x1 + @y", plain, "_x1 @y +"},
        {"Größe * prix", plain, "Größe prix *"},
        {"a\u00a0+\u2003b", plain, "a b +"}, // no-break and em spaces are blanks
        {"a.", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 2)},
        {"a.5", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 2)},
        {"\"\"", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 0)},
        {"\"ab", plain, error(QV_MSG_QUOTE_NOT_CLOSED, 0)},
        {"$x + {$a b} + {$c}}d}", plain, "$x {$a b} + {$c}}d} +"},
        {"$1", plain, "$1"},
        {"$", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 0)},
        {"{$}", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 0)},
        {"{$abc", plain, error(QV_MSG_BRACE_NOT_CLOSED, 0)},
        {"? + 1", plain | EXP_MASK_PLACEHOLDER, "? 1 +"},
        {"?", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 0)},
        {"// note\na / b", plain, "a b /"},
        {"a // the rest\n+ b // end", plain, "a b +"},
        {"a/ /b", plain, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 3)},
        {"", plain, "nothing"},
        {" \t\n ", plain, "nothing"},
        {"// only a comment", plain, "nothing"},
        {"a # b", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 2)},
    });
}

TEST_F(ExpressionTest, FunctionCalls) {
    check({
        {"F()", plain, "F/0"},
        {"F(,)", plain, "NULL NULL F/2"},
        {"F(a,)", plain, "a NULL F/2"},
        {"F(,x)", plain, "NULL x F/2"},
        {"F( a , , b )", plain, "a NULL b F/3"},
        {"F(G(1), F())", plain, "1 G/1 F/0 F/2"},
        {"If(x > 50, x * 2, y / 2)", plain, "x 50 > x 2 * y 2 / If/3"},
        {"upper(x) + UPPER(y)", plain, "x upper/1 y UPPER/1 +"},
        {"STRASSE(1)", plain, "1 STRASSE/1"}, // full case folding: ß is ss
        {"Db.Lookup(1)", plain, "1 Db.Lookup/1"},
        {"Upper (x)", plain, "x Upper/1"},
        {"Info(col, 'DATATYPE')", plain, "col:ptr 'DATATYPE' Info/2"},
        {"Info($v, 'x')", plain, "$v 'x' Info/2"},
        {"Info(a.b, 'x')", plain, "a.b:ptr 'x' Info/2"},
        {"Test(a = 1 AND b)", plain, "a 1 = b AND Test/1"}, // a condition argument
        {"Upper(a = 1)", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 8)},
        {"Upper(a = 1)", condition, "a 1 = Upper/1"},
        {"Exit()", plain, "Exit/0"}, // the host's row hides the built-in one
        {"Nope(1)", plain, error(QV_MSG_FUNCTION_NOT_FOUND, 0)},
        {"x + nope.fn(1)", plain, error(QV_MSG_FUNCTION_NOT_FOUND, 4)},
        {"G()", plain, error(QV_MSG_TOO_FEW_ARGUMENTS, 0)},
        {"G(1,2,3)", plain, error(QV_MSG_TOO_MANY_ARGUMENTS, 0)},
        {"G(1", plain, error(QV_MSG_TEXT_ENDED_IN_LIST, 3)},
        {"G(1; 2)", plain, error(QV_MSG_ARGUMENT_LIST_BROKEN, 3)},
        {"G(1 2)", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 4)},
        {"G(1)(2)", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 4)},
        {"$v(1)", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 2)},
        {"F(-)", plain, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 3)},
        {"a, b", plain, error(QV_MSG_UNEXPECTED_CHARACTER, 1)},
    });
    // The built-in table is searched after the caller's: Exit without host tables.
    EXPRESSION_T *e = New_Expression_L("Exit(1)");
    ASSERT_EQ(Parse_Expression_L(e, plain, nullptr, 0), 1);
    auto *call = static_cast<EXP_ITEM_T *>(QV_LIST_DATA(e->items->previous));
    EXPECT_STREQ(call->function->name, "Exit");
    const ExpFunction *row = Get_BuiltInFns_L();
    while (row->name != nullptr && row != call->function) ++row;
    EXPECT_EQ(row, call->function) << "the record is the built-in table's own row";
    Free_Expression_L(e);
}

TEST_F(ExpressionTest, ParenthesesAndEndings) {
    check({
        {"((a))", plain, "a"},
        {"a)", plain, error(QV_MSG_UNBALANCED_PARENTHESIS, 1)},
        {"(a", plain, error(QV_MSG_TEXT_ENDED_IN_LIST, 2)},
        {"()", plain, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 1)},
        {"(a; b)", plain, error(QV_MSG_ARGUMENT_LIST_BROKEN, 2)},
        {"a (b)", plain, error(QV_MSG_FUNCTION_NOT_FOUND, 0)},
        {"1 (2)", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 2)},
        {"a b", plain, error(QV_MSG_OPERAND_OUT_OF_PLACE, 2)},
        {"a + * b", plain, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 4)},
        {"a +", plain, error(QV_MSG_OPERATOR_OUT_OF_PLACE, 3)},
        {"a; b", plain, error(QV_MSG_PARSE_ENDED_EARLY, 1)},
        {";", plain, error(QV_MSG_PARSE_ENDED_EARLY, 0)},
        {"x THEN y", script, error(QV_MSG_PARSE_ENDED_EARLY, 2)},
        {"x END", script, error(QV_MSG_PARSE_ENDED_EARLY, 2)},
        {"x TO 5", script, error(QV_MSG_PARSE_ENDED_EARLY, 2)},
        {"x TO 5", condition, error(QV_MSG_OPERAND_OUT_OF_PLACE, 2)}, // TO is a name here
        {"a + WHILE", script, error(QV_MSG_KEYWORD_IN_EXPRESSION, 4)},
        {"FOR", script, error(QV_MSG_KEYWORD_IN_EXPRESSION, 0)},
        {"$x := 1", script | EXP_MASK_ASSIGN, error(QV_MSG_KEYWORD_IN_EXPRESSION, 3)},
        {"a : b", script, error(QV_MSG_KEYWORD_IN_EXPRESSION, 2)},
        {"G(IF)", script, "\"IF\" G/1"}, // no script keywords inside arguments
    });
}

// Every message of the parser, from a text that produces it, with its text.
TEST_F(ExpressionTest, EveryMessageWithItsText) {
    const std::tuple<const char *, int32_t, uint32_t, const char *> cases[] = {
        {"Nope(1)", plain, QV_MSG_FUNCTION_NOT_FOUND, "There is no function named 'Nope'."},
        {"G(1; 2)", plain, QV_MSG_ARGUMENT_LIST_BROKEN,
         "')' was expected here, or ',' before the next item of a list."},
        {"G(1", plain, QV_MSG_TEXT_ENDED_IN_LIST,
         "The text ends before ')' closes the list or parenthesis."},
        {"G()", plain, QV_MSG_TOO_FEW_ARGUMENTS, "Too few arguments are given to G."},
        {"G(1,2,3)", plain, QV_MSG_TOO_MANY_ARGUMENTS, "Too many arguments are given to G."},
        {"a b", plain, QV_MSG_OPERAND_OUT_OF_PLACE,
         "An operator or the end of the expression was expected here, not another operand."},
        {"a * / b", plain, QV_MSG_OPERATOR_OUT_OF_PLACE,
         "An operand is missing here: a literal, name, variable, call or parenthesis was "
         "expected."},
        {"a + CASE", script, QV_MSG_KEYWORD_IN_EXPRESSION,
         "A statement keyword cannot stand inside an expression."},
        {"a ~ b", plain, QV_MSG_UNEXPECTED_CHARACTER,
         "The character here cannot be read as part of an expression."},
        {"a)", plain, QV_MSG_UNBALANCED_PARENTHESIS, "')' has no matching '('."},
        {"-'a'", plain, QV_MSG_NEGATED_NON_NUMBER,
         "Only a number can be negated: a minus sign cannot stand before this literal."},
        {"x IN (a + 1)", condition, QV_MSG_ARGUMENT_LIST_BROKEN,
         "')' was expected here, or ',' before the next item of a list."},
        {"x IN ((a))", condition, QV_MSG_SIMPLE_OPERAND_EXPECTED,
         "A literal, a name or a variable was expected here; an IN list and the bounds of "
         "BETWEEN hold nothing else."},
        {"x BETWEEN 1, 2", condition | EXP_MASK_COMMA, QV_MSG_KEYWORD_EXPECTED,
         "The keyword AND was expected here."},
        {"x NOT 1", condition, QV_MSG_KEYWORD_EXPECTED,
         "The keyword IN, LIKE or BETWEEN was expected here."},
        {"x IN 1", condition, QV_MSG_IN_LIST_EXPECTED,
         "'(' was expected after IN, to open its list."},
        {"{$abc", plain, QV_MSG_BRACE_NOT_CLOSED,
         "The braced variable name is not closed: '}' was expected."},
        {"'abc", plain, QV_MSG_QUOTE_NOT_CLOSED,
         "The quoted text is not closed: a closing ' was expected."},
        {"\"abc", plain, QV_MSG_QUOTE_NOT_CLOSED,
         "The quoted text is not closed: a closing \" was expected."},
        {"a; b", plain, QV_MSG_PARSE_ENDED_EARLY,
         "The expression ends at position 1 although the text goes on: a>>>; b"},
    };
    for (const auto &[text, mask, number, message] : cases) {
        EXPRESSION_T *e = New_Expression_L(text);
        EXPECT_EQ(raised_by([&] { Parse_Expression_L(e, mask, host_tables, 1); }), GENERAL_ERROR);
        EXPECT_EQ(GetExpressionError_L(nullptr), number) << text;
        EXPECT_STREQ(Msgbuf8, message) << text;
        Free_Expression_L(e);
    }
}

// Failures are logged with the reason and the text marked where it failed, and raised as
// GENERAL_ERROR from module "express".
TEST_F(ExpressionTest, FailuresAreLoggedWithTheMarkedText) {
    EXPRESSION_T *e = New_Expression_L("  a + * b  ");
    EXPECT_EQ(raised_by([&] { EXPECT_EQ(Parse_Expression_L(e, plain, nullptr, 0), 0); }),
              GENERAL_ERROR);
    EXPECT_THAT(Exc_Message_L(), ::testing::StartsWith("GENERAL_ERROR was raised in express"));
    EXPECT_STREQ(e->text, "a + * b"); // trimmed in place
    EXPECT_EQ(e->items->count, 0);
    EXPECT_EQ(texts_of(context),
              std::vector<std::string>{"The expression cannot be parsed at position 4: An operand "
                                       "is missing here: a literal, name, variable, call or "
                                       "parenthesis was expected. Where: a + >>>* b"});
    // Suppressed errors are not logged, but still raised.
    ClearMessageContext_L();
    InitMessages_L(&context);
    SetErrorSuppression_L(1);
    EXPECT_EQ(raised_by([&] { Parse_Expression_L(e, plain, nullptr, 0); }), GENERAL_ERROR);
    EXPECT_TRUE(texts_of(context).empty());
    Free_Expression_L(e);
    // A number that does not convert: the conversion's reason.
    EXPECT_EQ(outcome("1 + 1e999"), error(0, 4));
    EXPECT_STREQ(Msgbuf8, "precision of value is too high to be stored");
}

TEST_F(ExpressionTest, NestingIsBoundedByTheRecursionLimit) {
    auto nested = [](int depth) { return std::string(depth, '(') + "a" + std::string(depth, ')'); };
    ScopedEnvironment limit("QV_MAX_RECURSION", "5");
    EXPECT_EQ(outcome(nested(5)), "a");
    EXPECT_EQ(outcome(nested(6)), error(QV_MSG_RECURSION_LIMIT, 6));
    EXPECT_EQ(outcome("F(F(F(F(F(1)))))"), "1 F/1 F/1 F/1 F/1 F/1");
    EXPECT_EQ(outcome("F(F(F(F(F(F(1))))))"), error(QV_MSG_RECURSION_LIMIT, 12));
    EXPECT_EQ(qv::express::recursion_limit, 5);
    limit.set(nullptr);
    EXPECT_EQ(outcome(nested(100)), "a");
    EXPECT_EQ(qv::express::recursion_limit, 100);
    EXPECT_EQ(outcome(nested(10000)), error(QV_MSG_RECURSION_LIMIT, 101));
    EXPECT_STREQ(Msgbuf8,
                 "The nesting goes deeper than the recursion limit (QV_MAX_RECURSION) allows.");
    limit.set("100000"); // the parser's own ceiling still holds
    EXPECT_EQ(outcome(nested(EXP_MAX_NESTING)), "a");
    EXPECT_EQ(outcome(nested(10000)), error(QV_MSG_RECURSION_LIMIT, EXP_MAX_NESTING + 1));
}

// Simple_Parse_Expression_L: the same checks, the items in text order.
TEST_F(ExpressionTest, SimpleParseKeepsTextOrder) {
    const std::pair<const char *, const char *> cases[] = {
        {"(x + y) * 2.5 - z / 3", "x + y * 2.5f - z / 3"},
        {"If(x > 50, Upper(name), 'none')", "If/3 x > 50 Upper/1 name 'none'"},
        {"x NOT IN (1, -2)", "x NOT IN/2 1 -2"},
        {"x BETWEEN 1 AND 2", "x BETWEEN/2 1 2"},
        {"NOT -(a) IS NOT NULL", "NOT neg a IS NOT NULL"},
        {"F(,-G(1))", "F/2 NULL -G/1 1"},
        {"Info(col, 'x')", "Info/2 col:ptr 'x'"},
    };
    for (const auto &[text, expected] : cases) EXPECT_EQ(outcome(text, condition, true), expected);
    EXPECT_EQ(outcome("x IN (1+1)", condition, true), error(QV_MSG_ARGUMENT_LIST_BROKEN, 7));
    EXPECT_EQ(outcome("a; b", condition, true), error(QV_MSG_PARSE_ENDED_EARLY, 1));
    EXPECT_EQ(outcome("", condition, true), "nothing");
}

TEST(ExpressionTables, TokenTableAsLaidOut) {
    const std::tuple<const char *, int32_t, int32_t, int32_t, int32_t> rows[] = {
        {"NULL", 5, 1, 0, 1},     {"TRUE", 5, 1, 0, 1},     {"FALSE", 5, 1, 0, 1},
        {"(", 2, 1, 0, 0},        {")", 3, 1, 0, 0},        {",", 4, 8, 0, 0},
        {";", 20, 1, 0, 0},       {"&", 6, 1, 2, 0},        {"+", 6, 1, 3, 0},
        {"-", 6, 1, 4, 0},        {"*", 6, 1, 5, 0},        {"/", 6, 1, 6, 0},
        {"=", 6, 4, 7, 0},        {"!=", 6, 4, 8, 0},       {">=", 6, 4, 12, 0},
        {">", 6, 4, 10, 0},       {"<>", 6, 4, 8, 0},       {"<=", 6, 4, 11, 0},
        {"<", 6, 4, 9, 0},        {"IS", 6, 4, 14, 1},      {"IN", 6, 4, 15, 1},
        {"BETWEEN", 6, 4, 16, 1}, {"LIKE", 6, 4, 13, 1},    {"NOT", 6, 4, 21, 1},
        {"AND", 6, 4, 22, 1},     {"OR", 6, 4, 23, 1},      {"IF", 9, 2, 0, 1},
        {"THEN", 10, 2, 0, 1},    {"ELSE", 11, 2, 0, 1},    {"CASE", 12, 2, 0, 1},
        {"OF", 13, 2, 0, 1},      {"DEFAULT", 14, 2, 0, 1}, {"WHILE", 15, 2, 0, 1},
        {"DO", 16, 2, 0, 1},      {"RETURN", 25, 2, 0, 1},  {"BEGIN", 21, 2, 0, 1},
        {"END", 22, 2, 0, 1},     {":=", 23, 34, 0, 0},     {":", 24, 2, 0, 0},
    };
    const EXP_TOKEN_T *table = Get_Tokens_L();
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto &[text, kind, mask, code, word] = rows[i];
        EXPECT_STREQ(table[i].text, text) << i;
        EXPECT_EQ(std::tie(table[i].kind, table[i].mask, table[i].operator_code, table[i].word),
                  std::tie(kind, mask, code, word))
            << text;
    }
    EXPECT_EQ(table[std::size(rows)].text, nullptr);
}

TEST(ExpressionTables, OperatorTable) {
    const std::tuple<int32_t, int32_t, int32_t, int32_t> rows[] = {
        {1, 1, 7, 1},  {5, 1, 6, 2},  {6, 1, 6, 2},  {2, 4, 6, 2},  {3, 1, 5, 2},  {4, 1, 5, 2},
        {7, 2, 4, 2},  {8, 2, 4, 2},  {12, 2, 4, 2}, {10, 2, 4, 2}, {11, 2, 4, 2}, {9, 2, 4, 2},
        {14, 2, 4, 2}, {18, 2, 4, 2}, {15, 2, 4, 2}, {19, 2, 4, 2}, {13, 2, 4, 2}, {17, 2, 4, 2},
        {16, 2, 4, 3}, {20, 2, 4, 3}, {21, 3, 3, 1}, {22, 3, 2, 2}, {23, 3, 1, 2},
    };
    for (const auto &[code, op_class, precedence, operands] : rows) {
        const OPERATOR_T *row = Get_Operator_L(code);
        ASSERT_NE(row, nullptr) << code;
        EXPECT_EQ(std::tie(row->code, row->op_class, row->precedence, row->operands),
                  std::tie(code, op_class, precedence, operands));
    }
    for (int32_t absent : {0, 24, -1, 1000}) EXPECT_EQ(Get_Operator_L(absent), nullptr);
}

// The tokens a script's statement parser reads, under the script mask.
TEST(ExpressionTokens, ScriptContext) {
    auto kinds = [](const char *text, int32_t mask) {
        qv::express::Parser parser(text, nullptr, 0, 100);
        qv::express::Token token;
        std::vector<int32_t> out;
        while (parser.next_token(mask, token) > EXP_TOKEN_END) out.push_back(token.kind);
        out.push_back(token.kind);
        return out;
    };
    const int32_t statements = EXP_MASK_EXPRESSION | EXP_MASK_SCRIPT | EXP_MASK_ASSIGN;
    EXPECT_EQ(kinds("$x:=1", statements), (std::vector<int32_t>{8, 23, 5, 1}));
    EXPECT_EQ(kinds("$x:=1", EXP_MASK_EXPRESSION), (std::vector<int32_t>{8, 0}));
    EXPECT_EQ(kinds("FOR $i := 1 TO 9 DOWNTO DO", statements),
              (std::vector<int32_t>{17, 8, 23, 5, 18, 5, 19, 16, 1}));
    EXPECT_EQ(kinds("FOR TO", EXP_MASK_EXPRESSION), (std::vector<int32_t>{7, 7, 1}));
    EXPECT_EQ(
        kinds("IF x THEN y ELSE z; CASE OF DEFAULT: WHILE DO BEGIN RETURN END", statements),
        (std::vector<int32_t>{9, 7, 10, 7, 11, 7, 20, 12, 13, 14, 24, 15, 16, 21, 25, 22, 1}));
    EXPECT_EQ(kinds("IFFY ENDING", statements), (std::vector<int32_t>{7, 7, 1}));
}

TEST_F(ExpressionTest, RecordsAndExplain) {
    EXPRESSION_T *empty = New_Expression_L(nullptr);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->text, nullptr);
    EXPECT_EQ(Parse_Expression_L(empty, plain, nullptr, 0), 0);
    EXPECT_STREQ(qvtest::take(ExplainExpression_L(empty)).c_str(), "");
    Free_Expression_L(empty);
    Free_Expression_L(nullptr);
    Cleanup_Expression_L(nullptr);
    EXPECT_EQ(Parse_Expression_L(nullptr, plain, nullptr, 0), 0);
    EXPECT_EQ(ExplainExpression_L(nullptr), nullptr);

    EXPRESSION_T *e = New_Expression_L("If(-x >= 2.5, Info(col, 'It''s'), $v IN (1, 2))");
    ASSERT_EQ(Parse_Expression_L(e, plain, host_tables, 1), 1);
    EXPECT_EQ(e->item_count, 11);
    EXPECT_EQ(take(ExplainExpression_L(e)), "     4  name      -x\n"
                                            "     9  literal   2.5  FLOAT\n"
                                            "     6  operator  >=\n"
                                            "    19  name      col  POINTER\n"
                                            "    24  literal   'It''s'  CHAR(4)\n"
                                            "    14  call      Info  2 arguments\n"
                                            "    34  variable  $v\n"
                                            "    41  literal   1  INTEGER\n"
                                            "    44  literal   2  INTEGER\n"
                                            "    37  operator  IN  2 elements\n"
                                            "     0  call      If  3 arguments\n");
    // Parsing again replaces the items; a frame the evaluator left is released.
    auto *call = static_cast<EXP_ITEM_T *>(QV_LIST_DATA(e->items->previous));
    call->frame = static_cast<EXP_CALL_FRAME_T *>(std::calloc(1, sizeof(EXP_CALL_FRAME_T)));
    call->frame->arguments = static_cast<QV_VALUE_T **>(std::calloc(3, sizeof(QV_VALUE_T *)));
    call->frame->argument_slots = static_cast<QV_VALUE_T *>(std::calloc(3, sizeof(QV_VALUE_T)));
    SetTextValue_L(&call->frame->argument_slots[2], "kept", nullptr);
    Cleanup_Expression_L(e);
    EXPECT_EQ(call->frame, nullptr);
    EXPECT_EQ(call->argument_count, 3);
    call->frame = static_cast<EXP_CALL_FRAME_T *>(std::calloc(1, sizeof(EXP_CALL_FRAME_T)));
    ASSERT_EQ(Parse_Expression_L(e, plain, host_tables, 1), 1); // frees the frame with the items
    EXPECT_EQ(e->item_count, 11);
    Free_Expression_L(e); // the sanitizer build sees anything left behind
}

} // namespace
