#include "program/until.h"

#include "program/exit_codes.h"
#include "program/session.h"
#include "program/units.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <charconv>

namespace Tessel::Cli {

namespace {

constexpr double psPerSecond = 1e12;

// "ch12" is 12, "sync" 0; -1: neither.
int64_t channelOf(std::string_view name)
{
    if (name == "sync") return 0;
    if (!name.starts_with("ch")) return -1;
    name.remove_prefix(2);
    int row = -1;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), row);
    return error == std::errc() && end == name.data() + name.size() && row > 0 ? row : -1;
}

[[noreturn]] void refuseUntil(std::string_view text, size_t at, const std::string &reason)
{
    throw Failure(Exit::Usage, fmt::format("--until {}", UnitError(text, at, reason).what()));
}

void readQuantity(Until &until, std::string_view name)
{
    using Quantity = Until::Quantity;
    if (name == "records") {
        until.Of = Quantity::Records;
    } else if (name == "size") {
        until.Of = Quantity::Bytes;
    } else if (name == "time") {
        until.Of = Quantity::Seconds;
    } else {
        until.Of = Quantity::Events;
        until.Row = channelOf(name);
        if (until.Row < 0)
            refuseUntil(until.Text, 0, "records, size, time, sync or a channel as ch1 is expected");
    }
}

double readLimit(const Until &until, std::string_view number)
{
    switch (until.Of) {
    case Until::Quantity::Bytes: return parseBytes(number);
    case Until::Quantity::Seconds: return parseTimePs(number, "s") / psPerSecond;
    case Until::Quantity::Records:
    case Until::Quantity::Events: break;
    }
    return parseCount(number);
}

} // namespace

Until parseUntil(std::string_view text)
{
    Until until;
    until.Text = text;
    const size_t sign = text.find('>');
    std::string_view name = text.substr(0, sign);
    name.remove_suffix(name.size() - (name.find_last_not_of(' ') + 1));
    readQuantity(until, name);
    if (sign == text.npos) refuseUntil(text, text.size(), "> and a number are missing");
    const size_t number = sign + (text.substr(sign + 1).starts_with('=') ? 2 : 1);
    try {
        until.Limit = readLimit(until, text.substr(number));
    } catch (const UnitError &unreadable) {
        refuseUntil(text, number + unreadable.At, unreadable.Reason);
    }
    return until;
}

void checkUntil(const Until &until, const Recording &recording)
{
    if (until.Of != Until::Quantity::Events) return;
    const auto refuse = [&](const std::string &why) {
        throw Failure(Exit::Usage, fmt::format("--until {}: {}", visibleText(until.Text), why));
    };
    if (until.Row >= recording.NumRows)
        refuse(fmt::format("there are channels 0 (sync) to {}", recording.NumRows - 1));
    if (until.Row == 0 && recording.MeasMode == 3) refuse("a T3 stream has no events of the sync");
}

namespace {

// "More than 0" is not reached by nothing.
bool isReached(double value, double limit)
{
    return value > 0 && value >= limit;
}

} // namespace

bool isReached(const Until &until, const Reached &reached)
{
    switch (until.Of) {
    case Until::Quantity::Records: return isReached(static_cast<double>(reached.Records), until.Limit);
    case Until::Quantity::Bytes: return isReached(reached.Bytes, until.Limit);
    case Until::Quantity::Seconds: return isReached(reached.Seconds, until.Limit);
    case Until::Quantity::Events: break;
    }
    const auto row = static_cast<size_t>(until.Row);
    return row < reached.Events.size() && isReached(static_cast<double>(reached.Events[row]), until.Limit);
}

} // namespace Tessel::Cli
