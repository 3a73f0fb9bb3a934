// alloc.cpp - allocation helpers that raise, the test hook that fails the Nth allocation,
// the allocation table and the formatter.
#include <cstdlib>
#include <cstring>

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
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

char *checked_strdup(const char *text, const char *module, int line) {
    return checked_strndup(text, std::strlen(text), module, line);
}

} // namespace qv

extern "C" {

QV_API void TestFailAllocation_L(int32_t n) {
    qv::allocations_until_failure = n;
    qv::injected_failure_fired = false;
}

QV_API uint8_t TestAllocationFailed_L(void) { return qv::injected_failure_fired ? 1 : 0; }

} // extern "C"
