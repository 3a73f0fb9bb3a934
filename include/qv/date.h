/*
 * date.h - dates and times: day and month names, the internal date record's calendar and
 * arithmetic, time zones, date literals, and format patterns (reading and printing).
 *
 * Names of days, months and the half-days in the language of the process locale (ICU's
 * default locale, which follows LANG / LC_ALL; English when none is set), as UTF-8 texts
 * owned by the library. They are read once, on first use. Days are numbered 0 (Sunday)
 * to 6 (Saturday), months 0 (January) to 11 (December); a number out of range gives null.
 * Not thread-safe on first use: one thread at a time.
 */
#ifndef QV_DATE_H
#define QV_DATE_H

#include <stdint.h>

#include "datatype.h"
#include "qv_export.h"

QV_EXTERN_C_BEGIN

QV_API const char *GetDay_L(int32_t day);
QV_API const char *GetShortDay_L(int32_t day);
QV_API const char *GetMonth_L(int32_t month);
QV_API const char *GetShortMonth_L(int32_t month);
/* The words for the morning and afternoon halves of the day ("AM", "PM" in English). */
QV_API const char *GetAM_L(void);
QV_API const char *GetPM_L(void);

/* ---- The calendar and the internal date (QV_DATE_T of datatype.h) -------------------
 *
 * Years before 1600 follow the four-year rule alone (every year divisible by 4 is a leap
 * year); from 1600 on the Gregorian rule holds (centuries only when divisible by 400). The
 * year -4712 is not a leap year, although divisible by 4. Days are consecutive across
 * 1599-12-31 / 1600-01-01 (no days are dropped) and are numbered by the Julian day number:
 * from 1600 on it equals the standard Julian day number (2000-01-01 is 2451545); before
 * 1600 it counts on consecutively in this calendar. Day and month counts handed to the
 * arithmetic are taken as given; a year that leaves the 16-bit range wraps (not checked).
 *
 * A record whose month is 0 is a time of day (a TIME): its date fields are 0, the day and
 * month arithmetic leaves it alone, adding seconds wraps around midnight, and the day and
 * second differences count it as day 0.
 *
 * The Add... operations: when `out` is given the date is first copied into it and `out`
 * is changed, else the date is changed in place. They return 0, or -1 when `date` is null
 * (nothing changes). */

/* Days of `month` (1..12) in `year` by the rule above; 0 for a month out of range. */
QV_API int32_t DaysInMonth_L(int32_t month, int32_t year);
/* 1 when `year` is a leap year by the rule above. */
QV_API uint8_t IsLeapYear_L(int32_t year);
/* Orders two dates: 0 when both are null, -1 when only a is, 1 when only b is; else the
 * difference (a's minus b's) of the first differing field in the order year, month, day,
 * hour, minute, second, fraction, zone, or 0. Only the sign is meaningful. */
QV_API int32_t CompareInternalDate_L(const QV_DATE_T *a, const QV_DATE_T *b);
/* The current local date and time to the second (fraction and zone 0); -1 for null out. */
QV_API int32_t CurrentTimestamp_L(QV_DATE_T *out);
/* Adds months (the year moves as the months carry) / years; a day beyond the end of the new
 * month becomes its last day (31 January + 1 month = 28 or 29 February). Time fields,
 * fraction and zone are kept. */
QV_API int32_t AddMonthsToInternalDate_L(QV_DATE_T *date, int64_t months, QV_DATE_T *out);
QV_API int32_t AddYearsToInternalDate_L(QV_DATE_T *date, int64_t years, QV_DATE_T *out);
/* Adds a signed number of days; the time of day is kept. -1 also for a count beyond
 * +-10^12 (nothing changes). */
QV_API int32_t AddDaysToInternalDate_L(QV_DATE_T *date, int64_t days, QV_DATE_T *out);
/* Adds a signed number of seconds, fractions rounded to the nanosecond; the zone is kept.
 * -1 also for a count that is not finite or beyond +-9e18 (nothing changes). */
QV_API int32_t AddSecsToInternalDate_L(QV_DATE_T *date, double seconds, QV_DATE_T *out);
/* Adds an interval: the year-month interval `ym` (months with the month-end rule) and then
 * the day-second interval `ds` (exact seconds and nanoseconds); either may be null. */
QV_API int32_t AddIntervalToInternalDate_L(QV_DATE_T *date, const QV_INTERVAL_DS_T *ds,
                                           const QV_INTERVAL_YM_T *ym, QV_DATE_T *out);
/* The time from b to a (a minus b, positive when a is later), both taken as moments (the
 * zones subtracted): *days gets the whole days, *seconds the whole seconds and
 * *nanoseconds (when given) the rest of the second, all truncated toward zero and of the
 * same sign. Return 0, or -1 when a, b or the first output is null. */
QV_API int32_t DaysBetweenInternalDate_L(const QV_DATE_T *a, const QV_DATE_T *b, int64_t *days);
QV_API int32_t SecsBetweenInternalDate_L(const QV_DATE_T *a, const QV_DATE_T *b, int64_t *seconds,
                                         int32_t *nanoseconds);
/* The Julian day number of the date's day / the date at midnight of a Julian day (the
 * rest of *out zeroed). Return 0, or -1 for null arguments and for a day outside the
 * years -32768..32767. */
QV_API int32_t InternalToJulianDate_L(const QV_DATE_T *date, int32_t *julian);
QV_API int32_t JulianToInternalDate_L(int32_t julian, QV_DATE_T *out);

/* ---- Time zones -----------------------------------------------------------------------
 *
 * A zone is a displacement from UTC held as hours * 100 + minutes, signed (530 is +05:30,
 * -30 is -00:30). Zone names, compared without case: the abbreviations of the zone table
 * with their standard displacements (ACDT ACST AEDT AEST AKDT AKST AST AWST BST CDT CEDT
 * CEST CET CST EDT EEDT EEST EET EST GMT HST IST JST KST MDT MSK MST NZDT NZST PDT PST UTC
 * WEDT WEST WET Z; CST is North American Central, IST India, BST British summer), the word
 * LOCAL (the machine's zone now), and numeric texts "+05:30", "-0330", "+5" (sign
 * required, hours 0..23, minutes 0..59).
 *
 * The default zone is the zone printed for a zoned pattern when a date has none (see
 * InternalDateToChar_L); it starts as the machine's zone at first use. */

/* 1 and the zone in *zone (when given) for a zone name as above; 0 otherwise. */
QV_API uint8_t IsValidTimezone_L(const char *name, int16_t *zone);
/* The machine's zone now (daylight saving included). */
QV_API int16_t GetLocalTimeZone_L(void);
QV_API int16_t GetDefaultTimeZone_L(void);
QV_API void SetDefaultTimeZone_L(int16_t zone);
/* Moves a date read as UTC to the machine's local time at that moment (the zone field is
 * kept). Returns 0, or -1 for a null date. */
QV_API int32_t AdjustUTCTimeToLocal_L(QV_DATE_T *date, QV_DATE_T *out);

/* ---- Date literals ----------------------------------------------------------------------
 *
 * IsInternalDate_L recognises the texts the default patterns print, as a literal is
 * written: a date "[+-]yyyy-mm-dd" (4 or 5 year digits; 1 or 2 for month and day), then
 * optionally a blank or "T" and a time "hh:mi[:ss[.f]]" (1 to 9 fraction digits), then
 * optionally (blank allowed) a zone "+hh:mm" / "-hh:mm". The date must exist and the time
 * be in range. It returns 1, fills *out (when given) and sets *flag (when given) to the
 * parts present, an OR of: */
#define QV_DATE_LITERAL_DATE 0x01u     /* always set */
#define QV_DATE_LITERAL_TIME 0x02u     /* hours and minutes */
#define QV_DATE_LITERAL_FRACTION 0x04u /* fraction of the second */
#define QV_DATE_LITERAL_ZONE 0x08u     /* zone */
QV_API uint8_t IsInternalDate_L(const char *text, QV_DATE_T *out, uint8_t *flag);

/* ---- Format patterns --------------------------------------------------------------------
 *
 * A pattern is text of tokens and literals, such as "syyyy-mm-dd hh:mi:ss.fffffffff". At
 * each place the first token of this list (and, for a range, the longest length) that
 * fits is taken; letters of a token match in lower case, upper case or capitalised
 * ("mon", "MON", "Mon"), and names print in that case. Each part of the date (year, week,
 * quarter, month, day, hour, minute, second, fraction, meridian, zone hours, zone minutes)
 * may be named once.
 *
 *   syyyy      year: "%04d" when positive, "%+05d" when 0 or negative ("+0000", "-0044")
 *   yyyy       year, "%04d"
 *   yyy yy y   last 3 / 2 / 1 digits of the year (read: the year nearest this one)
 *   iyyy iyy iy i  ISO 8601 year, its last 4 / 3 / 2 / 1 digits
 *   iw         ISO 8601 week, "%02d"
 *   q          quarter 1..4
 *   stzh tzm   zone hours with their sign ("+05", "-00"), zone minutes "%02d"; reading
 *              "stzh" also takes a zone name ("CEST", "UTC", "LOCAL")
 *   month mon mmm  month name / its first three characters (month glossary)
 *   mi         minute, "%02d"
 *   mm m       month, "%02d" / "%d"
 *   ww w       week of the year (days 1-7 are week 1) "%02d" / of the month (1..5)
 *   day dy     day name / its first three characters (day glossary)
 *   ddd        day of the year, "%03d"
 *   ddth       day and ordinal suffix ("01st", "22nd"; "DDTH" prints "01ST")
 *   dd         day, "%02d"
 *   d          day of the week, 1 (Sunday) .. 7
 *   j          Julian day number, "%07d"
 *   hh24 hh h  hour 0..23, "%02d"
 *   hh12       hour on the twelve-hour clock 1..12, "%02d"
 *   sssss      seconds since midnight, "%05d"
 *   ss s       second, "%02d"
 *   f .. fffffffff  fraction: nine digits cut to the token's length (truncated)
 *   am pm      "am" before noon, else "pm" (in the token's case)
 *
 * Literals: any other character prints as itself. The separators ":-/_,.\"" and the blank
 * match, when reading, any one separator or blank; other characters match themselves
 * (letters without case). Text in double quotes is a literal printed and matched as it
 * stands, without the quotes ("yyyy-mm-dd\"T\"hh24:mi"); a quote never closed runs to the
 * end of the pattern.
 *
 * Reading: numbers take 1 up to their printed width of digits (a year 5, a Julian day 8)
 * and their sign where one can print; a number followed at once by another number takes
 * exactly its printed width ("yyyymmdd"). Names, suffixes and am/pm match without case
 * (also the words GetAM_L and GetPM_L give). The text may end after any token: the parts
 * not read take their defaults (time 0, month and day 1, the current year when other date
 * parts were read; no date part at all gives a time of day, date fields 0). A week with a
 * day of the week (d, dy or day), a day of the year, a Julian day, an ISO year and week,
 * a quarter or seconds since midnight fix the fields they imply; where those fields are
 * read as well, they must agree. The date must exist (31 April, 29 February 1900 and hour
 * 24 fail). Blanks around the text are ignored.
 *
 * Every failure (a pattern naming a part twice, text that does not fit, a date that does
 * not exist, an unknown zone) keeps a text saying why, read by DateFormatError_L.
 *
 * The reading and printing operations take either a parsed pattern (`format`, when not
 * null) or a pattern text (`pattern`; null means the operation's default). A pattern text
 * is parsed on its first use and the parse kept for the next calls with the same text. */
typedef struct QV_DATE_FORMAT_T QV_DATE_FORMAT_T;

/* The default patterns (library-owned texts):
 *   "syyyy-mm-dd hh:mi:ss.fffffffff", "syyyy-mm-dd", "syyyy-mm-dd hh:mi:ss.fffffffff
 *   stzh:tzm", "hh:mi:ss.fffffffff", "hh:mi:ss.fffffffff stzh:tzm" */
QV_API const char *GetInternalDatetimeFormat_L(void);
QV_API const char *GetInternalDateFormat_L(void);
QV_API const char *GetInternalDatetimeTZFormat_L(void);
QV_API const char *GetInternalTimeFormat_L(void);
QV_API const char *GetInternalTimeTZFormat_L(void);

/* Parses a pattern; free the result with FreeParsedDateFormat_L. Null for a null pattern,
 * for a pattern naming a part twice (message 0x45E1B1AD made with the pattern, its text
 * kept for DateFormatError_L; nothing is logged), or after ALLOC_FAILURE. */
QV_API QV_DATE_FORMAT_T *ParseDateFormat_L(const char *pattern);
QV_API void FreeParsedDateFormat_L(QV_DATE_FORMAT_T *format);
/* The text of the last failure of a date or interval format operation ("" when none). */
QV_API const char *DateFormatError_L(void);

/* Reads `text` into *out (a date / a time: the date fields then 0). The default pattern is
 * GetInternalDatetimeFormat_L / GetInternalTimeFormat_L. Return 0, or -1 when the text
 * does not fit or the date does not exist (*out unchanged; the reason kept), or for null
 * text or out. */
QV_API int32_t CharToInternalDate_L(const char *text, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, QV_DATE_T *out);
QV_API int32_t CharToInternalTime_L(const char *text, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, QV_DATE_T *out);
/* 1 when `text` reads with the pattern (default GetInternalDatetimeTZFormat_L). */
QV_API uint8_t IsValidDate_L(const char *text, const char *pattern);

/* Prints a date / a time into `out`, which holds `size` bytes; the text is cut to fit
 * and always terminated (nothing is written when out is null or size <= 0). Returns the
 * length of the whole text, as snprintf does: 0 for a null date (no text) and -1 for a
 * pattern that does not parse. The default pattern is GetInternalDatetimeFormat_L /
 * GetInternalTimeFormat_L. When the pattern prints a zone (stzh) and the date's zone is 0,
 * the default zone is first written into the caller's date. */
QV_API int32_t InternalDateToChar_L(QV_DATE_T *date, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, char *out, int32_t size);
QV_API int32_t InternalTimeToChar_L(QV_DATE_T *time, const char *pattern,
                                    const QV_DATE_FORMAT_T *format, char *out, int32_t size);
/* Prints the date's zone as "stzh:tzm" ("+05:30", "-00:30"), with the default-zone rule
 * above; same result as InternalDateToChar_L. */
QV_API int32_t InternalTimezoneToChar_L(QV_DATE_T *date, char *out, int32_t size);

QV_EXTERN_C_END

#endif
