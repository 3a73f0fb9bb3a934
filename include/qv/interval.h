/*
 * interval.h - day-second and year-month intervals (QV_INTERVAL_DS_T, QV_INTERVAL_YM_T of
 * datatype.h): ordering, arithmetic, conversions to and from counts, and their texts.
 *
 * An interval is a sign (negative 1 or 0) and unsigned magnitudes: days, hours (0..23),
 * minutes, seconds (0..59) and nanoseconds; or years and months (0..11). A zero interval
 * marked negative equals one not so marked, and a sum or difference that comes to zero is
 * not negative. The arithmetic does not check the 32-bit fields for overflow.
 *
 * The Add operations: when `out` is given the interval is first copied into it and `out`
 * is changed, else the interval is changed in place. They return 0, or -1 when the
 * interval is null (nothing changes).
 */
#ifndef QV_INTERVAL_H
#define QV_INTERVAL_H

#include <stdint.h>

#include "datatype.h"
#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* Order two intervals: 0 when both are null, -1 when only a is, 1 when only b is; else the
 * fields, each times its interval's sign, are compared in the order days, hours, minutes,
 * seconds, fraction (years, months) and the difference of the first unequal pair is
 * returned (limited to the int32_t range), 0 when all agree. Only the sign is meaningful. */
QV_API int32_t CompareInternalInterval_L(const QV_INTERVAL_DS_T *a, const QV_INTERVAL_DS_T *b);
QV_API int32_t CompareInternalIntervalYM_L(const QV_INTERVAL_YM_T *a, const QV_INTERVAL_YM_T *b);

/* *out = months of a minus months of b (years * 12 + months, negated when negative).
 * Returns 0, or -1 when an argument is null. */
QV_API int32_t MonthsBetweenInternalInterval_L(const QV_INTERVAL_YM_T *a, const QV_INTERVAL_YM_T *b,
                                               int64_t *out);
/* *out = seconds of a minus seconds of b, with their fractions (exact in 64 bits before the
 * conversion to double). Returns 0, or -1 when an argument is null. */
QV_API int32_t SecsBetweenInternalInterval_L(const QV_INTERVAL_DS_T *a, const QV_INTERVAL_DS_T *b,
                                             double *out);

/* Adds months: the signed total of months plus `months` becomes the interval
 * (MonthsToInternalInterval_L). */
QV_API int32_t AddMonthsToInternalInterval_L(QV_INTERVAL_YM_T *interval, int64_t months,
                                             QV_INTERVAL_YM_T *out);
/* Adds to one field only: the field, negated when the interval is negative, plus the count
 * gives the new field (its magnitude) and the interval's sign (that of the new value, not
 * negative when 0); the other fields keep their magnitudes and take the new sign. So minus
 * 5 hours plus 1 day is plus 1 day 5 hours. */
QV_API int32_t AddYearsToInternalInterval_L(QV_INTERVAL_YM_T *interval, int64_t years,
                                            QV_INTERVAL_YM_T *out);
QV_API int32_t AddDaysToInternalInterval_L(QV_INTERVAL_DS_T *interval, int64_t days,
                                           QV_INTERVAL_DS_T *out);
/* Adds seconds: the interval's seconds, ((days * 24 + hours) * 60 + minutes) * 60 + seconds
 * computed in 32-bit unsigned arithmetic (so it wraps above about 49710 days), plus the
 * fraction, negated when negative, plus `seconds`, becomes the interval
 * (SecsToInternalInterval_L). -1 also for a count that is not finite. */
QV_API int32_t AddSecsToInternalInterval_L(QV_INTERVAL_DS_T *interval, double seconds,
                                           QV_INTERVAL_DS_T *out);

/* A signed count of seconds as an interval: the magnitude split into days, hours, minutes
 * and seconds, the fraction rounded to the nearest nanosecond; days beyond 32 bits wrap.
 * Returns 0, or -1 for a null out or a count that is not finite. */
QV_API int32_t SecsToInternalInterval_L(double seconds, QV_INTERVAL_DS_T *out);
/* A signed count of months as years and months. Returns 0, or -1 for a null out. */
QV_API int32_t MonthsToInternalInterval_L(int64_t months, QV_INTERVAL_YM_T *out);

/* ---- Texts -------------------------------------------------------------------------------
 *
 * The plain text forms, printed when no pattern is given: "%d %02u:%02u:%02u.%09u" (days,
 * hours, minutes, seconds, nanoseconds) and "%d-%02u" (years, months), the sign written as
 * "-" before the days or years of a negative interval, also when they are 0 ("-0
 * 05:00:00.000000000"), and nothing for a positive one.
 *
 * Pattern tokens (taken as for date patterns: in table order, longest length first,
 * letters in one case or capitalised; literals as for dates):
 *   sd..d       days with their sign ("+" or "-"), the count of d (1..10) its printed width
 *   d..d        days (1..10 d), "-" before them when negative
 *   sy..y y..y  years, in the same two ways
 *   hh24 hh h   hours "%02u"      mi   minutes "%02u"     ss s  seconds "%02u"
 *   f..f        nanoseconds, nine digits cut to the count of f (1..9)
 *   mm m        months "%02u"
 * Days, hours, minutes, seconds and fractions make a day-second pattern; years and months a
 * year-month pattern; a pattern mixing the two, or naming a part twice, is invalid. When no
 * token carries the sign, a negative interval prints "-" before its first number. Reading
 * takes an optional sign where one prints, numbers as dates read them (days and years up
 * to 10 digits), hours 0..23, minutes and seconds 0..59, months 0..11; the text may end
 * after any token (the rest 0).
 *
 * Defaults: "sddddddddd hh:mi:ss.fffffffff" (GetInternalIntervalFormat_L) and
 * "syyyyyyyyy-mm" (GetInternalIntervalYMFormat_L) print as "+000000001 02:03:04.000000000"
 * and "+000000001-02"; with no pattern, reading takes either default or plain form.
 *
 * Like the date operations, these take a parsed pattern (`format`) or a pattern text
 * (`pattern`, parsed on first use and kept); failures keep their reason for
 * DateFormatError_L (qv/date.h). */
typedef struct QV_INTERVAL_FORMAT_T QV_INTERVAL_FORMAT_T;

QV_API const char *GetInternalIntervalFormat_L(void);
QV_API const char *GetInternalIntervalYMFormat_L(void);

/* Parses a pattern; free it with FreeParsedIntervalFormat_L. Null for a null or invalid
 * pattern (the reason kept) or after ALLOC_FAILURE. */
QV_API QV_INTERVAL_FORMAT_T *ParseIntervalFormat_L(const char *pattern);
QV_API void FreeParsedIntervalFormat_L(QV_INTERVAL_FORMAT_T *format);
/* The interval types a pattern serves: QV_TYPE_INTERVAL_DS, QV_TYPE_INTERVAL_YM, both (a
 * pattern of literals only), or 0 when it is invalid. */
QV_API uint32_t ValidIntervalFormat_L(const char *pattern);

/* Read a text into *out. Return 0, or -1 when it does not fit or the pattern is not of the
 * interval's kind (*out unchanged, the reason kept), or for null text or out. */
QV_API int32_t CharToInternalInterval_L(const char *text, const char *pattern,
                                        const QV_INTERVAL_FORMAT_T *format, QV_INTERVAL_DS_T *out);
QV_API int32_t CharToInternalIntervalYM_L(const char *text, const char *pattern,
                                          const QV_INTERVAL_FORMAT_T *format,
                                          QV_INTERVAL_YM_T *out);
/* Print into `out` of `size` bytes, cut to fit and terminated; return the length of the
 * whole text as snprintf does: 0 for a null interval, -1 for a pattern that does not parse
 * or is not of the interval's kind. */
QV_API int32_t InternalIntervalToChar_L(const QV_INTERVAL_DS_T *interval, const char *pattern,
                                        const QV_INTERVAL_FORMAT_T *format, char *out,
                                        int32_t size);
QV_API int32_t InternalIntervalYMToChar_L(const QV_INTERVAL_YM_T *interval, const char *pattern,
                                          const QV_INTERVAL_FORMAT_T *format, char *out,
                                          int32_t size);
/* 1 when `text` reads as an interval of `type` (QV_TYPE_INTERVAL_DS or _YM) with the
 * pattern; a null pattern means "sddd hh:mi:ss" / "syyyyyyyyy-mm". */
QV_API uint8_t IsValidInterval_L(const char *text, const char *pattern, uint32_t type);
/* 1 when `text` is exactly a plain or default form: "[+-]d hh:mi:ss[.f]" with 1..10 day
 * digits and 1..9 fraction digits / "[+-]y-mm"; *out (when given) gets the interval. */
QV_API uint8_t IsInternalInterval_L(const char *text, QV_INTERVAL_DS_T *out);
QV_API uint8_t IsInternalIntervalYM_L(const char *text, QV_INTERVAL_YM_T *out);

QV_EXTERN_C_END

#endif
