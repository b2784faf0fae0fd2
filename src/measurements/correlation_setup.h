// Parameters of a correlation as a host gives them, and the lag axis and what is counted with, which follow
// from them.
#pragma once

#include "measurements/correlation_work.h"
#include "measurements/measurement_steps.h"
#include "records/facts.h"

#include <memory>

namespace Tessel {

// The bin width of g2 in ps, between the device's resolution and 1e9.
double limitedBinWidth(const StreamFacts &facts, double binWidth);

// Elements of a row of g2.
uint64_t g2Bins(const CorrelationParams &params);

// The grid of FCS and FFCS.
LagGrid lagGridOf(const StreamFacts &facts, const CorrelationParams &params);

// The caller's y values. g2: both halves as one row; FCS, FFCS: three curves.
ResultShape curveShape(const StreamFacts &facts, const CorrelationParams &params);

// Throws if there is no memory.
std::shared_ptr<CorrelationWork> setUpCorrelation(const StreamFacts &facts, const CorrelationParams &params);

// The x axis in seconds: g2 the centres of 2 x g2Bins ascending bins; FCS, FFCS the lag centres but the last.
void fillLagAxis(const StreamFacts &facts, const CorrelationParams &params, double *x);

} // namespace Tessel
