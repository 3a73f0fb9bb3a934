// paths.cpp - where the library finds its installation and its executable.
//
// The installation root is <prefix>/share: the preference QV_INSTALL_ROOT when set,
// else derived from the library's own file (dladdr on a function of the library): a
// library in <prefix>/lib, <prefix>/lib64 or a folder below either gives <prefix>/share.
// When the library is not in such a folder (a static build linked into a program in a
// build tree), the data directory configured at build time (QV_INSTALL_DATADIR) stands in.
// Returned paths are heap texts without a trailing '/'.
#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "platform/paths.hpp"
#include "qv/platform.h"

#ifndef QV_INSTALL_DATADIR
#define QV_INSTALL_DATADIR "/usr/local/share"
#endif

namespace {

bool is_library_folder(std::string_view component) {
    return component == "lib" || component == "lib64" || component == "lib32";
}

// The path of the file this code was loaded from, resolved when possible; empty when
// dladdr cannot tell.
qv::String own_file_path() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&GetInstallRoot_L), &info) == 0 ||
        info.dli_fname == nullptr)
        return {};
    char resolved[PATH_MAX];
    if (realpath(info.dli_fname, resolved) != nullptr) return resolved;
    return info.dli_fname;
}

void drop_trailing_slashes(qv::String &path) {
    while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) path.pop_back();
}

} // namespace

namespace qv {

// <prefix> when `file` lies in <prefix>/lib[/...] (the nearest library folder wins; the
// prefix of /lib is empty); nothing when no folder of its path is a library folder.
std::optional<String> install_prefix_of(const String &file) {
    std::string_view path(file);
    std::size_t end = path.rfind('/');
    while (end != std::string_view::npos && end > 0) {
        std::size_t start = path.rfind('/', end - 1);
        std::size_t first = start == std::string_view::npos ? 0 : start + 1;
        if (is_library_folder(path.substr(first, end - first)))
            return String(path.substr(0, first == 0 ? 0 : first - 1));
        if (start == std::string_view::npos) break;
        end = start;
    }
    return std::nullopt;
}

String install_root_from_location() {
    std::optional<String> prefix = install_prefix_of(own_file_path());
    if (!prefix) return QV_INSTALL_DATADIR;
    prefix->append("/share");
    return std::move(*prefix);
}

String install_root_from_environment() {
    const char *root = std::getenv("QV_INSTALL_ROOT");
    if (root != nullptr && *root != '\0') {
        String path(root);
        drop_trailing_slashes(path);
        return path;
    }
    return install_root_from_location();
}

} // namespace qv

extern "C" {

// Heap text (caller frees); null only after ALLOC_FAILURE with no status context open.
QV_API char *GetInstallRoot_L(void) {
    qv::HeapText preference(GetPreference_L("QV_INSTALL_ROOT"));
    return QV_C_ENTRY([&] {
        qv::String root;
        if (preference != nullptr && *preference != '\0') {
            root = preference.get();
            drop_trailing_slashes(root);
        } else {
            root = qv::install_root_from_location();
        }
        return QV_STRDUP(root.c_str());
    });
}

// Heap text (caller frees), or null when /proc/self/exe cannot be read.
QV_API char *GetExecutableDirectory_L(void) {
    char path[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return nullptr;
    path[length] = '\0';
    char *slash = std::strrchr(path, '/');
    if (slash == nullptr) return nullptr;
    *(slash == path ? slash + 1 : slash) = '\0';
    return QV_STRDUP(path);
}

} // extern "C"
