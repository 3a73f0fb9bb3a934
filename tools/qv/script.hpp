// script.hpp - scripts as the tool runs them (`qv run`, `qv check --script`, the REPL's
// statements): the declarations of user-defined functions in the text are made first
// (Declare_Functions_L), then the statements around them are parsed, validated and run as
// one script (Parse_Script_L, Validate_Script_L, Run_Script_L). Positions in problems are
// positions in the whole text.
#pragma once

#include <memory>
#include <string>

#include "library.hpp"

namespace qvtool {

class Script {
  public:
    enum class End { Failed, Completed, Returned, Interrupted, Exited };

    // `name` and `owner` are what a trace writes for the run.
    Script(std::string text, std::string name, std::string owner);

    // Declares the functions and prepares the statements; prints the problems. False when
    // the text is not valid.
    bool prepare();
    // Whether there are statements to run (a text may hold only declarations).
    bool runnable() const { return runnable_; }
    // The names of the functions the text declared, joined by ", ".
    const std::string &declared() const { return declared_; }
    // Runs the statements; prints the problems of a failed run. Exited: exit_code() holds
    // Exit's code.
    End run();
    int exit_code() const { return exit_code_; }
    // After a run; and the script record (null when not runnable).
    const QV_VALUE_T &result() const { return script_->result; }
    EXPRESSION_T *record() const { return script_.get(); }

  private:
    bool declare(const std::string &declarations);

    std::string text_, name_, owner_;
    std::unique_ptr<EXPRESSION_T, ExpressionDeleter> script_;
    bool runnable_ = false;
    int exit_code_ = 0;
    std::string declared_;
};

// `qv check --script`: validates `text`; with `explain`, lists the statements' items.
int check_script(const std::string &text, bool explain);

// Checks a list of trace options (Basic, Variable, Builtin, Datatype or *, separated by
// ","; empty: all) and leaves none set. Returns "" or what is wrong.
std::string check_trace_options(const std::string &options);

// Starts tracing into `file`, appending, with `options` (empty: all). A bare file name is
// taken in the current folder, as a user means it (the library would put it in the folder
// of QV_LOG_DIR). Returns "" or what is wrong (the library's warning printed).
std::string start_trace(const std::string &file, const std::string &options);

// The exit status for Exit( code ): the code when it is 0..255, else 255.
int exit_status(int code);

} // namespace qvtool
