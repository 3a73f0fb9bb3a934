// capture.hpp - what the suites of several module folders share: a fixture whose feedback
// is captured and whose errors collect in a message context, scoped environment variables,
// a temporary directory, and helpers for heap texts, files, raises and allocation-failure
// loops.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "core/raise.hpp"
#include "messages/message.hpp"
#include "qv/alloc.h"
#include "qv/except.h"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"

namespace qvtest {

namespace fs = std::filesystem;

inline std::string read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void write_file(const fs::path &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

// A heap text as a string ("<null>" for null), freed.
inline std::string take(char *heap_text) {
    std::string text = heap_text ? heap_text : "<null>";
    std::free(heap_text);
    return text;
}

// Sets an environment variable (unsets it for null) until the object goes, then restores it.
struct ScopedEnvironment {
    ScopedEnvironment(const char *name, const char *value) : name(name) {
        if (const char *was = std::getenv(name)) old = was;
        set(value);
    }
    ~ScopedEnvironment() { set(old ? old->c_str() : nullptr); }
    void set(const char *value) { value ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str()); }
    std::string name;
    std::optional<std::string> old;
};

// A fresh directory under /tmp, removed with its contents.
struct TempDirectory {
    fs::path path = [] {
        char pattern[] = "/tmp/qv_test_XXXXXX";
        return fs::path(mkdtemp(pattern));
    }();
    ~TempDirectory() { fs::remove_all(path); }
    fs::path operator/(const std::string &name) const { return path / name; }
};

// The symbol `body` raised inside a status context of its own; null when it raised nothing.
inline const char *raised_by(qv::FunctionRef<void()> body) {
    const char *raised = nullptr;
    qv::guarded("raised_by", "capture", __LINE__, body, [&](const char *s) { raised = s; });
    return raised;
}

// Runs `prepare`, then `body` in a status context with its nth allocation failing, for
// n = 0, 1, ... until none fails. Gives the symbol each failing run raised; the last, whole
// run must raise nothing.
inline std::vector<const char *> fail_each_allocation(
    qv::FunctionRef<void()> body, qv::FunctionRef<void()> prepare = [] {}) {
    std::vector<const char *> raised;
    for (int32_t n = 0; n < 500; ++n) {
        prepare();
        const char *symbol = raised_by([&] {
            TestFailAllocation_L(n); // armed inside: opening the context allocates too
            body();
        });
        bool fired = TestAllocationFailed_L() != 0;
        TestFailAllocation_L(-1);
        if (!fired) {
            EXPECT_EQ(symbol, nullptr);
            return raised;
        }
        raised.push_back(symbol);
    }
    ADD_FAILURE() << "the allocations never end";
    return raised;
}

// A fixture with fresh feedback (no trace selections) written to `out` and `err`, fresh
// message sets, and `context` as the message context.
class CaptureTest : public ::testing::Test {
  protected:
    std::string out, err;
    uint32_t context = 0;

    void SetUp() override {
        reset();
        SetFeedbackWriter_L(write, this);
        InitMessages_L(&context);
    }
    void TearDown() override {
        reset();
        while (Exc_Sp != nullptr) except_end_context("capture", __LINE__);
    }

    static void write(int32_t stream, const char *text, size_t length, void *test) {
        auto *self = static_cast<CaptureTest *>(test);
        (stream == 2 ? self->err : self->out).append(text, length);
    }
    static void trace(const char *selection) {
        setenv("TRACE_VALUES", selection, 1);
        ResetFeedbackSelections_L();
    }
    // The texts of the messages in a set; empty when the handle names none.
    static std::vector<std::string> texts_of(uint32_t handle) {
        std::vector<std::string> texts;
        for (int32_t i = 0; GetMessage_L(handle, i) != nullptr; ++i)
            texts.push_back(GetMessage_L(handle, i)->Text());
        return texts;
    }

  private:
    static void reset() {
        unsetenv("TRACE_VALUES");
        TerminateFeedback_L();
        ClearMessageContext_L();
        TerminateMessages_L(nullptr);
        qv::reset_warning_deferral();
        SetErrorSuppression_L(0);
    }
};

} // namespace qvtest
