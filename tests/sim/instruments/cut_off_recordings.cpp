// Recordings that end early: the process is killed, or the disc takes no more. Each must replay to its end,
// with exactly the first words that the simulator gives, which are read from it here without Tessel.
#include "loaded.h"
#include "support/host.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <random>
#include <set>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>

using namespace TestSupport;
using namespace SimTest;
namespace fs = std::filesystem;

namespace {

constexpr int32_t acqTimeMs = 600;
constexpr double laserHz = 1e6;
constexpr rlim_t leastLimit = 40000; // bytes

// What the recording process lets others see of it, in a file that both map.
struct Progress
{
    std::atomic<uint64_t> WordsRead, Errors;
    std::atomic<bool> IsOver;
};

// Stays mapped to the end of the process.
Progress &sharedProgress(const std::string &path)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (ftruncate(file, sizeof(Progress)) != 0) throw std::runtime_error("no file for the progress");
    void *map = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (map == MAP_FAILED) throw std::runtime_error("no memory for the progress");
    return *static_cast<Progress *>(map);
}

struct Plan
{
    std::string Folder;
    int Mode = 3;
    bool HasOddTag = false;
    rlim_t SizeLimit = RLIM_INFINITY; // of a file, bytes

    std::string recording() const { return Folder + "/cut.tgx"; }
};

void describeInstrument(const Plan &plan)
{
    std::ofstream(plan.Folder + "/sim.json")
        << R"({"instruments": [{"family": "ZP", "seed": 5, "sync": {"periodPs": 1000000},
              "input": {"rateCps": 300000}}]})";
    setenv("TESSEL_INSTRUMENT_PATH", TESSEL_SIM_FOLDER, 1);
    setenv("TESSEL_SIM_INSTRUMENTS", (plan.Folder + "/sim.json").c_str(), 1);
}

bool openInstrument(int mode)
{
    char id[8192] = "";
    return getDevice(id) && initDevice(mode, 0);
}

// In the process that is killed.
void record(const Plan &plan)
{
    describeInstrument(plan);
    Progress &progress = sharedProgress(plan.Folder + "/progress");
    Host host;
    ASSERT_TRUE(openInstrument(plan.Mode));
    const std::array<uint8_t, 104> blob{};
    if (plan.HasOddTag) addBBTag("Odd", blob.data(), 13, 0xFFFFFFFF);
    setTGXFilePath(plan.recording().c_str());
    uint64_t rows = 0, columns = 0, bytes = 0;
    ASSERT_TRUE(tessel_getResultShape(nullptr, 8, &rows, &columns, &bytes));
    Counts counts(rows, columns);
    Finished finished;
    const rlimit limit = {plan.SizeLimit, plan.SizeLimit};
    setrlimit(RLIMIT_FSIZE, &limit);
    getHistogram(nullptr, acqTimeMs, 0, 1, counts.data.data(), finished.get());
    while (!finished.isSet()) {
        progress.WordsRead = static_cast<uint64_t>(described("NumRecs"));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    progress.Errors = host.logged("ERR ");
    progress.IsOver = true;
}

pid_t startRecorder(const Plan &plan)
{
    const pid_t child = fork();
    if (child != 0) return child;
    setenv("TESSEL_TEST_PLAN",
           fmt::format("{} {} {} {}", plan.Mode, plan.HasOddTag ? 1 : 0, plan.SizeLimit, plan.Folder).c_str(),
           1);
    const int log = open((plan.Folder + "/out").c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    execl("/proc/self/exe", "recorder", "--gtest_also_run_disabled_tests",
          "--gtest_filter=CutOffRecording.DISABLED_Recorder", nullptr);
    _exit(127);
}

// The words that the simulator gives, and when each was: in s.
struct Reference
{
    std::vector<uint32_t> Words;
    std::vector<double> Times;
};

template <class... Arguments>
int32_t callSimulator(void *library, const char *operation, Arguments... arguments)
{
    return reinterpret_cast<int32_t (*)(Arguments...)>(dlsym(library, operation))(arguments...);
}

Reference readReference(int mode)
{
    const TempFolder folder;
    describeInstrument({.Folder = folder.path().string()});
    Host host; // sets the instrument as for a run; what follows is between it and the test
    EXPECT_TRUE(openInstrument(mode));
    void *library = dlopen((std::string(TESSEL_SIM_FOLDER) + "/ZPLib64.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    Reference all;
    EXPECT_EQ(callSimulator(library, "ZP_StartMeas", 0, acqTimeMs), 0);
    std::vector<uint32_t> words(1048576);
    for (int32_t isOver = 0, count = 1; !isOver || count > 0;) {
        EXPECT_EQ(callSimulator(library, "ZP_CTCStatus", 0, &isOver), 0);
        EXPECT_EQ(callSimulator(library, "ZP_ReadFiFo", 0, words.data(), &count), 0);
        all.Words.insert(all.Words.end(), words.begin(), words.begin() + count);
    }
    callSimulator(library, "ZP_StopMeas", 0);
    dlclose(library);
    const double unit = mode == 3 ? 1 / laserHz : 5e-12, wrap = mode == 3 ? 1024 : 33554432;
    double base = 0;
    for (const uint32_t word : all.Words) {
        const double low = word % static_cast<uint32_t>(wrap);
        if (word >> 25 == 127) base += low * wrap;
        all.Times.push_back((word >> 25 == 127 ? base : base + low) * unit);
    }
    return all;
}

const Reference &referenceOf(int mode)
{
    static const Reference t2 = readReference(2), t3 = readReference(3);
    return mode == 3 ? t3 : t2;
}

// The words of a replay to the end.
std::vector<uint32_t> replayed(Host &host, const std::string &path)
{
    EXPECT_NE(host.open(path), "") << path;
    std::vector<uint32_t> words(fs::file_size(path) / 4 + 1);
    uint64_t count = 0;
    Finished finished;
    rawMeasure(nullptr, 0, 1, 0, words.data(), &count, words.size(), finished.get());
    EXPECT_TRUE(finished.isSet());
    words.resize(std::min<size_t>(count, words.size()));
    closeDevice(0);
    return words;
}

boost::json::object verified(const std::string &path)
{
    std::array<char, 16384> text{};
    EXPECT_TRUE(tessel_verifyFile(path.c_str(), text.data(), text.size(), nullptr));
    return boost::json::parse(text.data()).as_object();
}

std::set<std::string> faultsOf(const boost::json::object &found)
{
    std::set<std::string> faults;
    for (const auto &fault : found.at("faults").as_array()) faults.emplace(fault.at("fault").as_string());
    return faults;
}

// What may be found, and, once it is repaired, be left.
using Faults = std::set<std::string>;
struct Allowed
{
    Faults Found, Left;
};
const Allowed ofNothing = {}, ofKill = {{"crc", "notClosed", "partRecord"}, {}},
              ofDisc = {{"cutShort", "fileError", "losses"}, {"fileError", "losses"}};

void expectWithin(const Faults &allowed, const boost::json::object &found)
{
    EXPECT_TRUE(std::ranges::includes(allowed, faultsOf(found))) << boost::json::serialize(found.at("faults"));
}

// Gives the number of records.
size_t expectPrefix(Host &host, const Plan &plan, const Reference &all, const Allowed &allowed)
{
    const std::string path = plan.recording(), whole = plan.Folder + "/whole.tgx";
    const auto words = replayed(host, path);
    EXPECT_LE(words.size(), all.Words.size());
    EXPECT_TRUE(std::equal(words.begin(), words.end(), all.Words.begin())) << "not the simulator's words";
    const auto found = verified(path);
    EXPECT_EQ(found.at("records").to_number<size_t>(), words.size());
    EXPECT_EQ(found.at("headerSize").to_number<size_t>() % 2, plan.HasOddTag ? 1u : 0u);
    const double unit = plan.Mode == 3 ? 1e12 / laserHz : 5;
    EXPECT_EQ(found.at(plan.Mode == 3 ? "syncPeriodPs" : "timeTagPs").to_number<double>(), unit);
    expectWithin(allowed.Found, found);
    Faults cut = faultsOf(found);
    std::erase_if(cut, [&](auto &fault) { return allowed.Left.contains(fault); });
    const bool wasCut = !words.empty() && !cut.empty();
    EXPECT_EQ(tessel_repairFile(path.c_str(), whole.c_str()), wasCut);
    if (!wasCut) return words.size();
    expectWithin(allowed.Left, verified(whole));
    EXPECT_EQ(replayed(host, whole), words);
    return words.size();
}

} // namespace

// In a process of its own, for the tests below.
TEST(CutOffRecording, DISABLED_Recorder)
{
    const char *text = std::getenv("TESSEL_TEST_PLAN");
    if (!text) GTEST_SKIP() << "started by the other tests";
    Plan plan;
    std::istringstream(text) >> plan.Mode >> plan.HasOddTag >> plan.SizeLimit >> plan.Folder;
    record(plan);
}

// TESSEL_TEST_KILLS recordings, TESSEL_TEST_MISSING_MS at most of each missing.
TEST(CutOffRecording, OfAKilledProcessReplaysToItsEnd)
{
    const double kills = wished("TESSEL_TEST_KILLS", 4), mostMissingMs = wished("TESSEL_TEST_MISSING_MS", 1000);
    std::random_device seed;
    std::mt19937 random(seed());
    double longest = 0;
    size_t closed = 0;
    for (int i = 0; i < kills; ++i) {
        const TempFolder folder;
        const Plan plan{.Folder = folder.path().string(), .Mode = 2 + i % 2, .HasOddTag = i % 8 < 2};
        SCOPED_TRACE(fmt::format("recording {}, T{}", i, plan.Mode));
        const Reference &all = referenceOf(plan.Mode);
        Progress &progress = sharedProgress(plan.Folder + "/progress");
        const pid_t recorder = startRecorder(plan);
        ASSERT_TRUE(eventually([&] { return progress.WordsRead > 0; })) << contents(plan.Folder + "/out");
        std::this_thread::sleep_for(std::chrono::microseconds(random() % (acqTimeMs * 1200)));
        const uint64_t wordsRead = progress.WordsRead;
        const bool wasOver = progress.IsOver;
        kill(recorder, SIGKILL);
        waitpid(recorder, nullptr, 0);
        closed += wasOver;
        Host host;
        const size_t kept = expectPrefix(host, plan, all, wasOver ? ofNothing : ofKill);
        ASSERT_LE(wordsRead, all.Words.size());
        const double missing =
            wordsRead <= kept ? 0 : all.Times[wordsRead - 1] - (kept > 0 ? all.Times[kept - 1] : 0);
        EXPECT_LE(missing * 1e3, mostMissingMs);
        longest = std::max(longest, missing);
    }
    fmt::print("{} killed recordings, {} of them closed before; at most {:.1f} ms missing\n", kills, closed,
               longest * 1e3);
}

// TESSEL_TEST_LIMITS file-size limits below what the records need, and above what log and header need.
TEST(CutOffRecording, OfAFullDiscReplaysToItsEnd)
{
    const double limits = wished("TESSEL_TEST_LIMITS", 2);
    std::mt19937 random(11);
    for (int i = 0; i < limits; ++i) {
        const TempFolder folder;
        const Reference &all = referenceOf(2 + i % 2);
        const rlim_t limit = leastLimit + random() % (all.Words.size() * 4 - leastLimit);
        const Plan plan{
            .Folder = folder.path().string(), .Mode = 2 + i % 2, .HasOddTag = i % 8 < 2, .SizeLimit = limit};
        SCOPED_TRACE(fmt::format("limit {}, T{}", limit, plan.Mode));
        Progress &progress = sharedProgress(plan.Folder + "/progress");
        int status = -1;
        waitpid(startRecorder(plan), &status, 0);
        EXPECT_EQ(status, 0) << contents(plan.Folder + "/out");
        EXPECT_TRUE(progress.IsOver);
        Host host;
        const size_t kept = expectPrefix(host, plan, all, ofDisc);
        EXPECT_LE(kept * 4, limit);
        EXPECT_LT(kept, all.Words.size());
        EXPECT_EQ(progress.Errors, 1u);
    }
}
