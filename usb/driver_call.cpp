#include "usb/driver_call.h"

#include "support/handle.h"

bool CallDriver(HANDLE driver, std::uint32_t code, std::span<std::uint8_t> input,
                std::span<std::uint8_t> output, std::uint32_t& returned) {
  returned = 0;
  // The handle is open for overlapped requests: without an OVERLAPPED and a wait the driver would
  // still write when the caller's buffers are gone.
  const KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) return false;
  OVERLAPPED overlapped{};
  overlapped.hEvent = event.Get();
  if (!DeviceIoControl(driver, code, input.data(), static_cast<DWORD>(input.size()), output.data(),
                       static_cast<DWORD>(output.size()), nullptr, &overlapped) &&
      GetLastError() != ERROR_IO_PENDING) {
    return false;
  }
  DWORD count = 0;
  if (!GetOverlappedResult(driver, &overlapped, &count, TRUE)) return false;
  returned = count;
  return true;
}
