// Exponential (mean 1) and standard normal deviates by the ziggurat method (Marsaglia and Tsang). The curve is
// cut into 256 layers of the same area; nearly every draw lies in its layer's rectangle and costs one
// multiplication.
#pragma once

#include "sim/random.h"

namespace Tessel::Sim {

// Layer i spans the heights Height[i] to Height[i + 1], and its rectangle ends at Edge[i + 1] within the curve.
struct Ziggurat
{
    double Edge[257], Height[257];
};
extern const Ziggurat exponentialLayers, normalLayers;

double beyondRectangle(Random &random, double x, uint32_t layer);       // exponential
double beyondNormalRectangle(Random &random, double x, uint32_t layer); // of the normal curve's right half

inline double exponential(Random &random)
{
    const uint64_t bits = nextBits(random);
    const auto layer = static_cast<uint32_t>(bits & 255);
    const double x = static_cast<double>(bits >> 11) * 0x1p-53 * exponentialLayers.Edge[layer];
    return x < exponentialLayers.Edge[layer + 1] ? x : beyondRectangle(random, x, layer);
}

inline double normal(Random &random)
{
    const uint64_t bits = nextBits(random);
    const auto layer = static_cast<uint32_t>(bits & 255);
    double x = static_cast<double>(bits >> 11) * 0x1p-53 * normalLayers.Edge[layer];
    if (x >= normalLayers.Edge[layer + 1]) x = beyondNormalRectangle(random, x, layer);
    return std::bit_cast<double>(std::bit_cast<uint64_t>(x) ^ (bits & 256) << 55); // a random sign
}

} // namespace Tessel::Sim
