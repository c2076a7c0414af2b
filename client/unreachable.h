// What the status of a failed call to the service means to its user.
#pragma once

#include <windows.h>

#include <string>

namespace client {

// Why the service of `host` cannot be reached, or has been lost; of this machine when it is empty.
// One line, with the status in parentheses at its end.
std::string UnreachableAdvice(HRESULT status, const std::string& host);

}  // namespace client
