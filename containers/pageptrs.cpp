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

// The slot at a position below pages x items_per_page.
void **slot_at(const QV_PAGED_PTRS_T *array, int32_t position) {
    return slots_of(page_of(array, position / array->items_per_page)) +
           position % array->items_per_page;
}

// One past the last position of `page` that is below end.
int32_t page_end(const QV_PAGED_PTRS_T *array, int32_t page) {
    return static_cast<int32_t>(
        std::min<int64_t>(array->end, (int64_t{page} + 1) * array->items_per_page));
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
    *slot_at(array, position) = pointer;
    ++page_of(array, position / array->items_per_page)->used;
    ++array->count;
    if (position == array->end) ++array->end;
    if (position == array->first_free) ++array->first_free;
    return position;
}

// The lowest free slot at or after first_free, or end when every slot below end is used.
int32_t lowest_free(const QV_PAGED_PTRS_T *array) {
    const int32_t per_page = array->items_per_page;
    int32_t position = array->first_free;
    while (position < array->end) {
        int32_t page = position / per_page, last = page_end(array, page);
        Page *held = page_of(array, page);
        if (held->used < per_page)
            for (; position < last; ++position)
                if (slots_of(held)[position % per_page] == nullptr) return position;
        position = last;
    }
    return array->end;
}

// The first position at or after `from` holding a pointer, or -1; whole empty pages skipped.
int32_t next_used(const QV_PAGED_PTRS_T *array, int32_t from) {
    const int32_t per_page = array->items_per_page;
    while (from < array->end) {
        int32_t page = from / per_page, last = page_end(array, page);
        Page *held = page_of(array, page);
        if (held->used > 0)
            for (; from < last; ++from)
                if (slots_of(held)[from % per_page] != nullptr) return from;
        from = last;
    }
    return -1;
}

// The last position at or before `from` holding a pointer, or -1.
int32_t previous_used(const QV_PAGED_PTRS_T *array, int32_t from) {
    const int32_t per_page = array->items_per_page;
    from = std::min(from, array->end - 1);
    while (from >= 0) {
        int32_t page = from / per_page;
        Page *held = page_of(array, page);
        int32_t page_start = page * per_page;
        if (held->used > 0)
            for (; from >= page_start; --from)
                if (slots_of(held)[from % per_page] != nullptr) return from;
        from = page_start - 1;
    }
    return -1;
}

int32_t find(const QV_PAGED_PTRS_T *array, const void *pointer) {
    if (array == nullptr || pointer == nullptr) return -1;
    for (int32_t at = next_used(array, 0); at >= 0; at = next_used(array, at + 1))
        if (*slot_at(array, at) == pointer) return at;
    return -1;
}

// The position a walk step lands on: the next (or previous) slot holding a pointer.
int32_t step(const QV_PAGED_PTRS_T *array, int32_t *position, bool forward) {
    if (position == nullptr) return -1;
    if (array == nullptr) return *position = -1;
    int32_t from = *position;
    if (forward)
        *position = next_used(array, from < 0 ? 0 : std::min(from, array->end - 1) + 1);
    else
        *position = previous_used(array, from < 0 ? array->end - 1 : from - 1);
    return *position;
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
    void **slot = slot_at(array, position);
    void *pointer = *slot;
    if (pointer == nullptr) return nullptr;
    *slot = nullptr;
    --page_of(array, position / array->items_per_page)->used;
    --array->count;
    array->first_free = std::min(array->first_free, position);
    if (position == array->end - 1) array->end = previous_used(array, position) + 1;
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
    int32_t at = step(array, position, true);
    return at < 0 ? nullptr : *slot_at(array, at);
}

QV_API void **NextPagedPtrAddress_L(const QV_PAGED_PTRS_T *array, int32_t *position) {
    int32_t at = step(array, position, true);
    return at < 0 ? nullptr : slot_at(array, at);
}

QV_API void *PreviousPagedPtr_L(const QV_PAGED_PTRS_T *array, int32_t *position) {
    int32_t at = step(array, position, false);
    return at < 0 ? nullptr : *slot_at(array, at);
}

QV_API void ClearPagedPtrs_L(QV_PAGED_PTRS_T *array) {
    if (array == nullptr) return;
    const int32_t per_page = array->items_per_page;
    for (int32_t page = 0; page * int64_t{per_page} < array->end; ++page) {
        Page *held = page_of(array, page);
        int32_t slots = std::min(per_page, array->end - page * per_page);
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
