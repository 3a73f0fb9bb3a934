// glossary_fuzz.cpp - the glossary readers on arbitrary files: the numbered glossaries
// (glossary.gls and function.gls: "number text" lines, comments, skipped lines) and the
// positional ones (day.gls and month.gls: the first 7 / 12 lines).
//
// A slow model reads the same bytes by the rules of message.h: lines end at a line feed
// (and a zero byte ends what is read of a line); blank lines and lines starting with '#'
// are passed over; a line is a number (one optional sign, decimal digits, 32 bits) and a
// text after white space, the first line of a number wins; any other line is skipped with
// warning 0x8DA5062E naming the file, the line number and the trimmed line. Positional
// lines are right-trimmed and the process locale's names fill what the file lacks. Every
// number the model knows (and a few it does not) is looked up, and the warnings, deferred
// into a message set, must be exactly the model's.
//
// Input: a byte choosing numbered or positional reading, then the file's bytes.
#include <stdlib.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "messages/message.hpp"
#include "qv/date.h"
#include "qv/message.h"
#include "qv/msgclass.h"

namespace {

std::string directory;

constexpr std::string_view white_space = " \t\r\n\v\f";

std::string_view trim_right(std::string_view text) {
    size_t end = text.find_last_not_of(white_space);
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
}
std::string_view trim(std::string_view text) {
    size_t start = text.find_first_not_of(white_space);
    return start == std::string_view::npos ? std::string_view() : trim_right(text.substr(start));
}

bool model_number(std::string_view token, int32_t &number) {
    if (!token.empty() && (token.front() == '+' || token.front() == '-')) {
        bool negative = token.front() == '-';
        token.remove_prefix(1);
        if (token.empty() || token.front() < '0' || token.front() > '9') return false;
        if (negative) {
            std::string with_sign = "-" + std::string(token);
            auto [end, error] =
                std::from_chars(with_sign.data(), with_sign.data() + with_sign.size(), number);
            return error == std::errc() && end == with_sign.data() + with_sign.size();
        }
    }
    if (token.empty() || token.find_first_not_of("0123456789") != std::string_view::npos)
        return false;
    auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), number);
    return error == std::errc() && end == token.data() + token.size();
}

struct Skipped {
    int32_t line;
    std::string text;
};

void model_numbered(const std::string &bytes, std::map<int32_t, std::string> &entries,
                    std::vector<Skipped> &skipped) {
    int32_t line_number = 0;
    for (const std::string &line : fuzz::lines_of(bytes)) {
        ++line_number;
        std::string_view trimmed = trim(line);
        if (trimmed.empty() || trimmed.front() == '#') continue;
        size_t split = std::min(trimmed.find_first_of(white_space), trimmed.size());
        int32_t number = 0;
        std::string_view text = trim(trimmed.substr(split));
        if (!model_number(trimmed.substr(0, split), number) || text.empty())
            skipped.push_back({line_number, std::string(trimmed)});
        else
            entries.emplace(number, text); // the first line of a number wins
    }
}

void write_file(const std::string &name, const std::string &bytes) {
    std::ofstream(directory + "/" + name, std::ios::binary) << bytes;
}

std::string shown(const char *text) {
    return text != nullptr ? fuzz::hex(text) : "null";
}

void check_numbered(const std::string &bytes, const std::vector<int32_t> &extra) {
    write_file("glossary.gls", bytes);
    write_file("function.gls", bytes);
    std::map<int32_t, std::string> entries;
    std::vector<Skipped> skipped;
    model_numbered(bytes, entries, skipped);
    std::vector<int32_t> numbers = extra;
    for (const auto &entry : entries) numbers.push_back(entry.first);
    for (auto lookup : {Gloss_L, FunctionGloss_L}) {
        for (int32_t n : numbers) {
            auto found = entries.find(n);
            const char *got = lookup(n);
            bool same =
                found == entries.end() ? got == nullptr : got != nullptr && found->second == got;
            FUZZ_CHECK(same, "glossary %s: entry %d is %s, model %s", fuzz::hex(bytes).c_str(), n,
                       shown(got).c_str(),
                       found == entries.end() ? "null" : fuzz::hex(found->second).c_str());
        }
    }
}

// The warnings of both numbered files, as the message context collected them.
void check_warnings(const std::string &bytes, uint32_t handle) {
    std::map<int32_t, std::string> entries;
    std::vector<Skipped> skipped;
    model_numbered(bytes, entries, skipped);
    int32_t count = 0, worst = 0;
    if (CheckMessageHandle_L(handle, &count, &worst) != 0) count = 0;
    FUZZ_CHECK(count == 2 * static_cast<int32_t>(skipped.size()),
               "glossary %s: %d warnings, model %zu per file", fuzz::hex(bytes).c_str(), count,
               skipped.size());
    for (int32_t i = 0; i < count; ++i) {
        const PWMessage *message = GetMessage_L(handle, i);
        const Skipped &expected = skipped[static_cast<size_t>(i) % skipped.size()];
        const std::string file = directory + (i < count / 2 ? "/glossary.gls" : "/function.gls");
        const auto &parameters = message->Parameters();
        bool same = message->Number() == QV_MSG_GLOSSARY_LINE_SKIPPED && parameters.size() == 3 &&
                    parameters[0].Text() == file &&
                    parameters[1].Text() == std::to_string(expected.line) &&
                    parameters[2].Text() == expected.text;
        FUZZ_CHECK(same, "glossary %s: warning %d is \"%s\", model line %d \"%s\"",
                   fuzz::hex(bytes).c_str(), i, fuzz::hex(message->Text()).c_str(), expected.line,
                   fuzz::hex(expected.text).c_str());
    }
}

void check_positional(const std::string &bytes) {
    write_file("glossary.gls", "1 one\n");
    write_file("day.gls", bytes);
    write_file("month.gls", bytes);
    const std::vector<std::string> lines = fuzz::lines_of(bytes);
    for (int32_t count : {7, 12}) {
        for (int32_t i = -1; i <= count; ++i) {
            const char *got = count == 7 ? DayGloss_L(i) : MonthGloss_L(i);
            std::string expected;
            if (i >= 0 && i < static_cast<int32_t>(lines.size()) && i < count)
                expected = trim_right(lines[static_cast<size_t>(i)]);
            else if (i >= 0 && i < count)
                expected = count == 7 ? GetDay_L(i) : GetMonth_L(i);
            bool same = (i < 0 || i >= count) ? got == nullptr : got != nullptr && expected == got;
            FUZZ_CHECK(same, "%s glossary %s: position %d is %s, model %s",
                       count == 7 ? "day" : "month", fuzz::hex(bytes).c_str(), i,
                       shown(got).c_str(), fuzz::hex(expected).c_str());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    char pattern[] = "/tmp/qv_fuzz_glossary_XXXXXX";
    directory = mkdtemp(pattern);
    setenv("QV_MESSAGE_PATH", directory.c_str(), 1);
    std::atexit([] { std::filesystem::remove_all(directory); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const bool positional = input.flag();
    const std::vector<int32_t> extra = {input.integer(), input.integer()};
    const std::string bytes = input.rest();
    UnloadGlossaries_L();
    qv::forget_message_directory();
    uint32_t handle = 0;
    InitMessages_L(&handle);
    DeferWarnings_L();
    const char *raised = fuzz::protected_run([&] {
        if (positional)
            check_positional(bytes);
        else
            check_numbered(bytes, extra);
    });
    FUZZ_CHECK(raised == nullptr, "reading a glossary raised %s", raised);
    if (!positional) check_warnings(bytes, handle);
    qv::reset_warning_deferral();
    ClearMessageContext_L();
    TerminateMessages_L(nullptr);
    return 0;
}
