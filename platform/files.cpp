// files.cpp - files opened by UTF-8 path and read line by line.
//
// Paths are UTF-8 bytes, which is what the file system takes here; a '\' in a path is read
// as the separator '/', so that paths written for the original platform still work.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/raise.hpp"
#include "qv/platform.h"

namespace {

constexpr std::size_t first_line_capacity = 128;

// Grows *buffer to `capacity` bytes; false (with *buffer intact) when the allocation failed
// and no status context caught the raise.
bool grow_line_buffer(char **buffer, std::size_t capacity) {
    char *grown = static_cast<char *>(QV_REALLOC(*buffer, capacity));
    if (grown == nullptr) return false;
    *buffer = grown;
    return true;
}

} // namespace

extern "C" {

QV_API FILE *fopen8_L(const char *utf8_path, const char *mode) {
    if (utf8_path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    std::string path(utf8_path);
    for (char &c : path)
        if (c == '\\') c = '/';
    return std::fopen(path.c_str(), mode);
}

// *buffer always holds a valid heap block (or null) while this runs, so a caller that
// frees it after a raise frees the right block. Raises ALLOC_FAILURE when it cannot grow.
QV_API char *GetLFTerminatedLine_L(char **buffer, FILE *stream) {
    if (buffer == nullptr || stream == nullptr) return nullptr;
    int c = std::getc(stream);
    if (c == EOF) return nullptr;
    std::size_t capacity = first_line_capacity;
    if (!grow_line_buffer(buffer, capacity)) return nullptr;
    std::size_t length = 0;
    for (; c != EOF && c != '\n'; c = std::getc(stream)) {
        if (length + 1 >= capacity) {
            capacity *= 2;
            if (!grow_line_buffer(buffer, capacity)) return nullptr;
        }
        (*buffer)[length++] = static_cast<char>(c);
    }
    (*buffer)[length] = '\0';
    return *buffer;
}

} // extern "C"
