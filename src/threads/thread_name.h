// The name that tools show for a thread that works for a device.
#pragma once

#include <cstdio>
#include <pthread.h>
#include <string>

namespace Tessel {

inline void nameThread(const std::string &id) noexcept
{
    char name[16]; // the longest that the system takes
    std::snprintf(name, sizeof name, "Dev: %s", id.c_str());
    pthread_setname_np(pthread_self(), name);
}

} // namespace Tessel
