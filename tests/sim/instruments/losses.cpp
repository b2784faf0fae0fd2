// A live run that its host can't follow: what it lost, beside what the instrument says that it gave.
#include "sim_host.h"

#include <thread>

using namespace SimTest;
using namespace TestSupport;

namespace {

class LiveLosses : public testing::TestWithParam<FamilyLibrary>
{
};

} // namespace

// The host fetches 20,000 events every 20 ms, an eighth of what comes, of which some are overflows.
TEST_P(LiveLosses, AreKnownToTheRecord)
{
    constexpr uint64_t blockSize = 20'000;
    SimHost host;
    std::vector<uint64_t> times(blockSize), taken(blockSize);
    std::vector<uint8_t> channels(blockSize), takenChannels(blockSize);
    for (const bool hasStage : {false, true}) {
        SCOPED_TRACE(hasStage);
        ASSERT_TRUE(host.open(GetParam().Prefix, 2, "'sync':{'periodPs':1000000},'input':{'rateCps':2000000}"));
        if (hasStage) addMCountRate(nullptr, 1e6);
        uint64_t accounted = 0;
        const auto fetch = [&] {
            uint64_t count = 0;
            ufGetBlock(nullptr, taken.data(), takenChannels.data(), &count);
            accounted += count;
        };
        Finished finished;
        ufStartBlock(nullptr, 300, 0, times.data(), channels.data(), blockSize, finished.get());
        while (!finished.isSet()) {
            fetch();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        fetch();
        tessel_losses losses{};
        losses.size = sizeof losses;
        ASSERT_TRUE(tessel_getLosses(nullptr, &losses));
        EXPECT_EQ(losses.verdict, TESSEL_LOSSY);
        EXPECT_GT(losses.places[TESSEL_LOSS_UNFOLD_BLOCK].lost, blockSize);
        for (const tessel_loss &loss : losses.places) accounted += loss.lost;
        const auto words = host.truth().at("words");
        EXPECT_EQ(accounted, words.at("read").to_number<uint64_t>());
        EXPECT_GT(words.at("overflows").to_number<uint64_t>(), 0u);
        clearManis(nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(Families, LiveLosses, testing::ValuesIn(families),
                         [](const auto &family) { return family.param.Prefix; });
