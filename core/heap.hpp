// heap.hpp - owners for the C resources the library hands around, and the one allocation
// rule for standard containers.
//
// Owners: heap blocks from malloc (freed with free, as callers of the C interface free
// them) and stdio files. Each releases what it holds on every way out, including a raise
// unwinding through it. A block that a routine grows through its address stays with its
// owner when the routine hands every new block over at once (see platform/files.hpp).
//
// Containers: standard containers and strings inside the library allocate through
// qv::Allocator (aliases qv::String, qv::Vector ...), which the allocation-failure test hook
// sees and which throws std::bad_alloc when memory runs out. No C++ exception may cross the
// C interface: every exported entry point that can allocate through them runs its body under
// qv::c_entry (the QV_C_ENTRY macro of raise.hpp), which turns std::bad_alloc and
// std::length_error into the ALLOC_FAILURE raise.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

struct FreeDeleter {
    void operator()(void *block) const { std::free(block); }
};
// The one owner of a malloc'd block: HeapArray<int32_t>, HeapArray<char> ...
template <class T>
using HeapArray = std::unique_ptr<T[], FreeDeleter>;
// A malloc'd text (a block read as one char *).
using HeapText = std::unique_ptr<char, FreeDeleter>;

// malloc for containers: consults the allocation-failure hook; throws std::bad_alloc.
void *container_allocate(std::size_t bytes);

// The allocator of every standard container inside the library.
template <class T>
struct Allocator {
    using value_type = T;
    static_assert(alignof(T) <= alignof(std::max_align_t), "malloc alignment suffices");
    Allocator() noexcept = default;
    template <class U>
    Allocator(const Allocator<U> &) noexcept {} // NOLINT: rebinding is implicit
    T *allocate(std::size_t n) {
        if (n > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_alloc();
        return static_cast<T *>(container_allocate(n * sizeof(T)));
    }
    void deallocate(T *block, std::size_t) noexcept { std::free(block); }
    template <class U>
    bool operator==(const Allocator<U> &) const noexcept {
        return true;
    }
};

using String = std::basic_string<char, std::char_traits<char>, Allocator<char>>;
template <class T>
using Vector = std::vector<T, Allocator<T>>;
template <class Key, class Value, class Compare = std::less<>>
using Map = std::map<Key, Value, Compare, Allocator<std::pair<const Key, Value>>>;

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

} // namespace qv
