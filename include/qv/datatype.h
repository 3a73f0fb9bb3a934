/*
 * datatype.h - data-type codes, the data-type descriptor, the value record and the plain
 * records that the payloads of typed values are made of (internal dates and times, the two
 * intervals, the exact-decimal accumulator); the operations on descriptors; the library's
 * last-error text buffer.
 *
 * A type code is a 32-bit unsigned integer with exactly one bit set, so a set of acceptable
 * types is the OR of codes and the same field holds one type or such a mask; 0 is no type.
 * The descriptor is four 32-bit fields copied and zeroed as a unit; the value record and the
 * exact-decimal record both begin with it, so every descriptor operation can be handed
 * either (the address of the record is the address of its descriptor).
 *
 * The date and interval records are defined here, beside the descriptor, because a value's
 * payload holds them; the operations on them are declared in date.h and interval.h. The
 * exact-decimal operations are declared in precise.h.
 *
 * Bad input: a null descriptor makes every setter a no-op; unknown codes never fail (names
 * give "UNKNOWN", widths fall back to the precision, the merging operations leave their
 * inputs alone). Texts returned are heap texts the caller frees with free(); allocation
 * failures raise ALLOC_FAILURE from module "datatype".
 */
#ifndef QV_DATATYPE_H
#define QV_DATATYPE_H

#include <stddef.h>
#include <stdint.h>

#include "qv_export.h"
#include "qvstring.h"

QV_EXTERN_C_BEGIN

/* Type codes. */
#define QV_TYPE_CHAR 0x00001u
#define QV_TYPE_INTEGER 0x00002u
#define QV_TYPE_FLOAT 0x00004u
#define QV_TYPE_DATE 0x00008u
#define QV_TYPE_BOOLEAN 0x00010u
#define QV_TYPE_LIST 0x00020u
#define QV_TYPE_POINTER 0x00040u
#define QV_TYPE_NUMBER 0x00080u
#define QV_TYPE_ARRAY 0x00100u
#define QV_TYPE_BINARY 0x00200u
#define QV_TYPE_CLOB 0x00400u
#define QV_TYPE_BLOB 0x00800u
#define QV_TYPE_INTERVAL_DS 0x01000u
#define QV_TYPE_INTERVAL_YM 0x02000u
#define QV_TYPE_TIME 0x04000u
#define QV_TYPE_TIME_TZ 0x08000u
#define QV_TYPE_DATE_TZ 0x10000u

/* The data-type descriptor. */
typedef struct QV_DATATYPE_T {
    uint32_t type;     /* a type code, an OR of codes (a mask), or 0 */
    int32_t precision; /* length of CHAR and BINARY, digits of NUMBER, printed width ... */
    int32_t scale;     /* digits after the point of NUMBER; 0 elsewhere */
    uint32_t extra;    /* payload flags in a value; date-literal flag in an inferred DATE */
} QV_DATATYPE_T;

/* The internal date: DATE, TIME and their time-zone forms (a TIME has the date fields 0). */
typedef struct QV_DATE_T {
    int16_t year;     /* may be negative */
    uint8_t month;    /* 1..12 */
    uint8_t day;      /* 1..31 */
    uint8_t hour;     /* 0..23 */
    uint8_t minute;   /* 0..59 */
    uint8_t second;   /* 0..59 */
    int32_t fraction; /* nanoseconds, 0..999999999 */
    int16_t zone;     /* hours * 100 + minutes, signed: 530 for +05:30; 0 when not given */
} QV_DATE_T;

/* INTERVAL DAY TO SECOND: a sign and magnitudes. */
typedef struct QV_INTERVAL_DS_T {
    uint8_t negative; /* 1 when negative */
    uint32_t days;
    uint32_t hours;    /* 0..23 when normalised */
    uint32_t minutes;  /* 0..59 when normalised */
    uint32_t seconds;  /* 0..59 when normalised */
    uint32_t fraction; /* nanoseconds, 0..999999999 */
} QV_INTERVAL_DS_T;

/* INTERVAL YEAR TO MONTH: a sign and magnitudes. */
typedef struct QV_INTERVAL_YM_T {
    uint8_t negative; /* 1 when negative */
    uint32_t years;
    uint32_t months; /* 0..11 when normalised */
} QV_INTERVAL_YM_T;

/* The exact-decimal accumulator: the signed integer N of a NUMBER value N x 10^-scale.
 * Sign and magnitude; the magnitude is 256 bits in four 64-bit limbs, least significant
 * first, which holds every 77-digit value. Invariants kept by every operation: `used` is
 * the number of limbs up to the highest nonzero one (0 for zero), the limbs at and above
 * `used` are zero, and zero is never negative. A zero-filled accumulator is the value 0.
 * Significant bytes: 34 (32 of limbs, the sign and the count); the payload union rounds
 * the record up to its 8-byte alignment. */
#define QV_ACCUMULATOR_BYTES 34
typedef struct QV_ACCUMULATOR_T {
    uint64_t limb[4]; /* magnitude, least significant limb first */
    uint8_t negative; /* 1 when the value is below zero */
    uint8_t used;     /* limbs in use, 0..4 */
} QV_ACCUMULATOR_T;

struct QV_VALUE_T;

/* A value's payload, by its type. */
typedef union QV_PAYLOAD_T {
    QV_STRING_T string; /* CHAR, CLOB (a file-backed one holds the file's name) */
    struct {
        uint32_t length; /* bytes */
        uint8_t *bytes;
    } binary;                     /* BINARY, BLOB */
    int64_t integer;              /* INTEGER */
    double real;                  /* FLOAT */
    uint8_t boolean;              /* BOOLEAN: 0 false, 1 true */
    QV_ACCUMULATOR_T number;      /* NUMBER (the whole value is then an exact decimal) */
    QV_DATE_T date;               /* DATE, TIME and their time-zone forms */
    QV_INTERVAL_DS_T interval_ds; /* INTERVAL DAY TO SECOND */
    QV_INTERVAL_YM_T interval_ym; /* INTERVAL YEAR TO MONTH */
    struct QV_VALUE_T *array;     /* ARRAY: a header record whose payload.integer is the
                                     element count, then the elements */
} QV_PAYLOAD_T;

/* The value record: one typed datum. Zeroed as a unit; a zeroed record is an untyped
 * non-NULL value. A NUMBER value is also an exact-decimal record (QV_PRECISE_T). */
typedef struct QV_VALUE_T {
    QV_DATATYPE_T descriptor; /* type, precision, scale; extra holds the payload flags */
    QV_PAYLOAD_T payload;
    uint8_t is_null;      /* nonzero: NULL, the payload is meaningless */
    uint8_t owns_payload; /* nonzero: the payload's memory belongs to this value */
    uint8_t eval_flags;   /* the expression evaluator's; copied, never read here */
    void *eval_data;      /* the expression evaluator's; copied, never read here */
} QV_VALUE_T;

/* The exact-decimal record: a value record of type NUMBER(p, s), 1 <= p <= 77,
 * 0 <= s <= p, whose accumulator holds the unscaled integer. */
typedef QV_VALUE_T QV_PRECISE_T;

/* One row of the property table (constant data, in table order). */
typedef struct QV_DATATYPE_SPEC_T {
    uint32_t code;           /* a single type code; 0 in the terminating "UNKNOWN" row */
    const char *name;        /* "CHAR", "NUMBER", "DATE WITH TIME ZONE" ... */
    uint8_t declarable;      /* a declaration or a lookup by name may match it */
    uint8_t takes_precision; /* takes a precision (length) */
    uint8_t takes_scale;     /* takes a scale */
    uint8_t reserved;        /* zero */
    int32_t max_precision;   /* -1: unlimited */
    int32_t max_scale;       /* -1: unlimited */
} QV_DATATYPE_SPEC_T;

/* Results of ParseVariableType_L. */
#define QV_PARSE_TYPE_OK 0
#define QV_PARSE_TYPE_NO_PRECISION (-1)    /* "(" after a type that takes no precision */
#define QV_PARSE_TYPE_NO_CLOSE (-2)        /* the text after "(" does not end with ")" */
#define QV_PARSE_TYPE_BAD_PRECISION (-3)   /* precision empty or not an integer */
#define QV_PARSE_TYPE_PRECISION_RANGE (-4) /* precision below 0 or above the maximum */
#define QV_PARSE_TYPE_NO_SCALE (-5)        /* a scale for a type that takes none */
#define QV_PARSE_TYPE_BAD_SCALE (-6)       /* scale empty or not an integer */
#define QV_PARSE_TYPE_SCALE_RANGE (-7)     /* scale above 77, or negative and not below p */
#define QV_PARSE_TYPE_SIZE_MISSING (-8)    /* CHAR, NUMBER or BINARY declared without a size */

/* The library's last-error text buffer: the text of the last number-recognition or parse
 * failure, overwritten by the next one (process-wide, not thread-safe). */
#define QV_MSGBUF8_SIZE 1024
QV_API extern char Msgbuf8[QV_MSGBUF8_SIZE];

/* Property query: sets both limits and returns 0 for CHAR and BINARY (maximum length
 * 8000, no scale), NUMBER (77, 77), and INTEGER, FLOAT, DATE, BOOLEAN, ARRAY, both
 * intervals, TIME, TIME WITH TIME ZONE, DATE WITH TIME ZONE (-1, -1); returns -1 for LIST,
 * POINTER, CLOB, BLOB and anything else, the limits then -1. Either pointer may be null. */
QV_API int32_t DataTypeProperties_L(uint32_t code, int32_t *max_precision, int32_t *max_scale);

/* Zeroes all four fields. */
QV_API void InitDataType_L(QV_DATATYPE_T *desc);
/* Zeroes the descriptor, then sets type, precision and scale; returns desc. */
QV_API QV_DATATYPE_T *SetDataType_L(QV_DATATYPE_T *desc, uint32_t type, int32_t precision,
                                    int32_t scale);
/* Copies all four fields; nothing when either pointer is null. */
QV_API void CopyDataType_L(QV_DATATYPE_T *dest, const QV_DATATYPE_T *src);
/* The property-table row whose code equals `code`, else the "UNKNOWN" row; never null. */
QV_API const QV_DATATYPE_SPEC_T *GetDataTypeSpec_L(uint32_t code);
/* The code of the declarable type named `name` (whole text, any case); 0 if none. */
QV_API uint32_t DataType_L(const char *name);
/* A heap text naming every type in `mask`, in table order: "CHAR, INTEGER or FLOAT";
 * "UNKNOWN" when no known bit is set. */
QV_API char *DataTypeName_L(uint32_t mask);
/* A heap text declaring the type: "NUMBER(10,2)", "CHAR(20)", "DATE"; without the name
 * (with_name 0) only "(10,2)", and null for a type that takes no precision. */
QV_API char *DisplayDataType_L(const QV_DATATYPE_T *desc, uint8_t with_name);
/* Parses a declaration "NAME", "NAME(p)" or "NAME(p, s)" into desc (zeroed first).
 * Returns 0 or one of the QV_PARSE_TYPE_ codes; an unknown name returns 0 with type 0. */
QV_API int32_t ParseVariableType_L(const char *text, QV_DATATYPE_T *desc);
/* Characters needed to print a value of the type. */
QV_API int32_t DataTypeAsChar_L(const QV_DATATYPE_T *desc);
/* Resolves a mask to its highest-coded known type with legal precision and scale (with
 * keep_zero_precision 0, a zero precision becomes the type's maximum). Returns desc, or
 * null (desc unchanged) when the mask names no known type. */
QV_API QV_DATATYPE_T *MakeRealDataType_L(QV_DATATYPE_T *desc, uint8_t keep_zero_precision);
/* Replaces dest by src unless src's type is 0; a CHAR(0) result takes dest's old printed
 * width as its length. Returns 1 when replaced, 0 otherwise. */
QV_API uint8_t OverrideDataType_L(QV_DATATYPE_T *dest, const QV_DATATYPE_T *src);
/* Narrows a NUMBER to INTEGER or FLOAT where they hold it; an INTEGER leaves with
 * precision 0. */
QV_API void CheapestDataType_L(QV_DATATYPE_T *desc);
/* Widens *best so that it also holds values of *other. When other's type wins, other's
 * own record is written too (its type, or its length and scale); pass a scratch copy where
 * that matters. keep_precision 0 counts FLOAT as (15,6), INTEGER as 19, BOOLEAN as 1. */
QV_API void BestDataType_L(QV_DATATYPE_T *best, QV_DATATYPE_T *other, uint8_t keep_precision);
/* The type of `left operator right` ("+", "-", "*", "/") into result's descriptor. Resolves
 * both operands' masks in place; when either is NUMBER, clears both NULL flags and lets
 * PreciseCalculate_L decide precision and scale. Returns 0, or -1 when an operand cannot
 * be read as a NUMBER. */
QV_API int32_t BestResultType_L(QV_PRECISE_T *result, QV_VALUE_T *left, QV_VALUE_T *right, char op);
/* The type of a literal written as text: quoted text, NULL, a number, a date literal (once
 * the date module is initialised), else CHAR of the text's length. Returns desc. */
QV_API QV_DATATYPE_T *WhichDataType_L(const char *text, QV_DATATYPE_T *desc);

QV_EXTERN_C_END

#endif
