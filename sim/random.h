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
};

// `stream` makes generators of one seed independent of each other.
Random makeRandom(uint64_t seed, uint64_t stream = 0);

// Natural logarithm of a positive normal number; relative error below 1e-15.
// x = m 2^e with m in [sqrt(1/2), sqrt(2)); ln m = 2 artanh(s), s = (m - 1) / (m + 1), |s| < 0.172.
inline double logOf(double x)
{
    constexpr uint64_t sqrtHalf = 0x3fe6a09e667f3bcdu;
    const uint64_t bits = std::bit_cast<uint64_t>(x);
    const int64_t exponent = static_cast<int64_t>(bits - sqrtHalf) >> 52;
    const double m = std::bit_cast<double>(bits - (static_cast<uint64_t>(exponent) << 52));
    const double s = (m - 1) / (m + 1);
    const double z = s * s;
    // Two halves of the series in z, of odd and of even powers, which the processor works on side by side.
    const double square = z * z;
    const double even =
        (((1.0 / 19 * square + 1.0 / 15) * square + 1.0 / 11) * square + 1.0 / 7) * square + 1.0 / 3;
    const double odd =
        (((1.0 / 21 * square + 1.0 / 17) * square + 1.0 / 13) * square + 1.0 / 9) * square + 1.0 / 5;
    const double sum = even + z * odd;
    return static_cast<double>(exponent) * 0.69314718055994530942 + 2 * (s + s * z * sum);
}

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
