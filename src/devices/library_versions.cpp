#include "devices/library_versions.h"

#include "devices/call.h"
#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/libs/loader.h"
#include "log/text.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace Tessel {

namespace {

struct VersionTable
{
    std::mutex Lock; // guards the rows; nothing is taken under it
    std::vector<LibraryVersion> Rows;
};

VersionTable &versionTable()
{
    static VersionTable &only = *new VersionTable;
    return only;
}

// A library stays as it was loaded, so its version is kept once.
void keepVersion(std::string_view library, std::string version)
{
    VersionTable &table = versionTable();
    std::lock_guard lock(table.Lock);
    if (std::ranges::find(table.Rows, library, &LibraryVersion::Name) == table.Rows.end())
        table.Rows.push_back({std::string(library), std::move(version)});
}

} // namespace

bool GetLibraryVersion(Device &device)
{
    LockedDevice locked(device);
    const CommonOperations *library = libraryOf(device.LibType);
    if (!library) {
        logWrn(LogCategory::General, "Config: GetLibraryVersion is not supported for libType {}",
               libTypeText(device.LibType));
        return false;
    }
    TextRoom<64> text;
    auto location = [&] { return std::string(library->Prefix) + "GetLibraryVersion"; };
    if (!Kest_isOK(locked, library->GetLibraryVersion(text.Bytes), location)) return false;
    const std::string version = visible(text.text());
    if (LogLevel.Device) logDev(LogCategory::Progress, "{}", version);
    keepVersion(familyOf(device.LibType).Library, version);
    return true;
}

std::vector<LibraryVersion> libraryVersions()
{
    VersionTable &table = versionTable();
    std::lock_guard lock(table.Lock);
    return table.Rows;
}

} // namespace Tessel
