#include "remote/session.h"

#include "log/log.h"
#include "remote/commands.h"
#include "remote/server.h"

#include <boost/asio/error.hpp>
#include <fmt/format.h>

#include <exception>

namespace Tessel {

namespace {

// Where memory or a descriptor is refused, the session ends and the server goes on.
template <class Step>
void guardedStep(const SessionRef &session, Step step) noexcept
{
    try {
        return step();
    } catch (const std::exception &failure) {
        logErr(LogCategory::General, "Server: connection with {} failed: {}", session->Peer, failure.what());
    }
    endSession(session);
}

void readNext(const SessionRef &session);

template <class Next>
void send(const SessionRef &session, Envelope message, Next next)
{
    message.Index = ++session->Index;
    writeLine(session->Link, lineOf(message), [session, next](const NetworkError &error) {
        guardedStep(session, [&] {
            if (!error) return next(session);
            reportNetwork("Session: write", error);
            endSession(session);
        });
    });
}

void turnOut(const SessionRef &session)
{
    lingerLink(session->Link, [session] { endSession(session); });
}

void endRead(const SessionRef &session, const NetworkError &error)
{
    if (error == boost::asio::error::message_size)
        return send(
            session,
            errorAnswer(LogCategory::General, fmt::format("Remote: a line of {} is too long", session->Peer)),
            turnOut);
    if (error != boost::asio::error::eof) reportNetwork("Session: read", error);
    endSession(session);
}

void takeLine(const SessionRef &session, const NetworkError &error, std::string_view line)
{
    if (error) return endRead(session, error);
    const Server &server = session->Owner;
    send(session, DecodeMessage(server.target, server.Running, line), readNext);
}

void readNext(const SessionRef &session)
{
    readLine(session->Link, [session](const NetworkError &error, std::string_view line) {
        guardedStep(session, [&] { takeLine(session, error, line); });
    });
}

} // namespace

void startSession(const SessionRef &session)
{
    guardedStep(session, [&] { readNext(session); });
}

void endSession(const SessionRef &session) noexcept
{
    closeLink(*session->Link);
    if (std::erase(session->Owner.Sessions, session) > 0)
        logInf(LogCategory::Progress, "Server: {} has left @{}", session->Peer,
               session->Owner.target->device.ID);
}

} // namespace Tessel
