// A configuration is read by the list of settings, which names the key of each. The main thread's.
#include "program/device_file.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/session.h"
#include "program/text_file.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace Tessel::Cli {

namespace {

using boost::json::array;
using boost::json::object;
using boost::json::value;

constexpr const char *inputsKey = "ChansCfg";

std::string optionText(const std::string &path)
{
    return fmt::format("--load {}", visibleText(path));
}

[[noreturn]] void refuseFile(const std::string &path, std::string_view why)
{
    throw Failure(Exit::Usage, fmt::format("{}: {}", optionText(path), why));
}

} // namespace

object readDeviceFile(const std::string &path)
{
    const std::string text = fileText("--load", path);
    boost::json::error_code problem;
    value parsed = boost::json::parse(text, problem);
    if (problem) refuseFile(path, problem.message());
    object *config = parsed.if_object();
    value *inner = config ? config->if_contains("device") : nullptr;
    if (inner) config = inner->if_object();
    const value *inputs = config ? config->if_contains(inputsKey) : nullptr;
    if (!inputs || !inputs->is_array()) refuseFile(path, "not the configuration of a device");
    return *config;
}

std::optional<int32_t> numberIn(const object &config, std::string_view key)
{
    const value *found = config.if_contains(key);
    boost::json::error_code problem;
    const auto number = found ? found->to_number<int32_t>(problem) : 0;
    return found && !problem ? std::optional(number) : std::nullopt;
}

namespace {

struct FileReader
{
    const object &Config;
    const std::string &Path;

    const array &inputs() const { return Config.at(inputsKey).get_array(); }
};

[[noreturn]] void refuseKey(const FileReader &file, const Setting &setting, std::string_view expected)
{
    refuseFile(file.Path, fmt::format("{} ({}): {} is expected", setting.Field, setting.Key, expected));
}

// The object that the setting's field is a key of; null: it isn't there.
const object *ownerOf(const FileReader &file, const Setting &setting)
{
    if (setting.Channel < 0) return &file.Config;
    const auto input = static_cast<size_t>(setting.Channel);
    if (input >= file.inputs().size()) return nullptr;
    if (const object *row = file.inputs()[input].if_object()) return row;
    refuseKey(file, setting, "an object for each input");
}

int64_t valueIn(const FileReader &file, const Setting &setting, const value &text)
{
    if (const auto *word = text.if_string()) {
        for (size_t choice = 0; choice < setting.Choices.size(); ++choice)
            if (setting.Choices[choice] == std::string_view(*word)) return static_cast<int64_t>(choice);
        refuseKey(file, setting, setting.Choices.empty() ? "a whole number" : rangeText(setting));
    }
    boost::json::error_code problem;
    const auto number = text.to_number<int64_t>(problem);
    if (problem) refuseKey(file, setting, "a whole number");
    constexpr int64_t largest =
        std::numeric_limits<uint32_t>::max(); // written as the signed number of its bits
    const bool isWrapped =
        setting.Max == largest && number < 0 && number >= std::numeric_limits<int32_t>::min();
    return isWrapped ? number + largest + 1 : number;
}

struct Wanted
{
    std::string Key;
    int64_t Value;
};

// In the order of the settings: a trigger mode comes before the levels that it uses.
std::vector<Wanted> wantedOf(const FileReader &file)
{
    std::vector<Wanted> all;
    std::map<std::string, size_t> elements; // of an array, up to here
    for (const Setting &setting : readSettings()) {
        const object *owner = ownerOf(file, setting);
        const value *found = owner ? owner->if_contains(setting.Field) : nullptr;
        if (const auto *list = found ? found->if_array() : nullptr) {
            const size_t element = elements[setting.Field]++;
            found = element < list->size() ? &(*list)[element] : nullptr;
        }
        if (found) all.push_back({setting.Key, valueIn(file, setting, *found)});
    }
    return all;
}

std::string nameOf(const object &row)
{
    const value *name = row.if_contains("Name");
    return name && name->is_string() ? std::string(name->get_string()) : "";
}

std::string nameOfInput(size_t input)
{
    return nameOf(deviceConfig().at(inputsKey).at(input).as_object());
}

// Names have no call of their own, but a key of the INI text.
void nameInputs(const FileReader &file, size_t count)
{
    for (size_t input = 0; input < std::min(count, file.inputs().size()); ++input) {
        const object *row = file.inputs()[input].if_object();
        const std::string name = row ? nameOf(*row) : "";
        if (name.empty() || name == nameOfInput(input)) continue;
        const bool isLine = name.find_first_of("\r\n") == name.npos && name.find('\0') == name.npos;
        if (isLine) setIniConfig(fmt::format("[Channel_{}]\nName={}\n", input, name).c_str());
        if (nameOfInput(input) != name)
            warn(fmt::format("ch{}: the name {} can't be kept", input + 1, visibleText(name)));
    }
}

// What the file has and the instrument doesn't is passed over, but not without a word.
void warnOfOther(const FileReader &file, const object &present)
{
    const value *family = file.Config.if_contains("LibType");
    if (family && *family != present.at("LibType"))
        warn(fmt::format("{}: it is of another family; what this instrument has too is set",
                         optionText(file.Path)));
    const size_t count = present.at(inputsKey).as_array().size();
    if (file.inputs().size() > count)
        warn(fmt::format("{}: it has {} inputs, the instrument {}", optionText(file.Path), file.inputs().size(),
                         count));
}

} // namespace

std::vector<Clamped> applyDeviceFile(const object &config, const std::string &path)
{
    const FileReader file{config, path};
    const object present = deviceConfig();
    const std::vector<Wanted> wanted = wantedOf(file);
    warnOfOther(file, present);
    std::vector<Clamped> all;
    for (const Wanted &each : wanted)
        if (auto clamped = applyValue(each.Key, each.Value, optionText(path)))
            all.push_back(std::move(*clamped));
    nameInputs(file, present.at(inputsKey).as_array().size());
    return all;
}

} // namespace Tessel::Cli
