#include "usb/driver_call.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "support/handle.h"
#include "usb/driver_file.h"
#include "usb/kept_memory.h"
#include "usb/timeouts.h"

namespace {

// What the driver works on. On the heap, and with bytes of its own, so that it can outlive the
// call: transfers that matter for speed do not come this way.
struct Call {
  OVERLAPPED overlapped{};
  KernelHandle event{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  std::vector<std::uint8_t> bytes;
};

// Waits, and then cancels; false when the driver does not let go of it even so.
bool EndInTime(HANDLE driver, OVERLAPPED& overlapped) {
  if (EndsWithin(driver, overlapped, kDriverAnswerMs)) return true;
  CancelIoEx(driver, &overlapped);
  return EndsWithin(driver, overlapped, kDriverReleaseMs);
}

}  // namespace

bool EndsWithin(HANDLE driver, OVERLAPPED& overlapped, DWORD timeout_ms) {
  WaitForSingleObject(overlapped.hEvent, timeout_ms);
  DWORD count = 0;
  return GetOverlappedResult(driver, &overlapped, &count, FALSE) ||
         GetLastError() != ERROR_IO_INCOMPLETE;
}

bool CallDriver(DriverFile& driver, std::uint32_t code, std::span<std::uint8_t> input,
                std::span<std::uint8_t> output, std::uint32_t& returned) {
  returned = 0;
  if (const DWORD refusal = driver.Refusal(); refusal != ERROR_SUCCESS) {
    SetLastError(refusal);
    return false;
  }
  auto call = std::make_unique<Call>();
  if (!call->event) return false;
  call->overlapped.hEvent = call->event.Get();
  call->bytes.assign(input.begin(), input.end());
  call->bytes.resize(std::max(input.size(), output.size()));
  std::uint8_t* const bytes = call->bytes.data();
  if (!DeviceIoControl(driver.Handle(), code, input.empty() ? nullptr : bytes,
                       static_cast<DWORD>(input.size()), output.empty() ? nullptr : bytes,
                       static_cast<DWORD>(output.size()), nullptr, &call->overlapped)) {
    if (GetLastError() != ERROR_IO_PENDING) return false;
    if (!EndInTime(driver.Handle(), call->overlapped)) {
      KeepForGood(std::move(call));
      driver.GiveUp();
      SetLastError(ERROR_TIMEOUT);
      return false;
    }
  }
  DWORD count = 0;
  const bool succeeded =
      GetOverlappedResult(driver.Handle(), &call->overlapped, &count, FALSE) != FALSE;
  std::copy_n(bytes, output.size(), output.begin());
  if (succeeded) returned = count;
  return succeeded;
}
