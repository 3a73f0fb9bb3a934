/*
 * pageptrs.h - paged pointer arrays: arrays of non-null pointers that grow by pages, so a
 * stored pointer never moves.
 *
 * The pointers live in slots numbered from 0 (a slot's number is its position); the slots
 * are cut into pages of `items_per_page` slots, each page a block of its own reached
 * through a page table. Growing adds a page (and, when the table is full, enlarges the
 * table, which moves only the table): the address of a slot, as NextPagedPtrAddress_L
 * gives it, stays valid until the array is cleared or freed.
 *
 * Insertion and deletion rules. Nothing is ever shifted:
 * - AppendPtrToPagedPtrs_L stores in the slot after the last one holding a pointer, so
 *   appended pointers keep the order they came in;
 * - AddPtrToPagedPtrs_L stores in the lowest free slot, reusing the hole a deletion left,
 *   and appends only when there is none;
 * - deleting frees the slot (it holds null); a walk skips free slots, and when the last
 *   pointer goes the slots after the new last one are free for appending again;
 * - a null pointer cannot be stored (null marks a free slot): storing one gives -1.
 *
 * A walk, from either end (position -1 starts it):
 *
 *     int32_t at = -1; void *p;
 *     while ((p = NextPagedPtr_L(array, &at)) != NULL) use(p, at);
 *
 * Sizing: NewPagedPtrs_L(first_table, table_step, items_per_page, flags): the page table
 * gets first_table entries when the first page is made and grows by table_step entries
 * when full (256 each when not positive); items_per_page is 1024 when not positive and at
 * most QV_PAGED_MAX_ITEMS_PER_PAGE. Pages are made when needed; a page takes
 * 8 + page_bytes bytes. ClearPagedPtrs_L keeps the pages for reuse.
 *
 * Flags: QV_PAGED_FREE_POINTERS makes the array own the blocks its pointers point to (each
 * from malloc): ClearPagedPtrs_L and FreePagedPtrs_L free them. The delete members always
 * hand the pointer back without freeing it. Other bits are kept and mean nothing.
 *
 * Bad input: a null array is empty (searches give null or -1, changes do nothing, its
 * memory is 0). A position out of range holds nothing: deleting or reading it gives null.
 * Allocation failures raise ALLOC_FAILURE (module "pageptrs") and leave the array as it
 * was; with no status context open the member then returns null or -1.
 * Not thread-safe beyond the library's rule: one thread at a time.
 */
#ifndef QV_PAGEPTRS_H
#define QV_PAGEPTRS_H

#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

#define QV_PAGED_MAX_ITEMS_PER_PAGE (1 << 20)

/* Flags of NewPagedPtrs_L. */
enum { QV_PAGED_FREE_POINTERS = 0x1 };

typedef struct QV_PAGED_PTRS_T {
    int32_t pages;          /* pages made */
    int32_t table_entries;  /* entries of the page table */
    int32_t items_per_page; /* slots of a page */
    int32_t page_bytes;     /* sizeof(void *) x items_per_page */
    int32_t first_table;    /* page-table entries made with the first page */
    int32_t table_step;     /* entries a full page table grows by */
    uint16_t flags;
    int32_t count;      /* pointers stored */
    int32_t end;        /* one past the last slot holding a pointer */
    int32_t first_free; /* no free slot lies below this one */
    void **table;       /* private: the page table, `pages` of its entries used */
} QV_PAGED_PTRS_T;

/* A new, empty array (a zero-filled record; pages come later). Free it with
 * FreePagedPtrs_L. */
QV_API QV_PAGED_PTRS_T *NewPagedPtrs_L(int32_t first_table, int32_t table_step,
                                       int32_t items_per_page, uint16_t flags);
/* Bytes the array holds: (page_bytes + 8) x pages + sizeof(void *) x table_entries + the
 * size of the record; 0 for a null array. */
QV_API int64_t PagedPtrsMem_L(const QV_PAGED_PTRS_T *array);

/* Stores `pointer` in the lowest free slot (a hole, else after the last pointer). Returns
 * its position, or -1 for a null pointer or array. */
QV_API int32_t AddPtrToPagedPtrs_L(QV_PAGED_PTRS_T *array, void *pointer);
/* Stores `pointer` in the slot after the last one holding a pointer. Returns its position,
 * or -1 for a null pointer or array. */
QV_API int32_t AppendPtrToPagedPtrs_L(QV_PAGED_PTRS_T *array, void *pointer);
/* Frees the slot at `position`; returns the pointer it held (null when none). */
QV_API void *DeleteFromPagedPtrs_L(QV_PAGED_PTRS_T *array, int32_t position);
/* Frees the lowest slot holding `pointer`; returns its position, or -1 when none does. */
QV_API int32_t DeleteFromPagedPtrsByPtr_L(QV_PAGED_PTRS_T *array, const void *pointer);
/* The lowest position holding `pointer`, or -1. */
QV_API int32_t FindPagedPtrByItem_L(const QV_PAGED_PTRS_T *array, const void *pointer);
/* The pointer at `position`, or null when the slot is free or out of range. */
QV_API void *PagedPtrAt_L(const QV_PAGED_PTRS_T *array, int32_t position);

/* The next pointer after *position (-1: the first), setting *position to its slot; null
 * at the end (*position then -1, ready for a new walk). */
QV_API void *NextPagedPtr_L(const QV_PAGED_PTRS_T *array, int32_t *position);
/* As NextPagedPtr_L, giving the address of the slot: the pointer there may be replaced by
 * another non-null one (removing one goes through the delete members). */
QV_API void **NextPagedPtrAddress_L(const QV_PAGED_PTRS_T *array, int32_t *position);
/* The pointer before *position (-1: the last), setting *position; null at the start. */
QV_API void *PreviousPagedPtr_L(const QV_PAGED_PTRS_T *array, int32_t *position);

/* Frees every slot (and, with QV_PAGED_FREE_POINTERS, the blocks they point to); the pages
 * stay for reuse. */
QV_API void ClearPagedPtrs_L(QV_PAGED_PTRS_T *array);
/* Clears the array, frees its pages, table and record, and nulls *array. */
QV_API void FreePagedPtrs_L(QV_PAGED_PTRS_T **array);

QV_EXTERN_C_END

#endif
