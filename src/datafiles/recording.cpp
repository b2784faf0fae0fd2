#include "datafiles/recording.h"

#include "devices/families.h"
#include "log/log.h"
#include "log/text.h"
#include "stream/rounding.h"

#include <boost/multiprecision/cpp_int.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <filesystem>

namespace Tessel {

namespace {

constexpr size_t writeBuffer = 1048576;      // bytes
constexpr double finestResolution = 0.5;     // ps; a replay takes it as 1
constexpr double longestResolution = 1e12;   // ps
constexpr double highestRate = 2147483647.0; // what a header keeps
constexpr double lowestSyncRate = 1e-6;      // Hz

bool isResolution(double ps)
{
    return ps >= finestResolution && ps <= longestResolution;
}

bool isRate(double rate)
{
    return rate >= 0.0 && rate <= highestRate;
}

// What is wrong with the parameters; empty if nothing is.
std::string faultOf(const RecordingParams &params)
{
    bool isT3 = params.MeasMode == 3;
    if (params.MeasMode != 2 && !isT3) return fmt::format("measMode {} is neither 2 nor 3", params.MeasMode);
    if (params.Family < 0 || params.Family > 4) return fmt::format("family {} is not in 0..4", params.Family);
    if (params.NumChans < 1 || params.NumChans > 64)
        return fmt::format("numChannels {} is not in 1..64", params.NumChans);
    if (!isResolution(params.BaseResolution))
        return fmt::format("baseResolution {} is not in 0.5..1e12 ps", params.BaseResolution);
    if (isT3 && !isResolution(params.Resolution))
        return fmt::format("resolution {} is not in 0.5..1e12 ps", params.Resolution);
    if (!isRate(params.SyncRate) || (isT3 && params.SyncRate < lowestSyncRate))
        return fmt::format("syncRate {} is not in {}..2147483647 Hz", params.SyncRate,
                           isT3 ? lowestSyncRate : 0);
    if (params.AcqTime < 0) return fmt::format("acqTime {} is negative", params.AcqTime);
    if (!params.InputRates.empty() && params.InputRates.size() != static_cast<size_t>(params.NumChans))
        return fmt::format("{} input rates for {} channels", params.InputRates.size(), params.NumChans);
    for (double rate : params.InputRates)
        if (!isRate(rate)) return fmt::format("input rate {} is not in 0..2147483647 1/s", rate);
    return {};
}

// Binning steps from one resolution to the other, 0 if they aren't a power of two apart.
int32_t binningOf(double base, double resolution)
{
    int exponent = 0;
    double mantissa = std::frexp(resolution / base, &exponent);
    return mantissa == 0.5 && exponent > 0 ? exponent - 1 : 0;
}

void describeDevice(DeviceConfig &device, const RecordingParams &params)
{
    device.MeasMode = static_cast<MeasMode>(params.MeasMode);
    device.LibType = static_cast<LibType>(params.Family);
    device.Model = familyOf(device.LibType).Model;
    device.ID = params.Serial.empty() ? "0" : params.Serial;
    device.Comment = params.Comment;
    device.Features = Feature::TTTR;
    device.BaseResolution = params.BaseResolution;
    // A T2 replay counts time by the resolution of the final header.
    device.Resolution = device.MeasMode == MeasMode::T3 ? params.Resolution : params.BaseResolution;
    device.Binning = binningOf(device.BaseResolution, device.Resolution);
    device.NumChans = params.NumChans;
    device.ChansCfg.resize(static_cast<size_t>(params.NumChans));
    for (int32_t i = 0; i < params.NumChans; ++i) {
        device.ChansCfg[static_cast<size_t>(i)].Index = i;
        device.ChansCfg[static_cast<size_t>(i)].Name = fmt::format("Channel {}", i + 1);
    }
}

// The present time in ps since 1970, as instruments give the start of a measurement.
std::array<uint32_t, 3> startWordsNow()
{
    using namespace std::chrono;
    auto now = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    boost::multiprecision::uint128_t time = boost::multiprecision::uint128_t(now) * 1000;
    std::array<uint32_t, 3> words;
    for (uint32_t &word : words) {
        word = static_cast<uint32_t>(time & 0xFFFFFFFFu);
        time >>= 32;
    }
    return words;
}

void warnOfRoundedSyncRate(std::string_view path, const RecordingParams &params)
{
    double whole = std::round(params.SyncRate);
    if (params.MeasMode != 3 || whole == 0.0) return; // a rate below 0.5 Hz is kept as a period
    if (std::round(1e12 / whole) != std::round(1e12 / params.SyncRate))
        logWrn(LogCategory::General, "File: recording {}: a replay goes by a sync rate of {} Hz, not {} Hz",
               path, whole, params.SyncRate);
}

void warnOfRoundedUnit(std::string_view path, const Device &device)
{
    const double whole = std::round(device.Resolution);
    if (whole != device.Resolution)
        logWrn(LogCategory::General, "File: recording {}: a replay goes by {} of {} ps, not {} ps", path,
               device.MeasMode == MeasMode::T3 ? "dtimes" : "time tags", whole, device.Resolution);
}

bool canBeOpened(std::string_view path)
{
    if (openStream(path, "ab")) return true;
    logLastError(fmt::format("File: recording {}:", path), errno);
    return false;
}

bool isWritableKind(std::string_view path)
{
    std::error_code error;
    std::filesystem::file_status status = std::filesystem::status(nativePath(path), error);
    return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

} // namespace

std::unique_ptr<Recording> Recording::create(std::string_view path, const RecordingParams &params,
                                             std::span<const CustomTag> customTags)
{
    std::string fault = faultOf(params);
    if (fault.empty() && !isWritableKind(path)) fault = "there is something that is no file";
    if (!fault.empty()) {
        logErr(LogCategory::General, "File: recording {}: {}", path, fault);
        return nullptr;
    }
    if (!canBeOpened(path)) return nullptr;
    warnOfRoundedSyncRate(path, params);
    std::unique_ptr<Recording> made(new Recording);
    made->header.Path = normalPath(path);
    made->inputRates = params.InputRates;
    describeDevice(made->device, params);
    warnOfRoundedUnit(path, made->device);
    MeasDescription &description = made->context.Description;
    description.AcqTime = params.AcqTime;
    description.AveSyncRate = params.SyncRate;
    description.StartWords = startWordsNow();
    made->header.CustomTags.assign(customTags.begin(), customTags.end());
    made->setRates(1);
    writeHeader(made->header, made->device, made->context, false);
    if (!made->header.Complete) {
        logErr(LogCategory::General, "File: recording {}: the header can't be written", path);
        return nullptr;
    }
    made->file = openStream(path, "ab");
    if (!made->file) {
        logLastError(fmt::format("File: recording {}:", path), errno);
        return nullptr;
    }
    std::setvbuf(made->file.get(), nullptr, _IOFBF, writeBuffer);
    return made;
}

Recording::~Recording()
{
    if (file) close();
}

// The header's first write takes the rates from entry 1 on, its overwrite those from entry 0 on.
void Recording::setRates(size_t firstEntry)
{
    for (size_t i = 0; i < inputRates.size(); ++i)
        context.CountRates[firstEntry + i] = nearest<int32_t>(inputRates[i]);
}

bool Recording::write(std::span<const uint32_t> words)
{
    if (!file || failed) return false;
    if (words.empty()) return true;
    accepted += words.size();
    if (std::fwrite(words.data(), sizeof(uint32_t), words.size(), file.get()) == words.size()) return true;
    failed = true;
    logLastError(fmt::format("File: recording {}:", header.Path), errno);
    return false;
}

bool Recording::setDuration(int32_t ms)
{
    if (ms < 0) {
        logErr(LogCategory::General, "File: recording {}: a duration of {} ms", header.Path, ms);
        return false;
    }
    durationMs = ms;
    return true;
}

// Cuts the file to whole words and puts their number into the description.
void Recording::closeData()
{
    if (!Tessel::close(std::move(file)) && !failed) {
        failed = true;
        logLastError(fmt::format("File: recording {}:", header.Path), errno);
    }
    std::error_code error;
    uint64_t size = std::filesystem::file_size(nativePath(header.Path), error);
    uint64_t words = error || size < header.Length ? 0 : (size - header.Length) / sizeof(uint32_t);
    if (words != accepted) failed = true;
    if (!error && failed && size > header.Length)
        std::filesystem::resize_file(nativePath(header.Path), header.Length + words * sizeof(uint32_t), error);
    context.Description.NumRecs = words;
}

bool Recording::close()
{
    if (!file) return false;
    closeData();
    MeasDescription &description = context.Description;
    const StopReason unfailed = durationMs ? StopReason::Manual : StopReason::TimeOver;
    description.StopReason = failed ? StopReason::FileError : unfailed;
    description.StopAfter = durationMs.value_or(description.AcqTime);
    setRates(0);
    writeHeader(header, device, context, true);
    if (failed || !header.Complete)
        logErr(LogCategory::General, "File: recording {}: the file isn't complete", header.Path);
    return !failed && header.Complete;
}

} // namespace Tessel
