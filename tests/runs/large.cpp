// A recording far larger than every buffer, through stages of all kinds: each record is accounted for, whatever
// time the host takes. TESSEL_TEST_RECORDS sets its size.
#include "runs/kinds.h"
#include "support/host.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

using namespace TestSupport;

namespace {

constexpr int channels = 4;

uint64_t recordCount()
{
    const char *given = getenv("TESSEL_TEST_RECORDS");
    return given ? std::strtoull(given, nullptr, 10) : isSanitized ? 2'000'000 : 6'000'000;
}

// Tells one sequence of T3 events from any other.
struct Order
{
    void add(uint32_t channel, uint32_t dtime)
    {
        hash = hash * 0x9E3779B97F4A7C15 + (channel << 16 | dtime) + 1;
    }

    uint64_t hash = 0;
};

// Writes a recording of pseudo-random events.
class Source
{
public:
    bool write(const std::string &path, uint64_t records)
    {
        tessel_recording_params params{};
        params.size = sizeof params;
        params.measMode = 3;
        params.numChannels = channels;
        params.baseResolution = params.resolution = 1;
        params.syncRate = 50e6;
        tessel_recording *recording = tessel_recordingCreate(path.c_str(), &params);
        bool good = recording != nullptr;
        std::vector<uint32_t> block(1 << 16);
        for (uint64_t left = records; good && left > 0; left -= std::min<uint64_t>(left, block.size())) {
            const uint64_t size = std::min<uint64_t>(left, block.size());
            for (uint64_t i = 0; i < size; ++i) block[i] = next();
            good = tessel_recordingWrite(recording, block.data(), size);
        }
        return tessel_recordingClose(recording) && good;
    }

    Order order;

private:
    uint32_t next()
    {
        const uint32_t bits = random();
        if (bits % 16 == 0) return t3Overflow(1);
        const uint32_t channel = bits >> 30, dtime = bits >> 8 & 0x3FFF;
        order.add(channel + 1, dtime);
        return t3Event(channel, bits & 0x3FF, dtime);
    }

    std::mt19937 random{11};
};

} // namespace

// The run stands still most of the time, with every store between the file and the block filled.
TEST(LargeUnfold, WaitsForAHostThatTakesABlockNowAndThen)
{
    constexpr int stages = 8;
    constexpr size_t storeBytes = (8 << 20) * (sizeof(uint64_t) + sizeof(uint8_t)); // of BufferSize events
    Host host;
    Source source;
    std::string path = host.folder().file("large.tgx");
    ASSERT_TRUE(source.write(path, recordCount()));
    ASSERT_FALSE(host.open(path).empty());
    addEightStages();

    const size_t size = recordCount() / 25;
    std::vector<uint64_t> times(size), copyTimes(size);
    std::vector<uint8_t> codes(size), copyCodes(size);
    Order order;
    Finished finished;
    const size_t residentBefore = residentKiB();
    size_t resident = 0;
    ufStartBlock(nullptr, 0, 0, times.data(), codes.data(), size, finished.get());
    for (bool last = false; !last;) {
        last = finished.isSet();
        uint64_t count = 0;
        ufGetBlock(nullptr, copyTimes.data(), copyCodes.data(), &count);
        for (uint64_t i = 0; i < count; ++i)
            if (copyCodes[i] >= 1 && copyCodes[i] <= channels) order.add(copyCodes[i], copyTimes[i] & 0x7FFF);
        resident = std::max(resident, residentKiB());
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(order.hash, source.order.hash);
    EXPECT_EQ(described("NumRecs"), static_cast<double>(recordCount()));
    EXPECT_EQ(host.logged("overrun"), 0u);
    // A store and a batch a stage, the final store, the block and the stream buffers.
    const size_t bound = ((2 * stages + 3) * storeBytes + size * 9) / 1024;
    EXPECT_TRUE(isSanitized || resident < residentBefore + bound) << resident - residentBefore;
}
