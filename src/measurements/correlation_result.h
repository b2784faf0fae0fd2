// The curves of a correlation. ManisLock is held.
#pragma once

#include "measurements/correlation_work.h"

namespace Tessel {

// Writes the curves to `y`; nothing as long as no event has been counted.
void giveOutCurves(const CorrelationWork &work, double *y);

// Empties rows and counts. What the rings hold stays: it pairs with what comes.
void clearCorrelation(CorrelationWork &work);

} // namespace Tessel
