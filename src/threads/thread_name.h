// The name that tools show for a thread that works for a device.
#pragma once

#include <pthread.h>
#include <string>

namespace Tessel {

inline void nameThread(const std::string &id)
{
    std::string name = ("Dev: " + id).substr(0, 15); // the longest that the system takes
    pthread_setname_np(pthread_self(), name.c_str());
}

} // namespace Tessel
