#include "commands/stop_request.h"

#include <csignal>
#include <cstdlib>

#include "picture/terminal.h"

namespace {

volatile std::sig_atomic_t requested = 0; // the signal's number

[[noreturn]] void end_by(int signal)
{
    std::signal(signal, SIG_DFL);
    sigset_t own; // libraries of sound systems block signals
    sigemptyset(&own);
    sigaddset(&own, signal);
    pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
    std::raise(signal);
    std::abort(); // not reached
}

} // namespace

void catch_stop_signals(bool break_reads)
{
    struct sigaction action {};
    action.sa_handler = [](int signal) { requested = signal; };
    action.sa_flags = static_cast<int>(SA_RESETHAND | (break_reads ? 0U : SA_RESTART));
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void release_stop_signals()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

bool stop_requested() { return requested != 0; }

int run_stoppable(const std::function<int()>& command)
{
    int code = 0;
    try {
        code = command();
    } catch (const reader_gone&) {
        end_by(SIGPIPE);
    } catch (const stopped&) {
        end_by(requested);
    }
    if (stop_requested()) {
        end_by(requested);
    }
    return code;
}
