// csv.hpp - streaming reading and writing of delimited text: RFC 4180 (fields in double
// quotes, a doubled quote inside them, delimiters and line ends inside them, CRLF) and the
// variants met in practice (LF or a lone CR as line end, a UTF-8 byte-order mark at the start,
// no line end after the last record, any one-byte delimiter).
//
// The reader keeps one buffer of bytes from its source and hands out a record at a time as
// string_views into that buffer: a field in quotes is unescaped in place (the unescaped text
// is never longer), so no field is copied or allocated. The buffer is refilled when a record
// runs past its end: the unfinished record moves to the front and is scanned again, and the
// buffer grows only when one record fills half of it, up to a limit. Memory therefore stays
// constant whatever the input size, bounded by the longest record.
//
// Decisions: a blank line (no byte between two line ends) is skipped, not read as a record of
// one empty field, so a trailing blank line never makes a ragged row; a quote inside a field
// that did not start with one is an ordinary character; a field that starts with a quote
// must end with one followed by the delimiter or a line end, else the record is malformed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvtool {

// Where the reader's bytes come from.
class ByteSource {
  public:
    virtual ~ByteSource() = default;
    // Up to `capacity` bytes into `buffer`: the count read, 0 at the end, or -1 with errno set
    // (EINTR when the run was interrupted).
    virtual std::ptrdiff_t read(char *buffer, std::size_t capacity) = 0;
};

// Where the writer's bytes go.
class ByteSink {
  public:
    virtual ~ByteSink() = default;
    // Writes all `size` bytes; false with errno set when that failed.
    virtual bool write_all(const char *data, std::size_t size) = 0;
};

// Text held in memory, handed out at most `chunk` bytes per read (tests use small chunks to
// put record boundaries at every place in the buffer).
class MemorySource : public ByteSource {
  public:
    explicit MemorySource(std::string_view text, std::size_t chunk = SIZE_MAX)
        : text_(text), chunk_(chunk) {}
    std::ptrdiff_t read(char *buffer, std::size_t capacity) override;

  private:
    std::string_view text_;
    std::size_t chunk_;
};

// Bytes collected in memory.
class StringSink : public ByteSink {
  public:
    bool write_all(const char *data, std::size_t size) override {
        text.append(data, size);
        return true;
    }
    std::string text;
};

class CsvReader {
  public:
    enum class Status { Row, End, Failed };
    static constexpr std::size_t DEFAULT_BUFFER = std::size_t{1} << 20;
    static constexpr std::size_t DEFAULT_RECORD_LIMIT = std::size_t{128} << 20;

    explicit CsvReader(ByteSource &source, char delimiter = ',',
                       std::size_t buffer_size = DEFAULT_BUFFER,
                       std::size_t record_limit = DEFAULT_RECORD_LIMIT);

    // Reads the next record. Row: fields() holds it until the next call. End: no more records.
    // Failed: failure() and error() say why. After Failed the reader stays failed.
    Status next();
    enum class Failure { None, Malformed, Read, Interrupted };

    const std::vector<std::string_view> &fields() const { return fields_; }
    // The record's bytes (without its line end) when a writer would write its fields back
    // exactly so: no field is quoted or holds a quote. Empty otherwise. Valid as fields().
    std::string_view plain_text() const { return plain_; }
    // The record fields() holds (or that failed), counting from 1 over all records read, a
    // header included; and the line it starts on (records may span lines).
    std::int64_t record_number() const { return record_; }
    std::int64_t line_number() const { return line_; }
    // Bytes of the source consumed through the end of the last record returned.
    std::uint64_t bytes_consumed() const { return consumed_ + start_; }
    // Malformed: the record at record_number() (malformed quoting, longer than the limit);
    // Read: the source failed (errno's text); Interrupted: the run was interrupted.
    Failure failure() const { return failure_; }
    const std::string &error() const { return error_; }

  private:
    enum class Scan { Record, NeedMore, Malformed };
    struct Span {
        std::uint32_t begin, end; // offsets in the buffer
        bool quoted, doubled;     // in quotes; holding doubled quotes to unescape
    };

    Scan scan_record();
    Scan scan_quoted(const char *&p, const char *end);
    const char *unquoted_end(const char *p, const char *end) const;
    bool refill();
    bool skip_byte_order_mark();
    void materialise();
    std::int64_t lines_inside_quotes() const;
    bool fail(Failure failure, std::string text); // false, the reader failed

    ByteSource &source_;
    char delimiter_;
    std::size_t record_limit_;
    bool special_[256] = {}; // bytes that end an unquoted field
    std::vector<char> buffer_;
    std::size_t start_ = 0;  // first byte of the unread records
    std::size_t filled_ = 0; // bytes in the buffer
    std::size_t next_ = 0;   // after scan_record: first byte past the record
    std::uint64_t consumed_ = 0;
    bool at_end_ = false, bom_checked_ = false;
    Failure failure_ = Failure::None;
    std::vector<Span> spans_;
    std::vector<std::string_view> fields_;
    std::string_view plain_;
    std::int64_t record_ = 0, line_ = 1, next_line_ = 1;
    std::string error_;
};

class CsvWriter {
  public:
    explicit CsvWriter(ByteSink &sink, char delimiter = ',',
                       std::size_t buffer_size = std::size_t{1} << 20);
    // Appends one record, quoting exactly the fields that need it: those holding the
    // delimiter, a quote, CR or LF, and an empty field that is a record's only field (which
    // would otherwise read back as a blank line). Records end with LF. False when the sink
    // failed (errno set); the writer then stays failed.
    bool write_row(std::span<const std::string_view> fields);
    // The same for a record whose first fields are `plain` (CsvReader::plain_text, not
    // empty), written as it is, and then `more`.
    bool write_row(std::string_view plain, std::span<const std::string_view> more);
    bool flush();

  private:
    void append_field(std::string_view field, bool alone);
    bool needs_quotes(std::string_view field) const;

    ByteSink &sink_;
    char delimiter_;
    std::size_t threshold_;
    bool special_[256] = {};
    std::string buffer_;
    bool failed_ = false;
};

} // namespace qvtool
