#include "commands/doubts.h"

#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Tessel::Cli {

void doubtPeriod(std::vector<std::string> &notes, const Recording &recording)
{
    constexpr double tolerance = 1e-6;
    const double made = recording.MadePeriodPs, used = recording.UsedPeriodPs;
    if (recording.MeasMode != 3 || made <= 0 || used <= 0 || std::abs(used / made - 1) <= tolerance) return;
    notes.push_back(
        fmt::format("times go by a sync period of {:.12g} ps, the file was made with one of {:.12g} ps: "
                    "they are {:.3g} % off",
                    used, made, (used / made - 1) * 100));
}

void doubtResolution(std::vector<std::string> &notes, const Recording &recording)
{
    const double made = recording.ResolutionPs, used = recording.UsedResolutionPs;
    if (used <= 0 || made == used) return;
    const char *unit = recording.MeasMode == 3 ? "dtimes" : "time tags";
    notes.push_back(
        fmt::format("times go by {} of {:.12g} ps, the file was made with {} of {:.12g} ps: they are "
                    "{:.3g} % off",
                    unit, used, unit, made, (used / made - 1) * 100));
}

void doubtBinWidth(std::vector<std::string> &notes, const char *option, double widthPs,
                   const Recording &recording)
{
    const double step = recording.MeasMode == 3 ? recording.UsedResolutionPs : recording.BaseResolutionPs;
    if (step <= 0 || std::abs(std::remainder(widthPs, step)) < 1e-6 * step) return;
    const double good = std::max(std::round(widthPs / step), 1.0) * step;
    notes.push_back(
        fmt::format("{}: {:.12g} ps isn't a multiple of the resolution, {:.12g} ps, so bins differ; "
                    "{:.12g} ps is",
                    option, widthPs, step, good));
}

void doubtWindow(std::vector<std::string> &notes, uint64_t windowPs, uint64_t binPs)
{
    if (windowPs % binPs == 0) return;
    notes.push_back(fmt::format("--window: {} ps isn't a multiple of the bin width, and is cut to {} ps",
                                windowPs, windowPs / binPs * binPs));
}

void doubtDtimes(std::vector<std::string> &notes, uint64_t beyond, double periodPs)
{
    if (beyond == 0) return;
    notes.push_back(fmt::format("{} counts are later after their sync than the sync period, {:.12g} ps: a sync "
                                "divider, lost syncs, or another resolution",
                                beyond, periodPs));
}

void doubtPileUp(std::vector<std::string> &notes, const std::string &channel, double events, double periods)
{
    constexpr double most = 0.05;
    if (periods <= 0 || events / periods <= most) return;
    notes.push_back(fmt::format("{}: {:.2g} events in a sync period, so pile-up and dead time bend the decay; "
                                "below {} it is at most {} %",
                                channel, events / periods, most, most * 100));
}

} // namespace Tessel::Cli
