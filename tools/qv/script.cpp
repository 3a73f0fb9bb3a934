// script.cpp - declaring, preparing and running scripts; `qv run` and `qv check --script`
// (see script.hpp).
#include "script.hpp"

#include <cstdio>
#include <cstdlib>

#include "commands.hpp"
#include "interrupt.hpp"
#include "scan.hpp"

namespace qvtool {
namespace {

const EXP_FUNCTION_ARRAY_T *current_functions() {
    const EXP_FUNCTION_STRUCT_T *functions = Set_Function_Struct_L(nullptr);
    return functions != nullptr ? functions->current : nullptr;
}

int32_t function_count() {
    const EXP_FUNCTION_ARRAY_T *array = current_functions();
    return array != nullptr ? array->function_count : 0;
}

bool blank(const std::string &text) {
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

std::string base_name(const std::string &path) {
    if (path == "-") return "stdin";
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

int exit_status(int code) {
    return code >= 0 && code <= 255 ? code : 255;
}

Script::Script(std::string text, std::string name, std::string owner)
    : text_(std::move(text)), name_(std::move(name)), owner_(std::move(owner)) {}

bool Script::declare(const std::string &declarations) {
    const int32_t before = function_count();
    int code = 0;
    const Outcome outcome = guarded(
        "qv", [&] { return Declare_Functions_L(declarations.c_str(), nullptr, 0) >= 0; }, code);
    if (outcome != Outcome::Done) {
        report_problems(stderr, text_);
        return false;
    }
    const EXP_FUNCTION_ARRAY_T *array = current_functions();
    for (int32_t i = before; array != nullptr && i < array->function_count; ++i)
        declared_ +=
            (declared_.empty() ? "" : ", ") + std::string(array->functions[i]->record->name);
    return true;
}

bool Script::prepare() {
    const ScriptParts parts = split_declarations(text_);
    if (parts.has_declarations && !declare(parts.declarations)) return false;
    runnable_ = !blank(parts.statements);
    if (!runnable_) return true;
    script_.reset(New_Script_L(parts.statements.c_str(), name_.c_str(), owner_.c_str()));
    EXPRESSION_T *script = script_.get();
    if (script == nullptr) throw std::bad_alloc();
    int code = 0;
    const Outcome outcome = guarded(
        "qv",
        [&] {
            if (Parse_Script_L(script, nullptr, 0) != 1) return false;
            return Validate_Script_L(script) == 1;
        },
        code);
    if (outcome == Outcome::Done) return true;
    if (!report_problems(stderr, text_)) {
        runnable_ = false; // nothing but blanks, comments and ";"
        return true;
    }
    return false;
}

Script::End Script::run() {
    int32_t result = QV_SCRIPT_FAILED;
    int code = 0;
    const Outcome outcome = guarded(
        "qv",
        [&] {
            result = Run_Script_L(script_.get(), &exit_code_);
            return result != QV_SCRIPT_FAILED;
        },
        code);
    report_problems(stderr, text_); // a failure's, or warnings
    if (outcome == Outcome::Exited) {
        exit_code_ = code;
        return End::Exited;
    }
    if (outcome != Outcome::Done) return End::Failed;
    switch (result) {
        case QV_SCRIPT_RETURNED: return End::Returned;
        case QV_SCRIPT_INTERRUPTED: return End::Interrupted;
        case QV_SCRIPT_EXITED: return End::Exited;
        default: return End::Completed;
    }
}

std::string check_trace_options(const std::string &options) {
    const bool known = SetTraceOptions_L(options.empty() ? "*" : options.c_str()) != 0;
    SetTraceOptions_L("");
    if (known) return "";
    return "no trace option in '" + options + "': use Basic, Variable, Builtin, Datatype or *";
}

std::string start_trace(const std::string &file, const std::string &options) {
    if (std::string error = check_trace_options(options); !error.empty())
        return "--trace-options: " + error;
    const std::string path = file.find('/') == std::string::npos ? "./" + file : file;
    if (TraceOn_L(path.c_str(), options.empty() ? "*" : options.c_str()) >= 0) return "";
    report_problems(stderr, "");
    return "--trace: cannot trace into '" + file + "'";
}

int check_script(const std::string &text, bool explain) {
    Script script(text, "check", "qv");
    if (!script.prepare()) return STATUS_USAGE;
    if (explain) // a script's items are not visible through the interface: its statements
        for (const Statement &statement : top_statements(text)) {
            std::string shown(statement.text.substr(0, statement.text.find('\n')));
            if (shown.size() < statement.text.size()) shown += " ...";
            std::printf("%6zu  %-10s  %s\n", statement.begin, statement.kind.c_str(),
                        shown.c_str());
        }
    std::printf("valid script\n");
    if (!script.declared().empty()) std::printf("functions: %s\n", script.declared().c_str());
    return 0;
}

int run_command(const RunArguments &a) {
    std::string text, error;
    if (!read_text(a.script, text, error)) return usage_error(error);
    Library library;
    if (error = set_variables(a.vars); !error.empty()) return usage_error(error);
    if (a.trace.empty() && !a.trace_options.empty())
        return usage_error("--trace-options: give the trace file with --trace FILE");
    if (!a.trace.empty())
        if (error = start_trace(a.trace, a.trace_options); !error.empty())
            return usage_error(error);
    Script script(text, base_name(a.script), "qv run");
    if (!script.prepare()) return STATUS_USAGE;
    if (!script.runnable()) return 0;
    interrupt::install();
    InterruptsActive_L(1);
    switch (script.run()) {
        case Script::End::Failed: return STATUS_FAILED;
        case Script::End::Interrupted:
            std::fputs("qv: interrupted\n", stderr);
            return 128 + interrupt::requested();
        case Script::End::Exited: return exit_status(script.exit_code());
        case Script::End::Returned:
            std::printf("%s\n", value_text(script.result()).c_str());
            return 0;
        default:
            if (script.result().is_null == 0)
                std::printf("%s\n", value_text(script.result()).c_str());
            return 0;
    }
}

} // namespace qvtool
