// scan.hpp - a light reading of the language's text for the tool's own needs: how many
// parentheses and blocks a piece of text leaves open (the REPL reads more lines until they
// are closed), and where the declarations of user-defined functions stand in a script.
//
// The scan knows just enough of the tokens to skip what may hold anything: quoted texts
// ('It''s'), double-quoted names ("a ""b"""), braced variables ({$a}}b}) and comments (//
// to the end of the line). Words are the language's capitalised keywords: BEGIN and CASE
// open a block, END closes one; FUNCTION at the start of a statement starts a declaration
// (FUNCTION Name( ... ) [RETURNS type] BEGIN ... END).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

// What a text leaves open at its end.
struct Openness {
    int parentheses = 0; // "(" not closed (negative when more are closed than opened)
    int blocks = 0;      // BEGIN or CASE not closed by END
    bool quote = false;  // a quoted text or name not closed
    bool more_wanted() const { return parentheses > 0 || blocks > 0; }
};
Openness openness(std::string_view text);

// Whether a text is statements rather than one expression: it starts with a statement
// keyword (IF, CASE, WHILE, FOR, BEGIN, RETURN, FUNCTION) or holds ":=" or ";".
bool looks_like_statements(std::string_view text);

// The statements of a script at its top level, in order, as `qv check --script --explain`
// lists them: where each begins, what it is (FUNCTION, IF, CASE, WHILE, FOR, BEGIN, RETURN,
// "assignment" or "call") and its text. A statement ends at a ";" outside blocks and
// parentheses, or at the END that closes its outermost block when no ";" or ELSE follows.
struct Statement {
    std::size_t begin = 0;
    std::string kind;
    std::string_view text;
};
std::vector<Statement> top_statements(std::string_view text);

// A script split into its declarations of user-defined functions and the rest. Each part
// has the length of the text, the other part's characters blanked (line ends kept), so that
// a position in either is the position in the text.
struct ScriptParts {
    std::string declarations, statements;
    bool has_declarations = false;
};
ScriptParts split_declarations(std::string_view text);

} // namespace qvtool
