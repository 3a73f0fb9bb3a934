// derive.hpp - `qv derive`: a CSV streamed row by row through a row program into a CSV.
//
// One run: open the input and the output (a temporary file renamed at the end, see files.hpp);
// read the header, or name the columns c1, c2 ... after the first record with --no-header;
// when the program needs column types, take them from --types and infer the rest from the
// first 1,000 rows, which are kept and then processed like the others; let the program bind
// its names once (prepare); then for each row check its field count, hand its fields to the
// program (apply) and write, drop or count it as failed. A summary line ends the run on the
// message stream.
//
// Failures in a row (a field count that differs from the header's, or what the program
// reports) follow --on-error: stop ends the run at the first (status 1), skip leaves the row
// out, null writes it with NULL (empty) in place of what failed: a short row is padded with
// NULL, a long row loses its extra fields. Every failed row is counted; under skip and null
// the first ten are reported by row number and line. Malformed quoting ends the run whatever
// the policy, since the rows after it cannot be found.
//
// Exit status: 0 done; 1 the run failed (a row under stop, malformed input, a read or write
// error); 2 it could not start (a missing input, an unwritable output, bad --types); 128 + the
// signal number when interrupted. On any failure the named output is left as it was; on
// standard output the rows done before a failure are written, an interrupted run just stops.
#pragma once

#include <qv/datatype.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

enum class OnError { Null, Skip, Stop };

struct DeriveOptions {
    std::vector<std::string> derivations; // "NAME := EXPRESSION", in order
    std::string where;                    // a condition; empty keeps every row
    std::vector<std::string> types;       // "COLUMN:TYPE,COLUMN:TYPE ...", as given
    char delimiter = ',';
    bool header = true;
    OnError on_error = OnError::Stop;
    std::string input = "-", output = "-";
};

struct Column {
    std::string name;
    QV_DATATYPE_T type{};  // type 0 until known
    bool declared = false; // given by --types
};

// What a program decided for a row. Exit: the run ends here with the program's exit code
// (Exit( code ) in an expression): 0 keeps the rows before this one, as a run that ended.
enum class Verdict { Write, Drop, Skip, Exit };

// The work done on each row. The expression language plugs in here: prepare binds every
// column name to a value record once and parses the derivations and the condition; apply
// converts the fields into those records, evaluates, and fills the output fields.
class RowProgram {
  public:
    virtual ~RowProgram() = default;
    // Whether prepare needs the columns' types.
    virtual bool needs_types() const = 0;
    // Once, before the first row: the input columns; fills the output column names. Returns
    // "" or what is wrong (a usage error: unknown names, type errors).
    virtual std::string prepare(const std::vector<Column> &columns,
                                std::vector<std::string> &output_names) = 0;
    // One row, numbered from 1: one field per column (empty is NULL). Fills `out` with one
    // field per output column (views valid until the next call). On a failure writes what
    // failed into `failure` ("column total: ..."): under --on-error null it carries on with
    // NULL and returns Write; under skip and stop it returns Skip. Drop: the condition did
    // not hold.
    virtual Verdict apply(std::int64_t row, std::span<const std::string_view> fields,
                          std::vector<std::string_view> &out, std::string &failure) = 0;
    // After Exit: the status the run ends with.
    virtual int exit_code() const { return 0; }
    // After prepare: whether the first output fields are always the input fields, as they
    // are (no column replaced), so that a plain record's text can stand for them.
    virtual bool keeps_input_columns() const { return false; }
};

// Copies every row as it is: derive without expressions.
class PassThrough : public RowProgram {
  public:
    bool needs_types() const override { return false; }
    std::string prepare(const std::vector<Column> &columns,
                        std::vector<std::string> &output_names) override;
    Verdict apply(std::int64_t row, std::span<const std::string_view> fields,
                  std::vector<std::string_view> &out, std::string &failure) override;
    bool keeps_input_columns() const override { return true; }
};

// The program for these options: PassThrough without expressions, else the expression
// program (program.hpp), which prints the library's problems on `messages`.
std::unique_ptr<RowProgram> make_row_program(const DeriveOptions &options, std::FILE *messages);

// Runs one derive; messages and the summary go to `messages`. Returns the exit status.
int run_derive(const DeriveOptions &options, RowProgram &program, std::FILE *messages);

// A --types list: "COLUMN:TYPE" items separated by commas outside parentheses (so
// "price:NUMBER(10,2),qty:INTEGER" is two items). Returns "" or what is wrong.
struct ColumnType {
    std::string column;
    QV_DATATYPE_T type;
};
std::string parse_column_types(const std::vector<std::string> &lists,
                               std::vector<ColumnType> &types);

} // namespace qvtool
