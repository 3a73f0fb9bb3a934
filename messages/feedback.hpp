// feedback.hpp - feedback's side doors for the library's own reports, which are made inside
// a SpeakingScope (core/except_report.hpp) where the exported entry points stay silent.
//
// Each takes a ready text (no formatting) and writes it as a feedback write would. A text
// that ends with a line feed and needs no wrapping is written without allocating; other
// texts allocate through qv::String, so a caller outside a C entry point must be ready for
// std::bad_alloc.
#pragma once

#include <cstdint>
#include <string_view>

namespace qv {

// Writes the report to the class; false when feedback could not take it (its tables could
// not be set up, or the class is unknown or inactive).
bool write_report(int32_t feedback_class, std::string_view text);
// True when debug output of `category` is selected.
bool debug_selected(const char *category);
// Writes debug output (the selection is the caller's to check).
void write_debug(std::string_view text);
// Writes a reported message (ReportMessages_L) to its class; when no log file is open and
// the class would not echo to standard output, the text goes to standard output all the
// same, so that a report is seen.
void write_reported_message(int32_t feedback_class, std::string_view text);

} // namespace qv
