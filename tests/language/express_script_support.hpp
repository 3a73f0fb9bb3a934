// express_script_support.hpp - what the script suites share: a fixture with the script
// layer's hooks installed, a fresh function array and the default recursion limit; a script
// that frees itself; running a text to its result's text form; and a parse or validation
// failure read back as its message number and position.
#pragma once

#include <string>
#include <vector>

#include "language.hpp"
#include "language/express.hpp"
#include "language/express_eval.hpp"
#include "language/express_script.hpp"
#include "qv/express.h"

namespace qvtest {

class ScriptTest : public LanguageTest {
  protected:
    void SetUp() override {
        LanguageTest::SetUp();
        qv::express::install_script_hooks();
        qv::express::recursion_limit = qv::express::default_recursion_limit;
        InitialiseFunctions_L();
    }
    void TearDown() override {
        TraceOff_L();
        LanguageTest::TearDown();
        qv::express::install_script_hooks(); // as at load: the fixture above removed them
    }
    std::vector<std::string> messages() const { return texts_of(context); }
};

// A script that frees itself.
class Script {
  public:
    explicit Script(const char *text, const char *name = "test", const char *owner = "suite")
        : s_(New_Script_L(text, name, owner)) {}
    Script(const Script &) = delete;
    Script &operator=(const Script &) = delete;
    ~Script() { Free_Script_L(s_); }
    EXPRESSION_T *get() const { return s_; }
    EXPRESSION_T *operator->() const { return s_; }

    // Runs the script (parsed with the tables first when it is not parsed yet); the
    // result's text form, or "failed", "interrupted", "exit N".
    std::string run(const ExpFunction *const *tables = nullptr, int32_t count = 0) {
        int32_t code = 0;
        int32_t outcome = QV_SCRIPT_FAILED;
        const char *raised = raised_by([&] {
            if (qv::express::state_of(s_)->program == nullptr) Parse_Script_L(s_, tables, count);
            outcome = Run_Script_L(s_, &code);
        });
        if (raised != nullptr || outcome == QV_SCRIPT_FAILED) return "failed";
        if (outcome == QV_SCRIPT_INTERRUPTED) return "interrupted";
        if (outcome == QV_SCRIPT_EXITED) return "exit " + std::to_string(code);
        return text_of(&s_->result);
    }

  private:
    EXPRESSION_T *s_;
};

// A failure: the message number GetExpressionError_L gives (or the last message logged)
// and its position; {0, 0} when the text parsed and validated.
struct Failure {
    uint32_t number = 0;
    uint32_t position = 0;
    bool operator==(const Failure &) const = default;
};
inline std::ostream &operator<<(std::ostream &out, const Failure &f) {
    return out << std::hex << "0x" << f.number << std::dec << " at " << f.position;
}

// A text and the failure it must give.
struct Failed {
    const char *text;
    uint32_t number;
    uint32_t position;
};

// A host function row of a table: no arguments unless the caller adds them.
inline ExpFunction host_function(const char *name, const char *usage, EXP_HANDLER_T handler,
                                 uint32_t result_type) {
    ExpFunction row{};
    row.name = name;
    row.usage = usage;
    row.handler = handler;
    row.category = QV_CATEGORY_MISCELLANEOUS;
    row.result_type = result_type;
    return row;
}

// Parses and validates `text`; the failure's number and position.
inline Failure failure_of(const char *text, const ExpFunction *const *tables = nullptr,
                          int32_t count = 0) {
    Script script(text);
    Failure failure;
    const char *raised = raised_by([&] {
        if (Parse_Script_L(script.get(), tables, count) == 1) Validate_Script_L(script.get());
    });
    if (raised == nullptr) return failure;
    failure.number = GetExpressionError_L(&failure.position);
    return failure;
}

} // namespace qvtest
