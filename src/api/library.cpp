#include "api/library.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel {

namespace {

Library *makeLibrary()
{
    auto *made = new Library;
    made->NullDevice = std::make_shared<Device>();
    made->NullMeasContext = std::make_shared<MeasContext>();
    made->CurrentDevice = made->NullDevice;
    return made;
}

// TablesLock held. A device that stands in no table works on NullMeasContext.
DeviceRef refOf(const Library &lib, const std::shared_ptr<Device> &device)
{
    auto place = std::find(lib.DeviceTable.begin(), lib.DeviceTable.end(), device);
    if (place == lib.DeviceTable.end()) return {lib.NullDevice, lib.NullMeasContext};
    return {device, lib.MeasContextTable[static_cast<size_t>(place - lib.DeviceTable.begin())]};
}

// TablesLock held.
void renumber(Library &lib)
{
    for (size_t i = 0; i < lib.DeviceTable.size(); ++i) lib.DeviceTable[i]->TableIndex = i;
}

} // namespace

std::string versionString()
{
    return fmt::format("{} v{}.{}.{}.{}", programName, versionMajor, versionMinor, versionPatch, versionBuild);
}

Library &library()
{
    static Library &only = *makeLibrary();
    return only;
}

DeviceRef currentDevice()
{
    Library &lib = library();
    std::lock_guard lock(lib.TablesLock);
    return refOf(lib, lib.CurrentDevice);
}

void makeCurrent(const std::shared_ptr<Device> &device)
{
    Library &lib = library();
    std::lock_guard lock(lib.TablesLock);
    lib.CurrentDevice = device;
}

DeviceRef findDevice(std::string_view id)
{
    Library &lib = library();
    std::lock_guard lock(lib.TablesLock);
    for (const auto &device : lib.DeviceTable)
        if (device->ID == id) return refOf(lib, device);
    return {lib.NullDevice, lib.NullMeasContext};
}

std::vector<DeviceRef> allDevices()
{
    Library &lib = library();
    std::lock_guard lock(lib.TablesLock);
    std::vector<DeviceRef> all;
    for (size_t i = 0; i < lib.DeviceTable.size(); ++i)
        all.push_back({lib.DeviceTable[i], lib.MeasContextTable[i]});
    return all;
}

DeviceRef addDevice(std::shared_ptr<Device> device, std::shared_ptr<MeasContext> context)
{
    Library &lib = library();
    std::lock_guard lock(lib.TablesLock);
    lib.DeviceTable.push_back(device);
    lib.MeasContextTable.push_back(context);
    renumber(lib);
    return {std::move(device), std::move(context)};
}

void removeDevice(const DeviceRef &target)
{
    Library &lib = library();
    std::lock_guard lock(lib.TablesLock);
    auto place = std::find(lib.DeviceTable.begin(), lib.DeviceTable.end(), target.device);
    if (place == lib.DeviceTable.end()) return;
    lib.MeasContextTable.erase(lib.MeasContextTable.begin() + (place - lib.DeviceTable.begin()));
    lib.DeviceTable.erase(place);
    if (lib.CurrentDevice == target.device) lib.CurrentDevice = lib.NullDevice;
    renumber(lib);
}

} // namespace Tessel
