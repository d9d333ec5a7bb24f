#include "commands/each_recording.h"

#include <cstdio>
#include <stdexcept>

#include "picture/terminal.h"

exit_code for_each_recording(const std::vector<std::string>& paths,
                             const std::function<exit_code(const std::string& path)>& hear)
{
    bool heard = false;
    bool failed = false;
    for (const std::string& path : paths) {
        try {
            heard = hear(path) == EXIT_DONE || heard;
        } catch (const reader_gone&) {
            throw;
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "kosc: %s\n", error.what());
            failed = true;
        }
    }
    return failed ? EXIT_FAILED : heard ? EXIT_DONE : EXIT_NONE_HEARD;
}
