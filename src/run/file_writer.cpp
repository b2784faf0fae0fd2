#include "run/file_writer.h"

#include "datafiles/file_names.h"
#include "datafiles/losses_file.h"
#include "devices/library_versions.h"
#include "devices/locked_device.h"
#include "devices/result.h"
#include "log/log.h"
#include "log/text.h"
#include "measurements/frame.h"
#include "run/params.h"
#include "run/steps.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"
#include "stream/words.h"
#include "threads/losses.h"
#include "threads/paces.h"
#include "threads/run_control.h"
#include "threads/thread_name.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace Tessel {

namespace {

constexpr uint64_t blockWords = 1048576;
constexpr uint64_t mostWaitingBytes = 4294967296;
constexpr uint64_t mostBlocks = mostWaitingBytes / (blockWords * sizeof(uint32_t));
constexpr size_t keptBlocks = 16; // free ones, for the next time that the disc is slow

// A file that reaches the size limit of the process is an error of the write, not the end of the process.
void blockFileSizeSignal()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void tellWriteError(const RunRef &ref, int error)
{
    RunFile &file = *ref.run->File;
    if (file.Failed.exchange(true)) return;
    logErr(LogCategory::General, "Device: Write Data File \"{}\": {} {}. What follows isn't recorded! @{}",
           file.Header.Path, error, std::generic_category().message(error), ref.device.ID);
}

} // namespace

void makeFile(const DeviceRef &target, Run &run)
{
    if (!run.Request.SaveToFile || !run.Facts.IsLive || !isStream(run.Facts.Mode)) return;
    auto file = std::make_shared<RunFile>();
    for (auto *blocks : {&file->FileBuffer, &file->WriteBuffer, &file->Free}) blocks->reserve(mostBlocks);
    file->Header.CustomTags = customTagsOf(target->context);
    NewFile made = checkFilePath();
    {
        LockedDevice locked(target->device);
        remember(locked, [&] { target->device.FileDevicePath = made.Path; });
    }
    file->Header.Path = std::move(made.Path);
    file->File = std::move(made.File);
    run.File = std::move(file);
}

namespace {

// False: nothing more comes.
bool takeBlocks(Run &run)
{
    RunFile &file = *run.File;
    std::unique_lock gate(run.FileGate);
    auto isEnding = [&] { return file.WriteDone || isAborted(run); };
    run.FileChanged.wait(gate, [&] { return !file.FileBuffer.empty() || isEnding(); });
    if (file.FileBuffer.empty()) return false;
    run.FileChanged.wait_for(gate, Pace::fileWrite, [&] { return file.FileBuffer.size() > 1 || isEnding(); });
    std::swap(file.FileBuffer, file.WriteBuffer);
    return true;
}

void giveBack(Run &run, FileBlock block)
{
    block.Count = 0;
    std::lock_guard gate(run.FileGate);
    if (run.File->Free.size() < keptBlocks)
        run.File->Free.push_back(std::move(block));
    else
        --run.File->Blocks;
}

// The file ends with the last whole word that the disc has taken.
void stopWriting(RunRef &ref, int error)
{
    Run &run = *ref.run;
    RunFile &file = *run.File;
    tellWriteError(ref, error);
    setSize(file.File, file.Header.Length + file.Written * sizeof(uint32_t));
    std::lock_guard gate(run.FileGate);
    file.IsTaking = false;
}

// Words that aren't in the file.
uint64_t writeBlock(RunRef &ref, const FileBlock &block)
{
    RunFile &file = *ref.run->File;
    if (file.IsGivenUp && !file.Failed) stopWriting(ref, ETIMEDOUT);
    if (file.Failed) return block.Count;
    const uint64_t offset = file.Header.Length + file.Written * sizeof(uint32_t);
    const uint64_t bytes = block.Count * sizeof(uint32_t);
    const uint64_t done = writeAt(file.File, reinterpret_cast<const char *>(block.Words.get()), bytes, offset);
    const int error = errno;
    file.Written += done / sizeof(uint32_t);
    ++ref.run->Taken; // whoever ends the run sees that it moves
    if (done < bytes) stopWriting(ref, error);
    return block.Count - done / sizeof(uint32_t);
}

void WriteFileThread(RunRef ref)
{
    Run &run = *ref.run;
    if (LogLevel.Api) logInf(LogCategory::Progress, "WriteFileThread started  @{}", ref.device.ID);
    nameThread(ref.device.ID);
    blockFileSizeSignal();
    while (takeBlocks(run)) {
        uint64_t lost = 0;
        for (FileBlock &block : run.File->WriteBuffer) {
            lost += writeBlock(ref, block);
            giveBack(run, std::move(block));
        }
        run.File->WriteBuffer.clear();
        if (lost > 0) noteLoss(run, LossPlace::File, lost);
    }
    if (LogLevel.Api) logInf(LogCategory::Progress, "WriteFileThread finished @{}", ref.device.ID);
}

constexpr const char *headerError = "Device: Write TGX header error occurred! @{}";

// The header is written by name, and by then the name may be that of another file.
bool isAtItsName(const RunFile &file)
{
    struct stat own, named;
    return stat(nativePath(file.Header.Path).c_str(), &named) == 0 &&
           fstat(file.File.descriptor(), &own) == 0 && own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

} // namespace

void beginFile(RunRef &ref)
{
    Run &run = *ref.run;
    if (!run.File || !run.File->File.isOpen()) return;
    RunFile &file = *run.File;
    blockFileSizeSignal();
    if (LogLevel.Api) logDeb(LogCategory::Progress, "writeHeader {} @{}", file.Header.Path, ref.device.ID);
    file.Header.Libraries = libraryVersions();
    if (!isAtItsName(file) || !writeHeader(file.Header, configOf(ref.device), ref.context, false))
        logErr(LogCategory::General, headerError, ref.device.ID);
    if (!file.Header.Complete) return; // nobody could read what follows it
    file.Writer = startThread(ref, "WriteFileThread", file.WriterDone, WriteFileThread);
    std::lock_guard gate(run.FileGate);
    file.IsTaking = true;
}

namespace {

// The gate is held. False: there is no memory, or too much of it waits for the disc.
bool addBlock(RunFile &file)
{
    FileBlock block;
    if (!file.Free.empty()) {
        block = std::move(file.Free.back());
        file.Free.pop_back();
    } else {
        if (file.Blocks == mostBlocks || !allocatePages(block.Words, blockWords)) return false;
        ++file.Blocks;
    }
    file.FileBuffer.push_back(std::move(block));
    return true;
}

// The gate is held. Gives the words that had room.
uint64_t appendToBlocks(RunFile &file, std::span<const uint32_t> words)
{
    uint64_t done = 0;
    while (file.IsTaking && done < words.size()) {
        const bool isFull = file.FileBuffer.empty() || file.FileBuffer.back().Count == blockWords;
        if (isFull && !addBlock(file)) break;
        FileBlock &last = file.FileBuffer.back();
        const uint64_t count = std::min(words.size() - done, blockWords - last.Count);
        std::copy_n(words.data() + done, count, last.Words.get() + last.Count);
        last.Count += count;
        done += count;
    }
    return done;
}

void tellTooBig(RunRef &ref)
{
    RunFile &file = *ref.run->File;
    if (std::exchange(file.FileTooBigLogged, true)) return;
    constexpr uint64_t waiting = mostWaitingBytes / sizeof(uint32_t);
    reportDeviceError(ref.device, LogCategory::General,
                      "Device: File buffer to big {}! Can't write to disc! @{}", waiting, ref.device.ID);
}

} // namespace

void keepWords(RunRef &ref, std::span<const uint32_t> words)
{
    Run &run = *ref.run;
    if (!run.File) return;
    RunFile &file = *run.File;
    std::unique_lock gate(run.FileGate);
    const size_t before = file.FileBuffer.size();
    const uint64_t kept = appendToBlocks(file, words);
    const bool isFull = kept < words.size() && file.IsTaking;
    const bool isNews = file.FileBuffer.size() != before;
    gate.unlock();
    if (isNews) run.FileChanged.notify_one();
    if (kept == words.size()) return;
    // Words may follow these in the file.
    const bool shiftsTimes = isFull && overflowsIn(words.subspan(kept), run.Facts.Mode) > 0;
    noteLoss(run, LossPlace::File, words.size() - kept, shiftsTimes);
    if (isFull) tellTooBig(ref);
}

namespace {

// A run that is in the way of another start or of a close waits for a slow disc no longer than that. False: the
// disc hangs, and the thread is left to it.
bool joinWriter(RunRef &ref)
{
    Run &run = *ref.run;
    RunFile &file = *run.File;
    if (!file.Writer.joinable()) return true;
    auto isDone = [&file] { return file.WriterDone.load(); };
    waitFor(run.Control, [&] { return isDone() || isAborted(run); });
    if (!waitFor(run.Control, Pace::slowDisc, isDone)) file.IsGivenUp = true;
    if (!waitFor(run.Control, Pace::hungDisc, isDone)) {
        file.Writer.detach();
        tellWriteError(ref, ETIMEDOUT);
        return false;
    }
    file.Writer.join();
    return true;
}

} // namespace

void endWriting(RunRef &ref)
{
    Run &run = *ref.run;
    if (!run.File) return;
    {
        std::lock_guard gate(run.FileGate);
        run.File->WriteDone = true;
    }
    run.FileChanged.notify_one();
    run.File->HasHung = !joinWriter(ref);
}

namespace {

// What came in after the thread of an aborted run had ended.
void noteUnwritten(Run &run)
{
    uint64_t words = 0;
    for (const FileBlock &block : run.File->FileBuffer) words += block.Count;
    if (words > 0) noteLoss(run, LossPlace::File, words);
}

// Nobody finds the recording at its name any more.
void loseFile(RunRef &ref)
{
    RunFile &file = *ref.run->File;
    noteLoss(*ref.run, LossPlace::File, file.Written);
    file.Header.Complete = false;
    reportDeviceError(ref.device, LogCategory::General, headerError, ref.device.ID);
}

void closeHeader(RunRef &ref)
{
    RunFile &file = *ref.run->File;
    const bool isEmpty = sizeOf(file.File) == uint64_t{0}, isOwn = isAtItsName(file);
    if (!close(std::move(file.File))) tellWriteError(ref, errno);
    if (std::error_code ignored; isEmpty && isOwn) // the run never came to write to it, or somebody emptied it
        std::filesystem::remove(nativePath(file.Header.Path), ignored);
    if (isEmpty ? file.Written > 0 : !isOwn)
        loseFile(ref);
    else if (file.Header.Complete && !writeHeader(file.Header, configOf(ref.device), ref.context, true) &&
             !file.Failed)
        reportDeviceError(ref.device, LogCategory::General, headerError, ref.device.ID);
}

} // namespace

void closeFile(RunRef &ref)
{
    Run &run = *ref.run;
    if (!run.File || run.File->HasHung) return;
    RunFile &file = *run.File;
    noteUnwritten(run);
    if (file.File.isOpen()) closeHeader(ref);
    if (file.Header.Complete) writeLosses(file.Header.Path, lossesOfRecording(run), file.Failed);
    for (auto *blocks : {&file.FileBuffer, &file.WriteBuffer, &file.Free})
        std::vector<FileBlock>().swap(*blocks);
    file.Header.CustomTags.clear();
}

} // namespace Tessel
