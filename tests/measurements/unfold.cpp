// A batch of events comes into a block that may be too small for it: what becomes of it depends on whether the
// device can wait.
#include "measurements/unfold.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

using namespace Tessel;

namespace {

struct PlaceCase
{
    const char *name;
    DeviceType device;
    uint64_t capacity, held; // events that stand in the block: 100, 101, ...
    uint64_t batch, done;    // events of the batch: 0, 1, ...
    Placed placed;
    uint64_t doneAfter;
    std::vector<uint64_t> block;
};

TEST(UnfoldBlock, TakesABatchAsTheDeviceAllows)
{
    using enum DeviceType;
    using enum Placed;
    const PlaceCase rows[] = {
        {"file, no room", File, 5, 3, 3, 0, Some, 0, {100, 101, 102}},
        {"file, the rest is still larger", File, 3, 0, 7, 2, Some, 5, {2, 3, 4}},
        {"file, the rest waits for room", File, 3, 2, 7, 5, Some, 5, {100, 101}},
        {"file, the rest fits", File, 3, 1, 7, 5, All, 7, {100, 5, 6}},
        {"instrument, fits", Instrument, 5, 2, 3, 0, All, 3, {100, 101, 0, 1, 2}},
        {"instrument, no room", Instrument, 5, 3, 3, 0, Overwritten, 3, {0, 1, 2}},
        {"instrument, larger than the block", Instrument, 3, 1, 5, 0, LastOnly, 5, {2, 3, 4}},
        {"remote, fits", Remote, 5, 2, 3, 0, All, 3, {100, 101, 0, 1, 2}},
        {"remote, no room", Remote, 5, 3, 3, 0, All, 3, {100, 101, 102}},
        {"no block", File, 0, 0, 3, 0, All, 3, {}},
    };
    for (const PlaceCase &row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<uint64_t> times(row.capacity), batchTimes(row.batch);
        std::vector<uint8_t> channels(row.capacity), batchChannels(row.batch);
        std::iota(times.begin(), times.end(), 100u);
        std::iota(channels.begin(), channels.end(), uint8_t{100});
        std::iota(batchTimes.begin(), batchTimes.end(), 0u);
        std::iota(batchChannels.begin(), batchChannels.end(), uint8_t{0});
        uint64_t count = row.held, done = row.done;
        const EventBlock block{times.data(), channels.data(), row.capacity, &count};
        const StreamFacts facts{.MayWait = row.device == DeviceType::File,
                                .IsLive = row.device == DeviceType::Instrument};
        EXPECT_EQ(placeEvents(block, facts, {batchTimes.data(), batchChannels.data(), row.batch}, done),
                  row.placed);
        EXPECT_EQ(done, row.doneAfter);
        ASSERT_EQ(count, row.block.size());
        for (size_t i = 0; i < row.block.size(); ++i) {
            EXPECT_EQ(times[i], row.block[i]);
            EXPECT_EQ(channels[i], row.block[i]);
        }
    }
}

TEST(UnfoldBlock, ANullArrayIsNotWritten)
{
    uint64_t times[] = {7, 8}, blockTimes[2] = {};
    uint8_t channels[] = {1, 2}, blockChannels[2] = {};
    for (const bool hasTimes : {true, false})
        for (const bool hasChannels : {true, false}) {
            uint64_t count = 0, done = 0;
            blockTimes[1] = blockChannels[1] = 0;
            const EventBlock block{hasTimes ? blockTimes : nullptr, hasChannels ? blockChannels : nullptr, 2,
                                   &count};
            EXPECT_EQ(placeEvents(block, {.MayWait = true}, {times, channels, 2}, done), Placed::All);
            EXPECT_EQ(blockTimes[1], hasTimes ? 8u : 0u);
            EXPECT_EQ(blockChannels[1], hasChannels ? 2u : 0u);
            EXPECT_EQ(count, hasTimes || hasChannels ? 2u : 0u);
            EXPECT_EQ(done, 2u);
        }
}

} // namespace
