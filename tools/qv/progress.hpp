// progress.hpp - a progress bar for a long run over a file, on standard error.
//
// Shown only when standard error is a terminal and the input is a regular file (whose size
// says how far along the run is); otherwise every call is a no-op, so redirected runs and
// pipes stay silent. The clock is read once every 64 rows and the line redrawn at most ten
// times a second, so the bar costs next to nothing per row.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace qvtool {

class Progress {
  public:
    Progress(bool enabled, std::uint64_t total_bytes, std::FILE *out = stderr);
    ~Progress() { finish(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // After each row: the input bytes consumed so far and the rows read.
    void update(std::uint64_t bytes, std::uint64_t rows) {
        if (enabled_ && (++calls_ & 63) == 0) tick(bytes, rows);
    }
    // Clears the bar (before the summary line is written).
    void finish();

  private:
    void tick(std::uint64_t bytes, std::uint64_t rows);
    bool enabled_, drawn_ = false;
    std::uint64_t total_, calls_ = 0;
    std::FILE *out_;
    std::chrono::steady_clock::time_point start_, last_draw_;
};

// The bar's text for `bytes` of `total` done and `rows` read in `seconds`:
// "[=========>              ]  38%  104.9 MB of 274.0 MB  1.25M rows/s  0:07 left".
std::string render_progress(std::uint64_t bytes, std::uint64_t total, std::uint64_t rows,
                            double seconds);

// Whether a run over an input of this kind shows the bar: standard error is a terminal and
// the input is a regular file.
bool progress_wanted(bool input_regular);

} // namespace qvtool
