// csv_test.cpp - the streaming CSV reader against a plain whole-text model, fed through every
// chunk size and tiny buffers so that record boundaries fall everywhere; the writer's quoting
// and round trips; failures of the source.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "csv.hpp"

namespace {

using qvtool::CsvReader;
using qvtool::CsvWriter;
using qvtool::MemorySource;
using qvtool::StringSink;
using Records = std::vector<std::vector<std::string>>;

// What a reader should make of a text: its records with the lines they start on, then the
// error of the record that failed ("" when the text ends cleanly). Written as one plain
// pass over the whole text, character by character.
struct Expected {
    Records records;
    std::vector<std::int64_t> lines;
    std::string error;
    std::int64_t error_line = 0;
};

Expected model(std::string text, char delimiter = ',') {
    Expected out;
    if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);
    std::size_t i = 0;
    std::int64_t line = 1;
    const auto at_line_end = [&](std::size_t k) {
        return k == text.size() || text[k] == '\n' || text[k] == '\r';
    };
    while (i < text.size()) {
        const std::int64_t start_line = line;
        std::vector<std::string> record;
        bool blank = true;
        for (;;) {
            std::string field;
            if (i < text.size() && text[i] == '"') {
                blank = false;
                ++i;
                for (;; ++i) {
                    if (i == text.size()) {
                        out.error = "field " + std::to_string(record.size() + 1) +
                                    " opens a quote that is never closed";
                        out.error_line = start_line;
                        return out;
                    }
                    if (text[i] == '"' && i + 1 < text.size() && text[i + 1] == '"') {
                        field += '"';
                        ++i;
                    } else if (text[i] == '"') {
                        ++i;
                        break;
                    } else {
                        line += text[i] == '\n';
                        field += text[i];
                    }
                }
                if (!at_line_end(i) && text[i] != delimiter) {
                    out.error = "field " + std::to_string(record.size() + 1) +
                                " has text after its closing quote";
                    out.error_line = start_line;
                    return out;
                }
            } else {
                while (!at_line_end(i) && text[i] != delimiter) field += text[i++];
            }
            blank = blank && field.empty();
            record.push_back(field);
            if (i < text.size() && text[i] == delimiter) {
                blank = false;
                ++i;
                continue;
            }
            break;
        }
        if (i < text.size()) i += text.compare(i, 2, "\r\n") == 0 ? 2 : 1;
        ++line;
        if (record.size() == 1 && blank) continue;
        out.records.push_back(record);
        out.lines.push_back(start_line);
    }
    return out;
}

Expected read_all(const std::string &text, std::size_t chunk, std::size_t buffer,
                  char delimiter = ',') {
    MemorySource source(text, chunk);
    CsvReader reader(source, delimiter, buffer);
    Expected out;
    CsvReader::Status status;
    while ((status = reader.next()) == CsvReader::Status::Row) {
        out.records.emplace_back(reader.fields().begin(), reader.fields().end());
        out.lines.push_back(reader.line_number());
        EXPECT_EQ(reader.record_number(), static_cast<std::int64_t>(out.records.size()));
    }
    if (status == CsvReader::Status::Failed) {
        out.error = reader.error();
        out.error_line = reader.line_number();
        EXPECT_EQ(reader.failure(), CsvReader::Failure::Malformed);
        EXPECT_EQ(reader.next(), CsvReader::Status::Failed) << "stays failed";
    } else {
        EXPECT_EQ(reader.bytes_consumed(), text.size());
    }
    return out;
}

const std::string TEXTS[] = {
    "",
    "a,b\n1,2\n",
    "a,b\r\n1,2\r\n",
    "a,b\r1,2\r",
    "\xEF\xBB\xBF"
    "a,b\n1,2",
    "\xEF\xBB\xBF",
    "\xEF\xBB",
    "a\n",
    "a,b,\n,,\n",
    "\"x,y\",\"say \"\"hi\"\"\"\n\"\",\"\"\"\"\n",
    "\"multi\nline\",\"crlf\r\ninside\"\r\nnext,row\n",
    "a,b\n\n\n1,2\n\r\n3,4\n\n",
    "ab\"c,d\"\n",
    "h\n\"\"\n\n\"\"",
    "a,b\n1,2,3\n4\n",
    "a,\"b\"\n\"unclosed,2\n3,4\n",
    "a,\"b\"x\n",
    "\"a\"\"\"",
    "caf\xC3\xA9,\xE2\x82\xAC\n\"\xC3\xA9\"\"\",z\n",
    "x\ry\r\nz\n\"q\r\",w",
    "a field longer than sixteen bytes,and,another one longer than sixteen\r\n"
    "0123456789abcdef,0123456789abcde\n0123456789abcdef0\r0123456789abcdefghijklmnopqrstu,",
    "\"quoted and longer than sixteen\",unquoted after it, with a quote\" in the middle\n",
};

TEST(CsvReader, MatchesTheModelWhereverTheBufferAndChunksEnd) {
    for (const std::string &text : TEXTS) {
        const Expected expected = model(text);
        for (std::size_t chunk = 1; chunk <= text.size() + 1; ++chunk)
            for (const std::size_t buffer : {1, 2, 3, 5, 8, 64, 1 << 20}) {
                SCOPED_TRACE(::testing::Message() << "text " << ::testing::PrintToString(text)
                                                  << " chunk " << chunk << " buffer " << buffer);
                const Expected got = read_all(text, chunk, buffer);
                EXPECT_EQ(got.records, expected.records);
                EXPECT_EQ(got.lines, expected.lines);
                EXPECT_EQ(got.error, expected.error);
                EXPECT_EQ(got.error_line, expected.error_line);
            }
    }
}

TEST(CsvReader, ModelAgreesWithHandWrittenExpectations) {
    EXPECT_EQ(model("\"x,y\",\"say \"\"hi\"\"\"\n\"\",\"\"\"\"\n").records,
              (Records{{"x,y", "say \"hi\""}, {"", "\""}}));
    EXPECT_EQ(model("a,b\n\n\n1,2\n\r\n3,4\n\n").lines, (std::vector<std::int64_t>{1, 4, 6}));
    EXPECT_EQ(model("ab\"c,d\"\n").records, (Records{{"ab\"c", "d\""}}));
    EXPECT_EQ(model("h\n\"\"\n\n\"\"").records, (Records{{"h"}, {""}, {""}}));
    EXPECT_EQ(model("a,\"b\"\n\"unclosed,2\n3,4\n").error,
              "field 1 opens a quote that is never closed");
    EXPECT_EQ(model("a,\"b\"x\n").error, "field 2 has text after its closing quote");
    EXPECT_EQ(model("\"multi\nline\",\"crlf\r\ninside\"\r\nnext,row\n").lines,
              (std::vector<std::int64_t>{1, 4}));
}

TEST(CsvReader, AnyOneByteDelimiter) {
    const std::string text = "a;b,c\t\"x;y\"\n1;2\n";
    for (const char delimiter : {';', '\t', '|', '\x1f', ','}) {
        std::string changed = text;
        for (char &c : changed)
            if (c == ';') c = delimiter;
        EXPECT_EQ(read_all(changed, 3, 4, delimiter).records, model(changed, delimiter).records);
    }
    EXPECT_EQ(model("a;b,c\n", ';').records, (Records{{"a", "b,c"}}));
}

TEST(CsvReader, RecordLongerThanTheLimitFails) {
    const std::string text = "a\n\"" + std::string(3u << 20, 'x') + "\"\nb\n";
    MemorySource source(text, 1 << 16);
    CsvReader reader(source, ',', 1024, 1 << 20);
    ASSERT_EQ(reader.next(), CsvReader::Status::Row);
    EXPECT_EQ(reader.next(), CsvReader::Status::Failed);
    EXPECT_EQ(reader.failure(), CsvReader::Failure::Malformed);
    EXPECT_EQ(reader.error(), "a record longer than 1 MiB (a quote left open?)");
    EXPECT_EQ(reader.line_number(), 2);

    MemorySource whole(text, 1 << 16);
    CsvReader roomy(whole, ',', 1024, 4 << 20);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(roomy.next(), CsvReader::Status::Row);
    EXPECT_EQ(roomy.fields()[0], "b");
}

// A source that fails with `error` after handing out `good` bytes.
class FailingSource : public qvtool::ByteSource {
  public:
    FailingSource(std::string good, int error) : good_(std::move(good)), error_(error) {}
    std::ptrdiff_t read(char *buffer, std::size_t capacity) override {
        if (good_.empty()) {
            errno = error_;
            return -1;
        }
        const std::size_t size = std::min(capacity, good_.size());
        good_.copy(buffer, size);
        good_.erase(0, size);
        return static_cast<std::ptrdiff_t>(size);
    }

  private:
    std::string good_;
    int error_;
};

TEST(CsvReader, SourceFailuresAreReportedAsSuch) {
    FailingSource broken("a,b\n1,2\n3,", EIO);
    CsvReader reader(broken, ',', 4);
    EXPECT_EQ(reader.next(), CsvReader::Status::Row);
    EXPECT_EQ(reader.next(), CsvReader::Status::Row);
    EXPECT_EQ(reader.next(), CsvReader::Status::Failed);
    EXPECT_EQ(reader.failure(), CsvReader::Failure::Read);
    EXPECT_EQ(reader.error(), "Input/output error");

    FailingSource interrupted("a,", EINTR);
    CsvReader stopped(interrupted);
    EXPECT_EQ(stopped.next(), CsvReader::Status::Failed);
    EXPECT_EQ(stopped.failure(), CsvReader::Failure::Interrupted);
}

std::string written(const std::vector<std::vector<std::string_view>> &rows, char delimiter = ',',
                    std::size_t buffer = 1 << 20) {
    StringSink sink;
    CsvWriter writer(sink, delimiter, buffer);
    for (const auto &row : rows) EXPECT_TRUE(writer.write_row(row));
    EXPECT_TRUE(writer.flush());
    return sink.text;
}

TEST(CsvWriter, QuotesExactlyWhenNeeded) {
    const struct {
        std::vector<std::string_view> row;
        char delimiter;
        std::string text;
    } cases[] = {
        {{"plain", " spaced ", "caf\xC3\xA9"}, ',', "plain, spaced ,caf\xC3\xA9\n"},
        {{"a,b", "say \"hi\"", "two\nlines", "cr\r"},
         ',',
         "\"a,b\",\"say \"\"hi\"\"\",\"two\nlines\",\"cr\r\"\n"},
        {{"a,b", "a;b"}, ';', "a,b;\"a;b\"\n"},
        {{"", ""}, ',', ",\n"},
        {{""}, ',', "\"\"\n"},
        {{"\""}, ',', "\"\"\"\"\n"},
        {{"mid\"quote"}, '\t', "\"mid\"\"quote\"\n"},
    };
    for (const auto &c : cases) EXPECT_EQ(written({c.row}, c.delimiter), c.text);
}

TEST(CsvWriter, RoundTripsThroughTheReader) {
    const std::vector<std::vector<std::string_view>> rows = {
        {"id", "text", ""}, {"1", "a,\"b\"\r\nc", ""}, {"2", "", "\""}, {"", "", ""}};
    for (const std::size_t buffer : {1, 7, 1 << 20}) {
        const std::string text = written(rows, ',', buffer);
        Records expected;
        for (const auto &row : rows) expected.emplace_back(row.begin(), row.end());
        EXPECT_EQ(read_all(text, 5, 16).records, expected);
    }
}

// A record's plain text stands for its fields exactly when the writer would write them so:
// then writing the text and more fields equals writing all the fields.
TEST(CsvWriter, PlainRecordTextStandsForItsFields) {
    const struct {
        const char *record;
        bool plain;
    } cases[] = {
        {"a,b,c\n", true},         {"1,,3\r\n", true},          {",\n", true},
        {"caf\xC3\xA9,x", true},   {"\"a\",b\n", false},        {"a,\"b,c\"\n", false},
        {"mid\"quote,b\n", false}, {"\"two\nlines\",b", false},
    };
    for (const auto &c : cases) {
        qvtool::MemorySource source(c.record);
        CsvReader reader(source);
        ASSERT_EQ(reader.next(), CsvReader::Status::Row) << c.record;
        const std::string_view plain = reader.plain_text();
        EXPECT_EQ(!plain.empty(), c.plain) << c.record;
        if (plain.empty()) continue;
        const std::vector<std::string_view> more = {"x,y", ""};
        std::vector<std::string_view> all = reader.fields();
        all.insert(all.end(), more.begin(), more.end());
        qvtool::StringSink by_text, by_fields;
        CsvWriter writer_text(by_text), writer_fields(by_fields);
        ASSERT_TRUE(writer_text.write_row(plain, more));
        ASSERT_TRUE(writer_fields.write_row(all));
        ASSERT_TRUE(writer_text.flush() && writer_fields.flush());
        EXPECT_EQ(by_text.text, by_fields.text) << c.record;
    }
}

class FullSink : public qvtool::ByteSink {
  public:
    bool write_all(const char *, std::size_t) override {
        errno = ENOSPC;
        return false;
    }
};

TEST(CsvWriter, SinkFailureStopsTheWriter) {
    FullSink full;
    CsvWriter writer(full, ',', 4);
    const std::vector<std::string_view> row = {"abc", "def"};
    EXPECT_FALSE(writer.write_row(row));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(writer.write_row(row));
    EXPECT_FALSE(writer.flush());
}

} // namespace
