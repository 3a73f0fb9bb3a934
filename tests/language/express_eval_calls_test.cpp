// express_eval_calls_test.cpp - function calls: host functions through the dispatcher (both
// forms, null pointers past the count, arrays wrapped, the arguments themselves passed),
// validation of argument types with its messages, and user-defined functions built by hand:
// parameters, results, recursion with its own values per activation, and endless
// recursion ended by the recursion limit or by the stack guard.
#include <pthread.h>

#include "builtin2_call.hpp"
#include "express_eval_support.hpp"

namespace qvtest {
namespace {

using EvalCalls = EvalTest;

TEST_F(EvalCalls, HostFunctionsThroughTheDispatcher) {
    struct Row {
        const char *text;
        const char *expected;
    };
    const Row rows[] = {
        {"Pick(2 > 1, 'yes', 'no')", "yes"},
        {"Pick(NULL, 1, 2)", "2"},
        {"OrElse(NULL, 5) + 1", "6"},
        {"Given()", "0.0.0"},
        {"Given(1)", "1.0.0"}, // null pointers past the count
        {"Given(1, NULL)", "1.1.0"},
        {"Given(,)", "1.1.0"},
        {"Count(1, 'a', NULL, 4.5, Count())", "5"},
        {"Elements(5)", "1"}, // wrapped into a one-element array
        {"Elements('a' & 'b')", "2"},
        {"Elements(NULL)", "-1"}, // the NULL literal has no type to wrap
        {"-Half(5)", "-2.5"},
        {"Half(Half(10)) * 2", "5"},
        {"Half(NULL)", "<null>"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(Expression(row.text, eval_tables, 1).solve(), row.expected) << row.text;
}

// The describe call gives the result type, which the result keeps.
TEST_F(EvalCalls, DescribedTypes) {
    Value x;
    SetIntegerValue_L(x.get(), 3);
    Expression e("Pick(x > 1, x, 2.5)", eval_tables, 1);
    e.bind("x", x.get());
    ASSERT_EQ(Validate_Expression_L(e.get()), 1);
    EXPECT_EQ(e->result_type.type, QV_TYPE_FLOAT);
    EXPECT_EQ(e.solve(), "3");
    EXPECT_EQ(e->result.descriptor.type, QV_TYPE_FLOAT);
}

// If and IfNull choose their value without the dispatcher; each gives what the handler gives
// when called through it, for conditions and values of every kind.
TEST_F(EvalCalls, IfAndIfNullGiveWhatTheirHandlersGive) {
    InitialiseFunctions_L();
    const char *conditions[] = {"TRUE", "FALSE", "NULL", "'yes'", "'off'", "'maybe'", "1", "0"};
    const char *outcomes[] = {"'text'", "NULL", "7", "1.5", "'1999-12-31'", "1 & 2"};
    Value c, a, b;
    const auto set = [](QV_VALUE_T *value, const char *text) {
        Expression literal(text);
        ASSERT_EQ(Solve_Expression_L(literal.get()), 0) << text;
        CopyValue_L(value, &literal->result);
    };
    // Solved twice: the second time the result record holds the first one's copy.
    const auto expect_same = [](const Expression &e, const OwnedValue &reference,
                                const std::string &row) {
        for (int time = 0; time < 2; ++time) {
            ASSERT_EQ(Solve_Expression_L(e.get()), 0) << row;
            const QV_VALUE_T &got = *e->operands[0][qv::express::program_of(e.get())->steps[0].out];
            EXPECT_EQ(got.descriptor.type, reference->descriptor.type) << row;
            EXPECT_EQ(got.descriptor.precision, reference->descriptor.precision) << row;
            EXPECT_EQ(got.is_null, reference->is_null) << row;
            EXPECT_EQ(text_of(&got), text_of(reference.get())) << row;
        }
    };
    for (const char *condition : conditions)
        for (const char *first : outcomes)
            for (const char *second : outcomes) {
                set(c.get(), condition);
                set(a.get(), first);
                set(b.get(), second);
                // not the last step, whose value is converted into the result type
                Expression choice("If(c, a, b) IS NULL"), fallback("IfNull(a, b) IS NULL");
                choice.bind("c", c.get()).bind("a", a.get()).bind("b", b.get());
                fallback.bind("a", a.get()).bind("b", b.get());
                const std::string row = std::string(condition) + ", " + first + ", " + second;
                expect_same(choice, call_row(builtin_row("If"), {c.get(), a.get(), b.get()}), row);
                expect_same(fallback, call_row(builtin_row("IfNull"), {a.get(), b.get()}), row);
            }
}

// A handler receives the bound record itself: no copy per call.
QV_VALUE_T *seen = nullptr;
void remember(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *argument) {
    SetValueType_L(result, QV_TYPE_BOOLEAN);
    if (frame->mode != QV_MODE_EVALUATE) return;
    seen = argument;
    SetBooleanValue_L(result, 1);
}

TEST_F(EvalCalls, ArgumentsAreTheValuesThemselves) {
    const ExpFunction rows[] = {
        host_function("Remember", QV_EXP_HANDLER(remember), 1, 1, QV_TYPE_BOOLEAN, {QV_MASK_ANY}),
        ExpFunction{}};
    const ExpFunction *const tables[] = {rows};
    Value x;
    SetTextValue_L(x.get(), "row 1", nullptr);
    Expression e("Remember(x)", tables, 1);
    e.bind("x", x.get());
    EXPECT_EQ(e.solve(), "TRUE");
    EXPECT_EQ(seen, x.get());
}

TEST_F(EvalCalls, ArgumentTypesAreChecked) {
    Value date, untyped;
    SetDateValue_L(date.get(), QV_TYPE_DATE, nullptr);
    Expression e("Half('abc') + Half(d) + Half(u) + Half(NULL) + Half(3)", eval_tables, 1);
    e.bind("d", date.get()).bind("u", untyped.get());
    expect_raise(GENERAL_ERROR, "express", [&] { Validate_Expression_L(e.get()); });
    EXPECT_THAT(messages(),
                ::testing::ElementsAre(
                    "Argument 1 of Half at position 0 is CHAR, but Half takes INTEGER, FLOAT or "
                    "NUMBER there.",
                    "Argument 1 of Half at position 14 is DATE, but Half takes INTEGER, FLOAT or "
                    "NUMBER there.",
                    "The expression or script is not valid."));
    EXPECT_EQ(e->validated, 0);
    EXPECT_EQ(Solve_Expression_L(e.get()), -1); // validates again, fails again (reported)
    EXPECT_EQ(e->result.is_null, 1);
}

TEST_F(EvalCalls, FunctionsWithoutHandlerAreNotCallable) {
    const ExpFunction rows[] = {host_function("Nothing", nullptr, 0, 0, QV_TYPE_INTEGER, {}),
                                ExpFunction{}};
    const ExpFunction *const tables[] = {rows};
    Expression e("Nothing() + 1", tables, 1);
    expect_raise(GENERAL_ERROR, "express", [&] { Validate_Expression_L(e.get()); });
    EXPECT_THAT(messages(), ::testing::ElementsAre(
                                "Nothing at position 0 cannot be called: it has no handler and is "
                                "not a user-defined function of the current function array.",
                                "The expression or script is not valid."));
}

// ---- User-defined functions ---------------------------------------------------------------

void give_body(EXP_USER_FUNCTION_T *f, const char *text) {
    int32_t count = 0;
    const ExpFunction *const tables[] = {eval_functions, Get_FunctionArray(&count)};
    f->body = New_Expression_L(text);
    ASSERT_EQ(Parse_Expression_L(f->body, kMask, tables, 2), 1) << text;
}

// Stands in for the script layer: a function whose parameter is at most 1 returns 1 without
// running its body (IF $n <= 1 THEN RETURN 1 ...).
QV_VALUE_T one{};
const QV_VALUE_T *run_with_base_case(EXP_USER_FUNCTION_T *function) {
    int64_t n = 0;
    ValueToInteger_L(&function->parameters->variables[0]->value, &n);
    if (n <= 1) return SetIntegerValue_L(&one, 1);
    return Solve_Expression_L(function->body) == 0 ? &function->body->result : nullptr;
}

class EvalUser : public EvalTest {
  protected:
    void SetUp() override {
        EvalTest::SetUp();
        InitialiseFunctions_L();
    }
    void TearDown() override {
        qv::express::install_body_runner(nullptr);
        EvalTest::TearDown();
    }
    std::string solve(const char *text) {
        int32_t count = 0;
        const ExpFunction *const tables[] = {eval_functions, Get_FunctionArray(&count)};
        return Expression(text, tables, 2).solve();
    }
};

TEST_F(EvalUser, CallsRunTheBody) {
    EXP_USER_FUNCTION_T *twice = declare("Twice", QV_TYPE_INTEGER);
    declare("Third", QV_TYPE_NUMBER);
    give_body(twice, "$n * 2");
    give_body(Get_UserFunctions(nullptr)[1], "$n / 3");
    EXPECT_EQ(solve("Twice(21)"), "42");
    // Arguments are converted into the parameter's type: 2.6 is 2.
    EXPECT_EQ(solve("Twice(Twice(2.6)) + 1"), "9");
    EXPECT_EQ(solve("Third(1)"), "0.333333333333333"); // the FLOAT quotient's digits
    EXPECT_EQ(solve("-Twice(NULL)"), "<null>");
    VARIABLE_ARRAY_T **arrays = nullptr;
    EXPECT_EQ(GetVariableStructure_L(&arrays), 1) << "the parameters were taken off the stack";
    EXPECT_EQ(qv::express::run_nesting, 0);
}

// Each activation has its own parameter: $n is read after the inner call returned.
TEST_F(EvalUser, RecursionKeepsEachActivationsValues) {
    qv::express::install_body_runner(run_with_base_case);
    EXP_USER_FUNCTION_T *fact = declare("Fact", QV_TYPE_INTEGER);
    EXP_USER_FUNCTION_T *sum = declare("Sum", QV_TYPE_INTEGER); // records move: parse after
    give_body(fact, "$n * Fact($n - 1)");
    give_body(sum, "$n + Sum($n - 1) + $n - $n");
    EXPECT_EQ(solve("Fact(5)"), "120");
    EXPECT_EQ(solve("Fact(20)"), "2432902008176640000");
    EXPECT_EQ(solve("Sum(100) + Fact(3)"), "5056");
    EXPECT_EQ(Get_UserFunctions(nullptr)[0]->body->depth, 0);
    EXPECT_THAT(messages(), ::testing::IsEmpty());
    FreeValue_L(&one);
}

TEST_F(EvalUser, EndlessRecursionStopsAtTheLimit) {
    give_body(declare("Down", QV_TYPE_INTEGER), "Down($n - 1)");
    int32_t count = 0;
    const ExpFunction *const tables[] = {eval_functions, Get_FunctionArray(&count)};
    Expression e("Down(1)", tables, 2);
    expect_raise(GENERAL_ERROR, "express", [&] { Solve_Expression_L(e.get()); });
    EXPECT_THAT(messages(), ::testing::ElementsAre("The nesting goes deeper than the recursion "
                                                   "limit (QV_MAX_RECURSION) allows."));
    EXPECT_EQ(qv::express::run_nesting, 0);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
    EXPECT_EQ(Get_UserFunctions(nullptr)[0]->body->depth, 0);
    EXPECT_EQ(e->result.is_null, 1);
}

// A thread with a small stack and a limit far beyond it: the stack guard ends the recursion.
struct Deep {
    EXPRESSION_T *expression;
    const char *raised = nullptr;
};

void *recurse_on_small_stack(void *argument) {
    auto *deep = static_cast<Deep *>(argument);
    deep->raised = raised_by([&] { Solve_Expression_L(deep->expression); });
    return nullptr;
}

TEST_F(EvalUser, EndlessRecursionStopsAtTheStackGuard) {
    give_body(declare("Down", QV_TYPE_INTEGER), "Down($n - 1)");
    int32_t count = 0;
    const ExpFunction *const tables[] = {eval_functions, Get_FunctionArray(&count)};
    Expression e("Down(1)", tables, 2);
    qv::express::recursion_limit = 1000000;
    Deep deep{e.get()};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, recurse_on_small_stack, &deep), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(deep.raised, GENERAL_ERROR);
    EXPECT_THAT(messages(), ::testing::ElementsAre(
                                "Not enough stack is left to call the user-defined function."));
    EXPECT_EQ(qv::express::run_nesting, 0);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
}

TEST_F(EvalUser, ArgumentsAndBodiesAreChecked) {
    EXP_USER_FUNCTION_T *twice = declare("Twice", QV_TYPE_INTEGER);
    declare("Bodiless", QV_TYPE_INTEGER);
    give_body(twice, "$n * 2");
    int32_t count = 0;
    const ExpFunction *const tables[] = {eval_functions, Get_FunctionArray(&count)};
    Expression e("Twice('x')", tables, 2);
    expect_raise(GENERAL_ERROR, "express", [&] { Validate_Expression_L(e.get()); });
    EXPECT_THAT(messages(), ::testing::ElementsAre("Argument 1 of Twice at position 0 is CHAR, "
                                                   "but Twice takes INTEGER, FLOAT or NUMBER "
                                                   "there.",
                                                   "The expression or script is not valid."));
    Expression call("Bodiless(1)", tables, 2);
    expect_raise(GENERAL_ERROR, "express", [&] { Solve_Expression_L(call.get()); });
    EXPECT_EQ(messages().back(), "The user-defined function Bodiless has no body to run.");
}

} // namespace
} // namespace qvtest
