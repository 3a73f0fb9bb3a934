// preferences.cpp - the preference store: the process environment, then the qv.ini file.
//
// GetPreference_L(name) returns the environment variable `name` when it is set (an empty
// value counts as set), else the value of `name` in qv.ini, else null.
// GetExternalPreference_L(name) reads qv.ini only.
//
// Location of qv.ini, the first that applies:
//   1. the path in the environment variable QV_INI, when set and not empty (used even when
//      no file is there: then there are no file preferences);
//   2. <install root>/quillon/qv.ini when that file exists, the install root being the
//      environment variable QV_INSTALL_ROOT or the one found from the library's location
//      (the file cannot name the root it is found by);
//   3. <executable directory>/qv.ini when that file exists.
//
// Format: one "NAME = value" per line. Blanks (spaces, tabs) around the name and the value
// are dropped, and so is a "\r" ending the line; a value wholly in double quotes loses
// them (inside them blanks are kept). Lines whose first non-blank character is '#' or ';'
// are comments; "[section]" lines and lines without '=' are ignored (sections do not
// scope names). Names compare without case; the first line naming a preference wins. An
// empty value is a set, empty preference. The file is read afresh on every look-up, so
// edits take effect at once.
#include <strings.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "platform/files.hpp"
#include "platform/paths.hpp"
#include "qv/platform.h"

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trim_blanks(std::string_view text) {
    std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return text.substr(text.size()); // empty, not null
    std::size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

bool is_regular_file(const qv::String &path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// Where qv.ini is read from; empty when there is no file.
qv::String preference_file_path() {
    const char *explicit_path = std::getenv("QV_INI");
    if (explicit_path != nullptr && *explicit_path != '\0') return explicit_path;
    qv::String beside_install = qv::install_root_from_environment();
    beside_install += "/quillon/qv.ini";
    if (is_regular_file(beside_install)) return beside_install;
    qv::HeapText directory(GetExecutableDirectory_L());
    if (directory == nullptr) return {};
    qv::String beside_executable(directory.get());
    beside_executable += "/qv.ini";
    if (is_regular_file(beside_executable)) return beside_executable;
    return {};
}

// The value when `line` sets `name`; nothing otherwise.
bool line_value(std::string_view line, std::string_view name, std::string_view &value) {
    line = trim_blanks(line);
    if (line.empty() || line.front() == '#' || line.front() == ';' || line.front() == '[')
        return false;
    std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    std::string_view key = trim_blanks(line.substr(0, equals));
    if (key.size() != name.size() || strncasecmp(key.data(), name.data(), key.size()) != 0)
        return false;
    value = trim_blanks(line.substr(equals + 1));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        value = value.substr(1, value.size() - 2);
    return true;
}

// The value of `name` in the file at `path` as a heap text, or null. The file and the line
// buffer are released also when a raise passes through.
char *file_preference(const qv::String &path, std::string_view name) {
    qv::File file(fopen8_L(path.c_str(), "rb"));
    if (!file) return nullptr;
    qv::HeapText line;
    while (qv::read_line(line, file.get()) != nullptr) {
        std::string_view value;
        if (line_value(line.get(), name, value)) return QV_STRNDUP(value.data(), value.size());
    }
    return nullptr;
}

} // namespace

extern "C" {

// Heap copy (caller frees) or null when unset, for a null or empty name, or after
// ALLOC_FAILURE with no status context open.
QV_API char *GetPreference_L(const char *name) {
    if (name == nullptr || *name == '\0') return nullptr;
    const char *value = std::getenv(name);
    if (value != nullptr) return QV_STRDUP(value);
    return GetExternalPreference_L(name);
}

QV_API char *GetExternalPreference_L(const char *name) {
    if (name == nullptr || *name == '\0') return nullptr;
    return QV_C_ENTRY([&]() -> char * {
        qv::String path = preference_file_path();
        if (path.empty()) return nullptr;
        return file_preference(path, name);
    });
}

QV_API char *GetPreferenceFilePath_L(void) {
    return QV_C_ENTRY([]() -> char * {
        qv::String path = preference_file_path();
        if (path.empty() || !is_regular_file(path)) return nullptr;
        return QV_STRDUP(path.c_str());
    });
}

} // extern "C"
