// The settings of the current device, an initialised instrument: as the library lists them, and how people set
// them, "sync.level=-100mV".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Tessel::Cli {

struct Setting
{
    std::string Key;       // "ch1.level"
    std::string Field;     // of the device's configuration, or of its row for the channel
    std::string Operation; // that sets it, with others
    int32_t Channel = -1;  // from 0; -1: of the device
    std::string Unit;      // "" for a plain number
    bool HasRange = false; // else the instrument decides
    int64_t Min = 0, Max = 0;
    bool CanBeOff = false;            // by 0
    bool InUse = true;                // false: of the other trigger mode
    std::vector<std::string> Choices; // texts of the values from 0 on; empty: a number
    int64_t Value = 0;
};
std::vector<Setting> readSettings();

std::string valueText(const Setting &setting, int64_t value);
std::string rangeText(const Setting &setting);

// A value that the instrument didn't take as it was asked for.
struct Clamped
{
    std::string Key, Asked, Set, Range; // with units
};

// Each "KEY=VALUE"; "ch*.level" is the level of each input. Warns of each value that it gives. Throws Failure:
// of usage if an assignment isn't to be understood, else if the instrument refuses it.
std::vector<Clamped> applySettings(const std::vector<std::string> &assignments);

// Sends a value in the setting's unit, if it is in use and has another; warns, and throws, like an assignment,
// but a setting that the mode doesn't have is passed over. `from`: where the value stands. Nothing: it is set
// as asked.
std::optional<Clamped> applyValue(const std::string &key, int64_t value, std::string_view from);

// --set, several times.
void addSettingOption(CLI::App &command, std::vector<std::string> &assignments);

// Settings of all inputs that agree become one, with the key "ch*.level".
std::vector<Setting> merged(const std::vector<Setting> &settings);

} // namespace Tessel::Cli
