// How the program ends, and the exception that carries such an end to main.
#pragma once

#include <stdexcept>
#include <string>

namespace Tessel::Cli {

enum class Exit {
    Success = 0,
    Failed = 1,
    Usage = 2,
    NoDevice = 3, // no such file, or a file that can't be opened
    DataLost = 4, // the run finished, but part of the data is missing
};

struct Failure : std::runtime_error
{
    Failure(Exit exitCode, const std::string &text) : std::runtime_error(text), Code(exitCode) {}
    Exit Code;
};

} // namespace Tessel::Cli
