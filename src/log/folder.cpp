#include "log/folder.h"

#include "log/log.h"
#include "log/text.h"

#include <filesystem>
#include <system_error>

namespace Tessel {

int createFolder(std::string_view path)
{
    const std::string folder = normalPath(path);
    const std::filesystem::path native = nativePath(folder);
    std::error_code error;
    if (std::filesystem::is_directory(native, error)) return 0;

    logInf(LogCategory::Progress, "Create Folder: {}", folder);
    const bool made = std::filesystem::create_directories(native, error);
    if (error) {
        const std::filesystem::filesystem_error failure("create_directories", native, error);
        logErr(LogCategory::General, "{}", failure.what());
        return error.value();
    }
    // Nothing made and no error: another process was quicker.
    if (made) logInf(LogCategory::Progress, "Create directory \"{}\":", folder);
    return 0;
}

} // namespace Tessel
