// Molecules that diffuse in a plane through a Gaussian focus, as detection times: pure physics, no interface,
// no words.
//
// Lengths are in waists w of the detection profile exp(-2 r^2 / w^2), times in diffusion times tD = w^2 / (4
// D). With N molecules on the area pi w^2 the correlation is G(t) = (1 / N) / (1 + t / tD). They are in a
// square that closes on itself and holds 500 N of them, so what the fixed number takes from G, 1 / (500 N),
// isn't seen.
//
// Nothing is cut into steps of time: a molecule moves from one event of its own to the next by a normal
// deviate, which is exact. Within a stretch in which it comes nearer to the focus by at most `reach` (4
// standard deviations) its brightness is below that of the nearest place; photons are drawn with that
// brightness and kept with the share that the true one has of it. A long reach makes few stretches, a short one
// few photons that aren't kept: each ring around the focus has the one with which a molecule has fewest events.
#pragma once

#include "sim/random.h"

#include <cstdint>
#include <vector>

namespace Tessel::Sim {

struct Molecule
{
    double X, Y;              // waists from the focus, in [-Side / 2, Side / 2)
    uint64_t SincePs;         // when it was there
    uint64_t NextPs = 0;      // its next event
    double NearestSquare = 0; // of the radius from which its brightness is taken until then
    bool MayEmit = false;     // at the next event
};

// Of the molecules in a ring around the focus.
struct Ring
{
    double StretchPs;     // the longest way to the next event
    double NearestSquare; // of the radius that they don't come within until then
    double PhotonPs;      // mean distance of the photons there
};

struct Molecules
{
    double DiffusionPs = 0, Side = 0;
    double VariancePerPs = 0; // of a coordinate
    std::vector<Molecule> All;
    std::vector<Ring> Rings; // by the square of the radius, see ringAt
    Random Generator;

    // Molecules don't know of each other: each goes through a slice of time by itself, and the photons are
    // sorted.
    uint64_t SlicePs = 0, UntilPs = 0; // length, and end of the present one
    std::vector<uint64_t> Photons;     // of the slice, in the order of time
    size_t NumTaken = 0;
};

// `rate`: photons per second of all.
Molecules makeMolecules(double meanNumber, double diffusionPs, double rate, uint64_t seed);

// The time of the next photon; UINT64_MAX: none before `endPs`.
uint64_t nextPhoton(Molecules &molecules, uint64_t endPs);

} // namespace Tessel::Sim
