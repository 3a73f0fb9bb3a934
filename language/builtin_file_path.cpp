// builtin_file_path.cpp - file names and paths (module "builtin"): the translation of file
// names (builtin_file.hpp), and the built-ins GetFilename, GetDirectory, FileFullPath and
// FileFromParts.
//
// GetFilename and GetDirectory work on the text as written, taking '/' and '\' alike as
// separators: "/data/in/orders.csv" has the directory "/data/in" and the file name
// "orders.csv" ("orders" stripped of its extension, the part from its last '.'; a name
// whose only '.' is its first character, such as ".profile", has no extension). A path
// without a separator has no directory (NULL); a path ending in a separator has no file
// name (NULL); the directory of "/name" is "/". FileFullPath translates the name and makes
// it absolute and normal; the file need not exist. FileFromParts joins a directory, a file
// name and an extension with '/' and '.', adding neither where the part already ends or
// starts with it; a NULL or empty directory or extension is left out, a NULL file name
// gives NULL.
#define QV_MODULE "builtin"

#include <unistd.h>

#include <cstdlib>

#include "language/builtin_file.hpp"
#include "qv/message.h"
#include "qv/msgclass.h"
#include "qv/platform.h"

namespace qv::builtin {

namespace {

bool is_separator(char c) {
    return c == '/' || c == '\\';
}

// The preference named by text[begin, end), when set.
bool preference(std::string_view name, String &value) {
    if (name.empty()) return false;
    const String key(name);
    HeapText found(GetPreference_L(key.c_str()));
    if (found == nullptr) return false;
    value = found.get();
    return true;
}

// The text of `name` from `at` with "${NAME}" or "%NAME%" there replaced; the count of bytes
// taken from the name (0 when there is no reference at `at`).
std::size_t reference(std::string_view name, std::size_t at, String &out) {
    std::size_t open = 0;
    char close = 0;
    if (name.substr(at, 2) == "${") {
        open = 2;
        close = '}';
    } else if (name[at] == '%') {
        open = 1;
        close = '%';
    } else {
        return 0;
    }
    const std::size_t end = name.find(close, at + open);
    String value;
    if (end == std::string_view::npos ||
        !preference(name.substr(at + open, end - at - open), value))
        return 0;
    out += value;
    return end + 1 - at;
}

} // namespace

String translate_filename(std::string_view name) {
    String path;
    std::size_t at = 0;
    if (name.substr(0, 2) == "~/" || name.substr(0, 2) == "~\\") {
        if (const char *home = std::getenv("HOME")) {
            path = home;
            at = 1;
        }
    }
    while (at < name.size()) {
        if (const std::size_t taken = reference(name, at, path)) {
            at += taken;
            continue;
        }
        path += name[at] == '\\' ? '/' : name[at];
        ++at;
    }
    return path;
}

String full_path(std::string_view path) {
    String joined;
    if (path.empty() || path.front() != '/') {
        HeapText directory(getcwd(nullptr, 0));
        if (directory != nullptr) joined = directory.get();
        joined += '/';
    }
    joined += path;
    Vector<std::string_view> parts;
    for (std::size_t at = 0; at < joined.size();) {
        const std::size_t end = std::min(joined.find('/', at), joined.size());
        const std::string_view part(joined.data() + at, end - at);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        at = end + 1;
    }
    String normal;
    for (std::string_view part : parts) (normal += '/') += part;
    return normal.empty() ? String("/") : normal;
}

bool utf8_of(const QV_VALUE_T *value, qv::values::TextForm &text) {
    return present(value) && text.make_utf8(*value);
}

bool read_filename(const QV_VALUE_T *value, String &path) {
    qv::values::TextForm name;
    if (!utf8_of(value, name)) return false;
    path = translate_filename(name.view());
    return true;
}

void warn(uint32_t number, std::initializer_list<std::string_view> parameters) {
    PWMessage message(number, MESSAGE_SEVERITY_WARNING);
    for (std::string_view parameter : parameters) message << parameter;
    LogMessage_L(&message);
}

namespace {

// The place of the last separator, npos when there is none.
std::size_t last_separator(std::string_view path) {
    for (std::size_t i = path.size(); i > 0; --i)
        if (is_separator(path[i - 1])) return i - 1;
    return std::string_view::npos;
}

void store_view(QV_VALUE_T *result, std::string_view text) {
    store_text_copy(result, text, nullptr);
}

void get_filename(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *path,
                  QV_VALUE_T *strip) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    qv::values::TextForm text;
    if (!utf8_of(path, text)) return set_null(result);
    std::string_view name = text.view();
    const std::size_t separator = last_separator(name);
    if (separator != std::string_view::npos) name.remove_prefix(separator + 1);
    const std::size_t dot = name.rfind('.');
    if (optional_truth(strip, false) && dot != std::string_view::npos && dot > 0)
        name = name.substr(0, dot);
    store_view(result, name);
}

void get_directory(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *path) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    qv::values::TextForm text;
    if (!utf8_of(path, text)) return set_null(result);
    const std::string_view whole = text.view();
    const std::size_t separator = last_separator(whole);
    if (separator == std::string_view::npos) return set_null(result);
    store_view(result, whole.substr(0, separator == 0 ? 1 : separator));
}

void file_full_path(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *path) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    String name;
    if (!read_filename(path, name) || name.empty()) return set_null(result);
    store_view(result, full_path(name));
}

void file_from_parts(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *directory,
                     QV_VALUE_T *name, QV_VALUE_T *extension) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    qv::values::TextForm dir, file, ext;
    if (!utf8_of(name, file)) return set_null(result);
    String path;
    if (utf8_of(directory, dir) && !dir.view().empty()) {
        path = dir.view();
        if (!is_separator(path.back()) && !file.view().empty() && !is_separator(file.view()[0]))
            path += '/';
    }
    path += file.view();
    if (utf8_of(extension, ext) && !ext.view().empty()) {
        if (ext.view()[0] != '.' && (path.empty() || path.back() != '.')) path += '.';
        path += ext.view();
    }
    store_view(result, path);
}

} // namespace

} // namespace qv::builtin

using namespace qv::builtin;

extern "C" {

QV_API void BI_get_filename(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                            QV_VALUE_T *a2) {
    QV_C_ENTRY([&] { run<get_filename>(result, frame, a1, a2); });
}
QV_API void BI_get_directory(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    QV_C_ENTRY([&] { run<get_directory>(result, frame, a1); });
}
QV_API void BI_file_full_path(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    QV_C_ENTRY([&] { run<file_full_path>(result, frame, a1); });
}
QV_API void BI_file_from_parts(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                               QV_VALUE_T *a2, QV_VALUE_T *a3) {
    QV_C_ENTRY([&] { run<file_from_parts>(result, frame, a1, a2, a3); });
}

} // extern "C"
