// Starts the program and takes what it leaves: exit code and both outputs. Command lines are split at blanks.
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
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace TestSupport {

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

    // Signals, Ctrl-C by default, as soon as the condition holds.
    Ended interruptWhen(const std::function<bool()> &condition, std::initializer_list<int> by = {SIGINT}) const
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_TRUE(condition());
        for (const int signal : by) kill(Id, signal);
        return wait();
    }
};

inline Started start(const TempFolder &folder, std::vector<std::string> words)
{
    Started started{folder.path().string()};
    words.insert(words.begin(), TESSEL_PROGRAM);
    started.Id = fork();
    if (started.Id != 0) return started;
    std::vector<char *> argv;
    for (std::string &word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    if (chdir(started.Folder.c_str()) != 0) _exit(126);
    dup2(open("stdout", O_CREAT | O_TRUNC | O_WRONLY, 0600), STDOUT_FILENO);
    dup2(open("stderr", O_CREAT | O_TRUNC | O_WRONLY, 0600), STDERR_FILENO);
    std::signal(SIGINT, SIG_DFL);
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    execv(argv[0], argv.data());
    _exit(127);
}

inline Started start(const TempFolder &folder, const std::string &line)
{
    std::istringstream text(line);
    return start(folder, std::vector<std::string>(std::istream_iterator<std::string>(text), {}));
}

inline Ended run(const TempFolder &folder, const auto &lineOrWords)
{
    return start(folder, lineOrWords).wait();
}

// What it writes, without a failure.
inline std::string output(const TempFolder &folder, const std::string &line)
{
    const Ended ended = run(folder, line);
    EXPECT_EQ(ended.Code, 0) << line << "\n" << ended.Err;
    return ended.Out;
}

inline boost::json::object json(const TempFolder &folder, const std::string &line)
{
    return boost::json::parse(output(folder, line + " --json")).as_object();
}

inline bool contains(const std::string &text, std::string_view part)
{
    return text.find(part) != std::string::npos;
}

// Runs what has to end with this code and to say this.
inline Ended answered(const TempFolder &folder, const auto &lineOrWords, int code, std::string_view message)
{
    Ended ended = run(folder, lineOrWords);
    const std::string about = testing::PrintToString(lineOrWords) + "\n" + ended.Err;
    EXPECT_EQ(ended.Code, code) << about;
    EXPECT_TRUE(contains(ended.Err, message)) << message << "\n" << about;
    return ended;
}

// All numbers of an array and of those in it.
inline std::vector<double> numbers(const boost::json::value &value)
{
    if (!value.is_array()) return {value.to_number<double>()};
    std::vector<double> all;
    for (const auto &item : value.as_array())
        for (const double number : numbers(item)) all.push_back(number);
    return all;
}

inline std::vector<double> countsOf(const boost::json::object &result, size_t row)
{
    return numbers(result.at("channels").at(row).at("counts"));
}

inline double sum(const std::vector<double> &values)
{
    return std::accumulate(values.begin(), values.end(), 0.0);
}

// 20000 events of channels 1 and 2 with lifetimes of 1 ns and 3 ns, without background.
inline void simulateDecays(const TempFolder &folder)
{
    output(folder, "simulate light.tgx --rate 100kcps --lifetime 1ns,3ns --background 0 --irf 0 --delay 0 "
                   "--duration 0.1s");
}

inline void simulateT2(const TempFolder &folder, const std::string &options)
{
    output(folder, "simulate light.tgx --mode t2 --background 0 --irf 0 " + options);
}

} // namespace TestSupport
