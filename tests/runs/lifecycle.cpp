// Runs that are stopped, overtaken, closed under way, refused or left alone: each ends, tells so by its
// finished byte, and the next call works.
#include "runs/curves.h"
#include "runs/kinds.h"
#include "support/host.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

constexpr size_t rows = 3, columns = 32768;
const int32_t members[] = {1};
constexpr auto stopsWithin = isSanitized ? 60s : 5s; // a second, where no other test runs beside

std::vector<uint32_t> countingWords(size_t count)
{
    std::vector<uint32_t> words(count);
    for (size_t i = 0; i < count; ++i) words[i] = t3Event(i % 2, 0, i % 30000);
    return words;
}

std::string writeT3(const Host &host, size_t records, const std::string &name = "run.tgx")
{
    return TgxFile::t3().records(countingWords(records)).write(host.folder().file(name));
}

bool startHistogram(Counts &counts, Finished &finished)
{
    return getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
}

bool isReading()
{
    return described("NumRecs") > 0;
}

} // namespace

// Where nobody holds it up, a stopped run hands on what it has read and is over.
TEST(Lifecycle, AStoppedRunEndsAtOnce)
{
    constexpr size_t records = 40'000'000;
    Host host;
    ASSERT_FALSE(host.open(writeT3(host, records)).empty());
    addMMerge(nullptr, members, 1, 1);
    Counts counts(rows + 1, columns);
    Finished finished;
    ASSERT_TRUE(startHistogram(counts, finished));
    ASSERT_TRUE(eventually(isReading));
    const auto start = std::chrono::steady_clock::now();
    stopMeasure(nullptr);
    ASSERT_TRUE(finished.wait());
    EXPECT_LT(std::chrono::steady_clock::now() - start, isSanitized ? 5s : 1s);
    EXPECT_LT(described("NumRecs"), records); // in its midst
    // Where other programs hold the cores, it is cut short instead.
    const bool isCutShort = host.logged("The time is over for the data of a stopped measurement") > 0;
    EXPECT_TRUE(isCutShort || counts.rowSum(3) == counts.rowSum(1))
        << counts.rowSum(3) << " of " << counts.rowSum(1);
}

// Each event has up to a million pairs or lags: the whole recording would take minutes.
TEST(Lifecycle, AStopEndsAHeavyCorrelationWithWhatWasCounted)
{
    using Mode = CorrelationSettings::Mode;
    constexpr uint64_t windowPs = isSanitized ? 1'000'000 : 10'000'000;
    const CorrelationSettings cases[] = {
        {.mode = Mode::G2, .windowPs = windowPs, .binWidthPs = 10},
        {.mode = Mode::FCS, .windowPs = windowPs, .minLagPs = 1000, .steps = 1'000'000},
        {.mode = Mode::FFCS, .windowPs = windowPs, .minLagPs = 1000, .steps = 1'000'000},
    };
    std::vector<uint32_t> words(3'000'000);
    for (uint32_t i = 0; i < words.size(); ++i) // late every now and then: those count alone
        words[i] = t2Event(i % 2, 10 * i - (i % 1000 == 999 ? 5000 : 0));
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t2().records(words).write(host.folder().file("t2.tgx"))).empty());
    for (const CorrelationSettings &settings : cases) {
        Curves curves(settings);
        const auto isCounted = [&] {
            return std::ranges::any_of(curves.y, [](double y) { return y != untouched; });
        };
        getCorrelation(nullptr, 0, 0, 0, curves.y.data(), curves.x.data(), curves.finished.get());
        // A sanitizer is too slow to count the first records in the time of a test.
        ASSERT_TRUE(isSanitized || eventually([] { return described("NumRecs") > 0; }));
        std::this_thread::sleep_for(isSanitized ? 3s : 300ms);
        EXPECT_FALSE(curves.finished.isSet());
        const auto start = std::chrono::steady_clock::now();
        stopMeasure(nullptr);
        ASSERT_TRUE(curves.finished.wait());
        EXPECT_LT(std::chrono::steady_clock::now() - start, stopsWithin);
        EXPECT_TRUE(isCounted());
    }
    EXPECT_EQ(host.logged("The time is over for the data of a stopped measurement"), std::size(cases));
}

// A recording of minutes: the zero words that are added are events of channel 1 and take no room on the disc.
TEST(Lifecycle, AStopEndsEveryMeasurementAfterAChainWithAPart)
{
    Host host;
    const std::string path = writeT3(host, 4'000'000);
    std::filesystem::resize_file(path, uint64_t(8) << 30);
    ASSERT_FALSE(host.open(path).empty());
    addMDelay(nullptr, 1, 500, 1);
    addMCoincidence(nullptr, members, 1, 1000, 0, 1, 1);
    addMHerald(nullptr, 1, members, 1, 0, 1000, 0, 1);
    size_t cutShortBefore = 0;
    for (const std::string_view name :
         {"histogram", "histogram 2d", "time trace", "unfold block", "raw block"}) {
        SCOPED_TRACE(name);
        Arrays memory;
        memory.capacity = 100'000;
        uint64_t fetched = 0;
        const auto fetch = [&] {
            uint64_t count = 0;
            rawGetBlock(nullptr, nullptr, &count);
            fetched += count, count = 0;
            ufGetBlock(nullptr, nullptr, nullptr, &count);
            fetched += count;
        };
        Finished finished;
        const RunKind &kind = *std::ranges::find(runKinds, name, &RunKind::name);
        kind.start(memory, finished.get());
        ASSERT_TRUE(eventually([&] {
            fetch();
            return described("NumRecs") > 4e6;
        }));
        const auto start = std::chrono::steady_clock::now();
        stopMeasure(nullptr);
        ASSERT_TRUE(eventually([&] {
            fetch();
            return finished.isSet();
        }));
        EXPECT_LT(std::chrono::steady_clock::now() - start, stopsWithin);
        EXPECT_EQ(describedText("StopReason"), "Manual");
        EXPECT_LT(described("NumRecs"), 1e9);
        // On a busy machine half a second may be too short for the first event to pass the chain.
        const size_t cutShort = host.logged("The time is over for the data");
        const bool isCounted = std::ranges::any_of(memory.counts, [](uint32_t count) { return count > 0; });
        EXPECT_TRUE(kind.isBlock ? fetched > 0 : isCounted || cutShort > cutShortBefore);
        cutShortBefore = cutShort;
    }
}

TEST(Lifecycle, AStopBeforeTheFirstReadKeepsTheFirstChunk)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host, 50'000)).empty());
    Counts counts(rows, columns);
    Finished finished;
    ASSERT_TRUE(startHistogram(counts, finished));
    stopMeasure(nullptr);
    ASSERT_TRUE(finished.wait());
    EXPECT_EQ(counts.sum(), 50'000u);
}

TEST(Lifecycle, EndsOfTheDeviceEndItsRun)
{
    using End = void (*)(Host &);
    const std::pair<const char *, End> ends[] = {
        {"closeDevice", [](Host &) { closeDevice(0); }},
        {"closeDevice all", [](Host &) { closeDevice(1); }},
        {"exitAPI", [](Host &) { exitAPI(); }},
        {"initAPI", [](Host &host) { initAPI(host.iniPath().c_str()); }},
    };
    for (const auto &[name, end] : ends) {
        SCOPED_TRACE(name);
        Host host;
        ASSERT_FALSE(host.open(writeT3(host, 5'000'000)).empty());
        Counts counts(rows, columns);
        Finished finished;
        const size_t threads = threadCount();
        ASSERT_TRUE(startHistogram(counts, finished));
        ASSERT_TRUE(eventually(isReading));
        end(host);
        EXPECT_TRUE(finished.isSet());
        const auto after = counts.data;
        EXPECT_TRUE(eventually([&] { return threadCount() <= threads; }));
        EXPECT_EQ(counts.data, after); // nobody writes to the caller's memory any more
        std::array<char, 8192> ids{};
        EXPECT_TRUE(getDeviceIDs(ids.data()));
        EXPECT_STREQ(ids.data(), "[]");
    }
}

// Whatever was set up before: of the host's memory, the finished byte is written, and a count of 0.
TEST(Lifecycle, ARunOnNoDeviceIsOverAtOnceAndWritesNothing)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host, 1000)).empty());
    stopMeasure(u"no such device"); // from here on none is the current one
    EXPECT_EQ(getNumAllChans(nullptr), 0);
    Arrays memory;
    std::ranges::fill(memory.counts, 77);
    std::ranges::fill(memory.times, 77);
    std::ranges::fill(memory.codes, 77);
    std::ranges::fill(memory.x, 77);
    std::ranges::fill(memory.y, 77);
    const Arrays before = memory;
    const auto expectUntouched = [&] {
        EXPECT_TRUE(memory.counts == before.counts && memory.times == before.times &&
                    memory.codes == before.codes && memory.x == before.x && memory.y == before.y);
    };
    memory.capacity = 99;
    for (const RunKind &kind : runKinds) {
        SCOPED_TRACE(kind.name);
        memory.count = memory.points = memory.firstBin = 77;
        Finished finished;
        addMCountRate(nullptr, 1000);
        EXPECT_TRUE(kind.start(memory, finished.get()));
        EXPECT_TRUE(finished.isSet());
        expectUntouched();
        const std::string_view name = kind.name;
        EXPECT_EQ(memory.count, name == "raw" || name == "unfold" ? 0u : 77u);
        EXPECT_EQ(memory.points, name == "FCS" || name == "FFCS" ? 0u : 77u);
        EXPECT_EQ(memory.firstBin, 77u);
    }
    EXPECT_EQ(host.logged("ERR Device: Can't do a measurement on a invalid device! @"), std::size(runKinds));
    uint64_t words = 77, events = 77;
    EXPECT_TRUE(rawGetBlock(nullptr, memory.counts.data(), &words));
    EXPECT_TRUE(ufGetBlock(nullptr, memory.times.data(), memory.codes.data(), &events));
    EXPECT_EQ(words + events, 0u);
    getMCountRates(nullptr, 0, memory.counts.data());
    EXPECT_EQ(getCountRates(nullptr, reinterpret_cast<int32_t *>(memory.counts.data())), 0);
    expectUntouched();
    EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, nullptr, nullptr)); // no memory of the caller at all
}

TEST(Lifecycle, FilesThatCannotBeMeasuredEndTheirRunCleanly)
{
    struct Case
    {
        const char *name;
        TgxFile file;
        const char *error;
    };
    const Case cases[] = {
        {"no sync period", TgxFile::t3(2).tag("TTResult_SyncRate", 0).tag("MeasDesc_GlobalResolution", 1e-14),
         "ERR"},
        {"no resolution", TgxFile::t3(2).tag("MeasDesc_Resolution", 0.0), "ERR Device: A resolution of 0 ps"},
        {"no base resolution", TgxFile::t2(2).tag("HW_BaseResolution", 0.0),
         "ERR Device: A sync period or base"},
        {"histogramming", TgxFile::t3(2).tag("Measurement_Mode", 0), "Config: getHistogram is not supported"},
        {"unknown mode", TgxFile::t3(2).tag("Measurement_Mode", 7), "Config: getHistogram is not supported"},
    };
    for (const Case &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        ASSERT_FALSE(host.open(given.file, countingWords(10)).empty());
        Counts counts(rows, 65536);
        Finished finished;
        EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
        EXPECT_TRUE(finished.isSet());
        EXPECT_GE(host.logged(given.error), 1u);

        ASSERT_FALSE(host.open(writeT3(host, 1000)).empty()); // the next good call works
        Counts good(rows, columns);
        getHistogram(nullptr, 0, 1, 0, good.data.data(), finished.get());
        EXPECT_EQ(good.sum(), 1000u);
    }
}

TEST(Lifecycle, FilesThatChangeUnderTheRunEndIt)
{
    Host host;
    std::string path = writeT3(host, 1000);
    ASSERT_FALSE(host.open(path).empty());
    auto headerSize = std::filesystem::file_size(path) - 4000;
    const std::pair<uintmax_t, uint64_t> sizes[] = {// size of the file, events that a run sees
                                                    {headerSize + 4000 + 3, 1000},
                                                    {headerSize + 401, 100},
                                                    {headerSize, 0},
                                                    {headerSize - 5, 0},
                                                    {0, 0}};
    for (auto [size, events] : sizes) {
        SCOPED_TRACE(size);
        std::filesystem::resize_file(path, size);
        Counts counts(rows, columns);
        Finished finished;
        getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
        ASSERT_TRUE(finished.wait(10s));
        EXPECT_EQ(counts.sum(), events);
        EXPECT_EQ(described("NumRecs"), static_cast<double>(events));
    }
    std::filesystem::remove(path);
    Counts counts(rows, columns);
    Finished finished;
    getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
    ASSERT_TRUE(finished.wait(10s));
    EXPECT_EQ(host.logged("read Error: "), 1u);
    EXPECT_EQ(describedText("StopReason"), "DataXferFail");
}

// A host that doesn't answer blocks nobody else, and is not waited for once it has stopped the run.
TEST(Lifecycle, AStoppedSequenceWhoseHostIsAwayIsAborted)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host, 100'000)).empty());
    setSequenceMode(2, 1, 10); // wait for the host after each ten counts in a bin
    Counts counts(rows, columns);
    Finished finished;
    getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
    EXPECT_EQ(waitNewData(nullptr), 0); // nothing reaches ten counts: the run just ends
    ASSERT_TRUE(finished.wait());

    setSequenceMode(2, 1, 1);
    getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
    EXPECT_EQ(waitNewData(nullptr), 1);
    EXPECT_EQ(counts.sum(), 1u);
    EXPECT_EQ(gotNewData(nullptr), 1);
    EXPECT_EQ(waitNewData(nullptr), 1); // and never answers
    EXPECT_TRUE(clearMeasure(nullptr));
    EXPECT_EQ(addMMerge(nullptr, members, 1, 1), 3);
    EXPECT_EQ(getNumAllChans(nullptr), 4);
    stopMeasure(nullptr);
    ASSERT_TRUE(finished.wait(15s));
    EXPECT_EQ(host.logged("WRN Device: Nobody takes the data of a stopped measurement"), 1u);
}

TEST(Lifecycle, AProcessMayEndInTheMiddleOfARun)
{
    TempFolder folder;
    std::string path = TgxFile::t3().records(countingWords(8'000'000)).write(folder.file("run.tgx"));
    for (int i = 0; i < 3; ++i) {
        pid_t child = fork();
        if (child == 0) {
            static auto *host = new Host; // stays: the process ends without exitAPI
            host->open(path);
            static auto *counts = new Counts(rows, columns);
            static auto *finished = new Finished;
            startHistogram(*counts, *finished);
            eventually([i] { return described("NumRecs") >= 2'000'000 * i; });
            std::exit(0);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
}
