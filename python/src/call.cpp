// call.cpp - calls into the library inside a status context of the module's own, and the
// Python exceptions made from what a failed call logged.
//
// The library reports a failure by logging numbered messages and raising a status symbol.
// The module makes its message-set variable the message context at import, empties the set
// before each call and opens a context around the call, so that a raise lands here (never in
// the interpreter's frames) and the messages of the set become the exception's text and
// attributes. Warnings and information go through the feedback classes, whose output is
// handed to the Python logger "qvcommon" instead of standard output.
#include <qv/msgclass.h>

#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "qvpy.hpp"

namespace qvpy {

namespace {

uint32_t message_set = 0; // the message context: errors of the current call collect here

// One thread in the library at a time. The GIL alone does not ensure it: a call that hands
// feedback to a Python logging handler may let another thread run meanwhile. A thread that
// must wait does so with the GIL released, so that the one inside can finish.
std::recursive_mutex library_lock;

std::unique_lock<std::recursive_mutex> take_library() {
    std::unique_lock<std::recursive_mutex> lock(library_lock, std::try_to_lock);
    if (!lock.owns_lock()) {
        py::gil_scoped_release released;
        lock.lock();
    }
    return lock;
}

void clear_messages() {
    if (message_set != 0) DeleteMessageHandle_L(message_set);
    message_set = 0;
}

void collect_messages(Outcome &outcome) {
    int32_t count = 0;
    if (message_set == 0 || CheckMessageHandle_L(message_set, &count, nullptr) != 0) return;
    for (int32_t n = 0; n < count; ++n) {
        const PWMessage *logged = GetMessage_L(message_set, n);
        if (logged == nullptr) continue;
        Message message{logged->Number(), logged->LibrarySeverity(), logged->Text(), {}};
        for (const PWParam &parameter : logged->Parameters())
            message.parameters.push_back(parameter.Text());
        outcome.messages.push_back(std::move(message));
    }
    clear_messages();
}

// The body's own frame: C++ exceptions stop here, a raise unwinds through it.
[[gnu::noinline]] void run_body(Thunk thunk, void *body, std::exception_ptr &error) {
    try {
        thunk(body);
    } catch (const std::exception &) { // Python errors (error_already_set) included
        error = std::current_exception();
    }
}

// Library feedback (warnings, information, errors written while no set collects them) goes
// to logging.getLogger("qvcommon"), one record per line.
void write_feedback(int32_t stream, const char *text, std::size_t length, void *) {
    if (!Py_IsInitialized()) return;
    std::string_view rest(text, length);
    while (!rest.empty()) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.empty()) continue;
        const char *level = stream == 2 ? "error" : "info";
        if (line.starts_with("WARNING - ")) {
            level = "warning";
            line.remove_prefix(10);
        }
        try {
            py::module_::import("logging")
                .attr("getLogger")("qvcommon")
                .attr(level)(py::str(line.data(), line.size()));
        } catch (const py::error_already_set &) { // a broken handler must not stop the library
            PyErr_Clear();
        }
    }
}

py::object error_class(const char *kind) {
    return py::module_::import("qvcommon.errors").attr(kind);
}

[[noreturn]] void throw_instance(py::object instance) {
    PyErr_SetObject(reinterpret_cast<PyObject *>(Py_TYPE(instance.ptr())), instance.ptr());
    throw py::error_already_set();
}

py::list messages_list(const Outcome &outcome) {
    py::list list;
    for (const Message &m : outcome.messages)
        list.append(py::make_tuple(m.number, MsgSeverityName_L(m.severity), m.text));
    return list;
}

} // namespace

void run_in_context(const char *where, Thunk thunk, void *body, Outcome &outcome,
                    std::exception_ptr &error) {
    const auto lock = take_library();
    clear_messages();
    if (except_start_context(where, "qvpython", __LINE__) == nullptr) throw std::bad_alloc();
    if (setjmp(Exc_Sp->jump_state) == 0) {
        run_body(thunk, body, error);
    } else {
        outcome.raised = Exc_Raised_ != nullptr ? Exc_Raised_ : GENERAL_ERROR;
        outcome.exit_status = Exc_Status;
    }
    Exc_Sp->in_handler = 1;
    except_end_context("qvpython", __LINE__);
    collect_messages(outcome);
}

std::string messages_text(const Outcome &outcome) {
    std::string text;
    for (const Message &m : outcome.messages) {
        if (m.number == QV_MSG_VALIDATION_FAILED && outcome.messages.size() > 1) continue;
        if (!text.empty()) text += "\n";
        text += m.text;
    }
    if (text.empty() && outcome.raised == STATUS_RAISED)
        text = "Exit( " + std::to_string(outcome.exit_status) + " ) ended the evaluation.";
    if (text.empty() && outcome.raised != nullptr)
        text = std::string("The library raised ") + outcome.raised + " without a message.";
    if (text.empty()) text = "The call failed without a message.";
    return text;
}

void throw_failure(const Outcome &outcome, const char *kind, const std::string &context,
                   py::dict extra) {
    if (outcome.raised == ALLOC_FAILURE || outcome.raised == ZERO_ALLOC_FAILURE) {
        PyErr_SetString(PyExc_MemoryError, (context + ": the library ran out of memory").c_str());
        throw py::error_already_set();
    }
    std::string text = messages_text(outcome);
    extra["number"] = outcome.messages.empty() ? 0u : outcome.messages.front().number;
    extra["messages"] = messages_list(outcome);
    if (outcome.raised == STATUS_RAISED) extra["exit_code"] = outcome.exit_status;
    throw_instance(error_class(kind)(context.empty() ? text : context + ": " + text, **extra));
}

void throw_parse_error(const Outcome &outcome, std::string_view text, std::size_t lead,
                       const std::string &context) {
    if (outcome.raised == ALLOC_FAILURE || outcome.raised == ZERO_ALLOC_FAILURE)
        throw_failure(outcome, "QvError", context);
    uint32_t byte_position = 0;
    const uint32_t reason = GetExpressionError_L(&byte_position);
    std::string marked;
    for (const Message &m : outcome.messages) // the marked text is the last parameter
        if ((m.number == QV_MSG_PARSE_FAILED || m.number == QV_MSG_PARSE_ENDED_EARLY) &&
            !m.parameters.empty())
            marked = m.parameters.back();
    // The parser counts bytes of the trimmed text; Python counts characters of the text given.
    const std::size_t bytes = std::min<std::size_t>(lead + byte_position, text.size());
    std::size_t characters = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        characters += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
    py::dict extra;
    extra["reason"] = reason;
    extra["position"] = characters;
    extra["byte_position"] = bytes;
    extra["marked"] = marked;
    extra["text"] = py::reinterpret_steal<py::object>(str_from_utf8(text.data(), text.size()));
    throw_failure(outcome, "ParseError", context, extra);
}

void initialise_library() {
    // Every parse reads QV_MAX_RECURSION; without it in the environment each one searches for
    // qv.ini. The default it would find is 100.
    setenv("QV_MAX_RECURSION", "100", 0);
    InitialiseFeedback_L();
    SetFeedbackWriter_L(write_feedback, nullptr);
    InitMessages_L(&message_set);
    InitialiseVariables_L();
    InitialiseFunctions_L();
    // The interpreter goes before the library's own teardown: nothing may write to it then.
    py::module_::import("atexit").attr("register")(
        py::cpp_function([] { SetFeedbackWriter_L(nullptr, nullptr); }));
}

} // namespace qvpy
