// Data files as devices, and every field of a device as text.
#pragma once

#include "datafiles/file_device.h"
#include "devices/fields.h"
#include "log/log.h"
#include "support/temp_folder.h"
#include "support/tgx_file.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>
#include <string>
#include <string_view>

namespace TestSupport {

// A file as a device.
struct Opened
{
    Tessel::Device device;
    Tessel::MeasContext context;
    bool good = false;
};

inline std::unique_ptr<Opened> openPath(const std::string &path)
{
    auto opened = std::make_unique<Opened>();
    opened->good = Tessel::readTgxFile(path, opened->device, opened->context);
    return opened;
}

inline std::unique_ptr<Opened> openBytes(const TgxFile &file, const std::string &name = "a.tgx")
{
    TempFolder folder;
    return openPath(file.write(folder.file(name)));
}

// Quiet while thousands of files are opened.
struct QuietDataFile
{
    QuietDataFile() { Tessel::LogLevel.DataFile = false; }
    ~QuietDataFile() { Tessel::LogLevel.DataFile = true; }
};

// Files with one tag.
TgxFile one(std::string_view name, auto value, int32_t idx = -1)
{
    return TgxFile().tag(name, value, idx);
}
inline TgxFile mode(int measMode)
{
    return TgxFile().tag("Measurement_Mode", measMode);
}

template <class T>
std::string shown(const T &value)
{
    if constexpr (std::is_enum_v<T>)
        return fmt::format("{}", static_cast<int32_t>(value));
    else if constexpr (std::is_same_v<T, std::vector<int32_t>>)
        return fmt::format("{}", fmt::join(value, " "));
    else
        return fmt::format("{}", value);
}

template <class Record>
std::string showFields(const Record &record, std::span<const Tessel::Field<Record>> fields,
                       const std::string &prefix = "")
{
    std::string lines;
    for (const auto &field : fields) {
        std::visit(
            [&](auto member) { lines += fmt::format("{}{}={}\n", prefix, field.Name, shown(record.*member)); },
            field.Member);
        if (field.Switch) lines += fmt::format("{}{}On={}\n", prefix, field.Name, record.*field.Switch);
    }
    return lines;
}

// A line for each field of the device, "SyncDiv=4", "2.TrigLvl=-40" for its third channel, and for what a file
// says of the run that it holds.
inline std::string show(const Opened &opened)
{
    const Tessel::DeviceConfig &config = opened.device;
    const Tessel::MeasContext &context = opened.context;
    const Tessel::MeasDescription &run = context.Description;
    std::string lines = showFields(config, Tessel::deviceFields());
    lines += fmt::format("ChansCfg={}\n", config.ChansCfg.size());
    for (size_t row = 0; row < config.ChansCfg.size(); ++row)
        lines += showFields(config.ChansCfg[row], Tessel::channelFields(), fmt::format("{}.", row));
    for (size_t i : {0, 1, 3, 255})
        lines += fmt::format("CountRate[{}]={}\n", i, context.CountRates.at(i).load());
    return lines + fmt::format("SyncPeriodPs={}\nResolutionPs={}\nSyncRate={}\nAcqTime={}\nMeasSubMode={}\n"
                               "AveSyncRate={}\nStopReason={}\nStopAfter={}\nWarningsFlag={}\nNumRecs={}\n"
                               "StartWords={}\nCreatingTime={}\n",
                               opened.device.SyncPeriodPs, context.ResolutionPs.load(), context.SyncRate.load(),
                               run.AcqTime.load(), run.MeasSubMode.load(), run.AveSyncRate.load(),
                               shown(run.StopReason.load()), run.StopAfter.load(), run.WarningsFlag.load(),
                               run.NumRecs.load(), fmt::join(run.StartWords, " "), run.CreatingTime);
}

// Which of the wanted lines, "SyncDiv=4|NumRecs=0", the device hasn't, and all that it has; empty if none.
inline std::string missing(const Opened &opened, std::string_view wanted)
{
    const std::string lines = "\n" + show(opened);
    std::string result;
    for (size_t end = 0; end != wanted.npos; wanted.remove_prefix(end == wanted.npos ? 0 : end + 1)) {
        end = wanted.find('|');
        if (lines.find(fmt::format("\n{}\n", wanted.substr(0, end))) == lines.npos)
            result += fmt::format("no {} in {}", wanted.substr(0, end), lines);
    }
    return result;
}

} // namespace TestSupport
