// Starts the program and takes what it leaves: exit code and both outputs.
#pragma once

#include "support/temp_folder.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace TestSupport {

using Arguments = std::vector<std::string>;

struct Ended
{
    int Code = -1; // 128 + n if signal n ended it
    std::string Out, Err;
};

// One start of the program, in the folder, with its outputs in files there.
struct Started
{
    std::string Folder;
    pid_t Id = 0;

    std::string errorText() const { return contents(Folder + "/stderr"); }

    Ended wait() const
    {
        int status = 0;
        waitpid(Id, &status, 0);
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return {code, contents(Folder + "/stdout"), errorText()};
    }
};

inline Started start(const TempFolder &folder, Arguments arguments)
{
    Started started{folder.path().string()};
    arguments.insert(arguments.begin(), TESSEL_PROGRAM);
    started.Id = fork();
    if (started.Id != 0) return started;
    std::vector<char *> argv;
    for (std::string &argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    if (chdir(started.Folder.c_str()) != 0) _exit(126);
    dup2(open("stdout", O_CREAT | O_TRUNC | O_WRONLY, 0600), STDOUT_FILENO);
    dup2(open("stderr", O_CREAT | O_TRUNC | O_WRONLY, 0600), STDERR_FILENO);
    std::signal(SIGINT, SIG_DFL);
    execv(argv[0], argv.data());
    _exit(127);
}

inline Ended run(const TempFolder &folder, const Arguments &arguments)
{
    return start(folder, arguments).wait();
}

inline bool contains(const std::string &text, std::string_view part)
{
    return text.find(part) != std::string::npos;
}

inline bool hasEscape(const std::string &text)
{
    return contains(text, "\033");
}

inline boost::json::object parsed(const std::string &text)
{
    return boost::json::parse(text).as_object();
}

// Turns a recording into one of `size` bytes; what is added are zero words, which take no room on the disc.
inline void resize(const TempFolder &folder, const std::string &name, uint64_t size)
{
    std::filesystem::resize_file(folder.path() / name, size);
}

inline bool waitFor(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace TestSupport
