// The instruments that the description gives to this library.
#pragma once

#include "sim/instruments/instrument.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Tessel::Sim {

// Faults of the operations that name no instrument.
struct LibraryFaults
{
    std::mutex Lock;               // guards Calls
    std::vector<CallFault> Script; // constant
    std::vector<uint64_t> Calls;
};

// Reads the file of TESSEL_SIM_INSTRUMENTS if it has changed and none of its instruments is open.
void refreshDescription(FamilyId family);
std::string descriptionMistake(); // with its place; empty: none

std::shared_ptr<Instrument> instrumentAt(int32_t idx); // null: none
std::shared_ptr<LibraryFaults> libraryFaults();

} // namespace Tessel::Sim
