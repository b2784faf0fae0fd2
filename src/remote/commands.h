// What a peer may ask of a device that is served, and the answers. The I/O thread of the server runs it.
//
//   to         command             data                                answer
//   "kest"     "getConfig"                                             the configuration of the device
//              "StartMeasure"      {"tAcq": ms}                        "ack"
//              "SetInputEdgeTrig"  {"chan", "trigLvl": mV, "trigEdge"} "ack"
//              any other                                               "ack"
//   "server"   "getDeviceNames"                                        the instruments of this process
//              "isConnected"                                           whether the server runs
//              any other                                               "error"
//
// An "ack" says that the line was read, and nothing of what became of it.
#pragma once

#include "log/log.h"
#include "records/refs.h"
#include "remote/envelope.h"

#include <string_view>

namespace Tessel {

// Does what a line asks of the device, and returns the one answer, without its index. The current device stays.
Envelope DecodeMessage(const DeviceRef &target, bool isRunning, std::string_view line);

// Logs the text and makes it an "error" answer.
Envelope errorAnswer(LogCategory category, std::string_view text);

} // namespace Tessel
