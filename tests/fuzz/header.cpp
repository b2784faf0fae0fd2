// A recording of arbitrary bytes: its tags, the device that they make, and both as JSON; what is wrong with it,
// and that a repair leaves none of what it is for.
#include "config/device_json.h"
#include "datafiles/file_device.h"
#include "datafiles/header_listing.h"
#include "datafiles/repair.h"
#include "datafiles/verification.h"
#include "input.h"
#include "quiet_log.h"

#include <boost/json.hpp>

using namespace Tessel;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::quietLog();
    const Fuzz::MemoryFile file({reinterpret_cast<const char *>(data), size});
    Device device;
    MeasContext context;
    Fuzz::require(readTgxFile(file.path(), device, context), "a file that can be read makes a device");
    Fuzz::require(device.DataStart <= size, "records begin within the file");
    Fuzz::require(device.ChansCfg.size() <= 4096 && device.MarkerEna.size() <= 4096, "tables have a bound");
    Fuzz::require(device.ID.size() < idSizeLimit, "a host has room for the id");
    boost::json::parse(stringifyJsonDevConfig(device, stateOf(device)));
    boost::json::parse(headerTagsAsJson(file.path()).value());
    const Verification found = verifyFile(file.path()).value();
    Fuzz::require(verificationAsJson(found).size() < 16384, "a host has room for what is found");
    const Fuzz::MemoryFile copy("");
    if (!repairFile(file.path(), copy.path())) return 0;
    const Verification repaired = verifyFile(copy.path()).value();
    for (const Fault &fault : repaired.Faults)
        Fuzz::require(fault.Kind > FileFault::EmptyEnd, "a repaired file isn't cut off");
    Fuzz::require(repaired.Records == found.Records && repaired.Claimed == found.Records,
                  "with all its records");
    return 0;
}
