// A type library as text, one line for each type and each of its members.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <string>

namespace system_windows {

// UTF-8. What cannot be read shows as a status in the text.
std::string TypeLibraryText(ITypeLib* library);

}  // namespace system_windows
