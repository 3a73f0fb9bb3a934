// express_script_statements_test.cpp - every statement form run to its result (loops both
// ways with empty ranges, nested blocks, CASE with and without DEFAULT, RETURN from inside
// loops), every message of the statement parser with its position, and the records' entry
// points with null and empty input.
#include "express_script_support.hpp"

namespace qvtest {
namespace {

using Statements = ScriptTest;

struct Ran {
    const char *text;
    const char *result;
};

void expect_results(std::initializer_list<Ran> rows) {
    for (const Ran &row : rows) EXPECT_EQ(Script(row.text).run(), row.result) << row.text;
}

TEST_F(Statements, AssignmentsCallsBlocksAndReturn) {
    expect_results({
        {"RETURN 1", "1"},
        {"$x := 2; $y := $x * 3; RETURN $y + $x", "8"},
        {"$x := 'a'; $x := 7; RETURN $x + 1", "8"}, // its own variables take any value
        {"RETURN", "<null>"},
        {"", "<null>"},
        {"// nothing but a comment\n ; ;", "<null>"},
        {"$x := 1", "<null>"},
        {"$RUN_SCRIPT_RETURN := 5; $x := 1", "5"}, // the result is set and the run goes on
        {"$RUN_SCRIPT_RETURN := 5; RETURN", "5"},
        {"RETURN 4; RETURN 5", "4"},
        {"BEGIN BEGIN $a := 1 END; BEGIN END; $a := $a + 1 END; RETURN $a", "2"},
        {"BEGIN; $a := 3; END; RETURN $a", "3"},
        {"Upper('unused'); RETURN 'called'", "called"},
        {"$a := NULL; ArrayAddItem($a, 1); ArrayAddItem($a, 2); RETURN ArraySize($a)", "2"},
        {"$a := 5; ArrayAddItem($a, 6); RETURN ArrayItem($a, 1) + ArrayItem($a, 2)", "11"},
        {"$a := 3 & 1 & 2; ArraySort($a); RETURN ArrayItem($a, 1)", "1"},
        {"$b := 2 > 1; RETURN $b", "TRUE"},
    });
}

TEST_F(Statements, Conditions) {
    expect_results({
        {"IF 1 < 2 THEN RETURN 'yes' ELSE RETURN 'no'", "yes"},
        {"IF 1 > 2 THEN RETURN 'yes' ELSE RETURN 'no'", "no"},
        {"IF NULL THEN RETURN 1 ELSE RETURN 2", "2"}, // NULL does not hold
        {"IF 1 THEN RETURN 1 ELSE RETURN 2", "1"},    // read as a truth value
        {"IF FALSE THEN RETURN 1; RETURN 3", "3"},
        {"IF TRUE THEN $a := 1; ELSE $a := 2; RETURN $a", "1"}, // ";" before ELSE
        {"IF FALSE THEN $a := 1; ELSE $a := 2; RETURN $a", "2"},
        // ELSE goes with the nearest IF.
        {"IF FALSE THEN IF TRUE THEN RETURN 1 ELSE RETURN 2; RETURN 3", "3"},
        {"IF TRUE THEN IF FALSE THEN RETURN 1 ELSE RETURN 2", "2"},
        {"IF TRUE THEN BEGIN IF FALSE THEN RETURN 1 END ELSE RETURN 2; RETURN 3", "3"},
    });
}

TEST_F(Statements, Case) {
    expect_results({
        {"$c := 2; CASE $c OF 1: RETURN 'one'; 2, 3: RETURN 'two or three'; DEFAULT: "
         "RETURN 'other' END",
         "two or three"},
        {"CASE 9 OF 1: RETURN 'one'; DEFAULT: RETURN 'other' END", "other"},
        {"$r := 'none'; CASE 9 OF 1: $r := 'one' END; RETURN $r", "none"}, // no DEFAULT
        {"CASE 'b' BEGIN 'a': RETURN 1; 'b': RETURN 2 END", "2"},
        {"CASE -1 OF 1: RETURN 'plus'; -1: RETURN 'minus' END", "minus"},
        {"CASE 2.0 OF 1: RETURN 1; 2: RETURN 2 END", "2"}, // as "=" compares
        {"CASE '2' OF 2: RETURN 'as text' END", "as text"},
        {"CASE NULL OF NULL: RETURN 1; DEFAULT: RETURN 2 END", "2"},
        {"CASE 1 OF 1: BEGIN $a := 5; $a := $a + 1 END; 2: $a := 0 END; RETURN $a", "6"},
        {"CASE 1 OF 1: $a := 1; 1: $a := 2; END; RETURN $a", "1"}, // the first that matches
        {"CASE 3 OF 1: $a := 1; DEFAULT: $a := 0; END; RETURN $a", "0"},
        {"CASE 1 OF END; RETURN 'empty'", "empty"},
    });
}

TEST_F(Statements, Loops) {
    expect_results({
        {"$i := 0; WHILE $i < 5 DO $i := $i + 1; RETURN $i", "5"},
        {"$i := 10; WHILE $i < 5 DO $i := $i + 1; RETURN $i", "10"},
        {"$s := 0; FOR $i := 1 TO 10 DO $s := $s + $i; RETURN $s", "55"},
        {"$s := ''; FOR $i := 3 DOWNTO 1 DO $s := Concat($s, $i); RETURN $s", "321"},
        {"$s := 0; FOR $i := 5 TO 1 DO $s := 1; RETURN $s", "0"},     // empty
        {"$s := 0; FOR $i := 1 DOWNTO 5 DO $s := 1; RETURN $s", "0"}, // empty
        {"$s := 0; FOR $i := 4 TO 4 DO $s := $s + $i; RETURN $s", "4"},
        {"FOR $i := 1 TO 3 DO $x := 1; RETURN $i", "3"},          // the last count
        {"$i := 7; FOR $i := 5 TO 1 DO $x := 1; RETURN $i", "7"}, // untouched
        {"$n := 0; FOR $i := NULL TO 3 DO $n := $n + 1; RETURN $n", "0"},
        {"$n := 0; FOR $i := 1.6 TO '3' DO $n := $n + 1; RETURN $n", "3"}, // 1 to 3
        {"FOR $i := 9223372036854775806 TO 9223372036854775807 DO $n := $i; RETURN $n",
         "9223372036854775807"},
        {"FOR $i := -9223372036854775807 - 1 DOWNTO -9223372036854775807 - 1 DO $n := $i; "
         "RETURN $n",
         "-9223372036854775808"},
        {"$n := 0; FOR $i := 1 TO 3 DO FOR $j := $i TO 3 DO $n := $n + 1; RETURN $n", "6"},
        {"$b := 3; $n := 0; FOR $i := 1 TO $b DO BEGIN $b := 10; $n := $n + 1 END; RETURN $n",
         "3"}, // the bounds are read once
        {"$n := 0; FOR $i := 1 TO 4 DO BEGIN END; RETURN $i", "4"},
    });
}

TEST_F(Statements, ReturnFromInsideLoops) {
    expect_results({
        {"FOR $i := 1 TO 100 DO IF $i * $i > 50 THEN RETURN $i", "8"},
        {"FOR $i := 100 DOWNTO 1 DO IF $i * $i < 50 THEN RETURN $i", "7"},
        {"$i := 0; WHILE TRUE DO BEGIN $i := $i + 1; IF $i = 4 THEN RETURN $i END", "4"},
        {"FOR $i := 1 TO 3 DO FOR $j := 1 TO 3 DO IF $i * $j = 6 THEN RETURN $i & $j", "(2, 3)"},
        {"CASE 1 OF 1: WHILE TRUE DO RETURN 'out' END", "out"},
    });
}

// The script's own variables keep their values from one run to the next; RUN_SCRIPT_RETURN
// starts every run NULL.
TEST_F(Statements, OwnVariablesPersistBetweenRuns) {
    Script script("$n := IfNull($n, 0) + 1; IF $n = 1 THEN RETURN 'first'");
    EXPECT_EQ(script.run(), "first");
    EXPECT_EQ(script.run(), "<null>");
    VARIABLE_T *n = FindVariableOnArray_L(script->variables, "n");
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(text_of(&n->value), "2");
    EXPECT_STREQ(script->variables->name, "test");
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1) << "popped after the run";
}

// Globals and a host's typed variables are assigned through the scope stack, converted
// into their declared type.
TEST_F(Statements, VariablesFoundElsewhereKeepTheirTypes) {
    VARIABLE_T *total =
        CreateVariable_L(GetGlobalVariables_L(), "total", QV_TYPE_NUMBER, 10, 2, nullptr);
    Script script("$total := 7; $total := $total / 3; RETURN $total");
    EXPECT_EQ(script.run(), "2.33");
    EXPECT_EQ(total->value.descriptor.type, QV_TYPE_NUMBER);
    EXPECT_EQ(total->changed, 1);
    EXPECT_EQ(FindVariableOnArray_L(script->variables, "total"), nullptr);
}

TEST_F(Statements, DeclaredResultType) {
    Script script("RETURN 10 / 4");
    const QV_DATATYPE_T type{QV_TYPE_CHAR, 3, 0, 0};
    SetExpressionResultType_L(script.get(), &type);
    EXPECT_EQ(script.run(), "2.5");
    EXPECT_EQ(script->result.descriptor.type, QV_TYPE_CHAR);
}

// Names bound by the host, as in expressions.
TEST_F(Statements, BoundNames) {
    Value price, qty;
    SetIntegerValue_L(price.get(), 4);
    SetIntegerValue_L(qty.get(), 5);
    Script script("IF qty > 3 THEN RETURN price * qty * 0.5; RETURN price * qty");
    ASSERT_EQ(Parse_Script_L(script.get(), nullptr, 0), 1);
    const EXP_BINDING_T names[] = {{"price", price.get()}, {"qty", qty.get()}};
    EXPECT_EQ(BindScript_L(script.get(), names, 2), 0);
    EXPECT_EQ(script.run(), "10");
    SetIntegerValue_L(qty.get(), 2);
    EXPECT_EQ(script.run(), "8");
    EXPECT_EQ(BindScript_L(script.get(), nullptr, 1), -1);
    EXPECT_EQ(BindScript_L(nullptr, names, 2), -1);
}

TEST_F(Statements, ParseFailures) {
    const Failed rows[] = {
        {"$x 1", QV_MSG_ASSIGNMENT_EXPECTED, 3},
        {"x 1", QV_MSG_ASSIGNMENT_EXPECTED, 2},
        {"x := 1", QV_MSG_NOT_ASSIGNABLE, 0},
        {"$x(1)", QV_MSG_VARIABLE_AS_PROCEDURE, 0},
        {"Upper('a') Lower('b')", QV_MSG_STATEMENT_NOT_ENDED, 11},
        {"$x := 1 THEN", QV_MSG_STATEMENT_NOT_ENDED, 8},
        {"$x := 1 ELSE $x := 2", QV_MSG_STATEMENT_NOT_ENDED, 8},
        {"BEGIN END $x := 1", QV_MSG_STATEMENT_NOT_ENDED, 10},
        {"$x := 1 END", QV_MSG_PARSE_ENDED_EARLY, 8},
        {"THEN", QV_MSG_STATEMENT_EXPECTED, 0},
        {"5;", QV_MSG_STATEMENT_EXPECTED, 0},
        {"(1)", QV_MSG_STATEMENT_EXPECTED, 0},
        {"$x := 1; ELSE $x := 2", QV_MSG_STATEMENT_EXPECTED, 9},
        {"IF TRUE THEN ELSE $x := 1", QV_MSG_STATEMENT_EXPECTED, 13},
        {"IF TRUE THEN;", QV_MSG_STATEMENT_EXPECTED, 12},
        {"WHILE TRUE DO", QV_MSG_STATEMENT_EXPECTED, 13},
        {"IF 1 > 0; $x := 1", QV_MSG_KEYWORD_EXPECTED, 8},
        {"IF 1 > 0 RETURN 1", QV_MSG_KEYWORD_IN_EXPRESSION, 9},
        {"IF THEN $x := 1", QV_MSG_OPERATOR_OUT_OF_PLACE, 3},
        {"WHILE TRUE; $x := 1", QV_MSG_KEYWORD_EXPECTED, 10},
        {"CASE 1; 1: RETURN 1 END", QV_MSG_KEYWORD_EXPECTED, 6},
        {"CASE OF 1: RETURN 1 END", QV_MSG_OPERATOR_OUT_OF_PLACE, 5},
        {"CASE 1 OF $x: RETURN 1 END", QV_MSG_CASE_BRANCH_EXPECTED, 10},
        {"CASE 1 OF 1, : RETURN 1 END", QV_MSG_CASE_BRANCH_EXPECTED, 13},
        {"CASE 1 OF 1 RETURN 1 END", QV_MSG_CASE_COLON_EXPECTED, 12},
        {"CASE 1 OF DEFAULT RETURN 1 END", QV_MSG_CASE_COLON_EXPECTED, 18},
        {"CASE 1 OF DEFAULT: RETURN 1; DEFAULT: RETURN 2 END", QV_MSG_CASE_DEFAULT_REPEATED, 29},
        {"CASE 1 OF DEFAULT: RETURN 1; 2: RETURN 2 END", QV_MSG_CASE_DEFAULT_REPEATED, 29},
        {"CASE 1 OF 1: RETURN 1", QV_MSG_END_EXPECTED, 21},
        {"CASE 1 OF 1: $x := 1 ELSE END", QV_MSG_STATEMENT_NOT_ENDED, 21},
        {"CASE 1 OF -'a': RETURN 1 END", QV_MSG_NEGATED_NON_NUMBER, 10},
        {"BEGIN $x := 1", QV_MSG_END_EXPECTED, 13},
        {"BEGIN $x := 1; BEGIN END", QV_MSG_END_EXPECTED, 24},
        {"FOR i := 1 TO 2 DO $x := 1", QV_MSG_LOOP_VARIABLE_EXPECTED, 4},
        {"FOR $i = 1 TO 2 DO $x := 1", QV_MSG_LOOP_MALFORMED, 7},
        {"FOR $i := 1; $x := 1", QV_MSG_KEYWORD_EXPECTED, 11},
        {"FOR $i := TO 2 DO $x := 1", QV_MSG_LOOP_MALFORMED, 10},
        {"FOR $i := 1 TO 2; $x := 1", QV_MSG_LOOP_MALFORMED, 16},
        {"FOR $i := 1 TO DO $x := 1", QV_MSG_LOOP_MALFORMED, 15},
        {"FOR $i := 1 TO 2 DO $i := 5", QV_MSG_LOOP_VARIABLE_ASSIGNED, 20},
        {"FOR $i := 1 TO 2 DO FOR $I := 1 TO 2 DO $x := 1", QV_MSG_LOOP_VARIABLE_ASSIGNED, 24},
        {"FOR $i := 1 TO 2 DO BEGIN $x := 1; IF TRUE THEN $i := 2 END",
         QV_MSG_LOOP_VARIABLE_ASSIGNED, 48},
        {"$x :=", QV_MSG_OPERATOR_OUT_OF_PLACE, 5},
        {"RETURN 1 2", QV_MSG_OPERAND_OUT_OF_PLACE, 9},
        {"NoSuch(1)", QV_MSG_FUNCTION_NOT_FOUND, 0},
        {"Upper", QV_MSG_ASSIGNMENT_EXPECTED, 5},
        {"$x := 'open", QV_MSG_QUOTE_NOT_CLOSED, 6},
        {"$x := 1)", QV_MSG_UNBALANCED_PARENTHESIS, 7},
    };
    for (const Failed &row : rows)
        EXPECT_EQ(failure_of(row.text), (Failure{row.number, row.position})) << row.text;
    // After a loop the variable may be assigned again.
    EXPECT_EQ(failure_of("FOR $i := 1 TO 2 DO $x := 1; $i := 0"), Failure{});
}

// A parse failure logs the reason, the position and the text marked there; nothing is kept.
TEST_F(Statements, ParseFailureMessage) {
    Script script("$a := 1;\nCASE $a OF 1 $b := 2 END");
    expect_raise(GENERAL_ERROR, "express", [&] { Parse_Script_L(script.get(), nullptr, 0); });
    EXPECT_THAT(messages(), ::testing::ElementsAre(
                                "The expression cannot be parsed at position 22: ':' was "
                                "expected after the values of a CASE branch (separated by ',') "
                                "or after DEFAULT. Where: $a := 1;\nCASE $a OF 1 >>>$b := 2 END"));
    EXPECT_EQ(qv::express::state_of(script.get())->program, nullptr);
    EXPECT_EQ(Run_Script_L(script.get(), nullptr), QV_SCRIPT_FAILED) << "parses again, fails";
}

TEST_F(Statements, ReadOnlyVariables) {
    VARIABLE_T *fixed = SetVariable_L("fixed", "1", 0);
    fixed->read_only = 1;
    Script script("$y := 1;\n$fixed := 2");
    ASSERT_EQ(Parse_Script_L(script.get(), nullptr, 0), 1);
    expect_raise(GENERAL_ERROR, "express", [&] { Validate_Script_L(script.get()); });
    EXPECT_THAT(messages(),
                ::testing::ElementsAre("The variable $fixed at position 9 is read-only and "
                                       "cannot be assigned. Where: $y := 1;\n>>>$fixed := 2",
                                       "The expression or script is not valid."));
    EXPECT_EQ(text_of(&fixed->value), "1");
    // Made read-only after validation: the assignment fails when it runs.
    Script later("$late := 1; FOR $i := 1 TO 2 DO $late := $i");
    ASSERT_EQ(Validate_Script_L(later.get()), 1);
    FindVariableOnArray_L(later->variables, "late")->read_only = 1;
    EXPECT_EQ(later.run(), "failed");
}

TEST_F(Statements, NullAndEmptyRecords) {
    EXPECT_EQ(Parse_Script_L(nullptr, nullptr, 0), 0);
    EXPECT_EQ(Validate_Script_L(nullptr), 0);
    EXPECT_EQ(Run_Script_L(nullptr, nullptr), QV_SCRIPT_FAILED);
    Cleanup_Script_L(nullptr);
    Free_Script_L(nullptr);
    Script empty(nullptr, nullptr, nullptr);
    EXPECT_EQ(Parse_Script_L(empty.get(), nullptr, 0), 0);
    int32_t code = 7;
    EXPECT_EQ(Run_Script_L(empty.get(), &code), QV_SCRIPT_COMPLETED);
    EXPECT_EQ(code, 0);
    // A record made as an expression runs as a script; Free_Expression_L frees it whole.
    EXPRESSION_T *plain = New_Expression_L("$v := 3; RETURN $v");
    EXPECT_EQ(Run_Script_L(plain, nullptr), QV_SCRIPT_RETURNED);
    EXPECT_EQ(text_of(&plain->result), "3");
    Free_Expression_L(plain);
}

// Cleanup releases what validation prepared; the next run prepares it again.
TEST_F(Statements, CleanupThenRunAgain) {
    Script script("$s := 0; FOR $i := 1 TO 3 DO $s := $s + Abs(-$i); RETURN $s");
    EXPECT_EQ(script.run(), "6");
    Cleanup_Script_L(script.get());
    EXPECT_FALSE(qv::express::state_of(script.get())->validated);
    EXPECT_EQ(script.run(), "6");
}

} // namespace
} // namespace qvtest
