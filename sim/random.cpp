// The random numbers of the simulated sources. Pure; one thread per generator.
#include "sim/random.h"

namespace Tessel::Sim {

namespace {

uint64_t splitMix(uint64_t &state) // fills a state from a seed, so that no seed gives a bad state
{
    uint64_t z = state += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

} // namespace

Random makeRandom(uint64_t seed, uint64_t stream)
{
    uint64_t state = seed;
    state = splitMix(state) ^ stream * 0xd1342543de82ef95u;
    Random random;
    for (uint64_t &word : random.State) word = splitMix(state);
    return random;
}

AliasTable makeAliasTable(std::span<const double> weights)
{
    const size_t count = weights.size();
    double total = 0;
    for (const double weight : weights) total += weight;
    AliasTable table{std::vector<double>(count, 1.0), std::vector<uint32_t>(count, 0)};
    std::vector<uint32_t> poor, rich;
    for (uint32_t i = 0; i < count; ++i) {
        table.Keep[i] = weights[i] * static_cast<double>(count) / total;
        table.Other[i] = i;
        (table.Keep[i] < 1 ? poor : rich).push_back(i);
    }
    while (!poor.empty() && !rich.empty()) {
        const uint32_t needy = poor.back(), giver = rich.back();
        poor.pop_back();
        table.Other[needy] = giver;
        table.Keep[giver] -= 1 - table.Keep[needy];
        if (table.Keep[giver] >= 1) continue;
        rich.pop_back();
        poor.push_back(giver);
    }
    // Rounding may leave a column short of 1. One with weight 0 can't be among them unless all givers are used
    // up, so what is left stays in its own column only if it has weight.
    for (const uint32_t i : rich) table.Keep[i] = 1;
    for (const uint32_t i : poor)
        if (weights[i] > 0) table.Keep[i] = 1;
    return table;
}

} // namespace Tessel::Sim
