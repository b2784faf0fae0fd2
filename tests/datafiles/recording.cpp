#include "datafiles/recording.h"

#include "datafiles/custom_tags.h"
#include "datafiles/file_device.h"
#include "log/text.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <csignal>
#include <cstring>
#include <limits>
#include <sys/resource.h>

using namespace Tessel;
using namespace TestSupport;

namespace {

RecordingParams t3Params()
{
    RecordingParams params;
    params.MeasMode = 3;
    params.NumChans = 2;
    params.BaseResolution = 5;
    params.Resolution = 40;
    params.SyncRate = 76'900'000;
    return params;
}

std::vector<uint32_t> wordsBehind(const std::string &path, uint64_t offset)
{
    const std::string bytes = contents(path).substr(offset);
    std::vector<uint32_t> words(bytes.size() / 4);
    std::memcpy(words.data(), bytes.data(), words.size() * 4);
    return words;
}

} // namespace

TEST(Recording, ComesBackAsItWasMade)
{
    struct Case
    {
        int32_t Mode, Family, NumChans;
        double BaseResolution, Resolution, SyncRate;
        LibType Read;
        double ReadResolution;
        int32_t ReadBinning;
        int64_t ReadPeriod;
        double ReadRate;
    };
    const Case cases[] = {
        {2, 0, 1, 1, 0, 0, LibType::ZP, 1, 0, 1, 0},
        {2, 1, 64, 4, 7, 80e6, LibType::CD, 4, 0, 4, 80e6},
        {2, 4, 8, 250, 250, 1, LibType::CD, 250, 0, 250, 1},
        {3, 2, 4, 27, 27, 76'900'000, LibType::SV40, 27, 0, 13004, 76'900'000},
        {3, 3, 4, 5, 40, 40e6, LibType::LM70, 40, 3, 25000, 40e6},
        {3, 0, 2, 5, 15, 0.25, LibType::ZP, 15, 0, 4'000'000'000'000, 0.25},
        {3, 0, 2, 1e12, 1e12, 2147483647, LibType::ZP, 1e12, 0, 466, 2147483647},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(fmt::format("mode {} family {} rate {}", c.Mode, c.Family, c.SyncRate));
        TempFolder folder;
        std::string path = folder.file("r.tgx");
        RecordingParams params{c.Mode, c.Family, c.NumChans, c.BaseResolution, c.Resolution, c.SyncRate,
                               1500,   {},       "77",       "a comment"};
        for (int i = 0; i < c.NumChans; ++i) params.InputRates.push_back(1000.0 * i + 0.4);
        CustomTags tags;
        addStringTag(tags, "Sample", "dots", 0xFFFFFFFF);
        LogCapture log;

        auto recording = Recording::create(path, params, tags);
        ASSERT_TRUE(recording);
        EXPECT_TRUE(recording->write(std::array{1u, 2u, 3u}));
        EXPECT_TRUE(recording->write({}));
        EXPECT_TRUE(recording->write(std::array{0xFFFFFFFFu}));
        EXPECT_TRUE(recording->close());
        EXPECT_FALSE(recording->write(std::array{5u}));
        EXPECT_FALSE(recording->close());

        Device device;
        MeasContext context;
        ASSERT_TRUE(readTgxFile(path, device, context));
        const MeasDescription &description = context.Description;
        EXPECT_EQ(static_cast<int32_t>(device.MeasMode), c.Mode);
        EXPECT_EQ(device.LibType, c.Read);
        EXPECT_EQ(device.NumChans, c.NumChans);
        EXPECT_EQ(device.ChansCfg.back().Name, fmt::format("Channel {}", c.NumChans));
        EXPECT_EQ(device.BaseResolution, c.BaseResolution);
        EXPECT_EQ(device.Resolution, c.ReadResolution);
        EXPECT_EQ(device.Binning, c.ReadBinning);
        EXPECT_EQ(device.SyncPeriodPs, c.ReadPeriod);
        EXPECT_EQ(description.AveSyncRate, c.ReadRate);
        EXPECT_EQ(device.ID, "77@r.tgx");
        EXPECT_EQ(device.Comment, "a comment");
        EXPECT_EQ(description.NumRecs, 4u);
        EXPECT_EQ(description.StopReason, StopReason::TimeOver);
        EXPECT_EQ(description.AcqTime, 1500);
        EXPECT_EQ(description.StopAfter, 1500.0);
        for (int i = 0; i < c.NumChans; ++i) EXPECT_EQ(context.CountRates[static_cast<size_t>(i)], 1000 * i);
        double seconds = description.StartWords[2] * 0x1p64 + description.StartWords[1] * 0x1p32;
        EXPECT_NEAR(seconds * 1e-12, static_cast<double>(std::time(nullptr)), 10.0);
        EXPECT_EQ(wordsBehind(path, device.DataStart), (std::vector<uint32_t>{1, 2, 3, 0xFFFFFFFF}));
        EXPECT_EQ(log.count("Identifier: Sample "), 1u);
        EXPECT_EQ(log.count("WRN") + log.count("ERR"), 0u);
    }
}

// What stands on the disc if the host dies before the end.
TEST(Recording, IsReadableBeforeItIsClosed)
{
    TempFolder folder;
    RecordingParams params = t3Params();
    params.InputRates = {100, 200};
    auto recording = Recording::create(folder.file("r.tgx"), params, {});
    Device device;
    MeasContext context;
    ASSERT_TRUE(readTgxFile(folder.file("r.tgx"), device, context));
    EXPECT_EQ(context.CountRates[0], 100);
    EXPECT_EQ(context.CountRates[1], 200);
    EXPECT_EQ(context.Description.NumRecs, 0u);
    EXPECT_EQ(context.Description.StopReason, StopReason::Unknown);
    EXPECT_EQ(device.DataStart, std::filesystem::file_size(folder.file("r.tgx")));
}

TEST(Recording, ParametersOutOfRange)
{
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    const std::pair<void (*)(RecordingParams &, double, double), std::string_view> cases[] = {
        {[](RecordingParams &p, double, double) { p.MeasMode = 0; }, "measMode 0 is neither 2 nor 3"},
        {[](RecordingParams &p, double, double) { p.Family = 5; }, "family 5 is not in 0..4"},
        {[](RecordingParams &p, double, double) { p.Family = -1; }, "family -1 is not in 0..4"},
        {[](RecordingParams &p, double, double) { p.NumChans = 0; }, "numChannels 0 is not in 1..64"},
        {[](RecordingParams &p, double, double) { p.NumChans = 65; }, "numChannels 65 is not in 1..64"},
        {[](RecordingParams &p, double, double) { p.BaseResolution = 0; }, "baseResolution 0 is not"},
        {[](RecordingParams &p, double, double) { p.BaseResolution = 2.5; }, "baseResolution 2.5 is not"},
        {[](RecordingParams &p, double n, double) { p.BaseResolution = n; }, "baseResolution nan is not"},
        {[](RecordingParams &p, double, double i) { p.BaseResolution = i; }, "baseResolution inf is not"},
        {[](RecordingParams &p, double, double) { p.Resolution = -1; }, "resolution -1 is not"},
        {[](RecordingParams &p, double n, double) { p.Resolution = n; }, "resolution nan is not"},
        {[](RecordingParams &p, double, double) { p.SyncRate = 0; },
         "syncRate 0 is not in 1e-06..2147483647 Hz"},
        {[](RecordingParams &p, double n, double) { p.SyncRate = n; }, "syncRate nan is not"},
        {[](RecordingParams &p, double, double) { p.SyncRate = 3e9; }, "syncRate 3000000000 is not"},
        {[](RecordingParams &p, double, double) { p.AcqTime = -1; }, "acqTime -1 is negative"},
        {[](RecordingParams &p, double, double) { p.InputRates = {1}; }, "1 input rates for 2 channels"},
        {[](RecordingParams &p, double, double i) {
             p.InputRates = {1, i};
         },
         "input rate inf is not"},
        {[](RecordingParams &p, double, double) {
             p.InputRates = {-1, 0};
         },
         "input rate -1 is not"},
        {[](RecordingParams &p, double, double) { p.Comment = "a Header_End"; }, "the header can't be written"},
        {[](RecordingParams &p, double, double) { p.Comment = std::string(262144, 'c'); },
         "the header can't be written"},
    };
    for (const auto &[spoil, line] : cases) {
        TempFolder folder;
        RecordingParams params = t3Params();
        spoil(params, nan, inf);
        LogCapture log;
        EXPECT_FALSE(Recording::create(folder.file("r.tgx"), params, {})) << line;
        EXPECT_EQ(log.count(fmt::format("ERR File: recording {}: {}", folder.file("r.tgx"), line)), 1u) << line;
    }
}

TEST(Recording, PlacesThatTakeNoFile)
{
    TempFolder folder;
    for (const std::string &path :
         {folder.path().string(), std::string("/dev/null"), folder.file("none/r.tgx")}) {
        LogCapture log;
        EXPECT_FALSE(Recording::create(path, t3Params(), {})) << path;
        EXPECT_EQ(log.count(fmt::format("ERR File: recording {}: ", path)), 1u) << path;
    }
}

TEST(Recording, TwoAtOnceAndOneThatIsDropped)
{
    TempFolder folder;
    RecordingParams small = t3Params(), large = t3Params();
    large.NumChans = 64;
    large.Comment = "with a longer header";
    auto first = Recording::create(folder.file("1.tgx"), small, {});
    auto second = Recording::create(folder.file("2.tgx"), large, {});
    const std::vector<uint32_t> words(300'000, 7);
    EXPECT_TRUE(first->write(words));
    EXPECT_TRUE(second->write(std::array{1u}));
    EXPECT_TRUE(first->write(words));
    EXPECT_TRUE(second->close());
    first.reset();
    for (auto [name, channels, records] : {std::tuple("1.tgx", 2, 600'000u), {"2.tgx", 64, 1u}}) {
        Device device;
        MeasContext context;
        ASSERT_TRUE(readTgxFile(folder.file(name), device, context));
        EXPECT_EQ(device.NumChans, channels);
        EXPECT_EQ(context.Description.NumRecs, records);
        EXPECT_EQ(wordsBehind(folder.file(name), device.DataStart).size(), records);
    }
}

TEST(Recording, SyncRateThatAHeaderCannotKeep)
{
    TempFolder folder;
    RecordingParams params = t3Params();
    params.SyncRate = 1.5;
    LogCapture log;
    EXPECT_TRUE(Recording::create(folder.file("r.tgx"), params, {})->close());
    EXPECT_EQ(log.count("a replay goes by a sync rate of 2 Hz, not 1.5 Hz"), 1u);
}

// A disc that is full, played by the limit of a file's size.
TEST(Recording, WordsThatTheDiscRefuses)
{
    TempFolder folder;
    std::string path = folder.file("r.tgx");
    LogCapture log;
    auto recording = Recording::create(path, t3Params(), {});
    ASSERT_TRUE(recording);
    uint64_t start = std::filesystem::file_size(path);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = before;
    limited.rlim_cur = start + 4001; // a thousand words and a byte
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const std::vector<uint32_t> words(1'000'000, 7);
    EXPECT_FALSE(recording->write(words));
    EXPECT_FALSE(recording->write(words));
    EXPECT_FALSE(recording->close());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldHandler);

    Device device;
    MeasContext context;
    ASSERT_TRUE(readTgxFile(path, device, context));
    EXPECT_EQ(context.Description.NumRecs, 1000u);
    EXPECT_EQ(context.Description.StopReason, StopReason::FileError);
    EXPECT_EQ(std::filesystem::file_size(path), start + 4000);
    EXPECT_EQ(log.count("ERR File: recording "), 2u); // the refusal, and that the file isn't complete
}
