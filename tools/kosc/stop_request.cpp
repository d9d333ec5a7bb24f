#include "stop_request.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t requested = 0;

} // namespace

void catch_stop_signals()
{
    struct sigaction action {};
    action.sa_handler = [](int) { requested = 1; };
    // No SA_RESTART: a read from standard input that waits for a line is to end too.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool stop_requested() { return requested != 0; }
