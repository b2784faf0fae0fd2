// The curves of a correlation. ManisLock is held.
#pragma once

#include "measurements/correlation_work.h"

namespace Tessel {

// Elements of the caller's y array.
uint64_t curveSize(const CorrelationWork &work);

// Writes the curves to `y`; nothing as long as no event has been counted.
void giveOutCurves(const CorrelationWork &work, double *y);

// Empties rows and counts, and the curves where `y` isn't null. What the rings hold stays: it pairs with what
// comes.
void clearCorrelation(CorrelationWork &work, double *y);

} // namespace Tessel
