#include "devices/enum_texts.h"

#include <fmt/format.h>

#include <span>

namespace Tessel {

std::string libTypeText(LibType type)
{
    switch (type) {
    case LibType::Undefined: return "undefined";
    case LibType::ZP: return "ZP";
    case LibType::CD: return "CD";
    case LibType::SV40: return "SV40";
    case LibType::LM70: return "LM70";
    case LibType::CD90: return "CD90";
    case LibType::Dummy: return "dummy";
    }
    return fmt::format("libType: {}", static_cast<int32_t>(type));
}

std::string_view stopReasonText(StopReason reason)
{
    switch (reason) {
    case StopReason::SyncLost: return "SyncLost";
    case StopReason::RefClkLost: return "RefClkLost";
    case StopReason::DataCheckFail: return "DataCheckFail";
    case StopReason::DataXferFail: return "DataXferFail";
    case StopReason::QueueOverrun: return "QueueOverrun";
    case StopReason::SysError: return "SYSERROR";
    case StopReason::Suspend: return "Suspend";
    case StopReason::OutOfMem: return "OutOfMem";
    case StopReason::FileError: return "FileError";
    case StopReason::TcspcError: return "TCSPCError";
    case StopReason::LegacyErr: return "LegacyErr";
    case StopReason::FiFoOverrun: return "FiFoOverrun";
    case StopReason::Unknown: return "Unknown";
    case StopReason::TimeOver: return "TimeOver";
    case StopReason::Manual: return "Manual";
    case StopReason::OverFlow: return "OverFlow";
    case StopReason::Error: return "Error";
    }
    return "Undefined";
}

namespace {

constexpr std::string_view featureNames[] = {"DLL",    "TTTR",    "Markers",  "LowRes",   "TrigOut",
                                             "ProgTd", "ExtFPGA", "ProgHyst", "EvntFilt", "InputMode"};
constexpr std::string_view triggerNames[] = {"Edge", "CFD"};

std::string namesOf(uint32_t bits, std::span<const std::string_view> names)
{
    std::string text;
    for (size_t bit = 0; bit < names.size(); ++bit)
        if (bits >> bit & 1) text += fmt::format("{} ", names[bit]);
    return text;
}

} // namespace

std::string featuresText(uint32_t features)
{
    return namesOf(features, featureNames);
}

std::string triggersText(uint32_t triggers)
{
    return namesOf(triggers, triggerNames);
}

} // namespace Tessel
