// glossary.cpp - the four glossaries: small tables of texts read from files in the message
// directory, each loaded on its first use and kept until UnloadGlossaries_L.
//
// "glossary" and "function" are numbered: each entry is a number and a text, kept sorted
// by number (a stable sort, so of two equal numbers the earlier line wins) and searched
// by binary search. "day" and "month" are positional: the first 7 / 12 lines of the file,
// right-trimmed, in file order. A missing day or month file is not an error (the names of
// the process locale stand in), nor are missing lines at its end (the same names fill
// them); lines beyond the expected count are ignored.
//
// Loading builds the table aside and installs it only when complete; a raise on the way
// (a missing numbered file raises GENERAL_ERROR after logging its message, memory running
// out raises ALLOC_FAILURE) unwinds the loader, whose file, path and partial table are
// released by their owners. With no status context open the raise returns and the
// glossary simply stays unloaded (its lookups give null, and the next one tries again).
//
// Part of the message module.
#define QV_MODULE "message"
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "messages/message.hpp"
#include "qv/alloc.h"
#include "qv/date.h"
#include "qv/message.h"
#include "qv/msgclass.h"
#include "qv/platform.h"

namespace {

using qv::File;
using qv::HeapText;
using LineBuffer = qv::GrowingText;

struct Entry {
    int32_t number;
    HeapText text;
};

struct Glossary {
    const char *name;
    int32_t positions; // expected count of a positional glossary; 0 for a numbered one
    std::vector<Entry> entries;
    bool loaded = false;
};

enum GlossaryId { general_glossary, function_glossary, day_glossary, month_glossary };

Glossary glossaries[] = {
    {"glossary", 0, {}, false},
    {"function", 0, {}, false},
    {"day", 7, {}, false},
    {"month", 12, {}, false},
};
static_assert(std::size(glossaries) == month_glossary + 1);

std::optional<std::string> directory;

constexpr std::string_view white_space = " \t\r\n\v\f";

std::string_view trim_right(std::string_view text) {
    std::size_t end = text.find_last_not_of(white_space);
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
}

std::string_view trim(std::string_view text) {
    std::size_t start = text.find_first_not_of(white_space);
    return start == std::string_view::npos ? std::string_view() : trim_right(text.substr(start));
}

bool holds_glossary(const std::string &candidate) {
    return access((candidate + "/glossary.gls").c_str(), R_OK) == 0;
}

// The preference QV_MESSAGE_PATH, then <install root>/quillon/message, each only when it
// holds glossary.gls; else the executable's directory (or "." when even that is unknown).
std::string find_message_directory() {
    HeapText preference(GetPreference_L("QV_MESSAGE_PATH"));
    if (preference && *preference && holds_glossary(preference.get())) return preference.get();
    HeapText root(GetInstallRoot_L());
    if (root) {
        std::string installed = std::string(root.get()) + "/quillon/message";
        if (holds_glossary(installed)) return installed;
    }
    HeapText executable(GetExecutableDirectory_L());
    return executable ? executable.get() : ".";
}

// Heap path of the glossary's file; null only after a raise that returned.
HeapText glossary_path(const Glossary &glossary) {
    std::string folder = qv::message_directory();
    char *path = nullptr;
    Asprintf_L(&path, "%s/%s.%s", folder.c_str(), glossary.name, "gls");
    return HeapText(path);
}

bool add_entry(std::vector<Entry> &entries, int32_t number, std::string_view text) {
    HeapText copy(QV_STRNDUP(text.data(), text.size()));
    if (!copy) return false;
    entries.push_back(Entry{number, std::move(copy)});
    return true;
}

// A decimal number with an optional sign that fits 32 bits.
std::optional<int32_t> parse_number(std::string_view token) {
    if (!token.empty() && token.front() == '+') {
        token.remove_prefix(1);
        if (!token.empty() && token.front() == '-') return std::nullopt; // one sign at most
    }
    int32_t number = 0;
    auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), number);
    if (token.empty() || error != std::errc() || end != token.data() + token.size())
        return std::nullopt;
    return number;
}

void warn_skipped_line(const char *path, int32_t line_number, std::string_view line) {
    PWMessage message(QV_MSG_GLOSSARY_LINE_SKIPPED, MESSAGE_SEVERITY_WARNING);
    message << path << line_number << line;
    LogMessage_L(&message);
}

// Reads the lines of a numbered file into `entries`; false when memory ran out.
bool read_numbered(FILE *file, const char *path, std::vector<Entry> &entries) {
    LineBuffer line;
    int32_t line_number = 0;
    while (GetLFTerminatedLine_L(&line.text, file) != nullptr) {
        ++line_number;
        std::string_view trimmed = trim(line.text);
        if (trimmed.empty() || trimmed.front() == '#') continue;
        std::size_t split = std::min(trimmed.find_first_of(white_space), trimmed.size());
        std::optional<int32_t> number = parse_number(trimmed.substr(0, split));
        std::string_view text = trim(trimmed.substr(split));
        if (!number || text.empty())
            warn_skipped_line(path, line_number, trimmed);
        else if (!add_entry(entries, *number, text))
            return false;
    }
    return std::feof(file) != 0;
}

bool load_numbered(Glossary &glossary) {
    HeapText path = glossary_path(glossary);
    if (!path) return false;
    File file(fopen8_L(path.get(), "r"));
    if (!file) {
        PWMessage message(QV_MSG_GLOSSARY_OPEN_FAILED, MESSAGE_SEVERITY_ERROR);
        message << path.get();
        LogMessage_L(&message);
        QV_RAISE(GENERAL_ERROR);
        return false;
    }
    std::vector<Entry> entries;
    if (!read_numbered(file.get(), path.get(), entries)) return false;
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry &a, const Entry &b) { return a.number < b.number; });
    glossary.entries = std::move(entries);
    return true;
}

// Fills the positions the file did not give with the process locale's names.
bool fill_from_locale(const Glossary &glossary, std::vector<Entry> &entries) {
    for (int32_t i = static_cast<int32_t>(entries.size()); i < glossary.positions; ++i) {
        const char *name = glossary.positions == 12 ? GetMonth_L(i) : GetDay_L(i);
        if (!add_entry(entries, i, name != nullptr ? name : "")) return false;
    }
    return true;
}

// Reads up to the expected count of lines, right-trimmed; false when memory ran out.
bool read_positional(FILE *file, int32_t positions, std::vector<Entry> &entries) {
    LineBuffer line;
    while (static_cast<int32_t>(entries.size()) < positions) {
        if (GetLFTerminatedLine_L(&line.text, file) == nullptr) return std::feof(file) != 0;
        if (!add_entry(entries, static_cast<int32_t>(entries.size()), trim_right(line.text)))
            return false;
    }
    return true;
}

bool load_positional(Glossary &glossary) {
    HeapText path = glossary_path(glossary);
    if (!path) return false;
    File file(fopen8_L(path.get(), "r"));
    std::vector<Entry> entries;
    if (file && !read_positional(file.get(), glossary.positions, entries)) return false;
    if (!fill_from_locale(glossary, entries)) return false;
    glossary.entries = std::move(entries);
    return true;
}

Glossary &loaded(GlossaryId id) {
    Glossary &glossary = glossaries[id];
    if (!glossary.loaded)
        glossary.loaded =
            glossary.positions == 0 ? load_numbered(glossary) : load_positional(glossary);
    return glossary;
}

const char *text_by_number(GlossaryId id, int32_t number) {
    const std::vector<Entry> &entries = loaded(id).entries;
    auto found = std::lower_bound(entries.begin(), entries.end(), number,
                                  [](const Entry &entry, int32_t n) { return entry.number < n; });
    return found != entries.end() && found->number == number ? found->text.get() : nullptr;
}

const char *text_by_position(GlossaryId id, int32_t position) {
    const std::vector<Entry> &entries = loaded(id).entries;
    if (position < 0 || position >= static_cast<int32_t>(entries.size())) return nullptr;
    return entries[position].text.get();
}

} // namespace

std::string qv::message_directory() {
    if (!directory) directory = find_message_directory();
    return *directory;
}

void qv::forget_message_directory() {
    directory.reset();
}

extern "C" {

QV_API const char *Gloss_L(int32_t n) {
    return text_by_number(general_glossary, n);
}
QV_API const char *FunctionGloss_L(int32_t n) {
    return text_by_number(function_glossary, n);
}
QV_API const char *DayGloss_L(int32_t i) {
    return text_by_position(day_glossary, i);
}
QV_API const char *MonthGloss_L(int32_t i) {
    return text_by_position(month_glossary, i);
}

QV_API void UnloadGlossaries_L(void) {
    for (Glossary &glossary : glossaries) {
        glossary.entries.clear();
        glossary.loaded = false;
    }
}

} // extern "C"
