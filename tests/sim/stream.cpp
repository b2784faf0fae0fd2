// Record words of simulated light: what stands in them, and that a seed gives the same ones everywhere.
#include "sim/stream.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Tessel::Sim;

namespace {

const PulsedParams pulsed{.PeriodPs = 12500.5,
                          .DelayPs = 1000,
                          .SigmaPs = 80,
                          .NumPulses = 100000,
                          .Channels = {{4e5, 1e4, 3000}, {2e5, 1e4, 900}},
                          .Seed = 42};
constexpr uint64_t durationPs = 1250050000; // of all pulses

CwParams cw(CwKind kind)
{
    return {kind, 20000, 1e5, 2, 5e7, 100, durationPs, {1e6, 2e5}, {1e3, 0}, 42};
}

std::vector<uint32_t> allWords(int mode, const LightParams &light)
{
    WordStream stream = makeWordStream({mode, light, pulsed.PeriodPs, mode == 2 ? 5.0 : 25.0, durationPs});
    std::vector<uint32_t> all;
    while (nextWords(stream)) all.insert(all.end(), stream.Writer.Words.begin(), stream.Writer.Words.end());
    EXPECT_EQ(std::ranges::count(all, 127u, [](uint32_t word) { return word >> 25; }),
              stream.Writer.NumOverflows);
    return all;
}

} // namespace

// Decoded with plain arithmetic: times don't go back, the syncs of T2 come in time, and it ends at the end.
TEST(Stream, GoesOnToItsEnd)
{
    PulsedParams weak = pulsed, dark = pulsed; // some photons, and more wraps than a word can count
    weak.Channels = dark.Channels = {{2000, 0, 0}};
    dark.Channels[0].SignalRate = 100;
    dark.NumPulses = 10'000'000;
    for (const auto &[mode, light] : {std::pair(2, pulsed), {3, pulsed}, {2, weak}, {3, weak}, {3, dark}}) {
        const uint64_t wrap = mode == 2 ? 33554432 : 1024;
        uint64_t base = 0, last = 0, syncs = 0;
        for (const uint32_t word : allWords(mode, light)) {
            const uint64_t time = base + word % wrap;
            if (word >> 25 == 127) { // overflows
                base += word % wrap * wrap;
                continue;
            }
            ASSERT_GE(time, last);
            last = time;
            if (word >> 25 != 64) continue;
            ASSERT_EQ(time, syncs * 25001 / 10);
            ++syncs;
        }
        EXPECT_EQ(syncs, mode == 2 ? 100000u : 0u);
        EXPECT_EQ(base / wrap, (mode == 2 ? durationPs / 5 : light.NumPulses) / wrap);
    }
}

// The records of a seed are part of what the program promises; a change of these numbers breaks the promise.
TEST(Stream, IsTheSameOnEveryMachine)
{
    const struct
    {
        int Mode;
        LightParams Light;
        uint64_t Hash;
    } cases[] = {
        {3, pulsed, 16327731182510556566u},
        {2, pulsed, 199476360061702618u},
        {2, cw(CwKind::Poissonian), 1158628368293563568u},
        {2, cw(CwKind::Antibunched), 5578427311420826485u},
        {2, cw(CwKind::Bunched), 2585069535707565207u},
        {2, cw(CwKind::Diffusing), 3004127508708933683u},
    };
    for (const auto &row : cases) {
        uint64_t hash = 14695981039346656037u;
        for (const uint32_t word : allWords(row.Mode, row.Light)) hash = (hash ^ word) * 1099511628211u;
        EXPECT_EQ(hash, row.Hash) << "row " << &row - cases;
    }
}
