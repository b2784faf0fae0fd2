// Losses as the program says them. The main thread's.
#include "program/losses.h"

#include "program/session.h"
#include "program/units.h"
#include "tessel.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string_view>

namespace Tessel::Cli {

namespace {

using boost::json::object;

constexpr std::string_view verdicts[] = {"clean", "lossy", "invalid"}; // from good to bad

// {"verdict", "losses"}; null: there is no recording.
const object *ofRecording(const LossTexts &losses)
{
    const auto *recording = losses.Losses.if_contains("recording");
    return recording ? recording->if_object() : nullptr;
}

std::string_view verdictOf(const object *report)
{
    const auto *verdict = report ? report->if_contains("verdict") : nullptr;
    return verdict ? std::string_view(verdict->as_string()) : verdicts[0];
}

std::string_view worse(std::string_view one, std::string_view other)
{
    return std::max(std::ranges::find(verdicts, one), std::ranges::find(verdicts, other))[0];
}

std::string lossText(std::string_view place, const object &loss)
{
    const auto &lost = loss.at("lost");
    const std::string unit(loss.at("unit").as_string()); // "events"
    const std::string what =
        lost.is_null() ? unit : counted(lost.to_number<uint64_t>(), unit.substr(0, unit.size() - 1));
    const auto occasions = loss.at("occasions").to_number<uint64_t>();
    const double first = loss.at("first").to_number<double>(), last = loss.at("last").to_number<double>();
    return fmt::format("{} lost {}, {}", place, what,
                       occasions == 1
                           ? fmt::format("at {:.6g} s", first)
                           : fmt::format("{} times from {:.6g} s to {:.6g} s", occasions, first, last));
}

void addLine(std::vector<std::string> &lines, std::string_view what, const object *report)
{
    const std::string_view verdict = verdictOf(report);
    if (const auto *problem = report ? report->if_contains("problem") : nullptr)
        lines.push_back(fmt::format("what the {} lost is unknown, its losses file says nothing: {}", what,
                                    std::string_view(problem->as_string())));
    if (verdict == verdicts[0]) return;
    std::vector<std::string> places;
    for (const auto &[place, loss] : report->at("losses").as_object())
        places.push_back(lossText(place, loss.as_object()));
    lines.push_back(fmt::format("the {} is {}: {}", what, verdict, fmt::join(places, "; ")));
}

uint64_t orderIn(const LossTexts &losses, const char *key)
{
    const auto *order = losses.Losses.if_contains("order");
    return order ? order->at(key).to_number<uint64_t>() : 0;
}

} // namespace

uint64_t LossTexts::stepsBack() const
{
    return orderIn(*this, "stepsBack");
}
uint64_t LossTexts::largestStepPs() const
{
    return orderIn(*this, "largestStepPs");
}

uint64_t LossTexts::unsorted() const
{
    return orderIn(*this, "unsorted");
}
bool LossTexts::isSorted() const
{
    const auto *order = Losses.if_contains("order");
    return order && order->at("sorted").as_bool();
}

bool LossTexts::isClean() const
{
    return worse(verdictOf(&Losses), verdictOf(ofRecording(*this))) == verdicts[0] && outOfOrder() == 0;
}

LossTexts lossesNow()
{
    return {libraryText(TESSEL_TEXT_LOSSES).as_object()};
}

void addLosses(object &keys, const LossTexts &losses)
{
    const object *recording = ofRecording(losses);
    keys["verdict"] = worse(verdictOf(&losses.Losses), verdictOf(recording));
    const auto *places = losses.Losses.if_contains("losses");
    keys["losses"] = places ? *places : boost::json::value(object());
    keys["stepsBack"] = losses.stepsBack();
    keys["largestStepPs"] = losses.largestStepPs();
    keys["unsorted"] = nullptr;
    if (losses.isSorted()) keys["unsorted"] = losses.unsorted();
    keys["recordingLosses"] = nullptr;
    if (recording) keys["recordingLosses"] = *recording;
}

std::vector<std::string> lossLines(const LossTexts &losses)
{
    std::vector<std::string> lines;
    addLine(lines, "result", &losses.Losses);
    addLine(lines, "recording", ofRecording(losses));
    if (losses.outOfOrder() == 0) return lines;
    const std::string step = timeText(static_cast<double>(losses.largestStepPs()));
    lines.push_back(losses.isSorted()
                        ? fmt::format("{} too late to be sorted: --sort must be at least {}",
                                      counted(losses.unsorted(), "event"), step)
                        : fmt::format("{} after a later one, by up to {}: --sort {} puts them in order",
                                      counted(losses.stepsBack(), "event"), step,
                                      fmt::format("{}ps", losses.largestStepPs())));
    return lines;
}

} // namespace Tessel::Cli
