// Refuses calls to the system, one after the other, in every scenario, each case in a process of its own.
//   faults                              all cases
//   faults --short                      few of each kind
//   faults SCENARIO KIND once|onwards K one case, in this process: for a debugger
// The program is started with the shim preloaded.
#include "faults/scenarios.h"
#include "support/host.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fcntl.h>
#include <numeric>
#include <string_view>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Faults;
using namespace TestSupport;

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto deadline = std::chrono::seconds(30);    // of a case; an end that waits for a consumer takes 10 s
constexpr auto ownDeadline = std::chrono::seconds(10); // of a byte or a thread
constexpr size_t atOnce = 48;                          // processes; most of them sleep
constexpr unsigned long everyCall = 250;               // up to here every call is refused, then some of them

constexpr const char *kindNames[FaultKinds] = {"allocation", "mapping", "open",        "read",
                                               "short read", "write",   "short write", "seek",
                                               "close",      "mkdir",   "stat",        "thread"};
constexpr const char *modeNames[2] = {"once", "onwards"};

struct FaultCase
{
    const Scenario *Of;
    int Kind, Onwards;
    unsigned long Call; // 0: none is refused
};

// What a case leaves for its parent, also when it dies.
struct Outcome
{
    char Phase[64], Fault[256];
    unsigned long Calls[FaultKinds];
    size_t Histogram; // a hash of it
};

struct Rig
{
    TempFolder Folder;
    std::string Recording = Folder.file("recording.tgx");
    size_t Histogram = 0; // that of a run without a refused call
    FaultsArm *Arm = nullptr;
    FaultsDisarm *Disarm = nullptr;
    FaultsCalls *Calls = nullptr;
};

template <class Function>
Function *ofShim(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_DEFAULT, name));
}

// The end of a case, at its first fault.
struct Failed
{
    std::string Why;
};

void expect(bool holds, const char *what)
{
    if (!holds) throw Failed{what};
}

void enter(Outcome &outcome, const char *phase)
{
    std::strncpy(outcome.Phase, phase, sizeof outcome.Phase - 1);
}

// Allocates nothing: the shim is still armed.
bool isFinished(FaultHost &host)
{
    const auto end = Clock::now() + ownDeadline;
    while (std::atomic_ref<uint8_t>(host.Finished) != 1) {
        if (Clock::now() > end) return false;
        usleep(1000);
    }
    return true;
}

void play(const Rig &rig, const FaultCase &played, const std::string &folder, Outcome &outcome)
{
    const size_t threads = threadCount(), descriptors = descriptorCount();
    FaultHost host(folder, rig.Recording);
    enter(outcome, "preparing");
    played.Of->Prepare(host);

    enter(outcome, "the calls");
    rig.Arm(played.Kind, played.Call, played.Onwards);
    played.Of->Calls(host);
    enter(outcome, "the finished byte");
    const bool finished = isFinished(host);
    rig.Disarm();
    for (int kind = 0; kind < FaultKinds; ++kind) outcome.Calls[kind] = rig.Calls(kind);
    expect(finished, "never 1");

    enter(outcome, "the next good call");
    played.Of->Resume(host);
    const auto counts = goodHistogram();
    expect(std::accumulate(counts.begin(), counts.end(), uint64_t{0}) > 0, "no histogram");
    outcome.Histogram = std::hash<std::string_view>()(
        {reinterpret_cast<const char *>(counts.data()), counts.size() * sizeof counts.front()});
    expect(rig.Histogram == 0 || outcome.Histogram == rig.Histogram, "another histogram");

    enter(outcome, "the exit");
    exitAPI();
    expect(eventually([&] { return threadCount() == threads; }, ownDeadline), "a thread is left");
    expect(eventually([&] { return descriptorCount() == descriptors; }, ownDeadline), "a descriptor is left");
    enter(outcome, "");
}

// In a process of its own. Its output goes nowhere, but as to a console.
void playApart(const Rig &rig, const FaultCase &played, const std::string &folder, Outcome &outcome)
{
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    try {
        play(rig, played, folder, outcome);
    } catch (const Failed &failed) {
        std::strncpy(outcome.Fault, failed.Why.c_str(), sizeof outcome.Fault - 1);
    }
    _exit(0);
}

template <class T>
T *sharedMemory(size_t count)
{
    void *memory = mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<T *>(memory);
}

// Plays cases, many at once, and calls `done(case, outcome)` after each.
class Players
{
public:
    explicit Players(const Rig &played) : rig(played), slots(atOnce), outcomes(sharedMemory<Outcome>(atOnce)) {}

    template <class Done>
    void play(std::deque<FaultCase> cases, Done done)
    {
        for (size_t playing = 0; playing > 0 || !cases.empty();) {
            playing = 0;
            for (size_t i = 0; i < atOnce; ++i) {
                if (slots[i].Process != 0 && hasEnded(i)) {
                    std::filesystem::remove_all(folderOf(i));
                    slots[i].Process = 0;
                    done(slots[i].Played, outcomes[i]);
                }
                if (slots[i].Process == 0 && !cases.empty()) {
                    start(i, cases.front());
                    cases.pop_front();
                }
                playing += slots[i].Process != 0;
            }
            usleep(1000);
        }
    }

private:
    struct Slot
    {
        pid_t Process = 0; // 0: none
        FaultCase Played;
        Clock::time_point Deadline;
    };

    std::string folderOf(size_t i) const { return rig.Folder.file(std::to_string(i)); }

    void start(size_t i, const FaultCase &played)
    {
        outcomes[i] = {};
        std::filesystem::create_directories(folderOf(i));
        slots[i] = {0, played, Clock::now() + deadline};
        slots[i].Process = fork();
        if (slots[i].Process == 0) playApart(rig, played, folderOf(i), outcomes[i]);
    }

    bool hasEnded(size_t i)
    {
        Slot &slot = slots[i];
        Outcome &outcome = outcomes[i];
        const bool late = Clock::now() > slot.Deadline;
        if (late) kill(slot.Process, SIGKILL);
        int status = 0;
        if (waitpid(slot.Process, &status, late ? 0 : WNOHANG) == 0) return false;
        if (late)
            std::strcpy(outcome.Fault, "hangs");
        else if (WIFSIGNALED(status))
            std::strncpy(outcome.Fault, strsignal(WTERMSIG(status)), sizeof outcome.Fault - 1);
        return true;
    }

    const Rig &rig;
    std::vector<Slot> slots;
    Outcome *outcomes;
};

void tell(const FaultCase &played, const Outcome &outcome)
{
    fmt::print("{}, {} {} {}: {}, {}\n", played.Of->Name, kindNames[played.Kind], modeNames[played.Onwards],
               played.Call, outcome.Phase, outcome.Fault);
    std::fflush(stdout);
}

// The calls of one kind that are refused in turn. Short: three and some of the rest; else every one, and of
// very many some of the rest.
std::vector<unsigned long> refusedCalls(unsigned long count, bool isShort)
{
    std::vector<unsigned long> calls;
    const unsigned long dense = isShort ? 3 : everyCall;
    for (unsigned long call = 1; call <= count; call += call < dense ? 1 : 1 + call / (isShort ? 2 : 50))
        calls.push_back(call);
    return calls;
}

// The calls that each scenario makes, and what it counts, if none is refused.
std::vector<Outcome> playUntouched(Rig &rig, Players &players)
{
    std::vector<Outcome> outcomes;
    for (const Scenario &scenario : scenarios())
        players.play({{&scenario, 0, 0, 0}}, [&](const FaultCase &played, const Outcome &outcome) {
            if (outcome.Fault[0]) tell(played, outcome);
            if (outcome.Fault[0]) std::exit(1);
            rig.Histogram = outcome.Histogram;
            outcomes.push_back(outcome);
        });
    return outcomes;
}

struct Tally
{
    unsigned long Calls = 0, Cases = 0, Failures = 0;
};
using Tallies = std::array<std::array<Tally, 2>, FaultKinds>;

bool tellAll(const Tallies &tallies)
{
    Tally all;
    fmt::print("\n{:<12} {:<8} {:>6} {:>6} {:>8}\n", "kind", "mode", "calls", "cases", "failures");
    for (int kind = 0; kind < FaultKinds; ++kind)
        for (int onwards = 0; onwards < 2; ++onwards) {
            const Tally &tally = tallies[kind][onwards];
            fmt::print("{:<12} {:<8} {:>6} {:>6} {:>8}\n", kindNames[kind], modeNames[onwards], tally.Calls,
                       tally.Cases, tally.Failures);
            all = {all.Calls + tally.Calls, all.Cases + tally.Cases, all.Failures + tally.Failures};
        }
    fmt::print("{:<12} {:<8} {:>6} {:>6} {:>8}\n", "all", "", all.Calls, all.Cases, all.Failures);
    return all.Failures == 0;
}

bool playAll(Rig &rig, bool isShort)
{
    Players players(rig);
    const std::vector<Outcome> untouched = playUntouched(rig, players);
    std::deque<FaultCase> cases;
    Tallies tallies;
    for (int kind = 0; kind < FaultKinds; ++kind)
        for (int onwards = 0; onwards < 2; ++onwards)
            for (size_t i = 0; i < untouched.size(); ++i) {
                tallies[kind][onwards].Calls += untouched[i].Calls[kind];
                for (const unsigned long call : refusedCalls(untouched[i].Calls[kind], isShort))
                    cases.push_back({&scenarios()[i], kind, onwards, call});
            }
    players.play(std::move(cases), [&](const FaultCase &played, const Outcome &outcome) {
        Tally &tally = tallies[played.Kind][played.Onwards];
        ++tally.Cases;
        if (!outcome.Fault[0]) return;
        ++tally.Failures;
        tell(played, outcome);
    });
    return tellAll(tallies);
}

template <class Names>
int numberOf(const Names &names, std::string_view name)
{
    return static_cast<int>(std::find(std::begin(names), std::end(names), name) - std::begin(names));
}

bool playHere(const Rig &rig, char **words)
{
    const auto all = scenarios();
    const auto scenario = std::find_if(
        all.begin(), all.end(), [&](const Scenario &each) { return words[0] == std::string_view(each.Name); });
    const FaultCase played{&*scenario, numberOf(kindNames, words[1]), numberOf(modeNames, words[2]),
                           std::strtoul(words[3], nullptr, 10)};
    if (scenario == all.end() || played.Kind == FaultKinds || played.Onwards == 2) return false;
    Outcome outcome{};
    try {
        play(rig, played, rig.Folder.path().string(), outcome);
    } catch (const Failed &failed) {
        std::strncpy(outcome.Fault, failed.Why.c_str(), sizeof outcome.Fault - 1);
    }
    tell(played, outcome);
    return !outcome.Fault[0];
}

} // namespace

int main(int argc, char **argv)
{
    Rig rig;
    rig.Arm = ofShim<FaultsArm>("faultsArm");
    rig.Disarm = ofShim<FaultsDisarm>("faultsDisarm");
    rig.Calls = ofShim<FaultsCalls>("faultsCalls");
    if (!rig.Arm || !rig.Disarm || !rig.Calls) {
        fmt::print(stderr, "faults: the shim isn't preloaded\n");
        return 2;
    }
    writeRecording(rig.Recording);
    const bool good =
        argc == 5 ? playHere(rig, argv + 1) : playAll(rig, argc > 1 && argv[1] == std::string_view("--short"));
    return good ? 0 : 1;
}
