// date_zones.cpp - time zones: the table of zone abbreviations with their standard
// displacements, numeric zone texts, the machine's own zone, the process's default zone,
// and moving a UTC time to local time.
//
// A displacement is hours * 100 + minutes, signed. The table is sorted by name (checked
// when compiled) and searched without case; ambiguous abbreviations take their most common
// meaning (CST North American Central, IST India, BST British summer time).
//
// Part of the date module.
#define QV_MODULE "date"
#include <algorithm>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string_view>

#include "dates/date.hpp"
#include "qv/date.h"

namespace {

struct ZoneName {
    std::string_view name;
    int16_t zone;
};

constexpr ZoneName zone_table[] = {
    {"ACDT", 1030}, {"ACST", 930}, {"AEDT", 1100}, {"AEST", 1000}, {"AKDT", -800}, {"AKST", -900},
    {"AST", -400},  {"AWST", 800}, {"BST", 100},   {"CDT", -500},  {"CEDT", 200},  {"CEST", 200},
    {"CET", 100},   {"CST", -600}, {"EDT", -400},  {"EEDT", 300},  {"EEST", 300},  {"EET", 200},
    {"EST", -500},  {"GMT", 0},    {"HST", -1000}, {"IST", 530},   {"JST", 900},   {"KST", 900},
    {"MDT", -600},  {"MSK", 300},  {"MST", -700},  {"NZDT", 1300}, {"NZST", 1200}, {"PDT", -700},
    {"PST", -800},  {"UTC", 0},    {"WEDT", 100},  {"WEST", 100},  {"WET", 0},     {"Z", 0},
};
static_assert(std::is_sorted(std::begin(zone_table), std::end(zone_table),
                             [](const ZoneName &a, const ZoneName &b) { return a.name < b.name; }));

constexpr std::size_t longest_zone_name = 5; // "LOCAL"

bool has_default_zone = false;
int16_t default_zone = 0;

// "+hh:mm", "+hhmm", "+h", "+hh": sign required, hours 0..23, minutes 0..59.
bool numeric_zone(std::string_view text, int16_t *zone) {
    if (text.size() < 2 || (text[0] != '+' && text[0] != '-')) return false;
    const int sign = text[0] == '-' ? -1 : 1;
    int32_t value[2] = {0, 0};
    int32_t part = 0, part_digits = 0;
    for (char c : text.substr(1)) {
        if (c == ':' && part == 0 && part_digits > 0) {
            part = 1, part_digits = 0;
        } else if (c >= '0' && c <= '9' && part_digits < 2) {
            value[part] = value[part] * 10 + (c - '0'), ++part_digits;
        } else if (c >= '0' && c <= '9' && part == 0 && part_digits == 2) {
            part = 1, part_digits = 1, value[1] = c - '0'; // "+0530"
        } else {
            return false;
        }
    }
    if (part_digits == 0 || (part == 1 && part_digits != 2) || value[0] > 23 || value[1] > 59)
        return false;
    *zone = static_cast<int16_t>(sign * (value[0] * 100 + value[1]));
    return true;
}

} // namespace

bool qv::find_zone(const char *name, std::size_t length, int16_t *zone) {
    std::string_view text(name, length);
    if (numeric_zone(text, zone)) return true;
    if (length > longest_zone_name) return false;
    char upper[longest_zone_name];
    for (std::size_t i = 0; i < length; ++i)
        upper[i] = name[i] >= 'a' && name[i] <= 'z' ? static_cast<char>(name[i] - 32) : name[i];
    const std::string_view key(upper, length);
    if (key == "LOCAL") {
        *zone = GetLocalTimeZone_L();
        return true;
    }
    const auto *found = std::lower_bound(
        std::begin(zone_table), std::end(zone_table), key,
        [](const ZoneName &entry, std::string_view wanted) { return entry.name < wanted; });
    if (found == std::end(zone_table) || found->name != key) return false;
    *zone = found->zone;
    return true;
}

extern "C" {

QV_API uint8_t IsValidTimezone_L(const char *name, int16_t *zone) {
    int16_t found = 0;
    if (name == nullptr || !qv::find_zone(name, std::strlen(name), &found)) return 0;
    if (zone != nullptr) *zone = found;
    return 1;
}

QV_API int16_t GetLocalTimeZone_L(void) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) return 0;
    const long minutes = local.tm_gmtoff / 60;
    return static_cast<int16_t>(minutes / 60 * 100 + minutes % 60);
}

QV_API int16_t GetDefaultTimeZone_L(void) {
    if (!has_default_zone) SetDefaultTimeZone_L(GetLocalTimeZone_L());
    return default_zone;
}

QV_API void SetDefaultTimeZone_L(int16_t zone) {
    default_zone = zone;
    has_default_zone = true;
}

QV_API int32_t AdjustUTCTimeToLocal_L(QV_DATE_T *date, QV_DATE_T *out) {
    if (date == nullptr) return -1;
    QV_DATE_T &changed = out != nullptr ? (*out = *date) : *date;
    // The displacement in force at that moment; a time of day takes today's.
    std::time_t moment =
        changed.month == 0
            ? std::time(nullptr)
            : static_cast<std::time_t>(qv::local_seconds(changed) - 2440588 * qv::seconds_per_day);
    std::tm local{};
    if (localtime_r(&moment, &local) != nullptr) qv::add_to_date(changed, local.tm_gmtoff, 0);
    return 0;
}

} // extern "C"
