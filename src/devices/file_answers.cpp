#include "devices/file_answers.h"

#include "devices/primitives.h"
#include "devices/truncated.h"
#include "log/log.h"
#include "log/text.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel {

namespace {

constexpr uint64_t fileHoldWords = 2097152; // a file isn't read while the buffer would pass this
constexpr uint64_t wordBytes = sizeof(uint32_t);

// Bytes that could be read at `offset`, in whole words; fewer than asked only at the file's end. -1: error.
int64_t readWords(int file, uint32_t *words, uint64_t bytes, uint64_t offset)
{
    auto *target = reinterpret_cast<char *>(words);
    uint64_t got = 0;
    while (got < bytes) {
        ssize_t part = pread(file, target + got, bytes - got, static_cast<off_t>(offset + got));
        if (part < 0 && errno == EINTR) continue;
        if (part < 0) return -1;
        if (part == 0) break;
        got += static_cast<uint64_t>(part);
    }
    return static_cast<int64_t>(got - got % wordBytes);
}

uint64_t wordsLeft(const Device &device)
{
    return device.FileEnd > device.ReadPos ? (device.FileEnd - device.ReadPos) / wordBytes : 0;
}

bool readError(const Device &device, int error)
{
    logErr(LogCategory::General, "Device: {} read Error: {:08x} @{}", visible(device.FileDevicePath),
           static_cast<unsigned>(error), device.ID);
    return false;
}

} // namespace

int32_t fileSyncRate(const MeasContext &context)
{
    return std::max(nearest<int32_t>(context.Description.AveSyncRate), 0);
}

bool openFileInput(Device &device, Run &run)
{
    device.ReadPos = device.DataStart;
    device.FileEnd = 0;
    run.InputFile = open(nativePath(device.FileDevicePath).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    if (run.InputFile >= 0 && fstat(run.InputFile, &status) == 0 && S_ISREG(status.st_mode)) {
        device.FileEnd = static_cast<uint64_t>(status.st_size);
        return true;
    }
    closeFileInput(run);
    return false;
}

void closeFileInput(Run &run)
{
    if (run.InputFile >= 0) close(run.InputFile);
    run.InputFile = -1;
}

bool readFile(Device &device, MeasContext &context, Run &run, uint64_t &count)
{
    if (run.InputFile < 0) return readError(device, EBADF);
    uint64_t chunk = std::min(wordsLeft(device), chunkWords);
    if (chunk == 0) { // found on the call after the last data
        context.StopRequested = true;
        return true;
    }
    if (run.ReadCount + chunk > fileHoldWords) return true;

    int64_t got =
        readWords(run.InputFile, run.ReadBuffer.get() + run.ReadCount, chunk * wordBytes, device.ReadPos);
    if (got < 0) return readError(device, errno);
    count = static_cast<uint64_t>(got) / wordBytes;
    device.ReadPos += static_cast<uint64_t>(got);
    if (count < chunk) device.FileEnd = device.ReadPos; // the file has shrunk under us

    if (wordsLeft(device) == 0) {
        if (LogLevel.Api) logInf(LogCategory::Progress, "End of file reached!");
        if (device.LoopFile) device.ReadPos = device.DataStart;
    }
    return true;
}

} // namespace Tessel
