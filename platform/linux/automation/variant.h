// Values that refer to others.
#pragma once

#include <oaidl.h>

namespace linux_host {

// Follows VT_BYREF | VT_VARIANT to the value meant; null when that leads nowhere.
const VARIANT* FollowVariant(const VARIANT* value);

}  // namespace linux_host
