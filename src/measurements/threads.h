// The threads of the measurements, one a kind; each lives for one run.
#pragma once

#include "measurements/run_ref.h"

namespace Tessel {

void HistoThread(RunRef run);
void CorrThread(RunRef run);
void Histo2dThread(RunRef run);
void TimeTraceThread(RunRef run);
void UnfoldThread(RunRef run);

} // namespace Tessel
