// preferences_fuzz.cpp - the qv.ini reader on arbitrary files, against a slow model of the
// format README gives: "NAME = value" lines (read up to a line feed, and up to a zero byte
// within a line), blanks around name and value dropped, one pair of double quotes around a
// value dropped, comment lines ('#', ';'), section lines and lines without '=' ignored,
// names compared without ASCII case, the first line naming a preference winning.
//
// Input: two names to look up (texts), then the file's bytes; every name the file's lines
// could set is looked up too.
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qv/platform.h"

namespace {

std::string path;

constexpr std::string_view blanks = " \t\r";

std::string_view trim_blanks(std::string_view text) {
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return text.substr(text.size());
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool same_name(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// The name a line sets and its value, when it sets one.
bool setting(std::string_view line, std::string_view &name, std::string_view &value) {
    line = trim_blanks(line);
    if (line.empty() || line.front() == '#' || line.front() == ';' || line.front() == '[')
        return false;
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    name = trim_blanks(line.substr(0, equals));
    value = trim_blanks(line.substr(equals + 1));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        value = value.substr(1, value.size() - 2);
    return true;
}

std::optional<std::string> model(const std::vector<std::string> &lines, std::string_view name) {
    if (name.empty()) return std::nullopt;
    for (const std::string &line : lines) {
        std::string_view key, value;
        if (setting(line, key, value) && same_name(key, name)) return std::string(value);
    }
    return std::nullopt;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    char pattern[] = "/tmp/qv_fuzz_ini_XXXXXX";
    int descriptor = mkstemp(pattern);
    if (descriptor >= 0) close(descriptor);
    path = pattern;
    setenv("QV_INI", path.c_str(), 1);
    std::atexit([] { unlink(path.c_str()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    std::vector<std::string> names = {input.text(), input.text()};
    const std::string bytes = input.rest();
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    const std::vector<std::string> lines = fuzz::lines_of(bytes);
    for (const std::string &line : lines) {
        std::string_view key, value;
        if (setting(line, key, value)) names.emplace_back(key);
    }
    const char *raised = fuzz::protected_run([&] {
        for (std::string &name : names) {
            name = name.substr(0, name.find('\0'));
            const std::optional<std::string> expected = model(lines, name);
            char *got = GetExternalPreference_L(name.c_str());
            bool same = expected ? got != nullptr && *expected == got : got == nullptr;
            FUZZ_CHECK(same, "qv.ini %s: %s is %s, model %s", fuzz::hex(bytes).c_str(),
                       fuzz::hex(name).c_str(), got != nullptr ? fuzz::hex(got).c_str() : "null",
                       expected ? fuzz::hex(*expected).c_str() : "null");
            std::free(got);
        }
    });
    FUZZ_CHECK(raised == nullptr, "reading qv.ini raised %s", raised);
    return 0;
}
