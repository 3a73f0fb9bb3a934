/*
 * array.h - item arrays: growable arrays of fixed-size items held by the caller.
 *
 * An item array is a caller-owned pointer to a heap block of count x item_size bytes; the
 * caller keeps the count and the item size and passes them to every call, and frees the
 * block with free(). Members that change the block take its address; members that change
 * the count return the new one (or the new item's address), and the caller stores it:
 *
 *     int32_t *numbers = NULL; int32_t count = 0, n = 42;
 *     AddArrayItem_L((void **)&numbers, count++, sizeof n, &n);
 *     count = DeleteArrayItemByIndex_L((void **)&numbers, count, sizeof n, 0);
 *
 * The block holds at least count x item_size bytes: growing uses the room malloc left at
 * its end and otherwise doubles it, so appending item by item costs amortised O(1). A
 * block the caller allocated itself to the exact size is fine. A block whose count falls
 * to 0 is freed and its pointer nulled; with a count of 0 a block pointer is never read.
 * An item to insert may lie inside the block itself (it is read before the block moves).
 *
 * Comparisons are bsearch's: compare(key, item) with the key first, read as strcmp reads
 * (below 0: the key sorts before the item; 0: equal; above 0: after). For example, an
 * array of pointers to records searched by name:
 *
 *     static int32_t by_name(const void *key, const void *item) {
 *         return strcmp((const char *)key, (*(RECORD *const *)item)->name);
 *     }
 *
 * Failures (module "array"): an index out of range, a negative count, a count that cannot
 * grow (INT32_MAX), or a null block address raises ARRAY_FAILURE_L; an item size of 0
 * raises ZERO_ALLOC_FAILURE; allocation failures ALLOC_FAILURE. The block and count are
 * then as they were, and with no status context open the member returns its "nothing"
 * result (null, the old count, -1).
 * Not thread-safe beyond the library's rule: one thread at a time.
 */
#ifndef QV_ARRAY_H
#define QV_ARRAY_H

#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* The comparison of the searching members (see above). */
typedef int32_t (*QV_ARRAY_COMPARE_L)(const void *key, const void *item);

/* Flags of BsearchArray_L. */
enum {
    QV_BSEARCH_ANY = 0,  /* return the index of whichever equal item the halving meets */
    QV_BSEARCH_FIRST = 1 /* return the lowest index among equal items */
};

/* Appends a copy of `item` (zeros when null): with count 0 allocates one zero-filled item
 * (the old *block is not read), else makes room for count+1 items, reallocating when the
 * block has none. Returns the address of the new item in the block. The caller's count is
 * now count+1. */
QV_API void *AddArrayItem_L(void **block, int32_t count, uint32_t item_size, const void *item);
/* As AddArrayItem_L with the new item placed at `index` (0..count), the items from index
 * on moving up by one. Returns the new item's address. */
QV_API void *InsertArrayItem_L(void **block, int32_t count, uint32_t item_size, const void *item,
                               int32_t index);
/* Removes the first item whose item_size bytes equal those at `item`, the items after it
 * moving down by one. Returns the new count (count unchanged when no item matched, or
 * for a null item). */
QV_API int32_t DeleteArrayItem_L(void **block, int32_t count, uint32_t item_size, const void *item);
/* Removes the item at `index` (0..count-1). Returns the new count. */
QV_API int32_t DeleteArrayItemByIndex_L(void **block, int32_t count, uint32_t item_size,
                                        int32_t index);
/* Moves the item at index `from` to index `to` (both 0..count-1), the items between them
 * shifting by one: from 0 to 2 in [a b c d] gives [b c a d]. */
QV_API void MoveArrayItemByIndex_L(void *block, int32_t count, uint32_t item_size, int32_t from,
                                   int32_t to);
/* The index of the first item that compares equal to `reference` (compare(reference,
 * item); with a null compare, the first whose item_size bytes equal those at reference),
 * or -1. */
QV_API int32_t FindArrayItemByRef_L(const void *block, int32_t count, uint32_t item_size,
                                    const void *reference, QV_ARRAY_COMPARE_L compare);
/* Binary search of an array sorted by `compare`. First compares the key with the last
 * item: a key above it gives -1 and *position = count at once, so appending in order costs
 * one comparison. Otherwise halves [low, high] from [0, count-1] at mid = (low+high)/2: a
 * key below the item moves high to mid-1, above it moves low to mid+1. Returns the index
 * of an equal item (with QV_BSEARCH_FIRST in `flag`, the lowest such index) and sets
 * *position to it; otherwise returns -1 with *position the insertion point (low). Count 0
 * gives -1 and position 0. To insert keeping the order:
 *     if (BsearchArray_L(a, n, QV_BSEARCH_ANY, &k, sizeof k, cmp, &at) < 0)
 *         InsertArrayItem_L((void **)&a, n++, sizeof k, &k, at);
 * A negative count, or a null block with a positive count, raises ARRAY_FAILURE_L
 * (-1, position 0). */
QV_API int32_t BsearchArray_L(const void *block, int32_t count, int32_t flag, const void *key,
                              uint32_t item_size, QV_ARRAY_COMPARE_L compare, int32_t *position);

QV_EXTERN_C_END

#endif
