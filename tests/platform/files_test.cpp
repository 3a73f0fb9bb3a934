// Files opened by UTF-8 path, line reading, and the time text.
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <regex>

#include "capture.hpp"
#include "qv/platform.h"

namespace {

using namespace qvtest;

// A temporary stream holding `content`, read from the start.
FILE *stream_of(const std::string &content) {
    FILE *stream = tmpfile();
    std::fwrite(content.data(), 1, content.size(), stream);
    std::rewind(stream);
    return stream;
}

TEST(GetLFTerminatedLine, SplitsAtLineFeedsOnly) {
    const std::string long_line(100000, 'x'), boundary(127, 'b');
    const struct {
        const char *what;
        std::string content;
        std::vector<std::string> lines;
    } cases[] = {
        {"empty file", "", {}},
        {"one line", "a\n", {"a"}},
        {"last line without line feed", "a\nb", {"a", "b"}},
        {"empty lines", "\n\nc\n", {"", "", "c"}},
        {"carriage return kept", "d\r\n", {"d\r"}},
        {"long line", long_line + "\nshort", {long_line, "short"}},
        {"first capacity boundary", boundary + "\n" + boundary + "b\n", {boundary, boundary + "b"}},
    };
    for (const auto &c : cases) {
        FILE *stream = stream_of(c.content);
        std::vector<std::string> lines;
        char *buffer = nullptr;
        while (GetLFTerminatedLine_L(&buffer, stream) != nullptr) lines.emplace_back(buffer);
        std::free(buffer);
        std::fclose(stream);
        EXPECT_EQ(lines, c.lines) << c.what;
    }
    char *buffer = nullptr;
    EXPECT_EQ(GetLFTerminatedLine_L(&buffer, nullptr), nullptr);
    FILE *stream = tmpfile();
    EXPECT_EQ(GetLFTerminatedLine_L(nullptr, stream), nullptr);
    std::fclose(stream);
    EXPECT_EQ(buffer, nullptr);
}

TEST(GetLFTerminatedLine, AllocationFailuresLeaveTheBufferValid) {
    const std::string line(1000, 'z');
    FILE *stream = nullptr;
    char *buffer = nullptr; // whatever was grown before a failure is the caller's to free
    const char *result = nullptr;
    auto release = [&] {
        if (stream != nullptr) std::fclose(stream);
        std::free(buffer);
        buffer = nullptr;
    };
    auto raised = fail_each_allocation([&] { result = GetLFTerminatedLine_L(&buffer, stream); },
                                       [&] {
                                           release();
                                           stream = stream_of(line + "\n");
                                       });
    EXPECT_THAT(raised, ::testing::Each(ALLOC_FAILURE));
    EXPECT_FALSE(raised.empty());
    EXPECT_EQ(std::string(result), line);
    release();
}

TEST(Fopen8, AcceptsBackslashesAndRejectsNulls) {
    TempDirectory directory;
    FILE *file = fopen8_L((directory.path.string() + "\\file.txt").c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    EXPECT_TRUE(fs::exists(directory / "file.txt"));
    errno = 0;
    EXPECT_EQ(fopen8_L(nullptr, "r"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(fopen8_L("/tmp", nullptr), nullptr);
    EXPECT_EQ(fopen8_L("/nonexistent/file", "r"), nullptr);
}

TEST(TimeText, IsTheLocalTimeNow) {
    std::time_t before = std::time(nullptr);
    std::string text = Time_L();
    std::tm parsed{};
    ASSERT_TRUE(std::regex_match(text, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)"))) << text;
    ASSERT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr);
    parsed.tm_isdst = -1;
    std::time_t read_back = std::mktime(&parsed);
    EXPECT_GE(read_back, before - 1);
    EXPECT_LE(read_back, std::time(nullptr));
}

} // namespace
