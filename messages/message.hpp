// message.hpp - internal hooks of the message module for tests: the switches that the
// interface can only turn one way, and the message directory that is found only once.
#pragma once

#include <string>

namespace qv {

// Turns deferred warnings off again.
void reset_warning_deferral();
// The message directory (found on first use), and forgetting it so that the next glossary
// load searches again.
std::string message_directory();
void forget_message_directory();

} // namespace qv
