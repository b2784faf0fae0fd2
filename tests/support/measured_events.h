// The stream of a run as a host gets it, against the one that is expected.
#pragma once

#include "plain/stream.h"

#include <cstddef>

namespace TestSupport {

using namespace Plain;

// All events of a run of the device, `capacity` of them at most; null: the current device.
Events measuredEvents(size_t capacity, const char16_t *id = nullptr);

// The first event that differs, not all of them, tells what is wrong.
void expectSameEvents(const Events &got, const Events &expected);

} // namespace TestSupport
