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

// A measuring command with the options of a job, and further words of a command line, parsed. What `given` has
// been given isn't taken from the job, nor what is of an instrument unless it is `ofInstrument`. Throws
// Failure, of usage with `name` in front.
struct AskedCommand
{
    AskedCommand(const Job &job, const std::string &name, const std::vector<std::string> &further = {},
                 const CLI::App *given = nullptr, bool ofInstrument = false);
    ~AskedCommand();
    AskedCommand(const AskedCommand &) = delete;
    AskedCommand &operator=(const AskedCommand &) = delete;

    std::unique_ptr<CLI::App> Program;
    Command Asked;
};

} // namespace Tessel::Cli
