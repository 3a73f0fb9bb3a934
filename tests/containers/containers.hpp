// containers.hpp - what the container suites share: a seeded random source, a check that
// a body raised a symbol from a module (by the raise's message text), and an ordering of
// records that start with an int32_t key.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "capture.hpp"
#include "qv/except.h"

namespace qvtest {

struct Random {
    std::mt19937 engine{20240611};
    int32_t operator()(int32_t low, int32_t high) { // in [low, high]
        return std::uniform_int_distribution<int32_t>(low, high)(engine);
    }
    // 1 to `longest` letters from three, so that equal texts recur.
    std::string text(int32_t longest) {
        std::string text(static_cast<size_t>((*this)(1, longest)), ' ');
        for (char &c : text) c = static_cast<char>((*this)('a', 'c'));
        return text;
    }
};

// Checks that `body` raised `symbol` from `module`, as the raise's message says.
inline void expect_raise(const char *symbol, const char *module, qv::FunctionRef<void()> body) {
    EXPECT_EQ(raised_by(body), symbol);
    EXPECT_THAT(Exc_Message_L(), ::testing::StartsWith(std::string(symbol) + " was raised in " +
                                                       module + " at line "));
}

inline int32_t order_of(const void *left, const void *right) {
    int32_t a = *static_cast<const int32_t *>(left), b = *static_cast<const int32_t *>(right);
    return (a > b) - (a < b);
}

} // namespace qvtest
