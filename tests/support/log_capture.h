// Collects what is logged while it lives. For tests of single layers, which are linked with the library's
// objects.
#pragma once

#include "log/log.h"
#include "support/log_files.h"
#include "support/temp_folder.h"

#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

class LogCapture
{
public:
    LogCapture()
    {
        dropQueued();
        Tessel::startLog(true, false, folder.path().string(), "Tessel", "test");
    }
    ~LogCapture()
    {
        Tessel::stopLog();
        dropQueued();
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // "WRN the text"; ends the collecting, so all that was posted before is there.
    const std::vector<std::string> &lines()
    {
        Tessel::stopLog();
        if (collected.empty()) collected = logLines(folder.path());
        return collected;
    }
    // The lines that hold `part`.
    size_t count(std::string_view part) { return countLines(lines(), part); }

private:
    // With both outputs off a run writes nothing and leaves an empty queue behind.
    static void dropQueued()
    {
        Tessel::startLog(false, false, "", "", "");
        Tessel::stopLog();
    }

    TempFolder folder;
    std::vector<std::string> collected;
};

} // namespace TestSupport
