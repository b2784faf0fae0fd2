// The work of an Import stream.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/piece.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel {

struct ImportState
{
    int64_t Offset = 0; // ps, added to the source's times

    DeviceRef Source;              // held from the moment it has a run for this stage
    bool SourceOver = false;       // nothing more will come
    std::vector<uint64_t> Times;   // ps, offset included
    std::vector<uint8_t> Channels; // of the source
    uint64_t Cursor = 0;           // first imported event that isn't dealt with
    uint64_t LastWritten = 0;      // ps
    bool Waits = false;            // an own event waits for imported ones that are later
};

bool isReady(ImportState &import, const StageRef &stage);    // no lock is held
void beforeTurn(ImportState &import, const StageRef &stage); // no lock is held
bool waits(const ImportState &import);

void startPass(ImportState &import, const StageRef &);
uint64_t work(ImportState &import, const StageRef &stage, Piece in, EventStore &out);
void afterPiece(ImportState &, const StageRef &, Piece);
void clear(ImportState &);
bool finishPass(ImportState &, const StageRef &, EventStore *);

// Whether the events of the device `from` come, directly or through other devices, from the device `to`.
bool importsFrom(const DeviceRef &from, const std::string &to);

} // namespace Tessel
