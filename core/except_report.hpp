// except_report.hpp - what the status-context machinery says: the fatal reports of a raise
// or pop that cannot be carried out, the "HANDLER" trace of every raise, and the details
// of the last first-level raise that the message routines read.
#pragma once

#include <cstdint>

namespace qv {

struct LastRaise {
    const char *symbol = nullptr;
    const char *file = nullptr;
    int32_t line = 0;
    const char *context_function = nullptr;
    int32_t context_line = 0;
};

extern LastRaise last_raise;

// Writes one of the fatal texts with the file and line it concerns. Never ends the process.
void report_fatal(const char *text, const char *file, int32_t line);
// Traces a raise under the debug category "HANDLER".
void trace_raise(const char *symbol, const char *file, int32_t line, int32_t mode, int32_t status,
                 const char *status_symbol);

} // namespace qv
