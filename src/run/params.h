// The host's parameters of a device, which any thread may set and a run copies.
#pragma once

#include "records/context.h"

#include <mutex>

namespace Tessel {

// What `look` does with them, it does alone.
template <class Look>
auto withParams(MeasContext &context, Look look)
{
    const std::lock_guard lock(context.ParamsLock);
    return look(context.Params);
}

inline MeasParams paramsOf(MeasContext &context)
{
    return withParams(context, [](const MeasParams &params) { return params; });
}

inline std::vector<CustomTag> customTagsOf(MeasContext &context)
{
    const std::lock_guard lock(context.ParamsLock);
    return context.CustomTags;
}

} // namespace Tessel
