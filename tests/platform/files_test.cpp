// Files opened by UTF-8 path, line reading, and the time text.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include "core/raise.hpp"
#include "qv/alloc.h"
#include "qv/platform.h"

namespace {

// The lines GetLFTerminatedLine_L reads from a stream holding `content`.
std::vector<std::string> read_lines(const std::string &content) {
    FILE *stream = tmpfile();
    std::fwrite(content.data(), 1, content.size(), stream);
    std::rewind(stream);
    std::vector<std::string> lines;
    char *buffer = nullptr;
    while (GetLFTerminatedLine_L(&buffer, stream) != nullptr) lines.emplace_back(buffer);
    std::free(buffer);
    std::fclose(stream);
    return lines;
}

struct LineCase {
    const char *what;
    std::string content;
    std::vector<std::string> lines;
};

TEST(GetLFTerminatedLine, SplitsAtLineFeedsOnly) {
    const std::string long_line(100000, 'x');
    const std::string boundary(127, 'b');
    const LineCase cases[] = {
        {"empty file", "", {}},
        {"one line", "a\n", {"a"}},
        {"last line without line feed", "a\nb", {"a", "b"}},
        {"empty lines", "\n\nc\n", {"", "", "c"}},
        {"carriage return kept", "d\r\n", {"d\r"}},
        {"long line", long_line + "\nshort", {long_line, "short"}},
        {"first capacity boundary", boundary + "\n" + boundary + "b\n", {boundary, boundary + "b"}},
    };
    for (const LineCase &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(read_lines(c.content), c.lines);
    }
}

TEST(GetLFTerminatedLine, NullArgumentsGiveNull) {
    char *buffer = nullptr;
    EXPECT_EQ(GetLFTerminatedLine_L(&buffer, nullptr), nullptr);
    FILE *stream = tmpfile();
    EXPECT_EQ(GetLFTerminatedLine_L(nullptr, stream), nullptr);
    std::fclose(stream);
    EXPECT_EQ(buffer, nullptr);
}

TEST(GetLFTerminatedLine, AllocationFailuresLeaveTheBufferValid) {
    const std::string line(1000, 'z');
    for (int32_t n = 0;; ++n) {
        ASSERT_LT(n, 50);
        FILE *stream = tmpfile();
        std::fputs((line + "\n").c_str(), stream);
        std::rewind(stream);
        char *buffer = nullptr;
        const char *raised = nullptr;
        const char *result = nullptr;
        qv::guarded(
            "lines", "files_test", __LINE__,
            [&] {
                TestFailAllocation_L(n); // armed inside: opening the context allocates too
                result = GetLFTerminatedLine_L(&buffer, stream);
            },
            [&](const char *symbol) { raised = symbol; });
        bool failed = TestAllocationFailed_L() != 0;
        TestFailAllocation_L(-1);
        std::fclose(stream);
        if (!failed) {
            EXPECT_EQ(std::string(result), line);
            std::free(buffer);
            break;
        }
        EXPECT_EQ(raised, ALLOC_FAILURE);
        std::free(buffer); // whatever was grown before the failure is the caller's
    }
}

TEST(Fopen8, AcceptsBackslashesAndRejectsNulls) {
    char pattern[] = "/tmp/qv_files_XXXXXX";
    std::string directory = mkdtemp(pattern);
    std::string windows_form = directory + "\\file.txt";
    FILE *file = fopen8_L(windows_form.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fputs("x", file);
    std::fclose(file);
    EXPECT_EQ(std::remove((directory + "/file.txt").c_str()), 0);
    std::remove(directory.c_str());

    errno = 0;
    EXPECT_EQ(fopen8_L(nullptr, "r"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(fopen8_L("/tmp", nullptr), nullptr);
    EXPECT_EQ(fopen8_L("/nonexistent/file", "r"), nullptr);
}

TEST(TimeText, IsTheLocalTimeNow) {
    std::time_t before = std::time(nullptr);
    std::string text = Time_L();
    std::time_t after = std::time(nullptr);
    ASSERT_TRUE(std::regex_match(text, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)"))) << text;
    std::tm parsed{};
    ASSERT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr);
    parsed.tm_isdst = -1;
    std::time_t read_back = std::mktime(&parsed);
    EXPECT_GE(read_back, before - 1);
    EXPECT_LE(read_back, after);
}

} // namespace
