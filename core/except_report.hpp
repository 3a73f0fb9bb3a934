// except_report.hpp - how the status-context machinery speaks, and the one re-entry rule of
// the library's own output.
//
// Core knows nothing of messages or feedback. It reports through an observer that a higher
// floor installs at load: `fatal` writes one of the fatal texts (a raise or pop that cannot
// be carried out), `trace` traces a raise. Until one is installed (and for any member left
// null) a fatal text is one plain line on standard error and a trace is nothing.
//
// Re-entry. Reports, traces, feedback writes and the setting up of feedback's tables call
// into one another: a report writes feedback, a write formats, formatting runs out of
// memory and raises, the raise reports. One counter, the speaking depth, holds them apart:
// each of them runs inside a SpeakingScope. A report or trace reaches the observer only at
// depth 0; at any other depth a report is written as the plain line (built in a static
// buffer, so it needs no memory) and a trace is dropped. Feedback's own entry points write
// only at depth 0. So every chain of the library's own output ends after one nested step.
#pragma once

#include <cstdint>

namespace qv {

// Details of the last first-level raise (a raise from a protected body).
struct LastRaise {
    const char *symbol = nullptr;
    const char *file = nullptr;
    int32_t line = 0;
    const char *context_function = nullptr;
    int32_t context_line = 0;
};

extern LastRaise last_raise;

struct ReportObserver {
    // Writes one fatal text with the file and line it concerns; never ends the process.
    void (*fatal)(const char *text, const char *file, int32_t line);
    // Traces one raise (the arguments of except_raise).
    void (*trace)(const char *symbol, const char *file, int32_t line, int32_t mode, int32_t status,
                  const char *status_symbol);
};

// Installs the observer; a null member restores that member's default.
void install_report_observer(const ReportObserver &observer);

// Reports and traces through the observer, by the re-entry rule above.
void report_fatal(const char *text, const char *file, int32_t line);
void trace_raise(const char *symbol, const char *file, int32_t line, int32_t mode, int32_t status,
                 const char *status_symbol);

// The plain form of a fatal report, one line on standard error:
// "Status context failure: <text> (<file>, line <line>).". Allocates nothing.
void write_plain_fatal(const char *text, const char *file, int32_t line);

// One level of the library's own output for the life of a scope; a raise unwinding through
// it lowers the depth again.
class SpeakingScope {
  public:
    SpeakingScope() noexcept;
    ~SpeakingScope();
    SpeakingScope(const SpeakingScope &) = delete;
    SpeakingScope &operator=(const SpeakingScope &) = delete;
    // True when no other report, trace or feedback write was under way.
    bool outermost() const { return outermost_; }

  private:
    bool outermost_;
};

int32_t speaking_depth();

} // namespace qv
