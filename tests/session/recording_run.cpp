// Runs on an instrument that are recorded: what it gave against what is in the file, word for word, and what
// becomes of the file where the disc doesn't take it.
#include "datafiles/header_listing.h"
#include "datafiles/header_writer.h"
#include "log/text.h"
#include "session/open_close.h"
#include "support/host.h"
#include "support/instrument.h"
#include "support/words.h"
#include "tessel.h"
#include "threads/losses.h"
#include "threads/run_control.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <numeric>
#include <set>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace Tessel;
using namespace TestSupport;

namespace json = boost::json;

namespace {

using Words = std::vector<uint32_t>;

// Of inputs alone, each word different from those around it.
Words someWords(size_t count, uint32_t first = 0)
{
    Words words(count);
    for (uint32_t i = 0; i < count; ++i) words[i] = t2Event((first + i) % 4, first + i);
    return words;
}

// A tag's value as text; empty if there is none.
std::string tagOf(const std::string &path, std::string_view name, int64_t idx = -1)
{
    const json::value header = json::parse(headerTagsAsJson(path).value());
    for (const json::value &tag : header.at("tags").as_array())
        if (tag.at("name").as_string() == name && tag.at("idx").as_int64() == idx)
            return json::serialize(tag.at("value"));
    return {};
}

Words wordsIn(const std::string &path)
{
    const std::string bytes = contents(path);
    const size_t start = bytes.find("Header_End") + 48;
    Words words((bytes.size() - start) / sizeof(uint32_t));
    if (!words.empty()) std::memcpy(words.data(), bytes.data() + start, words.size() * sizeof(uint32_t));
    return words;
}

// Sealing it again changes nothing.
bool hasItsSeal(const std::string &path)
{
    const std::string before = contents(path);
    return sealHeader(path) && contents(path) == before;
}

// What a replay of the file gives a host. The file is the current device then.
Words replayed(const std::string &path)
{
    EXPECT_TRUE(tessel_openFile(path.c_str(), nullptr, 0));
    Words block(1'000'000);
    uint64_t count = 0;
    Finished finished;
    rawMeasure(nullptr, 0, 1, 0, block.data(), &count, block.size(), finished.get());
    EXPECT_TRUE(finished.isSet());
    block.resize(count);
    return block;
}

struct Recorder
{
    explicit Recorder(LibType family) : fake(libraryOf(family)->FileName) {}

    void init(MeasMode mode, std::string id = {})
    {
        id.resize(8192);
        EXPECT_TRUE(getDevice(id.data()));
        EXPECT_TRUE(initDevice(static_cast<int32_t>(mode), 0));
        device = currentDevice();
    }
    void start(const std::string &path)
    {
        setTGXFilePath(path.c_str());
        exportStreamMeasure(nullptr, 0, 0, 1, finished.get());
        EXPECT_TRUE(eventually([&] { return hasReached(*currentRun(device->context), RunPhase::Measuring); }));
    }
    // The next read gives them.
    void give(const Words &words)
    {
        const uint64_t before = device->context.Description.NumRecs;
        fake->words(words.data(), words.size());
        given.insert(given.end(), words.begin(), words.end());
        EXPECT_TRUE(eventually([&] { return device->context.Description.NumRecs == before + words.size(); }));
    }
    void stop()
    {
        stopMeasurement();
        EXPECT_TRUE(finished.wait());
    }
    void stopMeasurement()
    {
        device->context.Description.StopReason = StopReason::Manual;
        requestStopByHost(*currentRun(device->context));
    }
    std::string path() const { return nativePath(device->device.FileDevicePath).string(); }
    Loss lost() const
    {
        return lossesOfRecording(*currentRun(device->context)).Places[size_t(LossPlace::File)];
    }

    Fake fake;
    DeviceRef device;
    Finished finished;
    Words given;
};

class RecordingRun : public testing::Test
{
protected:
    ~RecordingRun() override { closeForGood(); }

    TempFolder folder;
};

} // namespace

// While it runs, the file is what a crash would leave.
TEST_F(RecordingRun, EveryFamilyAndModeWordForWord)
{
    for (const LibType family : fiveFamilies)
        for (const MeasMode mode : {MeasMode::T2, MeasMode::T3}) {
            SCOPED_TRACE(std::string(libTypeText(family)) + (mode == MeasMode::T2 ? " T2" : " T3"));
            Recorder recorder(family);
            recorder.fake->number("GetSyncRate", 0, 40'000'000);
            recorder.fake->number("GetAllCountRates", 0, 40'000'000);
            recorder.fake->number("GetAllCountRates", 1, 4711);
            recorder.fake->number("GetCountRate", 0, 4711);
            recorder.fake->number("GetWarnings", 0, 5);
            recorder.fake->number("GetStartTime", 0, 7); // the high word
            recorder.init(mode);
            const uint8_t odd[8 * 5] = {1, 2, 3, 4, 5};
            addBBTag("Odd", odd, 5, 2);
            recorder.start(folder.file("run.tgx"));
            clearTags(); // a run goes by those of its start
            for (uint32_t batch : {1u, 1000u, 100'000u}) recorder.give(someWords(batch, batch));
            const std::string cut = folder.file("cut.tgx");
            ASSERT_TRUE(eventually([&] { return wordsIn(recorder.path()) == recorder.given; }));
            std::filesystem::copy_file(recorder.path(), cut, std::filesystem::copy_options::overwrite_existing);
            recorder.stop();

            const std::string path = recorder.path(), inputs = std::to_string(recorder.device->device.NumChans);
            EXPECT_EQ(wordsIn(path), recorder.given);
            EXPECT_TRUE(hasItsSeal(path) && hasItsSeal(cut));
            EXPECT_EQ(tagOf(cut, "TTResult_NumberOfRecords"), "0");
            EXPECT_EQ(tagOf(path, "TTResult_NumberOfRecords"), "101001");
            EXPECT_EQ(tagOf(path, "TTResult_StopReason"), "1");
            EXPECT_EQ(tagOf(path, "HW_InpChannels"), inputs);
            for (const std::string &file : {path, cut}) {
                EXPECT_EQ(tagOf(file, "TTResult_SyncRate"), "40000000");
                EXPECT_EQ(tagOf(file, "Odd", 2), "\"0102030405\"");
                EXPECT_NE(tagOf(file, "CreatorSW_Modules"), "0");
                EXPECT_EQ(replayed(file), recorder.given);
                if (mode == MeasMode::T3) {
                    EXPECT_EQ(currentDevice()->device.SyncPeriodPs, 25'000);
                }
                closeDevice(0);
            }
            EXPECT_EQ(tagOf(path, "TTResult_MDescWarningFlags"), "5");
            EXPECT_EQ(tagOf(path, "TTResult_InputRate", 0), "4711");
            const bool tellsStart = family == LibType::ZP || family == LibType::CD90;
            EXPECT_EQ(tagOf(path, "MeasDesc_StartTime", 2), tellsStart ? "7" : "0");
            EXPECT_EQ(recorder.lost().Occasions, 0u);
            closeForGood();
        }
}

TEST_F(RecordingRun, TwoAtOnceHaveFilesOfTheirOwn)
{
    Recorder one(LibType::ZP), two(LibType::CD);
    std::array<char, 8192> ids{};
    getDeviceIDs(ids.data());
    for (auto &[recorder, family] : {std::pair<Recorder &, LibType>(one, LibType::ZP), {two, LibType::CD}}) {
        for (const DeviceRef &device : allDevices())
            if (device->device.LibType == family) recorder.init(MeasMode::T2, device->device.ID);
        recorder.start(folder.file("both.tgx"));
    }
    EXPECT_NE(one.path(), two.path());
    for (uint32_t round = 0; round < 20; ++round) {
        one.give(someWords(997, round * 1000));
        two.give(someWords(5003, round * 333));
    }
    one.stop();
    two.stop();
    EXPECT_EQ(wordsIn(one.path()), one.given);
    EXPECT_EQ(wordsIn(two.path()), two.given);
    EXPECT_EQ(tagOf(one.path(), "TTResult_NumberOfRecords"), std::to_string(one.given.size()));
    EXPECT_EQ(tagOf(two.path(), "TTResult_NumberOfRecords"), std::to_string(two.given.size()));
}

// Moved away in mid-run, it goes on where it is; what has its name by then is left alone.
TEST_F(RecordingRun, AFileThatIsGoneIsLostAndAnotherOneLeftAlone)
{
    for (const bool isReplaced : {true, false}) {
        Recorder recorder(LibType::ZP);
        recorder.init(MeasMode::T2);
        LogCapture log;
        recorder.start(folder.file("run.tgx"));
        recorder.give(someWords(1000));
        std::filesystem::rename(recorder.path(), folder.file("moved.tgx"));
        if (isReplaced) std::ofstream(recorder.path()) << "somebody's";
        recorder.give(someWords(1000));
        recorder.stop();
        EXPECT_EQ(std::filesystem::exists(recorder.path()), isReplaced);
        EXPECT_TRUE(!isReplaced || contents(recorder.path()) == "somebody's");
        EXPECT_EQ(wordsIn(folder.file("moved.tgx")), recorder.given);
        EXPECT_EQ(recorder.lost().Lost, recorder.given.size());
        EXPECT_EQ(log.count("ERR "), 1u);
        closeForGood();
    }
}

// What was read before is in the file while it hangs; after it the run ends as it should.
TEST_F(RecordingRun, ALibraryThatHangsKeepsNothingFromTheFile)
{
    Recorder recorder(LibType::ZP);
    recorder.init(MeasMode::T2);
    recorder.start(folder.file("hang.tgx"));
    recorder.give(someWords(5000));
    recorder.fake->hang("ReadFiFo");
    EXPECT_TRUE(eventually([&] { return wordsIn(recorder.path()) == recorder.given; }));
    recorder.stopMeasurement();
    recorder.fake->release();
    EXPECT_TRUE(recorder.finished.wait());
    EXPECT_TRUE(hasItsSeal(recorder.path()));
    EXPECT_EQ(replayed(recorder.path()), recorder.given);
}

// The header lists the filter only while it is on.
TEST_F(RecordingRun, WithoutDataIsAHeaderWithItsEventFilter)
{
    Recorder recorder(LibType::ZP);
    recorder.init(MeasMode::T2);
    recorder.device->context.Filter = {1, 1, 3, 8000, 0b1'0000'0101, 0b1000};
    recorder.start(folder.file("none"));
    recorder.stop();
    const std::string path = recorder.path();
    EXPECT_EQ(path, folder.file("none.tgx"));
    EXPECT_TRUE(hasItsSeal(path));
    const std::pair<const char *, const char *> expected[] = {
        {"HW_MainFilt_Enabled", "true"},   {"HW_MainFilt_Inverse", "true"},  {"HW_MainFilt_MatchCount", "3"},
        {"HW_MainFilt_TimeRange", "8000"}, {"HW_MainFiltSync_Used", "true"}, {"HW_MainFiltSync_Pass", "false"}};
    for (const auto &[name, value] : expected) EXPECT_EQ(tagOf(path, name), value) << name;
    for (int64_t i = 0; i < recorder.device->device.NumChans; ++i) {
        EXPECT_EQ(tagOf(path, "HW_MainFiltChan_Used", i), i % 2 ? "false" : "true");
        EXPECT_EQ(tagOf(path, "HW_MainFiltChan_Pass", i), i == 3 ? "true" : "false");
    }
    EXPECT_EQ(wordsIn(path), Words());
    EXPECT_EQ(replayed(path), Words());
}

namespace {

// The longest file that this process may write, while it lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(uint64_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &before);
        rlimit limit = before;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before); }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit before{};
};

// As a user who may write nowhere, in this thread.
class Powerless
{
public:
    Powerless() { setfsuid(65534); }
    ~Powerless() { setfsuid(geteuid()); }
    Powerless(const Powerless &) = delete;
    Powerless &operator=(const Powerless &) = delete;
};

} // namespace

// The run goes on to its end, one error tells of it, the file is an exact beginning, the ledger has the rest.
TEST_F(RecordingRun, ADiscThatIsFullKeepsWhatItHas)
{
    constexpr size_t words = 30'000;
    Recorder recorder(LibType::ZP);
    uint64_t headerBytes = 0;
    for (int i = 0; i < 50; ++i) {
        SCOPED_TRACE(i);
        recorder.init(MeasMode::T2);
        LogCapture log;
        // At first one that is larger, then from nothing behind the header on.
        const uint64_t room = i == 0 ? 1'000'000 : static_cast<uint64_t>(i - 1) * 2437;
        const FileSizeLimit limit(headerBytes + room);
        Recorder &run = recorder;
        run.given.clear();
        run.start(folder.file("limit.tgx"));
        run.give(someWords(words / 2));
        run.give(someWords(words / 2, 7));
        run.stop();
        const Words kept = wordsIn(run.path());
        if (i == 0) headerBytes = contents(run.path()).size() - words * sizeof(uint32_t);
        EXPECT_EQ(kept.size(), std::min<uint64_t>(words, room / sizeof(uint32_t)));
        EXPECT_TRUE(std::equal(kept.begin(), kept.end(), run.given.begin()));
        EXPECT_EQ(run.lost().Lost, words - kept.size());
        EXPECT_EQ(described("NumRecs"), words);
        EXPECT_TRUE(hasItsSeal(run.path()));
        EXPECT_EQ(tagOf(run.path(), "TTResult_NumberOfRecords"), std::to_string(words));
        EXPECT_EQ(log.count("ERR "), i == 0 ? 0u : 1u);
        EXPECT_EQ(log.count("What follows isn't recorded! @11000"), i == 0 ? 0u : 1u);
        EXPECT_EQ(replayed(run.path()), kept);
        const LossReport &beside = currentDevice()->context.FileLosses;
        EXPECT_EQ(beside.Verdict, i == 0 ? Verdict::Clean : Verdict::Lossy);
        EXPECT_EQ(beside.Places[size_t(LossPlace::File)].Lost, words - kept.size());
        closeDevice(0);
    }
}

// No header, no data; the host hears of it and measures all the same.
TEST_F(RecordingRun, WithoutARoomForAHeaderThereIsNoRecording)
{
    Recorder recorder(LibType::ZP);
    std::filesystem::create_directory(folder.file("locked"));
    chmod(folder.file("locked").c_str(), 0555);
    chmod(folder.path().c_str(), 0755);
    for (const bool isLocked : {true, false}) {
        SCOPED_TRACE(isLocked);
        recorder.init(MeasMode::T2);
        LogCapture log;
        {
            const FileSizeLimit limit(isLocked ? RLIM_INFINITY : 1000);
            if (isLocked) {
                const Powerless user;
                recorder.start(folder.file("locked/a.tgx"));
                EXPECT_GT(tessel_lastError(nullptr, 0), 0u);
            } else {
                recorder.start(folder.file("small.tgx"));
            }
            recorder.give(someWords(1000));
            recorder.stop();
        }
        EXPECT_EQ(recorder.lost().Lost, 1000u);
        EXPECT_EQ(described("NumRecs"), 1000);
        EXPECT_EQ(log.count("ERR "), 1u);
        EXPECT_EQ(
            log.count(isLocked ? "ERR Device: Create Data File \"" : "ERR Device: Write TGX header error"), 1u);
        EXPECT_EQ(std::filesystem::exists(recorder.path()), !isLocked);
    }
}
