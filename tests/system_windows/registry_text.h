// The registry of this session as text, to be compared as a whole.
#pragma once

#include "tests/support/registry_text.h"

namespace system_windows {

using support::Lines;

// A line for each key below `root`, which is spelled out, and for each of its values. Letters
// outside ASCII show as "?".
Lines RegistryBelow(const std::string& root);

// The lines that `before` alone has, after a minus sign, and those that `after` alone has, after a
// plus sign. Both are sorted.
Lines Differences(const Lines& before, const Lines& after);

}  // namespace system_windows
