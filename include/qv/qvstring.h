/*
 * qvstring.h - the counted string record: a heap text with the encoding it is written in.
 *
 * The record owns its text. A null text is the null string; a null encoding means the
 * platform encoding. The text ends with a terminator as wide as the encoding's
 * terminator width (one zero byte for 8-bit and multibyte encodings).
 */
#ifndef QV_QVSTRING_H
#define QV_QVSTRING_H

#include "qv_export.h"

QV_EXTERN_C_BEGIN

typedef struct QV_ENCODING_T QV_ENCODING_T;

typedef struct QV_STRING_T {
    char *text;
    const QV_ENCODING_T *encoding;
} QV_STRING_T;

QV_EXTERN_C_END

#endif
