// express_eval_binding_test.cpp - the host's side of evaluation: binding names and
// placeholders, unbound names at validation, a million rows through one parsed expression,
// variables, declared result types, evaluations that allocate nothing, the
// allocation-failure sweep over parsing, binding, validating and solving, bad input, and the
// variables defined by expressions.
#include <algorithm>
#include <cmath>
#include <memory>

#include "express_eval_support.hpp"
#include "qv/precise.h"

// A malloc counter beside the library's own allocation hook (which only sees the library's
// helpers). The sanitizer build has its own malloc and counts nothing here.
#if !defined(__SANITIZE_ADDRESS__)
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
}
namespace {
long mallocs = 0;
} // namespace
extern "C" {
void *malloc(size_t size) {
    ++mallocs;
    return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
    ++mallocs;
    return __libc_calloc(count, size);
}
void *realloc(void *block, size_t size) {
    ++mallocs;
    return __libc_realloc(block, size);
}
}
#define QV_COUNTS_MALLOC 1
#else
namespace {
long mallocs = 0;
}
#define QV_COUNTS_MALLOC 0
#endif

namespace qvtest {
namespace {

using EvalBinding = EvalTest;

struct FreeExpression {
    void operator()(EXPRESSION_T *e) const { Free_Expression_L(e); }
};
using ExpressionPtr = std::unique_ptr<EXPRESSION_T, FreeExpression>;

TEST_F(EvalBinding, NamesAndPlaceholders) {
    Value a, b, c, first, second;
    SetIntegerValue_L(a.get(), 1);
    SetIntegerValue_L(b.get(), 10);
    SetIntegerValue_L(c.get(), 100);
    SetIntegerValue_L(first.get(), 1000);
    SetIntegerValue_L(second.get(), 10000);
    Expression e(R"(orders.total + "Unit Price" + QTY + ? + ?)");
    const EXP_BINDING_T table[] = {
        {"ORDERS.TOTAL", a.get()}, {"unit price", b.get()}, {"qty", c.get()},   {"?", first.get()},
        {"?", second.get()},       {"not there", a.get()},  {nullptr, a.get()},
    };
    EXPECT_EQ(BindExpression_L(e.get(), table, 4), 1) << "the second placeholder is unbound";
    EXPECT_EQ(BindExpression_L(e.get(), table, 7), 0);
    EXPECT_EQ(e.solve(), "11111");
    // "?N" names the N-th placeholder; "?" alone the first.
    EXPECT_EQ(BindExpressionName_L(e.get(), "?2", first.get()), 1);
    EXPECT_EQ(BindExpressionName_L(e.get(), "?", second.get()), 1);
    EXPECT_EQ(BindExpressionName_L(e.get(), "?3", a.get()), 0);
    EXPECT_EQ(e.solve(), "11111");
    const EXP_BINDING_T numbered[] = {{"?2", c.get()}, {"?", a.get()}};
    EXPECT_EQ(BindExpression_L(e.get(), numbered, 2), 0);
    EXPECT_EQ(e.solve(), "212"); // 1 + 10 + 100 + 1 + 100
    // A null value unbinds.
    EXPECT_EQ(BindExpressionName_L(e.get(), "qty", nullptr), 1);
    EXPECT_EQ(e.solve(), "failed");
    EXPECT_THAT(messages(),
                ::testing::ElementsAre("The name QTY at position 30 is not bound to a value.",
                                       "The expression or script is not valid."));
    // Bad calls.
    EXPECT_EQ(BindExpression_L(nullptr, table, 1), -1);
    EXPECT_EQ(BindExpression_L(e.get(), nullptr, 1), -1);
    EXPECT_EQ(BindExpression_L(e.get(), table, -1), -1);
    EXPECT_EQ(BindExpression_L(e.get(), nullptr, 0), 1);
    EXPECT_EQ(BindExpressionName_L(e.get(), nullptr, a.get()), -1);
    EXPECT_EQ(BindExpressionName_L(nullptr, "qty", a.get()), -1);
}

TEST_F(EvalBinding, EveryUnboundNameIsNamedAtValidation) {
    Value x;
    SetIntegerValue_L(x.get(), 1);
    Expression e("price * qty + x + price", eval_tables, 1);
    e.bind("x", x.get());
    expect_raise(GENERAL_ERROR, "express", [&] { Validate_Expression_L(e.get()); });
    EXPECT_THAT(messages(),
                ::testing::ElementsAre("The name price at position 0 is not bound to a value.",
                                       "The name qty at position 8 is not bound to a value.",
                                       "The name price at position 18 is not bound to a value.",
                                       "The expression or script is not valid."));
    // A name passed where a function takes a pointer is not bound: it stands for itself.
    const ExpFunction rows[] = {
        host_function("Named", QV_EXP_HANDLER(count), 1, 1, QV_TYPE_INTEGER, {QV_TYPE_POINTER}, 1),
        ExpFunction{}};
    const ExpFunction *const tables[] = {rows};
    EXPECT_EQ(Expression("Named(column)", tables, 1).solve(), "1");
}

// One parsed expression, its names bound once to records the host rewrites row after row
// (and, every other row, bound anew to a second set of records of the same types).
TEST_F(EvalBinding, AMillionRows) {
    Value x[2], y[2], z[2];
    for (int i = 0; i < 2; ++i) {
        SetFloatValue_L(x[i].get(), 0);
        SetFloatValue_L(y[i].get(), 0);
        SetFloatValue_L(z[i].get(), 0);
    }
    Expression e("(x + y) * 2.5 - z / 3");
    e.bind("x", x[0].get()).bind("y", y[0].get()).bind("z", z[0].get());
    ASSERT_EQ(Validate_Expression_L(e.get()), 1);
    Random random;
    int wrong = 0;
    for (int row = 0; row < 1000000; ++row) {
        const int set = (row / 1000) % 2;
        if (row % 1000 == 0) {
            BindExpressionName_L(e.get(), "x", x[set].get());
            BindExpressionName_L(e.get(), "y", y[set].get());
            BindExpressionName_L(e.get(), "z", z[set].get());
        }
        const double a = random(-1000, 1000) / 8.0, b = random(-1000, 1000) / 4.0,
                     c = random(-1000, 1000) / 2.0;
        x[set]->payload.real = a;
        y[set]->payload.real = b;
        z[set]->payload.real = c;
        if (Solve_Expression_L(e.get()) != 0 || e->result.payload.real != (a + b) * 2.5 - c / 3)
            ++wrong;
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(e->validated, 1) << "binding records of the same type keeps the validation";
    // A record of another type is taken at the next evaluation, validated again.
    Value whole;
    SetIntegerValue_L(whole.get(), 4);
    BindExpressionName_L(e.get(), "x", whole.get());
    y[0]->payload.real = z[0]->payload.real = 0;
    BindExpressionName_L(e.get(), "y", y[0].get());
    BindExpressionName_L(e.get(), "z", z[0].get());
    EXPECT_EQ(e->validated, 0);
    EXPECT_EQ(e.solve(), "10");
}

TEST_F(EvalBinding, Variables) {
    SetVariable_L("rate", "0.5", 0);
    Expression known("$rate * 4"), later("$later + 1"), missing("$missing + 1");
    ASSERT_EQ(Validate_Expression_L(known.get()), 1);
    EXPECT_EQ(known->result_type.type, QV_TYPE_FLOAT);
    EXPECT_EQ(known.solve(), "2");
    SetVariable_L("rate", "0.25", 0);
    EXPECT_EQ(known.solve(), "1");
    ASSERT_EQ(Validate_Expression_L(later.get()), 1); // does not exist yet: looked up later
    SetVariable_L("later", "41", 0);
    EXPECT_EQ(later.solve(), "42");
    expect_raise(GENERAL_ERROR, "express", [&] { Solve_Expression_L(missing.get()); });
    EXPECT_THAT(messages(),
                ::testing::ElementsAre("The variable $missing at position 0 does not exist."));
    // An inner scope hides the global variable once validated again.
    VARIABLE_ARRAY_T *inner = PushVariableArray_L(NewVariableArray_L("inner"));
    Value ten;
    SetIntegerValue_L(ten.get(), 10);
    CreateVariable_L(inner, "rate", QV_TYPE_INTEGER, 0, 0, ten.get());
    EXPECT_EQ(known.solve(), "1");
    ASSERT_EQ(Validate_Expression_L(known.get()), 1);
    EXPECT_EQ(known.solve(), "40");
    FreeVariableArray_L(inner);
}

TEST_F(EvalBinding, DeclaredResultTypes) {
    Expression e("x * 1");
    Value x;
    NewPrecise_L(x.get(), 10, 4);
    StringToPrecise_L(x.get(), "1.2345");
    e.bind("x", x.get());
    const QV_DATATYPE_T two_places{QV_TYPE_NUMBER, 10, 2, 0}, short_text{QV_TYPE_CHAR, 3, 0, 0},
        small{QV_TYPE_NUMBER, 2, 0, 0};
    EXPECT_EQ(SetExpressionResultType_L(e.get(), &two_places), 0);
    EXPECT_EQ(e.solve(), "1.23");
    EXPECT_EQ(e->result.descriptor.scale, 2);
    SetExpressionResultType_L(e.get(), &short_text);
    EXPECT_EQ(e.solve(), "1.2");
    SetExpressionResultType_L(e.get(), nullptr); // as validation finds it again
    EXPECT_EQ(e.solve(), "1.2345");
    StringToPrecise_L(x.get(), "123.5");
    SetExpressionResultType_L(e.get(), &small);
    expect_raise(GENERAL_ERROR, "express", [&] { Solve_Expression_L(e.get()); });
    EXPECT_THAT(messages(),
                ::testing::ElementsAre(
                    "The value of the expression does not fit its result type NUMBER(2,0)."));
    EXPECT_EQ(SetExpressionResultType_L(nullptr, &small), -1);
}

// The no-allocation promise: after validation, 1000 evaluations of each expression of
// numbers and truth values allocate nothing, through the library's helpers or otherwise.
TEST_F(EvalBinding, EvaluationsOfNumbersAndTruthAllocateNothing) {
    Value x, y, z, a, price, qty, names[2];
    SetFloatValue_L(x.get(), 0);
    SetFloatValue_L(y.get(), 0);
    SetFloatValue_L(z.get(), 0);
    SetIntegerValue_L(a.get(), 0);
    NewPrecise_L(price.get(), 10, 2);
    SetIntegerValue_L(qty.get(), 0);
    SetTextValue_L(names[0].get(), "Alice", nullptr);
    SetTextValue_L(names[1].get(), "bob", nullptr);
    const EXP_BINDING_T table[] = {
        {"x", x.get()},         {"y", y.get()},     {"z", z.get()},          {"a", a.get()},
        {"price", price.get()}, {"qty", qty.get()}, {"name", names[0].get()}};
    const char *texts[] = {"(x + y) * 2.5 - z / 3",
                           "Pick(x > 50, x * 2, y / 2)",
                           "If(x > 50, x * 2, y / 2)",
                           "x > 10 AND y < 20 OR name LIKE 'A%'",
                           "OrElse(a, 0) + y",
                           "IfNull(a, 0) + y",
                           "price * qty"};
    for (const char *text : texts) {
        Expression e(text, eval_tables, 1);
        BindExpression_L(e.get(), table, 7);
        ASSERT_EQ(Validate_Expression_L(e.get()), 1) << text;
        const long before = mallocs;
        TestFailAllocation_L(0);
        int failed = 0;
        for (int row = 0; row < 1000; ++row) {
            x->payload.real = row * 0.5;
            y->payload.real = 30 - row * 0.01;
            z->payload.real = row;
            SetIntegerValue_L(a.get(), row);
            if (row % 10 == 9) FreeValue_L(a.get());
            IntegerToPrecise_L(price.get(), 1999 + row, 2);
            SetIntegerValue_L(qty.get(), row % 7);
            BindExpressionName_L(e.get(), "name", names[row % 2].get());
            failed += Solve_Expression_L(e.get()) != 0;
        }
        EXPECT_EQ(TestAllocationFailed_L(), 0) << text;
        TestFailAllocation_L(-1);
        EXPECT_EQ(failed, 0) << text;
        if (QV_COUNTS_MALLOC) {
            EXPECT_EQ(mallocs - before, 0) << text;
        }
    }
}

// A text result keeps its block from row to row: every row's result is what a fresh
// expression gives, and once the block has grown to the longest row the text built-ins
// allocate nothing more for ASCII rows.
TEST_F(EvalBinding, TextResultsReuseTheirBlocks) {
    InitialiseFunctions_L();
    const char *texts[] = {"Concat(Upper(name), '-', SubStr(name, 1, 3))",
                           "Lower(name)",
                           "SubStr(name, 2, 3)",
                           "SubStr(name, 3)",
                           "Left(name, 4)",
                           "ConcatSep('/', name, 12, NULL, name)",
                           "Trim(name, 'a')",
                           "InitCap(name)"};
    const char *names[] = {"Alexandria Ocasio", "bob", "", "Zoë", "eve", "Åsa-Maria", "x", "ab"};
    Value name;
    for (const char *text : texts) {
        Expression reused(text);
        reused.bind("name", name.get());
        for (const char *row : names) {
            SetTextValue_L(name.get(), row, nullptr);
            Expression fresh(text);
            fresh.bind("name", name.get());
            EXPECT_EQ(reused.solve(), fresh.solve()) << text << " of '" << row << "'";
            EXPECT_EQ(reused->result.descriptor.type, fresh->result.descriptor.type) << text;
        }
    }
    Expression e(texts[0]);
    e.bind("name", name.get());
    const char *ascii[] = {"Alexandria", "bob", "Carol", "x"}; // no empty text: NULL frees
    for (const char *row : ascii) {                            // the blocks grow to the longest row
        SetTextValue_L(name.get(), row, nullptr);
        e.solve();
    }
    FreeValue_L(name.get()); // still CHAR; from here its text points at the row's
    name->is_null = 0;
    const long before = mallocs;
    for (int row = 0; row < 1000; ++row) {
        name->payload.string.text = const_cast<char *>(ascii[row % std::size(ascii)]);
        ASSERT_EQ(Solve_Expression_L(e.get()), 0);
    }
    if (QV_COUNTS_MALLOC) {
        EXPECT_EQ(mallocs - before, 0);
    }
    EXPECT_EQ(e.solve(), "X-x");
    name->payload.string.text = nullptr;
}

void bind_all(EXPRESSION_T *e, QV_VALUE_T *x, QV_VALUE_T *name) {
    const EXP_BINDING_T table[] = {{"x", x}, {"name", name}};
    BindExpression_L(e, table, 2);
}

// Every allocation of parsing, binding, validating and solving fails in turn: each failing
// run raises ALLOC_FAILURE and leaves nothing behind (the sanitizer build checks), and the
// expression is evaluated right once memory is there.
TEST_F(EvalBinding, AllocationFailureSweep) {
    Value x, name;
    SetIntegerValue_L(x.get(), 7);
    SetTextValue_L(name.get(), "Alice", nullptr);
    const char *texts[] = {"(x + 1) * 2.5 - x / 3", "name LIKE 'A%' OR x IN (1, 7) AND NOT x > 9",
                           "Elements(x) & name & ('b' & x)", "Count(x, name) + Half(x) - -x",
                           "Pick(x BETWEEN 1 AND 9, name, 'no') = 'Alice'"};
    const char *expected[] = {"17.6666666666667", "TRUE", "(1, 'Alice', 'b', 7)", "12.5", "TRUE"};
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        std::string result;
        const auto raised = fail_each_allocation([&] {
            ExpressionPtr e(New_Expression_L(texts[i]));
            if (e == nullptr) return;
            Parse_Expression_L(e.get(), kMask, eval_tables, 1);
            bind_all(e.get(), x.get(), name.get());
            Validate_Expression_L(e.get());
            Solve_Expression_L(e.get());
            result = text_of(&e->result);
        });
        EXPECT_GT(raised.size(), 3u) << texts[i];
        // Failing to open the status context of the parse or the validation runs it
        // unprotected, and whole: nothing is raised then.
        EXPECT_LE(std::ranges::count(raised, nullptr), 2) << texts[i];
        for (const char *symbol : raised)
            EXPECT_TRUE(symbol == nullptr || symbol == ALLOC_FAILURE) << texts[i];
        EXPECT_EQ(result, expected[i]) << texts[i];
        EXPECT_EQ(qv::express::run_nesting, 0);
    }
}

// Solving again after a failure in the middle of an evaluation gives the right result.
TEST_F(EvalBinding, FailureInAnEvaluationLeavesItReusable) {
    Value x;
    SetIntegerValue_L(x.get(), 1);
    Expression e("x & 'a' & 'b'");
    e.bind("x", x.get());
    ASSERT_EQ(Validate_Expression_L(e.get()), 1);
    const auto raised = fail_each_allocation([&] { Solve_Expression_L(e.get()); });
    EXPECT_FALSE(raised.empty());
    EXPECT_EQ(e->depth, 0);
    EXPECT_EQ(e.solve(), "(1, 'a', 'b')");
}

TEST_F(EvalBinding, BadInput) {
    EXPECT_EQ(Solve_Expression_L(nullptr), -1);
    EXPECT_EQ(Validate_Expression_L(nullptr), 0);
    Cleanup_Expression_L(nullptr);
    ExpressionPtr empty(New_Expression_L("  // nothing "));
    EXPECT_EQ(Solve_Expression_L(empty.get()), -1);
    ExpressionPtr no_text(New_Expression_L(nullptr));
    EXPECT_EQ(Solve_Expression_L(no_text.get()), -1);
    // Not parsed yet: parsed (conditions and placeholders allowed) when first solved.
    ExpressionPtr unparsed(New_Expression_L("1 < 2 AND 'a' LIKE 'a'"));
    EXPECT_EQ(Solve_Expression_L(unparsed.get()), 0);
    EXPECT_EQ(text_of(&unparsed->result), "TRUE");
    // Cleaned up: validated again; parsed again: a new expression.
    Cleanup_Expression_L(unparsed.get());
    EXPECT_EQ(unparsed->validated, 0);
    EXPECT_EQ(Solve_Expression_L(unparsed.get()), 0);
    std::free(unparsed->text);
    unparsed->text = strdup("2 * 21");
    ASSERT_EQ(Parse_Expression_L(unparsed.get(), kMask, nullptr, 0), 1);
    EXPECT_EQ(Solve_Expression_L(unparsed.get()), 0);
    EXPECT_EQ(text_of(&unparsed->result), "42");
    // Items the parser cannot have made.
    Expression e("1 + 2");
    auto *plus = static_cast<EXP_ITEM_T *>(QV_LIST_DATA(e->items->previous));
    const OPERATOR_T *was = plus->op;
    plus->op = nullptr;
    expect_raise(GENERAL_ERROR, "express", [&] { Validate_Expression_L(e.get()); });
    plus->op = Get_Operator_L(EXP_OP_NOT); // 1 2 NOT leaves two values
    expect_raise(GENERAL_ERROR, "express", [&] { Validate_Expression_L(e.get()); });
    plus->op = was;
    const std::string malformed = "The parsed expression cannot be evaluated: the item at "
                                  "position 2 is out of place or unknown.";
    EXPECT_THAT(messages(),
                ::testing::ElementsAre(malformed, "The expression or script is not valid.",
                                       malformed, "The expression or script is not valid."));
    EXPECT_EQ(e.solve(), "3");
    // A text that does not parse: the parse's failure, then -1.
    ExpressionPtr broken(New_Expression_L("1 +"));
    EXPECT_EQ(raised_by([&] { Solve_Expression_L(broken.get()); }), GENERAL_ERROR);
    EXPECT_EQ(Solve_Expression_L(broken.get()), -1);
    EXPECT_THAT(messages().back(),
                ::testing::StartsWith("The expression cannot be parsed at position 3"));
}

TEST_F(EvalBinding, VariablesDefinedByExpressions) {
    SetVariable_L("base", "40", 0);
    VARIABLE_T *answer = CreateVariableFromExpression_L(nullptr, "answer", 0, 0, 0, "$base + 2", 1);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(text_of(&answer->value), "42");
    EXPECT_EQ(answer->changed, 1);
    EXPECT_EQ(FindVariable_L("ANSWER", 0), answer) << "made on the global array";
    SetVariable_L("base", "1", 0);
    EXPECT_EQ(UpdateVariableFromExpression_L(answer), 0);
    EXPECT_EQ(text_of(&answer->value), "3");
    // Found again: its expression replaced and evaluated into its type.
    EXPECT_EQ(CreateVariableFromExpression_L(nullptr, "answer", 0, 0, 0, "7 / 2", 1), answer);
    EXPECT_EQ(text_of(&answer->value), "3");
    // Without evaluating: a NULL variable keeping the text, evaluated later.
    VARIABLE_ARRAY_T *array = NewVariableArray_L("local");
    VARIABLE_T *later =
        CreateVariableFromExpression_L(array, "later", QV_TYPE_NUMBER, 10, 2, "1 / 3", 0);
    ASSERT_NE(later, nullptr);
    EXPECT_EQ(later->value.is_null, 1);
    EXPECT_STREQ(later->expression, "1 / 3");
    EXPECT_EQ(UpdateVariableFromExpression_L(later), 0);
    EXPECT_EQ(text_of(&later->value), "0.33");
    // Failures: a new variable is not kept; nothing to evaluate gives -1.
    EXPECT_EQ(CreateVariableFromExpression_L(array, "bad", 0, 0, 0, "$nothing + 1", 1), nullptr);
    EXPECT_EQ(FindVariableOnArray_L(array, "bad"), nullptr);
    EXPECT_EQ(CreateVariableFromExpression_L(array, "unparsed", 0, 0, 0, "1 +", 1), nullptr);
    EXPECT_EQ(CreateVariableFromExpression_L(array, nullptr, 0, 0, 0, "1", 1), nullptr);
    EXPECT_EQ(UpdateVariableFromExpression_L(nullptr), -1);
    VARIABLE_T *plain = CreateVariableFromExpression_L(array, "plain", 0, 0, 0, nullptr, 0);
    EXPECT_EQ(UpdateVariableFromExpression_L(plain), -1);
    EXPECT_EQ(messages().size(), 2u); // the missing variable and the parse, each once
    FreeVariableArray_L(array);
}

} // namespace
} // namespace qvtest
