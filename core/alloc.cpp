// alloc.cpp - allocation helpers that raise, the test hook that fails the Nth allocation,
// appending to heap texts (append.hpp), and the allocation table. The formatter of the same
// module lives in format.cpp.
//
// The allocation table has 1024 entries filled from index 0 upward; `used` counts the
// entries handed out. An entry holds the address of its owner (a static pointer variable)
// and the block that owner currently holds. The owner variable points at the entry's block
// field, never at the block itself, so that freeing every entry can also null every owner.
// Freeing one entry empties it but does not give it back: only Free_Alloc_Ptrs_L lowers the
// count.
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "core/append.hpp"
#include "core/heap.hpp"
#include "core/raise.hpp"
#include "qv/alloc.h"

namespace qv {
namespace {

int64_t allocations_until_failure = -1;
bool injected_failure_fired = false;

} // namespace

bool allocation_should_fail() {
    if (allocations_until_failure < 0) return false;
    if (allocations_until_failure-- > 0) return false;
    injected_failure_fired = true;
    return true;
}

void *checked_malloc(std::size_t size, const char *module, int line) {
    if (size == 0) {
        except_raise(ZERO_ALLOC_FAILURE, module, line, 0, 0, nullptr);
        return nullptr;
    }
    void *block = allocation_should_fail() ? nullptr : std::malloc(size);
    if (block == nullptr) except_raise(ALLOC_FAILURE, module, line, 0, 0, nullptr);
    return block;
}

void *checked_calloc(std::size_t size, const char *module, int line) {
    void *block = checked_malloc(size, module, line);
    if (block != nullptr) std::memset(block, 0, size);
    return block;
}

void *checked_realloc(void *block, std::size_t size, const char *module, int line) {
    if (size == 0) {
        except_raise(ZERO_ALLOC_FAILURE, module, line, 0, 0, nullptr);
        return nullptr;
    }
    void *grown = allocation_should_fail() ? nullptr : std::realloc(block, size);
    if (grown == nullptr) except_raise(ALLOC_FAILURE, module, line, 0, 0, nullptr);
    return grown;
}

char *checked_strndup(const char *text, std::size_t length, const char *module, int line) {
    auto *copy = static_cast<char *>(checked_malloc(length + 1, module, line));
    if (copy == nullptr) return nullptr;
    if (length > 0) std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

char *checked_strdup(const char *text, const char *module, int line) {
    return checked_strndup(text, std::strlen(text), module, line);
}

void *container_allocate(std::size_t bytes) {
    void *block = allocation_should_fail() ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

// ---- Appending -----------------------------------------------------------------------

namespace {

// The bytes a heap block can hold; 0 where the C library cannot tell.
std::size_t block_size(const void *block) {
#ifdef __GLIBC__
    return malloc_usable_size(const_cast<void *>(block));
#else
    (void)block;
    return 0;
#endif
}

} // namespace

char *prepare_append(char *text, std::size_t extra, std::size_t *length, const char *module,
                     int line) {
    *length = std::strlen(text);
    const std::size_t need = *length + extra + 1;
    if (need <= block_size(text)) {
        // Room is there, but the append still counts as an allocation for the failure
        // test hook, as the exact-size realloc it replaces did.
        if (allocation_should_fail()) {
            except_raise(ALLOC_FAILURE, module, line, 0, 0, nullptr);
            return nullptr;
        }
        return text;
    }
    const std::size_t grown = std::max(need, *length + *length / 2 + 64);
    return static_cast<char *>(checked_realloc(text, grown, module, line));
}

// ---- The allocation table ----------------------------------------------------------------

namespace {

struct AllocEntry {
    void ***owner; // the registered pointer variable; null once released
    void *block;   // the block the owner holds through its pointer to this field
};

constexpr int32_t alloc_table_size = 1024;
AllocEntry alloc_table[alloc_table_size];
int32_t alloc_entries_used = 0;

// Releases one entry: nulls its owner and frees its block.
void release_entry(AllocEntry &entry) {
    if (entry.owner != nullptr) *entry.owner = nullptr;
    std::free(entry.block);
    entry.owner = nullptr;
    entry.block = nullptr;
}

} // namespace
} // namespace qv

extern "C" {

QV_API void Get_Alloc_Ptr_L(void ***owner) {
    if (owner == nullptr) return;
    if (qv::alloc_entries_used >= qv::alloc_table_size) {
        QV_RAISE(GENERAL_ERROR);
        return; // no status context: nothing registered, *owner untouched
    }
    qv::AllocEntry &entry = qv::alloc_table[qv::alloc_entries_used++];
    entry.owner = owner;
    entry.block = nullptr;
    *owner = &entry.block;
}

QV_API void Free_Alloc_Ptr_L(void ***owner) {
    if (owner == nullptr) return;
    for (int32_t i = 0; i < qv::alloc_entries_used; ++i) {
        if (qv::alloc_table[i].owner == owner) {
            qv::release_entry(qv::alloc_table[i]);
            return;
        }
    }
}

QV_API int32_t Free_Alloc_Ptrs_L(void) {
    while (qv::alloc_entries_used > 0) qv::release_entry(qv::alloc_table[--qv::alloc_entries_used]);
    return qv::alloc_entries_used;
}

QV_API void TestFailAllocation_L(int32_t n) {
    qv::allocations_until_failure = n;
    qv::injected_failure_fired = false;
}

QV_API uint8_t TestAllocationFailed_L(void) {
    return qv::injected_failure_fired ? 1 : 0;
}

} // extern "C"
