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

} // namespace
