// blocks.hpp - the arrays of the registry and the variables: plain malloc'd blocks that
// grow by a given number of elements at a time (the new ones zero-filled) and never
// shrink; a removal moves the later elements down inside the block. Removing never
// allocates, so it cannot fail.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/raise.hpp"

// Resizes `block` of `count` elements to `count + added`; null after a raise (the block is
// then unchanged). Raises ALLOC_FAILURE with the caller's module and line.
#define QV_GROW(block, count, added)                                                               \
    ::qv::grow_block((block), (count), (added), QV_MODULE, __LINE__)

namespace qv {

template <class T>
T *grow_block(T *block, int32_t count, int32_t added, const char *module, int line) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (count < 0 || added < 1 || count > INT32_MAX - added) {
        except_raise(ALLOC_FAILURE, module, line, 0, 0, nullptr);
        return nullptr;
    }
    const auto size = static_cast<std::size_t>(count + added);
    auto *grown = static_cast<T *>(checked_realloc(block, sizeof(T) * size, module, line));
    if (grown == nullptr) return nullptr;
    std::memset(static_cast<void *>(grown + count), 0, sizeof(T) * static_cast<std::size_t>(added));
    return grown;
}

// Removes element `index` of the `count` elements of `block`.
template <class T>
void remove_element(T *block, int32_t count, int32_t index) {
    static_assert(std::is_trivially_copyable_v<T>);
    std::memmove(static_cast<void *>(block + index), block + index + 1,
                 sizeof(T) * static_cast<std::size_t>(count - index - 1));
}

} // namespace qv
