// The runs of other devices that a run with import stages needs.
#pragma once

#include "records/refs.h"

namespace Tessel {

// Starts a measurement on each source that the device's import stages name and want to be started, and waits
// until it is up. The caller's thread; no lock is held.
void prepareImportSources(const DeviceRef &target, const DeviceLookUp &devices);

} // namespace Tessel
