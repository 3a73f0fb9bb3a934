// timeutil.cpp - the local time text used in log-file prefixes.
#include <cstring>
#include <ctime>

#include "qv/platform.h"

namespace {

constexpr const char *time_format = "%Y-%m-%d %H:%M:%S";
char time_text[32];

} // namespace

extern "C" {

// "YYYY-MM-DD HH:MM:SS" of the local time now, in a static buffer each call overwrites;
// "0000-00-00 00:00:00" when the clock or the time zone cannot be read.
QV_API const char *Time_L(void) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    if (now == static_cast<std::time_t>(-1) || localtime_r(&now, &local) == nullptr ||
        std::strftime(time_text, sizeof time_text, time_format, &local) == 0) {
        std::strcpy(time_text, "0000-00-00 00:00:00");
    }
    return time_text;
}

} // extern "C"
