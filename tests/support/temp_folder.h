// A folder of a test's own, removed with everything in it.
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

} // namespace TestSupport
