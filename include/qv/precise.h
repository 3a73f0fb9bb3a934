/*
 * precise.h - exact decimal numbers: NUMBER(p, s) values of up to 77 digits.
 *
 * An exact decimal is a value record (datatype.h) of type NUMBER with precision p (1..77)
 * and scale s (0..p) whose accumulator holds the unscaled integer N; the value is
 * N x 10^-s. Every constructor keeps p and s in range; every operation keeps the
 * accumulator scaled by exactly 10^s and within p digits.
 *
 * Results: operations return 0 on success and -1 on failure: overflow (the value does not
 * fit the target's precision) or an invalid operand (not a NUMBER, precision or scale out
 * of range, a bad packed nibble, text that is not a number). Arithmetic never raises; on
 * -1 the result record holds a valid but unspecified value and its descriptor is set. The
 * caller reports overflow, usually with QV_OVERFLOW. Scaling down always truncates toward
 * zero; only the conversion from a double rounds (half away from zero).
 *
 * Result types of arithmetic (PreciseCalculate_L with compute 0 gives them alone): with
 * s = the larger scale and i1 = p1 - s1, i2 = p2 - s2:
 *   s > 0 or "/":  "*" i = i1 + i2;  "+" "-" i = max(i1, i2) + 1;  "/" i = i1 + s2 and
 *                  s = 16; i is capped at 77 and s lowered to 77 - i; NUMBER(i + s, s).
 *   s = 0, not "/": both p below 20: "*" p1 + p2, "+" "-" max + 1, capped at 19; else
 *                  max(p1, p2); NUMBER(p, 0).
 * Products whose operands together need more than 256 bits lose the lowest digits of each
 * operand first (each keeps its share of 16 16-bit words); quotients are computed with the
 * dividend scaled up by min(77 - p1, pr - p1 + 1) digits. A zero operand of a division (the
 * divisor included) gives 0.
 *
 * Packed decimal (BCD) of precision p: (p + 2) / 2 bytes, digits most significant first,
 * two per byte, the last low nibble the sign (written 0xC positive, 0xD negative; read
 * 0xA 0xC 0xE 0xF positive, 0xB 0xD negative). Zoned decimal: p bytes of zone 0xF and one
 * digit each; the last zone is the sign (written 0xF or 0xD; read 0xA 0xC 0xE 0xF and
 * 0xB 0xD). The scale is not stored: the reader supplies p and s.
 *
 * Texts: a number format (QV_NUMBER_FORMAT_T) supplies the decimal and group separators;
 * a null format means "." and ",". Texts returned are heap texts freed with free();
 * allocation failures raise ALLOC_FAILURE from module "precise".
 */
#ifndef QV_PRECISE_H
#define QV_PRECISE_H

#include <stdint.h>

#include "datatype.h"
#include "qv_export.h"

QV_EXTERN_C_BEGIN

#define QV_PRECISE_MAX_PRECISION 77

/* Separators of numbers in text: each up to 12 bytes, not terminated. */
typedef struct QV_NUMBER_FORMAT_T {
    char decimal_separator[12];
    int32_t decimal_length;
    char group_separator[12];
    int32_t group_length;
} QV_NUMBER_FORMAT_T;

/* Kinds of binary decimal field for VerifyBinaryNumber_L. */
#define QV_FIELD_PACKED 1
#define QV_FIELD_ZONED 2

/* ---- Constructors and sign ------------------------------------------------------------ */

/* Zeroes the record's descriptor, payload and flags (not the evaluator's fields; the
 * record must not own a payload), then makes it NUMBER(p, min(s, p)) of value 0. A
 * negative s becomes 0; a p outside 1..77 becomes 77. */
QV_API int32_t NewPrecise_L(QV_PRECISE_T *record, int32_t precision, int32_t scale);
/* NUMBER(77, 0). */
QV_API int32_t NewMaxPrecise_L(QV_PRECISE_T *record);
/* A zero wide enough for both: the larger integer digits and the larger scale. */
QV_API int32_t NewLargestPrecise_L(QV_PRECISE_T *record, const QV_PRECISE_T *a,
                                   const QV_PRECISE_T *b);
QV_API void ZeroPrecise_L(QV_PRECISE_T *record);
QV_API uint8_t IsZeroPrecise_L(const QV_PRECISE_T *record);
/* True when the value is above zero. */
QV_API uint8_t IsPositivePrecise_L(const QV_PRECISE_T *record);
QV_API void AbsPrecise_L(QV_PRECISE_T *record);
QV_API void ReversePreciseSign_L(QV_PRECISE_T *record);

/* ---- Conversions in -------------------------------------------------------------------- */

/* The double rounded half away from zero at min(its decimals, s) places. A record without
 * a precision becomes NUMBER(digits, decimals) of the double's decimal text; one with a
 * precision fails when the double has more integer digits than p - s. NaN and infinities
 * fail. */
QV_API int32_t DoubleToPrecise_L(QV_PRECISE_T *record, double value);
/* value x 10^-scale, truncated to the record's scale. A record without a precision
 * becomes NUMBER(19, 0) first. */
QV_API int32_t IntegerToPrecise_L(QV_PRECISE_T *record, int64_t value, int32_t scale);
/* The number in text (see StringToBestNumberType_L) into the record's precision and scale;
 * a record without a precision becomes NUMBER(digits, decimals) of the text. */
QV_API int32_t StringToPrecise_L(QV_PRECISE_T *record, const char *text);
/* Text ("-" allowed, "+" not; group separators only in the integer part) to a packed field
 * of (p + 2) / 2 bytes at precision p and scale s. -0 is written as positive zero. Fails for
 * null or empty text, any other character, more than s decimals or more than p - s
 * integer digits, or p, s out of 0 <= s <= p, 1 <= p <= 77. */
QV_API int32_t StringToBCD_L(uint8_t *out, int32_t precision, int32_t scale, const char *text,
                             const QV_NUMBER_FORMAT_T *format);
/* A packed / zoned field of precision p, scale s into value, which becomes NUMBER(p, s).
 * A bad nibble makes the value NULL and returns -1. */
QV_API int32_t BCDToValue_L(QV_VALUE_T *value, const uint8_t *field, int32_t precision,
                            int32_t scale);
QV_API int32_t ZonedToValue_L(QV_VALUE_T *value, const uint8_t *field, int32_t precision,
                              int32_t scale);
/* A value (NUMBER, INTEGER, FLOAT, or any type the values module converts) rescaled to s
 * and written as a packed / zoned field of precision p. A NULL value, or one that does not
 * fit, returns -1 and leaves the field untouched. */
QV_API int32_t ValueToBCD_L(const QV_VALUE_T *value, uint8_t *field, int32_t precision,
                            int32_t scale);
QV_API int32_t ValueToZoned_L(const QV_VALUE_T *value, uint8_t *field, int32_t precision,
                              int32_t scale);

/* ---- Conversions out ------------------------------------------------------------------- */

/* N / 10^s as a double. */
QV_API int32_t PreciseToDouble_L(const QV_PRECISE_T *record, double *value);
/* The integer part (digits after the point dropped). */
QV_API int32_t PreciseToInteger_L(const QV_PRECISE_T *record, int64_t *value);
/* The value x 10^scale, truncated toward zero: PreciseToScaledInteger_L(1.239, 2) = 123. */
QV_API int32_t PreciseToScaledInteger_L(const QV_PRECISE_T *record, int32_t scale, int64_t *value);
/* The value as text: "-" for a negative value, no leading zeros, "0" before a leading
 * separator, trailing decimal zeros dropped (1.50 is "1.5", 2.00 is "2"). A heap text;
 * null for a record that is not a valid NUMBER. */
QV_API char *PreciseToString_L(const QV_PRECISE_T *record, const QV_NUMBER_FORMAT_T *format);
/* The same text into buffer (size bytes with the terminator). Returns the count of digits
 * before the separator, or -1 when the buffer is too small or the record invalid. */
QV_API int32_t PreciseToSizedString_L(const QV_PRECISE_T *record, char *buffer, int32_t size,
                                      const QV_NUMBER_FORMAT_T *format);
/* A packed field of precision p and scale s as text, formatted as above. Null for a bad
 * nibble or p, s out of range. */
QV_API char *BCDToString_L(const uint8_t *field, int32_t precision, int32_t scale,
                           const QV_NUMBER_FORMAT_T *format);
/* A double as plain decimal text without exponent: all integer digits of an integral
 * double, else 15 significant digits; trailing decimal zeros dropped. *digits receives the
 * integer digits (no leading zero; "0" counts 1 when there are no decimals) plus the
 * decimals, *decimals the decimals. The text is in a static buffer that the next call
 * overwrites. NaN and infinities give "NaN", "Infinity", "-Infinity" with 0 digits. */
QV_API const char *StringFromDouble_L(double value, int32_t *digits, int32_t *decimals);

/* ---- Arithmetic ------------------------------------------------------------------------ */

/* result = a op b, result's type from the rules above. result may be a or b. */
QV_API int32_t AddPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a, const QV_PRECISE_T *b);
QV_API int32_t SubtractPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                 const QV_PRECISE_T *b);
QV_API int32_t MultiplyPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                 const QV_PRECISE_T *b);
QV_API int32_t DividePrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a, const QV_PRECISE_T *b);
/* op is '+', '-', '*' or '/'. Operands that are not NUMBER are read as NUMBER first
 * (INTEGER as NUMBER(19, 0), FLOAT through its decimal text, other types through the
 * values module). With compute 0 only result's descriptor is set; with compute nonzero
 * the operation is performed too. */
QV_API int32_t PreciseCalculate_L(const QV_VALUE_T *left, char op, const QV_VALUE_T *right,
                                  QV_PRECISE_T *result, uint8_t compute);
/* target += addend, the addend truncated to target's scale; target keeps its type. */
QV_API int32_t AddToPrecise_L(QV_PRECISE_T *target, const QV_PRECISE_T *addend);
/* With op one of "==", "!=", "<", ">", "<=", ">=": 1 when `a op b` holds, else 0. With a
 * null op: -1, 0 or 1 as a is below, equal to or above b. -2 for an invalid operand or
 * operator. The comparison is exact whatever the scales. */
QV_API int32_t PreciseCompare_L(const QV_PRECISE_T *a, const char *op, const QV_PRECISE_T *b);
/* Drops the digits beyond `places` decimals, toward zero (places may be negative: -2
 * truncates to hundreds); the record keeps its type. */
QV_API int32_t TruncatePrecise_L(QV_PRECISE_T *record, int32_t places);
/* result = the square root of x, truncated, as NUMBER(77, (s + 77 - w) / 2 - 1) where w is
 * x's count of significant 16-bit words. A negative x fails. */
QV_API int32_t SqrtPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *x);
/* result = base^n as NUMBER(77, s of base), truncated; n >= 0. Fails when the raw power
 * N^n of the accumulator passes 256 bits. */
QV_API int32_t PowerPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *base, int32_t n);
/* target = source rescaled into target's precision and scale. */
QV_API int32_t ConvertPrecise_L(QV_PRECISE_T *target, const QV_PRECISE_T *source);

/* ---- Recognition ----------------------------------------------------------------------- */

/* Reads a number from text: blanks, an optional "-" or "+", digits with one decimal
 * separator, an optional exponent ("e" or "E", optional sign, digits), blanks. Counts
 * its digits D (integer digits without leading zeros plus decimals F) and proposes
 * INTEGER (F = 0, D <= 19 and within 64 bits; width 2 for D <= 5, 4 for D <= 10, else
 * 8), FLOAT (F > 0, D <= 15) or NUMBER(D, F).
 * When value's type is 0 it takes the proposed type; a nonzero type (INTEGER, FLOAT or
 * NUMBER(p, s)) is a fixed target: an INTEGER target refuses a proposed NUMBER, a NUMBER
 * target needs p - s >= D - F (a NUMBER without precision takes NUMBER(D, F)). Unless
 * classify_only, the value is stored (a NUMBER target truncated to its scale). A text of
 * blanks only (or empty) is a NULL value of the type. Returns 0, or -1 with one of these
 * texts in Msgbuf8: "invalid number", "datatype not suitable for text value",
 * "insufficient precision to hold the value", "insufficient precision/scale to hold the
 * value", "precision of value is too high to be stored" (more than 77 digits). */
QV_API int32_t StringToBestNumberType_L(const char *text, QV_VALUE_T *value, uint8_t classify_only,
                                        const QV_NUMBER_FORMAT_T *format);
/* Checks that a packed (QV_FIELD_PACKED, "Packed/BCD") or zoned (QV_FIELD_ZONED, "Zoned")
 * field of `length` bytes holds only legal digit and sign nibbles. Returns 0, or -1 with
 * the first bad byte named in Msgbuf8 ("Zoned field: invalid byte 0x3A at position 2"). */
QV_API int32_t VerifyBinaryNumber_L(const uint8_t *field, int32_t length, int32_t kind);

QV_EXTERN_C_END

#endif
