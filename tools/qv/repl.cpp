// repl.cpp - `qv repl`: expressions and statements read at a prompt.
//
// On a terminal lines are read with libedit (editing, history kept in ~/.qv_history, tab
// completion of function names and variables); otherwise plainly, without prompts. An entry
// goes on over further lines while it leaves a parenthesis or a BEGIN (or CASE) block open.
// An entry is then
//   - a command: .help [NAME], .vars, .trace on [OPTIONS] | off, .quit;
//   - an assignment `$x := expression`: $x takes the value and its type, whatever it held;
//   - statements (a statement keyword, ":=" or ";" in it, FUNCTION declarations): run as a
//     script; the variables it makes are kept for the next entries, a RETURN value shown;
//   - an expression: evaluated and shown with its type, "INTEGER 3", "CHAR(0) 'abc'".
// With tracing on, what an entry traced is shown before its result. Exit( code ) leaves the
// REPL with that status; Ctrl-C stops a running entry.
#include <editline/readline.h>
#include <langinfo.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <clocale>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <sstream>

#include "catalog.hpp"
#include "commands.hpp"
#include "interrupt.hpp"
#include "library.hpp"
#include "scan.hpp"
#include "script.hpp"

namespace qvtool {
namespace {

using Expression = std::unique_ptr<EXPRESSION_T, ExpressionDeleter>;

constexpr int HISTORY_SIZE = 1000;
constexpr const char *COMMANDS[] = {".help", ".quit", ".trace", ".vars"};

bool is_blank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

std::string trim(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string_view::npos) return "";
    return std::string(text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin));
}

// A value as the language writes it: texts quoted ('It''s'), NULL as NULL.
std::string shown(const QV_VALUE_T &value) {
    const std::string text = value_text(value);
    if (value.is_null != 0 || (value.descriptor.type & (QV_TYPE_CHAR | QV_TYPE_CLOB)) == 0)
        return text;
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("''") : std::string(1, c);
    return quoted + "'";
}

std::string typed(const QV_VALUE_T &value) {
    return type_text(value.descriptor) + " " + shown(value);
}

bool show(const QV_VALUE_T &value) {
    std::printf("%s\n", typed(value).c_str());
    return true;
}

// ---- Completion: function names, variables, commands ----------------------------------------

std::vector<std::string> g_candidates;

char *next_candidate(const char *prefix, int state) {
    static std::size_t index;
    if (state == 0) index = 0;
    const std::size_t length = std::strlen(prefix);
    while (index < g_candidates.size()) {
        const std::string &candidate = g_candidates[index++];
        if (candidate.size() >= length && strncasecmp(candidate.c_str(), prefix, length) == 0)
            return strdup(candidate.c_str());
    }
    return nullptr;
}

char **complete(const char *prefix, int start, int) {
    g_candidates.clear();
    if (start == 0 && prefix[0] == '.') {
        g_candidates.assign(std::begin(COMMANDS), std::end(COMMANDS));
    } else if (prefix[0] == '$') {
        const VARIABLE_ARRAY_T *globals = GetGlobalVariables_L();
        for (int32_t i = 0; globals != nullptr && i < globals->count; ++i)
            g_candidates.push_back(std::string("$") + globals->variables[i]->name);
    } else {
        for (const ExpFunction *function : all_functions()) g_candidates.push_back(function->name);
    }
    rl_attempted_completion_over = 1; // no file names
    return rl_completion_matches(prefix, next_candidate);
}

// ---- Reading entries -------------------------------------------------------------------------

// libedit reads the characters of a line by the locale's encoding; the language's texts are
// UTF-8, so a locale of another encoding (the C locale, say) gives way to C.UTF-8.
void read_utf8() {
    if (std::setlocale(LC_CTYPE, "") == nullptr || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0)
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

class Reader {
  public:
    Reader() : interactive_(isatty(STDIN_FILENO) != 0) {
        if (!interactive_) return;
        read_utf8();
        if (const char *home = std::getenv("HOME"); home != nullptr && home[0] != '\0')
            history_ = std::string(home) + "/.qv_history";
        rl_readline_name = "qv";
        rl_attempted_completion_function = complete;
        rl_completer_word_break_characters = const_cast<char *>(" \t\n(),+-*/&=<>!'\"");
        stifle_history(HISTORY_SIZE);
        if (!history_.empty()) read_history(history_.c_str());
    }
    ~Reader() {
        if (!history_.empty() && write_history(history_.c_str()) == 0)
            history_truncate_file(history_.c_str(), HISTORY_SIZE);
    }
    bool interactive() const { return interactive_; }

    // The next entry (lines joined while something is left open), or nullopt at the end.
    std::optional<std::string> entry() {
        std::string text;
        for (;;) {
            std::optional<std::string> line = read_line(text.empty() ? "qv> " : "...> ");
            if (!line) return text.empty() ? std::nullopt : std::optional<std::string>(text);
            if (text.empty() && is_blank(*line)) continue;
            text += text.empty() ? *line : "\n" + *line;
            if (text[0] == '.' || !openness(text).more_wanted()) break;
        }
        if (interactive_) add_history(text.c_str());
        return text;
    }

  private:
    std::optional<std::string> read_line(const char *prompt) {
        if (!interactive_) {
            std::string line;
            if (!std::getline(std::cin, line)) return std::nullopt;
            return line;
        }
        char *line = readline(prompt);
        if (line == nullptr) return std::nullopt;
        std::string out(line);
        std::free(line);
        return out;
    }

    bool interactive_;
    std::string history_;
};

// ---- The session ---------------------------------------------------------------------------

class Session {
  public:
    ~Session() {
        if (!trace_file_.empty()) std::remove(trace_file_.c_str());
    }
    // Runs one entry; false when the REPL is to end (status() then holds the status).
    bool execute(const std::string &entry);
    int status() const { return status_; }

  private:
    bool command(const std::string &entry);
    void trace_command(std::istringstream &words);
    void show_variables();
    bool run_entry(const std::string &entry);
    bool expression(const std::string &entry, const std::function<bool(const QV_VALUE_T &)> &use);
    bool statements(const std::string &entry);
    void trace_begin();
    void trace_end();

    int status_ = 0;
    std::string trace_options_, trace_file_;
};

bool Session::execute(const std::string &entry) {
    if (entry[0] == '.') return command(entry);
    interrupt::install();
    InterruptsActive_L(1);
    trace_begin();
    const bool go_on = run_entry(entry);
    trace_end();
    if (interrupt::requested() != 0) std::printf("interrupted\n");
    interrupt::clear();
    std::fflush(stdout);
    return go_on;
}

bool Session::command(const std::string &entry) {
    std::istringstream words(entry);
    std::string name, argument;
    words >> name >> argument;
    if (name == ".quit" || name == ".exit") return false;
    if (name == ".vars") {
        show_variables();
    } else if (name == ".help" && argument.empty()) {
        std::printf("Commands: .help [NAME], .vars, .trace on [OPTIONS] | off, .quit\n"
                    "Entries: an expression, $x := expression, or statements; an entry goes "
                    "on\nwhile a parenthesis or a BEGIN block is open.\n\n");
        list_functions(stdout);
    } else if (name == ".help") {
        if (const ExpFunction *function = find_function(argument); function != nullptr)
            describe_function(stdout, *function);
        else
            std::printf("there is no function named '%s'\n", argument.c_str());
    } else if (name == ".trace") {
        std::istringstream rest(entry.substr(entry.find(".trace") + 6));
        trace_command(rest);
    } else {
        std::printf("unknown command %s (.help lists them)\n", name.c_str());
    }
    std::fflush(stdout);
    return true;
}

// .trace on [OPTIONS] (Basic, Variable, Builtin, Datatype or *; all by default) | off
void Session::trace_command(std::istringstream &words) {
    std::string switch_word, options;
    words >> switch_word;
    std::getline(words, options);
    options = trim(options);
    if (switch_word == "off") {
        trace_options_.clear();
        std::printf("tracing off\n");
        return;
    }
    if (switch_word != "on") {
        std::printf("use .trace on [OPTIONS] or .trace off\n");
        return;
    }
    if (const std::string error = check_trace_options(options); !error.empty()) {
        std::printf("%s\n", error.c_str());
        return;
    }
    if (trace_file_.empty()) {
        char path[] = "/tmp/qv-trace-XXXXXX";
        const int fd = mkstemp(path);
        if (fd < 0) {
            std::printf("cannot make a trace file: %s\n", std::strerror(errno));
            return;
        }
        close(fd);
        trace_file_ = path;
    }
    trace_options_ = options.empty() ? "*" : options;
    std::printf("tracing %s\n", trace_options_.c_str());
}

void Session::show_variables() {
    const VARIABLE_ARRAY_T *globals = GetGlobalVariables_L();
    if (globals == nullptr || globals->count == 0) std::printf("no variables\n");
    for (int32_t i = 0; globals != nullptr && i < globals->count; ++i)
        std::printf("$%s %s\n", globals->variables[i]->name,
                    typed(globals->variables[i]->value).c_str());
}

// Tracing an entry: into the trace file from a fresh start, shown afterwards without the
// file's START and END lines.
void Session::trace_begin() {
    if (!trace_options_.empty()) TraceOn_L(trace_file_.c_str(), trace_options_.c_str());
}

void Session::trace_end() {
    if (trace_options_.empty()) return;
    TraceOff_L();
    std::ifstream file(trace_file_);
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && line.rfind("***** ", 0) != 0) std::printf("%s\n", line.c_str());
    std::ofstream(trace_file_, std::ios::trunc);
}

// `$name := expression` alone: the variable takes the value and its type. Anything else
// goes on to statements or an expression.
bool Session::run_entry(const std::string &entry) {
    const std::string text = trim(entry);
    std::size_t end = 1;
    while (end < text.size() && text[0] == '$' &&
           (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_' ||
            static_cast<unsigned char>(text[end]) >= 0x80))
        ++end;
    const std::size_t assign = text.find_first_not_of(" \t", end);
    if (text[0] != '$' || end == 1 || assign == std::string::npos ||
        text.compare(assign, 2, ":=") != 0 || looks_like_statements(text.substr(assign + 2)))
        return looks_like_statements(text) ? statements(text) : expression(text, show);
    const std::string name = text.substr(1, end - 1);
    return expression(text.substr(assign + 2), [&name](const QV_VALUE_T &result) {
        VARIABLE_ARRAY_T *globals = GetGlobalVariables_L();
        FreeVariable_L(FindVariableOnArray_L(globals, name.c_str()));
        const QV_DATATYPE_T &type = result.descriptor;
        if (CreateVariable_L(globals, name.c_str(), type.type, type.precision, type.scale,
                             &result) == nullptr)
            return false;
        std::printf("$%s = %s\n", name.c_str(), typed(result).c_str());
        return true;
    });
}

// Evaluates an expression and hands its value to `use` (which shows it), inside the status
// context; problems are shown after. False when Exit ends the REPL.
bool Session::expression(const std::string &entry,
                         const std::function<bool(const QV_VALUE_T &)> &use) {
    Expression value(New_Expression_L(entry.c_str()));
    int code = 0;
    const Outcome outcome = guarded(
        "qv repl",
        [&] {
            return parse_expression(value.get()) == 1 && validate_expression(value.get()) == 1 &&
                   Solve_Expression_L(value.get()) == 0 && use(value->result);
        },
        code);
    if (outcome == Outcome::Exited) {
        status_ = exit_status(code);
        return false;
    }
    std::fflush(stdout);
    report_problems(stderr, value->text != nullptr ? value->text : "");
    return true;
}

// Statements run as a script; the variables it made are kept in the global array.
bool Session::statements(const std::string &entry) {
    std::fflush(stdout);
    Script script(entry, "repl", "qv");
    if (!script.prepare()) return true;
    if (!script.declared().empty()) std::printf("declared %s\n", script.declared().c_str());
    if (!script.runnable()) return true;
    const Script::End end = script.run();
    if (end == Script::End::Exited) {
        status_ = exit_status(script.exit_code());
        return false;
    }
    if (EXPRESSION_T *record = script.record(); record->variables != nullptr) {
        VARIABLE_T *result = FindVariableOnArray_L(record->variables, QV_SCRIPT_RESULT_VARIABLE);
        FreeVariable_L(result); // the script's own
        CopyVariableArrayChanges_L(GetGlobalVariables_L(), record->variables);
    }
    if (end == Script::End::Returned) std::printf("%s\n", typed(script.result()).c_str());
    return true;
}

} // namespace

int repl_command() {
    Library library;
    Reader reader;
    Session session;
    if (reader.interactive())
        std::printf("qv: expressions and statements of the language; .help lists the "
                    "functions, .quit leaves\n");
    while (std::optional<std::string> entry = reader.entry())
        if (!session.execute(*entry)) return session.status();
    if (reader.interactive()) std::printf("\n");
    return session.status();
}

} // namespace qvtool
