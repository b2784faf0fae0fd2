#include "devices/families.h"

#include "devices/enum_texts.h"
#include "log/log.h"

#include <algorithm>

namespace Tessel {

namespace {

constexpr uint32_t largeFifo = 1048576, smallFifo = 131072; // words

// In the order of LibType, in which the models are tried: "Cordalis" takes every text that begins with
// "Cordalis 90", so a file of that family opens as the CD family. Hosts know it so.
constexpr Family families[] = {
    {.LibType = LibType::ZP,
     .Library = "ZPlib",
     .Model = "Zephyrion",
     .ModelStarts = {"Zephyrion"},
     .RecordTypeT2 = 0x00010207,
     .RecordTypeT3 = 0x00010307,
     .FifoWords = largeFifo},
    {.LibType = LibType::CD,
     .Library = "CDlib",
     .Model = "Cordalis",
     .ModelStarts = {"Cordalis"},
     .RecordTypeT2 = 0x01010204,
     .RecordTypeT3 = 0x01010304,
     .FifoWords = smallFifo},
    {.LibType = LibType::SV40,
     .Library = "SV40lib",
     .Model = "Sarvex 40 N",
     .ModelStarts = {"Sarvex 40", "Sarvex40"},
     .FifoWords = smallFifo,
     .IgnoresCode18 = true},
    {.LibType = LibType::LM70,
     .Library = "LM70lib",
     .Model = "Lumora 70",
     .ModelStarts = {"Lumora 70"},
     .RecordTypeT2 = 0x00010207,
     .RecordTypeT3 = 0x00010307,
     .FifoWords = largeFifo},
    {.LibType = LibType::CD90,
     .Library = "CD90lib",
     .Model = "Cordalis 90",
     .ModelStarts = {"Cordalis 90"},
     .RecordTypeT2 = 0x00010207,
     .RecordTypeT3 = 0x00010307,
     .FifoWords = largeFifo},
};

constexpr Family noFamily{};

// The SV40 family has one type for both modes: `Measurement_Mode` says which.
uint32_t recordTypeOfModel(std::string_view model)
{
    if (model == "Sarvex 40 N") return 0x00010205;
    return model == "Sarvex 40 P" ? 0x00010206 : 0;
}

} // namespace

const Family &familyOf(LibType type)
{
    auto family = std::ranges::find(families, type, &Family::LibType);
    return family == std::end(families) ? noFamily : *family;
}

std::optional<LibType> familyOfModel(std::string_view model)
{
    for (const Family &family : families)
        for (std::string_view start : family.ModelStarts)
            if (!start.empty() && model.starts_with(start)) return family.LibType;
    return {};
}

uint32_t recordTypeOf(const DeviceConfig &config)
{
    if (config.MeasMode != MeasMode::T2 && config.MeasMode != MeasMode::T3) return 0;
    const Family &family = familyOf(config.LibType);
    if (family.LibType == LibType::SV40) return recordTypeOfModel(config.Model);
    if (family.LibType == LibType::Undefined)
        logWrn(LogCategory::General, "Undefined MV_TAGID_TTRESULTFORMAT_TTTRRECTYPE for libType {}",
               libTypeText(config.LibType));
    return config.MeasMode == MeasMode::T2 ? family.RecordTypeT2 : family.RecordTypeT3;
}

int32_t refSourceCode(const DeviceConfig &config)
{
    switch (config.LibType) {
    case LibType::ZP:
    case LibType::CD90: return std::min(config.RefSource, 9);
    case LibType::CD: return std::min(config.RefSource, 1);
    case LibType::SV40: return 0;
    case LibType::LM70:
        if (config.RefSource > 9) return config.RefSource - 8;
        if (config.RefSource < 2) return config.RefSource;
        logWrn(LogCategory::General, "Config: Initialize is not supported for RefSource {} @{}",
               config.RefSource, config.ID);
        return 0;
    case LibType::Undefined:
    case LibType::Dummy: break;
    }
    logWrn(LogCategory::General, "Config: getRefsource is not supported for libType {} @{}",
           libTypeText(config.LibType), config.ID);
    return 0;
}

std::optional<TrigMode> fixedTrigger(const DeviceConfig &config)
{
    switch (config.LibType) {
    case LibType::ZP: return TrigMode::Edge;
    case LibType::CD: return TrigMode::CFD;
    case LibType::SV40:
        if (config.Model == "Sarvex 40 P") return TrigMode::CFD;
        if (config.Model == "Sarvex 40 N") return TrigMode::Edge;
        return {};
    default: return {};
    }
}

bool stopsBySoftware(const DeviceConfig &config)
{
    switch (config.LibType) {
    case LibType::LM70:
    case LibType::CD90: return true;
    case LibType::ZP: return config.Model.find('N') == std::string::npos;
    default: return false;
    }
}

} // namespace Tessel
