// The open driver file of one device, which the device object and its endpoints share.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

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

  // The payload bytes that transfers have moved, either way. They are shown at `place` as well, a
  // 64-bit number of which others may read, as it grows; null: nowhere.
  std::uint64_t BytesMoved() const { return bytes_moved_; }
  void ShowBytesMoved(std::uint64_t* place) { shown_bytes_ = place; }
  void CountBytes(std::uint32_t count) {
    bytes_moved_ += count;
    if (!shown_bytes_) return;
    std::atomic_ref(*shown_bytes_).store(bytes_moved_, std::memory_order_release);
  }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  const char* path_ = "";
  bool given_up_ = false;
  std::uint64_t bytes_moved_ = 0;
  std::uint64_t* shown_bytes_ = nullptr;
};
