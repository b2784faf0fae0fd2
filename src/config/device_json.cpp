#include "config/device_json.h"

#include "api/library.h"
#include "log/log.h"

#include <boost/json.hpp>

namespace Tessel {

namespace {

using boost::json::array;
using boost::json::object;

array intArray(const std::vector<int32_t> &values)
{
    return array(values.begin(), values.end());
}

object moduleText(const ModuleRow &row)
{
    return {{"Index", row.Index}, {"ModelCode", row.ModelCode}, {"VersionCode", row.VersionCode}};
}

object channelText(const ChannelRow &row)
{
    object text = {{"Index", row.Index}, {"Name", row.Name}};
    if (row.TrigMode == TrigMode::Edge) {
        text["TrigMode"] = "Edge";
        text["TrigLvl"] = row.TrigLvl;
        text["TrigEdge"] = row.TrigEdge;
    } else if (row.TrigMode == TrigMode::CFD) {
        text["TrigMode"] = "CFD";
        text["DiscrLvl"] = row.DiscrLvl;
        text["ZeroXLvl"] = row.ZeroXLvl;
    }
    text["ChanOffs"] = row.ChanOffs;
    text["ChanEna"] = row.ChanEna;
    text["DeadTime"] = row.DeadTimeOn == 1 ? row.DeadTime : 0;
    text["TrigFeature"] = row.TrigFeature;
    return text;
}

template <class Row, class ToText>
array rowTexts(const std::vector<Row> &rows, ToText toText)
{
    array texts;
    for (const Row &row : rows) texts.push_back(toText(row));
    return texts;
}

void addIdentity(object &text, const Device &device)
{
    text["DeviceType"] = static_cast<int32_t>(device.DeviceType);
    text["FileDevicePath"] = device.FileDevicePath;
    text["ID"] = device.ID;
    text["Index"] = device.Index.load();
    text["Model"] = device.Model;
    text["PartNo"] = device.PartNo;
    text["Version"] = device.Version;
    text["Features"] = static_cast<int32_t>(device.Features);
    text["BaseResolution"] = device.BaseResolution;
    text["Resolution"] = device.Resolution;
    text["Binning"] = device.Binning;
    text["NumChans"] = device.NumChans;
    text["NumMods"] = device.NumMods;
}

void addSync(object &text, const Device &device)
{
    text["SyncDiv"] = device.SyncDiv;
    if (device.SyncTrigMode == TrigMode::Edge) {
        text["SyncTrigMode"] = "Edge";
        text["SyncTrigLvl"] = device.SyncTrigLvl;
        text["SyncTrigEdge"] = device.SyncTrigEdge;
    } else if (device.SyncTrigMode == TrigMode::CFD) {
        text["SyncTrigMode"] = "CFD";
        text["SyncDiscrLvl"] = device.SyncDiscrLvl;
        text["SyncZeroxLvL"] = device.SyncZeroxLvL;
    }
    text["SyncChannelOffset"] = device.SyncChannelOffset;
    text["SyncChannelEnable"] = device.SyncChannelEnable;
    text["SyncDeadTime"] = device.SyncDeadTimeOn == 1 ? device.SyncDeadTime : 0;
}

void addAcquisition(object &text, const Device &device)
{
    text["HystCode"] = device.HystCode;
    text["TimingMode"] = device.TimingMode;
    text["StopCount"] = device.StopCount;
    text["Offset"] = device.Offset;
    text["LengthCode"] = device.LengthCode;
    text["NumBins"] = device.NumBins;
    text["MeasControl"] = device.MeasControl;
    text["StartEdge"] = device.StartEdge;
    text["StopEdge"] = device.StopEdge;
    text["TriggerOutput"] = device.TriggerOutput;
    text["MarkerHoldoffTime"] = device.MarkerHoldoffTime;
    text["HoldTime"] = device.HoldTime;
    text["MarkerEdges"] = intArray(device.MarkerEdges);
    text["MarkerEna"] = intArray(device.MarkerEna);
}

void addState(object &text, const Device &device)
{
    text["ModsCfg"] = rowTexts(device.ModsCfg, moduleText);
    text["ChansCfg"] = rowTexts(device.ChansCfg, channelText);
    text["MeasMode"] = static_cast<int32_t>(device.MeasMode);
    text["RefSource"] = device.RefSource;
    text["HwFilteRowWidth"] = device.HwFilteRowWidth;
    text["IsInitialized"] = device.IsInitialized.load();
    text["IsOpen"] = device.IsOpen.load();
    text["IsConfigured"] = device.IsConfigured.load();
    text["Error"] = device.Error;
    text["LibType"] = static_cast<int32_t>(device.LibType);
    text["Comment"] = device.Comment;
}

} // namespace

std::string stringifyJsonDevConfig(const Device &device)
{
    if (LogLevel.Config) logInf(LogCategory::Progress, "stringifyJsonDevConfig: \"{}\"", device.ID);
    object text;
    addIdentity(text, device);
    addSync(text, device);
    addAcquisition(text, device);
    addState(text, device);
    return boost::json::serialize(text);
}

std::string stringifyDeviceIDs()
{
    array ids;
    for (const DeviceRef &target : allDevices()) ids.emplace_back(target.device->ID);
    return boost::json::serialize(ids);
}

} // namespace Tessel
