/*
 * handle.h - handle tables: numbered handles that stand for objects in host code.
 *
 * A handle is a signed 32-bit index into the table's entry array; 0 is never issued and
 * numbering starts at 1, so 0 reads as "no handle". The table, made by InitHandles_L and
 * owned by the caller, grows by QV_HANDLE_GROWTH entries at a time (the first allocation
 * too), new entries zero-filled; an entry holds an object pointer, the caller's type and
 * two more caller values, a heap copy of user data, and whether the entry owns the object.
 * An owned object is one block from malloc, freed with free() when its handle is freed.
 *
 *     QV_HANDLE_TABLE_T *table = InitHandles_L();
 *     int32_t h = NewHandle_L(table, MY_CURSOR, cursor, 1, 0, 0);  (the table owns it)
 *     QV_HANDLE_ENTRY_T *entry = CheckHandle_L(table, h);           (null when invalid)
 *     FreeHandle_L(table, h);                                       (frees cursor)
 *     TerminateHandles_L(&table);
 *
 * Numbering: NewHandle_L searches upward from the next search position for a free entry.
 * At the end of the array it grows the table and takes the first new entry when reuse is
 * off or the table is full, and otherwise wraps round to 1 and goes on, so freed numbers
 * come back only after the search has passed the end. With reuse off (ReuseHandles_L),
 * handles keep rising and a freed number is never issued again.
 *
 * An entry pointer (CheckHandle_L) is valid until the table grows: NewHandle_L,
 * DuplicateHandle_L and SizeHandleArray_L may move the entries.
 *
 * Bad input: a null table, a handle below 1, at or above the capacity, or not in use is
 * invalid: CheckHandle_L gives null, FreeHandle_L ignores it, the members returning a
 * status give -1 and those returning a handle give 0; none of them raises. Handles of the
 * wrong type are the caller's to report, with WRONG_HANDLE_TYPE (GetHandleObject_L does it).
 * Allocation failures raise ALLOC_FAILURE (module "handle"); the table is then as it was,
 * and with no status context open the member returns 0 or -1.
 * Not thread-safe beyond the library's rule: one thread at a time.
 */
#ifndef QV_HANDLE_H
#define QV_HANDLE_H

#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

#define QV_HANDLE_GROWTH 256000

typedef struct QV_HANDLE_ENTRY_T {
    void *object;
    int32_t second;          /* a caller value */
    void *user_data;         /* heap copy owned by the entry, or null */
    uint32_t user_data_size; /* bytes of user_data */
    int32_t type;            /* the caller's type of the object */
    int32_t third;           /* a caller value */
    uint8_t in_use;
    uint8_t owns_object; /* the object is freed with the handle */
} QV_HANDLE_ENTRY_T;

typedef struct QV_HANDLE_TABLE_T {
    int32_t capacity;           /* entries (usable handles are 1 .. capacity-1) */
    int32_t in_use;             /* entries in use */
    int32_t next_search;        /* where NewHandle_L starts looking */
    int32_t highest;            /* highest handle issued */
    QV_HANDLE_ENTRY_T *entries; /* capacity entries; entry 0 is never used */
    uint8_t reuse;              /* 1: wrap round to reuse freed handles */
} QV_HANDLE_TABLE_T;

/* A caller's array of handles (zero-filled to start), kept by the helpers below. */
typedef struct QV_HANDLE_ARRAY_T {
    int32_t count;
    int32_t capacity;
    int32_t *handles;
} QV_HANDLE_ARRAY_T;

/* A new table of QV_HANDLE_GROWTH entries: next search 1, highest 0, reuse on. */
QV_API QV_HANDLE_TABLE_T *InitHandles_L(void);
/* Frees every handle in use (owned objects and user data), the entries and the table, and
 * nulls *table. */
QV_API void TerminateHandles_L(QV_HANDLE_TABLE_T **table);

/* Issues a handle for `object` (see Numbering above): type and the caller values are
 * stored as given, user data empty, owns_object from `owns` (non-zero: the object is
 * freed with the handle). Returns the handle, or 0. */
QV_API int32_t NewHandle_L(QV_HANDLE_TABLE_T *table, int32_t type, void *object, int32_t owns,
                           int32_t third, int32_t second);
/* The entry of a handle in use, or null. */
QV_API QV_HANDLE_ENTRY_T *CheckHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle);
/* The object of a handle in use of type `type`, or null after raising WRONG_HANDLE_TYPE
 * (an invalid handle, or one of another type). */
QV_API void *GetHandleObject_L(QV_HANDLE_TABLE_T *table, int32_t handle, int32_t type);
/* Frees the object when the entry owns it, and the user data; the handle becomes free. */
QV_API void FreeHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle);
/* Replaces an entry's type, object, ownership and caller values (user data stays). An
 * owned object that is replaced by another is freed. Returns 0, or -1 when invalid. */
QV_API int32_t UpdateHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle, int32_t type, void *object,
                              int32_t owns, int32_t third, int32_t second);
/* A new handle with the same type, object, caller values and a copy of the user data.
 * With `transfer` non-zero and the handle owning its object, ownership moves to the new
 * handle; otherwise the new handle does not own the object (an object is freed once).
 * Returns the new handle, or 0. */
QV_API int32_t DuplicateHandle_L(QV_HANDLE_TABLE_T *table, int32_t handle, int32_t transfer);

/* Copies `size` bytes from `data` into the entry's user data (replacing what it held; a
 * size of 0 or null data leaves it empty). Returns 0, or -1 for an invalid handle. */
QV_API int32_t SetHandleUserData_L(QV_HANDLE_TABLE_T *table, int32_t handle, const void *data,
                                   uint32_t size);
/* The entry's user data and its size (either output may be null). Returns 0, or -1 for a
 * null entry (outputs null and 0). */
QV_API int32_t GetHandleUserData_L(const QV_HANDLE_ENTRY_T *entry, void **data, uint32_t *size);
/* The entry's type, object and caller values (any output may be null). Returns 0, or -1
 * for a null entry (outputs 0 and null). */
QV_API int32_t GetHandleComponents_L(const QV_HANDLE_ENTRY_T *entry, int32_t *type, void **object,
                                     int32_t *third, int32_t *second);

/* Sets the reuse flag and returns the old one: on sets the next search to 1, off to
 * highest + 1. Returns 0 for a null table. */
QV_API uint8_t ReuseHandles_L(QV_HANDLE_TABLE_T *table, uint8_t on);
/* Returns the capacity and stores the number of handles in use in *in_use (may be null);
 * 0 for a null table. */
QV_API int32_t HandlesStatus_L(const QV_HANDLE_TABLE_T *table, int32_t *in_use);
/* Grows the table to `entries` entries when it has fewer. Returns the capacity, or -1. */
QV_API int32_t SizeHandleArray_L(QV_HANDLE_TABLE_T *table, int32_t entries);

/* ---- Caller arrays of handles ----------------------------------------------------- */
/* The array grows by doubling; a handle may appear more than once. An index out of range
 * raises ARRAY_FAILURE_L (module "handle"). A null array is empty and ignores changes. */

/* Appends a handle; returns its index, or -1. */
QV_API int32_t AddHandleToArray_L(QV_HANDLE_ARRAY_T *array, int32_t handle);
/* Inserts a handle at `index` (0..count), the rest moving up; returns index, or -1. */
QV_API int32_t InsertHandleInArray_L(QV_HANDLE_ARRAY_T *array, int32_t index, int32_t handle);
/* The index of the first occurrence of a handle, or -1. */
QV_API int32_t FindHandleInArray_L(const QV_HANDLE_ARRAY_T *array, int32_t handle);
/* Removes the first occurrence of a handle; returns the index it had, or -1. */
QV_API int32_t DeleteHandleFromArray_L(QV_HANDLE_ARRAY_T *array, int32_t handle);
/* The handle at `index` (0..count-1), or 0. */
QV_API int32_t HandleArrayItem_L(const QV_HANDLE_ARRAY_T *array, int32_t index);
/* Makes room for at least `capacity` handles; returns the capacity, or -1. */
QV_API int32_t ExpandHandleArray_L(QV_HANDLE_ARRAY_T *array, int32_t capacity);
/* Frees the array's block and zeroes it. With a table, first frees every handle of the
 * array in that table (FreeHandle_L), so a caller that keeps its handles together frees
 * them together: FreeHandleArray_L(&cursors, table). */
QV_API void FreeHandleArray_L(QV_HANDLE_ARRAY_T *array, QV_HANDLE_TABLE_T *table);

QV_EXTERN_C_END

#endif
