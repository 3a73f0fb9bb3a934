// message.hpp - internal hooks of the message module: the day and month names a higher
// floor installs, and for tests the switches that the interface can only turn one way and
// the message directory that is found only once.
#pragma once

#include <cstdint>

#include "core/heap.hpp"

namespace qv {

// Names standing in for the entries that day.gls or month.gls does not give (0-based
// positions; null for none). The date module installs the process locale's names at load;
// without them such entries are empty texts.
using NameAt = const char *(*)(int32_t position);
void install_date_names(NameAt day, NameAt month);

// Turns deferred warnings off again.
void reset_warning_deferral();
// The message directory (found on first use), and forgetting it so that the next glossary
// load searches again.
String message_directory();
void forget_message_directory();

} // namespace qv
