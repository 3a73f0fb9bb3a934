/*
 * qvlist.h - doubly linked lists whose items carry a copy of their data inline.
 *
 * A list is circular through its head. The head and the items share their first four
 * fields, so that one pointer type (QV_LIST_T *) names a position in a list, head or item:
 *
 *     head: next (first item, or the head itself when empty), previous (last item, or the
 *           head itself), size 0, reserved 0, count (number of items)
 *     item: next (the head after the last item), previous (the head before the first),
 *           size (bytes of data, never 0), reserved 0, then the data bytes themselves
 *
 * A zero size is how a head is told from an item. The data of an item starts
 * QV_LIST_DATA_OFFSET bytes into it (8-byte aligned); QV_LIST_DATA and QV_LIST_ITEM convert
 * between an item and its data pointer without a search. A walk:
 *
 *     void *data;
 *     for (QV_LIST_T *p = NextListItem_L(head, &data); p; p = NextListItem_L(p, &data))
 *         use(data);
 *
 * Comparisons: every member that orders or searches calls
 *     compare(left, right, context)
 * with two data pointers and the caller's context, and reads the result as strcmp does
 * (below 0: left sorts first; 0: equal; above 0: left sorts after). The key or new data is
 * always the left argument. For example, items holding an int32_t:
 *
 *     static int32_t by_value(const void *l, const void *r, void *context) {
 *         int32_t a = *(const int32_t *)l, b = *(const int32_t *)r;
 *         return (a > b) - (a < b);
 *     }
 *
 * A comparison may raise; the list is then whole and every item still in it (a sort may
 * have been left part done).
 *
 * Failures: a head given where an item is needed, an item given where a head is needed,
 * a null head or item, or a null comparison raises LIST_FAILURE_L (module "qvlist"); the
 * searches then give null (and *position null). A data size of 0 raises
 * ZERO_ALLOC_FAILURE, allocation failures ALLOC_FAILURE. With no status context open the
 * member then returns null (or 0) and changes nothing.
 * Not thread-safe beyond the library's rule: one thread at a time.
 */
#ifndef QV_QVLIST_H
#define QV_QVLIST_H

#include <stddef.h>
#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* A list head, or the leading fields of an item (whose data starts where count is). */
typedef struct QV_LIST_T {
    struct QV_LIST_T *next;
    struct QV_LIST_T *previous;
    uint32_t size;     /* 0 in a head; bytes of data in an item */
    uint32_t reserved; /* 0 */
    int32_t count;     /* a head's number of items; an item has its data here instead */
} QV_LIST_T;

#define QV_LIST_DATA_OFFSET offsetof(QV_LIST_T, count)
/* The data of an item, and the item of a data pointer that a list member returned. */
#define QV_LIST_DATA(item) ((void *)((char *)(item) + QV_LIST_DATA_OFFSET))
#define QV_LIST_ITEM(data) ((QV_LIST_T *)((char *)(data)-QV_LIST_DATA_OFFSET))

/* The comparison of the ordering and searching members (see above). */
typedef int32_t (*QV_LIST_COMPARE_L)(const void *left, const void *right, void *context);

/* Modes of Delete_List_Item_L: which neighbour of the deleted item it returns. */
enum { QV_LIST_RETURN_NOTHING = 0, QV_LIST_RETURN_NEXT = 1, QV_LIST_RETURN_PREVIOUS = 2 };

/* ---- Heads ------------------------------------------------------------------------ */

/* A new empty list (next and previous point to the head itself, count 0). */
QV_API QV_LIST_T *Allocate_List_L(void);
/* Frees the items still in the list, then the head, and nulls *head. A null head or
 * *head does nothing; an item raises LIST_FAILURE_L and frees nothing. */
QV_API void Deallocate_List_L(QV_LIST_T **head);
/* Frees every item and leaves the list empty. A null head does nothing; an item raises. */
QV_API void Free_List_L(QV_LIST_T *head);

/* ---- Adding and removing items ---------------------------------------------------- */

/* Copies `size` bytes from `data` (zeros when data is null) into a new item at the end.
 * Returns the item's data pointer. */
QV_API void *Append_List_Item_L(QV_LIST_T *head, const void *data, uint32_t size);
/* As Append_List_Item_L, with the new item placed before `position` (an item of this
 * list); a position that is the head, or null, appends. */
QV_API void *Insert_List_Item_L(QV_LIST_T *head, QV_LIST_T *position, const void *data,
                                uint32_t size);
/* Inserts a copy of `data` in order: after every item that compares below or equal to it
 * and before the first that compares above it, so equal items keep the order they came
 * in. The search runs from the last item backwards, so a new item that compares above the
 * last one is appended after one comparison. When `allow_duplicates` is 0 and an item
 * compares equal, nothing is inserted and that item's data is returned. Returns the data
 * pointer of the new (or equal) item. Null data raises LIST_FAILURE_L (the comparison
 * reads it). Example, a set of names:
 *     Insert_Sorted_List_Item_L(names, "b", 2, by_text, 0, NULL);   (strcmp inside) */
QV_API void *Insert_Sorted_List_Item_L(QV_LIST_T *head, const void *data, uint32_t size,
                                       QV_LIST_COMPARE_L compare, int32_t allow_duplicates,
                                       void *context);
/* Unlinks and frees `item`; the count goes down by one. Returns the item that followed it
 * (mode QV_LIST_RETURN_NEXT; the head when it was the last, from which NextListItem_L
 * walks again from the start), the one before it (QV_LIST_RETURN_PREVIOUS; the head when
 * it was the first), else null. Deleting while walking:
 *     p = Delete_List_Item_L(head, p, QV_LIST_RETURN_PREVIOUS);  then NextListItem_L(p ...) */
QV_API QV_LIST_T *Delete_List_Item_L(QV_LIST_T *head, QV_LIST_T *item, int32_t mode);
/* Replaces an item's data with a copy of `size` bytes from `data` (zeros when null; it
 * may point into the item's own data). A new size reallocates the item, which then moves:
 * use the returned data pointer. */
QV_API void *Update_List_Item_L(QV_LIST_T *item, const void *data, uint32_t size);
/* Moves `item` to just before `position` (an item of the same list, or its head: to the
 * end). Moving an item before itself does nothing. */
QV_API void Change_List_Position_L(QV_LIST_T *item, QV_LIST_T *position);

/* ---- Reading and walking ---------------------------------------------------------- */

/* The data pointer and size of an item (either output may be null). A head or null item
 * raises LIST_FAILURE_L and sets them to null and 0. */
QV_API void Get_List_Item_L(QV_LIST_T *item, void **data, uint32_t *size);
/* The item after (before) `position` and its data in *data (data may be null); null when
 * that neighbour is the head, so a walk from the head ends there, or when position is
 * null. */
QV_API QV_LIST_T *NextListItem_L(QV_LIST_T *position, void **data);
QV_API QV_LIST_T *PreviousListItem_L(QV_LIST_T *position, void **data);
/* The first item after `position` (a head: the first item of the list) whose data
 * compares equal to `key`, or null. Pass the previous match to find the next one. */
QV_API QV_LIST_T *Find_List_Item_L(QV_LIST_T *position, const void *key, QV_LIST_COMPARE_L compare,
                                   void *context);
/* The item of `head` whose data pointer is `data`, or null when no item has it. */
QV_API QV_LIST_T *FindListItemByRef_L(QV_LIST_T *head, const void *data);

/* ---- Copies into item arrays ------------------------------------------------------ */

/* Sets *block to a new heap block (freed by the caller) of count x item_size bytes, slot i
 * holding item i's data, cut or zero-padded to item_size; returns the count. An empty list
 * sets null and returns 0 (the old *block is never read). */
QV_API int32_t Copy_List_To_Array_L(QV_LIST_T *head, void **block, uint32_t item_size);
/* As Copy_List_To_Array_L with slot i holding item i's data pointer (no data copied). */
QV_API int32_t Copy_List_Items_To_Array_L(QV_LIST_T *head, void ***block);

/* ---- Sorting and searching -------------------------------------------------------- */

/* Sorts the list in place by relinking its items (the data never moves or is copied):
 * a quicksort on a median-of-three pivot, each pass splitting the items into those below,
 * equal to and above the pivot; not stable. Data pointers stay valid. */
QV_API void Qsort_List_L(QV_LIST_T *head, QV_LIST_COMPARE_L compare, void *context);
/* Sorts the items from `first` to `last` inclusive (items of one list, first not after
 * last), leaving the rest of the list in place. A walk from first that meets the head
 * before last raises LIST_FAILURE_L without changing anything. */
QV_API void Qsort_Part_List_L(QV_LIST_T *first, QV_LIST_T *last, QV_LIST_COMPARE_L compare,
                              void *context);
/* Searches a list sorted by `compare` by halving (O(log n) comparisons, O(n) links
 * followed). Returns the first item that compares equal to `key`, or null. *position (may
 * be null) receives the first item that compares equal or above the key: the place to
 * insert it before with Insert_List_Item_L (the head when the key sorts after them all). */
QV_API QV_LIST_T *Bsearch_List_L(QV_LIST_T *head, const void *key, QV_LIST_COMPARE_L compare,
                                 void *context, QV_LIST_T **position);

QV_EXTERN_C_END

#endif
