// builtin_file.cpp - the file built-ins (module "builtin"): FileOpen, FileClose, FileRead,
// FileWrite, FileCheck and FileList.
//
// Open files live in the open-file table of the current function struct (language/
// builtin.hpp): FileOpen's INTEGER result is the 1-based number of the file's slot, which
// the other functions take; CloseFunctionFiles_L closes what is left. A number that names
// no open file (0, negative, past the table, closed) gives NULL. Files that cannot be opened
// and unknown modes or properties give NULL and log a warning that says why.
//
//   FileOpen( name [, mode] )   mode READ (the default), WRITE (created or emptied) or
//                               APPEND, in any letter case; a directory is not opened
//   FileRead( file_no )         the next line without its line feed and trailing blanks;
//                               a blank line is an empty text, the end of the file NULL
//                               (and lines added to the file later are read after it)
//   FileWrite( file_no, ... )   the text forms of the values one after the other (a NULL
//                               value writes nothing), then a line feed: TRUE, or FALSE
//                               when the system refuses the write
//   FileCheck( name {, prop} )  TRUE when the file has every property named (EXISTS when
//                               none is): EXISTS, FILE (a regular file), DIRECTORY, LINK (a
//                               symbolic link), READABLE, WRITABLE, EXECUTABLE (for this
//                               process), EMPTY (a file of no bytes or a directory without
//                               entries); any letter case. A missing file has none.
//   FileList( pattern [, full [, drill]] )
//                               the regular files in the pattern's directory whose names
//                               match its last part ('*' any run of characters, '?' one,
//                               "[a-z]" one of a set); a pattern naming a directory lists
//                               all its files. Names are relative to that directory
//                               ("sub/b.txt" below it), or full paths when `full` is TRUE;
//                               `drill` TRUE descends into subdirectories (not through
//                               symbolic links). Sorted, joined by ';'; NULL when none.
#define QV_MODULE "builtin"

#include <dirent.h>
#include <fnmatch.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "language/builtin.hpp"
#include "language/builtin_file.hpp"
#include "platform/files.hpp"
#include "qv/message.h"
#include "qv/platform.h"

namespace {

using namespace qv::builtin;
using qv::String;

// ---- Open, close, read, write --------------------------------------------------------------

struct Mode {
    const char *name;
    const char *fopen_mode; // close-on-exec, so that System() children do not inherit it
};
constexpr Mode modes[] = {{"READ", "re"}, {"WRITE", "we"}, {"APPEND", "ae"}};

const Mode *find_mode(const QV_VALUE_T *value) {
    if (!present(value)) return &modes[0];
    qv::values::TextForm text;
    if (!utf8_of(value, text)) return nullptr;
    for (const Mode &mode : modes)
        if (strcasecmp(text.data(), mode.name) == 0) return &mode;
    warn(QV_MSG_FILE_MODE_UNKNOWN, {text.view()});
    return nullptr;
}

// fopen, refusing a directory (which reading would open without a complaint).
std::FILE *open_stream(const String &path, const Mode &mode) {
    std::FILE *file = fopen8_L(path.c_str(), mode.fopen_mode);
    struct stat status;
    if (file != nullptr && fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode)) {
        std::fclose(file);
        errno = EISDIR;
        return nullptr;
    }
    return file;
}

void file_open(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *name, QV_VALUE_T *mode) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    String path;
    const Mode *chosen = nullptr;
    if (!read_filename(name, path) || (chosen = find_mode(mode)) == nullptr)
        return set_null(result);
    std::FILE *file = open_stream(path, *chosen);
    if (file == nullptr) {
        const char *why = std::strerror(errno);
        warn(QV_MSG_FILE_OPEN_FAILED, {path, chosen->name, why});
        return set_null(result);
    }
    const int32_t number = qv::add_open_file(file);
    if (number == 0) {
        std::fclose(file);
        return set_null(result);
    }
    store_integer(result, number);
}

// The file number an argument gives; 0 when it is not one of the table's (1..INT32_MAX).
int32_t file_number(const QV_VALUE_T *number) {
    int64_t n = 0;
    if (!read_integer(number, n) || n < 1 || n > INT32_MAX) return 0;
    return static_cast<int32_t>(n);
}

// The stream of a file-number argument; null when it names no open file.
std::FILE *stream_of(const QV_VALUE_T *number) {
    return qv::open_file(file_number(number));
}

void file_close(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *number) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    if (!qv::close_open_file(file_number(number))) return set_null(result);
    store_boolean(result, true);
}

void file_read(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *number) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    std::FILE *file = stream_of(number);
    qv::HeapText line;
    if (file != nullptr) std::clearerr(file); // past the end before: what was added since
    if (file == nullptr || qv::read_line(line, file) == nullptr) return set_null(result);
    RTrim_L(line.get());
    qv::values::release_payload(*result);
    result->payload.string = QV_STRING_T{line.release(), nullptr};
    result->owns_payload = 1;
    result->is_null = 0;
}

void file_write(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments given) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    std::FILE *file = stream_of(given[0]);
    if (file == nullptr) return set_null(result);
    for (int32_t i = 1; i < given.count; ++i) {
        qv::values::TextForm text;
        if (present(given[i]) && text.make_utf8(*given[i]))
            std::fwrite(text.data(), 1, text.size(), file);
    }
    std::fputc('\n', file);
    const bool written = std::fflush(file) == 0 && !std::ferror(file);
    std::clearerr(file);
    store_boolean(result, written);
}

// ---- FileCheck ------------------------------------------------------------------------------

struct Facts {
    bool exists = false;
    struct stat status {}; // followed through links
    bool link = false;
};

bool is_empty_directory(const String &path) {
    std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(path.c_str()), closedir);
    if (directory == nullptr) return false;
    while (const dirent *entry = readdir(directory.get()))
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            return false;
    return true;
}

using Test = bool (*)(const String &path, const Facts &facts);

struct Property {
    const char *name;
    Test test;
};

constexpr Property properties[] = {
    {"EXISTS", [](const String &, const Facts &f) { return f.exists; }},
    {"FILE", [](const String &, const Facts &f) { return f.exists && S_ISREG(f.status.st_mode); }},
    {"DIRECTORY",
     [](const String &, const Facts &f) { return f.exists && S_ISDIR(f.status.st_mode); }},
    {"LINK", [](const String &, const Facts &f) { return f.link; }},
    {"READABLE", [](const String &p, const Facts &) { return access(p.c_str(), R_OK) == 0; }},
    {"WRITABLE", [](const String &p, const Facts &) { return access(p.c_str(), W_OK) == 0; }},
    {"EXECUTABLE", [](const String &p, const Facts &) { return access(p.c_str(), X_OK) == 0; }},
    {"EMPTY",
     [](const String &p, const Facts &f) {
         if (!f.exists) return false;
         if (S_ISDIR(f.status.st_mode)) return is_empty_directory(p);
         return S_ISREG(f.status.st_mode) && f.status.st_size == 0;
     }},
};

const Property *find_property(const QV_VALUE_T *value) {
    qv::values::TextForm text;
    if (!utf8_of(value, text)) return nullptr;
    for (const Property &property : properties)
        if (strcasecmp(text.data(), property.name) == 0) return &property;
    warn(QV_MSG_FILE_PROPERTY_UNKNOWN, {text.view()});
    return nullptr;
}

void file_check(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments given) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    String path;
    if (!read_filename(given[0], path)) return set_null(result);
    Facts facts;
    struct stat link_status;
    facts.exists = stat(path.c_str(), &facts.status) == 0;
    facts.link = lstat(path.c_str(), &link_status) == 0 && S_ISLNK(link_status.st_mode);
    bool holds = true;
    bool named = false;
    for (int32_t i = 1; i < given.count; ++i) {
        if (!present(given[i])) continue;
        const Property *property = find_property(given[i]);
        if (property == nullptr) return set_null(result);
        named = true;
        holds = holds && property->test(path, facts);
    }
    store_boolean(result, named ? holds : facts.exists);
}

// ---- FileList -------------------------------------------------------------------------------

struct Listing {
    String pattern; // matched against names
    bool full = false;
    bool drill = false;
    qv::Vector<String> names;
};

// Adds the matching files of `directory` (a path the system opens) to the listing, each
// named `prefix` + its name unless the listing wants full paths.
void list_directory(Listing &listing, const String &directory, const String &prefix) {
    std::unique_ptr<DIR, int (*)(DIR *)> handle(opendir(directory.c_str()), closedir);
    if (handle == nullptr) return;
    qv::Vector<String> below;
    while (const dirent *entry = readdir(handle.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        String path = directory;
        if (path.back() != '/') path += '/';
        path += name;
        struct stat status;
        if (stat(path.c_str(), &status) != 0) continue;
        if (S_ISDIR(status.st_mode)) {
            struct stat link_status;
            if (listing.drill && lstat(path.c_str(), &link_status) == 0 &&
                !S_ISLNK(link_status.st_mode))
                below.push_back(String(name));
        } else if (S_ISREG(status.st_mode) &&
                   fnmatch(listing.pattern.c_str(), entry->d_name, 0) == 0) {
            listing.names.push_back(listing.full ? full_path(path) : prefix + String(name));
        }
    }
    handle.reset();
    for (const String &name : below) {
        String path = directory;
        if (path.back() != '/') path += '/';
        list_directory(listing, path + name, prefix + name + "/");
    }
}

void file_list(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *pattern, QV_VALUE_T *full,
               QV_VALUE_T *drill) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    String path;
    if (!read_filename(pattern, path) || path.empty()) return set_null(result);
    Listing listing;
    listing.full = optional_truth(full, false);
    listing.drill = optional_truth(drill, false);
    struct stat status;
    String directory;
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        directory = path;
        listing.pattern.assign(1, '*'); // (= "*" draws a false -Wrestrict from GCC 12)
    } else {
        const std::size_t slash = path.rfind('/');
        directory = slash == String::npos ? String(".") : path.substr(0, slash == 0 ? 1 : slash);
        listing.pattern = slash == String::npos ? path : path.substr(slash + 1);
    }
    list_directory(listing, directory, String());
    std::sort(listing.names.begin(), listing.names.end());
    TextJoiner joined;
    for (const String &name : listing.names)
        if (!(joined.view().empty() || joined.append(";")) || !joined.append(name))
            return set_null(result);
    joined.store(result);
}

} // namespace

extern "C" {

QV_API void BI_file_open(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                         QV_VALUE_T *a2) {
    QV_C_ENTRY([&] { run<file_open>(result, frame, a1, a2); });
}
QV_API void BI_file_close(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<file_close>(result, frame, a1);
}
QV_API void BI_file_read(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<file_read>(result, frame, a1);
}
QV_API void BI_file_write(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run_b<file_write>(result, frame);
}
QV_API void BI_file_check(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    QV_C_ENTRY([&] { run_b<file_check>(result, frame); });
}
QV_API void BI_file_list(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                         QV_VALUE_T *a2, QV_VALUE_T *a3) {
    QV_C_ENTRY([&] { run<file_list>(result, frame, a1, a2, a3); });
}

} // extern "C"
