// progress.cpp - the progress bar of progress.hpp.
#include "progress.hpp"

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace qvtool {
namespace {

constexpr int BAR_WIDTH = 24;
constexpr auto REDRAW_INTERVAL = std::chrono::milliseconds(100);

std::string printed(const char *format, double value, const char *unit) {
    char text[32];
    std::snprintf(text, sizeof text, format, value, unit);
    return text;
}

// 999 B, 1.5 kB, 104.9 MB, 2.1 GB (decimal units).
std::string byte_count(double bytes) {
    static const char *const units[] = {"kB", "MB", "GB", "TB"};
    if (bytes < 1000) return printed("%.0f %s", bytes, "B");
    int unit = 0;
    for (bytes /= 1000; bytes >= 1000 && unit < 3; ++unit) bytes /= 1000;
    return printed("%.1f %s", bytes, units[unit]);
}

// 950, 12.3k, 1.25M rows per second.
std::string rate(double per_second) {
    if (per_second < 1000) return printed("%.0f%s", per_second, "");
    if (per_second < 1e6) return printed("%.1f%s", per_second / 1e3, "k");
    return printed("%.2f%s", per_second / 1e6, "M");
}

// 0:07, 12:30, 2:05:00; "-:--" when not known yet.
std::string duration(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0) return "-:--";
    const auto whole = static_cast<long long>(seconds + 0.5);
    char text[32];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

} // namespace

std::string render_progress(std::uint64_t bytes, std::uint64_t total, std::uint64_t rows,
                            double seconds) {
    const double fraction = total == 0 ? 1.0 : std::min(1.0, double(bytes) / double(total));
    const int filled = static_cast<int>(fraction * BAR_WIDTH);
    std::string bar = std::string(1, '[').append(filled, '=');
    if (filled < BAR_WIDTH) bar += '>' + std::string(BAR_WIDTH - filled - 1, ' ');
    bar += "]";
    const double left = bytes == 0 || seconds <= 0
                            ? NAN
                            : double(total - std::min(bytes, total)) * seconds / double(bytes);
    char percent[8];
    std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(fraction * 100));
    return bar + " " + percent + "  " + byte_count(double(bytes)) + " of " +
           byte_count(double(total)) + "  " + rate(seconds > 0 ? double(rows) / seconds : 0) +
           " rows/s  " + duration(left) + " left";
}

bool progress_wanted(bool input_regular) {
    return input_regular && isatty(STDERR_FILENO) == 1;
}

Progress::Progress(bool enabled, std::uint64_t total_bytes, std::FILE *out)
    : enabled_(enabled), total_(total_bytes), out_(out), start_(std::chrono::steady_clock::now()),
      last_draw_(start_) {}

void Progress::tick(std::uint64_t bytes, std::uint64_t rows) {
    const auto now = std::chrono::steady_clock::now();
    if (now - last_draw_ < REDRAW_INTERVAL) return;
    last_draw_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    std::fprintf(out_, "\r%s\x1b[K", render_progress(bytes, total_, rows, seconds).c_str());
    std::fflush(out_);
    drawn_ = true;
}

void Progress::finish() {
    if (!drawn_) return;
    std::fputs("\r\x1b[K", out_);
    std::fflush(out_);
    drawn_ = false;
}

} // namespace qvtool
