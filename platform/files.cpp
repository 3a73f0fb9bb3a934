// files.cpp - files opened by UTF-8 path and read line by line.
//
// Paths are UTF-8 bytes, which is what the file system takes here; a '\' in a path is read
// as the separator '/', so that paths written for the original platform still work.
//
// A line is read into a heap block grown by doubling. One reader serves both the C caller's
// char ** and the library's owned HeapText: it hands every grown block to its holder at
// once, so the holder has the right block whenever a raise leaves the reader.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/raise.hpp"
#include "platform/files.hpp"
#include "qv/platform.h"

namespace {

constexpr std::size_t first_line_capacity = 128;

// Reads the next line into `block` (grown as needed); `hold(grown)` takes each new block.
// Returns the line, or null at end of file or when growing failed and the raise returned.
template <class Hold>
char *read_line_into(char *block, std::FILE *stream, Hold &&hold) {
    int c = std::getc(stream);
    if (c == EOF) return nullptr;
    std::size_t capacity = first_line_capacity;
    auto grow = [&] {
        auto *grown = static_cast<char *>(QV_REALLOC(block, capacity));
        if (grown == nullptr) return false;
        hold(grown);
        block = grown;
        return true;
    };
    if (!grow()) return nullptr;
    std::size_t length = 0;
    for (; c != EOF && c != '\n'; c = std::getc(stream)) {
        if (length + 1 >= capacity) {
            capacity *= 2;
            if (!grow()) return nullptr;
        }
        block[length++] = static_cast<char>(c);
    }
    block[length] = '\0';
    return block;
}

} // namespace

char *qv::read_line(HeapText &line, std::FILE *stream) {
    if (stream == nullptr) return nullptr;
    return read_line_into(line.get(), stream, [&](char *grown) {
        (void)line.release(); // already freed or moved by the realloc
        line.reset(grown);
    });
}

extern "C" {

QV_API FILE *fopen8_L(const char *utf8_path, const char *mode) {
    if (utf8_path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return QV_C_ENTRY([&] {
        qv::String path(utf8_path);
        std::replace(path.begin(), path.end(), '\\', '/');
        return std::fopen(path.c_str(), mode);
    });
}

// *buffer always holds a valid heap block (or null) while this runs, so a caller that
// frees it after a raise frees the right block. Raises ALLOC_FAILURE when it cannot grow.
QV_API char *GetLFTerminatedLine_L(char **buffer, FILE *stream) {
    if (buffer == nullptr || stream == nullptr) return nullptr;
    return read_line_into(*buffer, stream, [buffer](char *grown) { *buffer = grown; });
}

} // extern "C"
