// The curves of a correlation. ManisLock is held.
#pragma once

#include "measurements/correlation_work.h"

namespace Tessel {

// Writes the curves to `y`; nothing as long as no event has been counted.
void giveOutCurves(const CorrelationWork &work, double *y);

// Empties rows and counts. The times in the rings stay: they pair with events to come.
void clearCorrelation(CorrelationWork &work);

} // namespace Tessel
