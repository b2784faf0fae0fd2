// Choosing an instrument. The main thread's.
#include "program/instrument.h"

#include "program/exit_codes.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <boost/json/array.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

constexpr size_t idsSize = 8192; // what getDeviceIDs writes at most

// Its first line, without the id of a device that has none.
std::string lastErrorText()
{
    std::string text = libraryError();
    text.resize(std::min(text.size(), text.find('\n')));
    if (text.ends_with(" @")) text.resize(text.size() - 2);
    return visibleText(text);
}

boost::json::object configOf(const std::string &id)
{
    return libraryText(TESSEL_TEXT_DEVICE, id).as_object();
}

// Which libraries there aren't; empty: all are there.
std::string absentLibraries()
{
    std::vector<std::string> absent;
    const boost::json::value libraries = libraryText(TESSEL_TEXT_LIBRARIES);
    for (const auto &library : libraries.as_array())
        if (!library.at("loaded").as_bool()) absent.emplace_back(library.at("file").as_string());
    if (absent.empty()) return "";
    if (absent.size() == libraries.as_array().size())
        return "; no instrument library found, see tessel devices";
    return fmt::format("; libraries not found: {}, see tessel devices", fmt::join(absent, ", "));
}

[[noreturn]] void refuseChoice(const std::string &wanted, const FoundInstruments &found)
{
    if (!found.Error.empty()) throw Failure(Exit::NoDevice, found.Error);
    const std::string what = wanted.empty() ? "no instrument" : visibleText(wanted) + ": no such instrument";
    const std::string there =
        found.Ids.empty() ? "none found" : visibleText(fmt::format("found: {}", fmt::join(found.Ids, ", ")));
    throw Failure(Exit::NoDevice, fmt::format("{} ({}{})", what, there, absentLibraries()));
}

} // namespace

std::string withReason(const std::string &text)
{
    const std::string error = lastErrorText();
    return error.empty() ? text : fmt::format("{}: {}", text, error);
}

bool isBusy(const boost::json::object &config)
{
    constexpr int busy = -2;
    return config.at("Error").to_number<int>() == busy && !config.at("IsOpen").as_bool();
}

FoundInstruments findInstruments()
{
    std::vector<char> buffer(idsSize);
    getDeviceIDs(buffer.data()); // a list that is too long is asked for below
    FoundInstruments found{.Ids = {}, .Error = lastErrorText()};
    const boost::json::value ids = libraryText(TESSEL_TEXT_DEVICE_IDS);
    for (const auto &each : ids.as_array()) {
        const std::string id(each.as_string());
        if (configOf(id).at("DeviceType").to_number<int>() == 0) found.Ids.push_back(id);
    }
    return found;
}

std::string openInstrument(const HostOptions &options)
{
    const FoundInstruments found = findInstruments();
    const std::string &wanted = options.DeviceId;
    if (found.Ids.empty() || (!wanted.empty() && std::ranges::find(found.Ids, wanted) == found.Ids.end()))
        refuseChoice(wanted, found);
    std::string why;
    for (const std::string &id : wanted.empty() ? found.Ids : std::vector{wanted}) {
        std::vector<char> buffer(id.begin(), id.end());
        buffer.resize(std::max(idsSize, id.size() + 1));
        if (getDevice(buffer.data())) return buffer.data();
        why = withReason(fmt::format("{}: the instrument can't be opened", visibleText(id)));
        if (isBusy(configOf(id))) why = fmt::format("{}: in use by another program", visibleText(id));
    }
    throw Failure(Exit::NoDevice, why);
}

int32_t modeNumber(const std::string &mode)
{
    return mode == "t2" ? 2 : mode == histogramMode ? 0 : 3;
}

void initInstrument(const std::string &id, int32_t measMode, int32_t refSource)
{
    if (initDevice(measMode, refSource)) return;
    throw Failure(Exit::NoDevice,
                  withReason(fmt::format("{}: the instrument can't be initialised", visibleText(id))));
}

CountRates countRates(const Recording &recording)
{
    CountRates rates;
    rates.Inputs.resize(recording.Config.at("NumChans").to_number<size_t>());
    getCountRates(&rates.Sync, rates.Inputs.data());
    return rates;
}

} // namespace Tessel::Cli
