// `TagDictionary`: the constant table of every tag that a header may hold, addressed by row number.
#pragma once

#include "datafiles/tag.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace Tessel {

inline constexpr uint32_t tagRowCount = 372;
inline constexpr uint16_t dictionaryVersion = 8;

// Bound of a tag's index: none, a row whose value is the number of entries, or the negated number itself.
inline constexpr int32_t anyIndex = -2147483647;

enum class ExtensionKind : int8_t { Text = -1, None = 0, Number = 1 };

struct TagRow
{
    std::string_view Name; // or a printf-like pattern: %s, %3.3d, %2.2d, %8.8X
    TagType Type;
    int32_t IndexBound = 0;
    bool FastLoad = false;     // belongs before `Fast_Load_End`
    bool SizeDefining = false; // its value is the number of entries of other rows
    Tessel::ExtensionKind ExtensionKind = ExtensionKind::None;
    int16_t ExtensionBound = 0; // row whose value bounds a numeric extension
    uint16_t LastVersion = 9999;
};

extern const std::array<TagRow, tagRowCount> TagDictionary;

// The first row of that name; row 0, which no header takes, if there is none.
uint32_t rowOfTag(std::string_view name);

// Rows that a header is written from, beside those of the device's fields.
namespace TagId {
enum : uint32_t {
    File_GUID = 1,
    File_CreatingTime = 7,
    Measurement_SubMode = 12,
    CreatorSW_Name = 14,
    CreatorSW_Version = 15,
    CreatorSW_Modules = 17,
    CreatorSW_ModuleName = 18,
    CreatorSW_ModuleVers = 19,
    CreatorSW_SVNBuild = 20,
    HW_InpChannels = 34,
    HW_Markers = 45,
    HW_RefClockSource = 79,
    HW_MainFiltChan_Pass = 86,
    HW_MainFiltChan_Used = 87,
    HW_MainFiltSync_Pass = 88,
    HW_MainFiltSync_Used = 89,
    HW_MainFilt_Enabled = 90,
    HW_MainFilt_Inverse = 91,
    HW_MainFilt_MatchCount = 92,
    HW_MainFilt_TimeRange = 93,
    MeasDesc_AcquisitionTime = 94,
    MeasDesc_BinningFactor = 95,
    MeasDesc_GlobalResolution = 96,
    MeasDesc_StartTime = 101,
    TTResult_StopReason = 154,
    TTResult_InputRate = 155,
    TTResult_MDescWarningFlags = 156,
    TTResult_NumberOfRecords = 157,
    TTResult_StopAfter = 158,
    TTResult_SyncRate = 159,
    TTResultFormat_BitsPerRecord = 160,
    TTResultFormat_TTTRRecType = 170,
    Fast_Load_End = 370,
    Header_End = 371,
};
}

} // namespace Tessel
