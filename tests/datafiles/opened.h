// Data files as devices.
#pragma once

#include "datafiles/file_device.h"
#include "log/log.h"
#include "support/temp_folder.h"
#include "support/tgx_file.h"

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

} // namespace TestSupport
