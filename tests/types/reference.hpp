// reference.hpp - what the type suites share: Boost's cpp_int as the exact reference for
// the engine and for exact decimals, generators of operands, and records built from text.
#pragma once

#include <gtest/gtest.h>

// GCC 12 warns falsely about cpp_int's inline limb storage wherever a value is built.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <boost/multiprecision/cpp_int.hpp>
#include <cstdlib>
#include <random>
#include <string>

#include "qv/precise.h"
#include "types/bigint.hpp"

namespace qvtest {

// Without expression templates, so results mix freely in ?: and auto.
using cpp_int = boost::multiprecision::number<boost::multiprecision::cpp_int_backend<>,
                                              boost::multiprecision::et_off>;

inline cpp_int power_of_ten(int k) {
    return boost::multiprecision::pow(cpp_int(10), static_cast<unsigned>(k));
}

inline const cpp_int &limit_256() {
    static const cpp_int limit = cpp_int(1) << 256;
    return limit;
}

inline cpp_int to_cpp(const QV_ACCUMULATOR_T &a) {
    cpp_int value = 0;
    for (int i = 3; i >= 0; --i) value = (value << 64) | cpp_int(a.limb[i]);
    return a.negative ? cpp_int(-value) : value;
}

// The accumulator of a value below 2^256 in magnitude.
inline QV_ACCUMULATOR_T from_cpp(const cpp_int &value) {
    QV_ACCUMULATOR_T a{};
    cpp_int magnitude = abs(value);
    for (int i = 0; i < 4; ++i) {
        a.limb[i] = static_cast<uint64_t>(magnitude & cpp_int(~uint64_t{0}));
        magnitude >>= 64;
    }
    a.negative = value < 0;
    qv::big::settle(a);
    return a;
}

// An exact decimal holding the unscaled value n at NUMBER(p, s) (n need not fit p).
inline QV_PRECISE_T number(int32_t p, int32_t s, const cpp_int &n) {
    QV_PRECISE_T record;
    NewPrecise_L(&record, p, s);
    record.payload.number = from_cpp(n);
    return record;
}

// NUMBER(p, s) read from text through the library.
inline QV_PRECISE_T parsed(int32_t p, int32_t s, const char *text) {
    QV_PRECISE_T record;
    NewPrecise_L(&record, p, s);
    EXPECT_EQ(StringToPrecise_L(&record, text), 0) << text;
    return record;
}

// The text of a record (the library's formatting), "<invalid>" when it gives none.
inline std::string text_of(const QV_PRECISE_T &record) {
    char *text = PreciseToString_L(&record, nullptr);
    std::string result = text != nullptr ? text : "<invalid>";
    std::free(text);
    return result;
}

// Generators of operands: magnitudes of a random digit count (biased to the extremes:
// 0, 1, all nines, a power of ten), random signs.
class Generator {
  public:
    explicit Generator(uint32_t seed) : engine_(seed) {}

    int uniform(int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(engine_);
    }
    uint64_t limb() {
        switch (uniform(0, 5)) {
            case 0: return 0;
            case 1: return ~uint64_t{0};
            case 2: return uint64_t{1} << 63;
            case 3: return static_cast<uint64_t>(uniform(0, 3));
            default: return std::uniform_int_distribution<uint64_t>()(engine_);
        }
    }
    // A magnitude of `limbs` limbs with edge values mixed in.
    cpp_int magnitude_of_limbs(int limbs) {
        cpp_int value = 0;
        for (int i = 0; i < limbs; ++i) value = (value << 64) | cpp_int(limb());
        return value;
    }
    // A value of at most `digits` digits.
    cpp_int value_of_digits(int digits) {
        cpp_int value;
        switch (uniform(0, 9)) {
            case 0: value = 0; break;
            case 1: value = power_of_ten(digits) - 1; break;
            case 2: value = power_of_ten(uniform(0, digits - 1)); break;
            case 3: value = uniform(1, 9); break;
            default: {
                int count = uniform(1, digits);
                std::string text;
                for (int i = 0; i < count; ++i) text += static_cast<char>('0' + uniform(i == 0, 9));
                value = cpp_int(text);
            }
        }
        return uniform(0, 1) != 0 ? cpp_int(-value) : value;
    }

  private:
    std::mt19937 engine_;
};

} // namespace qvtest
