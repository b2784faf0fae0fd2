// Molecules that diffuse in a plane through a Gaussian focus, as detection times: pure physics, no interface,
// no words.
//
// Lengths are in waists w of the detection profile exp(-2 r^2 / w^2), times in diffusion times tD = w^2 / (4
// D). With N molecules on the area pi w^2 the correlation is G(t) = (1 / N) / (1 + t / tD). They are in a
// square that closes on itself and holds 500 N of them, so what the fixed number takes from G, 1 / (500 N),
// isn't seen.
//
// Nothing is cut into steps of time: a molecule moves from one event of its own to the next by a normal
// deviate, which is exact. Within a stretch in which it comes nearer to the focus by at most `reach` (4.5
// standard deviations) its brightness is below that of the nearest place; photons are drawn with that
// brightness and kept with the share that the true one has of it.
#pragma once

#include "sim/random.h"

#include <cstdint>
#include <functional>
#include <queue>
#include <vector>

namespace Tessel::Sim {

struct Molecule
{
    double X, Y;              // waists from the focus, in [-Side / 2, Side / 2)
    uint64_t SincePs;         // when it was there
    double NearestSquare = 0; // of the radius from which its brightness is taken until its next event
    bool MayEmit = false;     // at the next event
};

struct MoleculeEvent
{
    uint64_t TimePs;
    uint32_t Molecule;
    bool operator>(const MoleculeEvent &other) const
    {
        return TimePs != other.TimePs ? TimePs > other.TimePs : Molecule > other.Molecule;
    }
};

struct Molecules
{
    double DiffusionPs = 0, Side = 0;
    double PeakPerPs = 0; // photons of a molecule in the centre of the focus
    std::vector<Molecule> All;
    std::priority_queue<MoleculeEvent, std::vector<MoleculeEvent>, std::greater<>> Events; // one for each
    Random Generator;
};

// `rate`: photons per second of all.
Molecules makeMolecules(double meanNumber, double diffusionPs, double rate, uint64_t seed);

// The time of the next photon; UINT64_MAX: none before `endPs`.
uint64_t nextPhoton(Molecules &molecules, uint64_t endPs);

} // namespace Tessel::Sim
