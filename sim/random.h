// Random numbers that are the same on every machine for a seed: the generator is xoshiro256++, and what is
// drawn from it uses only additions, products, divisions and square roots, which IEEE 754 rounds in one way.
// (The standard library's distributions and the C library's logarithm differ between platforms; so would
// fused multiply-adds, which the build forbids for these files.)
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <span>
#include <vector>

namespace Tessel::Sim {

struct Random
{
    uint64_t State[4] = {};
    double SpareNormal = 0; // the second one of a pair
    bool HasSpare = false;
};

// `stream` makes generators of one seed independent of each other.
Random makeRandom(uint64_t seed, uint64_t stream = 0);

// Natural logarithm of a positive normal number; relative error below 1e-15.
double logOf(double x);

// Standard normal deviate, by Marsaglia's polar method.
double normal(Random &random);

inline uint64_t nextBits(Random &random)
{
    uint64_t *const s = random.State;
    const uint64_t result = std::rotl(s[0] + s[3], 23) + s[0];
    const uint64_t t = s[1] << 17;
    s[2] ^= s[0];
    s[3] ^= s[1];
    s[1] ^= s[2];
    s[0] ^= s[3];
    s[2] ^= t;
    s[3] = std::rotl(s[3], 45);
    return result;
}

// Uniform in [0, 1).
inline double uniform(Random &random)
{
    return static_cast<double>(nextBits(random) >> 11) * 0x1p-53;
}

// Exponential with mean 1, by inverse transform of a uniform number in (0, 1].
inline double exponential(Random &random)
{
    return -logOf(static_cast<double>((nextBits(random) >> 11) + 1) * 0x1p-53);
}

// Walker's alias table: draws an index with probability proportional to its weight, in constant time.
struct AliasTable
{
    std::vector<double> Keep; // probability to stay in the column that was hit
    std::vector<uint32_t> Other;
};

// At least one weight is positive, none is negative.
AliasTable makeAliasTable(std::span<const double> weights);

inline uint32_t pick(const AliasTable &table, Random &random)
{
    const double position = uniform(random) * static_cast<double>(table.Keep.size());
    const auto column = static_cast<uint32_t>(position);
    return position - column < table.Keep[column] ? column : table.Other[column];
}

} // namespace Tessel::Sim
