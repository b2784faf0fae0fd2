#include "support/temp_folder.h"

#include <cstdlib>
#include <stdexcept>

namespace TestSupport {

TempFolder::TempFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "tessel-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    folder = pattern;
}

TempFolder::~TempFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

} // namespace TestSupport
