// What both ends of a link share: the I/O thread, a TCP connection of lines, and the report of a network error.
//
// A connection belongs to its I/O thread: everything here that takes a `LineLink` is called there. What is
// handed to it is called there too, never within the call, and once.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace Tessel {

using NetworkError = boost::system::error_code;

inline constexpr size_t longestLine = 1 << 20; // bytes, without its line feed

struct IoThread
{
    ~IoThread() // one that nobody awaits is the last to know its end
    {
        if (Thread.joinable()) Thread.detach();
    }

    boost::asio::io_context Context{1};
    std::optional<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>> Work{};
    std::thread Thread{};
    std::mutex Lock{};               // guards IsOver
    std::condition_variable Ended{}; // a promise would need memory to be given up
    bool IsOver = false;             // the thread has nothing left to do
};

// Starts the thread, which keeps `owner` and ends once `Work` is reset and no operation is pending. `resume` is
// called as it begins, and again after a handler has thrown, which ends nothing.
void startIo(IoThread &io, std::shared_ptr<void> owner, const std::string &name, std::function<void()> resume);
// Joins the thread. False: it doesn't end in time, and is left to itself.
bool awaitIo(IoThread &io, std::chrono::milliseconds patience);

// A TCP connection of lines.
struct LineLink
{
    boost::asio::ip::tcp::socket Socket;
    std::shared_ptr<size_t> Held;                  // bytes of `Received`, of all links of this end together
    boost::asio::steady_timer ReadTime, WriteTime; // when a partial line or a blocked write takes too long
    bool TimedOut = false;                         // so the link was closed
    std::string Received{};                        // what has come and isn't handed out, from `Taken` on
    size_t Taken = 0;
    size_t Searched = 0; // up to here there is no line feed
    std::string Sent{};  // the line that is being written
};
using LinkRef = std::shared_ptr<LineLink>;

// `held`: what all links of this end share.
LinkRef makeLink(boost::asio::ip::tcp::socket socket, std::shared_ptr<size_t> held);

// The next line without its line feed, or why there is none: eof; message_size: it is too long, alone or beside
// those of other links; timed_out: it has begun and doesn't end. One read at a time. The line lasts until the
// next one is read.
void readLine(const LinkRef &link, std::function<void(const NetworkError &, std::string_view)> done);
// One write at a time. timed_out: the peer doesn't take it.
void writeLine(const LinkRef &link, std::string line, std::function<void(const NetworkError &)> done);
// For a peer that is turned out: it is told the end, and has a moment to read what was written to it, while
// what it still sends is dropped.
void lingerLink(const LinkRef &link, std::function<void()> done);
// What is pending ends with operation_aborted. May be called again.
void closeLink(LineLink &link) noexcept;

// "{} failed: {} ({}:{})"; without an error the text `what` alone. An aborted operation is the end of a link
// that this side has closed, and no matter of the log.
void reportNetwork(std::string_view what, const NetworkError &error) noexcept;

} // namespace Tessel
