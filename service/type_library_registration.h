// The type library that the executable carries, in the registry.
#pragma once

#include <windows.h>

// The library is taken from the executable, or from the file beside it with the extension .tlb. The
// status of the first step that fails.
[[nodiscard]] HRESULT RegisterOwnTypeLibrary();
[[nodiscard]] HRESULT UnregisterOwnTypeLibrary();
