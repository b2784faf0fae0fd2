// A file that the program writes. It is written under a name of its own beside its place and renamed when it is
// whole: what stood there before stays until then, and a failure or a signal leaves no half of it.
#pragma once

#include <string>
#include <string_view>

namespace Tessel::Cli {

// Empty, "-", /dev/stdout: the standard output that the program was started with.
bool isStandardOutput(const std::string &path);

// The file that writing to `path` reaches: symbolic links are followed, also to a file that isn't there yet.
std::string behindLinks(const std::string &path);

struct OutputFile
{
    explicit OutputFile(const std::string &path); // throws Failure
    ~OutputFile();                                // without `complete` the file isn't there
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    std::string Shown, Target;
    const char *WorkName = nullptr; // null: written in place, as pipes and devices are
    int Descriptor = -1;
};

// Throws Failure if a file can't be written there; pipes and devices are not touched.
void checkPlace(const std::string &path);

// Throw Failure.
void write(OutputFile &file, std::string_view piece);
void complete(OutputFile &file);

// Safe in a handler of signals.
void removeWorkFiles();

} // namespace Tessel::Cli
