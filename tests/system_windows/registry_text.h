// The registry as text, to be compared as a whole.
#pragma once

#include <string>
#include <vector>

namespace system_windows {

// A line for each key below `root`, and for each of its values: "key" and "key|value=data". The
// default value's name is "@"; texts show in quotes, other data as "hex:" (binary), "hex(TYPE):" or
// "dword:" with their digits. Letters outside ASCII show as "?".
std::vector<std::string> RegistryLines(const std::string& root);

// The lines that `before` alone has, after a minus sign, and those that `after` alone has, after a
// plus sign; each in the order of their letters.
std::vector<std::string> Differences(std::vector<std::string> before,
                                     std::vector<std::string> after);

}  // namespace system_windows
