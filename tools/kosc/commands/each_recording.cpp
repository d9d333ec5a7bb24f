#include "commands/each_recording.h"

#include <cstdio>
#include <stdexcept>

#include "picture/terminal.h"

exit_code for_each_recording(const std::vector<std::string>& paths,
                             const std::function<exit_code(const std::string& path)>& process)
{
    bool any_message = false;
    bool failed = false;
    for (const std::string& path : paths) {
        try {
            const exit_code code = process(path);
            any_message = code == EXIT_DONE || any_message;
            failed = code == EXIT_FAILED || failed;
        } catch (const reader_gone&) {
            throw;
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "kosc: %s\n", error.what());
            failed = true;
        }
    }
    return failed ? EXIT_FAILED : any_message ? EXIT_DONE : EXIT_NO_MESSAGE;
}
