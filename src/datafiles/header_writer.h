// The header of a recording: written before the first record, overwritten in place with the final values
// after the last one, sealed with a CRC each time. One thread per file.
#pragma once

#include "datafiles/dictionary_writer.h"
#include "devices/library_versions.h"
#include "records/context.h"
#include "records/custom_tag.h"
#include "records/device_config.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

// File offsets of the tags that the overwrite replaces; 0 until they are written.
struct PatchPositions
{
    uint64_t StopReason = 0, GlobalResolution = 0, SyncRate = 0, StopAfter = 0, NumberOfRecords = 0,
             WarningFlags = 0;
    uint64_t InputRates = 0; // the first of the channels' tags, which follow one another
    std::array<uint64_t, 3> StartTime{};
};

// One header, from its first write to its overwrite.
struct HeaderInWork
{
    std::string Path; // normal form
    std::vector<LibraryVersion> Libraries;
    std::vector<CustomTag> CustomTags;
    DictionaryState Dictionary;
    PatchPositions Positions;
    uint64_t Length = 0;   // bytes of the header at its first write
    bool Complete = false; // the last write wrote every tag and the CRC, and can be read back
};

// `update` false: the first write; creates the file. `update` true: the overwrite. False, and nothing is
// logged, if the system didn't take all of it. A tag that the dictionary refuses cuts the header short, and a
// file that can't be opened is logged; `Complete` is false then.
bool writeHeader(HeaderInWork &header, const DeviceConfig &config, const MeasContext &context, bool update);

// CRC-32 of a whole header up to its last four bytes, where it stands, with 2 and 4 in place of the first two.
uint32_t headerCrc(std::string header);

// Puts the CRC of the header into its `Header_End`. False, with an error in the log, if there is none.
bool sealHeader(std::string_view path);

} // namespace Tessel
