// program.hpp - the row program of `qv derive -e ... --where ...`: the expression language
// over the columns of a CSV.
//
// Prepared once: every derivation and the condition is parsed, its names bound to value
// records of the columns (the input's, and those derived before it, the later first), and
// validated; the condition must be BOOLEAN. A derivation whose name is a column's replaces
// that column in the output (and for the expressions after it); any other is appended. The
// condition sees every column, derived ones included; when it names no derived column it is
// evaluated first, and the rows it drops are not derived at all.
//
// Per row: RowNum() is set to the data row number; the fields of the columns the
// expressions name (only those) are read into their records (fields.hpp: a field that does
// not read as its column's type is a failure, the record NULL); the expressions are
// evaluated in order; a derived value's text form (ValueToChar_L's form; NULL empty) becomes
// its field. Input fields are written as they were read. One status context guards the
// whole row: a failing expression ends in it, is reported with its column, and the row goes
// on from the next expression with NULL in its place (--on-error null) or fails.
// Exit( code ) in an expression ends the run with that status.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "derive.hpp"

namespace qvtool {

std::unique_ptr<RowProgram> make_expression_program(const DeriveOptions &options,
                                                    std::FILE *messages);

} // namespace qvtool
