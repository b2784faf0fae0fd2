// Every span of time that a thread waits for. Each is one that a host or an instrument can see; a wait for
// another thread of this process is a condition variable.
#pragma once

#include <chrono>
#include <cstdint>

namespace Tessel::Pace {

using namespace std::chrono_literals;

// Rhythms.
inline constexpr auto settle = 300ms;       // of an instrument, before data flow
inline constexpr auto importSearch = 10ms;  // between two looks for a source that a host may still start
inline constexpr auto liveRoom = 1ms;       // of a full store, for a stage with live data
inline constexpr auto instrumentPass = 1ms; // between two reads of an instrument
inline constexpr auto shortPass = 10ms;     // beside it in histogramming for less than a second
inline constexpr auto lastData = 10ms;      // the same, once its acquisition timer has run out
inline constexpr auto publish = 1ms;        // between two looks for new data to give out
inline constexpr auto hostsCount = 1ms; // before the next look at a count that the host itself may set back,
inline constexpr auto longestHostsCount = 32ms; // up to this for a host that is slow
inline constexpr auto afterFailure = 100ms; // of an I/O thread, or before the next peer where there was no room
inline constexpr auto fileWrite = 20ms;     // words that don't fill a block wait so long for the disc

// How long is waited for what may never come.
inline constexpr auto stagesEnter = 10s;    // every stage of a run
inline constexpr auto sourceMeasures = 10s; // the run of an import source
inline constexpr auto stageLeaves = 100s;   // a stage that is deleted
inline constexpr auto lastRoom = 1s;        // room for the last words of an instrument
inline constexpr auto counting = 500ms;     // of what a stopped run has read; then it is aborted
inline constexpr auto consumerTakes = 5s;   // a stopped run whose host fetches no block is aborted
inline constexpr auto firstBatch = 1s;      // of a run that is in the way: until its first events come through
inline constexpr auto nextBatch = 500ms;    // of a run that is in the way: until the next ones do
inline constexpr auto draining = 2s;        // of a run that is in the way, at most
inline constexpr auto aborting = 10s;       // an aborted run; an instrument that is closed
inline constexpr auto slowDisc = 5s;        // what an aborted run has still to write; then it is dropped
inline constexpr auto hungDisc = 500ms;     // one write, after that
inline constexpr auto hungCloses = 500ms;   // an instrument whose run hangs; a run after others took all time
inline constexpr auto libraryAnswers = 10s; // a device that is in a call, for a scan or an opening
inline constexpr auto peerAnswers = 30s;    // a peer, for the end of a line and with taking one
inline constexpr auto lingering = 1s;       // a peer that is turned out, until it has read why
inline constexpr auto serverReached = 5s;   // a server, with the configurations of its devices
inline constexpr auto serverAnswers = 1s;   // a server, before the next message goes out

inline constexpr int32_t longestAcquisitionMs = 360'000'000; // 100 hours; an endless run is capped here

} // namespace Tessel::Pace
