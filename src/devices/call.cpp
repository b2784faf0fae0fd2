#include "devices/call.h"

namespace Tessel {

std::string locationOf(const Device &device, const AnyOperation &operation)
{
    return fmt::format("{}{} @{}", operation.Library->Prefix, operation.Name, device.ID);
}

} // namespace Tessel
