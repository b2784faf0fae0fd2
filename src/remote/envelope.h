// `Envelope`: one message between the two ends of a link. On the wire it is one line of JSON, UTF-8, with the
// keys in this order:
//
//   {"version":V,"index":I,"sender":{"type":T,"id":D},"receiver":{"type":T,"id":D},"content":{...}}
//
// Messages about a device go from "kest" to "kest", both with its id; those about the link, and every
// acknowledgement and error, between "server" and "client" with empty ids.
#pragma once

#include "config/json_values.h"
#include "records/device.h"

#include <boost/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessel {

struct Address
{
    std::string Type{}, Id{};
};

struct Envelope
{
    uint64_t Version = 0; // written, never read
    uint64_t Index = 0;   // running number of the message
    Address Sender{}, Receiver{};
    boost::json::value Content{}; // must be an object to mean anything
};

inline constexpr std::string_view kestType = "kest", serverType = "server", clientType = "client";

// What a peer has sent, as it stands in the log and in answers: visible, and of a long text the beginning.
std::string shownText(std::string_view fromPeer);

// Between the two ends that stand for the device.
Envelope deviceEnvelope(const Device &device, boost::json::value content);
// "server" to "client", or back.
Envelope linkEnvelope(std::string_view sender, std::string_view receiver, boost::json::value content);

// {"command":C} and {"command":C,"data":D}
boost::json::object commandContent(std::string_view command);
boost::json::object commandContent(std::string_view command, boost::json::value data);

// The line, which ends with its line feed.
std::string lineOf(const Envelope &envelope);

// Reads a line. One that is no envelope is logged and gives an empty one.
Envelope OpenEnvelope(std::string_view line);

// A key of an object that a peer has sent. Throws where it is no object, or has no such key.
const boost::json::value &memberOf(const boost::json::value &text, std::string_view key);

// The command of the content; none: the content is no object, or has none. Throws where it isn't a text.
std::optional<std::string_view> commandOf(const Envelope &envelope);
// The command's argument or answer. Throws where there is none.
const boost::json::value &dataOf(const Envelope &envelope);

} // namespace Tessel
