// interrupt.hpp - Ctrl-C (SIGINT), SIGTERM and SIGHUP during a run.
//
// The first signal only asks the run to stop: it sets a flag that the row loop checks, and
// makes a pipe readable so that a wait for input (poll on the input and the pipe) ends at
// once instead of blocking. The run then stops at a row boundary, removes its temporary output
// and exits with 128 + the signal number. A second signal, for a run stuck where it cannot
// look at the flag (a write to a stalled pipe), removes the registered temporary file from the
// handler itself and exits at once with the same status.
#pragma once

namespace qvtool::interrupt {

// Installs the handlers (without SA_RESTART, so that a blocked read or write returns EINTR).
void install();
// The signal that asked the run to stop, 0 while none did. The library's interrupt flag
// (Set_Interrupt_L) is set too, so that a running script stops.
int requested();
// Forgets a request (the REPL goes on after an interrupted line).
void clear();
// A descriptor that becomes readable once a stop is requested; -1 before install().
int wake_fd();
// The file a second signal removes (copied; null clears it).
void set_temporary(const char *path);

} // namespace qvtool::interrupt
