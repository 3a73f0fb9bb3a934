// date_records.hpp - what the date suites share: a date record built from its fields and
// the record as text for comparisons and messages.
#pragma once

#include <cstdio>
#include <string>

#include "qv/datatype.h"

namespace qvtest {

inline QV_DATE_T make_date(int year, int month, int day, int hour = 0, int minute = 0,
                           int second = 0, int fraction = 0, int zone = 0) {
    return QV_DATE_T{static_cast<int16_t>(year),
                     static_cast<uint8_t>(month),
                     static_cast<uint8_t>(day),
                     static_cast<uint8_t>(hour),
                     static_cast<uint8_t>(minute),
                     static_cast<uint8_t>(second),
                     fraction,
                     static_cast<int16_t>(zone)};
}

// Every field: "2009-01-02 03:04:05.000000006 +530".
inline std::string date_fields(const QV_DATE_T &d) {
    char out[64];
    std::snprintf(out, sizeof out, "%d-%02d-%02d %02d:%02d:%02d.%09d %+d", d.year, d.month, d.day,
                  d.hour, d.minute, d.second, d.fraction, d.zone);
    return out;
}

} // namespace qvtest
