// The work of an Import stream.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/hooks.h"
#include "stream/event_store.h"
#include "stream/piece.h"

#include <cstdint>
#include <string>

namespace Tessel {

struct ImportState
{
    int64_t Offset = 0; // ps, added to the source's times
    const DeviceLookUp *Devices = nullptr;

    DeviceRef Source{};             // from the moment it has a run for this stage
    std::weak_ptr<Run> SourceRun{}; // whose importers this stage is among
    Loss SourceLosses{};            // what the source's run had lost when it was last looked at
    bool SourceOver = false;        // nothing more will come
    bool SourceFull = false;        // the source has more than there was room for
    EventStore Imported{};          // for a pass; times in ps, offset included, and channels of the source
    uint64_t Cursor = 0;            // first imported event that isn't dealt with
    uint64_t LastWritten = 0;       // ps
    bool Waits = false;             // an own event waits for imported ones that are later
};

template <>
inline constexpr Hook hooksOf<ImportState> =
    Hook::StartPass | Hook::FinishPass | Hook::Ready | Hook::BeforeTurn | Hook::Waits | Hook::Overrun;

bool isReady(ImportState &import, const StageRef &stage); // no lock is held
void startPass(ImportState &import, const StageRef &stage);
void beforeTurn(ImportState &import, const StageRef &stage); // no lock is held
bool waits(const ImportState &import, const StageRef &stage);
void logOverrun(const ImportState &import, const StageRef &stage, const Manipulator &next);
bool finishPass(ImportState &import, const StageRef &stage, EventStore *out);
uint64_t work(ImportState &import, const StageRef &stage, Piece in, EventStore &out);

// Whether the events of the device `from` come, directly or through other devices, from the device `to`.
bool importsFrom(const DeviceLookUp &devices, const DeviceRef &from, const std::string &to);

} // namespace Tessel
