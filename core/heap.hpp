// heap.hpp - owners for the C resources the library hands around: heap texts from malloc
// (freed with free, as callers of the C interface free them), stdio files, and texts that
// a routine grows in place through their address (GetLFTerminatedLine_L, VAsprintf_L).
// Each releases what it holds on every way out, including a raise unwinding through it;
// ScopedFlag does the same for a process-wide switch held for the life of a scope.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace qv {

struct FreeDeleter {
    void operator()(void *block) const { std::free(block); }
};
using HeapText = std::unique_ptr<char, FreeDeleter>;

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// A heap text whose address is given to a routine that allocates or grows it.
struct GrowingText {
    char *text = nullptr;
    GrowingText() = default;
    GrowingText(const GrowingText &) = delete;
    GrowingText &operator=(const GrowingText &) = delete;
    ~GrowingText() { std::free(text); }
};

// Sets a switch for the life of a scope (a re-entry guard); a raise unwinds through it,
// so the switch is always reset.
class ScopedFlag {
  public:
    explicit ScopedFlag(bool &flag) : flag_(flag) { flag_ = true; }
    ScopedFlag(const ScopedFlag &) = delete;
    ScopedFlag &operator=(const ScopedFlag &) = delete;
    ~ScopedFlag() { flag_ = false; }

  private:
    bool &flag_;
};

} // namespace qv
