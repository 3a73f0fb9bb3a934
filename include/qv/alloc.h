/*
 * alloc.h - allocation tracking and the library's own formatted printing.
 *
 * Allocation table: up to 1024 long-lived static pointers registered by address, so that
 * Free_Alloc_Ptrs_L frees every block at once and nulls the pointers. A registered
 * variable does not point at its block: it points at the table entry's block field, and
 * its users read and write the block through it (one extra indirection).
 *
 * Formatter: VAsprintf_L / Asprintf_L / Asprintf8_L format into a process-wide work
 * buffer and append the result to *out (allocated when *out is null), returning *out.
 * The result is a heap text freed by the caller with free().
 * Conversions: d i (an int), u o x X (an unsigned int), with C's size prefixes (below),
 * c (its low byte; a byte 0 ends the result there), s and U (text; null prints "<NULL>"),
 * S (a QV_STRING_T *: its text converted from its encoding to UTF-8, precision counting
 * UTF-8 bytes; a null text prints "<NULL>"; a null pointer takes the next argument as a
 * plain text instead), p (the C library's %p; width ignored),
 * f (a 32-bit float passed through its bits without "l", a double with "l"; the C library's
 * %f with the same flags, width and precision), %% and any other character (printed alone,
 * the flags and width before it dropped: "%+d" prints "+d"). Flags - and 0, widths and precisions
 * from digits or "*" (a negative "*" width left-justifies, a negative "*" precision is none).
 * Padding is always with spaces; zero-fill acts through the digit count, and a 0 with
 * precision 0 still prints "0".
 *
 * Size prefixes, for d i u o x X as in C's printf: "l" a long (64-bit here), "ll" a long
 * long, "j" an intmax_t, "z" a size_t (signed for d i), "t" a ptrdiff_t, "h" and "hh" an
 * int cut to short and char; "I64d" reads a long long too, but "I64" before any other
 * letter is not a size: "%I64u" prints "I" and goes on with "64u" as plain text. For f only
 * "l" counts: "%f" without it reads an unsigned int holding the float's 32 bits (the
 * caller passes them, e.g. after memcpy from the float), "%lf" a double.
 *
 * Porting traps (no compiler warns of them, as the formatter cannot carry C's format
 * attribute): "%ld" or "%lX" given an int32_t reads 64 bits, of which the upper half is
 * whatever the register held ("%lX" of (int32_t)-1 prints FFFFFFFF, "%ld" 4294967295);
 * "%f" given a float reads the promoted double's low 32 bits as a float; "%I64u" and
 * "%I64x" print literally; and flags other than - and 0 ("%+d", "%#x", "% d") are not
 * flags.
 *
 * Bad input: a null `out` formats nothing and returns null; a null format appends nothing
 * and returns *out; a null owner is ignored by the allocation-table functions. A width or
 * precision written with more digits than fit an int (or a "*" width of INT_MIN) is clamped
 * to INT_MAX; the work buffer is kept within the int range, so an item that would pass it
 * raises ALLOC_FAILURE without allocating.
 * Failures: allocation failures raise ALLOC_FAILURE or ZERO_ALLOC_FAILURE from module
 * "alloc". With no status context open the raise only reports and returns; the formatter
 * then abandons the call, leaves *out as it was and returns it, and Get_Alloc_Ptr_L on a
 * full table registers nothing and leaves *owner as it was.
 * Not thread-safe: one thread at a time.
 */
#ifndef QV_ALLOC_H
#define QV_ALLOC_H

#include <stdarg.h>
#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* Registers the pointer variable at `owner`: *owner is set to the address of the entry's
 * block field (null until the owner stores a block there). Raises GENERAL_ERROR when all
 * 1024 entries are in use. */
QV_API void Get_Alloc_Ptr_L(void ***owner);
/* Frees the block of the entry registered for `owner` and nulls *owner. */
QV_API void Free_Alloc_Ptr_L(void ***owner);
/* Frees every registered block, nulls every owner, empties the table; returns 0. */
QV_API int32_t Free_Alloc_Ptrs_L(void);

QV_API char *VAsprintf_L(char **out, const char *format, va_list arguments);
QV_API char *Asprintf_L(char **out, const char *format, ...);
QV_API char *Asprintf8_L(char **out, const char *format, ...);

/* Test hook: the allocation `n` allocations from now (0 = the next one) made through the
 * library's allocation helpers fails as if malloc had returned null; a negative n disarms.
 * TestAllocationFailed_L tells whether the armed failure has fired since it was armed. */
QV_API void TestFailAllocation_L(int32_t n);
QV_API uint8_t TestAllocationFailed_L(void);

QV_EXTERN_C_END

#endif
