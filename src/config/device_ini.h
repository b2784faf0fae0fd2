// A device's parameters from an INI text. The text is a script: each key calls its setter with all the setter's
// checks, in the order of the text; what isn't in the text stays as it is.
#pragma once

#include "records/context.h"
#include "records/device.h"
#include "settings/ini_text.h"

namespace Tessel {

// The answer of the last setter that was called; false: none was. Only an initialised instrument takes a text,
// files and remote devices none. The device is locked for one setter at a time.
bool applyIniConfig(Device &device, const MeasContext &context, const IniText &text);

} // namespace Tessel
