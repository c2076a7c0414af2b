// An activity file mapped for reading.
#pragma once

#include <windows.h>

#include <utility>

#include "base/activity_layout.h"
#include "base/running_process.h"

namespace activity {

// What it maps stays as it is in memory when the file is removed or replaced.
class View {
 public:
  // Of nothing when there is no such file, or it is no activity file of this layout, or another
  // account's that this one does not trust. Links are not followed.
  explicit View(const wchar_t* path) : bytes_(Map(path)) {
    if (bytes_ && (Load<std::uint32_t>(bytes_ + kMagicAt) != kMagic ||
                   Load<std::uint32_t>(bytes_ + kVersionAt) != kVersion)) {
      UnmapViewOfFile(std::exchange(bytes_, nullptr));
    }
  }
  ~View() {
    if (bytes_) UnmapViewOfFile(bytes_);
  }
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  // Null for a view of nothing.
  const std::uint8_t* bytes() const { return bytes_; }

  // Whether the service that wrote it still writes it.
  bool IsAlive() const {
    if (!bytes_) return false;
    const auto pid = Load<std::uint32_t>(bytes_ + kServicePidAt);
    return pid != 0 && StillRuns(pid, Load<std::uint64_t>(bytes_ + kServiceStartAt));
  }

 private:
  static const std::uint8_t* Map(const wchar_t* path) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE file = CreateFileW(path, GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) return nullptr;
    const HANDLE mapping =
        CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, DWORD{kFileBytes}, nullptr);
    CloseHandle(file);
    if (!mapping) return nullptr;
    const void* const view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, kFileBytes);
    CloseHandle(mapping);
    return static_cast<const std::uint8_t*>(view);
  }

  const std::uint8_t* bytes_;
};

}  // namespace activity
