// The rows of the dictionary, in row order.
#include "datafiles/tag_dictionary.h"

#include <algorithm>

namespace Tessel {

using enum TagType;

namespace {

// Rows whose value bounds the index or the extension of others.
constexpr int32_t CreatorSW_Modules = TagId::CreatorSW_Modules;
constexpr int32_t HW_InpChannels = TagId::HW_InpChannels;
constexpr int32_t HW_Markers = TagId::HW_Markers;
constexpr int32_t HW_Modules = 49;
constexpr int32_t HWRouter_Channels = 52;
constexpr int32_t MeasDesc_Params = 104;
constexpr int32_t HistoResult_NumberOfCurves = 173;
constexpr int32_t CurSWSetting_DispCurves = 256;
constexpr int32_t AnaChCount = 281;
constexpr int32_t ChromophoreCount = 288;
constexpr int32_t DetectorCount = 290;
constexpr int32_t LaserCount = 301;
constexpr int32_t PIENumPIEWindows = 307;
constexpr int32_t SeriesDimension = 311;
constexpr int32_t ChkChannels = 354;
constexpr int32_t ChkFrameMarkers = 355;
constexpr int16_t HistResDscr_HWModules = 202;

constexpr TagRow row(std::string_view name, TagType type, int32_t indexBound = 0)
{
    return {.Name = name, .Type = type, .IndexBound = indexBound};
}

constexpr TagRow fast(std::string_view name, TagType type, int32_t indexBound = 0)
{
    return {.Name = name, .Type = type, .IndexBound = indexBound, .FastLoad = true};
}

constexpr TagRow count(std::string_view name)
{
    return {.Name = name, .Type = Int8, .SizeDefining = true};
}

constexpr TagRow named(std::string_view pattern, TagType type, int32_t indexBound = 0)
{
    return {.Name = pattern, .Type = type, .IndexBound = indexBound, .ExtensionKind = ExtensionKind::Text};
}

constexpr TagRow numbered(std::string_view pattern, TagType type, int32_t indexBound = 0, int16_t bound = 0)
{
    return {.Name = pattern,
            .Type = type,
            .IndexBound = indexBound,
            .ExtensionKind = ExtensionKind::Number,
            .ExtensionBound = bound};
}

constexpr TagRow retired(TagRow tag, uint16_t lastVersion)
{
    tag.LastVersion = lastVersion;
    return tag;
}

} // namespace

constinit const std::array<TagRow, tagRowCount> TagDictionary = {{
    // 0: file, measurement, creator
    retired(row("<no_tag>", Empty8), 0),
    fast("File_GUID", AnsiString),
    row("File_DictVersionIdent", AnsiString),
    fast("File_AssuredContent", AnsiString),
    fast("File_Comment", AnsiString),
    fast("File_Comment", WideString),
    fast("File_CreatingTime", AnsiString),
    fast("File_CreatingTime", TDateTime),
    fast("File_ParentResult_GUID", AnsiString, anyIndex),
    fast("File_RawData_GUID", AnsiString, anyIndex),
    row("File_EditedBy", AnsiString),
    fast("Measurement_Mode", Int8),
    fast("Measurement_SubMode", Int8),
    fast("CreatorSW_ContentVersion", AnsiString),
    fast("CreatorSW_Name", AnsiString),
    fast("CreatorSW_Version", AnsiString),
    row("CreatorSW_LicenceGUID", AnsiString),
    count("CreatorSW_Modules"),
    row("CreatorSW_ModuleName", AnsiString, CreatorSW_Modules),
    row("CreatorSW_ModuleVers", AnsiString, CreatorSW_Modules),
    row("CreatorSW_SVNBuild", Int8),

    // 21: remote request and generic
    fast("$StartedByRemoteInterface", Bool8),
    row("$ReqHdr_MeasurementType", Int8),
    row("$ReqHdr_PixelNumber_X", Int8),
    row("$ReqHdr_PixelNumber_Y", Int8),
    row("$ReqHdr_RecordVersion", Int8),
    row("$ReqHdr_ScanningPattern", Int8),
    row("$ReqHdr_SpatialResolution", Float8),
    row("$Comment", AnsiString),
    row("$Filename", AnsiString),
    row("$Groupname", AnsiString),
    named("$%s", AnsiString),
    named("$%s", Float8),
    named("$%s", Int8),

    // 34: hardware
    count("HW_InpChannels"),
    row("HWInpChan_CFDLevel", Int8, HW_InpChannels),
    row("HWInpChan_CFDZeroCross", Int8, HW_InpChannels),
    row("HWInpChan_Enabled", Bool8, HW_InpChannels),
    row("HWInpChan_ModuleIdx", Int8, HW_InpChannels),
    row("HWInpChan_Name", AnsiString, HW_InpChannels),
    row("HWInpChan_Offset", Int8, HW_InpChannels),
    row("HWInpChan_TdCode", Int8, HW_InpChannels),
    row("HWInpChan_TrgEdge", Int8, HW_InpChannels),
    row("HWInpChan_TrgLevel", Int8, HW_InpChannels),
    row("HWInpChan_TrgMode", Int8, HW_InpChannels),
    count("HW_Markers"),
    row("HWMarkers_Enabled", Bool8, HW_Markers),
    row("HWMarkers_HoldOff", Int8),
    row("HWMarkers_RisingEdge", Bool8, HW_Markers),
    count("HW_Modules"),
    row("HWModule_TypeCode", Int8, HW_Modules),
    row("HWModule_VersCode", Int8, HW_Modules),
    count("HWRouter_Channels"),
    row("HWRouterChan_CFDLevel", Int8, HWRouter_Channels),
    row("HWRouterChan_CFDPresent", Bool8, HWRouter_Channels),
    row("HWRouterChan_CFDZeroCross", Int8, HWRouter_Channels),
    row("HWRouterChan_InputLevel", Int8, HWRouter_Channels),
    row("HWRouterChan_InputType", Int8, HWRouter_Channels),
    row("HWRouterChan_Offset", Int8, HWRouter_Channels),
    row("HWRouterChan_RisingEdge", Bool8, HWRouter_Channels),
    row("HWRouter_Enabled", Bool8),
    row("HWRouter_ModelCode", Int8),
    row("HWRouter_Version", AnsiString),
    row("HWSync_CFDLevel", Int8),
    row("HWSync_CFDZeroCross", Int8),
    row("HWSync_Divider", Int8),
    row("HWSync_Offset", Int8),
    row("HWSync_TdCode", Int8),
    row("HWSync_TrgEdge", Int8),
    row("HWSync_TrgLevel", Int8),
    row("HWSync_TrgMode", Int8),
    row("HWTriggerOut_On", Bool8),
    row("HWTriggerOut_Period", Float8),
    row("HW_BaseResolution", Float8),
    row("HW_ExternalDevices", Int8),
    row("HW_ExternalRefClock", Bool8),
    row("HW_Features", BitSet64),
    row("HW_InputHysteresis", Bool8),
    row("HW_PartNo", AnsiString),
    row("HW_RefClockSource", Int8),
    retired(row("HW_RoutingChannels", Int8), 1),
    row("HW_SerialNo", AnsiString),
    row("HW_SerialNo", Int8),
    row("HW_Timingmode", Int8),
    row("HW_Type", AnsiString),
    row("HW_Version", AnsiString),
    row("HW_MainFiltChan_Pass", Bool8, HW_InpChannels),
    row("HW_MainFiltChan_Used", Bool8, HW_InpChannels),
    row("HW_MainFiltSync_Pass", Bool8),
    row("HW_MainFiltSync_Used", Bool8),
    row("HW_MainFilt_Enabled", Bool8),
    row("HW_MainFilt_Inverse", Bool8),
    row("HW_MainFilt_MatchCount", Int8),
    row("HW_MainFilt_TimeRange", Int8),

    // 94: measurement description
    row("MeasDesc_AcquisitionTime", Int8),
    row("MeasDesc_BinningFactor", Int8),
    row("MeasDesc_GlobalResolution", Float8),
    row("MeasDesc_InvalidSync", Bool8),
    row("MeasDesc_Offset", Int8),
    row("MeasDesc_Resolution", Float8),
    row("MeasDesc_Restart", Bool8),
    row("MeasDesc_StartTime", Int8, -3),
    row("MeasDesc_StopAt", Int8),
    row("MeasDesc_StopOnOvfl", Bool8),
    count("MeasDesc_Params"),
    row("MeasDesc_Param_Device", AnsiString, MeasDesc_Params),
    row("MeasDesc_Param_Name", AnsiString, MeasDesc_Params),
    row("MeasDesc_Param_Start", Float8, MeasDesc_Params),
    row("MeasDesc_Param_Step", Float8, MeasDesc_Params),
    row("MeasDesc_Param_Stop", Float8, MeasDesc_Params),
    row("MeasDesc_Param_TagName", AnsiString, MeasDesc_Params),
    row("MeasDesc_Param_Unit", AnsiString, MeasDesc_Params),
    row("MeasDesc_SeqExecutablePath", AnsiString),
    row("MeasDesc_SeqExecutablePath", WideString),
    row("MeasDesc_SeqHideExecutableWnd", Bool8),
    row("MeasDesc_SeqNCycles", Int8),
    row("MeasDesc_SeqPause", Int8),
    row("MeasDesc_SeqRunExecutable", Bool8),

    // 118: image header
    row("ImgHdr_Acceleration", Int8),
    row("ImgHdr_BiDirect", Bool8),
    row("ImgHdr_Dimensions", Int8),
    row("ImgHdr_Frame", Int8),
    row("ImgHdr_Ident", Int8),
    row("ImgHdr_LearningTime", Int8),
    row("ImgHdr_LineFrequency", Float8),
    row("ImgHdr_LineStart", Int8),
    row("ImgHdr_LineStop", Int8),
    row("ImgHdr_MaxFrames", Int8),
    row("ImgHdr_ObjectiveName", AnsiString),
    row("ImgHdr_PixResol", Float8),
    row("ImgHdr_PixX", Int8),
    row("ImgHdr_PixY", Int8),
    row("ImgHdr_PrevPix", Int8),
    row("ImgHdr_ScanDirection", Int8),
    row("ImgHdr_SinCorrection", Int8),
    row("ImgHdr_TimePerLine", Float8),
    row("ImgHdr_TimePerPixel", Int8),
    row("ImgHdr_TStartFro", Float8),
    row("ImgHdr_TStartTo", Float8),
    row("ImgHdr_TStopFro", Float8),
    row("ImgHdr_TStopTo", Float8),
    row("ImgHdr_Velocity", Int8),
    row("ImgHdr_X0", Float8),
    row("ImgHdr_X1", Float8),
    row("ImgHdr_XCalibOffset", Float8),
    row("ImgHdr_XCalibration", Float8),
    row("ImgHdr_Y0", Float8),
    row("ImgHdr_Y1", Float8),
    row("ImgHdr_YCalibOffset", Float8),
    row("ImgHdr_YCalibration", Float8),
    row("ImgHdr_Z0", Float8),
    row("ImgHdr_Z1", Float8),
    row("ImgHdr_ZCalibOffset", Float8),
    row("ImgHdr_ZCalibration", Float8),

    // 154: time-tagged results and record format
    fast("TTResult_StopReason", Int8),
    row("TTResult_InputRate", Int8, HW_InpChannels),
    row("TTResult_MDescWarningFlags", BitSet64),
    row("TTResult_NumberOfRecords", Int8),
    row("TTResult_StopAfter", Int8),
    row("TTResult_SyncRate", Int8),
    row("TTResultFormat_BitsPerRecord", Int8),
    row("TTResultFormat_ChannelMask", Int8),
    row("TTResultFormat_ChannelShift", Int8),
    row("TTResultFormat_DTimeMask", Int8),
    row("TTResultFormat_DTimeShift", Int8),
    row("TTResultFormat_MarkerMask", Int8),
    row("TTResultFormat_MarkerShift", Int8),
    row("TTResultFormat_NSyncMask", Int8),
    row("TTResultFormat_NSyncShift", Int8),
    row("TTResultFormat_SpecialMask", Int8),
    row("TTResultFormat_TTTRRecType", Int8),
    row("TTResultFormat_WrapAround", Int8),

    // 172: histogram results
    row("HistoResult_BitsPerBin", Int8),
    count("HistoResult_NumberOfCurves"),
    row("HistResDscr_CurveIndex", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_CurveName", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_DataOffset", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_DataType", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_DT_SubIdx", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_DeviceType", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_FilePath", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_HistCountRate", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HistogramBins", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWBaseResolution", Float8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWExternalDevices", BitSet64, HistoResult_NumberOfCurves),
    row("HistResDscr_HWExternalRefClock", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWFeatures", BitSet64, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanCFDLevel", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanCFDZCross", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanIdx", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanModuleIdx", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChannels", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChannelsEnabld", BitSet64, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanOffset", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanTdCode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanTrgEdge", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanTrgLevel", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInpChanTrgMode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWInputHysteresis", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWMarkers", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWMarkers_Enabled", BitSet64, HistoResult_NumberOfCurves),
    row("HistResDscr_HWMarkers_Rising", BitSet64, HistoResult_NumberOfCurves),
    row("HistResDscr_HWModules", Int8, HistoResult_NumberOfCurves),
    numbered("HistResDscr_HWModuleTypeCode%2.2d", Int8, HistoResult_NumberOfCurves, HistResDscr_HWModules),
    numbered("HistResDscr_HWModuleVersCode%2.2d", Int8, HistoResult_NumberOfCurves, HistResDscr_HWModules),
    row("HistResDscr_HWPartNo", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRouterChannelIdx", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRouterEnabled", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRouterModelCode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRtChanCFDLevel", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRtChanCFDPresent", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRtChanCFDZCross", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRtChanInputLevel", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRtChanInputType", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRtChanOffset", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWRtChanRisingEdge", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSerialNo", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncCFDLevel", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncCFDZeroCross", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncDivider", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncOffset", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncTdCode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncTrgEdge", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncTrgLevel", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWSyncTrgMode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWTimingmode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWTriggerOutOn", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWTriggerOutPeriod", Float8, HistoResult_NumberOfCurves),
    row("HistResDscr_HWType", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_HWVersion", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_InputRate", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_IntegralCount", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_IsMem", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescAcquisTime", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescBinningFactor", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescMode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescOffset", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescResolution", Float8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescRestart", Bool8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescStopAfter", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescStopReason", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescSubMode", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_MDescWarningFlags", BitSet64, HistoResult_NumberOfCurves),
    row("HistResDscr_NameChanA", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_NameChanB", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_RawData_GUID", AnsiString, HistoResult_NumberOfCurves),
    row("HistResDscr_SyncRate", Int8, HistoResult_NumberOfCurves),
    row("HistResDscr_t0", Float8, HistoResult_NumberOfCurves),
    row("HistResDscr_TimeOfRecording", TDateTime, HistoResult_NumberOfCurves),
    named("Par%s", Float8, HistoResult_NumberOfCurves),
    named("Par%s", Float8),

    // 251: software display settings
    row("CurSWSetting_ActiveCurve", Int8),
    row("CurSWSetting_DispAxisCountFrom", Int8),
    row("CurSWSetting_DispAxisCountTo", Int8),
    row("CurSWSetting_DispAxisTimeFrom", Int8),
    row("CurSWSetting_DispAxisTimeTo", Int8),
    count("CurSWSetting_DispCurves"),
    row("CurSWSetting_DispCurve_MapTo", Int8, CurSWSetting_DispCurves),
    row("CurSWSetting_DispCurve_Show", Bool8, CurSWSetting_DispCurves),
    row("CurSWSetting_DispLog", Bool8),

    // 260: laser driver
    row("Orv2_FirmwareVersion", AnsiString),
    row("Orv2_SerialNo", AnsiString),
    numbered("Orv2_SCM_%3.3d_SerialNo", AnsiString),
    numbered("Orv2_SLM_%3.3d_CW_PulseDisable", Bool8),
    numbered("Orv2_SLM_%3.3d_FineIntensity", Int8),
    numbered("Orv2_SLM_%3.3d_HeadType", AnsiString),
    retired(numbered("Orv2_SLM_%3.3d_Intensity", Int8), 3),
    numbered("Orv2_SLM_%3.3d_SerialNo", AnsiString),
    numbered("Orv2_SLM_%3.3d_TriggerIndex", Int8),
    numbered("Orv2_SOM_%3.3d_BaseOscFreq", Float8),
    numbered("Orv2_SOM_%3.3d_Divider", Int8),
    numbered("Orv2_SOM_%3.3d_InvSyncMask", Bool8),
    numbered("Orv2_SOM_%3.3d_PreSync", Int8),
    numbered("Orv2_SOM_%3.3d_Seq_BurstLen", Int8, -8),
    numbered("Orv2_SOM_%3.3d_Seq_EnaOutput", Bool8, -8),
    numbered("Orv2_SOM_%3.3d_Seq_EnaSync", Bool8, -8),
    numbered("Orv2_SOM_%3.3d_SerialNo", AnsiString),
    numbered("Orv2_SOM_%3.3d_SyncMask", Int8),
    numbered("Orv2_SOM_%3.3d_TrigEdge", Bool8),
    numbered("Orv2_SOM_%3.3d_TrigLevel", Int8),

    // 280: analysis and series
    row("AnaChColor", Color8, AnaChCount),
    count("AnaChCount"),
    row("AnaChDetectors", AnsiString, AnaChCount),
    row("AnaChLgChannel", AnsiString, AnaChCount),
    row("AnaChName", WideString, AnaChCount),
    row("AnaChPIEIdx", Int8, AnaChCount),
    row("AnaChTCSPCCh", AnsiString, AnaChCount),
    row("AssociatedImageGUID", AnsiString),
    count("ChromophoreCount"),
    row("Chromophore", WideString, ChromophoreCount),
    count("DetectorCount"),
    row("Detector", AnsiString, DetectorCount),
    row("DetectorNumTCSPCChan", Int8, DetectorCount),
    row("DetectorTCSPCChan", Int8, DetectorCount),
    row("DetectorInUse", Bool8, DetectorCount),
    row("FCSCorrelationChannels", AnsiString, -2),
    row("FCSCorrelationChannelName", WideString, -2),
    row("FCSMaxLagTime", Float8),
    row("FCSNSub", Int8),
    row("ImgSamplePosX", Float8),
    row("ImgSamplePosY", Float8),
    count("LaserCount"),
    row("LaserName", AnsiString, LaserCount),
    row("LaserWL", Float8, LaserCount),
    row("LSDDevice", AnsiString),
    row("MeasurementType", AnsiString),
    row("PIEMaxChannel", Int8),
    count("PIENumPIEWindows"),
    row("PIETimeGate", Int8, PIENumPIEWindows),
    row("SeriesAsRange", Bool8, SeriesDimension),
    row("SeriesCurrent", Int8, SeriesDimension),
    count("SeriesDimension"),
    row("SeriesEnd", Float8, SeriesDimension),
    row("SeriesIdent", AnsiString, SeriesDimension),
    row("SeriesIdentUnit", AnsiString, SeriesDimension),
    row("SeriesLabel", AnsiString, SeriesDimension),
    row("SeriesStart", Float8, SeriesDimension),
    row("SeriesSteps", Int8, SeriesDimension),
    row("SeriesTimePoint", Float8),
    row("SeriesValues", Float8Array),
    row("SeriesWaitTime", Float8, SeriesDimension),
    row("SMVRAccumulateFrames", Bool8),
    row("SMVRBinWidths", Float8Array),
    row("SMVRChannels", AnsiString),
    row("SMVRDirectoryPosition", Int8),
    row("SMVRPrevImage", BinaryBlob),
    row("SMVRPrevImageLink", Int8),
    row("SMVRRecordFormat", Int8),
    row("SystemSerial", AnsiString),
    row("UseFLCSBkgr", Bool8),

    // 330: script variables
    fast("VarResultType", Int8),
    fast("VarScriptIdent", AnsiString),
    named("Var%s", AnsiString),
    named("Var%s", Bool8),
    named("Var%s", BinaryBlob),
    named("Var%s", Color8),
    named("Var%s", Float8),
    named("Var%s", Float8Array),
    named("Var%s", Int8),
    named("Var%s", BitSet64),
    named("Var%s", TDateTime),
    named("Var%s", WideString),
    named("Ctx%s", Int8),

    // 343: user and check tags
    row("UsrOverviewGUID", AnsiString),
    named("Usr%s", AnsiString),
    named("Usr%s", Bool8),
    named("Usr%s", BinaryBlob),
    named("Usr%s", Color8),
    named("Usr%s", Float8),
    named("Usr%s", Float8Array),
    named("Usr%s", Int8),
    named("Usr%s", BitSet64),
    named("Usr%s", TDateTime),
    named("Usr%s", WideString),
    count("ChkChannels"),
    count("ChkFrameMarkers"),
    row("ChkFrameRecord", Int8, ChkFrameMarkers),
    row("ChkHistogram", BinaryBlob),
    row("ChkMaxTimeTag", Int8),
    row("ChkUsedChannel", Int8, ChkChannels),

    // 360: defaults and end
    row("Defaults_Begin", Empty8),
    numbered("MVHT_%8.8X_Group", AnsiString),
    numbered("MVHT_%8.8X_ValidSince", TDateTime),
    named("%s", AnsiString),
    named("%s", Bool8),
    named("%s", Color8),
    named("%s", Float8),
    named("%s", Int8),
    named("%s", BitSet64),
    named("%s", WideString),
    fast("Fast_Load_End", Empty8),
    row("Header_End", Empty8),
}};

uint32_t rowOfTag(std::string_view name)
{
    auto row = std::ranges::find(TagDictionary, name, &TagRow::Name);
    return row == TagDictionary.end() ? 0 : static_cast<uint32_t>(row - TagDictionary.begin());
}

} // namespace Tessel
