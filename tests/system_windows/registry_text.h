// Parts of the registry as text, to be compared as a whole.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace system_windows {

// Each key by its path, which ends with a backslash, and each value by its key's path and its name
// ("@": the default one). The text of a value is its type and what it holds.
using RegistryText = std::map<std::wstring, std::wstring>;

// Everything that the server's registration may touch: the classes and the services.
RegistryText ReadRegistered();

// Lines of what `after` has and `before` has not ("+path = text") and the other way round ("-").
// Paths begin as they do in the two texts.
std::vector<std::wstring> Differences(const RegistryText& before, const RegistryText& after);

}  // namespace system_windows
