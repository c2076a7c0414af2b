// The open driver file of one device, which the device object and its endpoints share.
#pragma once

#include <windows.h>

// Not locked, as the objects that share it.
class DriverFile {
 public:
  DriverFile() = default;
  explicit DriverFile(HANDLE handle) : handle_(handle) {}
  DriverFile(const DriverFile&) = delete;
  DriverFile& operator=(const DriverFile&) = delete;

  // `handle` may be the invalid-handle value. `path` names the device in the log; it is kept, not
  // copied.
  void Open(HANDLE handle, const char* path);

  // False when the system refuses to close the handle; it is let go all the same. True when there
  // is none.
  bool Close();

  bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }

  // Also of a device that is given up: what is still in flight on it is ended through this.
  HANDLE Handle() const { return handle_; }

  // 0, or why nothing new can be asked of the driver: there is no open file (6), or the device is
  // given up (1167).
  DWORD Refusal() const {
    if (!IsOpen()) return ERROR_INVALID_HANDLE;
    return given_up_ ? ERROR_DEVICE_NOT_CONNECTED : ERROR_SUCCESS;
  }

  // The driver keeps a request, whatever it is told: from now on and until it is opened anew,
  // everything that is asked of this device fails at once. Logged when it begins.
  void GiveUp();

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  const char* path_ = "";
  bool given_up_ = false;
};
