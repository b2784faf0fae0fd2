#include "datafiles/recording.h"

#include "datafiles/custom_tags.h"
#include "datafiles/header_listing.h"
#include "opened.h"
#include "support/log_capture.h"

#include <boost/json/serialize.hpp>
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
        std::string Lines;             // of the device
        std::string_view Warning = {}; // empty: none
    };
    const Case cases[] = {
        {2, 0, 1, 1, 0, 0, "LibType=0|BaseResolution=1|Resolution=1|Binning=0|SyncPeriodPs=1|AveSyncRate=0"},
        {2, 1, 64, 4, 7, 80e6, "LibType=1|BaseResolution=4|Resolution=4|SyncPeriodPs=4|AveSyncRate=80000000"},
        {2, 4, 8, 250, 250, 1, "LibType=1|Model=Cordalis 90|Resolution=250|SyncPeriodPs=250|AveSyncRate=1"},
        {3, 2, 4, 27, 27, 76.9e6, "LibType=2|Resolution=27|Binning=0|SyncPeriodPs=13004|AveSyncRate=76900000"},
        {3, 3, 4, 5, 40, 40e6, "LibType=3|BaseResolution=5|Resolution=40|Binning=3|SyncPeriodPs=25000"},
        {3, 0, 2, 5, 15, 0.25, "Resolution=15|Binning=0|SyncPeriodPs=4000000000000|AveSyncRate=0.25"},
        {3, 0, 2, 1, 6.103515625, 80e6, "Resolution=6|SyncPeriodPs=12500", "of 6 ps, not 6.103515625 ps"},
        {3, 0, 2, 0.5, 0.5, 80e6, "BaseResolution=1|Resolution=1", "dtimes of 1 ps, not 0.5 ps"},
        {2, 0, 2, 25000. / 1400, 0, 0, "BaseResolution=18|SyncPeriodPs=18", "time tags of 18 ps, not 17.857"},
        {3, 0, 2, 1e12, 1e12, 2147483647, "Resolution=1000000000000|SyncPeriodPs=466|AveSyncRate=2147483647"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Lines);
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

        auto opened = openPath(path);
        ASSERT_TRUE(opened->good);
        EXPECT_EQ(missing(*opened, c.Lines), "");
        EXPECT_EQ(
            missing(*opened, fmt::format("MeasMode={}|NumChans={}|ID=77@r.tgx|Comment=a comment|NumRecs=4|"
                                         "StopReason=0|AcqTime=1500|StopAfter=1500|{}.Name=Channel {}",
                                         c.Mode, c.NumChans, c.NumChans - 1, c.NumChans)),
            "");
        const MeasContext &context = opened->context;
        for (int i = 0; i < c.NumChans; ++i) EXPECT_EQ(context.CountRates[static_cast<size_t>(i)], 1000 * i);
        const auto &words = context.Description.StartWords;
        EXPECT_NEAR((words[2] * 0x1p64 + words[1] * 0x1p32) * 1e-12, static_cast<double>(std::time(nullptr)),
                    10.0);
        EXPECT_EQ(wordsBehind(path, opened->device.DataStart), (std::vector<uint32_t>{1, 2, 3, 0xFFFFFFFF}));
        EXPECT_EQ(log.count("Identifier: Sample "), 1u);
        EXPECT_EQ(log.count("WRN") + log.count("ERR"), c.Warning.empty() ? 0u : 1u);
        EXPECT_GE(log.count(c.Warning), 1u);
        const boost::json::value unit = (c.Mode == 3 ? c.Resolution : c.BaseResolution) * 1e-12;
        EXPECT_NE(headerTagsAsJson(path)->find(boost::json::serialize(unit)), std::string::npos);
    }
}

// What stands on the disc if the host dies before the end, or drops it.
TEST(Recording, IsReadableBeforeItIsClosedAndWholeOnceItIsDropped)
{
    TempFolder folder;
    const std::string path = folder.file("r.tgx");
    RecordingParams params = t3Params();
    params.InputRates = {100, 200};
    params.SyncRate = 1.5;
    LogCapture log;
    auto recording = Recording::create(path, params, {});
    auto opened = openPath(path);
    EXPECT_EQ(missing(*opened, "CountRate[0]=100|CountRate[1]=200|NumRecs=0|StopReason=-1"), "");
    EXPECT_EQ(opened->device.DataStart, std::filesystem::file_size(path));
    const std::vector<uint32_t> words(600'000, 7);
    EXPECT_TRUE(recording->write(words));
    recording.reset();
    EXPECT_EQ(missing(*openPath(path), "NumRecs=600000|StopReason=0"), "");
    EXPECT_EQ(wordsBehind(path, opened->device.DataStart), words);
    EXPECT_EQ(log.count("a replay goes by a sync rate of 2 Hz, not 1.5 Hz"), 1u); // a header keeps no other
}

TEST(Recording, RefusesParametersAndPlaces)
{
    using P = RecordingParams;
    static const double nan = std::nan("");
    const std::pair<void (*)(P &), std::string_view> cases[] = {
        {[](P &p) { p.MeasMode = 0; }, "measMode 0 is neither 2 nor 3"},
        {[](P &p) { p.Family = 5; }, "family 5 is not in 0..4"},
        {[](P &p) { p.Family = -1; }, "family -1 is not in 0..4"},
        {[](P &p) { p.NumChans = 0; }, "numChannels 0 is not in 1..64"},
        {[](P &p) { p.NumChans = 65; }, "numChannels 65 is not in 1..64"},
        {[](P &p) { p.BaseResolution = 0; }, "baseResolution 0 is not"},
        {[](P &p) { p.BaseResolution = 0.49; }, "baseResolution 0.49 is not"},
        {[](P &p) { p.BaseResolution = 1.1e12; }, "baseResolution 1100000000000 is not"},
        {[](P &p) { p.Resolution = nan; }, "resolution nan is not"},
        {[](P &p) { p.SyncRate = 0; }, "syncRate 0 is not in 1e-06..2147483647 Hz"},
        {[](P &p) { p.SyncRate = 3e9; }, "syncRate 3000000000 is not"},
        {[](P &p) { p.AcqTime = -1; }, "acqTime -1 is negative"},
        {[](P &p) { p.InputRates.assign(1, 1.0); }, "1 input rates for 2 channels"},
        {[](P &p) { p.InputRates.assign(2, nan); }, "input rate nan is not"},
        {[](P &p) { p.InputRates.assign(2, -1.0); }, "input rate -1 is not"},
        {[](P &p) { p.Comment = std::string(262144, 'c'); }, "the header can't be written"},
    };
    TempFolder folder;
    for (const auto &[spoil, line] : cases) {
        RecordingParams params = t3Params();
        spoil(params);
        LogCapture log;
        EXPECT_FALSE(Recording::create(folder.file("r.tgx"), params, {})) << line;
        EXPECT_EQ(log.count(fmt::format("ERR File: recording {}: {}", folder.file("r.tgx"), line)), 1u) << line;
    }
    for (const std::string &path :
         {folder.path().string(), std::string("/dev/null"), folder.file("none/r.tgx")}) {
        LogCapture log;
        EXPECT_FALSE(Recording::create(path, t3Params(), {})) << path;
        EXPECT_EQ(log.count(fmt::format("ERR File: recording {}: ", path)), 1u) << path;
    }
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

    EXPECT_EQ(missing(*openPath(path), "NumRecs=1000|StopReason=-5"), "");
    EXPECT_EQ(std::filesystem::file_size(path), start + 4000);
    EXPECT_EQ(log.count("ERR File: recording "), 2u); // the refusal, and that the file isn't complete
}
