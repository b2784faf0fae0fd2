// A host of the library for tests that go through tessel.h alone: settings and log of its own, deadlines on
// every wait.
#pragma once

#include "support/temp_folder.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace TestSupport {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool isSanitized = true; // slower, and what it keeps beside the memory isn't ours
#else
constexpr bool isSanitized = false;
#endif

class Host
{
public:
    // `ini`: further lines of system.ini.
    explicit Host(std::string_view ini = "");
    ~Host(); // exitAPI
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    const TempFolder &folder() const { return temp; }
    const std::string &iniPath() const { return settings; }

    // getFileDevice: the id, empty if no device was made.
    std::string open(const std::string &path);

    // The same for a file that is written first.
    std::string open(TgxFile file, std::vector<uint32_t> words);

    // Lines of the log that hold `part`, everything posted before included.
    size_t logged(std::string_view part);
    std::vector<std::string> log();

private:
    TempFolder temp;
    std::string settings;
    int syncs = 0;
};

// The caller's finished byte.
class Finished
{
public:
    uint8_t *get() { return &byte; }
    bool isSet() { return std::atomic_ref<uint8_t>(byte).load(std::memory_order_acquire) != 0; }
    bool wait(std::chrono::milliseconds deadline = std::chrono::seconds(60));

private:
    uint8_t byte = 0;
};

// A result of getHistogram: rows x columns. Filled with junk, which a run has to overwrite.
struct Counts
{
    Counts(size_t rowCount, size_t columnCount) : columns(columnCount), data(rowCount * columnCount, 0xDEADBEEF)
    {
    }

    uint32_t at(size_t row, size_t column) const { return data[row * columns + column]; }
    uint64_t rowSum(size_t row) const;
    uint64_t sum() const;

    size_t columns;
    std::vector<uint32_t> data;
};

// A number or text of getMeasDescription.
double described(std::string_view key);
std::string describedText(std::string_view key);

// Calls `take` at each step of a waiting sequence, until the run has ended; gives the number of steps.
template <class Take>
size_t takeSteps(Take take)
{
    size_t steps = 0;
    for (; waitNewData(nullptr); ++steps) {
        take();
        gotNewData(nullptr);
    }
    return steps;
}

// Threads, open descriptors and resident memory (KiB) of this process.
size_t threadCount();
size_t descriptorCount();
size_t residentKiB();

// True as soon as `condition` holds, false at the deadline.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds deadline = std::chrono::seconds(20))
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace TestSupport
