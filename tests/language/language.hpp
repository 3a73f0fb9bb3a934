// language.hpp - what the language suites share: a fresh function struct and scope stack
// per test, stand-in scripts counted as they are freed, values made and read in one call,
// and the check that a raise names its symbol and module.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "capture.hpp"
#include "language/builtin.hpp"
#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/qvvar.h"

namespace qvtest {

struct Random {
    std::mt19937 engine{20240611};
    int32_t operator()(int32_t low, int32_t high) { // in [low, high]
        return std::uniform_int_distribution<int32_t>(low, high)(engine);
    }
};

// Scripts stand in as malloc'd blocks; the registry frees them through the freer installed
// here, which counts them.
inline int scripts_alive = 0;
inline EXPRESSION_T *new_script() {
    ++scripts_alive;
    return static_cast<EXPRESSION_T *>(std::malloc(16));
}
inline void free_test_script(EXPRESSION_T *script) {
    --scripts_alive;
    std::free(script);
}

// Each test gets its own function struct and a scope stack holding only "Global"; what a
// test leaves there is freed after it.
class LanguageTest : public CaptureTest {
  protected:
    EXP_FUNCTION_STRUCT_T functions{};

    void SetUp() override {
        CaptureTest::SetUp();
        Set_Function_Struct_L(&functions);
        qv::install_script_freer(free_test_script);
        scripts_alive = 0;
        InitialiseVariables_L();
    }
    void TearDown() override {
        TerminateFunctions_L();
        TerminateAndFreeVariables_L();
        EXPECT_EQ(scripts_alive, 0);
        qv::install_script_freer(nullptr);
        CaptureTest::TearDown();
    }
};

// A value that frees itself.
struct Value {
    QV_VALUE_T value{};
    Value() = default;
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
    ~Value() { FreeValue_L(&value); }
    QV_VALUE_T *get() { return &value; }
    QV_VALUE_T *operator->() { return &value; }
};

// The text form of a value ("<null>" for NULL).
inline std::string text_of(const QV_VALUE_T *value) {
    return take(ValueToChar_L(value));
}

// Checks that `body` raised `symbol` from `module`, as the raise's message says.
inline void expect_raise(const char *symbol, const char *module, qv::FunctionRef<void()> body) {
    EXPECT_EQ(raised_by(body), symbol);
    EXPECT_THAT(Exc_Message_L(), ::testing::StartsWith(std::string(symbol) + " was raised in " +
                                                       module + " at line "));
}

} // namespace qvtest
