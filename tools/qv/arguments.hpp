// arguments.hpp - option values that the commands check before they run: name bindings and
// variables (NAME[:TYPE]=VALUE), derivations (NAME := EXPRESSION) and the delimiter. Each
// parser returns "" or a message naming the option and what is wrong with it.
#pragma once

#include <qv/datatype.h>

#include <string>
#include <string_view>

namespace qvtool {

// --bind NAME[:TYPE]=VALUE and --var NAME[:TYPE]=VALUE (a leading '$' on a variable's name is
// dropped). Without TYPE the type is inferred from VALUE; an empty VALUE is NULL.
struct Binding {
    std::string name;
    QV_DATATYPE_T type;
    bool typed; // TYPE was given
    std::string value;
};
std::string parse_binding(std::string_view option, std::string_view text, Binding &binding);

// -e 'NAME := EXPRESSION'.
struct Derivation {
    std::string name, expression;
};
std::string parse_derivation(std::string_view text, Derivation &derivation);

// --delimiter: one byte, or "\t" / "tab" for a tab; not a quote, CR or LF.
std::string parse_delimiter(std::string_view text, char &delimiter);

// A name of the language: a letter or '_' (or any non-ASCII byte), then those, digits and
// dots.
bool is_name(std::string_view text);

} // namespace qvtool
