// glossary.cpp - the four glossaries: small tables of texts read from files in the message
// directory, each loaded on its first use and kept until UnloadGlossaries_L.
//
// "glossary" and "function" are numbered: each entry is a number and a text, kept sorted
// by number (a stable sort, so of two equal numbers the earlier line wins) and searched
// by binary search. "day" and "month" are positional: the first 7 / 12 lines of the file,
// right-trimmed, in file order. A missing day or month file is not an error (the names of
// the process locale stand in, installed by the date module), nor are missing lines at its
// end (the same names fill them); lines beyond the expected count are ignored.
//
// Loading builds the table aside and installs it only when complete; a raise on the way
// (a missing numbered file raises GENERAL_ERROR after logging its message, memory running
// out raises ALLOC_FAILURE) unwinds the loader, whose file, path and partial table are
// released by their owners. With no status context open the raise returns and the
// glossary stays unloaded: after running out of memory its next lookup tries again; a
// missing file is reported once and remembered, its lookups giving null without a word
// until UnloadGlossaries_L.
//
// Part of the message module.
#define QV_MODULE "message"
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "messages/message.hpp"
#include "platform/files.hpp"
#include "qv/alloc.h"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"
#include "qv/platform.h"

namespace {

using qv::File;
using qv::HeapText;

struct Entry {
    int32_t number;
    HeapText text;
};

struct Glossary {
    const char *name;
    int32_t positions; // expected count of a positional glossary; 0 for a numbered one
    qv::Vector<Entry> entries;
    bool loaded = false;
    bool missing = false; // its file could not be opened: not tried again until unloaded
};

enum GlossaryId { general_glossary, function_glossary, day_glossary, month_glossary };

Glossary glossaries[] = {
    {"glossary", 0, {}, false, false},
    {"function", 0, {}, false, false},
    {"day", 7, {}, false, false},
    {"month", 12, {}, false, false},
};
static_assert(std::size(glossaries) == month_glossary + 1);

std::optional<qv::String> directory;

const char *no_name(int32_t) {
    return nullptr;
}

qv::NameAt day_name = no_name;
qv::NameAt month_name = no_name;

constexpr std::string_view white_space = " \t\r\n\v\f";

std::string_view trim_right(std::string_view text) {
    std::size_t end = text.find_last_not_of(white_space);
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
}

std::string_view trim(std::string_view text) {
    std::size_t start = text.find_first_not_of(white_space);
    return start == std::string_view::npos ? std::string_view() : trim_right(text.substr(start));
}

bool holds_glossary(std::string_view candidate) {
    qv::String file(candidate);
    file += "/glossary.gls";
    return access(file.c_str(), R_OK) == 0;
}

// The preference QV_MESSAGE_PATH, then <install root>/quillon/message, each only when it
// holds glossary.gls; else the executable's directory (or "." when even that is unknown).
qv::String find_message_directory() {
    HeapText preference(GetPreference_L("QV_MESSAGE_PATH"));
    if (preference && *preference && holds_glossary(preference.get())) return preference.get();
    HeapText root(GetInstallRoot_L());
    if (root) {
        qv::String installed(root.get());
        installed += "/quillon/message";
        if (holds_glossary(installed)) return installed;
    }
    HeapText executable(GetExecutableDirectory_L());
    return executable ? executable.get() : ".";
}

// Heap path of the glossary's file; null only after a raise that returned.
HeapText glossary_path(const Glossary &glossary) {
    qv::String folder = qv::message_directory();
    char *path = nullptr;
    Asprintf_L(&path, "%s/%s.%s", folder.c_str(), glossary.name, "gls");
    return HeapText(path);
}

bool add_entry(qv::Vector<Entry> &entries, int32_t number, std::string_view text) {
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

// Logs QV_MSG_GLOSSARY_OPEN_FAILED. With no message context to collect it, the text goes to
// the error class instead, so that the one message naming the file is seen.
void report_missing_file(const char *path) {
    PWMessage message(QV_MSG_GLOSSARY_OPEN_FAILED, MESSAGE_SEVERITY_ERROR);
    message << path;
    uint32_t *context = nullptr;
    if (*GetMessageContext_L(&context) != nullptr)
        LogMessage_L(&message);
    else
        Simple_Feedback_L(X_Error_FL, message.Text().c_str());
}

// Reads the lines of a numbered file into `entries`; false when memory ran out.
bool read_numbered(FILE *file, const char *path, qv::Vector<Entry> &entries) {
    HeapText line;
    int32_t line_number = 0;
    while (qv::read_line(line, file) != nullptr) {
        ++line_number;
        std::string_view trimmed = trim(line.get());
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
        glossary.missing = true;
        report_missing_file(path.get());
        QV_RAISE(GENERAL_ERROR);
        return false;
    }
    qv::Vector<Entry> entries;
    if (!read_numbered(file.get(), path.get(), entries)) return false;
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry &a, const Entry &b) { return a.number < b.number; });
    glossary.entries = std::move(entries);
    return true;
}

// Fills the positions the file did not give with the installed names.
bool fill_from_locale(const Glossary &glossary, qv::Vector<Entry> &entries) {
    const qv::NameAt name_at = glossary.positions == 12 ? month_name : day_name;
    for (int32_t i = static_cast<int32_t>(entries.size()); i < glossary.positions; ++i) {
        const char *name = name_at(i);
        if (!add_entry(entries, i, name != nullptr ? name : "")) return false;
    }
    return true;
}

// Reads up to the expected count of lines, right-trimmed; false when memory ran out.
bool read_positional(FILE *file, int32_t positions, qv::Vector<Entry> &entries) {
    HeapText line;
    while (static_cast<int32_t>(entries.size()) < positions) {
        if (qv::read_line(line, file) == nullptr) return std::feof(file) != 0;
        if (!add_entry(entries, static_cast<int32_t>(entries.size()), trim_right(line.get())))
            return false;
    }
    return true;
}

bool load_positional(Glossary &glossary) {
    HeapText path = glossary_path(glossary);
    if (!path) return false;
    File file(fopen8_L(path.get(), "r"));
    qv::Vector<Entry> entries;
    if (file && !read_positional(file.get(), glossary.positions, entries)) return false;
    if (!fill_from_locale(glossary, entries)) return false;
    glossary.entries = std::move(entries);
    return true;
}

Glossary &loaded(GlossaryId id) {
    Glossary &glossary = glossaries[id];
    if (!glossary.loaded && !glossary.missing)
        glossary.loaded =
            glossary.positions == 0 ? load_numbered(glossary) : load_positional(glossary);
    return glossary;
}

const char *text_by_number(GlossaryId id, int32_t number) {
    const qv::Vector<Entry> &entries = loaded(id).entries;
    auto found = std::lower_bound(entries.begin(), entries.end(), number,
                                  [](const Entry &entry, int32_t n) { return entry.number < n; });
    return found != entries.end() && found->number == number ? found->text.get() : nullptr;
}

const char *text_by_position(GlossaryId id, int32_t position) {
    const qv::Vector<Entry> &entries = loaded(id).entries;
    if (position < 0 || position >= static_cast<int32_t>(entries.size())) return nullptr;
    return entries[position].text.get();
}

} // namespace

qv::String qv::message_directory() {
    if (!directory) directory = find_message_directory();
    return *directory;
}

void qv::forget_message_directory() {
    directory.reset();
}

void qv::install_date_names(NameAt day, NameAt month) {
    day_name = day != nullptr ? day : no_name;
    month_name = month != nullptr ? month : no_name;
}

extern "C" {

QV_API const char *Gloss_L(int32_t n) {
    return QV_C_ENTRY([n] { return text_by_number(general_glossary, n); });
}
QV_API const char *FunctionGloss_L(int32_t n) {
    return QV_C_ENTRY([n] { return text_by_number(function_glossary, n); });
}
QV_API const char *DayGloss_L(int32_t i) {
    return QV_C_ENTRY([i] { return text_by_position(day_glossary, i); });
}
QV_API const char *MonthGloss_L(int32_t i) {
    return QV_C_ENTRY([i] { return text_by_position(month_glossary, i); });
}

QV_API void UnloadGlossaries_L(void) {
    for (Glossary &glossary : glossaries) {
        glossary.entries.clear();
        glossary.loaded = false;
        glossary.missing = false;
    }
}

} // extern "C"
