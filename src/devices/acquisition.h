// What holds for a whole measurement: binning, histogram length, stop, start control, outputs. See sync.h for
// what all setters share.
#pragma once

#include "records/context.h"
#include "records/device.h"

#include <cstdint>

namespace Tessel {

bool SetTimingMode(Device &device, int32_t mode); // 0 high resolution, 1 low; SV40 only
// 0: no stop. In a sequence by count the measure thread sets counts of its own, and none is remembered.
bool SetStopOverflow(Device &device, const MeasContext &context, uint32_t stopCount, bool trace);
// Histogramming and T3. The resolution is read again, whatever came of it.
bool SetBinning(Device &device, int32_t binning);
bool SetOffset(Device &device, int32_t offset); // ps; histogramming and T3
// -1: the family's longest. T2 and T3 only get another NumBins, without a call, and answer false.
bool SetHistoLength(Device &device, int32_t code);
bool SetMeasControl(Device &device, int32_t control, int32_t startEdge, int32_t stopEdge);
bool SetTriggerOutput(Device &device, int32_t period);
bool SetLEDBrightness(Device &device, int32_t level);     // 0 to 2; CD90 only
bool SetOflCompression(Device &device, int32_t holdTime); // ms; T2 and T3

} // namespace Tessel
