#include "remote/link.h"

#include "log/log.h"
#include "threads/paces.h"
#include "threads/thread_name.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

#include <algorithm>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

namespace Tessel {

namespace {

namespace asio = boost::asio;
using asio::error::operation_aborted;

// A handler that throws has ended with it; what `resume` can't start is tried again.
void runIo(asio::io_context &context, const std::function<void()> &resume) noexcept
{
    for (;;) {
        try {
            resume();
            context.run();
            return;
        } catch (const std::exception &failure) {
            logErr(LogCategory::General, "Remote: {}", failure.what());
        } catch (...) {
            logErr(LogCategory::General, "Remote: unknown failure");
        }
        std::this_thread::sleep_for(Pace::afterFailure);
    }
}

} // namespace

void startIo(IoThread &io, std::shared_ptr<void> owner, const std::string &name, std::function<void()> resume)
{
    io.Work.emplace(io.Context.get_executor());
    io.Thread = std::thread([&io, name, owner = std::move(owner), resume = std::move(resume)] {
        nameThread(name);
        runIo(io.Context, resume);
        const std::lock_guard lock(io.Lock);
        io.IsOver = true;
        io.Ended.notify_all();
    });
}

bool awaitIo(IoThread &io, std::chrono::milliseconds patience)
{
    if (!io.Thread.joinable()) return true;
    std::unique_lock lock(io.Lock);
    const bool isOver = io.Ended.wait_for(lock, patience, [&io] { return io.IsOver; });
    lock.unlock();
    if (isOver)
        io.Thread.join();
    else
        io.Thread.detach();
    return isOver;
}

namespace {

constexpr size_t readStep = 16384;
constexpr size_t mostHeld = 8 << 20; // bytes of lines that have begun, of all links of an end
constexpr size_t keptRoom = 65536;   // of a link between two lines
constexpr auto never = asio::steady_timer::time_point::max();

constexpr int keepAliveIdle = 60, keepAliveInterval = 10, keepAliveCount = 3; // s, s, probes

// A peer whose computer has gone is noticed, and no answer is held back. A link without that works too.
void setOptions(asio::ip::tcp::socket &socket)
{
    NetworkError ignored;
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    socket.set_option(asio::socket_base::keep_alive(true), ignored);
    const auto set = [&](int option, int value) {
        ::setsockopt(socket.native_handle(), IPPROTO_TCP, option, &value, sizeof value);
    };
    set(TCP_KEEPIDLE, keepAliveIdle);
    set(TCP_KEEPINTVL, keepAliveInterval);
    set(TCP_KEEPCNT, keepAliveCount);
}

// A timer whose time comes closes the link, and so ends its operation.
void limitTime(const LinkRef &link, asio::steady_timer LineLink::*timer,
               std::chrono::milliseconds span = Pace::peerAnswers)
{
    asio::steady_timer &limit = (*link).*timer;
    limit.expires_after(span);
    limit.async_wait([link, &limit](const NetworkError &) {
        if (limit.expiry() > asio::steady_timer::clock_type::now()) return; // it was set back
        link->TimedOut = true;
        closeLink(*link);
    });
}

NetworkError ended(LineLink &link, asio::steady_timer &limit, const NetworkError &error)
{
    limit.expires_at(never);
    return error && link.TimedOut ? asio::error::timed_out : error;
}

std::optional<std::string_view> takeLine(LineLink &link)
{
    const size_t end = link.Received.find('\n', link.Searched);
    link.Searched = std::min(end, link.Received.size());
    if (end == std::string::npos) return std::nullopt;
    const std::string_view line = std::string_view(link.Received).substr(link.Taken, end - link.Taken);
    link.Taken = link.Searched = end + 1;
    return line;
}

// What was handed out goes, and a long line's memory with it.
void dropTaken(LineLink &link)
{
    link.Received.erase(0, link.Taken);
    link.Searched -= std::exchange(link.Taken, 0);
    const size_t before = link.Received.capacity();
    if (before > keptRoom && link.Received.size() < keptRoom / 2) link.Received.shrink_to_fit();
    *link.Held -= before - link.Received.capacity();
}

// Room for `readStep` bytes more: a longer line gets all at once, of which it uses what it fills. False: all
// links together have too much.
bool growRoom(LineLink &link)
{
    const size_t before = link.Received.capacity(), needed = link.Received.size() + readStep;
    const size_t room = needed > keptRoom ? longestLine + readStep : needed;
    if (needed > before && room > keptRoom && *link.Held + room > mostHeld) return false;
    if (needed > before) link.Received.reserve(room);
    link.Received.resize(needed);
    *link.Held += link.Received.capacity() - before;
    return true;
}

using LineDone = std::function<void(const NetworkError &, std::string_view)>;

void receive(const LinkRef &link, LineDone done);

// With what has come: the line, or the next read.
void goOn(const LinkRef &link, LineDone done, const NetworkError &error)
{
    std::optional<std::string_view> line;
    if (!error) line = takeLine(*link);
    if (!error && !line && link->Received.size() - link->Taken <= longestLine) return receive(link, done);
    NetworkError end = ended(*link, link->ReadTime, error);
    if (!end && (!line || line->size() > longestLine)) end = asio::error::message_size;
    done(end, end ? std::string_view() : *line);
}

void receive(const LinkRef &link, LineDone done)
{
    dropTaken(*link);
    const size_t had = link->Received.size();
    if (!growRoom(*link)) return done(ended(*link, link->ReadTime, asio::error::message_size), {});
    if (had > 0 && link->ReadTime.expiry() == never) limitTime(link, &LineLink::ReadTime);
    link->Socket.async_read_some(asio::buffer(link->Received.data() + had, readStep),
                                 [link, done = std::move(done), had](const NetworkError &error, size_t count) {
                                     link->Received.resize(had + count);
                                     goOn(link, done, error);
                                 });
}

void dropWhatComes(const LinkRef &link, std::function<void()> done)
{
    link->Socket.async_read_some(asio::buffer(link->Received),
                                 [link, done = std::move(done)](const NetworkError &error, size_t) mutable {
                                     if (!error) return dropWhatComes(link, std::move(done));
                                     link->ReadTime.expires_at(never);
                                     done();
                                 });
}

} // namespace

LinkRef makeLink(asio::ip::tcp::socket socket, std::shared_ptr<size_t> held)
{
    setOptions(socket);
    const auto executor = socket.get_executor();
    const auto giveBack = [](LineLink *link) {
        *link->Held -= link->Received.capacity();
        delete link;
    };
    LinkRef link(new LineLink{.Socket = std::move(socket),
                              .Held = std::move(held),
                              .ReadTime = asio::steady_timer(executor, never),
                              .WriteTime = asio::steady_timer(executor, never)},
                 giveBack);
    *link->Held += link->Received.capacity();
    return link;
}

void readLine(const LinkRef &link, LineDone done)
{
    asio::post(link->Socket.get_executor(),
               [link, done = std::move(done)]() mutable { goOn(link, std::move(done), {}); });
}

void writeLine(const LinkRef &link, std::string line, std::function<void(const NetworkError &)> done)
{
    link->Sent = std::move(line);
    limitTime(link, &LineLink::WriteTime);
    asio::async_write(link->Socket, asio::buffer(link->Sent),
                      [link, done = std::move(done)](const NetworkError &error, size_t) {
                          done(ended(*link, link->WriteTime, error));
                      });
}

// A connection that is closed with unread data would take with it what was written.
void lingerLink(const LinkRef &link, std::function<void()> done)
{
    NetworkError ignored;
    link->Socket.shutdown(asio::socket_base::shutdown_send, ignored);
    link->Taken = link->Searched = link->Received.size();
    dropTaken(*link);
    growRoom(*link);
    limitTime(link, &LineLink::ReadTime, Pace::lingering);
    dropWhatComes(link, std::move(done));
}

void closeLink(LineLink &link) noexcept
{
    NetworkError ignored;
    link.Socket.shutdown(asio::socket_base::shutdown_both, ignored);
    link.Socket.close(ignored);
    link.ReadTime.cancel();
    link.WriteTime.cancel();
}

namespace {

std::string messageOf(const NetworkError &error)
{
    std::string message = error.message();
    const bool isUnknown =
        error.category() == boost::system::system_category() && message.starts_with("Unknown error");
    return isUnknown ? fmt::format("Unknown error ({})", error.value()) : message;
}

} // namespace

void reportNetwork(std::string_view what, const NetworkError &error) noexcept
{
    if (error == operation_aborted) return;
    if (!error) return logInf(LogCategory::Progress, "{}", what);
    tryToLog([&] {
        logErr(LogCategory::General, "{} failed: {} ({}:{})", what, messageOf(error), error.category().name(),
               error.value());
    });
}

} // namespace Tessel
