// catalog.hpp - the functions a text may call, as `qv functions` and the REPL's .help show
// them: the built-in table and the user-defined functions of the current function array.
#pragma once

#include <qv/builtin.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

// Every function record: the user-defined ones first (they are found first), then the
// built-ins, each group by name.
std::vector<const ExpFunction *> all_functions();

// The record named `name` (any case), or null.
const ExpFunction *find_function(std::string_view name);

// The functions by category, each under its category's name, with their usage lines:
//     String
//       Concat( value [, value ... ] )
void list_functions(std::FILE *out);

// One function: its usage line, then its category, argument counts and result type.
void describe_function(std::FILE *out, const ExpFunction &function);

} // namespace qvtool
