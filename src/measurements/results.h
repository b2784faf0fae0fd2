// The result of a run in the caller's memory: its size, giving it out, emptying it. One branch a kind.
#pragma once

#include "records/refs.h"

namespace Tessel {

// Whether the kind gives out results that grow during the run.
bool hasResult(MeasKind kind);

// Empties the caller's result and notes its size, at the start of a run. ManisLock and ResultLock are held.
// False, with an error in the log, if there can be no such result.
bool sizeResult(RunRef &run);

// Makes what the run counts with. ManisLock is held. False, with an error in the log: there is no memory for
// it.
bool makeWork(RunRef &run);

// Brings what was counted into the caller's result, where that isn't counted into directly. ManisLock and
// ResultLock are held.
void giveOutResult(RunRef &run);

// Every lock of the chain is held.
void zeroResult(MeasContext &context, Run &run);

// Whether the run's parameters can be measured with; false, with an error in the log, if a number that the
// measurement divides by is 0.
bool checkParams(const RunRef &run);

} // namespace Tessel
