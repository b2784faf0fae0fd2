// Parameters of the measurements, one set for each device. A run goes by the copy that it takes at its
// start.
#pragma once

#include <cstdint>

namespace Tessel {

struct HistogramParams // T2; in T3 the bin is the dtime
{
    uint64_t HistoBinWidth = 1; // ps
    uint8_t HistoRefChan = 0;   // ChannelCode
};

struct Histo2dParams // times in ps, channels as ChannelCode
{
    uint8_t H2dStartChan = 0; // reference, T2 only
    uint8_t H2dTotMode = 0;   // time over threshold: y is the difference of the two
    uint8_t H2dChanX = 1, H2dChanY = 2;
    uint64_t H2dOffsetX = 0, H2dOffsetY = 0;
    uint64_t H2dBinWidthX = 1, H2dBinWidthY = 1;
    uint64_t H2dNumBinsX = 100, H2dNumBinsY = 100;
    uint64_t H2dRecoveryMin = 0, H2dRecoveryMax = 1'000'000'000'000;
    uint64_t H2dRecoveryOffsetX = 0, H2dRecoveryOffsetY = 0;
    double H2dSlope = 0, H2dRecoverySlope = 0;
};

struct TimeTraceParams
{
    uint64_t TraceNumBins = 10000;
    uint64_t TraceHistorySize = 10'000'000'000'000; // ps
};

struct CorrelationParams
{
    uint32_t CorrMode = 0; // 0 g2, 1 FCS, 2 FFCS
    uint64_t CorrChan1 = 1, CorrChan2 = 2;
    uint64_t CorrWindow = 1'000'000; // ps, longest lag
    uint64_t CorrSteps = 40;         // FCS, FFCS
    uint64_t CorrBinWidth = 100;     // ps, g2
    uint64_t CorrMinLag = 50'000;    // ps, FCS and FFCS
    uint8_t CorrNormalize = 1;       // g2
    bool CorrFromStart = false;      // FCS, FFCS: counts before the longest lag has passed
};

struct MeasParams
{
    HistogramParams Histogram;
    Histo2dParams Histo2d;
    TimeTraceParams TimeTrace;
    CorrelationParams Correlation;
};

} // namespace Tessel
