#include "remote/envelope.h"

#include "log/log.h"
#include "log/text.h"

#include <fmt/format.h>

#include <exception>
#include <new>
#include <stdexcept>

namespace Tessel {

namespace {

using boost::json::object;

constexpr size_t deepestNesting = 32;
constexpr size_t lineMemory = 8 << 20; // bytes of one line, opened: some are small only as text

// Memory of one line, which has a limit. What is given back doesn't count: Boost 1.81 gives the room of some
// keys back with another size and alignment than it took.
class LineMemory final : public boost::json::memory_resource
{
    size_t left = lineMemory;

    void *do_allocate(size_t size, size_t) override
    {
        if (size > left) throw std::bad_alloc();
        left -= size;
        return ::operator new(size);
    }
    void do_deallocate(void *memory, size_t, size_t) override { ::operator delete(memory); }
    bool do_is_equal(const memory_resource &other) const noexcept override { return this == &other; }
};

boost::json::value parsed(std::string_view line)
{
    const auto memory = boost::json::make_shared_resource<LineMemory>();
    boost::json::parse_options limits;
    limits.max_depth = deepestNesting;
    boost::json::parser parser(memory, limits);
    parser.reset(memory);
    boost::system::error_code why;
    parser.write(line, why);
    if (why) throw std::runtime_error(why.message());
    return parser.release();
}

object addressText(const Address &address)
{
    return {{"type", address.Type}, {"id", address.Id}};
}

Address addressOf(const boost::json::value &text)
{
    const auto textOf = [&](const char *key) {
        return std::string(std::string_view(memberOf(text, key).as_string()));
    };
    return {.Type = textOf("type"), .Id = textOf("id")};
}

Envelope opened(std::string_view line)
{
    const boost::json::value message = parsed(line);
    return {.Index = memberOf(message, "index").to_number<uint64_t>(),
            .Sender = addressOf(memberOf(message, "sender")),
            .Receiver = addressOf(memberOf(message, "receiver")),
            .Content = memberOf(message, "content")};
}

} // namespace

std::string shownText(std::string_view fromPeer)
{
    std::string shown = visible(cutTo(fromPeer, longestShown));
    shown.resize(cutTo(shown, longestShown).size());
    return shown;
}

Envelope deviceEnvelope(const Device &device, boost::json::value content)
{
    const Address address{.Type = std::string(kestType), .Id = device.ID};
    return {.Sender = address, .Receiver = address, .Content = std::move(content)};
}

Envelope linkEnvelope(std::string_view sender, std::string_view receiver, boost::json::value content)
{
    return {.Sender = {.Type = std::string(sender)},
            .Receiver = {.Type = std::string(receiver)},
            .Content = std::move(content)};
}

object commandContent(std::string_view command)
{
    return {{"command", command}};
}

object commandContent(std::string_view command, boost::json::value data)
{
    object content = commandContent(command);
    content["data"] = std::move(data);
    return content;
}

std::string lineOf(const Envelope &envelope)
{
    const object message = {{"version", envelope.Version},
                            {"index", envelope.Index},
                            {"sender", addressText(envelope.Sender)},
                            {"receiver", addressText(envelope.Receiver)},
                            {"content", envelope.Content}};
    return boost::json::serialize(message) + '\n'; // the text itself has none
}

Envelope OpenEnvelope(std::string_view line)
{
    try {
        return opened(line);
    } catch (const std::exception &failure) {
        logErr(LogCategory::General, "Remote: OpenEnvelope failed: {} '{}'", failure.what(), shownText(line));
        return {};
    }
}

const boost::json::value &memberOf(const boost::json::value &text, std::string_view key)
{
    const boost::json::value *member = text.as_object().if_contains(key);
    if (!member) throw std::runtime_error(fmt::format("there is no \"{}\"", key));
    return *member;
}

std::optional<std::string_view> commandOf(const Envelope &envelope)
{
    const object *content = envelope.Content.if_object();
    const boost::json::value *command = content ? content->if_contains("command") : nullptr;
    if (!command) return std::nullopt;
    return std::string_view(command->as_string());
}

const boost::json::value &dataOf(const Envelope &envelope)
{
    return memberOf(envelope.Content, "data");
}

} // namespace Tessel
