// Reading JSON with the places of mistakes. Pure.
#include "sim/instruments/json_node.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Tessel::Sim {

namespace {

std::string inWords(double value)
{
    std::string text = std::to_string(value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text;
}

std::string lineAndColumn(const std::string &text, size_t offset)
{
    const std::string before = text.substr(0, offset);
    const size_t line = static_cast<size_t>(std::ranges::count(before, '\n')) + 1;
    const size_t column = before.size() - (before.rfind('\n') + 1) + 1;
    return "line " + std::to_string(line) + ":" + std::to_string(column);
}

} // namespace

void failAt(const std::string &path, const std::string &why)
{
    throw std::runtime_error(path + ": " + why);
}

boost::json::value parseJson(const std::string &text)
{
    boost::json::stream_parser parser;
    boost::system::error_code error;
    const size_t parsed = parser.write_some(text, error);
    const size_t rest = text.find_first_not_of(" \t\r\n", parsed);
    if (!error && rest != std::string::npos) failAt(lineAndColumn(text, rest), "more than one value");
    if (!error) parser.finish(error);
    if (error) failAt(lineAndColumn(text, parsed), error.message());
    return parser.release();
}

JsonNode nodeOf(const boost::json::value &value, const std::string &path)
{
    if (!value.is_object()) failAt(path.empty() ? "file" : path, "isn't an object");
    return {.Object = &value.get_object(), .Path = path.empty() ? path : path + ".", .Asked = {}};
}

const boost::json::value *find(JsonNode &node, std::string_view key)
{
    node.Asked.push_back(key);
    return node.Object->if_contains(key);
}

void readNumber(JsonNode &node, std::string_view key, double &value, double least, double most)
{
    const boost::json::value *found = find(node, key);
    if (!found) return;
    const std::string path = node.Path + std::string(key);
    if (!found->is_number()) failAt(path, "isn't a number");
    value = found->to_number<double>();
    if (value >= least && value <= most) return;
    failAt(path, most < endless ? "isn't between " + inWords(least) + " and " + inWords(most)
                                : "is below " + inWords(least));
}

void readPositive(JsonNode &node, std::string_view key, double &value, double most)
{
    readNumber(node, key, value, 0, most);
}

void readText(JsonNode &node, std::string_view key, std::string &value)
{
    const boost::json::value *found = find(node, key);
    if (!found) return;
    if (!found->is_string()) failAt(node.Path + std::string(key), "isn't a text");
    value = found->get_string();
}

void readFlag(JsonNode &node, std::string_view key, bool &value)
{
    const boost::json::value *found = find(node, key);
    if (!found) return;
    if (!found->is_bool()) failAt(node.Path + std::string(key), "isn't true or false");
    value = found->get_bool();
}

void readChoice(JsonNode &node, std::string_view key, int &value, std::initializer_list<std::string_view> names)
{
    std::string text;
    if (!find(node, key)) return;
    readText(node, key, text);
    const auto *name = std::ranges::find(names, text);
    if (name == names.end()) {
        std::string all;
        for (std::string_view each : names) all += (all.empty() ? "" : ", ") + std::string(each);
        failAt(node.Path + std::string(key), "isn't one of " + all);
    }
    value = static_cast<int>(name - names.begin());
}

void readObject(JsonNode &node, std::string_view key, const std::function<void(JsonNode &)> &read)
{
    const boost::json::value *found = find(node, key);
    if (!found) return;
    JsonNode inner = nodeOf(*found, node.Path + std::string(key));
    read(inner);
    checkKeys(inner);
}

void readArray(JsonNode &node, std::string_view key,
               const std::function<void(const boost::json::value &, const std::string &)> &read)
{
    const boost::json::value *found = find(node, key);
    if (!found) return;
    const std::string path = node.Path + std::string(key);
    if (!found->is_array()) failAt(path, "isn't an array");
    size_t index = 0;
    for (const boost::json::value &value : found->get_array())
        read(value, path + "[" + std::to_string(index++) + "]");
}

void checkKeys(const JsonNode &node)
{
    for (const auto &member : *node.Object)
        if (std::ranges::find(node.Asked, std::string_view(member.key())) == node.Asked.end())
            failAt(node.Path + std::string(member.key()), "is no key that is known here");
}

} // namespace Tessel::Sim
