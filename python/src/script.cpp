// script.cpp - Script(text).run(**vars) and declare(text), for the Python module.
//
// A Script parses its statements once. run() gives each keyword argument to the variable it
// names ($name in the script) in the script's own variable array, where it takes the value
// as it is and keeps it, with the variables the script assigns, from one run to the next;
// it then validates the script when needed and runs it. A variable given a value of another
// type has the script validated again. What the run ended with (completed, returned, exited,
// interrupted) and Exit's code stay on the Script; its variables can be read afterwards.
//
// A run listens for signals: a Python signal handler that raises (KeyboardInterrupt on
// Ctrl-C) interrupts the run at its next loop turn, and its exception is raised once the run
// has ended; an endless loop can be stopped.
//
// declare() declares user-defined functions. A declaration moves the function records that
// parsed calls point at, so it moves function_epoch and every Script and Expression parsed
// before parses its text again before its next run.
#include <cstdlib>
#include <optional>

#include "qvpy.hpp"

namespace qvpy {

namespace {

struct ScriptDeleter {
    void operator()(EXPRESSION_T *s) const { Free_Script_L(s); }
};
using ScriptPtr = std::unique_ptr<EXPRESSION_T, ScriptDeleter>;

const char *status_name(int32_t code) {
    switch (code) {
        case QV_SCRIPT_RETURNED: return "returned";
        case QV_SCRIPT_INTERRUPTED: return "interrupted";
        case QV_SCRIPT_EXITED: return "exited";
        case QV_SCRIPT_FAILED: return "failed";
        default: return "completed";
    }
}

// ---- Signals during a run --------------------------------------------------------------------

std::optional<py::error_already_set> pending_signal; // a handler's exception, until raised
int runs_listening = 0;                              // nested runs: the outermost listens

// The library's interrupt pump, asked at every loop turn: runs Python's signal handlers (the
// GIL is held during a run) and turns an exception of theirs into the library's interrupt.
void pump_signals() {
    if (pending_signal || PyErr_CheckSignals() == 0) return;
    pending_signal.emplace(); // takes the exception out of the interpreter
    Set_Interrupt_L();
}

// Interrupts active through the pump for the life of the object.
struct SignalsInterrupt {
    SignalsInterrupt() {
        if (runs_listening++ > 0) return;
        Clear_Interrupt_L();
        SetInterruptPump_L(pump_signals);
        InterruptsActive_L(1);
    }
    ~SignalsInterrupt() {
        if (--runs_listening > 0) return;
        InterruptsActive_L(0);
        SetInterruptPump_L(nullptr);
        Clear_Interrupt_L();
    }
    SignalsInterrupt(const SignalsInterrupt &) = delete;
    SignalsInterrupt &operator=(const SignalsInterrupt &) = delete;
};

// Raises the exception a signal handler raised during the run, if any.
void raise_pending_signal() {
    if (!pending_signal || runs_listening > 0) return;
    py::error_already_set error = std::move(*pending_signal);
    pending_signal.reset();
    throw error;
}

// ---- Scripts ----------------------------------------------------------------------------------

class Script {
  public:
    Script(const std::string &text, const std::string &name) : text_(text), name_(name) { parse(); }
    Script(const Script &) = delete;
    Script &operator=(const Script &) = delete;

    // Sets the given variables, runs the script and returns its result.
    py::object run(const py::kwargs &vars) {
        if (functions_ != function_epoch) parse();
        int32_t code = QV_SCRIPT_FAILED, exit_code = 0;
        bool validated = false;
        py::object result = py::none();
        Outcome outcome = call("Script.run", [&] {
            if (variables_ != variable_epoch) Cleanup_Script_L(script_.get()); // globals freed
            variables_ = variable_epoch;
            set_variables(vars);
            if (!runnable_) {
                code = QV_SCRIPT_COMPLETED;
                return;
            }
            validated = Validate_Script_L(script_.get()) == 1;
            const SignalsInterrupt listening;
            if (validated) code = Run_Script_L(script_.get(), &exit_code);
            if (code != QV_SCRIPT_FAILED) result = to_python(script_->result);
        });
        if (outcome.raised == STATUS_RAISED) { // Exit raised past the run
            code = QV_SCRIPT_EXITED;
            exit_code = outcome.exit_status;
        }
        status_ = status_name(code);
        raise_pending_signal();
        if (code == QV_SCRIPT_FAILED || (outcome.raised != nullptr && code != QV_SCRIPT_EXITED)) {
            status_ = "failed";
            exit_code_ = py::none();
            py::dict extra;
            extra["expression"] = text_;
            throw_failure(outcome, validated ? "EvaluationError" : "ValidationError",
                          "script " + quoted(name_), extra);
        }
        exit_code_ = code == QV_SCRIPT_EXITED ? py::object(py::int_(exit_code)) : py::none();
        return result;
    }

    // The script's own variables (those given to run and those it assigns) and their values;
    // not its result variable.
    py::dict variables() const {
        py::dict values;
        call("Script.variables", [&] {
            const VARIABLE_ARRAY_T *own = script_->variables;
            for (int32_t n = 0; own != nullptr && n < own->count; ++n) {
                VARIABLE_T *variable = own->variables[n];
                if (std::string_view(variable->name) != QV_SCRIPT_RESULT_VARIABLE)
                    values[py::str(variable->name)] = to_python(variable->value);
            }
        });
        return values;
    }

    const std::string &text() const { return text_; }
    const std::string &name() const { return name_; }
    const std::string &status() const { return status_; }
    py::object exit_code() const { return exit_code_; }

  private:
    // Parses the text into a new record, or the record again (its variables stay) after a
    // declaration of functions. A text of nothing but blanks, comments and ";" runs as nothing.
    void parse() {
        int32_t parsed = 0;
        const bool fresh = script_ == nullptr;
        Outcome outcome = call("Script", [&] {
            if (fresh) script_.reset(New_Script_L(text_.c_str(), name_.c_str(), "python"));
            parsed = Parse_Script_L(script_.get(), nullptr, 0);
        });
        if (outcome.raised != nullptr)
            throw_parse_error(outcome, text_, trimmed_lead(text_, script_.get()),
                              fresh ? "" : "script " + quoted(name_));
        runnable_ = parsed == 1;
        functions_ = function_epoch;
    }

    // Gives each keyword's value to the variable of that name in the script's own array
    // (made here when the script has not been validated yet: validation takes it over). A
    // variable that is new or changes type has the script validated again.
    void set_variables(const py::kwargs &vars) {
        if (vars.empty()) return;
        VARIABLE_ARRAY_T *&own = script_->variables;
        if (own == nullptr && (own = NewVariableArray_L(name_.c_str())) == nullptr) return;
        bool retyped = false;
        for (auto [key, object] : vars) {
            const std::string name = py::str(key);
            QV_VALUE_T value{};
            struct Free {
                QV_VALUE_T *v;
                ~Free() { FreeValue_L(v); }
            } free_value{&value};
            to_value(object, &value, name.c_str());
            VARIABLE_T *variable = FindVariableOnArray_L(own, name.c_str());
            if (variable == nullptr) {
                if (CreateVariable_L(own, name.c_str(), 0, 0, 0, &value) == nullptr) return;
                retyped = true;
                continue;
            }
            retyped = retyped || !same_type(variable->value.descriptor, value.descriptor);
            CopyValue_L(&variable->value, &value);
            variable->changed = 1;
        }
        if (retyped) Cleanup_Script_L(script_.get());
    }

    std::string text_;
    std::string name_;
    ScriptPtr script_;
    bool runnable_ = false;
    uint64_t functions_ = 0;
    uint64_t variables_ = 0;
    std::string status_;
    py::object exit_code_ = py::none();
};

std::vector<std::string> user_function_names() {
    std::vector<std::string> names;
    int32_t count = 0;
    const ExpFunction *user = Get_FunctionArray(&count);
    for (int32_t n = 0; n < count; ++n) names.emplace_back(user[n].name);
    return names;
}

// Declares the functions of the text; returns the names declared, in order.
py::list declare(const std::string &text) {
    std::vector<std::string> before, after;
    Outcome outcome = call("declare", [&] {
        before = user_function_names();
        if (Declare_Functions_L(text.c_str(), nullptr, 0) >= 0) after = user_function_names();
    });
    ++function_epoch; // the records moved, even when the declaration failed
    if (outcome.raised != nullptr) {
        for (const Message &m : outcome.messages)
            if (m.number == QV_MSG_PARSE_FAILED || m.number == QV_MSG_PARSE_ENDED_EARLY)
                throw_parse_error(outcome, text, trimmed_lead(text, nullptr), "declare");
        throw_failure(outcome, "ValidationError", "declare");
    }
    py::list names;
    for (std::size_t n = before.size(); n < after.size(); ++n) names.append(after[n]);
    return names;
}

} // namespace

void register_script(py::module_ &module) {
    py::class_<Script>(module, "Script", R"(A script of statements, parsed once.

Script(text, name="script") parses the statements or raises ParseError. run(**vars) sets
each keyword's variable ($name in the script), runs the script and returns its result (what
RETURN handed back or RUN_SCRIPT_RETURN holds, None for none). The script's variables keep
their values from one run to the next; status says how the last run ended ("completed",
"returned", "exited", "interrupted", "failed"), exit_code holds Exit's code after an Exit.
A signal handler's exception (KeyboardInterrupt) interrupts a run and is raised.)")
        .def(py::init<const std::string &, const std::string &>(), py::arg("text"),
             py::arg("name") = "script")
        .def("run", &Script::run, "Sets the given variables and runs; returns the result.")
        .def_property_readonly("text", &Script::text)
        .def_property_readonly("name", &Script::name)
        .def_property_readonly("status", &Script::status,
                               "How the last run ended ('' before the first).")
        .def_property_readonly("exit_code", &Script::exit_code,
                               "Exit's code when the last run ended by Exit, else None.")
        .def_property_readonly("variables", &Script::variables,
                               "The script's own variables and their values, by name.")
        .def("__repr__", [](const Script &s) { return "Script(" + quoted(s.text()) + ")"; });
    module.def("declare", &declare, py::arg("text"),
               R"(Declares the user-defined functions of the text (FUNCTION Name(...) ...
BEGIN ... END, one or more); returns their names. Expressions and scripts call them like
built-ins. Raises ParseError or ValidationError, and the functions declared before stay.)");
}

} // namespace qvpy
