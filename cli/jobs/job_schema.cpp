// The schema of job files, from the options of the commands. A parameter is described as --help does.
#include "jobs/job_options.h"
#include "jobs/option_kind.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>

#include <charconv>

namespace Tessel::Cli {

namespace {

namespace json = boost::json;

const json::array textOrNumber = {"string", "number"};

// "1..100"
void addRange(json::object &schema, const std::string &type)
{
    uint64_t least = 0, most = 254; // of a channel
    if (const size_t dots = type.find(".."); dots != type.npos) {
        std::from_chars(type.data(), type.data() + dots, least);
        std::from_chars(type.data() + dots + 2, type.data() + type.size(), most);
    }
    schema["minimum"] = least;
    schema["maximum"] = most;
}

json::array choicesIn(const std::string &type) // "symmetric|mean"
{
    json::array words;
    for (size_t from = 0, to = 0; to != type.npos; from = to + 1) {
        to = type.find('|', from);
        words.emplace_back(type.substr(from, to - from));
    }
    return words;
}

json::object optionSchema(const CLI::Option &option)
{
    json::object schema = {{"description", option.get_description()}};
    const std::string type = option.get_type_name();
    const OptionKind kind = kindOf(option);
    switch (kind) {
    case OptionKind::Flag: schema["type"] = "boolean"; break;
    case OptionKind::Whole:
        schema["type"] = "integer";
        addRange(schema, type);
        break;
    case OptionKind::Number: schema["type"] = "number"; break;
    case OptionKind::Choice: schema["enum"] = choicesIn(type); break;
    case OptionKind::Several:
        schema["type"] = "array";
        schema["items"] = {{"type", "string"}, {"minLength", 1}};
        break;
    case OptionKind::Text:
        schema["type"] = textOrNumber;
        schema["minLength"] = 1;
        break;
    }
    const bool hasDefault = !option.get_default_str().empty();
    if (hasDefault && (kind == OptionKind::Text || kind == OptionKind::Choice))
        schema["default"] = option.get_default_str();
    return schema;
}

json::object sourceSchema(const CLI::App &command)
{
    json::object properties;
    for (const std::string_view key : sourceKeys())
        if (const CLI::Option *option = command.get_option_no_throw("--" + std::string(key)))
            properties[key] = optionSchema(*option);
    properties["sim"] = {{"description", "The simulated instruments; a text: those of that file"},
                         {"type", json::array{"boolean", "string"}}};
    properties["device"] = {{"description", "Id of an instrument"}, {"type", "string"}, {"minLength", 1}};
    return {{"description", "What of a recording is measured, and on which instrument; with a recording, what "
                            "is of an instrument is passed over"},
            {"type", "object"},
            {"properties", std::move(properties)},
            {"additionalProperties", false}};
}

json::object parametersSchema(const CLI::App &command)
{
    json::object properties;
    for (const CLI::Option *option : command.get_options())
        if (isParameter(*option)) properties[option->get_lnames().front()] = optionSchema(*option);
    return {{"description", command.get_description()},
            {"properties", std::move(properties)},
            {"additionalProperties", false}};
}

// If this is the measurement, those are its parameters.
json::object ruleOf(const CLI::App &command)
{
    const json::object name = {{"const", command.get_name()}};
    const json::object parameters = parametersSchema(command);
    const json::object properties = {{"measurement", name}}, those = {{"parameters", parameters}};
    const json::object condition = {{"properties", properties}}, rule = {{"properties", those}};
    return {{"if", condition}, {"then", rule}};
}

json::object chainSchema()
{
    const json::object stage = {{"type", "object"}, {"required", json::array{"stage"}}};
    const json::object list = {{"type", "array"}, {"items", stage}};
    const json::object text = {{"type", "string"}, {"minLength", 1}};
    return {{"description", "Stages that the events pass first: as a text, or as the list of a chain file"},
            {"anyOf", json::array{text, list}}};
}

} // namespace

json::object jobSchema(const std::vector<const CLI::App *> &commands)
{
    json::array names, rules;
    for (const CLI::App *command : commands) {
        names.emplace_back(command->get_name());
        rules.push_back(ruleOf(*command));
    }
    const json::object schemaName = {{"type", "string"}};
    const json::object format = {{"description", "The format of this file"}, {"const", jobFormat}};
    const json::object measurement = {{"description", "The measuring command"}, {"enum", std::move(names)}};
    const json::object parameters = {{"description", "Options of the measuring command, without dashes"},
                                     {"type", "object"}};
    const json::object properties = {
        {"$schema", schemaName},  {"tessel", format},           {"source", sourceSchema(*commands.front())},
        {"chain", chainSchema()}, {"measurement", measurement}, {"parameters", parameters}};
    return {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
            {"title", "A measurement of Tessel"},
            {"type", "object"},
            {"required", json::array{"tessel", "measurement"}},
            {"additionalProperties", false},
            {"properties", properties},
            {"allOf", std::move(rules)}};
}

} // namespace Tessel::Cli
