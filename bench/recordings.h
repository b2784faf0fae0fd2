// Recorded files to replay, in a folder of their own, and the library that replays them.
#pragma once

#include "records/enums.h"
#include "tessel.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace Bench {

// Records of a recording; TESSEL_BENCH_RECORDS sets another number.
inline uint64_t recordCount(uint64_t usual)
{
    const char *given = std::getenv("TESSEL_BENCH_RECORDS");
    return given ? std::strtoull(given, nullptr, 10) : usual;
}

// The library is up while it lives.
class Recordings
{
public:
    // `bufferSize`: of the stream buffers, in 1048576 records.
    explicit Recordings(int bufferSize = 8)
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "tessel-bench-XXXXXX").string();
        folder = mkdtemp(pattern.data());
        std::ofstream(folder / "system.ini")
            << "[Log]\nFile=false\nConsole=false\n[Params]\nBufferSize=" << bufferSize << '\n';
        initAPI((folder / "system.ini").c_str());
    }
    ~Recordings()
    {
        exitAPI();
        std::filesystem::remove_all(folder);
    }
    Recordings(const Recordings &) = delete;
    Recordings &operator=(const Recordings &) = delete;

    std::string path(const char *name) const { return (folder / name).string(); }

    // `words` over and over, `records` of them.
    void write(const char *name, Tessel::MeasMode mode, int inputs, uint64_t records,
               const std::vector<uint32_t> &words) const
    {
        tessel_recording_params params{};
        params.size = sizeof params;
        params.measMode = static_cast<int32_t>(mode);
        params.numChannels = inputs;
        params.baseResolution = params.resolution = 1;
        params.syncRate = 50e6;
        tessel_recording *recording = tessel_recordingCreate(path(name).c_str(), &params);
        for (uint64_t left = records; left > 0; left -= std::min<uint64_t>(left, words.size()))
            tessel_recordingWrite(recording, words.data(), std::min<uint64_t>(left, words.size()));
        tessel_recordingClose(recording);
    }

    void open(const char *name) const
    {
        std::array<char, 8192> buffer{};
        std::strncpy(buffer.data(), path(name).c_str(), buffer.size() - 1);
        getFileDevice(buffer.data());
    }

private:
    std::filesystem::path folder;
};

} // namespace Bench
