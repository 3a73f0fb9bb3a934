// library.hpp - how the tool uses the library: starting and ending it, calling it inside a
// status context, and showing what it logged.
//
// Every call into the library that can fail runs inside `guarded`, which opens a status
// context: a raise lands there instead of being reported and returned from. What the
// library logged on the way (errors, and warnings, which are deferred into the same message
// set) is taken with `take_problems` and printed by `print_problems` on standard error:
//
//     qv: error 0xA1D7164A at position 4: There is no function named 'Foo'.
//     qv:     1 + >>>Foo(2)
//
// one line per message with its number, then, for a message that names a position in the
// text, the text (its line, for a text of several lines) marked with ">>>" there.
#pragma once

#include <qv/qvcommon.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

// The library for one run of the program: messages collected in a set of our own (warnings
// too), variables and functions initialised; all of it ended and freed on destruction.
class Library {
  public:
    Library();
    ~Library();
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

// How a guarded call ended.
enum class Outcome {
    Done,   // the body returned true
    Failed, // it returned false, or a failure was raised (messages logged)
    Exited  // Exit( code ) was called
};

// Runs `body` inside a status context named `name`. On Exited, `exit_code` is Exit's code.
Outcome guarded(const char *name, const std::function<bool()> &body, int &exit_code);

// Parse_Expression_L as a value or condition, with the user-defined functions of the
// current function array found too (the parser looks only at the tables it is given and
// the built-ins; a script looks at both on its own).
int32_t parse_expression(EXPRESSION_T *expression);

// Validate_Expression_L, then texts kept whole: a result typed CHAR(n) is declared CHAR of
// any length. (Validation types If( c, text, 'none' ) by its last outcome, CHAR(4), and the
// evaluator would cut every result to that length.) Returns 1 when valid.
int32_t validate_expression(EXPRESSION_T *expression);

// One logged message.
struct Problem {
    std::uint32_t number = 0;
    int severity = MESSAGE_SEVERITY_ERROR;
    std::string text;
    int position = -1; // byte offset in the text it is about, when it names one
};

// The messages logged since the last call (the set is then emptied). A failed parse is
// shown by its reason (GetExpressionError_L: the parser's message number and position)
// rather than the parse-failed summary, a failed validation by its reasons without the
// summary. A raise that logged nothing (an allocation failure)
// gives one problem describing the raise.
std::vector<Problem> take_problems();

// Prints the problems as shown at the top, `prefix` before each (such as "row 12: ");
// positions are marked in `text`.
void print_problems(std::FILE *out, const std::vector<Problem> &problems, std::string_view text,
                    const std::string &prefix = "");

// take_problems, then print_problems. Returns whether there was any.
bool report_problems(std::FILE *out, std::string_view text, const std::string &prefix = "");

// "text" with ">>>" at byte `position`; of a text of several lines only the line holding the
// position, after "line N: ".
std::string marked(std::string_view text, int position);

// The value's text form (ValueToChar_L; "NULL" for NULL), and its type as DisplayDataType_L
// writes it.
std::string value_text(const QV_VALUE_T &value);
std::string type_text(const QV_DATATYPE_T &type);

// Owns a library value record: freed on destruction.
struct HeldValue {
    QV_VALUE_T value{};
    HeldValue() = default;
    HeldValue(const HeldValue &) = delete;
    HeldValue &operator=(const HeldValue &) = delete;
    ~HeldValue() { FreeValue_L(&value); }
};

// Owns an expression or script record.
struct ExpressionDeleter {
    void operator()(EXPRESSION_T *expression) const { Free_Expression_L(expression); }
};

} // namespace qvtool
