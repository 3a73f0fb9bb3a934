// The numeric built-ins: Abs, Band, Ceil, Floor, Sign, Mod, Rand, Round, Trunc and the
// mathematical functions, as call tables; the C library is the reference of the
// mathematical functions and of Rand's generator.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "builtin1_adapter.hpp"

namespace {

using namespace qvtest::builtin1;
using Numbers = qvtest::LanguageTest;

constexpr uint32_t INTEGER = QV_TYPE_INTEGER, FLOAT = QV_TYPE_FLOAT, NUMBER = QV_TYPE_NUMBER;

TEST_F(Numbers, AbsKeepsTheArgumentsTypeAndTheNegativeZeroRule) {
    check_all({
        {"Abs(-5)", integer(5)},
        {"Abs(9223372036854775807)", integer(INT64_MAX)},
        {"Abs(-9223372036854775807)", integer(INT64_MAX)},
        {"Abs(-9223372036854775808)", null_of(INTEGER)}, // no 64-bit absolute value
        {"Abs(-2.5)", real(2.5)},
        {"Abs(0.0)", real(-0.0)},     // every value not above zero is negated
        {"Abs(Abs(0.0))", real(0.0)}, // so -0.0 becomes 0.0
        {"Abs(ToDouble('-Infinity'))", real(INFINITY)},
        {"Abs(ToNumber('-12.345', 10, 3))", is(NUMBER, "12.345")},
        {"Abs(ToNumber('0', 10, 3))", is(NUMBER, "0")},
        {"Abs('-3')", real(3)}, // other types are read as FLOAT
        {"Abs(NULL)", null_of(FLOAT)},
    });
}

TEST_F(Numbers, BandCountsBandsFromMin) {
    check_all({
        {"Band(5, 10, 2)", null_of(INTEGER)},
        {"Band(10, 10, 2)", integer(0)},
        {"Band(13, 10, 2)", integer(1)},
        {"Band(13, 10, 0)", null_of(INTEGER)},
        {"Band(13, 10, -1)", null_of(INTEGER)},
        {"Band(12.9, 10, 0.5)", integer(5)},
        {"Band(-1, -10, 3)", integer(3)},
        {"Band(ToDouble('NaN'), 0, 1)", null_of(INTEGER)}, // passes both tests
        {"Band(ToDouble('1e308'), ToDouble('-1e308'), ToDouble('1e-300'))",
         null_of(INTEGER)}, // beyond 64 bits
        {"Band(ToNumber('25.5', 5, 1), 0, 10)", integer(2)},
        {"Band(NULL, 0, 1)", null_of(INTEGER)},
    });
}

TEST_F(Numbers, CeilAndFloorAreExactOnIntegersAndNumbers) {
    check_all({
        {"Ceil(1.2)", integer(2)},
        {"Ceil(-1.2)", integer(-1)},
        {"Floor(1.8)", integer(1)},
        {"Floor(-1.2)", integer(-2)},
        {"Ceil(5)", integer(5)},
        {"Floor(9007199254740993)", integer(9007199254740993)}, // a double would lose it
        {"Ceil(ToNumber('123456789012345678.5', 20, 1))", integer(123456789012345679)},
        {"Floor(ToNumber('123456789012345678.5', 20, 1))", integer(123456789012345678)},
        {"Ceil(ToNumber('-0.5', 5, 1))", integer(0)},
        {"Floor(ToNumber('-0.5', 5, 1))", integer(-1)},
        {"Floor(ToNumber('-7', 5, 0))", integer(-7)},
        {"Ceil(ToNumber('9223372036854775807.5', 20, 1))", null_of(INTEGER)},
        {"Floor(ToNumber('-9223372036854775808.5', 20, 1))", null_of(INTEGER)},
        {"Ceil(ToDouble('1e300'))", null_of(INTEGER)},
        {"Floor(ToDouble('NaN'))", null_of(INTEGER)},
        {"Floor(ToDouble('Infinity'))", null_of(INTEGER)},
        {"Ceil('2.5')", integer(3)},
        {"Floor(NULL)", null_of(INTEGER)},
    });
}

TEST_F(Numbers, SignAndMod) {
    check_all({
        {"Sign(-3)", integer(-1)},
        {"Sign(0)", integer(0)},
        {"Sign(2.5)", integer(1)},
        {"Sign(Abs(0.0))", integer(0)},
        {"Sign(ToNumber('-0.001', 5, 3))", integer(-1)},
        {"Sign(ToNumber('0', 5, 3))", integer(0)},
        {"Sign(ToDouble('NaN'))", null_of(INTEGER)},
        {"Mod(7, 0)", null_of(INTEGER)},
        {"Mod(-7, 2)", integer(-1)},
        {"Mod(7, -2)", integer(1)},
        {"Mod(7.9, 2)", integer(1)}, // both cut to integers
        {"Mod(ToNumber('17.5', 5, 1), 5)", integer(2)},
        {"Mod(-9223372036854775808, -1)", integer(0)},
        {"Mod(9223372036854775807, 10)", integer(7)},
        {"Mod(ToDouble('1e300'), 7)", null_of(INTEGER)}, // not a 64-bit integer
        {"Mod(NULL, 2)", null_of(INTEGER)},
        {"Mod(2, NULL)", null_of(INTEGER)},
    });
}

// The mathematical functions against the C library called the same way: errno cleared,
// NULL when it is set.
TEST_F(Numbers, MathematicalFunctionsFollowTheCLibraryAndItsErrno) {
    struct Function {
        const char *name;
        double (*f)(double);
        bool logarithm;
    };
    const Function functions[] = {
        {"Cos", [](double x) { return std::cos(x); }, false},
        {"Sin", [](double x) { return std::sin(x); }, false},
        {"Tan", [](double x) { return std::tan(x); }, false},
        {"Exp", [](double x) { return std::exp(x); }, false},
        {"Sqrt", [](double x) { return std::sqrt(x); }, false},
        {"Ln", [](double x) { return std::log(x); }, true},
        {"Log", [](double x) { return std::log10(x); }, true},
    };
    const char *arguments[] = {"0",   "0.5",   "-0.5", "1",    "2",     "3.25",    "-10",
                               "100", "0.001", "710",  "-746", "1e300", "-1e-300", "12345678"};
    std::vector<Case> cases;
    for (const Function &f : functions) {
        for (const char *argument : arguments) {
            const double x = std::strtod(argument, nullptr);
            errno = 0;
            const double y = f.f(x);
            const bool none = errno != 0 || (f.logarithm && !(x > 0));
            // Literals of many digits are written as text the way the language reads them.
            const std::string literal = std::strchr(argument, 'e') != nullptr
                                            ? std::string("ToDouble('") + argument + "')"
                                            : std::string(argument);
            cases.push_back(
                {std::string(f.name) + "(" + literal + ")", none ? null_of(FLOAT) : real(y)});
        }
    }
    check_all(cases);
    check_all({
        {"Sqrt(-1)", null_of(FLOAT)},
        {"Sqrt(ToDouble('NaN'))", real(NAN)}, // NaN in, NaN out, errno untouched
        {"Ln(0)", null_of(FLOAT)},
        {"Log(-1)", null_of(FLOAT)},
        {"Ln(ToDouble('NaN'))", null_of(FLOAT)},
        {"Exp(1000)", null_of(FLOAT)},
        {"Power(2, 10)", real(1024)},
        {"Power(2, 0.5)", real(std::pow(2, 0.5))},
        {"Power(ToNumber('1.5', 5, 1), 2)", real(2.25)},
        {"Power(0, -1)", null_of(FLOAT)},
        {"Power(-8, 0.5)", null_of(FLOAT)},
        {"Power(10, 400)", null_of(FLOAT)},
        {"Power(NULL, 2)", null_of(FLOAT)},
        {"Sqrt(ToNumber('2.25', 5, 2))", real(1.5)},
    });
}

// Round and Trunc on each type, with positive, zero and negative places.
TEST_F(Numbers, RoundAndTruncOnIntegers) {
    check_all({
        {"Round(1234, -2)", integer(1200)},
        {"Round(1250, -2)", integer(1300)},
        {"Round(-1250, -2)", integer(-1300)},
        {"Round(1249, -2)", integer(1200)},
        {"Round(1234, 2)", integer(1234)},
        {"Round(1234)", integer(1234)},
        {"Round(1234, NULL)", integer(1234)}, // NULL places count as omitted
        {"Round(5, -30)", integer(0)},
        {"Round(4000000000000000000, -19)", integer(0)},
        {"Round(9223372036854775807, -19)", null_of(INTEGER)}, // 10^19 passes 64 bits
        {"Round(9223372036854775807, -1)", null_of(INTEGER)},
        {"Round(-9223372036854775808, -1)", null_of(INTEGER)},
        {"Trunc(1299, -2)", integer(1200)},
        {"Trunc(-1299, -2)", integer(-1200)},
        {"Trunc(9223372036854775807, -18)", integer(9000000000000000000)},
        {"Trunc(-9223372036854775808, -30)", integer(0)},
        {"Trunc(77, 3)", integer(77)},
        {"Round(NULL, 2)", null_of(FLOAT)},
    });
}

TEST_F(Numbers, RoundAndTruncOnFloatsWorkOnThePrintedDigits) {
    check_all({
        {"Round(2.675, 2)", real(2.68)}, // 2.67499999... in binary, 2.675 printed
        {"Round(2.5)", real(3)},
        {"Round(-2.5)", real(-3)},
        {"Round(0.4)", real(0)},
        {"Round(-0.4)", real(0)}, // zero is +0
        {"Round(1234.5678, 1)", real(1234.6)},
        {"Round(1234.5678, -2)", real(1200)},
        {"Round(1250.5, -2)", real(1300)},
        {"Round(0.000123456, 5)", real(0.00012)},
        {"Round(ToDouble('1e300'), -299)", real(1e300)},
        {"Round(ToDouble('1e300'), -301)", real(0)},
        {"Round(ToDouble('1.5e-300'), 300)", real(2e-300)},
        {"Round(0.1, 20)", real(0.1)},
        {"Round(ToDouble('NaN'), 1)", real(NAN)},
        {"Round(ToDouble('-Infinity'), 1)", real(-INFINITY)},
        {"Trunc(2.675, 2)", real(2.67)},
        {"Trunc(-2.7)", real(-2)},
        {"Trunc(1234.5678, -2)", real(1200)},
        {"Trunc(ToDouble('28.999999999999996'))", real(29)}, // 0.29 * 100, printed as 29
        {"Trunc(123.456, 9223372036854775807)", real(123.456)},
        {"Trunc(123.456, -9223372036854775808)", real(0)},
        {"ToDouble(2.675, 2)", real(2.68)},
        {"ToDouble('12.5')", real(12.5)},
    });
}

TEST_F(Numbers, RoundAndTruncOnNumbers) {
    check_all({
        {"Round(ToNumber('1.2345', 10, 4), 2)", is(NUMBER, "1.23")},
        {"Round(ToNumber('1.235', 10, 3), 2)", is(NUMBER, "1.24")},
        {"Round(ToNumber('-1.235', 10, 3), 2)", is(NUMBER, "-1.24")},
        {"Round(ToNumber('-1.234', 10, 3), 2)", is(NUMBER, "-1.23")},
        {"Round(ToNumber('99.5', 3, 1))", is(NUMBER, "100")}, // the carry needs the extra digit
        {"Round(ToNumber('0.5', 1, 1))", is(NUMBER, "1")},
        {"Round(ToNumber('0.4', 1, 1))", is(NUMBER, "0")},
        {"Round(ToNumber('1234.5', 10, 1), -2)", is(NUMBER, "1200")},
        {"Round(ToNumber('1250', 10, 0), -2)", is(NUMBER, "1300")},
        {"Round(ToNumber('-1250', 10, 0), -2)", is(NUMBER, "-1300")},
        {"Round(ToNumber('1.5', 10, 1), 5)", is(NUMBER, "1.5")},
        {"Round(ToNumber('12345', 10, 0), -80)", is(NUMBER, "0")},
        {"Round(ToNumber('"
         "99999999999999999999999999999999999999999999999999999999999999999999999999999',"
         " 77, 0), -1)",
         null_of(NUMBER)}, // 10^77 has 78 digits
        {"Round(ToNumber('"
         "49999999999999999999999999999999999999999999999999999999999999999999999999999',"
         " 77, 0), -77)",
         is(NUMBER, "0")},
        {"Trunc(ToNumber('-1.239', 10, 3), 2)", is(NUMBER, "-1.23")},
        {"Trunc(ToNumber('1299', 10, 0), -2)", is(NUMBER, "1200")},
        {"Trunc(ToNumber('1.239', 10, 3))", is(NUMBER, "1")},
        {"Trunc(ToNumber('1.239', 10, 3), 7)", is(NUMBER, "1.239")},
    });
    // Types: Round gains a digit of precision for the carry, Trunc keeps the argument's.
    Outcome rounded = evaluate("Round(ToNumber('1.2345', 10, 4), 2)");
    EXPECT_EQ(rounded.value().descriptor.precision, 11);
    EXPECT_EQ(rounded.value().descriptor.scale, 4);
    Outcome cut = evaluate("Trunc(ToNumber('1.2345', 10, 4), 2)");
    EXPECT_EQ(cut.value().descriptor.precision, 10);
    EXPECT_EQ(cut.value().descriptor.scale, 4);
    EXPECT_EQ(evaluate("Round(ToNumber('1', 77, 0))").value().descriptor.precision, 77);
}

// Rand against a model of its algorithm over the C library's generator.
TEST_F(Numbers, RandDrawsStepsOfTheGrainFromTheCGenerator) {
    auto model = [](double low, double high, double grain) {
        double r = 0;
        do {
            r = std::rand() / static_cast<double>(RAND_MAX);
        } while (r >= 1.0);
        return low + std::trunc((std::trunc((high - low) / grain) + 1) * r) * grain;
    };
    std::srand(42);
    std::vector<double> expected;
    for (int i = 0; i < 5; ++i) expected.push_back(model(1, 10, 1));
    check({"Rand(1, 10, 1, 42)", real(expected[0])});
    for (int i = 1; i < 5; ++i) check({"Rand(1, 10, 1)", real(expected[i])});
    std::srand(7);
    const double quarter = model(0, 1, 0.25);
    check({"Rand(0, 1, 0.25, 7)", real(quarter)});

    std::set<double> seen;
    for (int i = 0; i < 2000; ++i) {
        Outcome draw = evaluate("Rand(1, 10, 1)");
        const double x = draw.value().payload.real;
        ASSERT_FALSE(draw.value().is_null);
        ASSERT_TRUE(x >= 1 && x <= 10 && x == std::trunc(x)) << x;
        seen.insert(x);
    }
    EXPECT_EQ(seen.size(), 10u) << "every step is reached";
    check_all({
        {"Rand(1, 1, 1)", null_of(FLOAT)},
        {"Rand(1, 10, 0)", null_of(FLOAT)},
        {"Rand(1, 10, -1)", null_of(FLOAT)},
        {"Rand(10, 1, 1)", null_of(FLOAT)},
        {"Rand(NULL, 10, 1)", null_of(FLOAT)},
    });
    // The same seed repeats the sequence; a NULL seed seeds nothing.
    Outcome first = evaluate("Rand(1, 1000000, 1, 123)");
    Outcome again = evaluate("Rand(1, 1000000, 1, 123)");
    EXPECT_EQ(first.value().payload.real, again.value().payload.real);
    std::srand(5);
    const double unseeded = model(1, 1000000, 1);
    std::srand(5);
    check({"Rand(1, 1000000, 1, NULL)", real(unseeded)});
}

} // namespace
