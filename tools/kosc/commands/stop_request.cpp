#include "commands/stop_request.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t requested = 0;

} // namespace

void catch_stop_signals(bool break_reads)
{
    struct sigaction action {};
    action.sa_handler = [](int) { requested = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND | (break_reads ? 0U : SA_RESTART));
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool stop_requested() { return requested != 0; }
