// What all exports share: no exception leaves them, finding the device, handing a text to the caller.
#pragma once

#include "log/log.h"
#include "run/finished.h"
#include "session/tables.h"
#include "tessel.h"

#include <exception>
#include <string_view>
#include <utility>

namespace Tessel {

void logFailedCall(const char *name, const char *why) noexcept;

// Runs the body of an export: a call, which forgets the error of the one before. `failed` is its result where
// something was thrown.
template <class Result, class Body>
Result guarded(const char *name, Result failed, Body body) noexcept
{
    forgetLastError();
    try {
        return body();
    } catch (const std::exception &failure) {
        logFailedCall(name, failure.what());
    } catch (...) {
        logFailedCall(name, "unknown");
    }
    return failed;
}
template <class Body>
void guarded(const char *name, Body body) noexcept
{
    guarded(name, false, [&body] {
        body();
        return true;
    });
}

// The same for a call that starts a run, which its body does last: whatever is thrown before leaves the
// finished byte at 1. Always true.
template <class Body>
bool guardedStart(const char *name, uint8_t *finished, Body body) noexcept
{
    return guarded(name, true, [&] {
        try {
            body();
        } catch (...) { // who polls the byte goes on
            writeFinished(finished, 1);
            throw;
        }
        return true;
    });
}

inline std::string_view textOf(const char *text)
{
    return text ? std::string_view(text) : std::string_view();
}
inline std::u16string_view textOf(const char16_t *text)
{
    return text ? std::u16string_view(text) : std::u16string_view();
}

// The current device for an empty id; otherwise the device with this id, or noDevice(), which becomes the
// current one.
DeviceRef deviceOf(const char16_t *id);

// The measurement mode, as log lines say it.
int32_t modeOf(const Device &device);

// How a text is handed to the caller.
struct TextRule
{
    size_t LargestSize; // with its zero
    std::string_view TooLong, Empty;
    bool EmptyIsSuccess;
};
bool handOut(std::string_view text, char *buffer, const TextRule &rule);

// The text with its zero; nothing for a null buffer.
void copyText(std::string_view text, char *buffer);

} // namespace Tessel
