// The operations that all five instrument libraries have with one argument list. `idx` is the port.
#pragma once

#include "devices/libs/operation.h"

namespace Tessel {

struct CommonOperations : InstrumentLibrary
{
    using InstrumentLibrary::InstrumentLibrary;

    // Room for texts: 64 bytes for a version, an error or a serial number, 32 each for the hardware.
    Operation<int32_t(char *version)> GetLibraryVersion{*this, "GetLibraryVersion"};
    Operation<int32_t(char *text, int32_t code)> GetErrorString{*this, "GetErrorString"};
    Operation<int32_t(int32_t idx, char *serial)> OpenDevice{*this, "OpenDevice"};
    Operation<int32_t(int32_t idx)> CloseDevice{*this, "CloseDevice"};
    Operation<int32_t(int32_t idx, char *model, char *partNo, char *version)> GetHardwareInfo{
        *this, "GetHardwareInfo"};
    Operation<int32_t(int32_t idx, int32_t *bits)> GetFeatures{*this, "GetFeatures"};
    Operation<int32_t(int32_t idx, double *ps, int32_t *binSteps)> GetBaseResolution{*this,
                                                                                     "GetBaseResolution"};
    Operation<int32_t(int32_t idx, double *ps)> GetResolution{*this, "GetResolution"};
    Operation<int32_t(int32_t idx, int32_t *count)> GetNumOfInputChannels{*this, "GetNumOfInputChannels"};

    Operation<int32_t(int32_t idx, int32_t acqTimeMs)> StartMeas{*this, "StartMeas"};
    Operation<int32_t(int32_t idx)> StopMeas{*this, "StopMeas"};
    // 0 while the acquisition timer runs, 1 after that.
    Operation<int32_t(int32_t idx, int32_t *status)> CTCStatus{*this, "CTCStatus"};
    Operation<int32_t(int32_t idx)> ClearHistMem{*this, "ClearHistMem"};
    Operation<int32_t(int32_t idx, int32_t *flags)> GetFlags{*this, "GetFlags"};
    Operation<int32_t(int32_t idx, int32_t *warnings)> GetWarnings{*this, "GetWarnings"};
    Operation<int32_t(int32_t idx, char *text, int32_t warnings)> GetWarningsText{*this,
                                                                                  "GetWarningsText"}; // 64 KiB
    Operation<int32_t(int32_t idx, double *elapsed)> GetElapsedMeasTime{*this, "GetElapsedMeasTime"};
    Operation<int32_t(int32_t idx, double *seconds)> GetSyncPeriod{*this, "GetSyncPeriod"};
    Operation<int32_t(int32_t idx, int32_t *rate)> GetSyncRate{*this, "GetSyncRate"};

    Operation<int32_t(int32_t idx, int32_t divider)> SetSyncDiv{*this, "SetSyncDiv"};
    Operation<int32_t(int32_t idx, int32_t ps)> SetSyncChannelOffset{*this, "SetSyncChannelOffset"};
    Operation<int32_t(int32_t idx, int32_t on, uint32_t count)> SetStopOverflow{*this, "SetStopOverflow"};
    Operation<int32_t(int32_t idx, int32_t binning)> SetBinning{*this, "SetBinning"};
    Operation<int32_t(int32_t idx, int32_t offset)> SetOffset{*this, "SetOffset"};
    Operation<int32_t(int32_t idx, int32_t code, int32_t *numBins)> SetHistoLen{*this, "SetHistoLen"};
    Operation<int32_t(int32_t idx, int32_t control, int32_t startEdge, int32_t stopEdge)> SetMeasControl{
        *this, "SetMeasControl"};
    Operation<int32_t(int32_t idx, int32_t edge1, int32_t edge2, int32_t edge3, int32_t edge4)> SetMarkerEdges{
        *this, "SetMarkerEdges"};
    Operation<int32_t(int32_t idx, int32_t on1, int32_t on2, int32_t on3, int32_t on4)> SetMarkerEnable{
        *this, "SetMarkerEnable"};
    Operation<int32_t(int32_t idx, int32_t time)> SetMarkerHoldoffTime{*this, "SetMarkerHoldoffTime"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t ps)> SetInputChannelOffset{*this,
                                                                                       "SetInputChannelOffset"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t on)> SetInputChannelEnable{*this,
                                                                                       "SetInputChannelEnable"};
};

} // namespace Tessel
