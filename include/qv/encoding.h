/*
 * encoding.h - the encoding service: descriptors of character encodings, conversion
 * between them, code-point iteration, UTF-8 helpers and code-point classes, over ICU.
 *
 * A descriptor is made once per encoding and lives until the process ends; compare
 * descriptors by pointer. What the counted strings consult of one: the minimum and maximum
 * bytes per character (fixed width when equal), whether bytes below 0x80 are those ASCII
 * characters, whether the text can be handled as UTF-8 directly (UTF-8 itself, and ASCII),
 * and the width of the terminator (1 for 8-bit and multibyte encodings, 2 for UTF-16,
 * 4 for UTF-32).
 *
 * Invalid byte sequences: ICU's converters report them and the service substitutes, so a
 * caller always gets a result. Conversion puts the target encoding's substitution
 * character (U+FFFD in Unicode encodings, 0x1A in most 8-bit ones) for every invalid or
 * unmappable sequence, default-ignorable characters (U+FEFF, U+200B ...) included;
 * iteration yields U+FFFD for each, and the same code points that conversion reads. No
 * routine reads past the length it is given, or past the terminator when the length is -1.
 *
 * The generic "UTF-16" and "UTF-32" descriptors read a leading byte-order mark as the byte
 * order of the text (the mark is not a character) and a text without one in the platform's
 * order. What is written in them is in the platform's order without a mark, unless the
 * text starts with U+FEFF, which then gets a mark in front so that it reads back.
 */
#ifndef QV_ENCODING_H
#define QV_ENCODING_H

#include <stdint.h>

#include "qv_export.h"
#include "qvstring.h"

QV_EXTERN_C_BEGIN

struct QV_ENCODING_T {
    const char *name;         /* canonical name, e.g. "UTF-8", "ISO-8859-1" */
    const char *icu_name;     /* the ICU converter name */
    int32_t min_bytes;        /* fewest bytes one character takes */
    int32_t max_bytes;        /* most bytes one character takes */
    int32_t terminator_width; /* zero bytes that end a text */
    uint8_t ascii_compatible; /* bytes below 0x80 are those ASCII characters */
    uint8_t utf8_direct;      /* the text can be handled as UTF-8 directly */
};

/* Descriptor for any name or alias ICU knows (case-insensitive); null for an unknown or
 * null name. */
QV_API const QV_ENCODING_T *LookupEncoding_L(const char *name);
/* The platform encoding (UTF-8 here), and the common ones. UTF-16 and UTF-32 are in the
 * platform's byte order, without a byte-order mark. */
QV_API const QV_ENCODING_T *PlatformEncoding_L(void);
QV_API const QV_ENCODING_T *UTF8Encoding_L(void);
QV_API const QV_ENCODING_T *ASCIIEncoding_L(void);
QV_API const QV_ENCODING_T *Latin1Encoding_L(void);
QV_API const QV_ENCODING_T *UTF16Encoding_L(void);
QV_API const QV_ENCODING_T *UTF32Encoding_L(void);

/* Converts `length` bytes of `text` (-1: up to the source's terminator) from `from` to
 * `to` (null descriptors mean the platform encoding). *out receives a heap text ended by
 * the target's terminator (caller frees), *out_length (when given) its byte length
 * without the terminator. Returns 0, or -1 for a null text or out (nothing allocated).
 * Raises ALLOC_FAILURE when memory runs out. */
QV_API int32_t ConvertEncoding_L(const QV_ENCODING_T *from, const char *text, int32_t length,
                                 const QV_ENCODING_T *to, char **out, int32_t *out_length);
/* The same into the caller's buffer of `capacity` bytes (room for the terminator
 * included; a buffer exactly as big as the result and its terminator is big enough).
 * Returns the byte length written, -1 for bad arguments, -2 when the buffer is too small
 * (the buffer then holds an empty text when capacity allows). */
QV_API int32_t ConvertEncodingNoAlloc_L(const QV_ENCODING_T *from, const char *text, int32_t length,
                                        const QV_ENCODING_T *to, char *buffer, int32_t capacity);

/* Code-point iteration over a text in any encoding. */
typedef struct QV_CODEPOINT_ITER_T {
    const QV_ENCODING_T *encoding;
    const char *position; /* next byte to read */
    const char *end;      /* one past the last byte */
    void *converter;      /* ICU converter, when the encoding needs one */
} QV_CODEPOINT_ITER_T;

/* Starts at `text` (`length` bytes, -1: up to the terminator). For the generic UTF-16 and
 * UTF-32, `encoding` becomes the ordered descriptor the text's mark (or its absence)
 * names, and `position` starts after the mark. Returns 0, -1 for a null iterator or an
 * encoding ICU cannot open. */
QV_API int32_t CodePointIterInit_L(QV_CODEPOINT_ITER_T *iter, const QV_ENCODING_T *encoding,
                                   const char *text, int32_t length);
/* The next code point, or -1 at the end. Invalid sequences and lone surrogates give
 * U+FFFD. Through ICU a character may be read with the bytes after it (a converter looking
 * for a trail surrogate), so `position` only says how far the reading has gone. */
QV_API int32_t NextCodePoint_L(QV_CODEPOINT_ITER_T *iter);
/* Releases what the iterator holds; safe to call twice. */
QV_API void CodePointIterEnd_L(QV_CODEPOINT_ITER_T *iter);
/* Writes one code point in `encoding` into `buffer`; returns the bytes written (no
 * terminator; U+FEFF in the generic UTF-16 and UTF-32 with a mark before it), or -1 when it
 * does not fit or cannot be encoded. */
QV_API int32_t EncodeCodePoint_L(const QV_ENCODING_T *encoding, int32_t code_point, char *buffer,
                                 int32_t capacity);

/* UTF-8 helpers. UTF8TrailBytes_L[b] is the number of trail bytes a lead byte b announces
 * (0 for ASCII, trail and invalid bytes). */
QV_API extern const uint8_t UTF8TrailBytes_L[256];
/* Decodes one character from at most `length` bytes; stores it (U+FFFD when invalid) and
 * returns the bytes used: at least 1 when length > 0, 0 when length <= 0. Overlong forms,
 * surrogates and values past U+10FFFF are invalid; as in ICU, one U+FFFD covers the longest
 * start of a well-formed sequence (a lone lead or trail byte, or a sequence cut short). */
QV_API int32_t DecodeUTF8_L(const char *text, int32_t length, int32_t *code_point);
/* Characters in a terminated UTF-8 text (0 for null). */
QV_API int32_t StrlenUTF8_L(const char *text);
/* Case-insensitive comparison of terminated UTF-8 texts by full case folding; null sorts
 * first. Returns negative, 0 or positive. */
QV_API int32_t StricmpUTF8_L(const char *left, const char *right);
/* True when the first `length` bytes (-1: up to the terminator) are all below 0x80. */
QV_API uint8_t IsASCIIString_L(const char *text, int32_t length);

/* Code-point classes and case, from ICU's properties. White space is the Unicode White_Space
 * property (on ASCII: space, tab, CR, LF, VT, FF); case mappings are the simple ones. */
QV_API uint8_t IsSpaceCodePoint_L(int32_t code_point);
QV_API uint8_t IsDigitCodePoint_L(int32_t code_point);
QV_API uint8_t IsAlphaCodePoint_L(int32_t code_point);
QV_API uint8_t IsAlnumCodePoint_L(int32_t code_point);
QV_API uint8_t IsUpperCodePoint_L(int32_t code_point);
QV_API uint8_t IsLowerCodePoint_L(int32_t code_point);
QV_API int32_t ToUpperCodePoint_L(int32_t code_point);
QV_API int32_t ToLowerCodePoint_L(int32_t code_point);

QV_EXTERN_C_END

#endif
