// handle.cpp - handle tables and caller arrays of handles (module "handle").
//
// The table's entry array is indexed by the handle itself; entry 0 stays unused so that 0
// is never a handle. Entries are zero-filled when the array grows and again when their
// handle is freed, so a free entry reads as "nothing". Only entries 1 .. highest have
// ever been used, which bounds the walk of TerminateHandles_L.
#include "qv/handle.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "core/heap.hpp"
#include "core/raise.hpp"

static_assert(std::is_standard_layout_v<QV_HANDLE_ENTRY_T> &&
              std::is_trivially_copyable_v<QV_HANDLE_ENTRY_T>);
static_assert(std::is_standard_layout_v<QV_HANDLE_TABLE_T> &&
              std::is_trivially_copyable_v<QV_HANDLE_TABLE_T>);
static_assert(std::is_standard_layout_v<QV_HANDLE_ARRAY_T> &&
              std::is_trivially_copyable_v<QV_HANDLE_ARRAY_T>);
static_assert(sizeof(void *) != 8 || sizeof(QV_HANDLE_ENTRY_T) == 40,
              "entry: object, second, user data, size, type, third, in use, owns");
static_assert(offsetof(QV_HANDLE_TABLE_T, entries) == 16 &&
              offsetof(QV_HANDLE_TABLE_T, reuse) == 16 + sizeof(void *));

namespace {

constexpr int32_t first_search = 1;

// Grows the entry array to `capacity` entries, the new ones zero-filled. False after a raise.
bool grow_to(QV_HANDLE_TABLE_T *table, int64_t capacity) {
    if (capacity > INT32_MAX) {
        QV_RAISE(ALLOC_FAILURE);
        return false;
    }
    void *grown = QV_REALLOC(table->entries, sizeof(QV_HANDLE_ENTRY_T) * capacity);
    if (grown == nullptr) return false;
    table->entries = static_cast<QV_HANDLE_ENTRY_T *>(grown);
    std::memset(table->entries + table->capacity, 0,
                sizeof(QV_HANDLE_ENTRY_T) * static_cast<std::size_t>(capacity - table->capacity));
    table->capacity = static_cast<int32_t>(capacity);
    return true;
}

// The first free entry at or after `from`, or capacity when none is.
int32_t free_entry_from(const QV_HANDLE_TABLE_T *table, int32_t from) {
    while (from < table->capacity && table->entries[from].in_use) ++from;
    return from;
}

// The handle NewHandle_L issues: the search from next_search, wrapping round to 1 once when
// reuse is on and a free entry exists, else the first entry of a grown table. 0 after a
// raise.
int32_t next_free_handle(QV_HANDLE_TABLE_T *table) {
    int32_t handle = free_entry_from(table, std::max(table->next_search, first_search));
    if (handle < table->capacity) return handle;
    if (table->reuse && table->in_use + 1 < table->capacity) {
        handle = free_entry_from(table, first_search);
        if (handle < table->capacity) return handle;
    }
    int32_t first_new = table->capacity;
    return grow_to(table, int64_t{first_new} + QV_HANDLE_GROWTH) ? first_new : 0;
}

void release_entry(QV_HANDLE_ENTRY_T *entry) {
    if (entry->owns_object && entry->object != nullptr) std::free(entry->object);
    if (entry->user_data != nullptr) std::free(entry->user_data);
    *entry = QV_HANDLE_ENTRY_T{};
}

bool valid_array_index(int32_t index, int32_t limit) {
    if (index >= 0 && index < limit) return true;
    QV_RAISE(ARRAY_FAILURE_L);
    return false;
}

} // namespace

extern "C" {

QV_API QV_HANDLE_TABLE_T *InitHandles_L(void) {
    // Owned here until whole: growing the entries may raise.
    qv::HeapArray<QV_HANDLE_TABLE_T> table(
        static_cast<QV_HANDLE_TABLE_T *>(QV_CALLOC(sizeof(QV_HANDLE_TABLE_T))));
    if (table == nullptr || !grow_to(table.get(), QV_HANDLE_GROWTH)) return nullptr;
    table[0].next_search = first_search;
    table[0].reuse = 1;
    return table.release();
}

QV_API void TerminateHandles_L(QV_HANDLE_TABLE_T **table) {
    if (table == nullptr || *table == nullptr) return;
    QV_HANDLE_TABLE_T *held = *table;
    for (int32_t handle = first_search; handle <= held->highest; ++handle)
        release_entry(&held->entries[handle]);
    std::free(held->entries);
    std::free(held);
    *table = nullptr;
}

QV_API int32_t NewHandle_L(QV_HANDLE_TABLE_T *table, int32_t type, void *object, int32_t owns,
                           int32_t third, int32_t second) {
    if (table == nullptr) return 0;
    int32_t handle = next_free_handle(table);
    if (handle == 0) return 0;
    QV_HANDLE_ENTRY_T &entry = table->entries[handle];
    entry = QV_HANDLE_ENTRY_T{};
    entry.object = object;
    entry.second = second;
    entry.type = type;
    entry.third = third;
    entry.in_use = 1;
    entry.owns_object = owns != 0;
    table->next_search = handle + 1;
    table->highest = std::max(table->highest, handle);
    ++table->in_use;
    return handle;
}

QV_API QV_HANDLE_ENTRY_T *CheckHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle) {
    if (table == nullptr || handle < first_search || handle >= table->capacity) return nullptr;
    QV_HANDLE_ENTRY_T *entry = &table->entries[handle];
    return entry->in_use ? entry : nullptr;
}

QV_API void *GetHandleObject_L(QV_HANDLE_TABLE_T *table, int32_t handle, int32_t type) {
    QV_HANDLE_ENTRY_T *entry = CheckHandle_L(table, handle);
    if (entry != nullptr && entry->type == type) return entry->object;
    QV_RAISE(WRONG_HANDLE_TYPE);
    return nullptr;
}

QV_API void FreeHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle) {
    QV_HANDLE_ENTRY_T *entry = CheckHandle_L(table, handle);
    if (entry == nullptr) return;
    release_entry(entry);
    --table->in_use;
}

QV_API int32_t UpdateHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle, int32_t type, void *object,
                              int32_t owns, int32_t third, int32_t second) {
    QV_HANDLE_ENTRY_T *entry = CheckHandle_L(table, handle);
    if (entry == nullptr) return -1;
    if (entry->owns_object && entry->object != object) std::free(entry->object);
    entry->type = type;
    entry->object = object;
    entry->owns_object = owns != 0;
    entry->third = third;
    entry->second = second;
    return 0;
}

QV_API int32_t DuplicateHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle, int32_t transfer) {
    const QV_HANDLE_ENTRY_T *entry = CheckHandle_L(table, handle);
    if (entry == nullptr) return 0;
    const QV_HANDLE_ENTRY_T source = *entry; // NewHandle_L may move the entries
    qv::HeapArray<char> data;
    if (source.user_data != nullptr) {
        data.reset(static_cast<char *>(QV_MALLOC(source.user_data_size)));
        if (data == nullptr) return 0;
        std::memcpy(data.get(), source.user_data, source.user_data_size);
    }
    bool moves = transfer != 0 && source.owns_object;
    int32_t copy =
        NewHandle_L(table, source.type, source.object, moves, source.third, source.second);
    if (copy == 0) return 0;
    table->entries[copy].user_data = data.release();
    table->entries[copy].user_data_size = source.user_data_size;
    if (moves) table->entries[handle].owns_object = 0;
    return copy;
}

QV_API int32_t SetHandleUserData_L(QV_HANDLE_TABLE_T *table, int32_t handle, const void *data,
                                   uint32_t size) {
    QV_HANDLE_ENTRY_T *entry = CheckHandle_L(table, handle);
    if (entry == nullptr) return -1;
    void *copy = nullptr;
    if (data != nullptr && size > 0) {
        // A fresh block: data may be the entry's own user data.
        copy = QV_MALLOC(size);
        if (copy == nullptr) return -1;
        std::memcpy(copy, data, size);
    } else {
        size = 0;
    }
    std::free(entry->user_data);
    entry->user_data = copy;
    entry->user_data_size = size;
    return 0;
}

QV_API int32_t GetHandleUserData_L(const QV_HANDLE_ENTRY_T *entry, void **data, uint32_t *size) {
    if (data != nullptr) *data = entry ? entry->user_data : nullptr;
    if (size != nullptr) *size = entry ? entry->user_data_size : 0;
    return entry ? 0 : -1;
}

QV_API int32_t GetHandleComponents_L(const QV_HANDLE_ENTRY_T *entry, int32_t *type, void **object,
                                     int32_t *third, int32_t *second) {
    if (type != nullptr) *type = entry ? entry->type : 0;
    if (object != nullptr) *object = entry ? entry->object : nullptr;
    if (third != nullptr) *third = entry ? entry->third : 0;
    if (second != nullptr) *second = entry ? entry->second : 0;
    return entry ? 0 : -1;
}

QV_API uint8_t ReuseHandles_L(QV_HANDLE_TABLE_T *table, uint8_t on) {
    if (table == nullptr) return 0;
    uint8_t was = table->reuse;
    table->reuse = on ? 1 : 0;
    table->next_search = on ? first_search : table->highest + 1;
    return was;
}

QV_API int32_t HandlesStatus_L(const QV_HANDLE_TABLE_T *table, int32_t *in_use) {
    if (in_use != nullptr) *in_use = table ? table->in_use : 0;
    return table ? table->capacity : 0;
}

QV_API int32_t SizeHandleArray_L(QV_HANDLE_TABLE_T *table, int32_t entries) {
    if (table == nullptr) return -1;
    if (entries > table->capacity && !grow_to(table, entries)) return -1;
    return table->capacity;
}

// ---- Caller arrays of handles -----------------------------------------------------------

QV_API int32_t ExpandHandleArray_L(QV_HANDLE_ARRAY_T *array, int32_t capacity) {
    if (array == nullptr) return -1;
    if (capacity <= array->capacity) return array->capacity;
    void *grown = QV_REALLOC(array->handles, sizeof(int32_t) * static_cast<std::size_t>(capacity));
    if (grown == nullptr) return -1;
    array->handles = static_cast<int32_t *>(grown);
    array->capacity = capacity;
    return capacity;
}

QV_API int32_t InsertHandleInArray_L(QV_HANDLE_ARRAY_T *array, int32_t index, int32_t handle) {
    if (array == nullptr) return -1;
    if (array->count == INT32_MAX || !valid_array_index(index, array->count + 1)) return -1;
    if (array->count == array->capacity) {
        int64_t doubled = std::max<int64_t>(8, int64_t{array->capacity} * 2);
        if (ExpandHandleArray_L(array,
                                static_cast<int32_t>(std::min<int64_t>(doubled, INT32_MAX))) < 0)
            return -1;
    }
    int32_t *at = array->handles + index;
    std::memmove(at + 1, at, sizeof(int32_t) * static_cast<std::size_t>(array->count - index));
    *at = handle;
    ++array->count;
    return index;
}

QV_API int32_t AddHandleToArray_L(QV_HANDLE_ARRAY_T *array, int32_t handle) {
    return InsertHandleInArray_L(array, array ? array->count : 0, handle);
}

QV_API int32_t FindHandleInArray_L(const QV_HANDLE_ARRAY_T *array, int32_t handle) {
    if (array == nullptr) return -1;
    const int32_t *begin = array->handles, *end = begin + array->count;
    const int32_t *found = std::find(begin, end, handle);
    return found == end ? -1 : static_cast<int32_t>(found - begin);
}

QV_API int32_t DeleteHandleFromArray_L(QV_HANDLE_ARRAY_T *array, int32_t handle) {
    int32_t index = FindHandleInArray_L(array, handle);
    if (index < 0) return -1;
    int32_t *at = array->handles + index;
    std::memmove(at, at + 1, sizeof(int32_t) * static_cast<std::size_t>(array->count - index - 1));
    --array->count;
    return index;
}

QV_API int32_t HandleArrayItem_L(const QV_HANDLE_ARRAY_T *array, int32_t index) {
    if (!valid_array_index(index, array ? array->count : 0)) return 0;
    return array->handles[index];
}

QV_API void FreeHandleArray_L(QV_HANDLE_ARRAY_T *array, QV_HANDLE_TABLE_T *table) {
    if (array == nullptr) return;
    for (int32_t index = 0; table != nullptr && index < array->count; ++index)
        FreeHandle_L(table, array->handles[index]);
    std::free(array->handles);
    *array = QV_HANDLE_ARRAY_T{};
}

} // extern "C"
