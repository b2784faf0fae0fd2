// The simulated White Rabbit core. Under the instrument's lock.
#include "sim/instruments/instrument.h"

namespace Tessel::Sim {

namespace {

constexpr size_t longestTerminal = 16384;
enum Status : int32_t { LinkOn = 1, LinkUp = 2, TimeSet = 4, ModeShift = 8 };

} // namespace

// Runs on from what was set; without that it is the time of the machine. `subSecond`: ns.
uint64_t secondsNow(const WhiteRabbit &link, uint32_t &subSecond)
{
    using namespace std::chrono;
    constexpr uint64_t nsPerSecond = 1000000000;
    uint64_t ns;
    if (link.TimeIsSet)
        ns = static_cast<uint64_t>(duration_cast<nanoseconds>(steady_clock::now() - link.SetAt).count());
    else
        ns = static_cast<uint64_t>(duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count());
    subSecond = static_cast<uint32_t>(ns % nsPerSecond);
    return (link.TimeIsSet ? link.SetSeconds : 0) + ns / nsPerSecond;
}

int32_t linkStatus(const WhiteRabbit &link)
{
    return (link.LinkIsOn ? LinkOn | LinkUp : 0) | (link.TimeIsSet ? TimeSet : 0) |
           (link.Mode[0] & 255) << ModeShift;
}

void say(WhiteRabbit &link, const std::string &line)
{
    link.Terminal += "wr# " + line + "\r\n";
    if (link.Terminal.size() > longestTerminal) link.Terminal.erase(0, link.Terminal.size() - longestTerminal);
}

} // namespace Tessel::Sim
