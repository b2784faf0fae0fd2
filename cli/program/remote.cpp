#include "program/remote.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/files.h"
#include "program/instrument.h"
#include "program/options.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>

namespace Tessel::Cli {

namespace {

struct ServerAddress
{
    std::string Host;
    uint16_t Port = 0; // 0: the library's own
};

[[noreturn]] void refuse(const std::string &text)
{
    throw Failure(Exit::Usage, fmt::format("--host {}: HOST or HOST:PORT is expected, with an address like "
                                           "[::1] in brackets",
                                           visibleText(text)));
}

uint16_t portOf(const std::string &text, std::string_view port)
{
    uint16_t number = 0;
    const auto [end, problem] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (problem != std::errc() || end != port.data() + port.size() || number == 0) refuse(text);
    return number;
}

ServerAddress addressOf(const std::string &text)
{
    const bool isBracketed = text.starts_with('[');
    const size_t end = isBracketed ? text.find(']') : text.rfind(':');
    if (isBracketed && end == text.npos) refuse(text);
    std::string host = isBracketed ? text.substr(1, end - 1) : text.substr(0, end);
    const std::string rest = isBracketed ? text.substr(end + 1) : end == text.npos ? "" : text.substr(end);
    if (host.empty() || (!isBracketed && host.find(':') != host.npos) || (!rest.empty() && rest[0] != ':'))
        refuse(text);
    return {host, rest.empty() ? uint16_t{0} : portOf(text, std::string_view(rest).substr(1))};
}

bool isRemote(const boost::json::object &config)
{
    return config.at("DeviceType").to_number<int>() == 2;
}

} // namespace

void addHostOption(CLI::App &command, std::string &server)
{
    asNamed(
        command.add_option("--host", server, "Instruments of the computer that serves them at this address"))
        ->type_name("HOST[:PORT]");
}

void connectServer(const std::string &server)
{
    const ServerAddress address = addressOf(server);
    const bool isReached = tessel_connect(address.Host.c_str(), address.Port);
    const std::string what = "--host", told = withReason(what);
    if (!isReached) throw Failure(Exit::NoDevice, told);
    if (told != what) warn(told);
}

std::vector<std::string> remoteIds()
{
    std::vector<std::string> ids;
    const boost::json::value all = libraryText(TESSEL_TEXT_DEVICE_IDS);
    for (const auto &id : all.as_array())
        if (isRemote(libraryText(TESSEL_TEXT_DEVICE, std::string(id.as_string())).as_object()))
            ids.emplace_back(id.as_string());
    return ids;
}

std::string openRemote(const std::string &server, const std::string &id)
{
    connectServer(server);
    const std::vector<std::string> ids = remoteIds();
    const std::string found = visibleText(fmt::format("{}", fmt::join(ids, ", ")));
    if (id.empty() && ids.size() != 1)
        throw Failure(Exit::NoDevice, ids.empty()
                                          ? fmt::format("{}: it has no instruments", visibleText(server))
                                          : fmt::format("which instrument? ({})", found));
    if (!id.empty() && std::ranges::find(ids, id) == ids.end())
        throw Failure(Exit::NoDevice,
                      fmt::format("{}: no such instrument (found: {})", visibleText(id), found));
    const std::string chosen = id.empty() ? ids.front() : id;
    if (libraryText(TESSEL_TEXT_DEVICE, chosen).at("Index").to_number<int>() < 0)
        throw Failure(Exit::NoDevice, fmt::format("{}: not served there", visibleText(chosen)));
    return chosen;
}

} // namespace Tessel::Cli
