// The fault script of a description.
#pragma once

#include "sim/instruments/description.h"
#include "sim/instruments/json_node.h"

namespace Tessel::Sim {

// Reads the key `faults`.
void readFaults(JsonNode &node, std::vector<CallFault> &calls, std::vector<FlagFault> &flags);

} // namespace Tessel::Sim
