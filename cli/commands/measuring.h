// The measuring commands as what a job can ask for.
#pragma once

#include "commands/commands.h"
#include "jobs/job.h"

#include <functional>
#include <string>
#include <vector>

namespace Tessel::Cli {

std::vector<std::string> measurementNames();

// Calls `use` with each of them, which live no longer.
void withMeasuringCommands(const std::function<void(const std::vector<const CLI::App *> &)> &use);

// From the file, or with "-" from standard input. Throws Failure.
Job readJob(const std::string &path);

// A measuring command as a job and a command line ask for it: what `words`, given the command, returns are its
// words. Gives the command, parsed. Throws Failure, of usage with `name` in front.
struct AskedCommand
{
    AskedCommand(const std::string &measurement, const std::string &name,
                 const std::function<std::vector<std::string>(const CLI::App &)> &words);
    ~AskedCommand();
    AskedCommand(const AskedCommand &) = delete;
    AskedCommand &operator=(const AskedCommand &) = delete;

    std::unique_ptr<CLI::App> Program;
    Command Asked;
};

} // namespace Tessel::Cli
