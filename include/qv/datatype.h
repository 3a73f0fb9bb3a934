/*
 * datatype.h - data-type codes, the data-type descriptor, and the plain records that the
 * payloads of typed values are made of (internal dates and times, the two intervals).
 *
 * A type code is a 32-bit unsigned integer with exactly one bit set, so a set of acceptable
 * types is the OR of codes and the same field holds one type or such a mask; 0 is no type.
 * The descriptor is four 32-bit fields copied and zeroed as a unit; the value record and the
 * exact-decimal record both begin with it.
 *
 * The date and interval records are defined here, beside the descriptor, because a value's
 * payload holds them; the operations on them are declared in date.h and interval.h.
 */
#ifndef QV_DATATYPE_H
#define QV_DATATYPE_H

#include <stdint.h>

#include "qv_export.h"

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

QV_EXTERN_C_END

#endif
