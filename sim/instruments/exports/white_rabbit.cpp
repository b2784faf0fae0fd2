// The White Rabbit core of the two families that have one.
#include "sim/instruments/exports/exporting.h"

#include <cstring>

#if ON_THESE(ON_ZP | ON_CD90)

using namespace Tessel::Sim;

OPERATION(WRabbitGetMAC)(int32_t idx, uint8_t *mac)
{
    return on("WRabbitGetMAC", idx, {Pointer{mac}}, [&](Instrument &instrument) {
        std::memcpy(mac, instrument.Link.Mac, sizeof instrument.Link.Mac);
        return ok;
    });
}

OPERATION(WRabbitSetMAC)(int32_t idx, const uint8_t *mac)
{
    return on("WRabbitSetMAC", idx, {Pointer{mac}}, [&](Instrument &instrument) {
        std::memcpy(instrument.Link.Mac, mac, sizeof instrument.Link.Mac);
        say(instrument.Link, "mac set");
        return ok;
    });
}

OPERATION(WRabbitGetInitScript)(int32_t idx, char *text)
{
    const TextOut out{text, longRoom};
    return on("WRabbitGetInitScript", idx, {out}, [&](Instrument &instrument) {
        copyText(out, instrument.Link.InitScript);
        return ok;
    });
}

OPERATION(WRabbitSetInitScript)(int32_t idx, const char *text)
{
    return on("WRabbitSetInitScript", idx, {Pointer{text}}, [&](Instrument &instrument) {
        const size_t length = strnlen(text, longRoom);
        if (length == longRoom) return badArgument;
        instrument.Link.InitScript.assign(text, length);
        say(instrument.Link, "init script of " + std::to_string(length) + " characters");
        return ok;
    });
}

OPERATION(WRabbitSetSFPData)
(int32_t idx, const char *names, const int32_t *tx, const int32_t *rx, const int32_t *alpha)
{
    const std::array<Out, 4> given{Pointer{names}, Pointer{tx}, Pointer{rx}, Pointer{alpha}};
    return on("WRabbitSetSFPData", idx, given, [&](Instrument &instrument) {
        WhiteRabbit &link = instrument.Link;
        std::memcpy(link.SfpNames, names, sizeof link.SfpNames);
        std::memcpy(link.Sfp[0], tx, sizeof link.Sfp[0]);
        std::memcpy(link.Sfp[1], rx, sizeof link.Sfp[1]);
        std::memcpy(link.Sfp[2], alpha, sizeof link.Sfp[2]);
        say(link, "sfp data set");
        return ok;
    });
}

OPERATION(WRabbitInitLink)(int32_t idx, int32_t linkOn)
{
    return on("WRabbitInitLink", idx, [&](Instrument &instrument) {
        instrument.Link.LinkIsOn = linkOn != 0;
        say(instrument.Link, linkOn ? "link up" : "link down");
        return ok;
    });
}

OPERATION(WRabbitSetMode)(int32_t idx, int32_t first, int32_t second, int32_t third)
{
    return on("WRabbitSetMode", idx, [&](Instrument &instrument) {
        const int32_t modes[] = {first, second, third};
        std::memcpy(instrument.Link.Mode, modes, sizeof modes);
        say(instrument.Link, "mode " + std::to_string(third));
        return ok;
    });
}

OPERATION(WRabbitSetTime)(int32_t idx, uint32_t high, uint32_t low)
{
    return on("WRabbitSetTime", idx, [&](Instrument &instrument) {
        instrument.Link.SetSeconds = static_cast<uint64_t>(high) << 32 | low;
        instrument.Link.SetAt = std::chrono::steady_clock::now();
        instrument.Link.TimeIsSet = true;
        say(instrument.Link, "time " + std::to_string(instrument.Link.SetSeconds));
        return ok;
    });
}

OPERATION(WRabbitGetTime)(int32_t idx, uint32_t *high, uint32_t *low, uint32_t *subSecond)
{
    return on("WRabbitGetTime", idx, {high, low, subSecond}, [&](Instrument &instrument) {
        const uint64_t seconds = secondsNow(instrument.Link, *subSecond);
        *high = static_cast<uint32_t>(seconds >> 32);
        *low = static_cast<uint32_t>(seconds);
        return ok;
    });
}

OPERATION(WRabbitGetStatus)(int32_t idx, int32_t *status)
{
    return on("WRabbitGetStatus", idx, {status}, [&](Instrument &instrument) {
        *status = linkStatus(instrument.Link);
        return ok;
    });
}

// What the terminal said since the last reading.
OPERATION(WRabbitGetTermOutput)(int32_t idx, char *text, int32_t *count)
{
    const TextOut out{text, longRoom};
    return on("WRabbitGetTermOutput", idx, {out, count}, [&](Instrument &instrument) {
        copyText(out, instrument.Link.Terminal);
        *count = static_cast<int32_t>(instrument.Link.Terminal.size());
        instrument.Link.Terminal.clear();
        return ok;
    });
}

#endif
