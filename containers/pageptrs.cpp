// pageptrs.cpp - paged pointer arrays (module "pageptrs").
//
// A page is one malloc'd block: an 8-byte header counting the slots of the page that hold
// a pointer, then items_per_page slots, zero-filled when made (null marks a free slot). The
// record's table holds the page addresses; only the table is ever reallocated.
//
// Bookkeeping kept in the record: count (pointers stored), end (one past the last slot
// holding a pointer) and first_free (no free slot lies below it, a hint for
// AddPtrToPagedPtrs_L). Scans skip whole pages through the header: empty pages when
// looking for pointers, full pages when looking for a free slot.
#include "qv/pageptrs.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "core/raise.hpp"

static_assert(std::is_standard_layout_v<QV_PAGED_PTRS_T> &&
              std::is_trivially_copyable_v<QV_PAGED_PTRS_T>);

namespace {

constexpr int32_t default_items_per_page = 1024;
constexpr int32_t default_table_size = 256;

// A page's header; its slots follow it.
struct Page {
    int32_t used; // slots holding a pointer
    int32_t reserved;
};
constexpr std::size_t page_header_bytes = sizeof(Page);
static_assert(page_header_bytes == 8, "a page's header is the 8 bytes the memory figure counts");

Page *page_of(const QV_PAGED_PTRS_T *array, int32_t page) {
    return static_cast<Page *>(array->table[page]);
}
void **slots_of(Page *page) {
    return reinterpret_cast<void **>(reinterpret_cast<char *>(page) + page_header_bytes);
}

// A position as its page and its slot in that page.
struct Place {
    int32_t page;
    int32_t slot;
};
Place place_of(const QV_PAGED_PTRS_T *array, int32_t position) {
    auto per_page = static_cast<uint32_t>(array->items_per_page);
    auto at = static_cast<uint32_t>(position);
    if ((per_page & (per_page - 1)) == 0) // the usual sizes: a shift rather than a division
        return {static_cast<int32_t>(at >> std::countr_zero(per_page)),
                static_cast<int32_t>(at & (per_page - 1))};
    return {static_cast<int32_t>(at / per_page), static_cast<int32_t>(at % per_page)};
}

// The slot at a position below pages x items_per_page.
void **slot_at(const QV_PAGED_PTRS_T *array, int32_t position) {
    Place place = place_of(array, position);
    return slots_of(page_of(array, place.page)) + place.slot;
}

// Slots of `page` below end.
int32_t slots_below_end(const QV_PAGED_PTRS_T *array, int32_t page) {
    return static_cast<int32_t>(std::min<int64_t>(
        array->items_per_page, array->end - int64_t{page} * array->items_per_page));
}

// Makes a page for slot `end` when the pages made so far end there. False after a raise.
bool make_room_for_end(QV_PAGED_PTRS_T *array) {
    if (array->end == INT32_MAX) {
        QV_RAISE(ALLOC_FAILURE);
        return false;
    }
    if (array->end < static_cast<int64_t>(array->pages) * array->items_per_page) return true;
    if (array->pages == array->table_entries) {
        int64_t entries = int64_t{array->table_entries} +
                          (array->table_entries == 0 ? array->first_table : array->table_step);
        entries = std::min<int64_t>(entries, INT32_MAX);
        void *table = QV_REALLOC(array->table, sizeof(void *) * static_cast<std::size_t>(entries));
        if (table == nullptr) return false;
        array->table = static_cast<void **>(table);
        array->table_entries = static_cast<int32_t>(entries);
    }
    void *page = QV_CALLOC(page_header_bytes + static_cast<std::size_t>(array->page_bytes));
    if (page == nullptr) return false;
    array->table[array->pages++] = page;
    return true;
}

// Stores a pointer in a free slot below end, or at end (whose page exists).
int32_t store(QV_PAGED_PTRS_T *array, int32_t position, void *pointer) {
    Place place = place_of(array, position);
    Page *page = page_of(array, place.page);
    slots_of(page)[place.slot] = pointer;
    ++page->used;
    ++array->count;
    if (position == array->end) ++array->end;
    if (position == array->first_free) ++array->first_free;
    return position;
}

// The lowest free slot at or after first_free, or end when every slot below end is used.
int32_t lowest_free(const QV_PAGED_PTRS_T *array) {
    int32_t position = array->first_free;
    while (position < array->end) {
        Place place = place_of(array, position);
        Page *page = page_of(array, place.page);
        int32_t slots = slots_below_end(array, place.page);
        if (page->used < array->items_per_page)
            for (int32_t slot = place.slot; slot < slots; ++slot)
                if (slots_of(page)[slot] == nullptr) return position - place.slot + slot;
        position += slots - place.slot;
    }
    return array->end;
}

// A slot holding a pointer, and its position; position -1 and slot null when none.
struct Found {
    int32_t position;
    void **slot;
};
constexpr Found nothing{-1, nullptr};

// The first slot at or after `from` holding a pointer; empty pages are skipped whole.
Found next_used(const QV_PAGED_PTRS_T *array, int32_t from) {
    while (from < array->end) {
        Place place = place_of(array, from);
        Page *page = page_of(array, place.page);
        int32_t slots = slots_below_end(array, place.page);
        if (page->used > 0)
            for (int32_t slot = place.slot; slot < slots; ++slot)
                if (slots_of(page)[slot] != nullptr)
                    return {from - place.slot + slot, &slots_of(page)[slot]};
        from += slots - place.slot;
    }
    return nothing;
}

// The last slot at or before `from` holding a pointer.
Found previous_used(const QV_PAGED_PTRS_T *array, int32_t from) {
    from = std::min(from, array->end - 1);
    while (from >= 0) {
        Place place = place_of(array, from);
        Page *page = page_of(array, place.page);
        if (page->used > 0)
            for (int32_t slot = place.slot; slot >= 0; --slot)
                if (slots_of(page)[slot] != nullptr)
                    return {from - place.slot + slot, &slots_of(page)[slot]};
        from -= place.slot + 1;
    }
    return nothing;
}

int32_t find(const QV_PAGED_PTRS_T *array, const void *pointer) {
    if (array == nullptr || pointer == nullptr) return -1;
    for (Found at = next_used(array, 0); at.slot; at = next_used(array, at.position + 1))
        if (*at.slot == pointer) return at.position;
    return -1;
}

// The slot a walk step lands on, the next (or previous) one holding a pointer, with
// *position set to it (-1 at the end).
void **step(const QV_PAGED_PTRS_T *array, int32_t *position, bool forward) {
    if (position == nullptr) return nullptr;
    if (array == nullptr) {
        *position = -1;
        return nullptr;
    }
    int32_t from = *position;
    Found at = forward ? next_used(array, from < 0 ? 0 : std::min(from, array->end - 1) + 1)
                       : previous_used(array, from < 0 ? array->end - 1 : from - 1);
    *position = at.position;
    return at.slot;
}

} // namespace

extern "C" {

QV_API QV_PAGED_PTRS_T *NewPagedPtrs_L(int32_t first_table, int32_t table_step,
                                       int32_t items_per_page, uint16_t flags) {
    auto *array = static_cast<QV_PAGED_PTRS_T *>(QV_CALLOC(sizeof(QV_PAGED_PTRS_T)));
    if (array == nullptr) return nullptr;
    array->items_per_page = items_per_page <= 0
                                ? default_items_per_page
                                : std::min(items_per_page, int32_t{QV_PAGED_MAX_ITEMS_PER_PAGE});
    array->page_bytes = static_cast<int32_t>(sizeof(void *)) * array->items_per_page;
    array->first_table = first_table <= 0 ? default_table_size : first_table;
    array->table_step = table_step <= 0 ? default_table_size : table_step;
    array->flags = flags;
    return array;
}

QV_API int64_t PagedPtrsMem_L(const QV_PAGED_PTRS_T *array) {
    if (array == nullptr) return 0;
    return (int64_t{array->page_bytes} + static_cast<int64_t>(page_header_bytes)) * array->pages +
           static_cast<int64_t>(sizeof(void *)) * array->table_entries +
           static_cast<int64_t>(sizeof(QV_PAGED_PTRS_T));
}

QV_API int32_t AddPtrToPagedPtrs_L(QV_PAGED_PTRS_T *array, void *pointer) {
    if (array == nullptr || pointer == nullptr) return -1;
    array->first_free = lowest_free(array);
    if (array->first_free < array->end) return store(array, array->first_free, pointer);
    return AppendPtrToPagedPtrs_L(array, pointer);
}

QV_API int32_t AppendPtrToPagedPtrs_L(QV_PAGED_PTRS_T *array, void *pointer) {
    if (array == nullptr || pointer == nullptr) return -1;
    if (!make_room_for_end(array)) return -1;
    return store(array, array->end, pointer);
}

QV_API void *DeleteFromPagedPtrs_L(QV_PAGED_PTRS_T *array, int32_t position) {
    if (array == nullptr || position < 0 || position >= array->end) return nullptr;
    Place place = place_of(array, position);
    Page *page = page_of(array, place.page);
    void *pointer = slots_of(page)[place.slot];
    if (pointer == nullptr) return nullptr;
    slots_of(page)[place.slot] = nullptr;
    --page->used;
    --array->count;
    array->first_free = std::min(array->first_free, position);
    if (position == array->end - 1) array->end = previous_used(array, position).position + 1;
    return pointer;
}

QV_API int32_t DeleteFromPagedPtrsByPtr_L(QV_PAGED_PTRS_T *array, const void *pointer) {
    int32_t position = find(array, pointer);
    if (position >= 0) DeleteFromPagedPtrs_L(array, position);
    return position;
}

QV_API int32_t FindPagedPtrByItem_L(const QV_PAGED_PTRS_T *array, const void *pointer) {
    return find(array, pointer);
}

QV_API void *PagedPtrAt_L(const QV_PAGED_PTRS_T *array, int32_t position) {
    if (array == nullptr || position < 0 || position >= array->end) return nullptr;
    return *slot_at(array, position);
}

QV_API void *NextPagedPtr_L(const QV_PAGED_PTRS_T *array, int32_t *position) {
    void **slot = step(array, position, true);
    return slot ? *slot : nullptr;
}

QV_API void **NextPagedPtrAddress_L(const QV_PAGED_PTRS_T *array, int32_t *position) {
    return step(array, position, true);
}

QV_API void *PreviousPagedPtr_L(const QV_PAGED_PTRS_T *array, int32_t *position) {
    void **slot = step(array, position, false);
    return slot ? *slot : nullptr;
}

QV_API void ClearPagedPtrs_L(QV_PAGED_PTRS_T *array) {
    if (array == nullptr) return;
    for (int32_t page = 0; page * int64_t{array->items_per_page} < array->end; ++page) {
        Page *held = page_of(array, page);
        int32_t slots = slots_below_end(array, page);
        if (array->flags & QV_PAGED_FREE_POINTERS)
            for (int32_t slot = 0; slot < slots; ++slot) std::free(slots_of(held)[slot]);
        std::memset(slots_of(held), 0, sizeof(void *) * static_cast<std::size_t>(slots));
        held->used = 0;
    }
    array->count = array->end = array->first_free = 0;
}

QV_API void FreePagedPtrs_L(QV_PAGED_PTRS_T **array) {
    if (array == nullptr || *array == nullptr) return;
    ClearPagedPtrs_L(*array);
    for (int32_t page = 0; page < (*array)->pages; ++page) std::free((*array)->table[page]);
    std::free((*array)->table);
    std::free(*array);
    *array = nullptr;
}

} // extern "C"
