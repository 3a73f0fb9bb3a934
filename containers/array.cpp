// array.cpp - item arrays (module "array").
//
// The block is count x item_size bytes of the caller's; every member checks its arguments
// at the door (Shape), so the bodies only move bytes. The caller keeps no capacity, so
// growth asks the block itself: when malloc_usable_size says the block already has room
// for one more item nothing is allocated, and otherwise it is reallocated to twice its size
// (at most 64 MiB more), so appending one item at a time costs amortised O(1). A block the
// caller allocated to the exact size works the same way. An item to insert that lies in
// the block is found again after the block moves.
#include "qv/array.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <malloc.h>

#include "core/raise.hpp"

namespace {

// The checked shape of a call: item size, count, and the block as bytes.
struct Shape {
    std::size_t item_size;
    int32_t count;
    char *bytes;
    char *at(int32_t index) const { return bytes + item_size * static_cast<std::size_t>(index); }
};

// Raises `symbol` and gives `result`, the member's "nothing" answer.
template <class Result>
Result fail(const char *symbol, Result result) {
    QV_RAISE(symbol);
    return result;
}

// True when the arguments describe an array; raises otherwise. A positive count needs a
// block.
bool valid(const void *block, int32_t count, uint32_t item_size) {
    if (item_size == 0) return fail(ZERO_ALLOC_FAILURE, false);
    if (count < 0 || (count > 0 && block == nullptr)) return fail(ARRAY_FAILURE_L, false);
    return true;
}

bool in_range(int32_t index, int32_t limit) {
    return (index >= 0 && index < limit) || fail(ARRAY_FAILURE_L, false);
}

constexpr std::size_t largest_step = std::size_t{64} << 20;

// The size a block of `old_bytes` that needs `needed` bytes is reallocated to.
std::size_t grown_size(std::size_t old_bytes, std::size_t needed) {
    return std::max(needed, old_bytes + std::min(old_bytes, largest_step));
}

// Grows the array at *block by one item at `index`, the items from index on moving up,
// and fills the new item from `item` (zeros when null), which may lie in the old block.
// Returns the new item's address, or null after a raise (the block as it was).
void *grow_at(void **block, int32_t count, uint32_t item_size, const void *item, int32_t index) {
    if (block == nullptr || count == INT32_MAX) return fail<void *>(ARRAY_FAILURE_L, nullptr);
    if (!valid(*block, count, item_size) || !in_range(index, count + 1)) return nullptr;
    Shape old{item_size, count, count > 0 ? static_cast<char *>(*block) : nullptr};
    const auto *source = static_cast<const char *>(item);
    std::size_t old_bytes = old.item_size * static_cast<std::size_t>(count);
    bool inside = old.bytes != nullptr && source >= old.bytes && source < old.bytes + old_bytes;
    std::size_t offset = inside ? static_cast<std::size_t>(source - old.bytes) : 0;

    std::size_t new_bytes = old_bytes + old.item_size;
    void *grown = count == 0 ? QV_MALLOC(new_bytes)
                  : malloc_usable_size(*block) >= new_bytes
                      ? *block
                      : QV_REALLOC(*block, grown_size(old_bytes, new_bytes));
    if (grown == nullptr) return nullptr;
    *block = grown;
    Shape now{item_size, count + 1, static_cast<char *>(grown)};
    char *slot = now.at(index);
    if (index < count) std::memmove(slot + now.item_size, slot, old_bytes - now.item_size * index);
    if (inside) {
        // The item moved with the block, and up by one item when it was at or past index.
        if (offset >= now.item_size * index) offset += now.item_size;
        std::memcpy(slot, now.bytes + offset, now.item_size);
    } else if (source != nullptr) {
        std::memcpy(slot, source, now.item_size);
    } else {
        std::memset(slot, 0, now.item_size);
    }
    return slot;
}

// Removes the item at `index` of a checked array; frees the block when none is left.
int32_t remove_at(void **block, const Shape &shape, int32_t index) {
    char *slot = shape.at(index);
    std::memmove(slot, slot + shape.item_size,
                 shape.item_size * static_cast<std::size_t>(shape.count - 1 - index));
    if (shape.count == 1) {
        std::free(*block);
        *block = nullptr;
    }
    return shape.count - 1;
}

int32_t find_bytes(const Shape &shape, const void *reference) {
    for (int32_t index = 0; index < shape.count; ++index)
        if (std::memcmp(shape.at(index), reference, shape.item_size) == 0) return index;
    return -1;
}

// The halving of BsearchArray_L over [0, count-1]; *position is low when nothing matches.
int32_t halve(const Shape &shape, bool first, const void *key, QV_ARRAY_COMPARE_L compare,
              int32_t *position) {
    int32_t low = 0, high = shape.count - 1, found = -1;
    while (low <= high) {
        int32_t mid = low + (high - low) / 2;
        int32_t order = compare(key, shape.at(mid));
        if (order > 0) {
            low = mid + 1;
        } else if (order < 0) {
            high = mid - 1;
        } else {
            found = mid;
            if (!first) break;
            high = mid - 1; // an equal item may come before it
        }
    }
    *position = found >= 0 ? found : low;
    return found;
}

} // namespace

extern "C" {

QV_API void *AddArrayItem_L(void **block, int32_t count, uint32_t item_size, const void *item) {
    return grow_at(block, count, item_size, item, count < 0 ? 0 : count);
}

QV_API void *InsertArrayItem_L(void **block, int32_t count, uint32_t item_size, const void *item,
                               int32_t index) {
    return grow_at(block, count, item_size, item, index);
}

QV_API int32_t DeleteArrayItem_L(void **block, int32_t count, uint32_t item_size,
                                 const void *item) {
    if (block == nullptr) return fail(ARRAY_FAILURE_L, count);
    if (!valid(*block, count, item_size) || item == nullptr) return count;
    Shape shape{item_size, count, static_cast<char *>(*block)};
    int32_t index = find_bytes(shape, item);
    return index < 0 ? count : remove_at(block, shape, index);
}

QV_API int32_t DeleteArrayItemByIndex_L(void **block, int32_t count, uint32_t item_size,
                                        int32_t index) {
    if (block == nullptr) return fail(ARRAY_FAILURE_L, count);
    if (!valid(*block, count, item_size) || !in_range(index, count)) return count;
    return remove_at(block, Shape{item_size, count, static_cast<char *>(*block)}, index);
}

QV_API void MoveArrayItemByIndex_L(void *block, int32_t count, uint32_t item_size, int32_t from,
                                   int32_t to) {
    if (!valid(block, count, item_size) || !in_range(from, count) || !in_range(to, count)) return;
    Shape shape{item_size, count, static_cast<char *>(block)};
    if (from == to) return;
    // The items between the two indexes shift by one toward `from`.
    char *low = shape.at(std::min(from, to)), *high = shape.at(std::max(from, to));
    char *shifted_to = from < to ? low : low + shape.item_size;
    char *shifted_from = from < to ? low + shape.item_size : low;
    alignas(std::max_align_t) char saved[256];
    if (shape.item_size <= sizeof saved) {
        std::memcpy(saved, shape.at(from), shape.item_size);
        std::memmove(shifted_to, shifted_from, static_cast<std::size_t>(high - low));
        std::memcpy(shape.at(to), saved, shape.item_size);
    } else if (from < to) {
        std::rotate(low, low + shape.item_size, high + shape.item_size);
    } else {
        std::rotate(low, high, high + shape.item_size);
    }
}

QV_API int32_t FindArrayItemByRef_L(const void *block, int32_t count, uint32_t item_size,
                                    const void *reference, QV_ARRAY_COMPARE_L compare) {
    if (!valid(block, count, item_size) || reference == nullptr) return -1;
    Shape shape{item_size, count, static_cast<char *>(const_cast<void *>(block))};
    if (compare == nullptr) return find_bytes(shape, reference);
    for (int32_t index = 0; index < count; ++index)
        if (compare(reference, shape.at(index)) == 0) return index;
    return -1;
}

QV_API int32_t BsearchArray_L(const void *block, int32_t count, int32_t flag, const void *key,
                              uint32_t item_size, QV_ARRAY_COMPARE_L compare, int32_t *position) {
    int32_t ignored;
    if (position == nullptr) position = &ignored;
    *position = 0;
    if (!valid(block, count, item_size)) return -1;
    if (compare == nullptr) return fail(ARRAY_FAILURE_L, -1);
    if (count == 0) return -1;
    Shape shape{item_size, count, static_cast<char *>(const_cast<void *>(block))};
    if (compare(key, shape.at(count - 1)) > 0) {
        *position = count;
        return -1;
    }
    return halve(shape, (flag & QV_BSEARCH_FIRST) != 0, key, compare, position);
}

} // extern "C"
