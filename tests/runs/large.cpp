// Recordings far larger than every buffer: each record is accounted for, with and without stages in the chain.
// TESSEL_TEST_RECORDS sets their size.
#include "support/host.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

using namespace TestSupport;

namespace {

constexpr int channels = 4;
constexpr uint64_t binsT2 = 4096, binWidthT2 = 1000;

uint64_t recordCount()
{
    const char *given = getenv("TESSEL_TEST_RECORDS");
    return given ? std::strtoull(given, nullptr, 10) : 6'000'000;
}

// Writes a recording of pseudo-random events and counts them on the way: rows of the sync and the inputs.
class Source
{
public:
    explicit Source(bool isT3) : t3(isT3), counts(channels + 1, isT3 ? 32768 : binsT2)
    {
        std::fill(counts.data.begin(), counts.data.end(), 0u);
    }

    bool write(const std::string &path, uint64_t records)
    {
        tessel_recording_params params{};
        params.size = sizeof params;
        params.measMode = t3 ? 3 : 2;
        params.numChannels = channels;
        params.baseResolution = params.resolution = 1;
        params.syncRate = 50e6;
        tessel_recording *recording = tessel_recordingCreate(path.c_str(), &params);
        bool good = recording != nullptr;
        std::vector<uint32_t> block(1 << 16);
        for (uint64_t left = records; good && left > 0; left -= std::min<uint64_t>(left, block.size())) {
            uint64_t size = std::min<uint64_t>(left, block.size());
            for (uint64_t i = 0; i < size; ++i) block[i] = t3 ? nextT3() : nextT2();
            good = tessel_recordingWrite(recording, block.data(), size);
        }
        return tessel_recordingClose(recording) && good;
    }

    const Counts &expected() const { return counts; }

private:
    uint32_t nextT3()
    {
        uint32_t bits = random();
        if (bits % 16 == 0) return t3Overflow(1);
        uint32_t channel = bits >> 30, dtime = bits >> 8 & 0x3FFF;
        ++counts.data[(channel + 1) * 32768 + dtime];
        return t3Event(channel, bits & 0x3FF, dtime);
    }

    // Time goes on by up to 2^18 ps an event; a wrap of the 25 bits is an overflow record of its own.
    uint32_t nextT2()
    {
        if (owed) {
            owed = false;
            return emitT2();
        }
        uint32_t bits = random();
        time += bits & 0x3FFFF;
        code = bits >> 28;
        if (time / 33554432 != wraps) {
            wraps = time / 33554432;
            owed = true;
            return t2Overflow(1);
        }
        return emitT2();
    }

    uint32_t emitT2()
    {
        bool isSync = code < 4;
        uint32_t row = isSync ? 0 : 1 + code % channels;
        uint64_t bin = (time - lastSync) / binWidthT2;
        if (lastSync != 0 && bin < binsT2) ++counts.data[row * binsT2 + bin];
        if (isSync) lastSync = time;
        auto tag = static_cast<uint32_t>(time % 33554432);
        return isSync ? t2Sync(tag) : t2Event(row - 1, tag);
    }

    bool t3;
    Counts counts;
    std::mt19937 random{11};
    uint64_t time = 0, wraps = 0, lastSync = 0;
    uint32_t code = 0;
    bool owed = false; // an event waits behind its overflow record
};

class LargeReplay : public testing::TestWithParam<std::tuple<bool, int>>
{
};

} // namespace

TEST_P(LargeReplay, AccountsForEveryRecord)
{
    auto [t3, stages] = GetParam();
    Host host;
    Source source(t3);
    std::string path = host.folder().file("large.tgx");
    ASSERT_TRUE(source.write(path, recordCount()));
    ASSERT_FALSE(host.open(path).empty());
    if (!t3) {
        setHistoT2NumBins(nullptr, binsT2);
        setHistoT2BinWidth(nullptr, binWidthT2);
    }
    for (int32_t input = 1; input <= stages; ++input) addMMerge(nullptr, &input, 1, 1);

    Counts counts(static_cast<size_t>(channels + 1 + stages), source.expected().columns);
    Finished finished;
    ASSERT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
    const auto &expected = source.expected().data;
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), counts.data.begin()));
    for (int input = 1; input <= stages; ++input) // a merged channel is a copy of its one member
        EXPECT_EQ(counts.rowSum(size_t(channels + input)), counts.rowSum(size_t(input)));
    EXPECT_EQ(described("NumRecs"), static_cast<double>(recordCount()));
    EXPECT_EQ(host.logged("overrun"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Streams, LargeReplay, testing::Combine(testing::Bool(), testing::Values(0, 3)),
                         [](const auto &given) {
                             return std::string(std::get<0>(given.param) ? "t3" : "t2") + "Stages" +
                                    std::to_string(std::get<1>(given.param));
                         });
