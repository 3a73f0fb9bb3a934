// express_script_functions_test.cpp - user-defined functions declared in the language: the
// records they fill, calls from scripts and expressions, recursion (factorial, Fibonacci, a
// mutual pair) with each activation's own parameters and locals, endless recursion ended by
// the limit or the stack guard, declarations that fail and what they leave behind.
#include <pthread.h>

#include "express_script_support.hpp"

namespace qvtest {
namespace {

class Functions : public ScriptTest {
  protected:
    // The functions declared, or -1 when the declaration raised.
    int32_t declare(const char *text, const ExpFunction *const *tables = nullptr,
                    int32_t count = 0) {
        int32_t declared = 0;
        raised_ = raised_by([&] { declared = Declare_Functions_L(text, tables, count); });
        return raised_ != nullptr ? -1 : declared;
    }
    // Solves an expression that calls user-defined functions.
    std::string solve(const char *text) {
        int32_t count = 0;
        const ExpFunction *const tables[] = {Get_FunctionArray(&count)};
        EXPRESSION_T *e = New_Expression_L(text);
        std::string out = "failed";
        raised_by([&] {
            if (Parse_Expression_L(e, EXP_MASK_EXPRESSION | EXP_MASK_CONDITION, tables, 1) == 1 &&
                Solve_Expression_L(e) == 0)
                out = text_of(&e->result);
        });
        Free_Expression_L(e);
        return out;
    }
    const char *raised_ = nullptr;
};

constexpr const char *kMathematics = R"(
FUNCTION Fact($n INTEGER) RETURNS INTEGER
BEGIN
    IF $n <= 1 THEN RETURN 1;
    RETURN $n * Fact($n - 1)
END;
FUNCTION Fib($n INTEGER) RETURNS INTEGER
BEGIN
    IF $n < 2 THEN RETURN $n;
    RETURN Fib($n - 1) + Fib($n - 2);
END
// a mutual pair, declared before the function it calls is
FUNCTION IsEven($n INTEGER) RETURNS BOOLEAN BEGIN IF $n = 0 THEN RETURN TRUE; RETURN IsOdd($n - 1) END
FUNCTION IsOdd($n INTEGER) RETURNS BOOLEAN BEGIN IF $n = 0 THEN RETURN FALSE; RETURN IsEven($n - 1) END
FUNCTION SumTo($n INTEGER) RETURNS INTEGER
BEGIN
    $s := 0;
    FOR $i := 1 TO $n DO $s := $s + $i;
    IF $n > 1 THEN $s := $s + SumTo($n - 1) - SumTo($n - 1);   // locals survive the calls
    RETURN $s
END
)";

TEST_F(Functions, RecursionGivesTheRightResults) {
    ASSERT_EQ(declare(kMathematics), 5) << messages().front();
    const std::pair<const char *, const char *> rows[] = {
        {"RETURN Fact(0)", "1"},
        {"RETURN Fact(5)", "120"},
        {"RETURN Fact(20)", "2432902008176640000"},
        {"RETURN Fib(1)", "1"},
        {"RETURN Fib(20)", "6765"},
        {"RETURN IsEven(10)", "TRUE"},
        {"RETURN IsOdd(7)", "TRUE"},
        {"RETURN IsEven(7)", "FALSE"},
        {"RETURN SumTo(10)", "55"},
        {"$t := 0; FOR $k := 1 TO 6 DO $t := $t + Fib($k); RETURN $t", "20"},
    };
    for (const auto &[text, result] : rows) EXPECT_EQ(Script(text).run(), result) << text;
    EXPECT_EQ(solve("Fact(4) + Fib(10)"), "79"); // from an expression too
    EXPECT_EQ(qv::express::run_nesting, 0);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
    EXPECT_EQ(Functions::Test::HasFailure(), false);
}

TEST_F(Functions, RecordsAreFilled) {
    ASSERT_EQ(declare("FUNCTION Scale($a NUMBER(10,2), $b CHAR, $c, $d DATE WITH TIME ZONE) "
                      "RETURNS NUMBER(12,2) BEGIN RETURN $a * 2 END;"
                      "FUNCTION Nothing() BEGIN END"),
              2);
    int32_t count = 0;
    EXP_USER_FUNCTION_T **functions = Get_UserFunctions(&count);
    ASSERT_EQ(count, 2);
    const EXP_USER_FUNCTION_T &scale = *functions[0];
    const ExpFunction &record = *scale.record;
    EXPECT_STREQ(record.name, "Scale");
    EXPECT_STREQ(record.usage, "Scale( $a NUMBER(10,2), $b CHAR, $c, $d DATE WITH TIME ZONE ) "
                               "RETURNS NUMBER(12,2)");
    EXPECT_EQ(record.category, QV_CATEGORY_USER);
    EXPECT_EQ(record.handler, nullptr);
    EXPECT_EQ(record.min_args, 4u);
    EXPECT_EQ(record.max_args, 4u);
    EXPECT_EQ(record.result_type, static_cast<uint32_t>(QV_TYPE_NUMBER));
    EXPECT_EQ(record.arg_types[0], static_cast<uint32_t>(QV_MASK_NUMBER));
    EXPECT_EQ(record.arg_types[1], static_cast<uint32_t>(QV_MASK_ANY_BUT_ARRAY));
    EXPECT_EQ(record.arg_types[2], static_cast<uint32_t>(QV_MASK_ANY));
    EXPECT_EQ(record.arg_types[3], static_cast<uint32_t>(QV_MASK_DATE | QV_TYPE_CHAR));
    EXPECT_EQ(record.arg_types[4], 0u);
    EXPECT_STREQ(scale.text2[0], "$a NUMBER(10,2), $b CHAR, $c, $d DATE WITH TIME ZONE");
    EXPECT_STREQ(scale.text2[1], "NUMBER(12,2)");
    EXPECT_THAT(scale.text1, ::testing::StartsWith("FUNCTION Scale("));
    EXPECT_THAT(scale.text1, ::testing::EndsWith("RETURN $a * 2 END"));
    ASSERT_EQ(scale.parameters->count, 4);
    EXPECT_STREQ(scale.parameters->variables[0]->name, "a");
    EXPECT_EQ(scale.parameter_values[0].descriptor.precision, 10);
    EXPECT_EQ(scale.parameter_values[2].descriptor.type, 0u);
    EXPECT_EQ(scale.extra_count, 0); // no host tables
    EXPECT_NE(scale.body, nullptr);
    EXPECT_EQ(Set_Function_Struct_L(nullptr)->validated, 1);
    EXPECT_STREQ(functions[1]->record->usage, "Nothing()");
    EXPECT_EQ(functions[1]->record->result_type, 0u);
    // Arguments are converted into their parameters' types, the result into its type.
    // 1.257 is rounded into NUMBER(10,2) first: 2.52, not 2.51.
    EXPECT_EQ(Script("RETURN Scale(1.257, 1, 2, '2020-01-01 00:00:00 +01:00')").run(), "2.52");
    EXPECT_EQ(Script("RETURN Nothing()").run(), "<null>");
}

TEST_F(Functions, ArgumentTypesAreChecked) {
    ASSERT_EQ(declare("FUNCTION Twice($n NUMBER(8,2)) RETURNS NUMBER(9,2) BEGIN RETURN $n * 2 END"),
              1);
    Script script("RETURN Twice('abc')");
    EXPECT_EQ(script.run(), "failed");
    EXPECT_THAT(messages(), ::testing::Contains("Argument 1 of Twice at position 7 is CHAR, but "
                                                "Twice takes INTEGER, FLOAT or NUMBER there."));
    EXPECT_EQ(Script("RETURN Twice(1, 2)").run(), "failed"); // too many
}

// Every activation has its own parameters and locals; locals start NULL in every call.
TEST_F(Functions, ActivationsKeepTheirOwnValues) {
    ASSERT_EQ(declare(R"(
        FUNCTION Depth($n INTEGER) RETURNS CHAR BEGIN
            $seen := IfNull($seen, 'fresh');
            IF $n = 0 THEN RETURN $seen;
            $inner := Depth($n - 1);
            RETURN Concat($n, ':', $seen, '/', $inner)
        END)"),
              1)
        << ::testing::PrintToString(messages());
    EXPECT_EQ(Script("RETURN Depth(2)").run(), "2:fresh/1:fresh/fresh");
    EXPECT_EQ(Script("RETURN Depth(1)").run(), "1:fresh/fresh");
}

TEST_F(Functions, EndlessRecursionStops) {
    ASSERT_EQ(declare("FUNCTION Down($n INTEGER) BEGIN RETURN Down($n - 1) END"), 1);
    EXPECT_EQ(Script("RETURN Down(1)").run(), "failed");
    EXPECT_THAT(messages(), ::testing::Contains("The nesting goes deeper than the recursion limit "
                                                "(QV_MAX_RECURSION) allows."));
    EXPECT_EQ(qv::express::run_nesting, 0);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
    EXPECT_EQ(qv::express::trace_depth, 0);
}

// With no recursion limit to speak of, a small stack ends the recursion first.
TEST_F(Functions, TheStackGuardStopsDeepRecursion) {
    ASSERT_EQ(declare("FUNCTION Down($n INTEGER) BEGIN RETURN Down($n - 1) END"), 1);
    struct Run {
        Script script{"RETURN Down(1)"};
        std::string result;
    } run;
    ASSERT_EQ(Parse_Script_L(run.script.get(), nullptr, 0), 1); // the parse sets the limit
    qv::express::recursion_limit = 1 << 30;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void *out) -> void * {
                      auto *r = static_cast<Run *>(out);
                      r->result = r->script.run();
                      return nullptr;
                  },
                  &run),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(run.result, "failed");
    EXPECT_THAT(messages(), ::testing::Contains("Not enough stack is left to call the "
                                                "user-defined function."));
    EXPECT_EQ(qv::express::run_nesting, 0);
}

// Exit in a function ends the script that called it.
TEST_F(Functions, ExitInsideAFunctionEndsTheRun) {
    ASSERT_EQ(declare("FUNCTION Stop($code INTEGER) BEGIN Exit($code); RETURN 0 END"), 1);
    Script script("$before := 1; $x := Stop(42); $after := 1");
    EXPECT_EQ(script.run(), "exit 42");
    EXPECT_EQ(FindVariableOnArray_L(script->variables, "after")->value.is_null, 1);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
    EXPECT_EQ(qv::express::run_nesting, 0);
}

// A later declaration moves the records: every body is parsed again and still runs.
TEST_F(Functions, LaterDeclarationsParseEveryBodyAgain) {
    ASSERT_EQ(declare("FUNCTION One() RETURNS INTEGER BEGIN RETURN 1 END"), 1);
    ASSERT_EQ(declare("FUNCTION Two() RETURNS INTEGER BEGIN RETURN One() + One() END"), 1);
    ASSERT_EQ(declare("FUNCTION Three() RETURNS INTEGER BEGIN RETURN One() + Two() END"), 1);
    EXPECT_EQ(Script("RETURN Three() * 10 + Two()").run(), "32");
    EXPECT_EQ(declare("FUNCTION two() BEGIN RETURN 2 END"), -1);
    EXPECT_EQ(raised_, GENERAL_ERROR);
    EXPECT_THAT(messages().back(),
                ::testing::HasSubstr("A function named two is declared already."));
    EXPECT_EQ(Script("RETURN Three()").run(), "3") << "the earlier functions are kept";
}

// Host tables given with a declaration are kept for the body's parses.
void host_half(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
    SetValueType_L(result, QV_TYPE_FLOAT);
    if (frame->mode != QV_MODE_EVALUATE) return;
    double d = 0;
    ValueToDouble_L(x, &d);
    SetFloatValue_L(result, d / 2);
}

TEST_F(Functions, HostTablesAreKept) {
    static ExpFunction rows[2]{
        host_function("Halve", "Halve( number )", QV_EXP_HANDLER(host_half), QV_TYPE_FLOAT)};
    rows[0].max_args = rows[0].min_args = 1;
    rows[0].arg_types[0] = QV_MASK_NUMBER;
    const ExpFunction *const tables[] = {rows};
    ASSERT_EQ(declare("FUNCTION Quarter($x) BEGIN RETURN Halve(Halve($x)) END", tables, 1), 1);
    ASSERT_EQ(declare("FUNCTION Other() BEGIN RETURN 0 END"), 1); // parses Quarter again
    EXPECT_EQ(Script("RETURN Quarter(10)").run(), "2.5");
    const EXP_USER_FUNCTION_T &quarter = *Get_UserFunctions(nullptr)[0];
    ASSERT_EQ(quarter.extra_count, 1);
    EXPECT_EQ(static_cast<const ExpFunction *const *>(quarter.extras[0]->owned)[0], rows);
}

TEST_F(Functions, MalformedDeclarations) {
    const Failed rows[] = {
        {"", QV_MSG_DECLARATION_EXPECTED, 0},
        {"RETURN 1", QV_MSG_DECLARATION_EXPECTED, 0},
        {"function F() BEGIN END", QV_MSG_DECLARATION_EXPECTED, 0},
        {"FUNCTION (", QV_MSG_DECLARATION_EXPECTED, 9},
        {"FUNCTION a.b() BEGIN END", QV_MSG_DECLARATION_EXPECTED, 9},
        {"FUNCTION F BEGIN END", QV_MSG_DECLARATION_EXPECTED, 11},
        {"FUNCTION F(x) BEGIN END", QV_MSG_DECLARATION_EXPECTED, 11},
        {"FUNCTION F($a INTEGER $b) BEGIN END", QV_MSG_DECLARATION_EXPECTED, 22},
        {"FUNCTION F($a $b) BEGIN END", QV_MSG_DECLARATION_EXPECTED, 14},
        {"FUNCTION F($a; BEGIN END", QV_MSG_DECLARATION_EXPECTED, 13},
        {"FUNCTION F($a, $A) BEGIN END", QV_MSG_PARAMETER_REPEATED, 15},
        {"FUNCTION F($a WHATEVER) BEGIN END", QV_MSG_TYPE_UNKNOWN, 14},
        {"FUNCTION F($a NUMBER) BEGIN END", QV_MSG_TYPE_UNKNOWN, 14},
        {"FUNCTION F($a NUMBER(99)) BEGIN END", QV_MSG_TYPE_UNKNOWN, 14},
        {"FUNCTION F($a CHAR(5) BEGIN END", QV_MSG_DECLARATION_EXPECTED, 22},
        {"FUNCTION F($a CHAR(5", QV_MSG_DECLARATION_EXPECTED, 20},
        {"FUNCTION F() RETURN 1", QV_MSG_DECLARATION_EXPECTED, 13},
        {"FUNCTION F() RETURNS BEGIN END", QV_MSG_DECLARATION_EXPECTED, 21},
        {"FUNCTION F() RESULTS INTEGER BEGIN END", QV_MSG_DECLARATION_EXPECTED, 13},
        {"FUNCTION F() $x := 1", QV_MSG_DECLARATION_EXPECTED, 13},
        {"FUNCTION F() BEGIN RETURN 1", QV_MSG_END_EXPECTED, 27},
        {"FUNCTION F() BEGIN END FUNCTION F() BEGIN END", QV_MSG_FUNCTION_REPEATED, 32},
        {"FUNCTION F() BEGIN END $x := 1", QV_MSG_DECLARATION_EXPECTED, 23},
        {"FUNCTION F($a, $b, $c, $d, $e, $f, $g, $h, $i, $j, $k, $l, $m, $n, $o, $p, $q) BEGIN "
         "END",
         QV_MSG_TOO_MANY_PARAMETERS, 9},
        // Bodies: positions count from their FUNCTION.
        {"FUNCTION F() BEGIN RETURN END", QV_MSG_RETURN_NOT_ALLOWED, 19},
        {"FUNCTION F() BEGIN RETURN G() END", QV_MSG_FUNCTION_NOT_FOUND, 26},
        {"FUNCTION F() BEGIN END; FUNCTION G() BEGIN $x 1 END", QV_MSG_ASSIGNMENT_EXPECTED, 22},
    };
    for (const Failed &row : rows) {
        EXPECT_EQ(declare(row.text), -1) << row.text;
        EXPECT_EQ(raised_, GENERAL_ERROR) << row.text;
        uint32_t position = 0;
        const uint32_t number = GetExpressionError_L(&position);
        EXPECT_EQ((Failure{number, position}), (Failure{row.number, row.position})) << row.text;
        int32_t count = -1;
        Get_UserFunctions(&count);
        EXPECT_EQ(count, 0) << row.text << ": nothing is kept";
    }
    EXPECT_EQ(Declare_Functions_L(nullptr, nullptr, 0), -1);
}

TEST_F(Functions, InvalidBodiesAreReported) {
    EXPECT_EQ(declare("FUNCTION Ok() BEGIN RETURN 1 END; "
                      "FUNCTION Bad() BEGIN RETURN unbound + 1 END"),
              -1);
    EXPECT_THAT(messages(),
                ::testing::ElementsAre("The name unbound at position 28 is not bound to a value.",
                                       "The expression or script is not valid."));
    int32_t count = -1;
    Get_UserFunctions(&count);
    EXPECT_EQ(count, 0);
}

TEST_F(Functions, ParametersAndFunctionNamesShadow) {
    // A user-defined function named like a built-in is found first.
    ASSERT_EQ(declare("FUNCTION Upper($s CHAR) RETURNS CHAR BEGIN RETURN Lower($s) END"), 1)
        << ::testing::PrintToString(messages());
    EXPECT_EQ(Script("RETURN Upper('ABC')").run(), "abc");
    // A parameter hides a global of the same name, and assigning it leaves the global alone.
    SetVariable_L("p", "'global'", 0);
    ASSERT_EQ(declare("FUNCTION Set($p) BEGIN $p := 'changed'; RETURN $p END"), 1);
    EXPECT_EQ(Script("RETURN Set(1)").run(), "changed");
    EXPECT_EQ(text_of(&FindVariable_L("p", 0)->value), "global");
}

} // namespace
} // namespace qvtest
