// The threads of the measurements, one a kind; each lives for one run.
#pragma once

#include "records/refs.h"

namespace Tessel {

void HistoThread(RunRef run);
void CorrThread(RunRef run);
void Histo2dThread(RunRef run);
void TimeTraceThread(RunRef run);
void UnfoldThread(RunRef run);

struct MeasurementThread
{
    const char *Name = "";
    void (*Body)(RunRef) = nullptr; // null: the kind has none
};

MeasurementThread threadOf(MeasKind kind);

} // namespace Tessel
