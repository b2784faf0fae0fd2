#include "jobs/job_options.h"

#include "jobs/option_kind.h"
#include "program/exit_codes.h"
#include "program/nearest.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

namespace json = boost::json;

// A key of a job whose value becomes the text of an option.
struct JobKey
{
    const std::string &File;
    std::string Name; // "parameters.window"

    [[noreturn]] void fail(std::string_view what) const
    {
        throw Failure(Exit::Usage, fmt::format("{}: {}: {}", visibleText(File), visibleText(Name), what));
    }
};

// A parser would take the next word for an empty text.
std::string textOf(const json::value &value, const JobKey &key)
{
    if (value.is_double()) return fmt::format("{}", value.get_double());
    if (value.is_number()) return json::serialize(value);
    if (!value.is_string()) key.fail("a text or a number is expected");
    const std::string text(value.get_string());
    if (text.empty() || text.find('\0') != text.npos) key.fail("the text is empty, or has a zero in it");
    return text;
}

void addWord(std::vector<std::string> &words, const CLI::Option &option, const json::value &value,
             const JobKey &key)
{
    const std::string name = "--" + option.get_lnames().front();
    const OptionKind kind = kindOf(option);
    if (kind == OptionKind::Flag) {
        if (!value.is_bool()) key.fail("true or false is expected");
        if (value.get_bool()) words.push_back(name);
    } else if (kind == OptionKind::Several) {
        if (!value.is_array()) key.fail("a list of texts is expected");
        for (const json::value &each : value.get_array()) words.push_back(name + "=" + textOf(each, key));
    } else {
        words.push_back(name + "=" + textOf(value, key));
    }
}

bool isGiven(const CLI::App &command, const std::string &name)
{
    const CLI::Option *option = command.get_option_no_throw("--" + name);
    return option && option->count() > 0;
}

// Options that are parameters of a job, by name.
std::vector<std::string> parametersOf(const CLI::App &command)
{
    std::vector<std::string> names;
    for (const CLI::Option *option : command.get_options())
        if (isParameter(*option)) names.push_back(option->get_lnames().front());
    return names;
}

// Those of the job's source that the measuring command has.
void addSourceWords(std::vector<std::string> &words, const Job &job, const CLI::App &command,
                    const CLI::App *given, bool ofInstrument, const std::string &file)
{
    for (const auto &member : job.Source) {
        const std::string name(member.key());
        const CLI::Option *option = command.get_option_no_throw("--" + name);
        if (!option) continue; // sim and device
        std::vector<std::string> these;
        addWord(these, *option, member.value(), {file, "source." + name}); // what is passed over is checked too
        const bool isPassedOver =
            (isOfInstrument(name) && !ofInstrument) || (name != "set" && given && isGiven(*given, name));
        if (!isPassedOver) words.insert(words.end(), these.begin(), these.end());
    }
}

void addParameterWords(std::vector<std::string> &words, const Job &job, const CLI::App &command,
                       const std::string &file)
{
    const std::vector<std::string> known = parametersOf(command);
    for (const auto &member : job.Parameters) {
        const std::string name(member.key());
        const JobKey key{file, "parameters." + name};
        if (std::ranges::find(known, name) == known.end()) {
            const std::string nearest = nearestName(name, known);
            key.fail(fmt::format("tessel {} has no such option{}", job.Measurement,
                                 nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest)));
        }
        addWord(words, *command.get_option_no_throw("--" + name), member.value(), key);
    }
}

json::value valueOf(const CLI::Option &option)
{
    switch (kindOf(option)) {
    case OptionKind::Flag: return option.as<bool>();
    case OptionKind::Whole: return option.as<uint64_t>();
    case OptionKind::Number: return option.as<double>();
    case OptionKind::Several: {
        const auto texts = option.as<std::vector<std::string>>();
        return json::array(texts.begin(), texts.end());
    }
    case OptionKind::Choice:
    case OptionKind::Text: break;
    }
    return json::value(option.as<std::string>());
}

} // namespace

std::vector<std::string> wordsOf(const Job &job, const CLI::App &command, const CLI::App *given,
                                 bool ofInstrument, const std::string &name)
{
    std::vector<std::string> words;
    addSourceWords(words, job, command, given, ofInstrument, name);
    if (!job.Chain.empty()) words.push_back("--chain=" + chainText(job.Chain));
    addParameterWords(words, job, command, name);
    return words;
}

std::vector<std::string> wordsGiven(const CLI::App &command, const std::vector<std::string> &without)
{
    std::vector<std::string> words, files;
    for (const CLI::Option *option : command.get_options()) {
        if (option->count() == 0 || std::ranges::find(without, option->get_single_name()) != without.end())
            continue;
        const auto &names = option->get_lnames();
        for (const std::string &text : option->results())
            if (names.empty())
                files.push_back(text);
            else
                words.push_back(kindOf(*option) == OptionKind::Flag ? "--" + names.front()
                                                                    : "--" + names.front() + "=" + text);
    }
    if (files.empty()) return words;
    words.emplace_back("--"); // a file may be named as an option is
    words.insert(words.end(), files.begin(), files.end());
    return words;
}

void chooseInstrument(HostOptions &host, const Job &job, const std::string &name)
{
    if (const json::value *id = job.Source.if_contains("device"))
        host.DeviceId = textOf(*id, {name, "source.device"});
    const json::value *sim = job.Source.if_contains("sim");
    if (!sim || *sim == json::value(false)) return;
    host.Simulated = true;
    if (!sim->is_bool()) host.SimulationPath = textOf(*sim, {name, "source.sim"});
}

json::object jobAsked(const CLI::App &command, const std::vector<ChainStage> &chain, const HostOptions &host)
{
    Job job{.Source = {}, .Chain = chain, .Measurement = command.get_name(), .Parameters = {}};
    if (host.Simulated) job.Source["sim"] = true;
    if (!host.SimulationPath.empty()) job.Source["sim"] = jsonName(host.SimulationPath);
    if (!host.DeviceId.empty()) job.Source["device"] = jsonName(host.DeviceId);
    for (const CLI::Option *option : command.get_options()) {
        if (option->count() == 0 || option->get_lnames().empty()) continue;
        const std::string &name = option->get_lnames().front();
        if (isParameter(*option))
            job.Parameters[name] = valueOf(*option);
        else if (isSourceKey(name))
            job.Source[name] = valueOf(*option);
    }
    return jobJson(job);
}

} // namespace Tessel::Cli
