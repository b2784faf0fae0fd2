// An instrument behind a fake library, for tests of device operations: open, with every feature and four
// inputs.
#pragma once

#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/libs/loader.h"
#include "records/refs.h"
#include "session/tables.h"
#include "support/fake.h"
#include "support/log_capture.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

inline constexpr Tessel::LibType fiveFamilies[] = {Tessel::LibType::ZP, Tessel::LibType::CD,
                                                   Tessel::LibType::SV40, Tessel::LibType::LM70,
                                                   Tessel::LibType::CD90};

struct Instrument
{
    explicit Instrument(Tessel::LibType family, Tessel::MeasMode mode = Tessel::MeasMode::T3)
        : fake(Tessel::libraryOf(family)->FileName)
    {
        if (!Tessel::loadLibrary(*Tessel::libraryOf(family))) throw std::runtime_error("no fake library");
        device.DeviceType = Tessel::DeviceType::Instrument;
        device.LibType = family;
        device.MeasMode = mode;
        device.Index = 0;
        device.ID = "77";
        device.Model = "Sarvex 40 P"; // of which the others take no notice
        device.IsOpen = true;
        device.Features = 1023;
        device.MaxBinSteps = 8;
        device.ChansCfg.resize(4);
        for (int32_t i = 0; Tessel::ChannelRow & row : device.ChansCfg) row.Index = i++;
        Tessel::addDevice(entry);
    }
    ~Instrument() { Tessel::removeDevice(entry); }
    Instrument(const Instrument &) = delete;
    Instrument &operator=(const Instrument &) = delete;

    Fake fake;
    Tessel::DeviceRef entry = std::make_shared<Tessel::DeviceEntry>();
    Tessel::Device &device = entry->device;
    Tessel::MeasContext &context = entry->context;
};

// The lines of the log that begin so, in their order.
inline std::vector<std::string> linesOf(LogCapture &log, std::string_view start)
{
    std::vector<std::string> lines;
    for (const std::string &line : log.lines())
        if (line.starts_with(start)) lines.push_back(line);
    return lines;
}

} // namespace TestSupport
