/*
 * dataval.h - values: the value record (QV_VALUE_T of datatype.h) and what is done with it:
 * making, copying and freeing values, converting a value into a value of another type,
 * ordering, equality, checksums, text forms and array values.
 *
 * Ownership. A value owns its payload's memory (the text of CHAR and CLOB, the bytes of
 * BINARY and BLOB, the block of an ARRAY) when owns_payload is set; otherwise the memory is
 * borrowed from another value, which must outlive the borrower. Freeing or overwriting a
 * value frees only what it owns. A freed value is a NULL value of the same type, precision
 * and scale. A file-backed CLOB or BLOB (flag QV_VALUE_IN_FILE) holds the name of a file
 * with its content; freeing an owned one deletes the file. No two values own one file: a
 * copy of a file-backed value holds the content in memory.
 *
 * Arrays. An ARRAY value's payload points to a block of records: a header record whose
 * payload.integer is the element count, then the elements (element i is the record i + 1
 * places after the header). Elements are whole values of any type, arrays included. An
 * array of no elements may have no block.
 *
 * Text forms (ValueToString_L, ValueToChar_L; what a conversion to CHAR prints):
 *   CHAR, CLOB       the text itself (a file-backed CLOB: the file's content)
 *   INTEGER          decimal digits, "-" when negative
 *   FLOAT            StringFromDouble_L: all digits of an integral double, else 15
 *                    significant digits, never an exponent ("0.1", "1000000000000000000000")
 *   NUMBER           PreciseToString_L: no trailing decimal zeros ("1.5", "2")
 *   BOOLEAN          "TRUE" or "FALSE"
 *   DATE             "2009-04-30 12:34:56.000000000"; DATE WITH TIME ZONE adds " +05:30"
 *   TIME             "12:34:56.000000000"; TIME WITH TIME ZONE adds " +05:30"
 *                    Years print as the default date patterns print them: "%04d" when
 *                    positive, "%+05d" otherwise ("+0000", "-0044"). Zones print as the
 *                    patterns' "stzh:tzm" does, always with two hour digits and their sign
 *                    ("+05:30", "-00:30"), the zone stored in the value (0 prints "+00:00").
 *   INTERVAL DAY TO SECOND  "%d %02u:%02u:%02u.%09u", "-" before a negative one
 *   INTERVAL YEAR TO MONTH  "%d-%02u", "-" before a negative one
 *   BINARY, BLOB     the bytes as "%02X" pairs (ValueToHex_L)
 *   ARRAY            the elements' text forms joined by ", " in parentheses: "(1, 'a')",
 *                    texts quoted, NULL elements as NULL
 * Texts the library prints are UTF-8; a CHAR or CLOB keeps its own encoding.
 *
 * Reading text (the conversions from CHAR and CLOB): blanks around the text are ignored.
 *   numbers     "[+-]digits[.digits][e[+-]digits]" (StringToBestNumberType_L); an INTEGER
 *               takes the integer part, truncated; FLOAT also reads "NaN", "Infinity"
 *   BOOLEAN     TRUE, FALSE, T, F, YES, NO, Y, N, ON, OFF (any case), or a number (zero
 *               is false)
 *   dates       a date literal ("2009-04-30 12:34:56.5 +05:30", IsInternalDate_L), else the
 *               pattern "syyyy-mm-dd hh:mi:ss.fffffffff stzh:tzm" (the text may end after
 *               any part; zone names allowed)
 *   times       "hh:mi:ss.fffffffff stzh:tzm" (may end early), or a date literal's time
 *   intervals   the plain forms above, or the default patterns (qv/interval.h)
 *   BINARY      pairs of hexadecimal digits (what ValueToHex_L prints)
 *
 * Conversions between other types:
 *   to INTEGER      FLOAT and NUMBER truncated toward zero; BOOLEAN 1 or 0; DATE its Julian
 *                   day number
 *   to FLOAT        INTEGER, NUMBER, BOOLEAN; DATE its Julian day with the time of day as
 *                   the fraction
 *   to NUMBER       INTEGER exactly, FLOAT through its 15 significant digits (rounded half
 *                   away from zero at the target's scale), BOOLEAN 1/0; the rest truncated
 *                   to the target's scale
 *   to BOOLEAN      numbers: zero is false, anything else (NaN included) true
 *   to DATE         from INTEGER, FLOAT, NUMBER as a Julian day (the fraction is the time of
 *                   day); from either zone type the fields as they stand, the zone dropped
 *                   for DATE; from a DATE to DATE WITH TIME ZONE, zone 0
 *   to TIME         from a date its time of day; from numbers seconds since midnight
 *                   (0 <= s < 86400)
 *   to INTERVAL DAY TO SECOND   from numbers a count of seconds
 *   to INTERVAL YEAR TO MONTH   from numbers a count of months (integer part)
 *   to BINARY, BLOB from CHAR and CLOB the hexadecimal digits they hold
 * Every other pair (a DATE from a BOOLEAN, a TIME from an interval ...) has no value: the
 * result is NULL. INTEGER, FLOAT and NUMBER values that do not fit the target give
 * QV_VALUE_TOO_LARGE. An INTEGER's precision (2, 4, 8) is informational: the payload always
 * holds 64 bits and conversions do not narrow it.
 *
 * Bad input never crashes: null pointers are ignored or give the "nothing" result each
 * function names; a value whose owns-payload byte is set for a type without memory (an
 * INTEGER, a NUMBER) frees nothing; an ARRAY value with a null block has no elements.
 * Allocation failures raise ALLOC_FAILURE (ZERO_ALLOC_FAILURE never: the module asks for
 * no empty blocks) from module "dataval"; with no status context open the function then
 * leaves its destination NULL and returns its failure result.
 *
 * Not thread-safe beyond the library's rule: one thread at a time.
 */
#ifndef QV_DATAVAL_H
#define QV_DATAVAL_H

#include <stdint.h>

#include "datatype.h"
#include "encoding.h"
#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* Payload flags, in descriptor.extra. */
#define QV_VALUE_FLAG_1 0x01u  /* carried over from a CHAR or BINARY source */
#define QV_VALUE_FLAG_2 0x02u  /* carried over from a CHAR or BINARY source */
#define QV_VALUE_IN_FILE 0x20u /* a CLOB's or BLOB's content is in the file it names */

/* Results of the ValueTo... conversions. */
#define QV_VALUE_OK 0
#define QV_VALUE_NONE (-1)      /* a NULL source, or one that does not read as the type */
#define QV_VALUE_TOO_LARGE (-2) /* the source's value does not fit the target */

/* Results of ConvertValue_L. */
#define QV_CONVERT_OK 0
#define QV_CONVERT_TRUNCATED 1 /* a CHAR result is longer than the destination's length */
#define QV_CONVERT_TOO_LONG                                                                        \
    (-1) /* the value does not fit: BINARY longer than the                                         \
            destination's length, a number beyond the target's                                     \
            range; the destination is NULL */

/* ---- The record ------------------------------------------------------------------------ */

/* Frees what the value owns (the file of an owned file-backed value is deleted; array
 * elements are freed first, recursively), then zeroes the payload, the flags QV_VALUE_IN_FILE,
 * owns_payload and the evaluator's fields and sets is_null. Type, precision and scale stay.
 * Null is ignored. */
QV_API void FreeValue_L(QV_VALUE_T *value);
/* Set type, precision and scale (SetValue_L from a descriptor; a null descriptor means type
 * 0; SetValueType_L with precision and scale 0). When the type changes, the value is freed
 * first (it becomes NULL); otherwise payload and flags stay. Return the value. */
QV_API QV_VALUE_T *SetValue_L(QV_VALUE_T *value, const QV_DATATYPE_T *desc);
QV_API QV_VALUE_T *SetValueType_L(QV_VALUE_T *value, uint32_t type);
QV_API QV_VALUE_T *SetValueTypePrecScale_L(QV_VALUE_T *value, uint32_t type, int32_t precision,
                                           int32_t scale);

/* Makers: each frees the value first, then makes it a non-NULL value that owns its payload.
 * SetTextValue_L: CHAR(0) holding a copy of `text` (ended by the encoding's terminator; a
 * null encoding is UTF-8); a null text gives a NULL CHAR. SetBinaryValue_L: BINARY(length)
 * holding a copy of the bytes (length 0: no block). SetDateValue_L: `type` is DATE, TIME or
 * one of their zone forms; a null date or another type gives a NULL value of the type.
 * Return the value, or null for a null value. */
QV_API QV_VALUE_T *SetTextValue_L(QV_VALUE_T *value, const char *text,
                                  const QV_ENCODING_T *encoding);
QV_API QV_VALUE_T *SetIntegerValue_L(QV_VALUE_T *value, int64_t integer);
QV_API QV_VALUE_T *SetFloatValue_L(QV_VALUE_T *value, double real);
QV_API QV_VALUE_T *SetBooleanValue_L(QV_VALUE_T *value, uint8_t truth);
QV_API QV_VALUE_T *SetBinaryValue_L(QV_VALUE_T *value, const void *bytes, uint32_t length);
QV_API QV_VALUE_T *SetDateValue_L(QV_VALUE_T *value, uint32_t type, const QV_DATE_T *date);

/* Nothing when dest is src. Otherwise dest is freed; a null src leaves it NULL; else dest
 * becomes a deep copy of src (its own copies of texts, bytes and array elements, which it
 * owns; a file-backed src is copied as its content). Returns dest. */
QV_API QV_VALUE_T *CopyValue_L(QV_VALUE_T *dest, const QV_VALUE_T *src);

/* Converts src into dest's type (see the table at the top). A null dest does nothing; a
 * null or NULL src makes dest NULL. An untyped dest (type 0) first takes src's whole
 * descriptor. With `share`, a text or byte source is borrowed rather than copied (CHAR from
 * CHAR or an in-memory CLOB; CLOB from CHAR or CLOB; BINARY from BINARY or an in-memory
 * BLOB; BLOB from BLOB or BINARY; an ARRAY from an array of the same count borrows the
 * elements); a borrowed text that must be cut is copied first, never changed. A CHAR
 * result longer than dest's nonzero length is cut to it (no_truncate: kept whole) and the
 * result is QV_CONVERT_TRUNCATED. Data that does not read as dest's type leaves dest NULL
 * with QV_CONVERT_OK; a value that does not fit leaves it NULL with QV_CONVERT_TOO_LONG.
 * Types that hold no value here (LIST, POINTER, masks) are left alone. dest may be src, or
 * an array that holds src. */
QV_API int32_t ConvertValue_L(QV_VALUE_T *dest, const QV_VALUE_T *src, uint8_t share,
                              uint8_t no_truncate);

/* ---- Conversions to one type ------------------------------------------------------------
 * Each returns QV_VALUE_OK, QV_VALUE_NONE (*out unchanged) or QV_VALUE_TOO_LARGE (*out
 * unchanged); a null out gives QV_VALUE_NONE. */

/* out receives a new heap text (free it with FreeString_SL): the text form in the value's
 * encoding for CHAR and CLOB, else in UTF-8. */
QV_API int32_t ValueToString_L(const QV_VALUE_T *value, QV_STRING_T *out);
/* The text form in UTF-8 as a heap text (free it); null for a NULL value. */
QV_API char *ValueToChar_L(const QV_VALUE_T *value);
QV_API int32_t ValueToInteger_L(const QV_VALUE_T *value, int64_t *out);
QV_API int32_t ValueToDouble_L(const QV_VALUE_T *value, double *out);
/* Into number's precision and scale when it is a NUMBER with a precision (truncated to its
 * scale; too many integer digits: QV_VALUE_TOO_LARGE); otherwise number becomes the
 * source's own NUMBER: INTEGER NUMBER(19,0), FLOAT and text their digits. On failure
 * number is a NULL NUMBER. number may be value. */
QV_API int32_t ValueToNumber_L(const QV_VALUE_T *value, QV_PRECISE_T *number);
QV_API int32_t ValueToBoolean_L(const QV_VALUE_T *value, uint8_t *out);
/* *bytes receives a heap copy of the bytes (null when there are none; free it), *length
 * their count. */
QV_API int32_t ValueToBinary_L(const QV_VALUE_T *value, uint8_t **bytes, uint32_t *length);
QV_API int32_t ValueToDateTime_L(const QV_VALUE_T *value, QV_DATE_T *out);
QV_API int32_t ValueToTime_L(const QV_VALUE_T *value, QV_DATE_T *out);
QV_API int32_t ValueToInterval_L(const QV_VALUE_T *value, QV_INTERVAL_DS_T *out);
QV_API int32_t ValueToIntervalYM_L(const QV_VALUE_T *value, QV_INTERVAL_YM_T *out);
/* ConvertValue_L into a CLOB / BLOB dest (which takes that type): the CLOB and BLOB rows of
 * its table. Return QV_CONVERT_OK, dest NULL when src has no text or bytes. */
QV_API int32_t ValueToCLOB_L(QV_VALUE_T *dest, const QV_VALUE_T *src, uint8_t share);
QV_API int32_t ValueToBLOB_L(QV_VALUE_T *dest, const QV_VALUE_T *src, uint8_t share);
/* The bytes as "%02X" pairs, a heap text: BINARY and BLOB their bytes, CHAR and CLOB the
 * bytes of their text, other types the bytes of their text form. Null for a NULL value;
 * "" for no bytes. */
QV_API char *ValueToHex_L(const QV_VALUE_T *value);

/* ---- Order, equality, checksums --------------------------------------------------------- */

/* -1, 0 or 1 as a sorts below, with or above b. NULL (or a null pointer) sorts below every
 * value and equals NULL. Values compare within their family: numbers (INTEGER, FLOAT, NUMBER,
 * exactly across types and scales, NaN above every number), BOOLEAN (false first), texts
 * (CHAR, CLOB, by the collation of Strcoll_SL), bytes (BINARY, BLOB: bytewise, then the
 * shorter first), DATE and DATE WITH TIME ZONE (CompareInternalDate_L: fields in order,
 * zone last), TIME and TIME WITH TIME ZONE (likewise), each interval type, arrays (element
 * by element, then the shorter first). Any other pair logs QV_MSG_VALUES_NOT_COMPARABLE and
 * raises GENERAL_ERROR (0 when the raise returns). */
QV_API int32_t CompareValue_L(const QV_VALUE_T *a, const QV_VALUE_T *b);
/* True when b holds the same value as a, read as a's type: NULL is the same as NULL only;
 * numbers are equal exactly (a text b read as a number); texts by code point, not collated
 * ("e" with a combining accent is not "é"); BINARY and BLOB by length and bytes; dates,
 * times and intervals by their comparisons; arrays element by element. A file-backed CLOB or
 * BLOB on either side, a null pointer, or a b that does not read as a's type: false. */
QV_API uint8_t IsSameValue_L(const QV_VALUE_T *a, const QV_VALUE_T *b);
/* Folds one value into the running checksum *checksum (start a row with 0 and fold each
 * column in order) with crc32_L; returns the new checksum (0 and nothing done for a null
 * checksum). Bytes folded: a NULL value or null pointer the marker "~&%NULL%&~"; BOOLEAN its
 * byte; INTEGER and FLOAT their 8 bytes (little-endian); NUMBER its 34 accumulator bytes;
 * CHAR and CLOB their text in UTF-8 (a file-backed one: its file name); dates, times and
 * intervals their text form; an ARRAY each element in turn; BINARY and BLOB the bytes of
 * the value record from its payload's byte-pointer field on (so the checksum follows the
 * address of the bytes, not their content), as many as the payload length (for a
 * file-backed BLOB the characters of its file name), bytes past the record's end read as 0
 * and the record's padding as 0; other types nothing. */
QV_API uint32_t ChecksumValue_L(const QV_VALUE_T *value, uint32_t *checksum);

/* ---- Arithmetic on one value ---------------------------------------------------------- */

/* Add / subtract one: INTEGER, FLOAT, NUMBER (within its precision), a CHAR or CLOB
 * holding an integer (the text becomes the new integer, "%I64d"), a date (one day). Return
 * 0, or -1 with the value unchanged for NULL, other types or overflow. */
QV_API int32_t IncrementValue_L(QV_VALUE_T *value);
QV_API int32_t DecrementValue_L(QV_VALUE_T *value);
/* dest becomes its text followed by src's text form: a CHAR (a CLOB stays CLOB) owning the
 * joined text, in dest's encoding when dest is text, else UTF-8. A NULL side counts as
 * empty; both NULL leave dest NULL. A CHAR dest's nonzero length grows to the joined
 * length. Returns 0, -1 for a null dest. src may be dest. */
QV_API int32_t ConcatValue_L(QV_VALUE_T *dest, const QV_VALUE_T *src);

/* ---- Arrays -------------------------------------------------------------------------- */

/* Element count of an ARRAY value; 0 for anything else or a NULL array. */
QV_API int64_t ArrayValueCount_L(const QV_VALUE_T *value);
/* Element `index` (0-based) of an ARRAY value; null when out of range. The pointer holds
 * until the array is resized. */
QV_API QV_VALUE_T *ArrayValueItem_L(const QV_VALUE_T *value, int64_t index);
/* Resizes to `count` elements (new ones untyped and NULL; dropped ones freed). A value that
 * is not an ARRAY, or NULL, is freed and becomes an empty ARRAY first. Returns 0, or -1
 * (nothing changed) for a null value or a count below 0 or above INT32_MAX. */
QV_API int32_t ModifyArray_L(QV_VALUE_T *value, int64_t count);
/* Appends a deep copy of item (an array item becomes one nested element); the value becomes
 * an ARRAY as in ModifyArray_L. item may be an element of the array. Returns 0 or -1. */
QV_API int32_t AppendArrayValue_L(QV_VALUE_T *value, const QV_VALUE_T *item);
/* Frees element `index` and closes the gap. Returns 0, -1 when out of range. */
QV_API int32_t DeleteArrayValue_L(QV_VALUE_T *value, int64_t index);

/* ---- Dates ----------------------------------------------------------------------------- */

/* Sets a DATE or DATE WITH TIME ZONE value's day to the last of its month (first 0) or to 1.
 * Returns 0, or -1 for a null or NULL value or another type. */
QV_API int32_t MonthEnds_L(QV_VALUE_T *value, uint8_t first);

QV_EXTERN_C_END

#endif
