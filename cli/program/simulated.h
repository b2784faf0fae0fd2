// Where the simulated instruments are that come with the program.
#pragma once

#include <string>

namespace Tessel::Cli {

// From here on this process finds the simulated instrument libraries and no others. `descriptionPath`: the JSON
// file that says what instruments there are; empty: the standard one, or what the environment names. Before the
// library is started. Throws Failure NoDevice.
void chooseSimulatedInstruments(const std::string &descriptionPath);

} // namespace Tessel::Cli
