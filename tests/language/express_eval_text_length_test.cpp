// express_eval_text_length_test.cpp - a text result keeps every character, whatever CHAR
// length validation found for it: If and IfNull widen their branches' lengths, Choose takes
// its first outcome's, a bound text and Upper have none. Each case runs as an expression,
// as a script's RETURN and as a user-defined function's result; a result type that the host
// or a declaration gives still bounds the text.
#include <string>

#include "express_script_support.hpp"

namespace qvtest {
namespace {

constexpr const char *kCustomer = "Íñigo Müller-Lüdenscheidt";
constexpr const char *kShouted = "ÍÑIGO MÜLLER-LÜDENSCHEIDT";
constexpr const char *kLetters = "ABCDEFGHIJKLMNOP";

// An expression over `customer` and the full text it must give.
struct Case {
    const char *text;
    const char *want;
};

const Case kCases[] = {
    {"IfNull(Upper('abcdefghijklmnop'), 'xyz')", kLetters},
    {"If(1 = 1, Upper('abcdefghijklmnop'), 'xyz')", kLetters},
    {"If(1 = 2, 'xyz', Upper('abcdefghijklmnop'))", kLetters},
    {"If(1 = 2, 'xyz', 'ABCDEFGHIJKLMNOP')", kLetters},
    {"Choose(2, 'xyz', Upper('abcdefghijklmnop'))", kLetters},
    {"Choose(2, 'x', 'ABCDEFGHIJKLMNOP')", kLetters},
    {"IfNull(Upper(customer), '(unknown)')", kShouted},
    {"IfNull(customer, 'x')", kCustomer},
    {"If(customer = 'x', 'y', customer)", kCustomer},
    {"Choose(1, customer, 'x')", kCustomer},
    {"If(customer = 'x', 'y', Upper(customer))", kShouted},
    {"IfNull(SubStr(customer, 1, 5), 'x')", "Íñigo"},
};

class TextLength : public ScriptTest {
  protected:
    // Solves `text` with `customer` bound to a CHAR(0) text, converting into `declared`.
    std::string solve(const char *text, const QV_DATATYPE_T *declared = nullptr) {
        Value customer;
        SetTextValue_L(customer.get(), kCustomer, nullptr);
        EXPRESSION_T *e = New_Expression_L(text);
        std::string out = "failed";
        raised_by([&] {
            int32_t count = 0;
            const ExpFunction *const tables[] = {Get_FunctionArray(&count)};
            if (Parse_Expression_L(e, EXP_MASK_EXPRESSION | EXP_MASK_CONDITION, tables, 1) != 1)
                return;
            BindExpressionName_L(e, "customer", customer.get());
            SetExpressionResultType_L(e, declared);
            for (int row = 0; row < 2; ++row) // the second row reuses the result's block
                if (Solve_Expression_L(e) != 0) return;
            out = text_of(&e->result);
        });
        Free_Expression_L(e);
        return out;
    }
    // Declares F<n>($customer <parameter>) <result>, whose body returns `text`; its name
    // (each declaration gets a new one), or "" after a failure.
    std::string declare(const char *text, const char *parameter, const char *result) {
        const std::string name = "F" + std::to_string(++declared_);
        const std::string declaration = "FUNCTION " + name + "($customer" + parameter + ")" +
                                        result + " BEGIN RETURN " + with_variable(text) + " END";
        int32_t declared = 0;
        raised_by([&] { declared = Declare_Functions_L(declaration.c_str(), nullptr, 0); });
        return declared == 1 ? name : "";
    }
    int declared_ = 0;
    // `text` with the name customer read from the variable $customer.
    static std::string with_variable(const char *text) {
        std::string out = text;
        for (std::size_t at = out.find("customer"); at != std::string::npos;
             at = out.find("customer", at + 2))
            out.insert(at, "$");
        return out;
    }
};

TEST_F(TextLength, ExpressionsKeepTheWholeText) {
    for (const Case &c : kCases) EXPECT_EQ(solve(c.text), c.want) << c.text;
    EXPECT_THAT(messages(), ::testing::IsEmpty());
}

TEST_F(TextLength, ScriptReturnsKeepTheWholeText) {
    for (const Case &c : kCases) {
        const std::string text =
            std::string("$customer := '") + kCustomer + "'; RETURN " + with_variable(c.text);
        EXPECT_EQ(Script(text.c_str()).run(), c.want) << text;
    }
    EXPECT_THAT(messages(), ::testing::IsEmpty());
}

TEST_F(TextLength, FunctionResultsKeepTheWholeText) {
    // The parameter and the result: typed CHAR without a length, or untyped.
    const std::pair<const char *, const char *> forms[] = {{" CHAR", " RETURNS CHAR"}, {"", ""}};
    for (const auto &[parameter, result] : forms)
        for (const Case &c : kCases) {
            const std::string name = declare(c.text, parameter, result);
            ASSERT_FALSE(name.empty()) << c.text << ::testing::PrintToString(messages());
            const std::string call = name + "('" + kCustomer + "')";
            EXPECT_EQ(solve(call.c_str()), c.want) << c.text << parameter;
            EXPECT_EQ(Script(("RETURN " + call).c_str()).run(), c.want) << c.text << parameter;
        }
    EXPECT_THAT(messages(), ::testing::IsEmpty());
}

// A variable without a type takes the type of the first value a script gives it before that
// script runs; a longer text another script assigns it keeps all its characters.
TEST_F(TextLength, UntypedVariablesKeepTheWholeText) {
    VARIABLE_ARRAY_T *array = NewVariableArray_L("outer");
    PushVariableArray_L(array);
    ASSERT_NE(CreateVariable_L(array, "g", 0, 0, 0, nullptr), nullptr);
    Script first("$g := 'abc'; RETURN $g");
    ASSERT_EQ(Parse_Script_L(first.get(), nullptr, 0), 1);
    ASSERT_EQ(Validate_Script_L(first.get()), 1);
    EXPECT_EQ(Script("$g := Upper('abcdefgh'); RETURN $g").run(), "ABCDEFGH");
    EXPECT_EQ(first.run(), "abc");
    PopVariableArray_L(array);
    FreeVariableArray_L(array);
}

// A length the host or a declaration gives is the one that bounds the text (cut to it, as
// a conversion into that CHAR does); a text too large for a declared NUMBER fails.
TEST_F(TextLength, DeclaredResultTypesStillBound) {
    const QV_DATATYPE_T five{QV_TYPE_CHAR, 5, 0, 0}, number{QV_TYPE_NUMBER, 2, 0, 0};
    EXPECT_EQ(solve("IfNull(Upper(customer), '(unknown)')", &five), "ÍÑIGO");
    EXPECT_EQ(solve("If(1 = 1, '1234', 'x')", &number), "failed");
    const std::string name = declare("IfNull(Upper(customer), 'x')", " CHAR", " RETURNS CHAR(5)");
    EXPECT_EQ(solve((name + "('abcdefghijklmnop')").c_str()), "ABCDE");
    EXPECT_THAT(messages(),
                ::testing::ElementsAre(
                    "The value of the expression does not fit its result type NUMBER(2,0)."));
}

} // namespace
} // namespace qvtest
