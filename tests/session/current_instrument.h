// An instrument behind a fake library, in the table of devices and the current one: for tests of exports.
#pragma once

#include "session/tables.h"
#include "support/instrument.h"

namespace TestSupport {

struct Current
{
    explicit Current(Tessel::LibType family) : instrument(family) { Tessel::addDevice(instrument.entry); }
    ~Current() { Tessel::removeDevice(instrument.entry); }
    Current(const Current &) = delete;
    Current &operator=(const Current &) = delete;

    Instrument instrument;
};

} // namespace TestSupport
