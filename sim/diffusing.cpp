// Generator of diffusing molecules. One thread.
#include "sim/diffusing.h"

#include "sim/ziggurat.h"

#include <algorithm>
#include <limits>
#include <numbers>
#include <numeric>

namespace Tessel::Sim {

namespace {

constexpr double moleculesPerFocus = 500;                      // in the square, for each one in the focus
constexpr double deviations = 4;                               // in a plane one stretch in 3000 goes further
constexpr double photonsPerSlice = 32768, timesPerSlice = 100; // of diffusion, whichever is shorter

// Rings are narrow where it matters: by 1/16 of the square of the radius up to four waists, by 1 beyond.
constexpr double narrowSquare = 16;
constexpr int narrowRings = 256;

int ringAt(double square)
{
    return square < narrowSquare ? static_cast<int>(square * 16) : narrowRings - 16 + static_cast<int>(square);
}

double innerSquare(int ring)
{
    return ring < narrowRings ? ring / 16.0 : ring - narrowRings + 16.0;
}

// exp(-2 r^2) at r = k / 16, by products alone, as the exponential function of the C library differs between
// platforms: each has exp(-(2 k + 1) / 128) of the one before.
struct Brightness
{
    static constexpr int Count = 49; // up to 3 waists; beyond, 1.5e-8 is the most there is
    double At[Count];
};

Brightness makeBrightness()
{
    constexpr double first = 0.99221793826024351260; // exp(-1 / 128)
    Brightness brightness{};
    double now = 1, share = first;
    for (double &at : brightness.At) {
        at = now;
        now *= share;
        share *= first * first;
    }
    return brightness;
}

// The variance of a coordinate is 2 D t = t / (2 tD).
double stretchOf(const Molecules &molecules, double reach)
{
    const double sigma = reach / deviations;
    return 2 * sigma * sigma * molecules.DiffusionPs;
}

// Of the ways to follow a molecule in the ring the one with the fewest events.
Ring bestRing(const Molecules &molecules, const Brightness &brightness, double radius, double peakPerPs)
{
    double fewest = std::numeric_limits<double>::infinity();
    Ring best{};
    for (double reach = 0.02; reach < std::max(radius, 0.75); reach *= 1.1) {
        const int nearest =
            std::min(static_cast<int>(std::max(radius - reach, 0.0) * 16), Brightness::Count - 1);
        const double stretchPs = stretchOf(molecules, reach), perPs = peakPerPs * brightness.At[nearest];
        const double events = perPs + 1 / stretchPs;
        if (events < fewest) best = {stretchPs, nearest * nearest / 256.0, 1 / perPs};
        fewest = std::min(events, fewest);
    }
    return best;
}

// Few leave the square.
double folded(double position, double side)
{
    if (position >= -side / 2 && position < side / 2) return position;
    return position - side * std::floor(position / side + 0.5);
}

// Draws when the molecule's next event is and what it may be.
void plan(Molecules &molecules, Molecule &molecule)
{
    const Ring &ring =
        molecules.Rings[static_cast<size_t>(ringAt(molecule.X * molecule.X + molecule.Y * molecule.Y))];
    const double photonPs = exponential(molecules.Generator) * ring.PhotonPs;
    molecule.MayEmit = photonPs < ring.StretchPs;
    molecule.NearestSquare = ring.NearestSquare;
    const double gap = std::min(photonPs, ring.StretchPs);
    molecule.NextPs = molecule.SincePs + static_cast<uint64_t>(static_cast<int64_t>(gap + 0.5));
}

void move(Molecules &molecules, Molecule &molecule)
{
    const auto elapsed = static_cast<double>(static_cast<int64_t>(molecule.NextPs - molecule.SincePs));
    const double sigma = std::sqrt(elapsed * molecules.VariancePerPs);
    molecule.X = folded(molecule.X + sigma * normal(molecules.Generator), molecules.Side);
    molecule.Y = folded(molecule.Y + sigma * normal(molecules.Generator), molecules.Side);
    molecule.SincePs = molecule.NextPs;
}

// The photons of a molecule up to the end of the slice.
void follow(Molecules &molecules, Molecule &place)
{
    Molecule molecule = place;
    while (molecule.NextPs < molecules.UntilPs) {
        move(molecules, molecule);
        // Kept with probability exp(-2 (r^2 - nearest^2)).
        const double excess = molecule.X * molecule.X + molecule.Y * molecule.Y - molecule.NearestSquare;
        if (molecule.MayEmit && exponential(molecules.Generator) > 2 * excess)
            molecules.Photons.push_back(molecule.SincePs);
        plan(molecules, molecule);
    }
    place = molecule;
}

// Times that are spread over a slice: each goes near its place, and from there a few places at most.
void sortTimes(std::vector<uint64_t> &times, uint64_t fromPs, uint64_t spanPs)
{
    if (times.empty()) return;
    const double placesPerPs = static_cast<double>(times.size()) / static_cast<double>(spanPs);
    const auto placeOf = [&](uint64_t time) {
        const auto place =
            static_cast<size_t>(static_cast<double>(static_cast<int64_t>(time - fromPs)) * placesPerPs);
        return std::min(place, times.size() - 1);
    };
    std::vector<uint32_t> starts(times.size() + 1);
    for (const uint64_t time : times) ++starts[placeOf(time) + 1];
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    std::vector<uint64_t> sorted(times.size());
    for (const uint64_t time : times) sorted[starts[placeOf(time)]++] = time;
    for (size_t i = 1; i < sorted.size(); ++i)
        for (size_t k = i; k > 0 && sorted[k] < sorted[k - 1]; --k) std::swap(sorted[k], sorted[k - 1]);
    times.swap(sorted);
}

} // namespace

Molecules makeMolecules(double meanNumber, double diffusionPs, double rate, uint64_t seed)
{
    Molecules molecules;
    molecules.Generator = makeRandom(seed, 4);
    const double number = std::max(1.0, std::floor(moleculesPerFocus * meanNumber + 0.5));
    molecules.DiffusionPs = diffusionPs;
    molecules.Side = std::sqrt(number * std::numbers::pi / meanNumber);
    molecules.VariancePerPs = 1 / (2 * diffusionPs);
    const double peakPerPs = 2 * rate * 1e-12 / meanNumber; // the profile's area is pi w^2 / 2
    const Brightness brightness = makeBrightness();
    const int lastRing = ringAt(molecules.Side * molecules.Side / 2); // in the corners
    for (int ring = 0; ring <= lastRing; ++ring)
        molecules.Rings.push_back(bestRing(molecules, brightness, std::sqrt(innerSquare(ring)), peakPerPs));
    molecules.All.reserve(static_cast<size_t>(number));
    for (uint32_t i = 0; i < static_cast<uint32_t>(number); ++i) {
        const double x = uniform(molecules.Generator) - 0.5, y = uniform(molecules.Generator) - 0.5;
        molecules.All.push_back({.X = x * molecules.Side, .Y = y * molecules.Side, .SincePs = 0});
        plan(molecules, molecules.All.back());
    }
    molecules.SlicePs =
        static_cast<uint64_t>(std::min(photonsPerSlice * 1e12 / rate, timesPerSlice * diffusionPs)) + 1;
    return molecules;
}

uint64_t nextPhoton(Molecules &molecules, uint64_t endPs)
{
    while (molecules.NumTaken == molecules.Photons.size()) {
        if (molecules.UntilPs >= endPs) return UINT64_MAX;
        const uint64_t fromPs = molecules.UntilPs;
        molecules.UntilPs += molecules.SlicePs;
        molecules.Photons.clear();
        molecules.NumTaken = 0;
        for (Molecule &molecule : molecules.All) follow(molecules, molecule);
        sortTimes(molecules.Photons, fromPs, molecules.SlicePs);
    }
    const uint64_t timePs = molecules.Photons[molecules.NumTaken++];
    return timePs < endPs ? timePs : UINT64_MAX;
}

} // namespace Tessel::Sim
