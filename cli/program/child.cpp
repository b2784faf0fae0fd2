#include "program/child.h"

#include "program/console.h"
#include "program/exit_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace Tessel::Cli {

namespace {

constexpr const char *parentKey = "TESSEL_PARENT"; // a child's variable: the process that started it

// As posix_spawn takes them.
struct SpawnPlan
{
    posix_spawn_file_actions_t Files;
    posix_spawnattr_t Attributes;

    SpawnPlan()
    {
        posix_spawn_file_actions_init(&Files);
        posix_spawnattr_init(&Attributes);
    }
    ~SpawnPlan()
    {
        posix_spawn_file_actions_destroy(&Files);
        posix_spawnattr_destroy(&Attributes);
    }
    SpawnPlan(const SpawnPlan &) = delete;
    SpawnPlan &operator=(const SpawnPlan &) = delete;
};

// True: it has ended.
bool take(Child &child)
{
    int status = 0;
    if (child.Id < 0 || waitpid(child.Id, &status, WNOHANG) != child.Id) return false;
    child.Id = -1;
    child.Code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return true;
}

} // namespace

Child::~Child()
{
    if (Id < 0) return;
    kill(Id, SIGKILL); // it writes no file
    waitpid(Id, nullptr, 0);
}

void endWithParent()
{
    const char *parent = std::getenv(parentKey);
    if (!parent) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (std::to_string(getppid()) != parent) _exit(static_cast<int>(Exit::Failed)); // it has gone already
    unsetenv(parentKey);
}

std::unique_ptr<Child> startSelf(const std::vector<std::string> &words, std::string_view input)
{
    auto child = std::make_unique<Child>(input);
    SpawnPlan plan;
    const MemoryFile *streams[] = {&child->In, &child->Out, &child->Error};
    for (int i = 0; i < 3; ++i) posix_spawn_file_actions_adddup2(&plan.Files, streams[i]->File.Number, i);
    posix_spawnattr_setflags(&plan.Attributes, POSIX_SPAWN_SETPGROUP);
    std::vector<std::string> line = {"tessel"};
    line.insert(line.end(), words.begin(), words.end());
    std::vector<char *> arguments, environment;
    for (std::string &word : line) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::string parent = fmt::format("{}={}", parentKey, getpid());
    for (char **entry = environ; *entry; ++entry) environment.push_back(*entry);
    environment.insert(environment.end(), {parent.data(), nullptr});
    const int problem = posix_spawn(&child->Id, "/proc/self/exe", &plan.Files, &plan.Attributes,
                                    arguments.data(), environment.data());
    if (problem != 0) {
        child->Id = -1;
        throw Failure(Exit::Failed, fmt::format("no further process: {}", std::strerror(problem)));
    }
    child->Ended.Number = int(syscall(SYS_pidfd_open, child->Id, 0));
    return child;
}

void awaitChildren(const std::vector<Child *> &children)
{
    bool hasEnded = false;
    for (Child *child : children) hasEnded = take(*child) || hasEnded;
    if (hasEnded) return;
    constexpr int longestWaitMs = 100, searchMs = 2;
    std::vector<pollfd> waited;
    for (const Child *child : children) waited.push_back({child->Ended.Number, POLLIN, 0});
    const bool canSay = std::ranges::all_of(waited, [](const pollfd &each) { return each.fd >= 0; });
    poll(waited.data(), canSay ? waited.size() : 0, canSay ? longestWaitMs : searchMs);
    for (Child *child : children) take(*child);
}

} // namespace Tessel::Cli
