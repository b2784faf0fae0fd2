// The process-wide settings and the file they come from. Written during the start of the library on the
// caller's thread, then read by all threads without a lock.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel {

struct WindowSettings // for a host with windows, which reads them from the same file
{
    int32_t Design = 0;
    int32_t Width = 1920, Height = 1080;
    int32_t PosX = 50, PosY = 50;
    bool Max = false;
    bool ShowMeasClassPics = true;
};

struct ToastSettings // likewise
{
    bool Error = true, AppendDebugInfo = true, WarnDevice = true, WarnConfig = true, WarnOther = true;
    bool Info = true, Debug = true;
};

struct Settings
{
    WindowSettings Window;
    ToastSettings Toasts;
    std::string DataPath;   // normal form
    std::string ConfigPath; // normal form
    std::string TgxFolder;  // normal form; empty: the data path
    bool LogFile = true;
    bool LogConsole = true;
    bool LogColours = true;        // of the console
    uint64_t BufferSize = 1048576; // the key's own value
    uint64_t StreamRecords = 0;    // elements of a stream array; 0 until the key is read
};

Settings &settings();

// Smallest element count of a stream array, whatever the settings say.
inline constexpr uint64_t minimumStreamRecords = 8388608;

// Of the day files, and of what an instrument dumps; normal form.
std::string logFolder();

// Element count of every stream array of a run.
uint64_t streamRecords();

// Threads with which a run may count a recorded file, at least 1: what was set, or else one for each core that
// the process may use. 0 sets that again. Any thread. False: no such number, and nothing is set.
uint32_t countingThreads();
bool setCountingThreads(int32_t threads);

// True if the file was read. No file is no error: the settings keep their values.
bool loadSettingsIni(std::string_view path);

} // namespace Tessel
