// One request to the probe driver that is waited for.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>

// True when the driver ended the request well; `returned` is then the number of bytes in `output`,
// otherwise 0. The spans may overlap or be empty. Waits as long as the driver takes, which ends
// control transfers by the time-out in their record. Fails with the system's last error.
bool CallDriver(HANDLE driver, std::uint32_t code, std::span<std::uint8_t> input,
                std::span<std::uint8_t> output, std::uint32_t& returned);
