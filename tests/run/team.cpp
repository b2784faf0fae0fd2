// Jobs of several parts on several threads.
#include "threads/team.h"

#include "measurements/correlation_count.h"
#include "measurements/correlation_setup.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>

using namespace Tessel;

TEST(Team, DoesEachPartOnceAndThrowsWhatOneThrows)
{
    for (const unsigned helpers : {0u, 1u, 3u}) {
        Team team(helpers);
        std::vector<unsigned> done(50);
        for (unsigned job = 1; job <= 2000; ++job) {
            const uint64_t parts = job % done.size();
            auto work = [&](uint64_t part) {
                ++done[part];
                if (job % 100 == 7 && part == 3) throw std::runtime_error("a part");
            };
            if (job % 100 == 7)
                EXPECT_THROW(team.share(parts, work), std::runtime_error);
            else
                team.share(parts, work);
        }
        // Part p is in the jobs that leave more than p: 49 - p of each 50.
        for (size_t part = 0; part < done.size(); ++part) EXPECT_EQ(done[part], 40 * (49 - part)) << part;
    }
}

TEST(Team, CountsLagsAsOneThreadDoes)
{
    std::mt19937_64 random(5);
    std::vector<uint64_t> times;
    std::vector<uint8_t> channels;
    for (uint64_t time = 1000; times.size() < 3 * lagsBlock; time += random() % 600) {
        times.push_back(time - (random() % 20000 == 0 ? random() % 1000 : 0)); // now and then late
        channels.push_back(static_cast<uint8_t>(1 + random() % 2));
    }
    for (const uint32_t mode : {CorrMode::FCS, CorrMode::FFCS})
        for (const uint64_t steps : {20u, 300u}) { // many lags have pairs counted one by one
            const CorrelationParams params{
                .CorrMode = mode, .CorrWindow = 3'000'000, .CorrSteps = steps, .CorrMinLag = 100};
            const auto alone = setUpCorrelation({}, params), shared = setUpCorrelation({}, params);
            Team team(2);
            shared->Helpers = &team;
            for (uint64_t at = 0; at < times.size(); at += lagsBlock)
                for (const auto &work : {alone, shared})
                    countCorrelation(*work, {&times[at], &channels[at], lagsBlock});
            for (size_t row = 0; row < corrRowCount; ++row)
                EXPECT_TRUE(std::equal(alone->Rows[row].get(), alone->Rows[row].get() + alone->Lags,
                                       shared->Rows[row].get()))
                    << "mode " << mode << ", row " << row;
            EXPECT_EQ(alone->LagCursors, shared->LagCursors);
            EXPECT_GT(shared->Rows[1][alone->Lags / 2], 0u);
        }
}
