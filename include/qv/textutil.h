/*
 * textutil.h - the library's general byte routines on terminated texts: wildcard
 * matching, soundex, padding, trimming, translation, case copying, quote recognition,
 * the row checksum fold and UUIDs.
 *
 * The plain routines work on bytes (one byte, one character); the ...8 forms work on
 * UTF-8 characters. The counted strings call the byte forms when their encoding lets bytes
 * stand for characters, and the UTF-8 forms otherwise; the two give the same answers on
 * ASCII text. Null texts are treated as empty unless a routine says otherwise.
 */
#ifndef QV_TEXTUTIL_H
#define QV_TEXTUTIL_H

#include <stddef.h>
#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* SQL LIKE matching, case-sensitive: "%" matches any run of characters (also none), "_"
 * exactly one character, "\" makes the next pattern character literal (a "\" at the end
 * of the pattern is itself literal). Returns 1 on a match. A null pattern matches
 * anything; a null text is empty. Is_Like8_L counts "_" as one UTF-8 character and
 * compares characters by code point: every invalid sequence (one character, as
 * DecodeUTF8_L steps over it) reads as U+FFFD, and a literal never matches part of a
 * character. */
QV_API uint8_t Is_Like_L(const char *text, const char *pattern);
QV_API uint8_t Is_Like8_L(const char *text, const char *pattern);

/* American Soundex of the ASCII letters of `text`: the first letter and three digits
 * ("Robert" -> "R163"). `out` must hold 5 bytes; a text without letters gives "".
 * Returns out. */
QV_API char *Soundex_L(const char *text, char *out);

/* Pads `text` to exactly `length` characters with repetitions of `pad` (a single space
 * when pad is null or empty), on the left when `at_left` is non-zero, else on the right;
 * a longer text is cut to its first `length` characters; length <= 0 gives "". Returns a
 * heap text (caller frees). Pad8_L counts UTF-8 characters. */
QV_API char *Pad_L(const char *text, int32_t length, const char *pad, int32_t at_left);
QV_API char *Pad8_L(const char *text, int32_t length, const char *pad, int32_t at_left);

/* Where to trim. */
enum { QV_TRIM_LEFT = 1, QV_TRIM_RIGHT = 2, QV_TRIM_BOTH = 3 };
/* Trims, in place, the characters of `set` (white space when set is null: space, tab,
 * CR, LF, VT, FF for the byte form, every Unicode white space for the UTF-8 form) from
 * the start, the end or both. Returns text. */
QV_API char *TrimUtil_L(char *text, const char *set, int32_t where);
QV_API char *TrimUtil8_L(char *text, const char *set, int32_t where);
/* Removes trailing white space (including CR and LF) in place; returns text. */
QV_API char *RTrim_L(char *text);

/* Maps, in place, every byte of text found in `from` to the byte at the same position in
 * `to`; bytes of `from` beyond the length of `to` are removed. Returns text. */
QV_API char *Translate_L(char *text, const char *from, const char *to);

/* Copies `source` into `target` (which holds strlen(source)+1 bytes) in the letter case of
 * `model`: all upper when the model's letters are all upper, first letter upper and the
 * rest lower when the model starts with an upper-case letter, else all lower. Returns
 * target. */
QV_API char *CopyCaps_L(char *target, const char *source, const char *model);

/* True when `text` is a single-quoted literal: it starts and ends with "'" and every quote
 * inside is doubled. *length (when given) receives the length of the text it stands for
 * (doubled quotes counted once); when the text is not quoted, its own length. */
QV_API uint8_t IsQuoted_L(const char *text, int32_t *length);

/* Folds `length` bytes into a running checksum: the reflected CRC-32 table of polynomial
 * 0xEDB88320 applied byte by byte from `previous` as it is (no inversion on entry), the
 * result inverted on exit. */
QV_API uint32_t crc32_L(uint32_t previous, const void *bytes, size_t length);

/* A random (version 4) UUID as 36 characters of text, lower-case hexadecimal with hyphens,
 * into `out`, which holds at least 37 bytes. Returns out. */
QV_API char *CreateUUID_L(char *out);

QV_EXTERN_C_END

#endif
