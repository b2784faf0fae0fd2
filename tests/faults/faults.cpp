// Refuses calls to the system, one after the other, in every scenario, each case in a process of its own.
//   faults                                all cases
//   faults --short                        few of each kind
//   faults SCENARIO KIND once|onwards K   one case, in this process: for a debugger
// The program is started with the shim preloaded.
#include "faults/scenarios.h"
#include "support/host.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Faults;
using namespace TestSupport;

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto caseDeadline = std::chrono::seconds(40); // a stage or a consumer may be waited for 10 s
constexpr auto deadline = std::chrono::seconds(10);     // of a finished byte, of a thread that ends
constexpr size_t atOnce = 48;                           // processes; most of them sleep
constexpr unsigned long everyCall = 250;                // up to here every call is refused, then some of them

constexpr const char *kindNames[FaultKinds] = {"allocation", "mapping", "open",        "read",
                                               "short read", "write",   "short write", "seek",
                                               "close",      "mkdir",   "stat",        "thread"};
constexpr const char *modeNames[] = {"once", "onwards"};

struct FaultCase
{
    const Scenario *Of = nullptr;
    int Kind = 0, Onwards = 0;
    unsigned long Call = 0; // 0: none is refused
};

size_t numberOf(const FaultCase &played)
{
    return static_cast<size_t>(played.Of - scenarios().data());
}

// What a case leaves for its parent, also when it dies.
struct Outcome
{
    char Phase[64], Fault[256]; // Fault: empty if it is well
    unsigned long Calls[FaultKinds];
    size_t Claimed, Histogram; // hashes of what the calls have given, and the good call
};

struct Rig
{
    const FaultsShim *Shim = static_cast<const FaultsShim *>(dlsym(RTLD_DEFAULT, "faultsShim"));
    TempFolder Folder;
    std::vector<Outcome> Untouched = {}; // of each scenario; empty: not yet known
};

template <size_t size>
void put(char (&to)[size], const char *text)
{
    std::strncpy(to, text, size - 1);
}

struct Failed
{
    const char *Why;
};

void expect(bool holds, const char *fault)
{
    if (!holds) throw Failed{fault};
}

// Allocates nothing: the shim is still armed.
bool isFinished(FaultHost &host)
{
    const auto end = Clock::now() + deadline;
    while (std::atomic_ref<uint8_t>(host.Finished) != 1 && Clock::now() < end) usleep(1000);
    return host.Finished == 1;
}

void playPhases(const Rig &rig, const FaultCase &played, const std::string &folder, Outcome &outcome)
{
    const size_t threads = threadCount(), descriptors = descriptorCount();
    FaultHost host(folder, rig.Folder.path().string());
    put(outcome.Phase, "preparing");
    played.Of->Prepare(host);

    put(outcome.Phase, "the calls");
    rig.Shim->Arm(played.Kind, played.Call, played.Onwards);
    played.Of->Calls(host);
    put(outcome.Phase, "the finished byte");
    const bool finished = isFinished(host);
    rig.Shim->Disarm();
    for (int kind = 0; kind < FaultKinds; ++kind) outcome.Calls[kind] = rig.Shim->Calls(kind);
    expect(finished, "never 1");
    outcome.Claimed = claimed(host);

    put(outcome.Phase, "the next good call");
    played.Of->Resume(host);
    const auto counts = goodHistogram();
    expect(std::count(counts.begin(), counts.end(), 0u) < std::ssize(counts), "counts nothing");
    outcome.Histogram = std::hash<std::string_view>()(
        {reinterpret_cast<const char *>(counts.data()), counts.size() * sizeof counts.front()});
    if (!rig.Untouched.empty()) {
        const Outcome &untouched = rig.Untouched[numberOf(played)];
        expect(outcome.Histogram == untouched.Histogram, "counts something else");
        expect(outcome.Claimed == 0 || outcome.Claimed == untouched.Claimed,
               "what was refused was said to be whole, and wasn't");
    }

    put(outcome.Phase, "the exit");
    exitAPI();
    expect(eventually([&] { return threadCount() == threads; }, deadline), "a thread is left");
    expect(eventually([&] { return descriptorCount() == descriptors; }, deadline), "a descriptor is left");
}

void play(const Rig &rig, const FaultCase &played, const std::string &folder, Outcome &outcome)
{
    std::filesystem::create_directories(folder);
    try {
        playPhases(rig, played, folder, outcome);
    } catch (const Failed &failed) {
        put(outcome.Fault, failed.Why);
    }
    std::filesystem::remove_all(folder);
}

void tell(const FaultCase &played, const Outcome &outcome)
{
    fmt::print("{}, {} {} {}: {}: {}\n", played.Of->Name, kindNames[played.Kind], modeNames[played.Onwards],
               played.Call, outcome.Phase, outcome.Fault[0] ? outcome.Fault : "well");
    std::fflush(stdout);
}

// A case in a process of its own, whose output goes nowhere, but as to a console.
class Player
{
public:
    Player()
    {
        void *shared =
            mmap(nullptr, sizeof *outcome, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) std::abort();
        outcome = static_cast<Outcome *>(shared);
    }

    bool isFree() const { return process == 0; }

    void start(const Rig &rig, const FaultCase &next)
    {
        played = next;
        *outcome = {};
        end = Clock::now() + caseDeadline;
        process = fork();
        if (process != 0) return;
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        play(rig, played, rig.Folder.file(std::to_string(getpid())), *outcome);
        _exit(0);
    }

    // Calls `done(case, outcome)` if it has ended, or had to be.
    template <class Done>
    void look(Done done)
    {
        if (isFree()) return;
        const bool late = Clock::now() > end;
        if (late) kill(process, SIGKILL);
        int status = 0;
        if (waitpid(process, &status, late ? 0 : WNOHANG) == 0) return;
        process = 0;
        if (WIFSIGNALED(status)) put(outcome->Fault, late ? "hangs" : strsignal(WTERMSIG(status)));
        done(played, *outcome);
    }

private:
    pid_t process = 0; // 0: none
    Clock::time_point end;
    FaultCase played;
    Outcome *outcome;
};

template <class Done>
void playAll(const Rig &rig, const std::vector<FaultCase> &cases, Done done)
{
    std::vector<Player> players(atOnce);
    auto isFree = [](const Player &player) { return player.isFree(); };
    auto next = cases.begin();
    do {
        for (Player &player : players) {
            player.look(done);
            if (player.isFree() && next != cases.end()) player.start(rig, *next++);
        }
        usleep(1000);
    } while (!std::all_of(players.begin(), players.end(), isFree));
}

// Fills `Untouched`. False: a scenario fails by itself.
bool playUntouched(Rig &rig)
{
    std::vector<FaultCase> cases;
    std::vector<Outcome> outcomes(scenarios().size());
    for (const Scenario &scenario : scenarios()) cases.push_back({.Of = &scenario});
    bool allWell = true;
    playAll(rig, cases, [&](const FaultCase &played, const Outcome &outcome) {
        if (outcome.Fault[0]) tell(played, outcome);
        allWell = allWell && !outcome.Fault[0];
        outcomes[numberOf(played)] = outcome;
    });
    rig.Untouched = outcomes;
    return allWell;
}

// Short: of each kind the first three calls of a scenario and some; else all, and of very many some.
std::vector<FaultCase> casesOf(const Rig &rig, bool isShort)
{
    std::vector<FaultCase> cases;
    const unsigned long dense = isShort ? 3 : everyCall;
    for (const Scenario &scenario : scenarios())
        for (int kind = 0; kind < FaultKinds; ++kind)
            for (unsigned long call = 1; call <= rig.Untouched[numberOf({&scenario})].Calls[kind];
                 call += call < dense ? 1 : 1 + call / (isShort ? 2 : 50))
                for (int onwards = 0; onwards < 2; ++onwards) cases.push_back({&scenario, kind, onwards, call});
    return cases;
}

struct Tally
{
    unsigned long Cases = 0, Failures = 0;
};

bool playTable(const Rig &rig, bool isShort)
{
    Tally all, tallies[FaultKinds][2];
    playAll(rig, casesOf(rig, isShort), [&](const FaultCase &played, const Outcome &outcome) {
        for (Tally *tally : {&all, &tallies[played.Kind][played.Onwards]}) {
            ++tally->Cases;
            tally->Failures += outcome.Fault[0] != 0;
        }
        if (outcome.Fault[0]) tell(played, outcome);
    });
    fmt::print("{:<12}  {:<8} {:>5} {:>8}\n", "refused", "", "cases", "failures");
    for (int kind = 0; kind < FaultKinds; ++kind)
        for (int onwards = 0; onwards < 2; ++onwards)
            fmt::print("{:<12}  {:<8} {:>5} {:>8}\n", kindNames[kind], modeNames[onwards],
                       tallies[kind][onwards].Cases, tallies[kind][onwards].Failures);
    fmt::print("{:<12}  {:<8} {:>5} {:>8}\n", "all", "", all.Cases, all.Failures);
    fmt::print("Of each kind every call of a scenario up to the {}, after them some.\n",
               isShort ? "3rd" : fmt::format("{}th", everyCall));
    return all.Failures == 0;
}

template <class Names>
int indexOf(const Names &names, std::string_view name)
{
    auto hasName = [&](const char *each) { return each == name; };
    return static_cast<int>(std::find_if(std::begin(names), std::end(names), hasName) - std::begin(names));
}

bool playHere(const Rig &rig, char **words)
{
    FaultCase played{nullptr, indexOf(kindNames, words[1]), indexOf(modeNames, words[2]),
                     std::strtoul(words[3], nullptr, 10)};
    for (const Scenario &scenario : scenarios())
        if (scenario.Name == std::string_view(words[0])) played.Of = &scenario;
    if (!played.Of || played.Kind == FaultKinds || played.Onwards == 2) return false;
    Outcome outcome{};
    play(rig, played, rig.Folder.file("here"), outcome);
    tell(played, outcome);
    return !outcome.Fault[0];
}

} // namespace

int main(int argc, char **argv)
{
    Rig rig;
    if (!rig.Shim) {
        fmt::print(stderr, "faults: the shim isn't preloaded\n");
        return 2;
    }
    writeRecordings(rig.Folder.path().string());
    const bool isShort = argc == 2 && argv[1] == std::string_view("--short");
    if (!playUntouched(rig)) return 1;
    return (argc == 5 ? playHere(rig, argv + 1) : playTable(rig, isShort)) ? 0 : 1;
}
