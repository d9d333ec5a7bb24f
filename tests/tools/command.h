// Runs the built command in a folder of its own, as people do at a shell.
#ifndef KOSC_TESTS_COMMAND_H
#define KOSC_TESTS_COMMAND_H

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

struct outcome {
    int code;
    std::string out, err;
};

inline std::string contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class command_test : public testing::Test {
protected:
    command_test() { std::filesystem::create_directories(directory_); }
    ~command_test() override { std::filesystem::remove_all(directory_); }

    std::string path(const std::string& name) const { return directory_ + "/" + name; }

    // Runs a shell command in which `kosc` stands for the tool, in a directory of its own.
    outcome run(const std::string& command) const
    {
        const std::string script = "kosc() { '" KOSC_TOOL "' \"$@\"; }\ncd '" + directory_ + "'\n{ " + command +
                                   "\n} >'" + path("out") + "' 2>'" + path("err") + "'";
        const int status = std::system(script.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(path("out")), contents(path("err"))};
    }

    const std::string directory_ = testing::TempDir() + "kosc_tool_" + std::to_string(getpid());
};

#endif
