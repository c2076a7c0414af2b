// The device-interface class under which the probe driver presents its devices.
#pragma once

#include <windows.h>

// {cb74512d-0292-428d-8df8-5b2ea1d34ae7}
inline constexpr GUID kProbeDriverInterface = {
    0xcb74512d, 0x0292, 0x428d, {0x8d, 0xf8, 0x5b, 0x2e, 0xa1, 0xd3, 0x4a, 0xe7}};
