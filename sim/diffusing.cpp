// Generator of diffusing molecules. One thread.
#include "sim/diffusing.h"

#include <algorithm>
#include <iterator>
#include <numbers>

namespace Tessel::Sim {

namespace {

constexpr double moleculesPerFocus = 500; // in the square, for each one in the focus
constexpr double deviations = 4.5;        // in a plane one stretch in 25000 goes further

// Brightness at a radius, as a share of that of the centre: exp(-2 r^2). A table, as the exponential function
// of the C library differs between platforms.
struct Ring
{
    double Radius, Brightness;
};
constexpr Ring rings[] = {{0, 1},
                          {0.5, 0.60653065971263342360},
                          {1, 0.13533528323661269189},
                          {1.5, 0.011108996538242306496},
                          {2, 3.3546262790251183882e-4},
                          {3, 1.5229979744712628436e-8}};

double folded(double position, double side)
{
    return position - side * std::floor(position / side + 0.5);
}

// Draws when the molecule's next event is and what it may be.
void plan(Molecules &molecules, uint32_t index)
{
    Molecule &molecule = molecules.All[index];
    const double radius = std::sqrt(molecule.X * molecule.X + molecule.Y * molecule.Y);
    const double reach = std::max(radius - 1.5, 0.75);
    const double inner = std::max(0.0, radius - reach);
    const Ring &ring =
        *std::find_if(std::rbegin(rings), std::rend(rings), [&](const Ring &r) { return r.Radius <= inner; });
    // The variance of a coordinate is 2 D t = t / (2 tD).
    const double sigma = reach / deviations;
    const double stretchPs = 2 * sigma * sigma * molecules.DiffusionPs;
    const double photonPs = exponential(molecules.Generator) / (molecules.PeakPerPs * ring.Brightness);
    molecule.MayEmit = photonPs < stretchPs;
    molecule.NearestSquare = ring.Radius * ring.Radius;
    const double gap = std::floor(std::min(photonPs, stretchPs) + 0.5);
    molecules.Events.push({molecule.SincePs + static_cast<uint64_t>(gap), index});
}

void move(Molecules &molecules, Molecule &molecule, uint64_t timePs)
{
    const auto elapsed = static_cast<double>(timePs - molecule.SincePs);
    const double sigma = std::sqrt(elapsed / (2 * molecules.DiffusionPs));
    molecule.X = folded(molecule.X + sigma * normal(molecules.Generator), molecules.Side);
    molecule.Y = folded(molecule.Y + sigma * normal(molecules.Generator), molecules.Side);
    molecule.SincePs = timePs;
}

} // namespace

Molecules makeMolecules(double meanNumber, double diffusionPs, double rate, uint64_t seed)
{
    Molecules molecules;
    molecules.Generator = makeRandom(seed, 4);
    const double number = std::max(1.0, std::floor(moleculesPerFocus * meanNumber + 0.5));
    molecules.DiffusionPs = diffusionPs;
    molecules.Side = std::sqrt(number * std::numbers::pi / meanNumber);
    molecules.PeakPerPs = 2 * rate * 1e-12 / meanNumber; // the profile's area is pi w^2 / 2
    molecules.All.reserve(static_cast<size_t>(number));
    for (uint32_t i = 0; i < static_cast<uint32_t>(number); ++i) {
        const double x = uniform(molecules.Generator) - 0.5, y = uniform(molecules.Generator) - 0.5;
        molecules.All.push_back({.X = x * molecules.Side, .Y = y * molecules.Side, .SincePs = 0});
        plan(molecules, i);
    }
    return molecules;
}

uint64_t nextPhoton(Molecules &molecules, uint64_t endPs)
{
    while (molecules.Events.top().TimePs < endPs) {
        const MoleculeEvent event = molecules.Events.top();
        molecules.Events.pop();
        Molecule &molecule = molecules.All[event.Molecule];
        move(molecules, molecule, event.TimePs);
        // Kept with probability exp(-2 (r^2 - nearest^2)).
        const double excess = molecule.X * molecule.X + molecule.Y * molecule.Y - molecule.NearestSquare;
        const bool isSeen = molecule.MayEmit && exponential(molecules.Generator) > 2 * excess;
        plan(molecules, event.Molecule);
        if (isSeen) return event.TimePs;
    }
    return UINT64_MAX;
}

} // namespace Tessel::Sim
