// derive_test.cpp - the derive row loop driven by a stand-in program of the kind the
// expression language will plug in: types from --types and from the first 1,000 rows, the
// sampled rows replayed in order before the rest, and the --on-error policies on failures
// the program reports.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "derive.hpp"

namespace {

using namespace qvtool;
namespace fs = std::filesystem;

// Appends a column "n" with the row number; a field "bad" fails the row. Under --on-error
// null the new column is NULL for a failed row.
class NumberingProgram : public RowProgram {
  public:
    explicit NumberingProgram(OnError policy, bool needs_types = true)
        : policy_(policy), needs_types_(needs_types) {}
    bool needs_types() const override { return needs_types_; }
    std::string prepare(const std::vector<Column> &columns,
                        std::vector<std::string> &output_names) override {
        for (const Column &column : columns) {
            output_names.push_back(column.name);
            types.push_back(column.type);
        }
        output_names.push_back("n");
        return "";
    }
    Verdict apply(std::int64_t row, std::span<const std::string_view> fields,
                  std::vector<std::string_view> &out, std::string &failure) override {
        out.assign(fields.begin(), fields.end());
        number_ = std::to_string(row);
        out.push_back(number_);
        if (std::find(fields.begin(), fields.end(), "bad") == fields.end()) return Verdict::Write;
        failure = "column n: a bad field";
        if (policy_ != OnError::Null) return Verdict::Skip;
        out.back() = "";
        return Verdict::Write;
    }
    std::vector<QV_DATATYPE_T> types;

  private:
    OnError policy_;
    bool needs_types_;
    std::string number_;
};

class Derive : public ::testing::Test {
  protected:
    void SetUp() override {
        folder_ = fs::temp_directory_path() /
                  ("qv_derive_" + std::to_string(::getpid()) + "_" +
                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(folder_);
        options.input = (folder_ / "in.csv").string();
        options.output = (folder_ / "out.csv").string();
    }
    void TearDown() override { fs::remove_all(folder_); }

    // Runs with `input`; fills output and messages (timing normalised).
    int run(const std::string &input, RowProgram &program) {
        std::ofstream(options.input, std::ios::binary) << input;
        char *text = nullptr;
        std::size_t size = 0;
        std::FILE *stream = open_memstream(&text, &size);
        const int status = run_derive(options, program, stream);
        std::fclose(stream);
        messages = std::regex_replace(std::string(text, size),
                                      std::regex("; [0-9.]+ s, [0-9]+ rows/s"), "; <time>");
        std::free(text);
        std::ifstream in(options.output, std::ios::binary);
        output = in ? std::string(std::istreambuf_iterator<char>(in), {}) : "<none>";
        return status;
    }

    DeriveOptions options;
    std::string output, messages;
    fs::path folder_;
};

TEST_F(Derive, TypesComeFromTheFirstThousandRowsAndTypesOption) {
    std::string input = "id,when,amount,late\n", expected = "id,when,amount,late,n\n";
    for (int row = 1; row <= 1500; ++row) {
        const std::string late = row == 1200 ? "text" : std::to_string(row);
        const std::string line = std::to_string(row) + ",2024-01-0" + std::to_string(row % 9 + 1) +
                                 "," + std::to_string(row) + ".25," + late;
        input += line + "\n";
        expected += line + "," + std::to_string(row) + "\n";
    }
    options.types = {"amount:NUMBER(12,3)"};
    NumberingProgram program(OnError::Stop);
    EXPECT_EQ(run(input, program), 0);
    EXPECT_EQ(output, expected);
    ASSERT_EQ(program.types.size(), 4u);
    EXPECT_EQ(program.types[0].type, QV_TYPE_INTEGER);
    EXPECT_EQ(program.types[1].type, QV_TYPE_DATE);
    EXPECT_EQ(program.types[2].type, QV_TYPE_NUMBER);
    EXPECT_EQ(program.types[2].precision, 12);
    EXPECT_EQ(program.types[3].type, QV_TYPE_INTEGER) << "row 1200 is past the sample";
    EXPECT_EQ(messages, "qv: rows read 1500, written 1500, dropped 0, failed 0; <time>\n");
}

TEST_F(Derive, WithoutHeaderTheFirstRowIsDataWhetherSampledOrNot) {
    options.header = false;
    for (const bool sampled : {true, false}) {
        NumberingProgram program(OnError::Stop, sampled);
        EXPECT_EQ(run("1,x\n2,y\n", program), 0);
        EXPECT_EQ(output, "1,x,1\n2,y,2\n");
        EXPECT_EQ(program.types[0].type, sampled ? QV_TYPE_INTEGER : 0u);
    }
}

TEST_F(Derive, OnErrorPolicies) {
    const std::string input = "a,b\n1,ok\n2,bad\n3\n4,ok,extra\n5,ok\n";
    const struct {
        OnError policy;
        int status;
        std::string output, messages;
    } cases[] = {
        {OnError::Stop, 1, "<none>",
         "qv: row 2 (line 3): column n: a bad field\n"
         "qv: rows read 2, written 1, dropped 0, failed 1; <time>\n"
         "qv: nothing written to '" +
             options.output + "'\n"},
        {OnError::Skip, 0, "a,b,n\n1,ok,1\n5,ok,5\n",
         "qv: row 2 (line 3): column n: a bad field\n"
         "qv: row 3 (line 4): 1 fields where the header has 2\n"
         "qv: row 4 (line 5): 3 fields where the header has 2\n"
         "qv: rows read 5, written 2, dropped 0, failed 3; <time>\n"},
        {OnError::Null, 0, "a,b,n\n1,ok,1\n2,bad,\n3,,3\n4,ok,4\n5,ok,5\n",
         "qv: row 2 (line 3): column n: a bad field\n"
         "qv: row 3 (line 4): 1 fields where the header has 2\n"
         "qv: row 4 (line 5): 3 fields where the header has 2\n"
         "qv: rows read 5, written 5, dropped 0, failed 3; <time>\n"},
    };
    for (const auto &c : cases) {
        options.on_error = c.policy;
        NumberingProgram program(c.policy);
        EXPECT_EQ(run(input, program), c.status);
        EXPECT_EQ(output, c.output);
        EXPECT_EQ(messages, c.messages);
    }
}

TEST_F(Derive, OnlyTheFirstTenFailuresAreShown) {
    std::string input = "a\n";
    for (int row = 0; row < 25; ++row) input += "bad\n";
    options.on_error = OnError::Skip;
    NumberingProgram program(OnError::Skip);
    EXPECT_EQ(run(input, program), 0);
    EXPECT_EQ(output, "a,n\n");
    std::string expected;
    for (int row = 1; row <= 10; ++row)
        expected += "qv: row " + std::to_string(row) + " (line " + std::to_string(row + 1) +
                    "): column n: a bad field\n";
    expected += "qv: more failed rows are not shown\n"
                "qv: rows read 25, written 0, dropped 0, failed 25; <time>\n";
    EXPECT_EQ(messages, expected);
}

TEST_F(Derive, TypesOptionErrors) {
    const struct {
        std::vector<std::string> types;
        std::string messages;
    } cases[] = {
        {{"nope:INTEGER"}, "qv: --types: no column named 'nope'\n"},
        {{"a:INTEGER,b"}, "qv: --types: 'b': expected COLUMN:TYPE\n"},
        {{"a:NUMBER(10,2),b:NUMBER"},
         "qv: --types: 'NUMBER': NUMBER needs a size, as in NUMBER(10,2)\n"},
    };
    for (const auto &c : cases) {
        options.types = c.types;
        PassThrough program;
        EXPECT_EQ(run("a,b\n1,2\n", program), 2);
        EXPECT_EQ(messages, c.messages);
        EXPECT_EQ(output, "<none>");
    }
    std::vector<ColumnType> parsed;
    EXPECT_EQ(parse_column_types({"a:NUMBER(10,2),b:x:DATE", "c:CHAR(3)"}, parsed), "");
    ASSERT_EQ(parsed.size(), 3u);
    EXPECT_EQ(parsed[0].type.scale, 2);
    EXPECT_EQ(parsed[1].column, "b:x");
    EXPECT_EQ(parsed[2].type.precision, 3);
}

} // namespace
