// interrupt.cpp - the signal handlers of interrupt.hpp. Everything the handler touches is a
// lock-free flag, a fixed buffer or an async-signal-safe call (write, unlink, _exit, and the
// library's Set_Interrupt_L, which only sets a flag).
#include "interrupt.hpp"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <qv/feedback.h>

#include <csignal>
#include <initializer_list>
#include <cstring>

namespace qvtool::interrupt {
namespace {

volatile std::sig_atomic_t g_signal = 0;
volatile std::sig_atomic_t g_has_temporary = 0;
char g_temporary[PATH_MAX];
int g_wake[2] = {-1, -1};

extern "C" void on_signal(int signal_number) {
    if (g_signal != 0) {
        if (g_has_temporary) unlink(g_temporary);
        static const char text[] = "qv: interrupted\n";
        [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, text, sizeof text - 1);
        _exit(128 + signal_number);
    }
    g_signal = signal_number;
    Set_Interrupt_L(); // a running script stops at its next statement or loop turn
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = write(g_wake[1], &byte, 1);
}

} // namespace

void install() {
    if (g_wake[0] < 0 && pipe2(g_wake, O_CLOEXEC | O_NONBLOCK) != 0) g_wake[0] = g_wake[1] = -1;
    struct sigaction action {};
    action.sa_handler = on_signal;
    sigemptyset(&action.sa_mask);
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal_number, &action, nullptr);
}

int requested() {
    return g_signal;
}

void clear() {
    char bytes[16];
    while (g_wake[0] >= 0 && read(g_wake[0], bytes, sizeof bytes) > 0) {
    }
    Clear_Interrupt_L();
    g_signal = 0;
}

int wake_fd() {
    return g_wake[0];
}

void set_temporary(const char *path) {
    g_has_temporary = 0;
    if (path == nullptr || std::strlen(path) >= sizeof g_temporary) return;
    std::strcpy(g_temporary, path);
    g_has_temporary = 1;
}

} // namespace qvtool::interrupt
