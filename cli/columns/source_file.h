// A file that events are read from, twice: what can't be read again, a pipe, goes into a file without a name
// first.
#pragma once

#include "program/files.h"

#include <cstdint>
#include <string>

namespace Tessel::Cli {

struct SourceFile
{
    // "-" is standard input. `folder`: where a pipe is kept, as long as this lives. Ends early with
    // `Interrupted`.
    SourceFile(const std::string &path, const std::string &folder); // throws Failure

    std::string Shown; // its name in messages
    Descriptor File;
    uint64_t Start = 0; // offset of its first byte
    uint64_t Bytes = 0;
};

// A signal that was noted, while a source was read.
struct Interrupted
{
};

// As many bytes as there are, at most `most`. Throws Failure.
size_t readAt(const SourceFile &file, uint64_t offset, char *to, size_t most);

} // namespace Tessel::Cli
