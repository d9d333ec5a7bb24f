// Ctrl-C, or a polite kill: a wish to end that is asked for where ending is clean.
#ifndef KOSC_TOOL_STOP_REQUEST_H
#define KOSC_TOOL_STOP_REQUEST_H

#include <functional>

// From now on SIGINT and SIGTERM only leave a request; a second one of them ends the process. If `break_reads`, they
// also end a read that waits for input.
void catch_stop_signals(bool break_reads);

bool stop_requested();

// Returns what `command` returns. If it returned because a stop was requested, or ended with reader_gone, the process
// ends by that signal or SIGPIPE: only so does a shell know that its loop or pipeline is to end too.
int run_stoppable(const std::function<int()>& command);

#endif
