// The Z2 statistic: how far phases are from even.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace Tessel::Cli {

// Z^2 of two harmonics: 2 / n times the sum of the squares of these sums. Random phases give 4 on average.
struct PhaseSums
{
    uint64_t Count = 0;
    double Cos[2] = {}, Sin[2] = {};

    double z2() const
    {
        if (Count == 0) return 0;
        double squares = 0;
        for (size_t k = 0; k < 2; ++k) squares += Cos[k] * Cos[k] + Sin[k] * Sin[k];
        return 2 * squares / static_cast<double>(Count);
    }
};

inline void addPhase(PhaseSums &sums, double turns)
{
    const double angle = 2 * M_PI * turns, c = std::cos(angle), s = std::sin(angle);
    ++sums.Count;
    sums.Cos[0] += c;
    sums.Sin[0] += s;
    sums.Cos[1] += c * c - s * s; // of the double angle
    sums.Sin[1] += 2 * s * c;
}

// The phase, from 0 to 1, with that of the first event at 0.
inline double turnsOf(double seconds, double frequency)
{
    const double turns = seconds * frequency;
    return turns - std::floor(turns);
}

} // namespace Tessel::Cli
