// The line that shows how far a long step has come: on a terminal only, and never when quiet.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Tessel::Cli {

struct Progress
{
    explicit Progress(std::string stepName);
    ~Progress(); // wipes the line

    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    std::string Name;
    std::chrono::steady_clock::time_point Start, LastShown;
    bool Shown = false;
};

// `fraction`: 0 to 1 of the step; `records`: done so far. Draws at most ten times a second.
void showProgress(Progress &progress, double fraction, uint64_t records);

double secondsSince(std::chrono::steady_clock::time_point start);

} // namespace Tessel::Cli
