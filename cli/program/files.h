// The files of a command: who closes them, under which name the library finds them, and that none of them is
// written that is to be kept.
#pragma once

#include <boost/json/object.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

// The one owner of a descriptor; below 0 it is none.
struct Descriptor
{
    explicit Descriptor(int number) : Number(number) {}
    ~Descriptor();
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int Number;
};

// A text as a file that has no name and stands on no disc, to be read from its start.
struct MemoryFile
{
    explicit MemoryFile(std::string_view text); // throws Failure
    std::string path() const;                   // for this process

    Descriptor File;
};

// A file as the library takes it: by its name; or by a descriptor, where the name isn't UTF-8 or has a
// backslash, which the library takes for a separator.
struct LibraryPath
{
    explicit LibraryPath(const std::string &path); // of a file that is there, else the name
    bool isName() const { return File.Number < 0; }

    Descriptor File; // not open for anything; none: Text is the name
    std::string Text;
};

// As tessel_getFileTags gives it; nothing: the file is no recording.
std::optional<boost::json::object> headerOf(const LibraryPath &path);

// A file that the program writes, and the option that says so.
struct Output
{
    std::string_view Option;
    std::string Path;
};

// Throws a usage Failure if an output is one of the inputs or another output, whatever their names; and, unless
// forced, if it is a recording.
void checkOutputs(const std::vector<std::string> &inputs, const std::vector<Output> &outputs, bool force);

} // namespace Tessel::Cli
