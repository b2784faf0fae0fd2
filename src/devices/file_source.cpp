#include "devices/file_source.h"

#include "log/log.h"

#include <algorithm>
#include <cerrno>

namespace Tessel {

namespace {

constexpr uint64_t wordBytes = sizeof(uint32_t);

Reading readError(const Device &device, int error)
{
    logErr(LogCategory::General, "Device: {} read Error: {:08x} @{}", device.FileDevicePath,
           static_cast<unsigned>(error), device.ID);
    return {.Failed = true};
}

} // namespace

uint64_t wordsLeft(const RecordSource &source)
{
    return source.FileEnd > source.ReadPos ? (source.FileEnd - source.ReadPos) / wordBytes : 0;
}

void passOver(RecordSource &source, const Device &device, uint64_t words)
{
    source.ReadPos += words * wordBytes;
    if (wordsLeft(source) > 0) return;
    if (LogLevel.Api) logInf(LogCategory::Progress, "End of file reached!");
    if (device.LoopFile) source.ReadPos = device.DataStart;
}

void openFile(RecordSource &source, const Device &device)
{
    source.File = openToRead(device.FileDevicePath);
    source.ReadPos = device.DataStart;
    if (auto size = sizeOf(source.File))
        source.FileEnd = *size;
    else
        source.File.close();
}

Reading readFile(RecordSource &source, const Device &device, uint32_t *room)
{
    if (!source.File.isOpen()) return readError(device, EBADF);
    const uint64_t chunk = std::min(wordsLeft(source), chunkWords);
    if (chunk == 0) return {.AtEnd = true}; // found on the read after the last data

    const int64_t got = readAt(source.File, reinterpret_cast<char *>(room), chunk * wordBytes, source.ReadPos);
    if (got < 0) return readError(device, errno);
    const uint64_t count = static_cast<uint64_t>(got) / wordBytes;
    if (count < chunk) source.FileEnd = source.ReadPos + count * wordBytes; // the file has shrunk under us
    passOver(source, device, count);
    return {.Words = count};
}

} // namespace Tessel
