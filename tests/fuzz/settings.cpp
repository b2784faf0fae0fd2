// system.ini of arbitrary bytes, its values as the texts of a device, and the bytes as an instrument's
// parameters.
#include "config/device_ini.h"
#include "config/device_json.h"
#include "devices/families.h"
#include "devices/fields.h"
#include "input.h"
#include "log/text.h"
#include "quiet_log.h"
#include "settings/ini_text.h"
#include "settings/system_ini.h"

#include <boost/json.hpp>

#include <algorithm>

using namespace Tessel;

namespace {

// Every text of the device is this one; all come back from its JSON.
void asDeviceText(std::string_view bytes)
{
    const std::string text = toUtf8(toUtf16(bytes));
    DeviceConfig config;
    config.ChansCfg.resize(1);
    for (const DeviceField &field : deviceFields())
        if (const auto *member = std::get_if<std::string DeviceConfig::*>(&field.Member))
            config.*(*member) = text;
    config.ChansCfg[0].Name = text;
    const boost::json::value shown = boost::json::parse(stringifyJsonDevConfig(config, {}));
    for (const char *key : {"ID", "Model", "Comment"})
        Fuzz::require(shown.at(key).as_string() == text, "a text comes back from JSON");
    Fuzz::require(shown.at("ChansCfg").at(0).at("Name").as_string() == text, "so does a channel's name");
}

void asLogText(std::string_view bytes)
{
    const std::string shown = visible(bytes);
    const auto isControl = [](char byte) { return static_cast<uint8_t>(byte) < 0x20 || byte == 0x7F; };
    Fuzz::require(std::ranges::none_of(shown, isControl), "a text in the log has no control characters");
    Fuzz::require(toUtf8(toUtf16(shown)) == shown, "and is UTF-8");
}

// An INI text and a device's JSON, to an instrument that has no library.
void asParameters(std::string_view bytes)
{
    Device device;
    const MeasContext context;
    device.DeviceType = DeviceType::Instrument;
    device.LibType = LibType::LM70;
    device.ID = "77";
    device.NumChans = 2;
    device.ChansCfg.resize(2);
    device.IsInitialized = true;
    if (const auto text = parseIni(bytes)) applyIniConfig(device, context, *text);
    Fuzz::require(device.ChansCfg.size() == 2 && device.NumChans == 2, "an INI text makes no inputs");
    parseJsonDevConfig(device, bytes);
    Fuzz::require(device.ChansCfg.size() <= mostInputs, "nor does JSON make any number of them");
    const std::string written = stringifyJsonDevConfig(device);
    parseJsonDevConfig(device, written);
    Fuzz::require(stringifyJsonDevConfig(device) == written, "what is written is read");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::quietLog();
    static const Settings initial = settings();
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    asDeviceText(bytes);
    asLogText(bytes);
    asParameters(bytes);
    const auto text = parseIni(bytes);
    if (text)
        for (const IniSection &section : *text)
            for (const IniEntry &key : section.Keys) {
                asDeviceText(key.Value);
                asLogText(key.Name);
            }
    settings() = initial;
    const Fuzz::MemoryFile file(bytes);
    Fuzz::require(loadSettingsIni(file.path()) == text.has_value(), "the settings are what the text says");
    Fuzz::require(streamRecords() >= minimumStreamRecords && streamRecords() <= 1u << 31,
                  "buffers have bounds");
    return 0;
}
