// express_eval_operators_test.cpp - the operators against expectations computed here: every
// arithmetic operator and comparison over every pair of sample operands and every placement
// of NULL, each case evaluated three ways (operand types known at validation, so the
// routines for those types run; types unknown at validation, so the general rules run; and
// types other than those validated, so the chosen routines hand over to the general
// rules); three-valued logic in full; IS, LIKE, IN, BETWEEN; arrays.
//
// The reference: numbers and truth values as exact decimals (an unscaled integer and a
// scale, Boost's cpp_int), texts by their text form as the library prints it (written out
// in the sample table), doubles computed with the same double operations.
#include <cmath>
#include <optional>

#include "express_eval_support.hpp"
#include "qv/precise.h"
#include "types/reference.hpp"

namespace qvtest {
namespace {

struct Sample {
    uint32_t type;
    const char *text;                             // the value, as the maker below reads it
    const char *shown;                            // its text form
    std::optional<std::pair<int64_t, int>> exact; // unscaled value and scale, when a number
};

const Sample samples[] = {
    {QV_TYPE_INTEGER, "7", "7", {{7, 0}}},
    {QV_TYPE_INTEGER, "-3", "-3", {{-3, 0}}},
    {QV_TYPE_INTEGER, "0", "0", {{0, 0}}},
    {QV_TYPE_INTEGER, "9223372036854775807", "9223372036854775807", {{INT64_MAX, 0}}},
    {QV_TYPE_INTEGER, "-9223372036854775808", "-9223372036854775808", {{INT64_MIN, 0}}},
    {QV_TYPE_INTEGER, "-1", "-1", {{-1, 0}}},
    {QV_TYPE_FLOAT, "2.5", "2.5", {{25, 1}}},
    {QV_TYPE_FLOAT, "-0.25", "-0.25", {{-25, 2}}},
    {QV_TYPE_FLOAT, "0", "0", {{0, 0}}},
    {QV_TYPE_NUMBER, "12.34", "12.34", {{1234, 2}}},
    {QV_TYPE_NUMBER, "-0.05", "-0.05", {{-5, 2}}},
    {QV_TYPE_NUMBER, "0", "0", {{0, 2}}},
    {QV_TYPE_CHAR, "4", "4", {{4, 0}}},
    {QV_TYPE_CHAR, "x1", "x1", std::nullopt},
    {QV_TYPE_BOOLEAN, "TRUE", "TRUE", {{1, 0}}},
};

void make(QV_VALUE_T &value, const Sample &sample) {
    FreeValue_L(&value);
    switch (sample.type) {
        case QV_TYPE_INTEGER: SetIntegerValue_L(&value, std::stoll(sample.text)); break;
        case QV_TYPE_FLOAT: SetFloatValue_L(&value, std::stod(sample.text)); break;
        case QV_TYPE_NUMBER:
            NewPrecise_L(&value, 10, 2);
            ASSERT_EQ(StringToPrecise_L(&value, sample.text), 0);
            break;
        case QV_TYPE_CHAR: SetTextValue_L(&value, sample.text, nullptr); break;
        default: SetBooleanValue_L(&value, 1);
    }
}

// A NULL of the sample's type.
void make_null(QV_VALUE_T &value, const Sample &sample) {
    make(value, sample);
    FreeValue_L(&value);
}

// What an operation must leave.
struct Expected {
    uint32_t type = 0;
    bool null = false;
    int64_t integer = 0;
    double real = 0;
    cpp_int unscaled = 0; // NUMBER
    int scale = 0;
    bool truth = false;
};

Expected null_of(uint32_t type) {
    Expected e;
    e.type = type;
    e.null = true;
    return e;
}

double as_double(const Sample &s) {
    if (s.type == QV_TYPE_BOOLEAN) return 1;
    return std::stod(s.text);
}

// Exact a op b for a NUMBER on either side: + - at the larger scale, * truncated to it,
// / truncated to 16 decimals; division by zero NULL.
Expected exact(char op, const Sample &a, const Sample &b) {
    const auto [na, sa] = *a.exact;
    const auto [nb, sb] = *b.exact;
    const int sa_number = a.type == QV_TYPE_NUMBER ? 2 : sa,
              sb_number = b.type == QV_TYPE_NUMBER ? 2 : sb;
    const cpp_int x = cpp_int(na) * power_of_ten(sa_number - sa),
                  y = cpp_int(nb) * power_of_ten(sb_number - sb);
    Expected e;
    e.type = QV_TYPE_NUMBER;
    const int s = std::max(sa_number, sb_number);
    switch (op) {
        case '+':
            e.unscaled = x * power_of_ten(s - sa_number) + y * power_of_ten(s - sb_number);
            break;
        case '-':
            e.unscaled = x * power_of_ten(s - sa_number) - y * power_of_ten(s - sb_number);
            break;
        case '*': e.unscaled = x * y / power_of_ten(sa_number + sb_number - s); break;
        default:
            if (y == 0) return null_of(QV_TYPE_NUMBER);
            e.unscaled = x * power_of_ten(sb_number + 16) / (y * power_of_ten(sa_number));
            e.scale = 16;
            return e;
    }
    e.scale = s;
    return e;
}

// The 64-bit two's-complement value of an integer: its residue modulo 2^64.
int64_t wrapped(const cpp_int &value) {
    const cpp_int modulus = cpp_int(1) << 64;
    const cpp_int residue = ((value % modulus) + modulus) % modulus;
    return static_cast<int64_t>(static_cast<uint64_t>(residue));
}

Expected arithmetic(char op, const Sample &a, const Sample &b) {
    if (a.type == QV_TYPE_NUMBER || b.type == QV_TYPE_NUMBER) {
        if (!a.exact || !b.exact) return null_of(QV_TYPE_NUMBER);
        return exact(op, a, b);
    }
    Expected e;
    if (a.type == QV_TYPE_INTEGER && b.type == QV_TYPE_INTEGER) {
        const cpp_int x = a.exact->first, y = b.exact->first;
        e.type = QV_TYPE_INTEGER;
        switch (op) {
            case '+': e.integer = wrapped(x + y); return e;
            case '-': e.integer = wrapped(x - y); return e;
            case '*': e.integer = wrapped(x * y); return e;
            default:
                if (y == 0) return null_of(QV_TYPE_INTEGER);
                if (x % y == 0) {
                    e.integer = wrapped(x / y);
                    return e;
                }
                e.type = QV_TYPE_FLOAT;
                e.real = static_cast<double>(a.exact->first) / static_cast<double>(b.exact->first);
                return e;
        }
    }
    if (!a.exact || !b.exact) return null_of(QV_TYPE_FLOAT);
    const double x = as_double(a), y = as_double(b);
    e.type = QV_TYPE_FLOAT;
    switch (op) {
        case '+': e.real = x + y; return e;
        case '-': e.real = x - y; return e;
        case '*': e.real = x * y; return e;
        default:
            if (y == 0) return null_of(QV_TYPE_FLOAT);
            e.real = x / y;
            return e;
    }
}

// -1, 0, 1; nullopt when the pair does not compare.
std::optional<int> order(const Sample &a, const Sample &b) {
    if (a.type == QV_TYPE_CHAR || b.type == QV_TYPE_CHAR) {
        const int c = std::strcmp(a.shown, b.shown);
        return (c > 0) - (c < 0);
    }
    const auto [na, sa] = *a.exact;
    const auto [nb, sb] = *b.exact;
    const cpp_int x = cpp_int(na) * power_of_ten(sb), y = cpp_int(nb) * power_of_ten(sa);
    return (x > y) - (x < y);
}

Expected comparison(const char *op, const Sample &a, const Sample &b) {
    Expected e;
    e.type = QV_TYPE_BOOLEAN;
    const std::optional<int> c = order(a, b);
    if (!c) return null_of(QV_TYPE_BOOLEAN);
    const std::string o = op;
    e.truth = o == "="    ? *c == 0
              : o == "<>" ? *c != 0
              : o == "<"  ? *c < 0
              : o == ">"  ? *c > 0
              : o == "<=" ? *c <= 0
                          : *c >= 0;
    return e;
}

void expect_value(const QV_VALUE_T &got, const Expected &e, const std::string &what) {
    ASSERT_EQ(got.descriptor.type, e.type) << what;
    ASSERT_EQ(got.is_null != 0, e.null) << what;
    if (e.null) return;
    switch (e.type) {
        case QV_TYPE_INTEGER: EXPECT_EQ(got.payload.integer, e.integer) << what; break;
        case QV_TYPE_FLOAT: EXPECT_EQ(got.payload.real, e.real) << what; break;
        case QV_TYPE_BOOLEAN: EXPECT_EQ(got.payload.boolean != 0, e.truth) << what; break;
        default:
            EXPECT_EQ(got.descriptor.scale, e.scale) << what;
            EXPECT_EQ(to_cpp(got.payload.number), e.unscaled) << what;
    }
}

// How an operand's type is known when the expression is validated.
enum class Path { typed, untyped, mistyped };

// Evaluates `a op b` with the two values made by `fill` after validating as `path` says.
class Case {
  public:
    explicit Case(const std::string &op) : text_("a " + op + " b"), e_(text_.c_str()) {
        e_.bind("a", a_.get()).bind("b", b_.get());
        // Results of another type than the operator's: the value the operator left stays
        // where raw() reads it, apart from the result.
        const QV_DATATYPE_T text{QV_TYPE_CHAR, 0, 0, 0};
        SetExpressionResultType_L(e_.get(), &text);
    }
    template <class Fill>
    void run(Path path, Fill &&fill, const Expected &expected, const std::string &what) {
        FreeValue_L(a_.get());
        FreeValue_L(b_.get());
        a_->descriptor = b_->descriptor = {};
        if (path == Path::typed) fill(a_.value, b_.value);
        if (path == Path::mistyped) {
            SetValueType_L(a_.get(), QV_TYPE_FLOAT);
            SetValueType_L(b_.get(), QV_TYPE_FLOAT);
        }
        ASSERT_EQ(Validate_Expression_L(e_.get()), 1) << what;
        fill(a_.value, b_.value);
        ASSERT_EQ(Solve_Expression_L(e_.get()), 0) << what;
        expect_value(e_.raw(), expected,
                     what + " (" + text_ + ", path " + std::to_string(static_cast<int>(path)) +
                         ")");
    }

  private:
    std::string text_;
    Value a_, b_;
    Expression e_;
};

constexpr Path paths[] = {Path::typed, Path::untyped, Path::mistyped};

std::string label(const Sample &a, const Sample &b, const char *placement = "") {
    return std::string(a.text) + ":" + std::to_string(a.type) + " , " + b.text + ":" +
           std::to_string(b.type) + placement;
}

bool exact_pair(const Sample &a, const Sample &b) { // a FLOAT's digits decide a NUMBER's
    return !((a.type == QV_TYPE_FLOAT && b.type == QV_TYPE_NUMBER) ||
             (a.type == QV_TYPE_NUMBER && b.type == QV_TYPE_FLOAT));
}

using EvalOperators = EvalTest;

TEST_F(EvalOperators, ArithmeticOverEverySamplePair) {
    for (const char op : {'+', '-', '*', '/'}) {
        Case c(std::string(1, op));
        for (const Sample &a : samples)
            for (const Sample &b : samples) {
                if (!exact_pair(a, b)) continue;
                for (Path path : paths)
                    c.run(
                        path, [&](QV_VALUE_T &x, QV_VALUE_T &y) { make(x, a), make(y, b); },
                        arithmetic(op, a, b), label(a, b));
            }
    }
    EXPECT_THAT(messages(), ::testing::IsEmpty());
}

// NULL on either side or both: NULL typed as the left side when it is not NULL, else as the
// right side, else INTEGER (FLOAT for /).
TEST_F(EvalOperators, ArithmeticNullTyping) {
    std::vector<const Sample *> one_per_type; // the first sample of each type
    for (const Sample &s : samples)
        if (one_per_type.empty() || one_per_type.back()->type != s.type) one_per_type.push_back(&s);
    for (const char op : {'+', '-', '*', '/'}) {
        Case c(std::string(1, op));
        const uint32_t both_null = op == '/' ? QV_TYPE_FLOAT : QV_TYPE_INTEGER;
        for (const Sample *a : one_per_type)
            for (const Sample *b : one_per_type)
                for (Path path : paths) {
                    c.run(
                        path, [&](QV_VALUE_T &x, QV_VALUE_T &y) { make_null(x, *a), make(y, *b); },
                        null_of(b->type), label(*a, *b, " left NULL"));
                    c.run(
                        path, [&](QV_VALUE_T &x, QV_VALUE_T &y) { make(x, *a), make_null(y, *b); },
                        null_of(a->type), label(*a, *b, " right NULL"));
                    c.run(
                        path,
                        [&](QV_VALUE_T &x, QV_VALUE_T &y) { make_null(x, *a), make_null(y, *b); },
                        null_of(both_null), label(*a, *b, " both NULL"));
                }
    }
}

TEST_F(EvalOperators, ComparisonsOverEverySamplePair) {
    for (const char *op : {"=", "<>", "<", ">", "<=", ">="}) {
        Case c(op);
        for (const Sample &a : samples)
            for (const Sample &b : samples)
                for (Path path : paths) {
                    c.run(
                        path, [&](QV_VALUE_T &x, QV_VALUE_T &y) { make(x, a), make(y, b); },
                        comparison(op, a, b), label(a, b));
                    c.run(
                        path, [&](QV_VALUE_T &x, QV_VALUE_T &y) { make_null(x, a), make(y, b); },
                        null_of(QV_TYPE_BOOLEAN), label(a, b, " left NULL"));
                    c.run(
                        path, [&](QV_VALUE_T &x, QV_VALUE_T &y) { make(x, a), make_null(y, b); },
                        null_of(QV_TYPE_BOOLEAN), label(a, b, " right NULL"));
                }
    }
}

// What the comparisons do beyond numbers: texts by code point and case, dates, booleans of
// one family, a date against a number as doubles, and NaN, which orders with nothing.
TEST_F(EvalOperators, ComparisonsOfOtherTypes) {
    struct Row {
        const char *text;
        const char *expected;
    };
    const Row rows[] = {
        {"'abc' < 'abd'", "TRUE"},
        {"'B' < 'a'", "TRUE"},
        {"'a' = 'A'", "FALSE"},
        {"'é' > 'z'", "TRUE"},
        {"'10' < 9", "TRUE"},
        {"9 < '10'", "FALSE"},
        {"'2.5' = 2.5", "TRUE"},
        {"'TRUE' = TRUE", "TRUE"},
        {"TRUE > FALSE", "TRUE"},
        {"'2024-03-01' > '2024-02-29'", "TRUE"},
        {"'2024-03-01 10:00' = '2024-03-01 10:00:00'", "TRUE"},
        {"'2024-03-01' = 2460371", "TRUE"}, // a date's number is its Julian day
        {"12345678901234567890.5 > 12345678901234567890", "TRUE"},
        {"0.1 + 0.2 = 0.3", "FALSE"},
        {"1 = 1.0", "TRUE"},
        {"9007199254740993 > 9007199254740992", "TRUE"}, // exact, not as doubles
    };
    for (const Row &row : rows) EXPECT_EQ(Expression(row.text).solve(), row.expected) << row.text;
    Value nan;
    SetFloatValue_L(nan.get(), std::nan(""));
    for (const char *text : {"x = x", "x < 1", "x <> 1"})
        EXPECT_EQ(Expression(text).bind("x", nan.get()).solve(), "<null>") << text;
}

// Kleene's logic: FALSE < NULL < TRUE, AND the lower, OR the higher, NOT the mirror.
TEST_F(EvalOperators, ThreeValuedLogicInFull) {
    const char *literals[] = {"FALSE", "NULL", "TRUE"};
    const auto shown = [](int v) {
        return std::string(v == 0 ? "FALSE" : v == 1 ? "<null>" : "TRUE");
    };
    Value a, b;
    Expression bound_and("a AND b"), bound_or("a OR b"), bound_not("NOT a");
    bound_and.bind("a", a.get()).bind("b", b.get());
    bound_or.bind("a", a.get()).bind("b", b.get());
    bound_not.bind("a", a.get());
    const auto set = [](QV_VALUE_T *v, int truth) {
        SetBooleanValue_L(v, truth == 2);
        if (truth == 1) FreeValue_L(v);
    };
    for (int x = 0; x < 3; ++x) {
        set(a.get(), x);
        EXPECT_EQ(Expression(("NOT " + std::string(literals[x])).c_str()).solve(), shown(2 - x));
        EXPECT_EQ(bound_not.solve(), shown(2 - x));
        for (int y = 0; y < 3; ++y) {
            set(b.get(), y);
            const std::string l = literals[x], r = literals[y];
            EXPECT_EQ(Expression((l + " AND " + r).c_str()).solve(), shown(std::min(x, y)))
                << l << r;
            EXPECT_EQ(Expression((l + " OR " + r).c_str()).solve(), shown(std::max(x, y)))
                << l << r;
            EXPECT_EQ(bound_and.solve(), shown(std::min(x, y))) << l << r;
            EXPECT_EQ(bound_or.solve(), shown(std::max(x, y))) << l << r;
        }
    }
    // Other types read as truth values; one that does not read counts as NULL.
    EXPECT_EQ(Expression("1 AND 'yes'").solve(), "TRUE");
    EXPECT_EQ(Expression("0 OR 'no'").solve(), "FALSE");
    EXPECT_EQ(Expression("'maybe' OR FALSE").solve(), "<null>");
    EXPECT_EQ(Expression("NOT 2.5").solve(), "FALSE");
    // Both sides are always evaluated.
    ticks = 0;
    EXPECT_EQ(Expression("FALSE AND Tick()", eval_tables, 1).solve(), "FALSE");
    EXPECT_EQ(Expression("TRUE OR Tick()", eval_tables, 1).solve(), "TRUE");
    EXPECT_EQ(ticks, 2);
}

TEST_F(EvalOperators, IsLikeInBetween) {
    struct Row {
        const char *text;
        const char *expected;
    };
    const Row rows[] = {
        {"NULL IS NULL", "TRUE"},
        {"1 IS NULL", "FALSE"},
        {"NULL IS NOT NULL", "FALSE"},
        {"'' IS NOT NULL", "TRUE"},
        {"'Alice' LIKE 'A%'", "TRUE"},
        {"'alice' LIKE 'A%'", "FALSE"},
        {"'Alice' NOT LIKE 'A_ice'", "FALSE"},
        {"NULL LIKE 'A%'", "<null>"},
        {"'A' LIKE NULL", "TRUE"},
        {"'A' NOT LIKE NULL", "FALSE"},
        {"123 LIKE '1%3'", "TRUE"},
        {"'50%' LIKE '50\\%'", "TRUE"},
        {"2 IN (1, 2, 3)", "TRUE"},
        {"2 NOT IN (1, 2, 3)", "FALSE"},
        {"4 IN (1, NULL)", "FALSE"},
        {"NULL IN (1, NULL)", "<null>"},
        {"'b' IN ('a', 'b')", "TRUE"},
        {"2.0 IN (1, 2)", "TRUE"},
        {"'2' IN (2)", "TRUE"},
        {"-1 IN (-1)", "TRUE"},
        {"2 BETWEEN 1 AND 3", "TRUE"},
        {"1 BETWEEN 1 AND 1", "TRUE"},
        {"4 BETWEEN 1 AND 3", "FALSE"},
        {"4 NOT BETWEEN 1 AND 3", "TRUE"},
        {"NULL BETWEEN 1 AND 3", "<null>"},
        {"2 BETWEEN NULL AND 3", "<null>"},
        {"4 BETWEEN NULL AND 3", "FALSE"},
        {"0 BETWEEN 1 AND NULL", "FALSE"},
        {"2 NOT BETWEEN NULL AND 3", "<null>"},
        {"'b' BETWEEN 'a' AND 'c'", "TRUE"},
    };
    for (const Row &row : rows) EXPECT_EQ(Expression(row.text).solve(), row.expected) << row.text;
}

TEST_F(EvalOperators, UnaryMinus) {
    Value i, f, n, s, null_int;
    SetIntegerValue_L(i.get(), INT64_MIN);
    SetFloatValue_L(f.get(), 2.5);
    NewPrecise_L(n.get(), 10, 2);
    StringToPrecise_L(n.get(), "12.34");
    SetTextValue_L(s.get(), "abc", nullptr);
    SetValueType_L(null_int.get(), QV_TYPE_INTEGER);
    FreeValue_L(null_int.get());
    EXPECT_EQ(Expression("-i").bind("i", i.get()).solve(), "-9223372036854775808"); // wraps
    EXPECT_EQ(Expression("-f").bind("f", f.get()).solve(), "-2.5");
    EXPECT_EQ(Expression("-n").bind("n", n.get()).solve(), "-12.34");
    EXPECT_EQ(Expression("-s").bind("s", s.get()).solve(), "abc");
    Expression negated_null("-x");
    negated_null.bind("x", null_int.get());
    EXPECT_EQ(negated_null.solve(), "<null>");
    EXPECT_EQ(negated_null->result.descriptor.type, QV_TYPE_INTEGER);
    EXPECT_EQ(Expression("-(1 - 3) * 2").solve(), "4");
    EXPECT_EQ(Expression("--f").bind("f", f.get()).solve(), "2.5");
    EXPECT_EQ(n->payload.number.negative, 0) << "the bound value is never changed";
}

// The decided points: division by zero is NULL, INTEGER overflow wraps, exact quotients of
// integers stay INTEGER; the results the expression record gets.
TEST_F(EvalOperators, DecidedPointsAndResultTypes) {
    struct Row {
        const char *text;
        const char *expected;
        uint32_t type;
    };
    const Row rows[] = {
        {"NULL + 1", "<null>", QV_TYPE_INTEGER},
        {"NULL / NULL", "<null>", QV_TYPE_FLOAT},
        {"NULL + NULL", "<null>", QV_TYPE_INTEGER},
        {"7 / 2", "3.5", QV_TYPE_FLOAT},
        {"6 / 3", "2", QV_TYPE_INTEGER},
        {"1 / 0", "<null>", QV_TYPE_INTEGER},
        {"1.5 / 0", "<null>", QV_TYPE_FLOAT},
        {"1.5 / 0.0", "<null>", QV_TYPE_FLOAT},
        {"9223372036854775807 + 1", "-9223372036854775808", QV_TYPE_INTEGER},
        {"-9223372036854775807 - 2", "9223372036854775807", QV_TYPE_INTEGER},
        {"4611686018427387904 * 4", "0", QV_TYPE_INTEGER},
        {"12345678901234567890.25 / 0", "<null>", QV_TYPE_NUMBER},
        {"12345678901234567890.25 * 2", "24691357802469135780.5", QV_TYPE_NUMBER},
        {"'3' * '4'", "12", QV_TYPE_FLOAT},
        {"'a' * 2", "<null>", QV_TYPE_FLOAT},
        {"1 & 'a'", "(1, 'a')", QV_TYPE_ARRAY},
    };
    for (const Row &row : rows) {
        Expression e(row.text);
        EXPECT_EQ(e.solve(), row.expected) << row.text;
        EXPECT_EQ(e->result.descriptor.type, row.type) << row.text;
    }
    EXPECT_THAT(messages(), ::testing::IsEmpty());
}

TEST_F(EvalOperators, NumberOverflowFails) {
    const std::string big =
        "99999999999999999999999999999999999999999999999999999999999999999999999999999";
    Expression e((big + " * 10").c_str());
    expect_raise(GENERAL_ERROR, "express", [&] { Solve_Expression_L(e.get()); });
    EXPECT_EQ(e->result.is_null, 1);
    EXPECT_THAT(messages(),
                ::testing::ElementsAre(
                    "The result of * at position 78 does not fit a NUMBER of 77 digits."));
    EXPECT_EQ(e.solve(), "failed"); // no status context: reported, -1
}

TEST_F(EvalOperators, ArraysJoinElements) {
    struct Row {
        const char *text;
        const char *expected;
    };
    const Row rows[] = {
        {"1 & 'a'", "(1, 'a')"},      {"(1 & 2) & 3", "(1, 2, 3)"},
        {"1 & (2 & 3)", "(1, 2, 3)"}, {"(1 & 2) & ('x' & 'y')", "(1, 2, 'x', 'y')"},
        {"NULL & 1", "(NULL, 1)"},    {"1 & 2 + 3", "<null>"}, // (1 & 2) + 3: an array is no number
        {"Elements(1 & 2 & 3)", "3"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(Expression(row.text, eval_tables, 1).solve(), row.expected) << row.text;
    // The array's block is kept from one evaluation to the next; its elements are copies.
    Value name;
    SetTextValue_L(name.get(), "first", nullptr);
    Expression e("name & name");
    e.bind("name", name.get());
    EXPECT_EQ(e.solve(), "('first', 'first')");
    SetTextValue_L(name.get(), "second", nullptr);
    EXPECT_EQ(e.solve(), "('second', 'second')");
}

} // namespace
} // namespace qvtest
