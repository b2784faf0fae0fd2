// A folder of a test's own, removed with everything in it, and what stands in a file.
#pragma once

#include <filesystem>
#include <string>

namespace TestSupport {

class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    const std::filesystem::path &path() const { return folder; }
    std::string file(const std::string &name) const { return (folder / name).string(); }

private:
    std::filesystem::path folder;
};

// All bytes of the file; none if it isn't there.
std::string contents(const std::filesystem::path &path);

} // namespace TestSupport
