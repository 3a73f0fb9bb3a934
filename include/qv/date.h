/*
 * date.h - dates and times.
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

#include "qv_export.h"

QV_EXTERN_C_BEGIN

QV_API const char *GetDay_L(int32_t day);
QV_API const char *GetShortDay_L(int32_t day);
QV_API const char *GetMonth_L(int32_t month);
QV_API const char *GetShortMonth_L(int32_t month);
/* The words for the morning and afternoon halves of the day ("AM", "PM" in English). */
QV_API const char *GetAM_L(void);
QV_API const char *GetPM_L(void);

QV_EXTERN_C_END

#endif
