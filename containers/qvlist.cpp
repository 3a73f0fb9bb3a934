// qvlist.cpp - doubly linked lists with inline data (module "qvlist").
//
// A list is circular through its head; heads and items are QV_LIST_T records told apart by
// their size field (0 in a head). An item is one malloc'd block: the four link fields, then
// `size` bytes of data at QV_LIST_DATA_OFFSET. Every change to the links is a complete
// unlink or insert done between two calls of the caller's comparison, so a comparison that
// raises always leaves a whole, circular list holding every item.
//
// The sort is a quicksort on the links themselves: a segment of the list is named by the
// positions just before and just after it and its item count; each pass picks the median
// of the first, middle and last items as pivot, moves it to the front of the segment, then
// moves every item below it to just before it and every item equal to it to just after the
// pivot's run of equals. Items above it stay where they are. The smaller side is sorted
// by recursion and the larger by looping, so the stack stays O(log n) deep; short segments
// are finished by insertion.
#include "qv/qvlist.h"

#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "core/raise.hpp"

static_assert(std::is_standard_layout_v<QV_LIST_T> && std::is_trivially_copyable_v<QV_LIST_T>);
static_assert(QV_LIST_DATA_OFFSET == 2 * sizeof(void *) + 8, "data follows the four fields");
static_assert(QV_LIST_DATA_OFFSET % alignof(void *) == 0, "item data is pointer-aligned");

namespace {

bool is_head(const QV_LIST_T *node) {
    return node != nullptr && node->size == 0;
}
bool is_item(const QV_LIST_T *node) {
    return node != nullptr && node->size != 0;
}

// Links a detached `node` in just before `position`.
void link_before(QV_LIST_T *node, QV_LIST_T *position) {
    node->next = position;
    node->previous = position->previous;
    position->previous->next = node;
    position->previous = node;
}

void unlink(QV_LIST_T *node) {
    node->previous->next = node->next;
    node->next->previous = node->previous;
}

// Moves `node` to just before `position` (a no-op when it is already there).
void move_before(QV_LIST_T *node, QV_LIST_T *position) {
    if (node == position || node->next == position) return;
    unlink(node);
    link_before(node, position);
}

// A new detached item holding a copy of `size` bytes (zeros when data is null).
QV_LIST_T *new_item(const void *data, uint32_t size) {
    if (size == 0) {
        QV_RAISE(ZERO_ALLOC_FAILURE);
        return nullptr;
    }
    auto *item = static_cast<QV_LIST_T *>(QV_MALLOC(QV_LIST_DATA_OFFSET + size));
    if (item == nullptr) return nullptr;
    item->size = size;
    item->reserved = 0;
    if (data != nullptr)
        std::memcpy(QV_LIST_DATA(item), data, size);
    else
        std::memset(QV_LIST_DATA(item), 0, size);
    return item;
}

// Raises LIST_FAILURE_L unless `node` is of the kind wanted; returns whether it is.
bool require_head(const QV_LIST_T *node) {
    if (is_head(node)) return true;
    QV_RAISE(LIST_FAILURE_L);
    return false;
}
bool require_item(const QV_LIST_T *node) {
    if (is_item(node)) return true;
    QV_RAISE(LIST_FAILURE_L);
    return false;
}
bool require_comparison(QV_LIST_COMPARE_L compare) {
    if (compare != nullptr) return true;
    QV_RAISE(LIST_FAILURE_L);
    return false;
}

void free_items(QV_LIST_T *head) {
    for (QV_LIST_T *item = head->next; item != head;) {
        QV_LIST_T *next = item->next;
        std::free(item);
        item = next;
    }
    head->next = head->previous = head;
    head->count = 0;
}

// `node` when it is an item, else null, with its data in *data.
QV_LIST_T *item_or_end(QV_LIST_T *node, void **data) {
    if (!is_item(node)) node = nullptr;
    if (data != nullptr) *data = node ? QV_LIST_DATA(node) : nullptr;
    return node;
}

// ---- Sorting ----------------------------------------------------------------------------

struct Comparison {
    QV_LIST_COMPARE_L compare;
    void *context;
    int32_t operator()(QV_LIST_T *left, QV_LIST_T *right) const {
        return compare(QV_LIST_DATA(left), QV_LIST_DATA(right), context);
    }
};

constexpr int32_t insertion_limit = 8;

// The run of `count` items after `before` sorted by insertion: each item is moved back
// past the items above it, never past `before`.
void insertion_sort(QV_LIST_T *before, int32_t count, const Comparison &compare) {
    QV_LIST_T *item = before->next->next;
    for (int32_t sorted = 1; sorted < count; ++sorted) {
        QV_LIST_T *next = item->next;
        QV_LIST_T *place = item;
        while (place->previous != before && compare(item, place->previous) < 0)
            place = place->previous;
        move_before(item, place);
        item = next;
    }
}

// The median of the first, middle and last items of a run of `count` items.
QV_LIST_T *median_of_three(QV_LIST_T *first, QV_LIST_T *last, int32_t count,
                           const Comparison &compare) {
    QV_LIST_T *middle = first;
    for (int32_t step = count / 2; step > 0; --step) middle = middle->next;
    bool first_below_middle = compare(first, middle) < 0;
    if (first_below_middle == (compare(middle, last) < 0)) return middle;
    if (first_below_middle == (compare(first, last) < 0)) return last;
    return first;
}

// Sizes of the two sides a partition leaves, and where the upper side begins.
struct Partition {
    QV_LIST_T *pivot;      // the lower side is the run before it
    QV_LIST_T *last_equal; // the upper side is the run after it
    int32_t below;
    int32_t above;
};

// Splits the run of `count` items after `before` around a pivot: the items below it end
// up just before the pivot, the items equal to it just after, the items above it after
// those, each group in its original order.
Partition partition(QV_LIST_T *before, QV_LIST_T *after, int32_t count, const Comparison &compare) {
    QV_LIST_T *pivot = median_of_three(before->next, after->previous, count, compare);
    move_before(pivot, before->next);
    Partition result{pivot, pivot, 0, 0};
    QV_LIST_T *item = pivot->next;
    for (int32_t seen = 1; seen < count; ++seen) {
        QV_LIST_T *next = item->next;
        int32_t order = compare(item, pivot);
        if (order < 0) {
            move_before(item, pivot);
            ++result.below;
        } else if (order == 0) {
            move_before(item, result.last_equal->next);
            result.last_equal = item;
        } else {
            ++result.above;
        }
        item = next;
    }
    return result;
}

void quicksort(QV_LIST_T *before, QV_LIST_T *after, int32_t count, const Comparison &compare) {
    while (count > insertion_limit) {
        Partition sides = partition(before, after, count, compare);
        if (sides.below < sides.above) {
            quicksort(before, sides.pivot, sides.below, compare);
            before = sides.last_equal;
            count = sides.above;
        } else {
            quicksort(sides.last_equal, after, sides.above, compare);
            after = sides.pivot;
            count = sides.below;
        }
    }
    if (count > 1) insertion_sort(before, count, compare);
}

// The number of items from `first` to `last` inclusive; -1 when the walk meets a head.
int32_t run_length(QV_LIST_T *first, QV_LIST_T *last) {
    int32_t count = 1;
    for (QV_LIST_T *item = first; item != last; item = item->next, ++count)
        if (item->next->size == 0) return -1;
    return count;
}

} // namespace

extern "C" {

QV_API QV_LIST_T *Allocate_List_L(void) {
    auto *head = static_cast<QV_LIST_T *>(QV_MALLOC(sizeof(QV_LIST_T)));
    if (head == nullptr) return nullptr;
    head->next = head->previous = head;
    head->size = head->reserved = 0;
    head->count = 0;
    return head;
}

QV_API void Deallocate_List_L(QV_LIST_T **head) {
    if (head == nullptr || *head == nullptr) return;
    if (!require_head(*head)) return;
    free_items(*head);
    std::free(*head);
    *head = nullptr;
}

QV_API void Free_List_L(QV_LIST_T *head) {
    if (head == nullptr || !require_head(head)) return;
    free_items(head);
}

QV_API void *Append_List_Item_L(QV_LIST_T *head, const void *data, uint32_t size) {
    return Insert_List_Item_L(head, head, data, size);
}

QV_API void *Insert_List_Item_L(QV_LIST_T *head, QV_LIST_T *position, const void *data,
                                uint32_t size) {
    if (!require_head(head)) return nullptr;
    QV_LIST_T *item = new_item(data, size);
    if (item == nullptr) return nullptr;
    link_before(item, position != nullptr ? position : head);
    ++head->count;
    return QV_LIST_DATA(item);
}

QV_API void *Insert_Sorted_List_Item_L(QV_LIST_T *head, const void *data, uint32_t size,
                                       QV_LIST_COMPARE_L compare, int32_t allow_duplicates,
                                       void *context) {
    if (!require_head(head) || !require_comparison(compare)) return nullptr;
    if (data == nullptr) { // the comparison reads it
        QV_RAISE(LIST_FAILURE_L);
        return nullptr;
    }
    QV_LIST_T *after = head->previous; // the new item goes after this one
    while (after != head) {
        int32_t order = compare(data, QV_LIST_DATA(after), context);
        if (order == 0 && !allow_duplicates) return QV_LIST_DATA(after);
        if (order >= 0) break;
        after = after->previous;
    }
    return Insert_List_Item_L(head, after->next, data, size);
}

QV_API QV_LIST_T *Delete_List_Item_L(QV_LIST_T *head, QV_LIST_T *item, int32_t mode) {
    if (!require_head(head) || !require_item(item)) return nullptr;
    QV_LIST_T *result = mode == QV_LIST_RETURN_NEXT       ? item->next
                        : mode == QV_LIST_RETURN_PREVIOUS ? item->previous
                                                          : nullptr;
    unlink(item);
    std::free(item);
    --head->count;
    return result;
}

QV_API void *Update_List_Item_L(QV_LIST_T *item, const void *data, uint32_t size) {
    if (!require_item(item)) return nullptr;
    if (size == item->size) {
        if (data != nullptr)
            std::memmove(QV_LIST_DATA(item), data, size);
        else
            std::memset(QV_LIST_DATA(item), 0, size);
        return QV_LIST_DATA(item);
    }
    // The copy is made before the old item goes, since data may point into it.
    QV_LIST_T *replacement = new_item(data, size);
    if (replacement == nullptr) return nullptr;
    link_before(replacement, item);
    unlink(item);
    std::free(item);
    return QV_LIST_DATA(replacement);
}

QV_API void Change_List_Position_L(QV_LIST_T *item, QV_LIST_T *position) {
    if (!require_item(item) || position == nullptr) return;
    move_before(item, position);
}

QV_API void Get_List_Item_L(QV_LIST_T *item, void **data, uint32_t *size) {
    bool valid = require_item(item);
    if (data != nullptr) *data = valid ? QV_LIST_DATA(item) : nullptr;
    if (size != nullptr) *size = valid ? item->size : 0;
}

QV_API QV_LIST_T *NextListItem_L(QV_LIST_T *position, void **data) {
    return item_or_end(position ? position->next : nullptr, data);
}

QV_API QV_LIST_T *PreviousListItem_L(QV_LIST_T *position, void **data) {
    return item_or_end(position ? position->previous : nullptr, data);
}

QV_API QV_LIST_T *Find_List_Item_L(QV_LIST_T *position, const void *key, QV_LIST_COMPARE_L compare,
                                   void *context) {
    if (position == nullptr || !require_comparison(compare)) return nullptr;
    for (QV_LIST_T *item = position->next; item->size != 0; item = item->next)
        if (compare(key, QV_LIST_DATA(item), context) == 0) return item;
    return nullptr;
}

QV_API QV_LIST_T *FindListItemByRef_L(QV_LIST_T *head, const void *data) {
    if (!require_head(head)) return nullptr;
    for (QV_LIST_T *item = head->next; item != head; item = item->next)
        if (QV_LIST_DATA(item) == data) return item;
    return nullptr;
}

QV_API int32_t Copy_List_To_Array_L(QV_LIST_T *head, void **block, uint32_t item_size) {
    if (block != nullptr) *block = nullptr;
    if (!require_head(head) || block == nullptr || head->count == 0) return 0;
    auto *bytes = static_cast<char *>(QV_MALLOC(std::size_t{item_size} * head->count));
    if (bytes == nullptr) return 0;
    char *slot = bytes;
    for (QV_LIST_T *item = head->next; item != head; item = item->next, slot += item_size) {
        uint32_t copied = item->size < item_size ? item->size : item_size;
        std::memcpy(slot, QV_LIST_DATA(item), copied);
        std::memset(slot + copied, 0, item_size - copied);
    }
    *block = bytes;
    return head->count;
}

QV_API int32_t Copy_List_Items_To_Array_L(QV_LIST_T *head, void ***block) {
    if (block != nullptr) *block = nullptr;
    if (!require_head(head) || block == nullptr || head->count == 0) return 0;
    auto **slots = static_cast<void **>(QV_MALLOC(sizeof(void *) * head->count));
    if (slots == nullptr) return 0;
    void **slot = slots;
    for (QV_LIST_T *item = head->next; item != head; item = item->next)
        *slot++ = QV_LIST_DATA(item);
    *block = slots;
    return head->count;
}

QV_API void Qsort_List_L(QV_LIST_T *head, QV_LIST_COMPARE_L compare, void *context) {
    if (!require_head(head) || !require_comparison(compare)) return;
    quicksort(head, head, head->count, Comparison{compare, context});
}

QV_API void Qsort_Part_List_L(QV_LIST_T *first, QV_LIST_T *last, QV_LIST_COMPARE_L compare,
                              void *context) {
    if (!require_item(first) || !require_item(last) || !require_comparison(compare)) return;
    int32_t count = run_length(first, last);
    if (count < 0) {
        QV_RAISE(LIST_FAILURE_L);
        return;
    }
    quicksort(first->previous, last->next, count, Comparison{compare, context});
}

QV_API QV_LIST_T *Bsearch_List_L(QV_LIST_T *head, const void *key, QV_LIST_COMPARE_L compare,
                                 void *context, QV_LIST_T **position) {
    if (position != nullptr) *position = nullptr;
    if (!require_head(head) || !require_comparison(compare)) return nullptr;
    // Invariant: every item before `low` compares below the key; the `count` items from
    // `low` on are still undecided.
    QV_LIST_T *low = head->next;
    int32_t count = head->count;
    while (count > 0) {
        int32_t half = count / 2;
        QV_LIST_T *middle = low;
        for (int32_t step = half; step > 0; --step) middle = middle->next;
        if (compare(key, QV_LIST_DATA(middle), context) > 0) {
            low = middle->next;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    if (position != nullptr) *position = low;
    if (low != head && compare(key, QV_LIST_DATA(low), context) == 0) return low;
    return nullptr;
}

} // extern "C"
