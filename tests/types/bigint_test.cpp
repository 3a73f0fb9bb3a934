// The big-integer engine against Boost's cpp_int: signed arithmetic with its overflow
// limit at 2^256, division through every divisor path (one limb, two limbs, Knuth with
// the rare add-back), powers of ten, decimal text, doubles and square roots.
#include <cmath>
#include <vector>

#include "tests/types/reference.hpp"

namespace {

using namespace qvtest;
namespace big = qv::big;
using big::Int;

constexpr int kRounds = 4000;

TEST(BigInt, ArithmeticMatchesReference) {
    Generator random(1);
    for (int round = 0; round < kRounds; ++round) {
        cpp_int x = random.magnitude_of_limbs(random.uniform(0, 4));
        cpp_int y = random.magnitude_of_limbs(random.uniform(0, 4));
        if (random.uniform(0, 1)) x = -x;
        if (random.uniform(0, 1)) y = -y;
        const Int a = from_cpp(x), b = from_cpp(y);
        Int r;
        struct Case {
            const char *name;
            bool (*run)(Int &, const Int &, const Int &);
            cpp_int expected;
        } cases[] = {{"add", big::add, x + y},
                     {"subtract", big::subtract, x - y},
                     {"multiply", big::multiply, x * y}};
        for (const Case &c : cases) {
            bool fits = abs(c.expected) < limit_256();
            ASSERT_EQ(c.run(r, a, b), fits) << c.name << " " << x << " " << y;
            if (fits) {
                ASSERT_EQ(to_cpp(r), c.expected) << c.name << " " << x << " " << y;
            }
            if (fits) {
                ASSERT_EQ(r.used, (msb(abs(c.expected) | 1) / 64 + 1) * (c.expected != 0));
            }
        }
        if (y != 0) {
            big::divide(r, a, b);
            ASSERT_EQ(to_cpp(r), x / y) << x << " / " << y;
        }
        int order = x < y ? -1 : x > y ? 1 : 0;
        ASSERT_EQ(big::compare(a, b), order);
        ASSERT_EQ(big::compare_magnitude(a, b), abs(x) < abs(y) ? -1 : abs(x) > abs(y) ? 1 : 0);
    }
}

// Quotient and remainder of limb arrays of up to 8 limbs.
void check_divide(const std::vector<uint64_t> &a, const std::vector<uint64_t> &b) {
    auto value = [](const std::vector<uint64_t> &limbs) {
        cpp_int v = 0;
        for (size_t i = limbs.size(); i-- > 0;) v = (v << 64) | cpp_int(limbs[i]);
        return v;
    };
    uint64_t q[9] = {}, r[8] = {};
    big::limbs::divide(q, r, a.data(), static_cast<int>(a.size()), b.data(),
                       static_cast<int>(b.size()));
    std::vector<uint64_t> quotient(q, q + a.size() - b.size() + 1), remainder(r, r + b.size());
    ASSERT_EQ(value(quotient), value(a) / value(b)) << value(a) << " / " << value(b);
    ASSERT_EQ(value(remainder), value(a) % value(b)) << value(a) << " % " << value(b);
}

TEST(BigInt, DivisionPathsMatchReference) {
    Generator random(2);
    for (int round = 0; round < kRounds; ++round) {
        int nb = random.uniform(1, 8), na = random.uniform(nb, 8);
        std::vector<uint64_t> a(na), b(nb);
        for (auto &limb : a) limb = random.limb();
        for (auto &limb : b) limb = random.limb();
        if (b.back() == 0) b.back() = 1 + random.limb() % 7;
        check_divide(a, b);
        // Numerators whose top limbs equal the divisor's: the estimate is all ones.
        if (nb >= 2 && na > nb) {
            std::copy(b.end() - 2, b.end(), a.end() - 2);
            check_divide(a, b);
        }
    }
}

TEST(BigInt, PowersOfTenScaleBothWays) {
    Generator random(3);
    for (int round = 0; round < kRounds; ++round) {
        cpp_int x = random.value_of_digits(77);
        int k = random.uniform(0, 80);
        Int a = from_cpp(x);
        cpp_int up = x * power_of_ten(k);
        bool fits = abs(up) < limit_256();
        ASSERT_EQ(big::multiply_power(a, k), fits) << x << " * 10^" << k;
        if (fits) {
            ASSERT_EQ(to_cpp(a), up);
        }
        a = from_cpp(x);
        big::divide_power(a, k);
        ASSERT_EQ(to_cpp(a), x / power_of_ten(k)) << x << " / 10^" << k;
        ASSERT_EQ(big::fits_digits(from_cpp(x), std::min(k, 77)),
                  abs(x) < power_of_ten(std::min(k, 77)));
    }
    for (int k = 0; k <= big::kMaxPower; ++k) {
        EXPECT_EQ(to_cpp(from_cpp(power_of_ten(k))), power_of_ten(k));
        EXPECT_EQ(big::words16(from_cpp(power_of_ten(k))), (msb(power_of_ten(k)) + 16) / 16);
    }
}

TEST(BigInt, DecimalTextRoundTrips) {
    Generator random(4);
    char text[big::kMaxDigits + 1];
    for (int round = 0; round < kRounds; ++round) {
        cpp_int x = abs(random.magnitude_of_limbs(random.uniform(0, 4)));
        int length = big::magnitude_to_text(from_cpp(x), text);
        ASSERT_EQ(std::string(text, length), x.str());
        std::string padded = std::string(random.uniform(0, 5), '0') + x.str();
        Int back;
        ASSERT_TRUE(big::load_digits(back, padded.data(), static_cast<int>(padded.size()), true));
        ASSERT_EQ(to_cpp(back), -x);
    }
    // 2^256 - 1 is the largest magnitude; one more does not load.
    std::string top = cpp_int(limit_256() - 1).str(), over = limit_256().str();
    Int a;
    EXPECT_TRUE(big::load_digits(a, top.data(), static_cast<int>(top.size()), false));
    EXPECT_FALSE(big::load_digits(a, over.data(), static_cast<int>(over.size()), false));
    EXPECT_FALSE(big::load_digits(
        a, "100000000000000000000000000000000000000000000000000000000000000000000000000000000", 81,
        false));
}

TEST(BigInt, DoublesLoadTowardZeroAndConvertToTheNearest) {
    const double loads[] = {0.0,
                            -0.0,
                            0.99,
                            -1.5,
                            2.5,
                            1e19,
                            -1.8446744073709552e19,
                            1e77,
                            std::ldexp(1.0, 255),
                            std::ldexp(0x1FFFFFFFFFFFFFull, 203)};
    for (double d : loads) {
        Int a;
        ASSERT_TRUE(big::load_double(a, d)) << d;
        EXPECT_EQ(to_cpp(a), cpp_int(std::trunc(d))) << d;
    }
    Int a;
    EXPECT_FALSE(big::load_double(a, std::ldexp(1.0, 256)));
    EXPECT_FALSE(big::load_double(a, NAN));
    EXPECT_FALSE(big::load_double(a, -INFINITY));
    Generator random(5);
    for (int round = 0; round < kRounds; ++round) {
        cpp_int x = random.magnitude_of_limbs(random.uniform(0, 4));
        double d = big::to_double(from_cpp(x));
        // No double lies nearer: both neighbours are at least as far.
        cpp_int error = abs(x - cpp_int(d));
        ASSERT_LE(error, abs(x - cpp_int(std::nextafter(d, 0.0)))) << x;
        if (d < std::ldexp(1.0, 256)) {
            ASSERT_LE(error, abs(x - cpp_int(std::nextafter(d, INFINITY)))) << x;
        }
    }
}

TEST(BigInt, PowersAndSquareRoots) {
    Generator random(6);
    for (int round = 0; round < kRounds / 4; ++round) {
        cpp_int x = random.value_of_digits(random.uniform(1, 30));
        auto n = static_cast<uint32_t>(random.uniform(0, 12));
        cpp_int expected = boost::multiprecision::pow(x, n);
        Int r;
        bool fits = abs(expected) < limit_256();
        ASSERT_EQ(big::power(r, from_cpp(x), n), fits) << x << "^" << n;
        if (fits) {
            ASSERT_EQ(to_cpp(r), expected);
        }

        int limbs = random.uniform(1, 8);
        cpp_int wide = random.magnitude_of_limbs(limbs);
        uint64_t a[8] = {}, root[5] = {};
        for (int i = 0; i < limbs; ++i)
            a[i] = static_cast<uint64_t>(wide >> (64 * i) & cpp_int(~uint64_t{0}));
        big::square_root(root, a, limbs);
        cpp_int got = 0;
        for (int i = 4; i >= 0; --i) got = (got << 64) | cpp_int(root[i]);
        ASSERT_EQ(got, sqrt(wide)) << wide;
    }
    Int r;
    EXPECT_TRUE(big::power(r, from_cpp(-2), 255));
    EXPECT_EQ(to_cpp(r), -(cpp_int(1) << 255));
    EXPECT_FALSE(big::power(r, from_cpp(2), 256));
    EXPECT_TRUE(big::power(r, from_cpp(-1), 4000000000u));
    EXPECT_EQ(to_cpp(r), 1);
}

} // namespace
