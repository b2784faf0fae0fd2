// A job as the options of a measuring command, and back: the command's parser is the only one of their values.
#pragma once

#include "jobs/job.h"
#include "program/session.h"

#include <boost/json/object.hpp>

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Tessel::Cli {

// The words of a command line, each option as one, "--window=100ns"; those that `given`, if any, has been given
// are left out, as are those of an instrument unless it is `ofInstrument`. Throws a usage Failure, which names
// the file: an unknown key, or a value that no option could have.
std::vector<std::string> wordsOf(const Job &job, const CLI::App &command, const CLI::App *given,
                                 bool ofInstrument, const std::string &name);

// The options that the command was given, as words again, without those names.
std::vector<std::string> wordsGiven(const CLI::App &command, const std::vector<std::string> &without);

// The instrument that the job names, if it names one.
void chooseInstrument(HostOptions &host, const Job &job, const std::string &name);

// What the measuring command was asked to do, read back from its parsed options.
boost::json::object jobAsked(const CLI::App &command, const std::vector<ChainStage> &chain,
                             const HostOptions &host);

// The JSON Schema of job files, from the options of the commands.
boost::json::object jobSchema(const std::vector<const CLI::App *> &commands);

} // namespace Tessel::Cli
