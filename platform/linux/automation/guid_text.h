// Identifiers as text.
#pragma once

#include <guiddef.h>

#include <string>

namespace linux_host {

// As StringFromGUID2 writes it.
std::wstring GuidText(REFGUID id);

}  // namespace linux_host
