// A measurement as a JSON text, to be run on any recording or instrument: docs/jobs.md. Its parameters are the
// long options of the measuring command.
#pragma once

#include "chain/chain_text.h"

#include <boost/json/object.hpp>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

constexpr int jobFormat = 1;

struct Job
{
    boost::json::object Source;    // keys of sourceKeys()
    std::vector<ChainStage> Chain; // may be empty
    std::string Measurement;
    boost::json::object Parameters; // values: texts, numbers, true
};

// The options of a measuring command that are of the source, those of them that only an instrument has, and
// what isn't part of a job at all: where results go and how they are shown.
std::span<const std::string_view> sourceKeys();
bool isOfInstrument(std::string_view sourceKey);
bool isOutside(std::string_view option);

// What of a job's source counts on a recording.
boost::json::object sourceOnFiles(const boost::json::object &source);

// Where a job may have a chain: the text, a list of stages, or what a chain file holds. Throws ChainError.
std::vector<ChainStage> chainOf(const boost::json::value &value);

// "coincidence(1,2; 10ns) | merge(1,3)".
std::string chainText(const std::vector<ChainStage> &stages);

// The form of a job, up to the names and values of its parameters, which its measurement knows. `name`: of the
// file. Throws a usage Failure.
Job parseJob(std::string_view text, const std::string &name, std::span<const std::string> measurements);
Job jobOf(const boost::json::value &value, const std::string &name, std::span<const std::string> measurements);

// As a job file has it, with the chain as a text.
boost::json::object jobJson(const Job &job);

} // namespace Tessel::Cli
