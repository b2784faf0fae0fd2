#include "commands/doubts.h"

#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Tessel::Cli {

namespace {

// What differs by less is lost in the counts.
constexpr double negligible = 1e-6;

// Of the time, at most, in which an input or a period has had its event.
constexpr double mostPileUp = 0.05;

} // namespace

void doubtPeriod(std::vector<std::string> &notes, const Recording &recording)
{
    const double made = recording.MadePeriodPs, used = recording.UsedPeriodPs;
    if (recording.MeasMode != 3 || made <= 0 || used <= 0 || std::abs(used / made - 1) <= negligible) return;
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
    const double rest = std::abs(std::remainder(widthPs, step));
    if (step <= 0 || rest < negligible * step || step < negligible * widthPs) return;
    const double good = std::max(std::round(widthPs / step), 1.0) * step;
    notes.push_back(
        fmt::format("{}: {:.12g} ps isn't a multiple of the resolution, {:.12g} ps, so bins differ; "
                    "{:.12g} ps is",
                    option, widthPs, step, good));
}

void doubtWindow(std::vector<std::string> &notes, const char *option, uint64_t windowPs, uint64_t coveredPs)
{
    const auto rest = static_cast<double>(windowPs - coveredPs);
    if (rest <= negligible * static_cast<double>(windowPs)) return;
    notes.push_back(fmt::format("{}: {} ps isn't a multiple of the bin width, and is cut to {} ps", option,
                                windowPs, coveredPs));
}

void doubtDtimes(std::vector<std::string> &notes, uint64_t beyond, double lastPs, double periodPs)
{
    if (beyond == 0) return;
    notes.push_back(
        fmt::format("{} later after the sync than the sync period, {:.12g} ps: lost "
                    "syncs, another resolution, or a sync divider; one of {:.0f} would explain them",
                    counted(beyond, "count"), periodPs, std::ceil(lastPs / periodPs)));
}

void doubtPileUp(std::vector<std::string> &notes, const std::string &channel, double events, double periods)
{
    if (periods <= 0 || events / periods <= mostPileUp) return;
    notes.push_back(fmt::format("{}: {:.2g} events in a sync period, so pile-up and dead time bend the decay; "
                                "below {} it is at most {} %",
                                channel, events / periods, mostPileUp, mostPileUp * 100));
}

void doubtDeadTimes(std::vector<std::string> &notes, const Recording &recording)
{
    const std::vector<double> &dead = recording.DeadTimesPs;
    for (size_t i = 0; i < std::min(dead.size(), recording.Rates.Inputs.size()); ++i) {
        const double rate = recording.Rates.Inputs[i], share = rate * dead[i] * 1e-12;
        if (share > mostPileUp)
            notes.push_back(fmt::format(
                "{}: at {} a dead time of {} takes {:.2g} % of the time (pile-up); below {} it is at most {} %",
                rowName(recording, static_cast<int64_t>(i + 1)), countRateText(rate), timeText(dead[i]),
                share * 100, countRateText(mostPileUp / (dead[i] * 1e-12)), mostPileUp * 100));
    }
}

} // namespace Tessel::Cli
