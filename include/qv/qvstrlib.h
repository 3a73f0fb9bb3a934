/*
 * qvstrlib.h - the counted-string family: operations on QV_STRING_T that count characters,
 * not bytes, whatever the string's encoding.
 *
 * Every member works on the bytes directly when bytes stand for characters (a single-byte
 * ASCII-compatible encoding, or an ASCII-compatible encoding holding only ASCII text), and
 * otherwise walks the text code point by code point (UTF-8, UTF-16 and UTF-32 decoded
 * inline, other encodings through the encoding service), converting the result back to the
 * string's encoding. Both ways give the same answers. Members that look at character
 * properties (classes, case, white space) take the byte way only for ASCII text: a
 * single-byte text with bytes above 0x7F is walked by code point so that, for example, a
 * Latin-1 "é" is a letter.
 *
 * Conventions that hold for every member:
 * - Null records and records with a null text behave as empty: lengths 0, tests false,
 *   searches 0, copies null. An in-place edit of a null text leaves it null.
 * - Positions and counts are in characters, 1-based; 0 means "not found".
 * - A null encoding means the platform encoding (UTF-8).
 * - Output records (`dst`, `out`, `rest`) are overwritten without freeing what they held,
 *   like Astrcpy_SL: pass a fresh or SetNull_SL record. Output text is in the encoding of
 *   the first string argument unless a member says otherwise.
 * - In-place edits replace the record's text and free the old one; they return the new
 *   length in characters unless a member says otherwise.
 * - A second string argument in another encoding is read through its own encoding.
 * - Case mapping is the simple one-to-one mapping of each code point (German sharp s stays
 *   as it is); a mapped character the string's encoding cannot hold is left unchanged.
 * - White space is Unicode white space (for ASCII: space, tab, LF, VT, FF, CR).
 * - Invalid byte sequences read as U+FFFD, one per maximal invalid subpart, on both ways
 *   (so are the bytes of a single-byte encoding that are no character of it, such as bytes
 *   above 0x7F in ASCII). A member that builds a text writes each of them as the
 *   encoding's substitution character (U+FFFD in UTF-8, UTF-16 and UTF-32, 0x1A in most
 *   8-bit encodings); the byte way is taken only over bytes that are all characters. Only
 *   the copies keep bytes as they are: Astrcpy_SL, AstrcpyE_SL, Astrncpy_SL, Astrcat_SL
 *   within one encoding, and the in-place cut of TruncateString_SL.
 * - A U+0000 that a stateful encoding yields inside a text (UTF-7 "+AAA-") cannot stand in a
 *   terminated text: it reads as U+FFFD too.
 * - Null output records are accepted: the member stores nothing and returns its "nothing"
 *   result (null, 0 or -1 as it says).
 * - Allocation failures raise ALLOC_FAILURE or ZERO_ALLOC_FAILURE (module "qvstrlib");
 *   with no status context open the member then returns its "nothing" result (null or a
 *   negative status) and leaves no half-built text behind.
 * Not thread-safe beyond the library's rule: one thread at a time.
 */
#ifndef QV_QVSTRLIB_H
#define QV_QVSTRLIB_H

#include <stdarg.h>
#include <stdint.h>

#include "encoding.h"
#include "qv_export.h"
#include "qvstring.h"
#include "textutil.h"

QV_EXTERN_C_BEGIN

/* ---- Allocation and copy ---------------------------------------------------------- */

/* Sets text and encoding null without freeing; returns s (null s is ignored). */
QV_API QV_STRING_T *SetNull_SL(QV_STRING_T *s);
/* SetNull, then a zero-filled text of `bytes` bytes (negative: 0) plus the encoding's
 * terminator, in `encoding`. Returns s; the text stays null when allocation fails. */
QV_API QV_STRING_T *PreAlloc_SL(QV_STRING_T *s, const QV_ENCODING_T *encoding, int32_t bytes);
/* Frees the text and sets it null; the encoding stays. */
QV_API void FreeString_SL(QV_STRING_T *s);
/* dst becomes a deep copy of src (its encoding and bytes); null when src or its text is
 * null. The old text of dst is not freed. Returns dst. */
QV_API QV_STRING_T *Astrcpy_SL(QV_STRING_T *dst, const QV_STRING_T *src);
/* As Astrcpy_SL from a plain text ended by the terminator of `encoding`. */
QV_API QV_STRING_T *AstrcpyE_SL(QV_STRING_T *dst, const char *text, const QV_ENCODING_T *encoding);
/* Copy of the bytes of the first n characters of src (all of them when n exceeds the
 * length, none when n <= 0). Returns dst. */
QV_API QV_STRING_T *Astrncpy_SL(QV_STRING_T *dst, const QV_STRING_T *src, int32_t n);
/* Appends src to dst, converted to dst's encoding; src may be dst itself or part of its
 * text. When dst's text is null, dst becomes a copy of src. In the generic UTF-16 and
 * UTF-32 and in stateful encodings (ISO-2022-JP, UTF-7 ...) the characters are joined, not
 * the bytes: the result has no byte-order mark inside and no shift state carried over. In
 * other encodings the bytes are joined, so a dst ending in a cut sequence may make one
 * character with the bytes that follow. Returns dst. */
QV_API QV_STRING_T *Astrcat_SL(QV_STRING_T *dst, const QV_STRING_T *src);
QV_API QV_STRING_T *AstrcatE_SL(QV_STRING_T *dst, const char *text, const QV_ENCODING_T *encoding);
/* dst receives the text of the library's formatter (alloc.h), in UTF-8. Returns dst. */
QV_API QV_STRING_T *Asprintf_SL(QV_STRING_T *dst, const char *format, ...);
QV_API QV_STRING_T *VAsprintf_SL(QV_STRING_T *dst, const char *format, va_list arguments);
/* dst becomes the one-character string of `code_point` in `encoding`. Returns dst, or null
 * (dst null) for a value that is not a Unicode scalar value or that the encoding cannot
 * hold, and for U+0000, which would end the text. */
QV_API QV_STRING_T *CodePointToString_SL(QV_STRING_T *dst, int32_t code_point,
                                         const QV_ENCODING_T *encoding);

/* ---- Measurement ------------------------------------------------------------------- */

QV_API int32_t Strlen_SL(const QV_STRING_T *s);
/* Bytes of the text, with the terminator when with_terminator is non-zero. */
QV_API int32_t Bytelen_SL(const QV_STRING_T *s, uint8_t with_terminator);
/* Bytes taken by the first n characters, as they are read from the text (n <= 0: 0; all of
 * the characters or more: all bytes, a closing shift sequence included). */
QV_API int32_t BytesForChars_SL(const QV_STRING_T *s, int32_t n);
/* Copies the bytes of the first n characters, as many whole characters as fit, into
 * `buffer` of `capacity` bytes and ends them with the encoding's terminator (one pass over
 * the text, so n = INT32_MAX asks for all that fit). Returns the bytes copied (without
 * terminator), or -1 when buffer is null or capacity is smaller than the terminator. */
QV_API int32_t GetBytesFromChars_SL(const QV_STRING_T *s, int32_t n, char *buffer,
                                    int32_t capacity);
/* True for a null record, a null text or an empty text. */
QV_API uint8_t IsEmpty_SL(const QV_STRING_T *s);

/* ---- Classification ---------------------------------------------------------------- */

/* Whole-string tests: true when the string has at least one character and every character
 * is white space / a letter / a letter or digit / a decimal digit. Empty gives false. */
QV_API uint8_t IsSpaceStr_SL(const QV_STRING_T *s);
QV_API uint8_t IsAlphaStr_SL(const QV_STRING_T *s);
QV_API uint8_t IsAlnum_SL(const QV_STRING_T *s);
QV_API uint8_t IsDigit_SL(const QV_STRING_T *s);
/* Whole-string case tests: true when the string has at least one cased letter and none of
 * the other case ("abc 1" is lower). Empty gives false. */
QV_API uint8_t IsLower_SL(const QV_STRING_T *s);
QV_API uint8_t IsUpper_SL(const QV_STRING_T *s);
/* First-character tests: true when the string's first character is white space / a
 * letter. Empty gives false. */
QV_API uint8_t IsSpace_SL(const QV_STRING_T *s);
QV_API uint8_t IsAlpha_SL(const QV_STRING_T *s);
/* Number tests with the decimal and grouping separators of ICU's default locale, read
 * once. White space around the number and one leading sign are allowed; grouping
 * separators only between digits of the integer part. An integer has no decimal
 * separator and no exponent; a float has a decimal separator with a digit on at least one
 * side, or an exponent ("e" or "E", optional sign, digits), or both; numeric is either. */
QV_API uint8_t IsLocaleInteger_SL(const QV_STRING_T *s);
QV_API uint8_t IsLocaleFloat_SL(const QV_STRING_T *s);
QV_API uint8_t IsLocaleNumeric_SL(const QV_STRING_T *s);
/* Position of the first white-space character, 0 when there is none. */
QV_API int32_t ScanForWhiteSpace_SL(const QV_STRING_T *s);

/* ---- Case (in place; each returns s) ------------------------------------------------ */

QV_API QV_STRING_T *ToLower_SL(QV_STRING_T *s);
QV_API QV_STRING_T *ToUpper_SL(QV_STRING_T *s);
/* First letter of each word upper case, the other letters lower case; words are runs of
 * letters and digits. */
QV_API QV_STRING_T *Initcap_SL(QV_STRING_T *s);

/* ---- Search ------------------------------------------------------------------------ */

/* Position of the first `code_point`, 0 when absent. */
QV_API int32_t Strchr_SL(const QV_STRING_T *s, int32_t code_point);
/* Position of the `occurrence`-th match of `search` in s. start > 0: searching forward
 * from that position; start < 0: the match may begin no later than that position counted
 * from the end (-1 the last character), searching backward. Occurrences may overlap.
 * Returns 0 when not found, for start 0, occurrence < 1, or a null search or one of no
 * characters (a shift sequence alone is empty). */
QV_API int32_t InString_SL(const QV_STRING_T *s, const QV_STRING_T *search, int32_t start,
                           int32_t occurrence);
/* Non-overlapping occurrences of `search`, left to right (0 for an empty search). */
QV_API int32_t CountString_SL(const QV_STRING_T *s, const QV_STRING_T *search);
/* Quote-aware split at the first `c` outside double quotes: rest receives the characters
 * after it, s keeps those before it (s unchanged and rest empty when there is none).
 * Returns 1; 0 (rest untouched) for a null record or text. */
QV_API uint8_t Strqchr_SL(QV_STRING_T *s, QV_STRING_T *rest, int32_t c);

/* ---- Edit ------------------------------------------------------------------------- */

/* In place: replaces `length` characters from `start` (1-based; length < 0 to the end)
 * with `replacement` (null: nothing). A start past the end appends. Returns the new
 * length, or -1 for start < 1 (s unchanged). */
QV_API int32_t ReplaceSubString_SL(QV_STRING_T *s, int32_t start, int32_t length,
                                   const QV_STRING_T *replacement);
/* In place: every non-overlapping occurrence of `search`, left to right, replaced by
 * `replacement` (null: removed). Returns the number of replacements. */
QV_API int32_t ReplaceString_SL(QV_STRING_T *s, const QV_STRING_T *search,
                                const QV_STRING_T *replacement);
/* out: s with every character found in `from` replaced by the character at the same
 * position of `to` (the first position when `from` repeats it), or removed when `to` is
 * shorter. Returns out's byte length; 0 with out null for a null s. */
QV_API int32_t Translate_SL(const QV_STRING_T *s, const QV_STRING_T *from, const QV_STRING_T *to,
                            QV_STRING_T *out);
/* out: the field-th field (1-based) of s, fields separated by the text `separator` (null or
 * empty: ","); adjacent separators make empty fields. Returns the field's length, -1 when
 * s has fewer fields (out null), -2 for field < 1 (out null). */
QV_API int32_t ExtractString_SL(const QV_STRING_T *s, int32_t field, const QV_STRING_T *separator,
                                QV_STRING_T *out);
/* out: `length` characters of s from `start` (1-based; 0 counts as 1; negative counts from
 * the end, -1 being the last character); length -1 means to the end. The window is cut to
 * the string, so a start before the beginning shortens it and one past the end gives an
 * empty text. Returns the characters copied, -1 for a null s, -2 for length < -1 (out null
 * in both). */
QV_API int32_t SubString_SL(const QV_STRING_T *s, int32_t start, int32_t length, QV_STRING_T *out);
/* In place: keeps the first n characters (n < 0: none). */
QV_API int32_t TruncateString_SL(QV_STRING_T *s, int32_t n);
/* In place: removes every character that occurs in `set`. */
QV_API int32_t RemoveChars_SL(QV_STRING_T *s, const QV_STRING_T *set);
/* In place: remove the first / last character; return its code point, -1 when empty. */
QV_API int32_t RemoveFirstChar_SL(QV_STRING_T *s);
QV_API int32_t RemoveLastChar_SL(QV_STRING_T *s);
/* dst: the letters and digits of src, in src's encoding. Returns dst. */
QV_API QV_STRING_T *AStripAlNum_SL(QV_STRING_T *dst, const QV_STRING_T *src);
/* In place: every non-printable character (controls, format characters, unassigned code
 * points, U+FFFD from invalid bytes) becomes `replacement`, or is removed when
 * replacement is negative, 0 or a character the encoding cannot hold. */
QV_API int32_t MakePrintable_SL(QV_STRING_T *s, int32_t replacement);
/* In place: removes comments, a "//" outside single or double quotes up to (not
 * including) the next line feed or the end. */
QV_API int32_t StripComments_SL(QV_STRING_T *s);
/* In place: trims white space at both ends and turns each inner run of white space into
 * one space. */
QV_API int32_t Collapse_SL(QV_STRING_T *s);
/* In place: trims the characters of `set` (null or empty: white space) where says:
 * QV_TRIM_LEFT, QV_TRIM_RIGHT or QV_TRIM_BOTH (textutil.h; other values trim both). */
QV_API int32_t TrimUtil_SL(QV_STRING_T *s, const QV_STRING_T *set, int32_t where);
/* In place: pads s to exactly `length` characters with repetitions of `pad` (null or of
 * no characters: one space), on the left when at_left is non-zero; a longer s is cut to
 * its first `length` characters; length <= 0 gives an empty text. */
QV_API int32_t Pad_SL(QV_STRING_T *s, int32_t length, const QV_STRING_T *pad, uint8_t at_left);
/* out: the soundex code of s's ASCII letters (first letter and three digits, "" without
 * letters), in the ASCII encoding. Returns 1, 0 (out null) for a null s. */
QV_API int32_t Soundex_SL(const QV_STRING_T *s, QV_STRING_T *out);
/* Reads a decimal integer (white space around it, one sign, Unicode decimal digits) into
 * *value. Returns 0, -1 when s is not an integer, -2 when it does not fit 64 bits. */
QV_API int32_t ToInteger_SL(const QV_STRING_T *s, int64_t *value);

/* ---- Comparison --------------------------------------------------------------------- */

/* By code point; null equals empty. Returns -1, 0 or 1. */
QV_API int32_t Strcmp_SL(const QV_STRING_T *a, const QV_STRING_T *b);
/* By the collation of ICU's default locale (collator made once). Returns -1, 0 or 1. */
QV_API int32_t Strcoll_SL(const QV_STRING_T *a, const QV_STRING_T *b);
/* Compares the first n characters (n < 0: whole strings), case-insensitively unless
 * case_sensitive. Returns negative, 0 or positive. */
QV_API int32_t Strcomp_SL(const QV_STRING_T *a, const QV_STRING_T *b, int32_t n,
                          uint8_t case_sensitive);
QV_API int32_t StrcompE_SL(const QV_STRING_T *a, const char *text, const QV_ENCODING_T *encoding,
                           int32_t n, uint8_t case_sensitive);
/* SQL LIKE with the wildcards of Is_Like_L ("%", "_", "\" escape), characters compared by
 * code point. A null pattern record or pattern text matches anything (1); a null text is
 * matched as empty. */
QV_API uint8_t Is_Like_SL(const QV_STRING_T *text, const QV_STRING_T *pattern);

QV_EXTERN_C_END

#endif
