// Ctrl-C, or a polite kill: a wish to end that is asked for where ending is clean.
#ifndef KOSC_TOOL_STOP_REQUEST_H
#define KOSC_TOOL_STOP_REQUEST_H

#include <functional>
#include <stdexcept>

// From now on SIGINT and SIGTERM only leave a request; a second one of them ends the process. If `break_reads`, they
// also end a read that waits for input.
void catch_stop_signals(bool break_reads);

// From now on they end the process again.
void release_stop_signals();

bool stop_requested();

// What was to be done was given up because of the request.
class stopped : public std::runtime_error {
public:
    stopped() : std::runtime_error("stopped") {}
};

// Returns what `command` returns. If it returned because a stop was requested, or ended with reader_gone, the process
// ends by that signal or SIGPIPE, likewise with `stopped`: only so does a shell know that its loop or pipeline is to
// end too.
int run_stoppable(const std::function<int()>& command);

#endif
