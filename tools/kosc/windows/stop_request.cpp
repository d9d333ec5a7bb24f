#include "commands/stop_request.h"

// Ctrl-C ends the process at once: what works on files alone has nothing to clean up.
void catch_stop_signals(bool) {}

bool stop_requested() { return false; }

int run_stoppable(const std::function<int()>& command) { return command(); }
