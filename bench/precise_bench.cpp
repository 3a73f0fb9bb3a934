// precise_bench.cpp - exact decimals beside three peers doing the same exact work on the
// same operands: GMP's mpz and Boost's int256_t as scaled integers (the scale kept by the
// benchmark, rescaling by tabled powers of ten exactly as the library's rules ask), and
// Boost's cpp_dec_float_100 (results truncated to the library's result scale).
//
// Shapes: NUMBER(18,4), NUMBER(38,10), NUMBER(77,20), operands of full width (multiply and
// divide at 77 digits take 38-digit right operands, multiply 38-digit left ones too, so the
// result fits). Operations: add at one scale and with alignment (the right operand at a
// smaller scale), subtract, multiply, divide, compare, to text, from text. Each loop walks 256
// operand pairs. The library also checks every result against its precision; the peers do
// not.
#include <benchmark/benchmark.h>

#include <boost/multiprecision/cpp_dec_float.hpp>
#include <boost/multiprecision/cpp_int.hpp>
#include <cstring>
#include <functional>
#include <gmp.h>
#include <random>
#include <string>
#include <vector>

#include "qv/precise.h"

namespace {

namespace mp = boost::multiprecision;
using Decimal = mp::cpp_dec_float_100;
using mp::int256_t;

constexpr int kPairs = 256;

// ---- shapes, operands and the work each operation asks --------------------------------

struct Shape {
    int p, s;
    const char *name;
};
constexpr Shape kShapes[] = {{18, 4, "18_4"}, {38, 10, "38_10"}, {77, 20, "77_20"}};

enum class Op { kAdd, kAddAligned, kSubtract, kMultiply, kDivide, kCompare, kToText, kFromText };
constexpr struct {
    Op op;
    const char *name;
} kOps[] = {{Op::kAdd, "add"},           {Op::kAddAligned, "add_aligned"},
            {Op::kSubtract, "subtract"}, {Op::kMultiply, "multiply"},
            {Op::kDivide, "divide"},     {Op::kCompare, "compare"},
            {Op::kToText, "to_text"},    {Op::kFromText, "from_text"}};

// A decimal text of `integer` digits (the first nonzero) and `decimals` digits.
std::string random_text(std::mt19937 &random, int integer, int decimals, bool negative) {
    std::string text = negative ? "-" : "";
    for (int i = 0; i < integer; ++i)
        text += static_cast<char>('0' + (i == 0 ? 1 + random() % 9 : random() % 10));
    if (integer == 0) text += '0';
    if (decimals > 0) text += '.';
    for (int i = 0; i < decimals; ++i) text += static_cast<char>('0' + random() % 10);
    return text;
}

// The operands of one benchmark and the scaling of its exact work.
struct Case {
    Shape shape;
    Op op;
    int scale_a, scale_b;          // the operands' scales
    std::vector<std::string> a, b; // texts
    int shift_a = 0, shift_b = 0;  // powers of ten the operands are scaled up by
    int final_shift = 0;           // then the result (negative: divided)
    int result_scale = 0;
};

Case make_case(Shape shape, Op op) {
    std::mt19937 random(static_cast<unsigned>(shape.p * 100 + static_cast<int>(op)));
    Case c{shape, op, shape.s, shape.s, {}, {}};
    int integer_a = shape.p - shape.s, integer_b = integer_a;
    int decimals_b = shape.s;
    if (op == Op::kAddAligned) decimals_b = c.scale_b = shape.s - std::min(5, shape.s / 2);
    if ((op == Op::kMultiply || op == Op::kDivide) && shape.p == 77) integer_b = 18;
    if (op == Op::kMultiply && shape.p == 77) integer_a = 18;
    for (int i = 0; i < kPairs; ++i) {
        c.a.push_back(random_text(random, integer_a, shape.s, random() % 2));
        c.b.push_back(random_text(random, integer_b, decimals_b, random() % 2));
    }
    // The result type from the library's own rule, and the exact work it implies.
    QV_PRECISE_T a, b, r;
    NewPrecise_L(&a, shape.p, c.scale_a);
    NewPrecise_L(&b, shape.p, c.scale_b);
    char symbol = op == Op::kMultiply   ? '*'
                  : op == Op::kDivide   ? '/'
                  : op == Op::kSubtract ? '-'
                                        : '+';
    PreciseCalculate_L(&a, symbol, &b, &r, 0);
    const int rs = c.result_scale = r.descriptor.scale, s = std::max(c.scale_a, c.scale_b);
    switch (op) {
        case Op::kMultiply: c.final_shift = rs - c.scale_a - c.scale_b; break;
        case Op::kDivide:
            c.shift_a = std::max(0, std::min(77 - shape.p, r.descriptor.precision - shape.p + 1));
            c.final_shift = rs - (c.scale_a + c.shift_a - c.scale_b);
            break;
        default: c.shift_b = s - c.scale_b; c.final_shift = rs - s;
    }
    return c;
}

std::string digits_of(const std::string &text) {
    std::string digits;
    for (char ch : text)
        if (ch != '.') digits += ch;
    return digits;
}

// Places the point s digits from the right of a digit text and drops trailing decimal
// zeros: the text the library prints.
size_t place_point(const char *digits, bool negative, int s, char *out) {
    size_t n = std::strlen(digits), at = 0;
    if (negative) out[at++] = '-';
    if (static_cast<int>(n) <= s) {
        out[at++] = '0';
        out[at++] = '.';
        for (int i = static_cast<int>(n); i < s; ++i) out[at++] = '0';
        std::memcpy(out + at, digits, n);
        at += n;
    } else {
        std::memcpy(out + at, digits, n - s);
        at += n - s;
        if (s > 0) out[at++] = '.';
        std::memcpy(out + at, digits + n - s, s);
        at += s;
    }
    if (s > 0) {
        while (out[at - 1] == '0') --at;
        if (out[at - 1] == '.') --at;
    }
    out[at] = '\0';
    return at;
}

// ---- the library ------------------------------------------------------------------------

void run_library(benchmark::State &state, const Case &c) {
    std::vector<QV_PRECISE_T> a(kPairs), b(kPairs);
    for (int i = 0; i < kPairs; ++i) {
        NewPrecise_L(&a[i], c.shape.p, c.scale_a);
        NewPrecise_L(&b[i], c.shape.p, c.scale_b);
        StringToPrecise_L(&a[i], c.a[i].c_str());
        StringToPrecise_L(&b[i], c.b[i].c_str());
    }
    QV_PRECISE_T r;
    char text[128];
    int i = 0;
    for (auto _ : state) {
        const QV_PRECISE_T &x = a[i], &y = b[i];
        int32_t status = 0;
        switch (c.op) {
            case Op::kAdd:
            case Op::kAddAligned: status = AddPrecise_L(&r, &x, &y); break;
            case Op::kSubtract: status = SubtractPrecise_L(&r, &x, &y); break;
            case Op::kMultiply: status = MultiplyPrecise_L(&r, &x, &y); break;
            case Op::kDivide: status = DividePrecise_L(&r, &x, &y); break;
            case Op::kCompare: status = PreciseCompare_L(&x, nullptr, &y); break;
            case Op::kToText:
                status = PreciseToSizedString_L(&x, text, sizeof text, nullptr);
                break;
            case Op::kFromText:
                r.descriptor = x.descriptor;
                status = StringToPrecise_L(&r, c.a[i].c_str());
        }
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(text);
        i = (i + 1) & (kPairs - 1);
    }
}

// ---- GMP --------------------------------------------------------------------------------

struct Mpz {
    mpz_t value;
    Mpz() { mpz_init(value); }
    Mpz(const Mpz &) = delete;
    Mpz &operator=(const Mpz &) = delete;
    ~Mpz() { mpz_clear(value); }
};

void run_gmp(benchmark::State &state, const Case &c) {
    std::vector<Mpz> a(kPairs), b(kPairs), powers(80);
    for (int i = 0; i < kPairs; ++i) {
        mpz_set_str(a[i].value, digits_of(c.a[i]).c_str(), 10);
        mpz_set_str(b[i].value, digits_of(c.b[i]).c_str(), 10);
    }
    for (int k = 0; k < 80; ++k) mpz_ui_pow_ui(powers[k].value, 10, k);
    Mpz r, t;
    char text[128], out[128];
    std::string digits;
    int i = 0;
    for (auto _ : state) {
        mpz_srcptr x = a[i].value, y = b[i].value;
        int result = 0;
        switch (c.op) {
            case Op::kAdd:
            case Op::kAddAligned:
            case Op::kSubtract:
                if (c.shift_b != 0) {
                    mpz_mul(t.value, y, powers[c.shift_b].value);
                    y = t.value;
                }
                (c.op == Op::kSubtract ? mpz_sub : mpz_add)(r.value, x, y);
                if (c.final_shift < 0) mpz_tdiv_q(r.value, r.value, powers[-c.final_shift].value);
                break;
            case Op::kMultiply:
                mpz_mul(r.value, x, y);
                if (c.final_shift < 0) mpz_tdiv_q(r.value, r.value, powers[-c.final_shift].value);
                break;
            case Op::kDivide:
                mpz_mul(t.value, x, powers[c.shift_a].value);
                mpz_tdiv_q(r.value, t.value, y);
                if (c.final_shift < 0) mpz_tdiv_q(r.value, r.value, powers[-c.final_shift].value);
                if (c.final_shift > 0) mpz_mul(r.value, r.value, powers[c.final_shift].value);
                break;
            case Op::kCompare: result = mpz_cmp(x, y); break;
            case Op::kToText:
                mpz_get_str(text, 10, x);
                result = static_cast<int>(
                    place_point(text + (text[0] == '-'), text[0] == '-', c.scale_a, out));
                break;
            case Op::kFromText: {
                const std::string &in = c.a[i];
                size_t n = 0;
                for (char ch : in)
                    if (ch != '.') text[n++] = ch;
                text[n] = '\0';
                result = mpz_set_str(r.value, text, 10);
            }
        }
        benchmark::DoNotOptimize(result);
        benchmark::DoNotOptimize(r.value);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kPairs - 1);
    }
}

// ---- Boost int256_t -----------------------------------------------------------------------

void run_int256(benchmark::State &state, const Case &c) {
    std::vector<int256_t> a(kPairs), b(kPairs), powers(78);
    for (int i = 0; i < kPairs; ++i) {
        a[i] = int256_t(digits_of(c.a[i]));
        b[i] = int256_t(digits_of(c.b[i]));
    }
    powers[0] = 1;
    for (int k = 1; k < 78; ++k) powers[k] = powers[k - 1] * 10;
    int256_t r;
    char out[128];
    int i = 0;
    for (auto _ : state) {
        const int256_t &x = a[i], &y = b[i];
        int result = 0;
        switch (c.op) {
            case Op::kAdd:
            case Op::kAddAligned:
            case Op::kSubtract: {
                int256_t right = c.shift_b != 0 ? int256_t(y * powers[c.shift_b]) : y;
                r = c.op == Op::kSubtract ? int256_t(x - right) : int256_t(x + right);
                if (c.final_shift < 0) r /= powers[-c.final_shift];
                break;
            }
            case Op::kMultiply:
                r = x * y;
                if (c.final_shift < 0) r /= powers[-c.final_shift];
                break;
            case Op::kDivide:
                r = x * powers[c.shift_a] / y;
                if (c.final_shift < 0) r /= powers[-c.final_shift];
                if (c.final_shift > 0) r *= powers[c.final_shift];
                break;
            case Op::kCompare: result = x.compare(y); break;
            case Op::kToText: {
                std::string digits = x.str();
                bool negative = digits[0] == '-';
                result = static_cast<int>(
                    place_point(digits.c_str() + negative, negative, c.scale_a, out));
                break;
            }
            case Op::kFromText: r = int256_t(digits_of(c.a[i]));
        }
        benchmark::DoNotOptimize(result);
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kPairs - 1);
    }
}

// ---- Boost cpp_dec_float_100 --------------------------------------------------------------

void run_decimal(benchmark::State &state, const Case &c) {
    std::vector<Decimal> a(kPairs), b(kPairs);
    for (int i = 0; i < kPairs; ++i) {
        a[i] = Decimal(c.a[i]);
        b[i] = Decimal(c.b[i]);
    }
    const Decimal unit = mp::pow(Decimal(10), c.result_scale);
    auto truncated = [&](const Decimal &value) { return Decimal(mp::trunc(value * unit) / unit); };
    const bool truncate = c.op == Op::kMultiply || c.op == Op::kDivide || c.final_shift < 0;
    Decimal r;
    std::string text;
    int i = 0;
    for (auto _ : state) {
        const Decimal &x = a[i], &y = b[i];
        int result = 0;
        switch (c.op) {
            case Op::kAdd:
            case Op::kAddAligned: r = x + y; break;
            case Op::kSubtract: r = x - y; break;
            case Op::kMultiply: r = x * y; break;
            case Op::kDivide: r = x / y; break;
            case Op::kCompare: result = x.compare(y); break;
            case Op::kToText: {
                text = x.str(c.scale_a, std::ios_base::fixed);
                while (text.back() == '0') text.pop_back();
                if (text.back() == '.') text.pop_back();
                break;
            }
            case Op::kFromText: r = Decimal(c.a[i]);
        }
        if (truncate) r = truncated(r);
        benchmark::DoNotOptimize(result);
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(text);
        i = (i + 1) & (kPairs - 1);
    }
}

// ---- registration -------------------------------------------------------------------------

const struct {
    const char *name;
    void (*run)(benchmark::State &, const Case &);
} kPeers[] = {{"library", run_library},
              {"gmp_mpz", run_gmp},
              {"boost_int256", run_int256},
              {"boost_dec100", run_decimal}};

bool registered = [] {
    static std::vector<Case> cases;
    cases.reserve(std::size(kShapes) * std::size(kOps));
    for (const Shape &shape : kShapes)
        for (const auto &op : kOps) cases.push_back(make_case(shape, op.op));
    for (const Case &c : cases) {
        const char *op_name = "";
        for (const auto &op : kOps)
            if (op.op == c.op) op_name = op.name;
        for (const auto &peer : kPeers) {
            std::string name = std::string(op_name) + "/" + c.shape.name + "/" + peer.name;
            benchmark::RegisterBenchmark(
                name.c_str(), [&c, run = peer.run](benchmark::State &state) { run(state, c); });
        }
    }
    return true;
}();

} // namespace

BENCHMARK_MAIN();
