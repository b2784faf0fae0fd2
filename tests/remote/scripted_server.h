// A server for tests of the client: a process that behaves as scripted_server.py says.
#pragma once

#include "support/host.h"
#include "support/temp_folder.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace TestSupport {

class ScriptedServer
{
public:
    explicit ScriptedServer(const std::string &behaviour, uint16_t onPort = 0)
    {
        std::array<int, 2> input{};
        if (pipe2(input.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        process = fork();
        if (process == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(open(output.c_str(), O_CREAT | O_WRONLY, 0600), STDOUT_FILENO);
            const std::string wanted = std::to_string(onPort);
            execlp("python3", "python3", TESSEL_PEERS "/scripted_server.py", behaviour.c_str(), wanted.c_str(),
                   nullptr);
            _exit(127);
        }
        close(input[0]);
        untilClosed = input[1];
        if (!eventually([&] { return !lines().empty(); })) throw std::runtime_error("no scripted server");
        listening = static_cast<uint16_t>(std::stoi(lines().front()));
    }
    ~ScriptedServer() { end(); }
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    uint16_t port() const { return listening; }

    // At once, as a crash would.
    void end()
    {
        if (process == 0) return;
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
        close(untilClosed);
        process = 0;
    }

    // How many messages with this part it has received so far.
    size_t received(std::string_view part) const
    {
        const auto all = lines();
        return static_cast<size_t>(std::ranges::count_if(
            all, [part](const std::string &line) { return line.find(part) != std::string::npos; }));
    }

private:
    // Whole ones.
    std::vector<std::string> lines() const
    {
        std::ifstream file(output);
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line) && !file.eof();) all.push_back(line);
        return all;
    }

    TempFolder folder;
    std::string output = folder.file("received");
    pid_t process = 0;
    int untilClosed = -1;
    uint16_t listening = 0;
};

} // namespace TestSupport
