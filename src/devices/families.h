// What an instrument family is: all that the library knows of a `LibType`, except for the calls into the
// family's own library. A sixth family is a value of `LibType`, a row here, and a branch in each rule that has
// a switch on the family.
#pragma once

#include "records/device_config.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Tessel {

struct Family
{
    Tessel::LibType LibType = LibType::Undefined;
    std::string_view Library{}; // the instrument library, as log lines and file headers call it
    std::string_view Model{};   // of a recording that isn't an instrument's
    std::array<std::string_view, 2> ModelStarts{}; // how the models in a file begin; the second may be empty
    uint32_t RecordTypeT2 = 0, RecordTypeT3 = 0;   // as a header says them; 0: by the model
    uint32_t FifoWords = 0;                        // the most that one read of the instrument takes
    bool IgnoresCode18 = false;                    // a special T3 record 18 is no fault
};

// More inputs or modules than any instrument has: what a library says is cut to it.
inline constexpr int32_t mostInputs = 4095;
inline constexpr int32_t mostBins = 1048576; // of one histogram

// A type that is none of the five has an empty row.
const Family &familyOf(LibType type);

// The family of a file by the beginning of its model.
std::optional<LibType> familyOfModel(std::string_view model);

// The type of the records as a header says it; 0 if there is none, with a warning in the log if the family is
// unknown.
uint32_t recordTypeOf(const DeviceConfig &config);

// The reference clock source as an instrument of the family takes it. A source that the family doesn't know is
// logged and gives 0.
int32_t refSourceCode(const DeviceConfig &config);

// The trigger of an input that can't be chosen; none: it keeps the one that it has.
std::optional<TrigMode> fixedTrigger(const DeviceConfig &config);

// Without an acquisition time such a device runs until it is stopped; any other gets the longest time there is.
bool stopsBySoftware(const DeviceConfig &config);

// The input dead times of the SV40 family in ps; the position is the code that the instrument takes.
inline constexpr std::array<int32_t, 8> DeadTimeTable = {24000,  44000,  66000,  88000,
                                                         112000, 135000, 160000, 180000};

} // namespace Tessel
