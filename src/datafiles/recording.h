// A recording that a caller makes of its own record words: a header, the words, then the header again with the
// final values. The device that the header describes is in no table. One thread at a time.
#pragma once

#include "datafiles/header_writer.h"
#include "log/file_handle.h"
#include "records/context.h"
#include "records/custom_tag.h"
#include "records/device.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

struct RecordingParams
{
    int32_t MeasMode = 3;           // 2 T2, 3 T3
    int32_t Family = 0;             // LibType
    int32_t NumChans = 0;           // 1 to 64
    double BaseResolution = 0;      // ps
    double Resolution = 0;          // ps, the unit of a dtime; T3 only
    double SyncRate = 0;            // Hz; above 0 in T3
    int32_t AcqTime = 0;            // ms
    std::vector<double> InputRates; // counts per second, one for each channel, or none
    std::string Serial;             // empty: "0"
    std::string Comment;
};

class Recording
{
public:
    // Null, with an error in the log, if a parameter is out of range or the header can't be written whole.
    // An existing file is overwritten.
    static std::unique_ptr<Recording> create(std::string_view path, const RecordingParams &params,
                                             std::span<const CustomTag> customTags);
    ~Recording();
    Recording(const Recording &) = delete;
    Recording &operator=(const Recording &) = delete;

    // False, with one error in the log, once the disc has refused words; further words are dropped.
    bool write(std::span<const uint32_t> words);

    // The run took another time than AcqTime: it was stopped. False, with an error in the log: no time.
    bool setDuration(int32_t ms);

    // Completes the header; the recording takes no words any more. False if anything could not be written.
    bool close();

private:
    Recording() = default;
    void setRates(size_t firstEntry);
    void closeData();

    Device device;
    MeasContext context;
    HeaderInWork header;
    std::vector<double> inputRates;
    FileStream file;                   // open while words are taken
    uint64_t accepted = 0;             // words
    std::optional<int32_t> durationMs; // none: AcqTime
    bool failed = false;               // words are missing from the file
};

} // namespace Tessel
