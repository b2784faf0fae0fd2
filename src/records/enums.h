// The enumerations of a device.
#pragma once

#include <cstdint>

namespace Tessel {

enum class DeviceType : int32_t { None = -1, Instrument = 0, File = 1, Remote = 2 };

enum class LibType : int32_t { Undefined = -1, ZP = 0, CD = 1, SV40 = 2, LM70 = 3, CD90 = 4, Dummy = 1000 };

enum class MeasMode : int32_t { Histogramming = 0, T2 = 2, T3 = 3 };

enum class TrigMode : int32_t { Edge = 0, CFD = 1 };

namespace TrigFeature {
inline constexpr uint32_t Edge = 1, CFD = 2, Both = 3;
}

namespace Feature {
inline constexpr uint32_t DLL = 1, TTTR = 2, Markers = 4, LowRes = 8, TrigOut = 16, ProgTd = 32, ExtFPGA = 64,
                          ProgHyst = 128, EvntFilt = 256, InputMode = 512;
}

enum class StopReason : int32_t {
    SyncLost = -13,
    RefClkLost = -12,
    DataCheckFail = -11,
    DataXferFail = -10,
    QueueOverrun = -9,
    SysError = -8,
    Suspend = -7,
    OutOfMem = -6,
    FileError = -5,
    TcspcError = -4,
    LegacyErr = -3,
    FiFoOverrun = -2,
    Unknown = -1,
    TimeOver = 0,
    Manual = 1,
    OverFlow = 2,
    Error = 3,
};

} // namespace Tessel
