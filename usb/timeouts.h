// How long the probe driver may take. Every wait for it ends: beyond a transfer's own time-out it
// has one of these bounds.
#pragma once

#include <windows.h>

#include <cstdint>

// For a transfer on an endpoint that has been given no other; device/timeouts.h has a probe's.
inline constexpr std::uint32_t kDefaultTransferTimeoutMs = 10000;
// For a descriptor, as its request's record says it.
inline constexpr std::uint32_t kDescriptorTimeoutSeconds = 5;
// To answer what needs no transfer, and to end a control transfer whose record gives it this time.
inline constexpr DWORD kDriverAnswerMs = 1000 * kDescriptorTimeoutSeconds;
// To end what it was told to end.
inline constexpr DWORD kDriverReleaseMs = 2000;
