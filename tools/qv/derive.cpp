// derive.cpp - the row loop of `qv derive` (see derive.hpp).
#include "derive.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "csv.hpp"
#include "files.hpp"
#include "interrupt.hpp"
#include "program.hpp"
#include "progress.hpp"
#include "types.hpp"

namespace qvtool {
namespace {

constexpr std::size_t SAMPLE_ROWS = 1000;
constexpr int SHOWN_FAILURES = 10;

// Rows kept in one block of bytes (the first rows, read before the program is prepared).
class RowSample {
  public:
    void add(std::span<const std::string_view> fields, std::int64_t line) {
        for (const std::string_view field : fields) {
            bytes_.append(field);
            field_ends_.push_back(bytes_.size());
        }
        row_ends_.push_back(field_ends_.size());
        lines_.push_back(line);
    }
    std::size_t size() const { return row_ends_.size(); }
    std::int64_t line(std::size_t row) const { return lines_[row]; }
    void fields(std::size_t row, std::vector<std::string_view> &out) const {
        out.clear();
        std::size_t field = row == 0 ? 0 : row_ends_[row - 1];
        std::size_t begin = field == 0 ? 0 : field_ends_[field - 1];
        for (; field < row_ends_[row]; begin = field_ends_[field++])
            out.emplace_back(bytes_.data() + begin, field_ends_[field] - begin);
    }

  private:
    std::string bytes_;
    std::vector<std::size_t> field_ends_, row_ends_;
    std::vector<std::int64_t> lines_;
};

class Run {
  public:
    Run(const DeriveOptions &options, RowProgram &program, std::FILE *messages)
        : options_(options), program_(program), messages_(messages) {}
    int execute();

  private:
    enum : int { DONE = 0, FAILED = 1, USAGE = 2 };
    bool open();
    void read_columns();
    void settle_types();
    bool process(std::span<const std::string_view> fields, std::int64_t line,
                 std::string_view plain = {});
    bool accept_field_count(std::span<const std::string_view> &fields, std::int64_t line);
    bool write(std::span<const std::string_view> fields);
    bool write(std::string_view plain, std::span<const std::string_view> more);
    bool written(bool done); // false, with the write error noted, when a write failed
    void report_row(std::int64_t line, const std::string &text);
    int finish(int status);
    int stopped() const { return exit_code_ < 0 ? FAILED : exit_code_; }
    int reader_failed();
    void say(const std::string &text) { std::fprintf(messages_, "qv: %s\n", text.c_str()); }

    const DeriveOptions &options_;
    RowProgram &program_;
    std::FILE *messages_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::unique_ptr<InputFile> input_;
    std::unique_ptr<OutputFile> output_;
    std::unique_ptr<CsvReader> reader_;
    std::unique_ptr<CsvWriter> writer_;
    std::unique_ptr<Progress> progress_;
    std::vector<Column> columns_;
    RowSample sample_;
    CsvReader::Status after_sample_ = CsvReader::Status::Row;
    std::vector<std::string_view> row_, padded_, out_;
    std::string failure_, write_error_;
    std::int64_t read_ = 0, written_ = 0, dropped_ = 0, failed_ = 0;
    int exit_code_ = -1;       // Exit( code ) ended the run
    bool keeps_input_ = false; // the program's output starts with the input fields
};

int Run::execute() {
    std::vector<ColumnType> declared;
    std::string error = parse_column_types(options_.types, declared);
    if (!error.empty()) {
        say(error);
        return USAGE;
    }
    if (!open()) return finish(USAGE);
    read_columns();
    if (reader_->failure() != CsvReader::Failure::None) return finish(reader_failed());
    for (const ColumnType &given : declared) {
        const auto column = std::find_if(columns_.begin(), columns_.end(),
                                         [&](const Column &c) { return c.name == given.column; });
        if (column == columns_.end()) {
            say("--types: no column named '" + given.column + "'");
            return finish(USAGE);
        }
        column->type = given.type;
        column->declared = true;
    }
    settle_types();
    std::vector<std::string> names;
    if (error = program_.prepare(columns_, names); !error.empty()) {
        say(error);
        return finish(USAGE);
    }
    keeps_input_ = program_.keeps_input_columns();
    if (options_.header && !columns_.empty()) {
        row_.assign(names.begin(), names.end());
        if (!write(row_)) return finish(FAILED);
    }
    for (std::size_t i = 0; i < sample_.size(); ++i) {
        sample_.fields(i, row_);
        if (!process(row_, sample_.line(i))) return finish(stopped());
    }
    CsvReader::Status status = after_sample_;
    while (status == CsvReader::Status::Row && (status = reader_->next()) == CsvReader::Status::Row)
        if (!process(reader_->fields(), reader_->line_number(), reader_->plain_text()))
            return finish(stopped());
    return finish(status == CsvReader::Status::End ? DONE : reader_failed());
}

bool Run::open() {
    std::string error;
    input_ = InputFile::open(options_.input, error);
    if (input_) output_ = OutputFile::open(options_.output, error);
    if (!output_) {
        say(error);
        return false;
    }
    reader_ = std::make_unique<CsvReader>(*input_, options_.delimiter);
    writer_ = std::make_unique<CsvWriter>(*output_, options_.delimiter);
    progress_ =
        std::make_unique<Progress>(progress_wanted(input_->regular()), input_->size(), messages_);
    return true;
}

// The header's names, or c1 ... cN after the first record (kept in the sample). A reader
// failure is left for the caller to see.
void Run::read_columns() {
    if (reader_->next() != CsvReader::Status::Row) return;
    const std::vector<std::string_view> &first = reader_->fields();
    for (std::size_t i = 0; i < first.size(); ++i)
        columns_.push_back({options_.header ? std::string(first[i])
                                            : std::string(1, 'c').append(std::to_string(i + 1))});
    if (!options_.header) sample_.add(first, reader_->line_number());
}

// Reads the first rows into the sample when the program needs types, and infers the type of
// every column --types did not give. A reader failure while sampling is seen after the
// sampled rows are processed, as it would be without the sample.
void Run::settle_types() {
    if (!program_.needs_types()) return;
    while (sample_.size() < SAMPLE_ROWS &&
           (after_sample_ = reader_->next()) == CsvReader::Status::Row)
        sample_.add(reader_->fields(), reader_->line_number());
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        if (columns_[c].declared) continue;
        TypeGuess guess;
        for (std::size_t i = 0; i < sample_.size(); ++i) {
            sample_.fields(i, row_);
            if (c < row_.size()) guess.add(row_[c]);
        }
        columns_[c].type = guess.type();
    }
}

// One row; `plain` is its record's text when the reader has it (CsvReader::plain_text).
bool Run::process(std::span<const std::string_view> fields, std::int64_t line,
                  std::string_view plain) {
    if (interrupt::requested()) return false;
    ++read_;
    progress_->update(reader_->bytes_consumed(), static_cast<std::uint64_t>(read_));
    const std::int64_t failed_before = failed_;
    const bool whole = !plain.empty() && keeps_input_ && fields.size() == columns_.size();
    if (!accept_field_count(fields, line)) return options_.on_error != OnError::Stop;
    failure_.clear();
    const Verdict verdict = program_.apply(read_, fields, out_, failure_);
    if (verdict == Verdict::Exit) {
        say("row " + std::to_string(read_) + " (line " + std::to_string(line) + "): " + failure_);
        exit_code_ = program_.exit_code();
        return false;
    }
    if (!failure_.empty()) {
        report_row(line, failure_);
        failed_ = failed_before + 1;
        if (options_.on_error == OnError::Stop) return false;
    }
    if (verdict == Verdict::Drop) ++dropped_;
    if (verdict != Verdict::Write) return true;
    if (!(whole ? write(plain, std::span(out_).subspan(fields.size())) : write(out_))) return false;
    ++written_;
    return true;
}

bool Run::write(std::span<const std::string_view> fields) {
    return written(writer_->write_row(fields));
}

bool Run::write(std::string_view plain, std::span<const std::string_view> more) {
    return written(writer_->write_row(plain, more));
}

bool Run::written(bool done) {
    if (done) return true;
    if (interrupt::requested()) return false; // a write cut short by Ctrl-C is no write error
    write_error_ = "cannot write '" + output_->name() + "': " + std::strerror(errno);
    return false;
}

// A row whose field count differs from the header's fails; under --on-error null it goes on
// padded with NULL or cut to the header's width. False when the row is not to be processed.
bool Run::accept_field_count(std::span<const std::string_view> &fields, std::int64_t line) {
    if (fields.size() == columns_.size()) return true;
    report_row(line, std::to_string(fields.size()) + " fields where the " +
                         (options_.header ? "header has " : "first row has ") +
                         std::to_string(columns_.size()));
    ++failed_;
    if (options_.on_error != OnError::Null) return false;
    padded_.assign(fields.begin(), fields.begin() + std::min(fields.size(), columns_.size()));
    padded_.resize(columns_.size());
    fields = padded_;
    return true;
}

void Run::report_row(std::int64_t line, const std::string &text) {
    if (failed_ < SHOWN_FAILURES)
        say("row " + std::to_string(read_) + " (line " + std::to_string(line) + "): " + text);
    else if (failed_ == SHOWN_FAILURES)
        say("more failed rows are not shown");
}

// The reader's failure: malformed input, a read error or an interruption (which finish
// reports).
int Run::reader_failed() {
    const std::string line = " (line " + std::to_string(reader_->line_number()) + "): ";
    switch (reader_->failure()) {
        case CsvReader::Failure::Malformed:
            if (options_.header && reader_->record_number() == 1)
                say("header" + line + reader_->error());
            else
                say("row " + std::to_string(read_ + 1) + line + reader_->error());
            break;
        case CsvReader::Failure::Read:
            say("cannot read '" + input_->name() + "': " + reader_->error());
            break;
        default: break;
    }
    return FAILED;
}

int Run::finish(int status) {
    if (progress_) progress_->finish();
    const int signal_number = interrupt::requested();
    if (signal_number != 0) {
        say("interrupted at row " + std::to_string(read_));
        status = 128 + signal_number;
    }
    // Rows done before a failure still go to standard output; an interrupted run just stops.
    std::string error = write_error_;
    const bool flush =
        status == DONE || (status != USAGE && signal_number == 0 && !output_->named());
    if (writer_ && error.empty() && flush && !writer_->flush()) {
        error = "cannot write '" + output_->name() + "': " + std::strerror(errno);
        status = FAILED;
    }
    if (status == DONE && output_ && !output_->commit(error)) status = FAILED;
    if (!error.empty()) say(error);
    if (status == USAGE) return status;
    if (input_ && output_) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        std::fprintf(messages_,
                     "qv: rows read %lld, written %lld, dropped %lld, failed %lld; %.3f s, "
                     "%.0f rows/s\n",
                     static_cast<long long>(read_), static_cast<long long>(written_),
                     static_cast<long long>(dropped_), static_cast<long long>(failed_), seconds,
                     double(read_) / std::max(seconds, 1e-6));
    }
    if (status != DONE && output_ && output_->named())
        say("nothing written to '" + output_->name() + "'");
    return status;
}

} // namespace

std::string PassThrough::prepare(const std::vector<Column> &columns,
                                 std::vector<std::string> &output_names) {
    output_names.clear();
    for (const Column &column : columns) output_names.push_back(column.name);
    return "";
}

Verdict PassThrough::apply(std::int64_t, std::span<const std::string_view> fields,
                           std::vector<std::string_view> &out, std::string &) {
    out.assign(fields.begin(), fields.end());
    return Verdict::Write;
}

std::unique_ptr<RowProgram> make_row_program(const DeriveOptions &options, std::FILE *messages) {
    if (options.derivations.empty() && options.where.empty())
        return std::make_unique<PassThrough>();
    return make_expression_program(options, messages);
}

int run_derive(const DeriveOptions &options, RowProgram &program, std::FILE *messages) {
    return Run(options, program, messages).execute();
}

std::string parse_column_types(const std::vector<std::string> &lists,
                               std::vector<ColumnType> &types) {
    for (const std::string &list : lists) {
        std::size_t begin = 0;
        int depth = 0;
        for (std::size_t i = 0; i <= list.size(); ++i) {
            if (i < list.size() && (list[i] != ',' || depth > 0)) {
                depth += list[i] == '(' ? 1 : list[i] == ')' ? -1 : 0;
                continue;
            }
            const std::string item = list.substr(begin, i - begin);
            begin = i + 1;
            const std::size_t colon = item.rfind(':');
            if (colon == std::string::npos || colon == 0)
                return "--types: '" + item + "': expected COLUMN:TYPE";
            ColumnType entry{item.substr(0, colon), {}};
            if (std::string error = parse_type(item.substr(colon + 1), entry.type); !error.empty())
                return "--types: " + error;
            types.push_back(std::move(entry));
        }
    }
    return "";
}

} // namespace qvtool
