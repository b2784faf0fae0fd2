// Instruments of another computer: the server that --host names. The main thread's.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Tessel::Cli {

// --host HOST[:PORT]
void addHostOption(CLI::App &command, std::string &server);

// Asks the server for its instruments; a second time, what they are set to now. Throws Failure: of usage if the
// text is no address, NoDevice if the server can't be reached. A warning names one that isn't given.
void connectServer(const std::string &server);

// Ids of the devices of other computers.
std::vector<std::string> remoteIds();

// Connects, and makes the instrument with the id, or the only one if it is empty, the current device. Gives its
// id. Throws Failure NoDevice.
std::string openRemote(const std::string &server, const std::string &id);

} // namespace Tessel::Cli
