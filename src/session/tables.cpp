#include "session/tables.h"

#include "datafiles/file_device.h"
#include "devices/locked_device.h"
#include "devices/primitives.h"
#include "log/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace Tessel {

namespace {

struct Library
{
    std::mutex TableLock;         // guards the rest; held for a look or a change
    std::vector<DeviceRef> Table; // in the order of finding or opening
    DeviceRef Current;            // one of the table; null: none
    const DeviceRef None = std::make_shared<DeviceEntry>();
};

Library &library()
{
    static Library &only = *new Library;
    return only;
}

// TableLock is held.
void renumber(Library &lib)
{
    for (size_t i = 0; i < lib.Table.size(); ++i) lib.Table[i]->device.TableIndex = i;
}

} // namespace

const DeviceRef &noDevice()
{
    return library().None;
}

DeviceRef currentDevice()
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    return lib.Current ? lib.Current : lib.None;
}

void makeCurrent(const DeviceRef &device)
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    const bool isThere = std::find(lib.Table.begin(), lib.Table.end(), device) != lib.Table.end();
    lib.Current = isThere ? device : nullptr;
}

DeviceRef findDevice(std::string_view id)
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    for (const DeviceRef &entry : lib.Table)
        if (entry->device.ID == id) return entry;
    return lib.None;
}

std::vector<DeviceRef> allDevices()
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    return lib.Table;
}

size_t deviceCount()
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    return lib.Table.size();
}

DeviceRef deviceAt(size_t index)
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    return index < lib.Table.size() ? lib.Table[index] : lib.None;
}

void addDevice(const DeviceRef &device)
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    lib.Table.push_back(device);
    lib.Current = device;
    renumber(lib);
}

namespace {

// The id, or the first of id#2, id#3, ... that no device has. TableLock is held.
std::string ownId(const Library &lib, const std::string &id)
{
    std::string own = id;
    const auto isTaken = [&](const DeviceRef &entry) { return entry->device.ID == own; };
    for (size_t number = 2; std::ranges::any_of(lib.Table, isTaken); ++number) {
        const std::string end = fmt::format("#{}", number);
        own.assign(cutTo(id, idSizeLimit - 1 - end.size())).append(end);
    }
    return own;
}

} // namespace

bool addWithOwnId(const DeviceRef &device, uint64_t largestId)
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    device->device.ID = ownId(lib, device->device.ID);
    if (device->device.ID.size() >= largestId) return false;
    lib.Table.push_back(device);
    lib.Current = device;
    renumber(lib);
    return true;
}

void addInstrument(const DeviceRef &device)
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    lib.Table.push_back(device);
    renumber(lib);
}

DeviceRef findInstrument(LibType type, int32_t port)
{
    for (const DeviceRef &entry : allDevices())
        if (isInstrument(entry->device) && entry->device.LibType == type && entry->device.Index == port)
            return entry;
    return nullptr;
}

void setId(Device &device, std::string id)
{
    LockedDevice locked(device);
    std::lock_guard lock(library().TableLock);
    if (device.ID != id) // one that stays may be read meanwhile
        remember(locked, [&] { device.ID = std::move(id); });
}

void removeDevice(const DeviceRef &device)
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    std::erase(lib.Table, device);
    if (lib.Current == device) lib.Current = nullptr;
    renumber(lib);
}

bool removeInstruments()
{
    Library &lib = library();
    std::lock_guard lock(lib.TableLock);
    if (std::any_of(lib.Table.begin(), lib.Table.end(),
                    [](const DeviceRef &entry) { return isFile(entry->device); }))
        return false;
    lib.Table.clear();
    lib.Current = nullptr;
    return true;
}

} // namespace Tessel
