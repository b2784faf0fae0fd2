// Reader and writer of a chain as JSON. A value is read as a field of the text would be.
#include "chain/chain_draft.h"
#include "program/visible_text.h"

#include <boost/json/array.hpp>
#include <boost/json/parser.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

namespace json = boost::json;

// A value as the text of a field has it.
std::string fieldText(const json::value &value)
{
    if (value.is_string()) return std::string(value.as_string());
    if (!value.is_array()) return json::serialize(value);
    std::string text;
    for (const auto &item : value.as_array()) text += (text.empty() ? "" : ",") + json::serialize(item);
    return text;
}

void readFlag(Draft &draft, Key key, const json::value &value)
{
    const std::string text = json::serialize(value);
    if (!value.is_bool()) fail(text, 0, "true or false is expected");
    if (!value.as_bool()) return;
    for (const Word &word : allWords())
        if (word.Sets == key) setWord(draft, word, {text, 0, text.size()});
}

void readMember(Draft &draft, std::string_view name, const json::value &value)
{
    if (name == "stage" || name == "makes" || name == "rates") return;
    const Form &form = *draft.StageForm;
    const std::string text = fieldText(value);
    const Part part = trimmed({text, 0, text.size()});
    if (const auto key = findKey(form.Values, name)) return setValue(draft, *key, part);
    const auto key = findKey(form.Words, name);
    if (!key) throw ChainError(fmt::format("a {} has no such key", form.Name));
    if (*key == Key::Keep || *key == Key::Inverted) return readFlag(draft, *key, value);
    const Word *word = findWord(form, part.text());
    if (!word || word->Sets != *key) fail(part, fmt::format("unknown word: {}", form.Text));
    setWord(draft, *word, part);
}

// Runs `read`, and puts the place in front of what it throws.
template <class Read>
auto at(const std::string &place, Read read)
{
    try {
        return read();
    } catch (const ChainError &error) {
        throw ChainError(fmt::format("{}: {}", place, error.what()));
    }
}

ChainStage readStageObject(const json::value &value, const std::string &place)
{
    const json::object *object = value.if_object();
    const json::value *name = object ? object->if_contains("stage") : nullptr;
    if (!name || !name->is_string())
        throw ChainError(fmt::format("{}: an object with the key \"stage\" is expected", place));
    const std::string text(name->as_string());
    Draft draft = at(place + ".stage", [&] { return startStage({text, 0, text.size()}); });
    for (const auto &member : *object) {
        const std::string key(member.key());
        at(fmt::format("{}.{}", place, visibleText(key)), [&] {
            readMember(draft, key, member.value());
            return 0;
        });
    }
    if (const auto missing = firstMissing(draft))
        throw ChainError(fmt::format("{}: the key \"{}\" is missing", place, nameOf(*missing)));
    return draft.Stage;
}

json::value parsedJson(std::string_view text)
{
    json::parser parser;
    boost::system::error_code problem;
    const size_t read = parser.write_some(text.data(), text.size(), problem);
    if (problem) fail(text, std::min(read, text.size()), "not JSON: " + problem.message());
    const Part rest = {text, read, text.size()};
    const size_t extra = rest.text().find_first_not_of(" \t\r\n");
    if (extra != std::string_view::npos) fail(text, read + extra, "text after the end of the object");
    return parser.release();
}

} // namespace

std::vector<ChainStage> parseChainJson(std::string_view text)
{
    const json::value value = parsedJson(text);
    const json::object *object = value.if_object();
    const json::value *chain = object ? object->if_contains("chain") : nullptr;
    if (!chain || !chain->is_array() || chain->as_array().empty())
        throw ChainError("an object with the key \"chain\" and a list of stages is expected");
    std::vector<ChainStage> stages;
    for (const json::value &stage : chain->as_array())
        stages.push_back(readStageObject(stage, fmt::format("chain[{}]", stages.size())));
    return stages;
}

json::object stageJson(const ChainStage &stage)
{
    const Form &form = formOf(stage.Kind);
    json::object object = {{"stage", form.Name}};
    for (const Key key : form.Values)
        if (key == Key::Channels)
            object[nameOf(key)] = json::array(stage.Channels.begin(), stage.Channels.end());
        else if (key == Key::Herald)
            object[nameOf(key)] = stage.Herald;
        else
            object[nameOf(key)] = exactTime(timeOf(stage, key));
    for (const Key key : form.Words)
        if (key == Key::Keep || key == Key::Inverted)
            object[nameOf(key)] = wordValue(stage, key) != 0;
        else
            for (const Word &word : allWords())
                if (word.Sets == key && word.Value == wordValue(stage, key)) object[nameOf(key)] = word.Text;
    return object;
}

} // namespace Tessel::Cli
