// date_names.cpp - the names of days, months and half-days in the process locale, read
// once from ICU's date-format symbols of the default locale and kept as UTF-8 texts. When
// ICU cannot give a complete set, the English names stand in. The day and month names are
// installed at load as the glossaries' stand-ins for missing day.gls and month.gls entries.
//
// Part of the date module.
#define QV_MODULE "date"
#include <array>
#include <string>

#include <unicode/dtfmtsym.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "messages/message.hpp"
#include "qv/date.h"

namespace {

constexpr int days_in_week = 7;
constexpr int months_in_year = 12;

constexpr const char *english_days[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                        "Thursday", "Friday", "Saturday"};
constexpr const char *english_short_days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char *english_months[] = {"January",   "February", "March",    "April",
                                          "May",       "June",     "July",     "August",
                                          "September", "October",  "November", "December"};
constexpr const char *english_short_months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
static_assert(std::size(english_days) == days_in_week);
static_assert(std::size(english_short_days) == days_in_week);
static_assert(std::size(english_months) == months_in_year);
static_assert(std::size(english_short_months) == months_in_year);

struct DateNames {
    std::array<std::string, days_in_week> days, short_days;
    std::array<std::string, months_in_year> months, short_months;
    std::string am = "AM", pm = "PM";
};

// Copies `count` ICU names starting at `first` into `out`, or the English ones when ICU
// gave fewer (or empty) names.
template <std::size_t N>
void take_names(std::array<std::string, N> &out, const icu::UnicodeString *names, int32_t count,
                int32_t first, const char *const (&english)[N]) {
    bool complete = names != nullptr && count >= first + static_cast<int32_t>(N);
    for (std::size_t i = 0; i < N && complete; ++i)
        complete = !names[first + static_cast<int32_t>(i)].isEmpty();
    for (std::size_t i = 0; i < N; ++i) {
        out[i].clear();
        if (complete)
            names[first + static_cast<int32_t>(i)].toUTF8String(out[i]);
        else
            out[i] = english[i];
    }
}

DateNames read_date_names() {
    DateNames names;
    UErrorCode status = U_ZERO_ERROR;
    icu::DateFormatSymbols symbols(icu::Locale::getDefault(), status);
    const icu::UnicodeString *list = nullptr;
    int32_t count = 0;
    bool usable = U_SUCCESS(status);
    // ICU numbers weekdays from 1 (Sunday); its entry 0 is empty.
    list = usable ? symbols.getWeekdays(count) : nullptr;
    take_names(names.days, list, count, 1, english_days);
    list = usable ? symbols.getShortWeekdays(count) : nullptr;
    take_names(names.short_days, list, count, 1, english_short_days);
    list = usable ? symbols.getMonths(count) : nullptr;
    take_names(names.months, list, count, 0, english_months);
    list = usable ? symbols.getShortMonths(count) : nullptr;
    take_names(names.short_months, list, count, 0, english_short_months);
    list = usable ? symbols.getAmPmStrings(count) : nullptr;
    if (list != nullptr && count >= 2 && !list[0].isEmpty() && !list[1].isEmpty()) {
        names.am.clear();
        names.pm.clear();
        list[0].toUTF8String(names.am);
        list[1].toUTF8String(names.pm);
    }
    return names;
}

const DateNames &date_names() {
    static const DateNames names = read_date_names();
    return names;
}

template <std::size_t N>
const char *name_at(const std::array<std::string, N> &names, int32_t index) {
    return index >= 0 && index < static_cast<int32_t>(N) ? names[index].c_str() : nullptr;
}

} // namespace

extern "C" {

QV_API const char *GetDay_L(int32_t day) {
    return name_at(date_names().days, day);
}
QV_API const char *GetShortDay_L(int32_t day) {
    return name_at(date_names().short_days, day);
}
QV_API const char *GetMonth_L(int32_t month) {
    return name_at(date_names().months, month);
}
QV_API const char *GetShortMonth_L(int32_t month) {
    return name_at(date_names().short_months, month);
}
QV_API const char *GetAM_L(void) {
    return date_names().am.c_str();
}
QV_API const char *GetPM_L(void) {
    return date_names().pm.c_str();
}

} // extern "C"

namespace {

[[maybe_unused]] const bool glossary_names_installed =
    (qv::install_date_names(GetDay_L, GetMonth_L), true);

} // namespace
