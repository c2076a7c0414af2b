// Requests to the probe driver, and waits for them that always end.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>

class DriverFile;

// True when the driver ended the request well; `returned` is then the number of bytes in `output`,
// otherwise 0. The spans may be empty; both begin with the same bytes, or one is empty. A request
// that takes longer than kDriverAnswerMs is cancelled; when the driver does not let go of it even
// then, the device is given up (1460). Fails with the system's last error.
bool CallDriver(DriverFile& driver, std::uint32_t code, std::span<std::uint8_t> input,
                std::span<std::uint8_t> output, std::uint32_t& returned);

// True when the request in flight has ended within `timeout_ms`. It uses up the event's signal.
bool EndsWithin(HANDLE driver, OVERLAPPED& overlapped, DWORD timeout_ms);
