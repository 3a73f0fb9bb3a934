/*
 * dataline.h - names as data lines and expressions write them: which characters may start
 * and continue a name, and reading a (possibly dotted, possibly quoted) identifier.
 *
 * A name is one or more parts joined by ".", such as  price,  orders.total  or
 * "Order Lines"."Unit Price". Each part is either
 *   bare    a character that may start a name, then any number of characters that may
 *           continue one;
 *   quoted  any characters between double quotes, a doubled quote ("") standing for one
 *           quote; it may not be empty.
 * There is no white space around the dots. Which characters a bare part may hold depends on
 * the name class:
 *   QV_NAME_CLASS_PLAIN       start: a letter or "_"; continue: a letter, a digit or "_"
 *   QV_NAME_CLASS_EXPRESSION  as plain, and "@" both to start and to continue, and ":" to
 *                             continue; in an identifier a ":" followed by "=" ends the
 *                             part, so that "x:=" reads as x followed by ":="
 * Any other class value is the plain class. Letters and digits are those of the string
 * layer's code-point classes (qv/encoding.h): Unicode letters and decimal digits, so "Größe"
 * and "prix_€" differ (the euro sign is neither).
 *
 * Texts are UTF-8; an invalid byte sequence is one U+FFFD, which is neither a letter nor a
 * digit, so it ends a bare part. Not thread-safe beyond the library's rule.
 */
#ifndef QV_DATALINE_H
#define QV_DATALINE_H

#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* Name classes. */
#define QV_NAME_CLASS_PLAIN 1
#define QV_NAME_CLASS_EXPRESSION 4

/* Results of ParseIdentifier_L that are not a length. */
#define QV_NAME_NONE 0              /* no name starts here */
#define QV_NAME_UNCLOSED_QUOTE (-1) /* a quoted part runs to the end of the text */
#define QV_NAME_PART_EXPECTED (-2)  /* a "." is not followed by a part */
#define QV_NAME_EMPTY_PART (-3)     /* a quoted part holds nothing ("") */

/* 1 when the code point may start a bare part of a name of the class; 0 otherwise. */
QV_API uint8_t IsValidNameChar_L(int32_t code_point, int32_t name_class);
/* 1 when the code point may stand in a bare part after its first character. */
QV_API uint8_t IsValidNameCodePoint_L(int32_t code_point, int32_t name_class);

/* Reads the identifier at the start of `text` (UTF-8, terminated; null reads nothing).
 * Returns the number of bytes it takes (> 0), or QV_NAME_NONE when no name starts there
 * (blanks are not skipped), or a negative QV_NAME_ code when a name starts but is
 * malformed. On success, when `parts` is given, *parts receives one heap block holding
 * the parts as terminated texts, quotes removed and doubled quotes made single: an array
 * of *part_count pointers followed by the texts; free it with one free(). *part_count
 * (when given) receives the number of parts. On failure neither is written. Allocation
 * failures raise ALLOC_FAILURE from module "dataline" (with no status context open, the
 * result is then QV_NAME_NONE). */
QV_API int32_t ParseIdentifier_L(const char *text, int32_t name_class, char ***parts,
                                 int32_t *part_count);

QV_EXTERN_C_END

#endif
