#include "usb/driver_file.h"

#include <utility>

#include "support/log.h"

void DriverFile::Open(HANDLE handle, const char* path) {
  handle_ = handle;
  path_ = path;
  given_up_ = false;
}

bool DriverFile::Close() {
  const HANDLE handle = std::exchange(handle_, INVALID_HANDLE_VALUE);
  return handle == INVALID_HANDLE_VALUE || CloseHandle(handle);
}

void DriverFile::GiveUp() {
  if (std::exchange(given_up_, true)) return;
  Log(LOG_ERROR, "DriverFile::GiveUp", "Device %s keeps a request and is given up", path_);
}
