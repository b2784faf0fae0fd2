// Runs that import the events of other devices: two and three files, and sources that never come.
#include "plain/stages.h"
#include "support/host.h"
#include "support/measured_events.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>

using namespace Plain;
using namespace TestSupport;

namespace {

constexpr int channels = 4;
constexpr uint64_t resolution = 5;

constexpr double syncRate = 6.25e6; // a T3 file then takes about as long as a T2 file of as many records

// A file that is open as a device.
struct Source
{
    Source(Host &host, uint32_t seed, size_t words, bool t3 = false, bool ascending = true)
        : Source(host,
                 randomWords(
                     {.count = words, .t3 = t3, .overflowShare = 0.01, .seed = seed, .ascending = ascending}),
                 std::to_string(seed), t3)
    {
    }
    Source(Host &host, const std::vector<uint32_t> &words, const std::string &name, bool t3 = false)
        : events(t3 ? decodeT3(words, channels) : decodeT2(words, channels, resolution))
    {
        if (t3) form = {true, static_cast<uint64_t>(1e12 / syncRate), static_cast<double>(resolution)};
        auto file = t3 ? TgxFile::t3(channels, resolution, syncRate) : TgxFile::t2(channels, resolution);
        const std::string path =
            file.tag("HW_SerialNo", name).records(words).write(host.folder().file(name + ".tgx"));
        std::array<char, 8192> buffer{};
        EXPECT_TRUE(tessel_openFile(path.c_str(), buffer.data(), buffer.size()));
        id.assign(buffer.data(), buffer.data() + std::strlen(buffer.data()));
    }

    const char16_t *c_str() const { return id.c_str(); }

    Events events;
    StreamForm form;
    std::u16string id;
};

// Each own event behind the imported ones that are earlier; none behind the last that was imported. In T3 an
// imported event has the number of its sync as its time.
Events imported(const Events &own, const Events &from, const std::vector<uint8_t> &wanted, uint8_t firstOutput,
                int32_t offset, const StreamForm &ownForm = {}, const StreamForm &fromForm = {})
{
    Events out;
    size_t cursor = 0;
    uint64_t last = 0;
    for (const Event &event : own) {
        const uint64_t ownTime = ownForm.ps(event.time);
        for (; cursor < from.size(); ++cursor) {
            const auto time = static_cast<int64_t>(fromForm.ps(from[cursor].time)) + offset;
            if (time >= static_cast<int64_t>(ownTime)) break;
            const auto found = std::find(wanted.begin(), wanted.end(), from[cursor].channel);
            if (time < static_cast<int64_t>(last) || found == wanted.end()) continue;
            last = static_cast<uint64_t>(time);
            out.push_back(
                {last / ownForm.period, static_cast<uint8_t>(firstOutput + (found - wanted.begin()))});
        }
        if (cursor == from.size()) continue;
        out.push_back(event);
        last = ownTime;
    }
    return out;
}

} // namespace

TEST(Import, MergesTwoFilesByTime)
{
    const struct
    {
        const char *name;
        size_t ownWords, sourceWords;
        std::vector<int32_t> wanted;
        int32_t offset;
        bool ownT3 = false, sourceT3 = false, ascending = true; // both streams
    } cases[] = {
        {"same length", 50'000, 50'000, {1, 3}, 0},
        {"short source", 50'000, 20'000, {2}, 1'000'000},
        {"long source", 20'000, 300'000, {4, 2, 1}, -2'000'000'000},
        {"channel 1 if none is named", 20'000, 20'000, {}, 0},
        {"out of order", 30'000, 30'000, {1, 3}, 0, false, false, false},
        {"many chunks", 1'200'000, 1'200'000, {1}, 7},
        {"T3 takes T3", 60'000, 50'000, {1, 3}, -20'000, true, true},
        {"T3 takes T2", 60'000, 60'000, {2, 4}, 1'000'000, true, false},
        {"T2 takes T3", 60'000, 60'000, {1, 2}, 0, false, true},
    };
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        const Source source(host, 1, given.sourceWords, given.sourceT3, given.ascending),
            own(host, 2, given.ownWords, given.ownT3, given.ascending);
        EXPECT_EQ(addMImportStream(own.c_str(), source.c_str(), 1, given.wanted.data(),
                                   static_cast<int32_t>(given.wanted.size()), given.offset),
                  channels + 1);
        std::vector<uint8_t> wanted(given.wanted.begin(), given.wanted.end());
        if (wanted.empty()) wanted.push_back(1);
        const Events expected =
            imported(own.events, source.events, wanted, channels + 1, given.offset, own.form, source.form);
        for (int turn = 0; turn < 2; ++turn) // the source is started anew for each run
            expectSameEvents(measuredEvents(own.events.size() + source.events.size(), own.c_str()), expected);
    }
}

// A source that is read to its end before the run for which it was started begins to take, and that is more
// than the block between the two.
TEST(Import, AllThatASourceHasReadEarlyComes)
{
    constexpr uint32_t records = 9'500'000;
    constexpr uint64_t bins = 32768;
    Host host;
    std::vector<uint32_t> words(records);
    for (uint32_t i = 0; i < records; ++i) words[i] = t2Event(0, i);
    const Source source(host, words, "1");
    const std::string ownFile = TgxFile::t3()
                                    .tag("HW_SerialNo", "2")
                                    .records({t3Event(0, 0, 0), t3Overflow(1000), t3Event(0, 0, 0)})
                                    .write(host.folder().file("2.tgx"));
    ASSERT_TRUE(tessel_openFile(ownFile.c_str(), nullptr, 0));
    addMImportStream(nullptr, source.c_str(), 1, nullptr, 0, 0);
    Counts counts(4, bins);
    Finished finished;
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
    EXPECT_EQ(counts.rowSum(3), records);
}

// The host measures the source itself; the stage takes the events from the host's block.
TEST(Import, TakesFromABlockOfTheHost)
{
    Host host;
    const Source source(host, 1, 30'000), own(host, 2, 30'000);
    const int32_t wanted[] = {1};
    addMImportStream(own.c_str(), source.c_str(), 0, wanted, 1, 0);
    std::vector<uint64_t> times(5000);
    std::vector<uint8_t> codes(5000);
    Finished finished;
    ufStartBlock(source.c_str(), 0, 0, times.data(), codes.data(), times.size(), finished.get());
    expectSameEvents(measuredEvents(70'000, own.c_str()),
                     imported(own.events, source.events, {1}, channels + 1, 0));
    stopMeasure(source.c_str());
    EXPECT_TRUE(finished.wait());
}

TEST(Import, ASourceMayImportItself)
{
    Host host;
    const Source third(host, 1, 60'000), second(host, 2, 50'000), first(host, 3, 40'000);
    const int32_t wanted[] = {1, channels + 1};
    addMImportStream(second.c_str(), third.c_str(), 1, wanted, 1, 0);
    addMImportStream(first.c_str(), second.c_str(), 1, wanted, 2, 0);
    const Events atSecond = imported(second.events, third.events, {1}, channels + 1, 0);
    expectSameEvents(measuredEvents(200'000, first.c_str()),
                     imported(first.events, atSecond, {1, channels + 1}, channels + 1, 0));
}

namespace {

void close(const Source &device)
{
    std::string id(device.id.begin(), device.id.end());
    id.resize(8192);
    getDevice(id.data());
    closeDevice(0);
}

} // namespace

TEST(Import, WithoutItsSourceFailsAndTheNextRunWorks)
{
    const struct
    {
        const char *name;
        const char16_t *source;
        bool starts;
        const char *logged;
        bool crossed = false, closed = false;
    } cases[] = {
        {"missing", u"nobody", true, "Import Device 'nobody' not found!"},
        {"not started", u"1@1.tgx", false, "was never running"},
        {"itself", u"2@2.tgx", true, "needs this device's events"},
        {"crossed", u"1@1.tgx", true, "needs this device's events", true},
        {"closed", u"1@1.tgx", true, "not found!", false, true},
    };
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        const Source other(host, 1, 1000), own(host, 2, 1000);
        ASSERT_TRUE(other.id == u"1@1.tgx" && own.id == u"2@2.tgx");
        if (given.crossed) addMImportStream(other.c_str(), own.c_str(), 1, nullptr, 0, 0);
        addMImportStream(own.c_str(), given.source, given.starts, nullptr, 0, 0);
        if (given.closed) close(other);
        EXPECT_TRUE(measuredEvents(5000, own.c_str()).empty());
        EXPECT_GE(host.logged(given.logged), 1u);
        EXPECT_EQ(host.logged("the manipulator never received any data."), 1u);
        clearManis(own.c_str());
        expectSameEvents(measuredEvents(5000, own.c_str()), own.events);
    }
}

TEST(Import, ASourceThatEndsInTheMiddleEndsTheRun)
{
    for (const bool closes : {false, true}) {
        SCOPED_TRACE(closes ? "closed" : "stopped");
        Host host;
        const Source source(host, 1, 3'000'000), own(host, 2, 1'500'000);
        addMImportStream(own.c_str(), source.c_str(), 1, nullptr, 0, 0);
        std::vector<uint32_t> counts(65536 * 6);
        Finished finished;
        getHistogram(own.c_str(), 0, 0, 0, counts.data(), finished.get());
        stopMeasure(source.c_str());
        if (closes) close(source);
        EXPECT_TRUE(finished.wait());
    }
}

TEST(Import, TheRunCanBeStoppedWhileItWaits)
{
    std::vector<uint64_t> times(10); // the source's until the host ends it
    std::vector<uint8_t> codes(10);
    Finished sourceFinished, finished;
    Host host;
    // Ten events a turn: the source is far behind when the run is stopped.
    const Source source(host, 1, 100'000), own(host, 2, 3'000'000);
    addMImportStream(own.c_str(), source.c_str(), 0, nullptr, 0, 0);
    ufStartBlock(source.c_str(), 0, 0, times.data(), codes.data(), 10, sourceFinished.get());
    std::vector<uint32_t> counts(65536 * 6);
    getHistogram(own.c_str(), 0, 0, 0, counts.data(), finished.get());
    stopMeasure(own.c_str());
    EXPECT_TRUE(finished.wait());
    deleteMani(own.c_str(), 0);
    EXPECT_EQ(host.logged("Could not stop"), 0u);
}
