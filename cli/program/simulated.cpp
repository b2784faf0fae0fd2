// The libraries lie beside the program, in the build tree as where it is installed.
#include "program/simulated.h"

#include "program/exit_codes.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

namespace Tessel::Cli {

namespace {

constexpr const char *fromProgram[] = {TESSEL_SIMULATED_INSTALLED, "../sim/instruments"}; // the second: build

std::string simulatedFolder()
{
    std::error_code problem;
    const auto program = std::filesystem::canonical("/proc/self/exe", problem);
    for (const char *way : fromProgram) {
        const auto folder = std::filesystem::canonical(program.parent_path() / way, problem);
        if (!problem && std::filesystem::is_directory(folder, problem)) return folder.string();
    }
    throw Failure(Exit::NoDevice,
                  fmt::format("there are no simulated instruments beside {}", visibleText(program.string())));
}

} // namespace

void chooseSimulatedInstruments(const std::string &descriptionPath)
{
    setenv("TESSEL_INSTRUMENT_PATH", simulatedFolder().c_str(), 1);
    if (descriptionPath.empty()) return;
    if (!std::filesystem::is_regular_file(descriptionPath))
        throw Failure(Exit::NoDevice, fmt::format("--sim={}: no such file", visibleText(descriptionPath)));
    setenv("TESSEL_SIM_INSTRUMENTS", std::filesystem::absolute(descriptionPath).c_str(), 1);
}

} // namespace Tessel::Cli
