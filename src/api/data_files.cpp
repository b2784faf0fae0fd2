#include "api/exports.h"
#include "datafiles/custom_tags.h"
#include "datafiles/file_names.h"
#include "datafiles/header_listing.h"
#include "datafiles/recording.h"
#include "datafiles/repair.h"
#include "datafiles/verification.h"
#include "run/params.h"

#include <optional>
#include <span>
#include <string>

using namespace Tessel;

struct tessel_recording
{
    std::unique_ptr<Recording> recording;
};

namespace {

// The custom tags of the current device.
template <class Add>
void withTags(const char *name, Add add)
{
    guarded(name, [&add] {
        DeviceRef target = currentDevice();
        const std::lock_guard lock(target->context.ParamsLock);
        add(target->context.CustomTags);
    });
}

RecordingParams paramsOf(const tessel_recording_params &given)
{
    RecordingParams params;
    params.MeasMode = given.measMode;
    params.Family = given.family;
    params.NumChans = given.numChannels;
    params.BaseResolution = given.baseResolution;
    params.Resolution = given.resolution;
    params.SyncRate = given.syncRate;
    params.AcqTime = given.acqTime;
    if (given.inputRates && given.numChannels > 0)
        params.InputRates.assign(given.inputRates, given.inputRates + given.numChannels);
    params.Serial = textOf(given.serial);
    params.Comment = textOf(given.comment);
    return params;
}

// No text: the file can't be read.
bool handOutOfAnyLength(const std::optional<std::string> &text, char *buffer, uint64_t size, uint64_t *needed)
{
    if (needed) *needed = text ? text->size() + 1 : 0;
    if (!text || !buffer || text->size() + 1 > size) return false;
    copyText(*text, buffer);
    return true;
}

} // namespace

void addIntTag(const char *name, int64_t value, uint32_t idx)
{
    withTags("addIntTag", [&](CustomTags &tags) { addIntTag(tags, textOf(name), value, idx); });
}

void addDblTag(const char *name, double value, uint32_t idx)
{
    withTags("addDblTag", [&](CustomTags &tags) { addDblTag(tags, textOf(name), value, idx); });
}

void addBoolTag(const char *name, bool value, uint32_t idx)
{
    withTags("addBoolTag", [&](CustomTags &tags) { addBoolTag(tags, textOf(name), value, idx); });
}

void addEmptyTag(const char *name, uint32_t idx)
{
    withTags("addEmptyTag", [&](CustomTags &tags) { addEmptyTag(tags, textOf(name), idx); });
}

void addStringTag(const char *name, const char *text, uint32_t idx)
{
    withTags("addStringTag", [&](CustomTags &tags) { addStringTag(tags, textOf(name), textOf(text), idx); });
}

void addWStringTag(const char *name, const char16_t *text, uint32_t idx)
{
    withTags("addWStringTag", [&](CustomTags &tags) { addWStringTag(tags, textOf(name), textOf(text), idx); });
}

void addFloatArrayTag(const char *name, const double *values, uint64_t count, uint32_t idx)
{
    std::span<const double> given(values, values ? count : 0);
    withTags("addFloatArrayTag", [&](CustomTags &tags) { addFloatArrayTag(tags, textOf(name), given, idx); });
}

void addBBTag(const char *name, const uint8_t *bytes, uint64_t count, uint32_t idx)
{
    withTags("addBBTag",
             [&](CustomTags &tags) { addBBTag(tags, textOf(name), bytes, bytes ? count : 0, idx); });
}

void clearTags(void)
{
    withTags("clearTags", [](CustomTags &tags) { tags.clear(); });
}

void setTGXFilePath(const char *path)
{
    guarded("setTGXFilePath", [&] { setTgxFilePath(textOf(path)); });
}

void setMeasSubMode(int32_t value)
{
    guarded("setMeasSubMode", [&] { currentDevice()->context.Description.MeasSubMode = value; });
}

tessel_recording *tessel_recordingCreate(const char *path, const tessel_recording_params *params)
{
    return guarded(
        "tessel_recordingCreate", static_cast<tessel_recording *>(nullptr), [&]() -> tessel_recording * {
            if (!params || params->size < sizeof(tessel_recording_params)) {
                logErr(LogCategory::General,
                       "API tessel_recordingCreate: no parameters, or of another version");
                return nullptr;
            }
            DeviceRef target = currentDevice();
            auto made = std::make_unique<tessel_recording>();
            made->recording = Recording::create(textOf(path), paramsOf(*params), customTagsOf(target->context));
            return made->recording ? made.release() : nullptr;
        });
}

bool tessel_recordingWrite(tessel_recording *recording, const uint32_t *words, uint64_t count)
{
    return guarded("tessel_recordingWrite", false, [&] {
        if (!recording || (!words && count > 0)) {
            logErr(LogCategory::General, "API tessel_recordingWrite: no recording, or no words");
            return false;
        }
        return recording->recording->write({words, count});
    });
}

bool tessel_recordingSetDuration(tessel_recording *recording, int32_t ms)
{
    return guarded("tessel_recordingSetDuration", false, [&] {
        if (recording) return recording->recording->setDuration(ms);
        logErr(LogCategory::General, "API tessel_recordingSetDuration: no recording");
        return false;
    });
}

bool tessel_recordingClose(tessel_recording *recording)
{
    return guarded("tessel_recordingClose", false, [&] {
        std::unique_ptr<tessel_recording> closing(recording);
        return !closing || closing->recording->close();
    });
}

bool tessel_getFileTags(const char *path, char *buffer, uint64_t size, uint64_t *needed)
{
    return guarded("tessel_getFileTags", false,
                   [&] { return handOutOfAnyLength(headerTagsAsJson(textOf(path)), buffer, size, needed); });
}

bool tessel_verifyFile(const char *path, char *buffer, uint64_t size, uint64_t *needed)
{
    return guarded("tessel_verifyFile", false, [&] {
        const auto verified = verifyFile(textOf(path));
        const auto text = verified ? std::optional(verificationAsJson(*verified)) : std::nullopt;
        return handOutOfAnyLength(text, buffer, size, needed);
    });
}

bool tessel_repairFile(const char *path, const char *repaired)
{
    return guarded("tessel_repairFile", false, [&] { return repairFile(textOf(path), textOf(repaired)); });
}
