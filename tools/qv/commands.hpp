// commands.hpp - the subcommands of qv that use the expression language: their arguments
// (as the command line gives them) and their entry points, each returning the exit status.
//
// Exit statuses: 0 success; 1 an evaluation or a run failed; 2 a parse, validation or usage
// error; Exit( code ) in a text makes `code` the status. Results go to standard output,
// problems to standard error (library.hpp shows how).
#pragma once

#include <string>
#include <vector>

namespace qvtool {

constexpr int STATUS_FAILED = 1;
constexpr int STATUS_USAGE = 2;

struct EvalArguments {
    bool typed = false;
    std::vector<std::string> binds, vars; // NAME[:TYPE]=VALUE
    std::string expression;
};

struct RunArguments {
    std::vector<std::string> vars;
    std::string trace, trace_options, script;
};

struct CheckArguments {
    bool script = false, explain = false;
    std::string text, file;
};

int eval_command(const EvalArguments &arguments);
int run_command(const RunArguments &arguments);
int check_command(const CheckArguments &arguments);
int functions_command(const std::string &name);
int repl_command();

// Helpers the commands share.
// Sets each --var as a variable of the global array; "" or what is wrong.
std::string set_variables(const std::vector<std::string> &vars);
// The whole of a file, or of standard input for "-"; false with `error` set.
bool read_text(const std::string &path, std::string &text, std::string &error);
// "qv: TEXT" on standard error; returns STATUS_USAGE.
int usage_error(const std::string &text);

} // namespace qvtool
