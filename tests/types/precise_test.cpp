// Exact decimals: constructors, result types, and the four operations, comparison,
// truncation, conversion, power and square root checked against a model built on
// Boost's cpp_int that applies the scaling and truncation rules to the unscaled values;
// doubles and integers in and out.
#include <cmath>
#include <optional>

#include "tests/types/reference.hpp"
#include "types/precise.hpp"

namespace {

using namespace qvtest;

struct Type {
    int32_t p, s;
    bool operator==(const Type &) const = default;
};

Type type_of(const QV_PRECISE_T &r) {
    return {r.descriptor.precision, r.descriptor.scale};
}

// ---- the model ----------------------------------------------------------------------

Type result_type(Type a, Type b, char op) {
    int32_t s = std::max(a.s, b.s), i1 = a.p - a.s, i2 = b.p - b.s, i;
    if (s == 0 && op != '/') {
        if (a.p >= 20 || b.p >= 20) return {std::max(a.p, b.p), 0};
        int32_t p = op == '*' ? a.p + b.p : std::max(a.p, b.p) + (op == '+' || op == '-');
        return {std::min(p, 19), 0};
    }
    i = op == '*' ? i1 + i2 : op == '/' ? i1 + b.s : std::max(i1, i2) + (op == '+' || op == '-');
    if (op == '/') s = 16;
    i = std::min(i, 77);
    if (i + s > 77) s = 77 - i;
    return {i + s, s};
}

// Truncating toward zero; nullopt when an engine value passes 256 bits.
std::optional<cpp_int> engine(const cpp_int &v) {
    if (abs(v) >= limit_256()) return std::nullopt;
    return v;
}
std::optional<cpp_int> rescale(const cpp_int &v, int64_t shift) {
    if (shift >= 0)
        return engine(v * power_of_ten(static_cast<int>(std::min<int64_t>(shift, 400))));
    return v / power_of_ten(static_cast<int>(std::min<int64_t>(-shift, 400)));
}

int words(const cpp_int &v) {
    return v == 0 ? 0 : (static_cast<int>(msb(abs(v))) + 16) / 16;
}
// Divides by the least power of ten of at least `shed` 16-bit words.
void shed(cpp_int &v, int64_t &scale, int shed) {
    if (shed <= 0) return;
    int e = 0;
    while (power_of_ten(e) < cpp_int(1) << (16 * shed)) ++e;
    v /= power_of_ten(e);
    scale -= e;
}

// The unscaled result of `a op b` at type r, or nullopt when it fails.
std::optional<cpp_int> expected(const QV_PRECISE_T &a, const QV_PRECISE_T &b, char op, Type r) {
    cpp_int x = to_cpp(a.payload.number), y = to_cpp(b.payload.number), value;
    int64_t sx = a.descriptor.scale, sy = b.descriptor.scale, scale;
    switch (op) {
        case '+':
        case '-': {
            scale = std::max(sx, sy);
            auto xs = rescale(x, scale - sx), ys = rescale(y, scale - sy);
            if (!xs || !ys) return std::nullopt;
            auto sum = engine(op == '+' ? *xs + *ys : *xs - *ys);
            if (!sum) return std::nullopt;
            value = *sum;
            break;
        }
        case '*': {
            if (x == 0 || y == 0) return 0;
            int w1 = words(x), w2 = words(y);
            if (w1 + w2 >= 17) {
                int k1 = 16 * w1 / (w1 + w2), k2 = 16 * w2 / (w1 + w2);
                if (k1 == 0) k1 = 1, k2 = std::min(k2, 15); // each keeps at least a word
                if (k2 == 0) k2 = 1, k1 = std::min(k1, 15);
                shed(x, sx, w1 - k1);
                shed(y, sy, w2 - k2);
            }
            auto product = engine(x * y);
            if (!product) return std::nullopt;
            value = *product;
            scale = sx + sy;
            break;
        }
        default: {
            if (x == 0 || y == 0) return 0;
            int32_t p1 = a.descriptor.precision;
            int32_t k = std::max(0, std::min(77 - p1, r.p - p1 + 1));
            auto up = engine(x * power_of_ten(k));
            if (!up) return std::nullopt;
            value = *up / y;
            scale = sx + k - sy;
        }
    }
    auto result = rescale(value, r.s - scale);
    if (!result || abs(*result) >= power_of_ten(r.p)) return std::nullopt;
    return result;
}

// A random operand: NUMBER(p, s) holding up to p digits.
QV_PRECISE_T random_number(Generator &random) {
    int32_t p = random.uniform(0, 3) == 0 ? 77 : random.uniform(1, 77);
    int32_t s = random.uniform(0, 2) == 0 ? 0 : random.uniform(0, p);
    return number(p, s, random.value_of_digits(p));
}

// ---- constructors and result types --------------------------------------------------

TEST(Precise, ConstructorsKeepPrecisionAndScaleInRange) {
    const struct {
        int32_t p, s;
        Type made;
    } cases[] = {{0, 5, {77, 5}},   {78, 2, {77, 2}},   {5, 9, {5, 5}},
                 {10, -3, {10, 0}}, {-1, 80, {77, 77}}, {1, 0, {1, 0}}};
    for (const auto &c : cases) {
        QV_PRECISE_T r;
        std::memset(&r, 0xA5, sizeof r);
        ASSERT_EQ(NewPrecise_L(&r, c.p, c.s), 0);
        EXPECT_EQ(type_of(r), c.made) << c.p << "," << c.s;
        EXPECT_TRUE(IsZeroPrecise_L(&r));
        EXPECT_EQ(r.is_null, 0);
        EXPECT_EQ(r.descriptor.extra, 0u);
        EXPECT_EQ(r.eval_flags, 0xA5) << "the evaluator's fields are left alone";
    }
    QV_PRECISE_T r, a = number(10, 2, 0), b = number(5, 4, 0);
    NewMaxPrecise_L(&r);
    EXPECT_EQ(type_of(r), (Type{77, 0}));
    NewLargestPrecise_L(&r, &a, &b);
    EXPECT_EQ(type_of(r), (Type{12, 4}));
    EXPECT_EQ(NewPrecise_L(nullptr, 1, 1), -1);
    EXPECT_EQ(NewLargestPrecise_L(&r, &a, nullptr), -1);
}

TEST(Precise, ResultTypes) {
    const struct {
        Type a;
        char op;
        Type b, result;
    } cases[] = {
        {{10, 2}, '+', {5, 4}, {13, 4}},    {{10, 2}, '*', {5, 4}, {13, 4}},
        {{10, 2}, '/', {5, 4}, {28, 16}},   {{12, 0}, '*', {12, 0}, {19, 0}},
        {{25, 0}, '+', {3, 0}, {25, 0}},    {{5, 0}, '-', {3, 0}, {6, 0}},
        {{5, 0}, '/', {3, 0}, {21, 16}},    {{77, 0}, '+', {77, 77}, {77, 0}},
        {{70, 5}, '*', {70, 5}, {77, 0}},   {{19, 0}, '+', {19, 0}, {19, 0}},
        {{77, 77}, '/', {77, 77}, {77, 0}}, {{3, 2}, '%', {4, 1}, {5, 2}},
        {{3, 0}, '%', {4, 0}, {4, 0}},
    };
    for (const auto &c : cases) {
        QV_PRECISE_T a = number(c.a.p, c.a.s, 0), b = number(c.b.p, c.b.s, 0), r{};
        ASSERT_EQ(PreciseCalculate_L(&a, c.op, &b, &r, 0), 0);
        EXPECT_EQ(type_of(r), c.result) << c.a.p << "," << c.a.s << c.op << c.b.p << "," << c.b.s;
        EXPECT_EQ(result_type(c.a, c.b, c.op), c.result) << "the model agrees";
    }
}

// ---- arithmetic against the model ---------------------------------------------------

TEST(Precise, ArithmeticMatchesTheModel) {
    Generator random(11);
    const struct {
        char op;
        int32_t (*run)(QV_PRECISE_T *, const QV_PRECISE_T *, const QV_PRECISE_T *);
    } operations[] = {{'+', AddPrecise_L},
                      {'-', SubtractPrecise_L},
                      {'*', MultiplyPrecise_L},
                      {'/', DividePrecise_L}};
    int failures = 0;
    for (int round = 0; round < 6000; ++round) {
        QV_PRECISE_T a = random_number(random), b = random_number(random);
        for (const auto &operation : operations) {
            Type r = result_type(type_of(a), type_of(b), operation.op);
            std::optional<cpp_int> want = expected(a, b, operation.op, r);
            QV_PRECISE_T result;
            int32_t status = operation.run(&result, &a, &b);
            ASSERT_EQ(type_of(result), r);
            ASSERT_EQ(status, want ? 0 : -1) << text_of(a) << " " << operation.op << " "
                                             << text_of(b) << " = " << text_of(result);
            failures += !want;
            ASSERT_EQ(to_cpp(result.payload.number), want.value_or(0))
                << text_of(a) << " " << operation.op << " " << text_of(b);
            // The same through the value entry point, and with the result as an operand.
            QV_PRECISE_T through = a;
            ASSERT_EQ(PreciseCalculate_L(&through, operation.op, &b, &through, 1), status);
            ASSERT_EQ(to_cpp(through.payload.number), want.value_or(0));
        }
    }
    EXPECT_GT(failures, 100) << "overflow cases are part of the mix";
}

TEST(Precise, NearTheLimit) {
    const cpp_int nines = power_of_ten(77) - 1;
    QV_PRECISE_T max = number(77, 0, nines), one = number(77, 0, 1), r;
    EXPECT_EQ(AddPrecise_L(&r, &max, &one), -1) << "10^77 has 78 digits";
    EXPECT_EQ(SubtractPrecise_L(&r, &max, &one), 0);
    EXPECT_EQ(to_cpp(r.payload.number), nines - 1);
    QV_PRECISE_T minus = number(77, 0, -nines);
    EXPECT_EQ(SubtractPrecise_L(&r, &minus, &one), -1);
    EXPECT_EQ(AddPrecise_L(&r, &minus, &max), 0);
    EXPECT_TRUE(IsZeroPrecise_L(&r));
    EXPECT_EQ(r.payload.number.negative, 0);
    // Wide products shed digits instead of overflowing: 10^38 x 10^38 sheds 8 words each.
    QV_PRECISE_T wide = number(77, 38, power_of_ten(76));
    EXPECT_EQ(MultiplyPrecise_L(&r, &wide, &wide), 0);
    EXPECT_EQ(text_of(r), power_of_ten(76).str());
    QV_PRECISE_T seven = number(1, 0, 7);
    EXPECT_EQ(MultiplyPrecise_L(&r, &max, &seven), -1) << "a narrow factor keeps a word: overflow";
    QV_PRECISE_T tenth = number(77, 76, nines); // 9.99...9 times 7 fits with fewer decimals
    EXPECT_EQ(MultiplyPrecise_L(&r, &tenth, &seven), 0);
    EXPECT_EQ(text_of(r).substr(0, 12), "69.999999999");
    // A zero divisor gives zero.
    QV_PRECISE_T zero = number(5, 2, 0);
    EXPECT_EQ(DividePrecise_L(&r, &max, &zero), 0);
    EXPECT_TRUE(IsZeroPrecise_L(&r));
}

TEST(Precise, InvalidOperandsAreRefused) {
    QV_PRECISE_T good = number(5, 2, 100), r{};
    QV_PRECISE_T wide = good, scaled = good, untyped{};
    wide.descriptor.precision = 78;
    scaled.descriptor.scale = 6;
    for (const QV_PRECISE_T *bad : {&wide, &scaled, &untyped}) {
        EXPECT_EQ(AddPrecise_L(&r, &good, bad), -1);
        EXPECT_EQ(DividePrecise_L(&r, bad, &good), -1);
        EXPECT_EQ(PreciseCompare_L(bad, "<", &good), -2);
        EXPECT_EQ(ConvertPrecise_L(&r, bad), -1);
        EXPECT_EQ(PreciseToString_L(bad, nullptr), nullptr);
    }
    EXPECT_EQ(AddPrecise_L(nullptr, &good, &good), -1);
    EXPECT_EQ(PreciseCalculate_L(&good, '%', &good, &r, 1), -1);
    EXPECT_EQ(PreciseCompare_L(&good, "=<", &good), -2);
    // A damaged limb count is clamped, never followed out of the record.
    QV_PRECISE_T damaged = good;
    damaged.payload.number.used = 200;
    EXPECT_EQ(AddPrecise_L(&r, &damaged, &good), 0);
}

// ---- comparison, truncation, conversion ---------------------------------------------

TEST(Precise, CompareTruncateConvertMatchTheModel) {
    Generator random(12);
    for (int round = 0; round < 4000; ++round) {
        QV_PRECISE_T a = random_number(random), b = random_number(random);
        cpp_int x = to_cpp(a.payload.number), y = to_cpp(b.payload.number);
        int32_t sa = a.descriptor.scale, sb = b.descriptor.scale, s = std::max(sa, sb);
        cpp_int xs = x * power_of_ten(s - sa), ys = y * power_of_ten(s - sb);
        int order = xs < ys ? -1 : xs > ys ? 1 : 0;
        ASSERT_EQ(PreciseCompare_L(&a, nullptr, &b), order) << text_of(a) << " " << text_of(b);
        const struct {
            const char *op;
            bool holds;
        } relations[] = {{"==", order == 0}, {"!=", order != 0}, {"<", order < 0},
                         {">", order > 0},   {"<=", order <= 0}, {">=", order >= 0}};
        for (const auto &relation : relations)
            ASSERT_EQ(PreciseCompare_L(&a, relation.op, &b), relation.holds) << relation.op;

        int32_t places = random.uniform(0, 9) == 0 ? -100 : random.uniform(-3, sa + 2);
        QV_PRECISE_T t = a;
        ASSERT_EQ(TruncatePrecise_L(&t, places), 0);
        cpp_int unit = power_of_ten(std::max(0, sa - places));
        if (places < -77) unit = limit_256(); // beyond every value: zero
        ASSERT_EQ(to_cpp(t.payload.number), x / unit * unit);

        QV_PRECISE_T target = number(b.descriptor.precision, sb, 0);
        auto want = rescale(x, sb - sa);
        bool fits = want && abs(*want) < power_of_ten(b.descriptor.precision);
        ASSERT_EQ(ConvertPrecise_L(&target, &a), fits ? 0 : -1);
        ASSERT_EQ(to_cpp(target.payload.number), fits ? *want : 0);

        QV_PRECISE_T sum = b;
        auto total = rescale(x, sb - sa);
        bool adds = total && abs(*total + y) < power_of_ten(b.descriptor.precision);
        ASSERT_EQ(AddToPrecise_L(&sum, &a), adds ? 0 : -1);
        ASSERT_EQ(to_cpp(sum.payload.number), adds ? *total + y : y) << "unchanged on failure";
    }
}

TEST(Precise, SignOperations) {
    QV_PRECISE_T r = number(5, 2, -150);
    EXPECT_FALSE(IsPositivePrecise_L(&r));
    AbsPrecise_L(&r);
    EXPECT_EQ(text_of(r), "1.5");
    EXPECT_TRUE(IsPositivePrecise_L(&r));
    ReversePreciseSign_L(&r);
    EXPECT_EQ(text_of(r), "-1.5");
    ZeroPrecise_L(&r);
    ReversePreciseSign_L(&r);
    EXPECT_EQ(r.payload.number.negative, 0) << "zero has no sign";
    EXPECT_FALSE(IsPositivePrecise_L(&r));
}

// ---- power and square root ----------------------------------------------------------

TEST(Precise, PowerAndSquareRootMatchTheModel) {
    Generator random(13);
    for (int round = 0; round < 1500; ++round) {
        QV_PRECISE_T base = random_number(random);
        const cpp_int x = to_cpp(base.payload.number);
        const int32_t s = base.descriptor.scale;
        int32_t n = random.uniform(0, 6);
        QV_PRECISE_T r;
        cpp_int raw = boost::multiprecision::pow(x, static_cast<unsigned>(n));
        std::optional<cpp_int> want;
        if (abs(raw) < limit_256()) want = rescale(raw, -int64_t{n - 1} * s);
        if (want && abs(*want) >= power_of_ten(77)) want.reset();
        ASSERT_EQ(PowerPrecise_L(&r, &base, n), want ? 0 : -1) << text_of(base) << "^" << n;
        ASSERT_EQ(type_of(r), (Type{77, s}));
        ASSERT_EQ(to_cpp(r.payload.number), want.value_or(0));

        const int w = words(x);
        const Type root_type{77, (s + 77 - w) / 2 - 1};
        ASSERT_EQ(SqrtPrecise_L(&r, &base), x < 0 ? -1 : 0) << text_of(base);
        ASSERT_EQ(type_of(r), root_type);
        if (x > 0) {
            int32_t t = 77 - w - ((s + 77 - w) & 1);
            ASSERT_EQ(to_cpp(r.payload.number), sqrt(x * power_of_ten(t)) / 10) << text_of(base);
        }
    }
    QV_PRECISE_T two = number(1, 0, 2), r;
    ASSERT_EQ(SqrtPrecise_L(&r, &two), 0);
    EXPECT_EQ(text_of(r), "1.4142135623730950488016887242096980785") << "37 decimals";
    QV_PRECISE_T half = number(2, 1, 5);
    ASSERT_EQ(PowerPrecise_L(&r, &half, 3), 0);
    EXPECT_EQ(text_of(r), "0.1") << "0.125 truncated at the base's scale";
    EXPECT_EQ(PowerPrecise_L(&r, &half, -1), -1);
    ASSERT_EQ(PowerPrecise_L(&r, &half, 0), 0);
    EXPECT_EQ(text_of(r), "1");
}

// ---- doubles and integers -----------------------------------------------------------

TEST(Precise, DoublesRoundHalfAwayFromZero) {
    const struct {
        Type target; // precision 0: the double's own
        double value;
        const char *text;
        Type made;
    } cases[] = {
        {{5, 0}, 2.5, "3", {5, 0}},
        {{5, 0}, -2.5, "-3", {5, 0}},
        {{5, 0}, 2.4999, "2", {5, 0}},
        {{5, 2}, 0.125, "0.13", {5, 2}},
        {{5, 2}, -0.125, "-0.13", {5, 2}},
        {{5, 2}, 1.005, "1", {5, 2}},
        {{0, 0}, 123.45, "123.45", {5, 2}},
        {{0, 0}, 1e20, "100000000000000000000", {21, 0}},
        {{0, 0}, -0.001, "-0.001", {3, 3}},
        {{0, 0}, 0.1, "0.1", {1, 1}},
        {{9, 8}, 1.0 / 3, "0.33333333", {9, 8}},
        {{30, 0}, 9007199254740993.0, "9007199254740992", {30, 0}},
    };
    for (const auto &c : cases) {
        QV_PRECISE_T r{};
        if (c.target.p != 0) NewPrecise_L(&r, c.target.p, c.target.s);
        ASSERT_EQ(DoubleToPrecise_L(&r, c.value), 0) << c.value;
        EXPECT_EQ(text_of(r), c.text) << c.value;
        EXPECT_EQ(type_of(r), c.made) << c.value;
    }
    QV_PRECISE_T r = number(4, 2, 0);
    EXPECT_EQ(DoubleToPrecise_L(&r, 123.0), -1) << "three integer digits in NUMBER(4,2)";
    EXPECT_EQ(DoubleToPrecise_L(&r, NAN), -1);
    EXPECT_EQ(DoubleToPrecise_L(&r, INFINITY), -1);
    r = {};
    EXPECT_EQ(DoubleToPrecise_L(&r, 1e300), -1) << "301 digits";
    double back;
    QV_PRECISE_T third = parsed(20, 19, "0.3333333333333333333");
    ASSERT_EQ(PreciseToDouble_L(&third, &back), 0);
    EXPECT_DOUBLE_EQ(back, 1.0 / 3);
}

TEST(Precise, IntegersInAndOut) {
    QV_PRECISE_T r{};
    ASSERT_EQ(IntegerToPrecise_L(&r, INT64_MIN, 0), 0);
    EXPECT_EQ(type_of(r), (Type{19, 0}));
    EXPECT_EQ(text_of(r), "-9223372036854775808");
    int64_t out;
    ASSERT_EQ(PreciseToInteger_L(&r, &out), 0);
    EXPECT_EQ(out, INT64_MIN);
    r = number(10, 2, 0);
    ASSERT_EQ(IntegerToPrecise_L(&r, 12345, 3), 0);
    EXPECT_EQ(text_of(r), "12.34") << "12.345 truncated to two decimals";
    EXPECT_EQ(IntegerToPrecise_L(&r, 123456789, 0), -1) << "nine integer digits in NUMBER(10,2)";
    r = parsed(30, 3, "-98765.4321");
    ASSERT_EQ(PreciseToScaledInteger_L(&r, 2, &out), 0);
    EXPECT_EQ(out, -9876543);
    ASSERT_EQ(PreciseToInteger_L(&r, &out), 0);
    EXPECT_EQ(out, -98765);
    r = parsed(30, 0, "9223372036854775808");
    EXPECT_EQ(PreciseToInteger_L(&r, &out), -1);
    EXPECT_EQ(PreciseToScaledInteger_L(&r, -1, &out), 0);
    EXPECT_EQ(out, 922337203685477580);
}

// ---- operands of other types --------------------------------------------------------

TEST(Precise, OperandsOfOtherTypesAndResultTypes) {
    QV_VALUE_T integer{}, real{}, text{}, r{};
    SetDataType_L(&integer.descriptor, QV_TYPE_INTEGER, 0, 0);
    integer.payload.integer = 7;
    SetDataType_L(&real.descriptor, QV_TYPE_FLOAT, 0, 0);
    real.payload.real = 0.25;
    QV_PRECISE_T n = parsed(10, 2, "1.5");
    ASSERT_EQ(PreciseCalculate_L(&integer, '*', &n, &r, 1), 0);
    EXPECT_EQ(type_of(r), (Type{29, 2})) << "INTEGER reads as NUMBER(19,0)";
    EXPECT_EQ(text_of(r), "10.5");
    ASSERT_EQ(PreciseCalculate_L(&real, '+', &n, &r, 1), 0);
    EXPECT_EQ(text_of(r), "1.75");
    SetDataType_L(&text.descriptor, QV_TYPE_CHAR, 3, 0);
    char digits[] = "2.25";
    text.payload.string.text = digits;
    qv::install_value_to_number_converter(nullptr); // the values module installs one at load
    EXPECT_EQ(PreciseCalculate_L(&text, '+', &n, &r, 1), -1) << "no converter installed";
    qv::install_value_to_number_converter([](const QV_VALUE_T *source, QV_PRECISE_T *number) {
        return StringToPrecise_L(number, source->payload.string.text) == 0;
    });
    ASSERT_EQ(PreciseCalculate_L(&text, '+', &n, &r, 1), 0);
    EXPECT_EQ(text_of(r), "3.75");
    qv::install_value_to_number_converter(nullptr);

    // BestResultType_L: masks resolved, NULL flags cleared, NUMBER types from the rules.
    QV_VALUE_T left{}, right{};
    SetDataType_L(&left.descriptor, QV_TYPE_INTEGER, 0, 0);
    SetDataType_L(&right.descriptor, QV_TYPE_INTEGER | QV_TYPE_FLOAT, 0, 0);
    ASSERT_EQ(BestResultType_L(&r, &left, &right, '+'), 0);
    EXPECT_EQ(r.descriptor.type, QV_TYPE_FLOAT);
    EXPECT_EQ(right.descriptor.type, QV_TYPE_FLOAT) << "the mask is resolved in place";
    ASSERT_EQ(BestResultType_L(&r, &left, &left, '/'), 0);
    EXPECT_EQ(r.descriptor.type, QV_TYPE_FLOAT);
    ASSERT_EQ(BestResultType_L(&r, &left, &left, '*'), 0);
    EXPECT_EQ(r.descriptor.type, QV_TYPE_INTEGER);
    QV_PRECISE_T a = number(10, 2, 0), b = number(5, 4, 0);
    a.is_null = b.is_null = 1;
    ASSERT_EQ(BestResultType_L(&r, &a, &b, '/'), 0);
    EXPECT_EQ(type_of(r), (Type{28, 16}));
    EXPECT_EQ(a.is_null + b.is_null, 0);
}

} // namespace
