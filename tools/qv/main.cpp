// main.cpp - the qv program: its subcommands, their options, and the exit-status convention
// (0 success; 1 an evaluation or a run failed; 2 a parse, validation or usage error; Exit(
// code ) in a text makes `code` the status; 128 + the signal number when interrupted). Usage
// errors go to standard error; --help to standard output. The commands themselves live in
// commands.cpp (eval, check, functions), script.cpp (run), repl.cpp and derive.cpp.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "arguments.hpp"
#include "commands.hpp"
#include "derive.hpp"
#include "interrupt.hpp"
#include "library.hpp"

namespace {

using namespace qvtool;

struct DeriveArguments {
    DeriveOptions options;
    std::string delimiter = ",", on_error = "stop";
};

struct Arguments {
    EvalArguments eval;
    RunArguments run;
    CheckArguments check;
    DeriveArguments derive;
    std::string function;
};

// What the library's feedback would write to standard output (LogMsg ...) goes to standard
// error when standard output is data.
void feedback_to_stderr(int32_t, const char *text, std::size_t length, void *) {
    std::fwrite(text, 1, length, stderr);
}

// An option that may be given again and again, one value each time.
template <class T>
CLI::Option *repeated(CLI::App *command, const char *name, T &values, const char *help) {
    return command->add_option(name, values, help)->allow_extra_args(false);
}

void add_eval(CLI::App &app, EvalArguments &a) {
    CLI::App *eval = app.add_subcommand("eval", "Evaluate one expression and print its result");
    eval->add_flag("--typed", a.typed, "Print the result's data type, a tab, and its text");
    repeated(eval, "--bind", a.binds, "Bind a name of the expression to a value")
        ->type_name("NAME[:TYPE]=VALUE");
    repeated(eval, "--var", a.vars, "Set the variable $NAME")->type_name("NAME[:TYPE]=VALUE");
    eval->add_option("EXPRESSION", a.expression, "The expression")->required();
}

void add_run(CLI::App &app, RunArguments &a) {
    CLI::App *run = app.add_subcommand("run", "Run a script and print its RETURN value");
    repeated(run, "--var", a.vars, "Set the variable $NAME")->type_name("NAME[:TYPE]=VALUE");
    run->add_option("--trace", a.trace, "Trace the run into FILE")->type_name("FILE");
    run->add_option("--trace-options", a.trace_options, "What the trace shows")->type_name("LIST");
    run->add_option("SCRIPT", a.script, "The script file, or - for standard input")->required();
}

void add_derive(CLI::App &app, DeriveArguments &a) {
    CLI::App *derive =
        app.add_subcommand("derive", "Stream a CSV file, deriving columns and filtering rows");
    DeriveOptions &o = a.options;
    repeated(derive, "-e", o.derivations, "Add (or replace) a column")
        ->type_name("'NAME := EXPRESSION'");
    derive->add_option("--where", o.where, "Keep the rows where CONDITION is TRUE")
        ->type_name("CONDITION");
    repeated(derive, "--types", o.types, "Column types instead of inferred ones")
        ->type_name("COL:TYPE,...");
    derive->add_option("--delimiter", a.delimiter, "The field delimiter (one byte; tab)")
        ->type_name("C");
    derive->add_flag(
        "--no-header", [&o](std::int64_t) { o.header = false; },
        "The first row is data; columns are named c1, c2 ...");
    derive->add_option("--on-error", a.on_error, "What a failed row does (default stop)")
        ->check(CLI::IsMember({"null", "skip", "stop"}));
    derive->add_option("-o", o.output, "Write to FILE (replaced only when the run succeeds)")
        ->type_name("FILE");
    derive->add_option("INPUT", o.input, "The CSV file, or - for standard input (default)");
}

void add_check(CLI::App &app, CheckArguments &a) {
    CLI::App *check =
        app.add_subcommand("check", "Validate an expression or script without running it");
    check->add_flag("--script", a.script, "The text is a script");
    check->add_flag("--explain", a.explain, "Print the parsed items in order");
    CLI::Option *file =
        check->add_option("-f", a.file, "Read the text from FILE")->type_name("FILE");
    check->add_option("TEXT", a.text, "The expression or script")->excludes(file);
}

int run_derive_command(DeriveArguments &a) {
    DeriveOptions &o = a.options;
    std::string error = parse_delimiter(a.delimiter, o.delimiter);
    for (const std::string &text : o.derivations) {
        if (!error.empty()) break;
        Derivation derivation;
        error = parse_derivation(text, derivation);
    }
    if (!error.empty()) return usage_error(error);
    o.on_error = a.on_error == "null"   ? OnError::Null
                 : a.on_error == "skip" ? OnError::Skip
                                        : OnError::Stop;
    Library library;
    SetFeedbackWriter_L(feedback_to_stderr, nullptr); // standard output is the CSV
    std::unique_ptr<RowProgram> program = make_row_program(o, stderr);
    interrupt::install();
    return run_derive(o, *program, stderr);
}

int dispatch(CLI::App &app, Arguments &a) {
    if (app.got_subcommand("eval")) return eval_command(a.eval);
    if (app.got_subcommand("derive")) return run_derive_command(a.derive);
    if (app.got_subcommand("run")) return run_command(a.run);
    if (app.got_subcommand("check")) {
        if (a.check.text.empty() && a.check.file.empty())
            return usage_error("check: give the TEXT to check, or -f FILE");
        return check_command(a.check);
    }
    if (app.got_subcommand("functions")) return functions_command(a.function);
    if (app.got_subcommand("repl") || (isatty(STDIN_FILENO) && isatty(STDOUT_FILENO)))
        return repl_command();
    std::fputs(app.help().c_str(), stderr);
    return usage_error("give a subcommand");
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Evaluate expressions and scripts of the qvcommon expression language, and "
                 "derive columns over CSV files.",
                 "qv");
    app.set_version_flag("--version", "qv " QV_VERSION);
    app.require_subcommand(0, 1);
    Arguments arguments;
    add_eval(app, arguments.eval);
    add_run(app, arguments.run);
    add_derive(app, arguments.derive);
    app.add_subcommand("repl", "Read expressions and statements at a prompt");
    app.add_subcommand("functions", "Print the usage lines of the built-in functions")
        ->add_option("NAME", arguments.function, "Only this function");
    add_check(app, arguments.check);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) {
        return app.exit(success);
    } catch (const CLI::ParseError &error) {
        std::string command = "qv";
        for (const CLI::App *sub : app.get_subcommands()) command += " " + sub->get_name();
        std::fprintf(stderr, "qv: %s\nRun '%s --help' for usage.\n", error.what(), command.c_str());
        return STATUS_USAGE;
    }
    try {
        return dispatch(app, arguments);
    } catch (const std::bad_alloc &) { // a temporary output file is removed on the way out
        std::fputs("qv: out of memory\n", stderr);
        return 1;
    }
}
