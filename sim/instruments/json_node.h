// Reading an object of a JSON text key by key, with the place of what is wrong: line and column where it isn't
// JSON, else the path of the key. A key that nobody asked for is a mistake too.
#pragma once

#include <boost/json.hpp>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Sim {

struct JsonNode
{
    const boost::json::object *Object = nullptr;
    std::string Path; // with a dot behind it, unless empty
    std::vector<std::string_view> Asked;
};

constexpr double endless = std::numeric_limits<double>::infinity();

[[noreturn]] void failAt(const std::string &path, const std::string &why);

boost::json::value parseJson(const std::string &text);

JsonNode nodeOf(const boost::json::value &value, const std::string &path);

// The value of a key; null: it isn't there.
const boost::json::value *find(JsonNode &node, std::string_view key);

// These leave `value` as it is where the key isn't there.
void readNumber(JsonNode &node, std::string_view key, double &value, double least, double most);
void readPositive(JsonNode &node, std::string_view key, double &value, double most = endless);
void readText(JsonNode &node, std::string_view key, std::string &value);
void readFlag(JsonNode &node, std::string_view key, bool &value);
// `value` becomes the number of the text among `names`.
void readChoice(JsonNode &node, std::string_view key, int &value,
                std::initializer_list<std::string_view> names);
void readObject(JsonNode &node, std::string_view key, const std::function<void(JsonNode &)> &read);
// Calls `read` with each value of an array and its path.
void readArray(JsonNode &node, std::string_view key,
               const std::function<void(const boost::json::value &, const std::string &)> &read);

template <class Integer>
void readInteger(JsonNode &node, std::string_view key, Integer &value, double least, double most)
{
    auto number = static_cast<double>(value);
    readNumber(node, key, number, least, most);
    if (number != static_cast<double>(static_cast<int64_t>(number)))
        failAt(node.Path + std::string(key), "isn't a whole number");
    value = static_cast<Integer>(number);
}

// Fails if the object has a key that nobody asked for.
void checkKeys(const JsonNode &node);

} // namespace Tessel::Sim
