// qvpy.hpp - the pieces of the Python extension _qvcommon shared between its files: calls
// into the library inside a status context (call.cpp), the mapping between Python objects and
// value records (convert.cpp), and the registration functions of each part.
//
// Every call into the library is made while holding the GIL, which also serialises the
// library: its state is process-wide and it is used by one thread at a time. Python threads
// that call the module take turns; processes (Dask workers) each have their own library.
#pragma once

#include <pybind11/pybind11.h>

#include <qv/qvcommon.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qvpy {

namespace py = pybind11;

// 128-bit integers for date and interval arithmetic that must not overflow.
__extension__ typedef __int128 int128;

// ---- Calls inside a status context (call.cpp) ---------------------------------------------

// One message the library logged during a call.
struct Message {
    uint32_t number = 0;
    int32_t severity = 0;
    std::string text;
    std::vector<std::string> parameters;
};

// What a call left behind: the symbol a raise landed with (null when nothing was raised) and
// the error messages the library collected meanwhile.
struct Outcome {
    const char *raised = nullptr;
    int32_t exit_status = 0; // Exc_Status, for a raise of STATUS_RAISED
    std::vector<Message> messages;
};

// Runs `body` in a status context of its own, named `where`, with the message set emptied
// first. A raise in the library lands there and is returned in the outcome with the messages
// logged; a C++ exception thrown by the body (a Python error among them) is rethrown once
// the context is closed. The body runs in a frame of its own, so its locals are destroyed
// when a raise unwinds them.
template <class Body>
Outcome call(const char *where, Body &&body);

// Raises the Python exception for a failed call: MemoryError for ALLOC_FAILURE, else
// `kind` (a class of qvcommon.errors: "QvError", "ValidationError", "EvaluationError") made
// with `context` before the library's own text. Extra keyword arguments go to the class.
[[noreturn]] void throw_failure(const Outcome &outcome, const char *kind,
                                const std::string &context, py::dict extra = py::dict());
// Raises the ParseError of a text that did not parse: the parser's reason, and its position
// in characters of `text`, of which the parser read the part from byte `lead` on (trimmed).
[[noreturn]] void throw_parse_error(const Outcome &outcome, std::string_view text, std::size_t lead,
                                    const std::string &context);
// The messages of a failed call as one text, each message on a line.
std::string messages_text(const Outcome &outcome);

// Sets up the message context and the feedback writer; once, at import.
void initialise_library();

// ---- Python objects and values (convert.cpp) ------------------------------------------------

// Makes `value` (freed first) hold the Python object: None NULL (untyped), bool BOOLEAN, int
// INTEGER (NUMBER beyond 64 bits), float FLOAT, Decimal NUMBER, str CHAR, bytes BINARY,
// datetime DATE (DATE WITH TIME ZONE when aware), date DATE, time TIME (TIME WITH TIME ZONE),
// timedelta INTERVAL DAY TO SECOND, IntervalYM INTERVAL YEAR TO MONTH, list and tuple ARRAY,
// Typed its declared type; NumPy scalars as their Python counterparts. Throws TypeError or
// ValueError (naming `what`) for objects with no value.
void to_value(py::handle object, QV_VALUE_T *value, const char *what);
// The Python object of a value (see to_value, the other way round; CLOB str, BLOB bytes).
py::object to_python(const QV_VALUE_T &value);

// Whether an object stands for a missing value: None, pandas.NA, NaT, a float NaN.
bool is_missing(py::handle object);

// What an element of an object column is, for deciding the column's type.
enum class Kind {
    Missing,
    Text,
    Boolean,
    Integer,
    Float,
    Decimal,
    DateTime,
    DateTimeZoned,
    Date,
    Time,
    TimeZoned,
    Delta,
    Bytes,
    IntervalYM,
    Array,
    Typed,
    Other
};
Kind kind_of(py::handle object);
const char *kind_name(Kind kind);
// The digits of a Decimal or int as NUMBER would hold it: integer digits and decimals.
void number_digits(py::handle object, int32_t *integer_digits, int32_t *scale);

// The type declaration "NUMBER(10,2)", "CHAR(20)", "DATE"; "" for type 0.
std::string type_text(const QV_DATATYPE_T &type);
// Parses a declaration as ParseVariableType_L reads it; a bare NUMBER is NUMBER(77, 0) with
// `open_number` set (its precision and scale come from the data). Throws ValueError.
QV_DATATYPE_T parse_type(const std::string &text, bool *open_number, const char *what);

// UTF-8 text of a str (lone surrogates from the "surrogateescape" error handler become the
// bytes they stand for); null with *length 0 when it has none. The pointer lives as long as
// the str, or until the next call when the text needed re-encoding into `scratch`.
const char *utf8_of(PyObject *text, Py_ssize_t *length, std::string &scratch);
// The CHAR length of a text of `characters` characters: at least 1. Texts carry their length
// so that what the language derives from them (If, IfNull ...) is as long as they are.
int32_t text_length(std::size_t characters);
// A str from UTF-8 bytes, invalid bytes kept as lone surrogates ("surrogateescape").
PyObject *str_from_utf8(const char *text, std::size_t length);

// Date and time fields as Python objects; ValueError for years outside 1..9999.
py::object make_datetime(const QV_DATE_T &date, bool zoned);
py::object make_time(const QV_DATE_T &date, bool zoned);

// Caches the Python types the mapping needs; once, at import.
void initialise_conversions();

// ---- Expressions (expression.cpp) ------------------------------------------------------------

struct ExpressionDeleter {
    void operator()(EXPRESSION_T *e) const { Free_Expression_L(e); }
};
using ExpressionPtr = std::unique_ptr<EXPRESSION_T, ExpressionDeleter>;

// A new expression parsed from `text` (comparisons and placeholders allowed). Throws the
// ParseError (prefixed by `context` when not empty), or ValueError for a text with nothing
// to evaluate.
ExpressionPtr parse_expression(const std::string &text, const std::string &context);
// The names the parsed expression reads (dotted parts joined by "."), each once, in order.
std::vector<std::string> expression_names(const EXPRESSION_T *expression);

// Where the trimmed text a parse read (the record's text) begins in the text given: the
// parser's positions count from there.
std::size_t trimmed_lead(std::string_view text, const EXPRESSION_T *parsed);
// Whether two types are the same declaration (type, precision, scale).
bool same_type(const QV_DATATYPE_T &a, const QV_DATATYPE_T &b);
// The Python repr of a text: 'price * qty'.
std::string quoted(const std::string &text);

// ---- Registration of each part --------------------------------------------------------------
void register_expression(py::module_ &module);
void register_script(py::module_ &module);
void register_derive(py::module_ &module);

// A counter that moves whenever variables are freed, so that expressions validated before
// bind their variables again.
extern uint64_t variable_epoch;
// A counter that moves with every declaration of functions: a declaration moves the function
// records that parsed calls point at, so expressions and scripts parsed before parse again.
extern uint64_t function_epoch;

// ---- Template definitions -------------------------------------------------------------------

using Thunk = void (*)(void *);
// Opens the context, runs thunk(body) and closes it; fills the outcome. call.cpp.
void run_in_context(const char *where, Thunk thunk, void *body, Outcome &outcome,
                    std::exception_ptr &error);

template <class Body>
Outcome call(const char *where, Body &&body) {
    Outcome outcome;
    std::exception_ptr error;
    using Plain = std::remove_reference_t<Body>;
    run_in_context(
        where, [](void *b) { (*static_cast<Plain *>(b))(); }, &body, outcome, error);
    if (error) std::rethrow_exception(error);
    return outcome;
}

} // namespace qvpy
