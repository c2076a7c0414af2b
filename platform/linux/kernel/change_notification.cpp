#include <windows.h>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "platform/linux/kernel/text.h"

namespace {

constexpr DWORD kKnownFilters = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                                FILE_NOTIFY_CHANGE_LAST_WRITE;
constexpr std::uint32_t kNameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

// Everything that some filter is about: the kernel keeps one mask for all who watch a directory.
constexpr std::uint32_t kWatchedEvents = kNameEvents | IN_ATTRIB | IN_MODIFY | IN_ONLYDIR;

bool Concerns(DWORD filter, std::uint32_t event) {
  // The directory itself is gone, or events were lost: whoever waits has to look.
  if (event & (IN_IGNORED | IN_Q_OVERFLOW)) return true;
  if (event & kNameEvents) {
    return filter & (event & IN_ISDIR ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME);
  }
  if (event & IN_MODIFY) return filter & (FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE);
  // The kernel tells of a changed time stamp as of any other attribute.
  if (event & IN_ATTRIB) {
    return filter & (FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_LAST_WRITE);
  }
  return false;
}

// One thread reads the kernel's events and sets the event objects that callers wait on.
class ChangeNotifications {
 public:
  // Null with the last error set.
  HANDLE Open(const std::string& path, DWORD filter) {
    const std::lock_guard lock(mutex_);
    if (!Start()) return nullptr;
    const int watch = inotify_add_watch(inotify_, path.c_str(), kWatchedEvents);
    if (watch < 0) {
      SetLastError(errno == EACCES                       ? ERROR_ACCESS_DENIED
                   : errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND
                                                         : ERROR_NOT_ENOUGH_MEMORY);
      return nullptr;
    }
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!event) return nullptr;
    notifications_[event] = {.watch = watch, .filter = filter};
    return event;
  }

  bool Next(HANDLE event) {
    const std::lock_guard lock(mutex_);
    const auto found = notifications_.find(event);
    if (found == notifications_.end()) return false;
    Notification& notification = found->second;
    if (notification.changed_again) {
      notification.changed_again = false;
    } else {
      notification.signalled = false;
      ResetEvent(event);
    }
    return true;
  }

  bool Close(HANDLE event) {
    const std::lock_guard lock(mutex_);
    const auto found = notifications_.find(event);
    if (found == notifications_.end()) return false;
    const int watch = found->second.watch;
    notifications_.erase(found);
    CloseHandle(event);
    for (const auto& [other, notification] : notifications_) {
      if (notification.watch == watch) return true;
    }
    inotify_rm_watch(inotify_, watch);
    return true;
  }

 private:
  struct Notification {
    int watch;
    DWORD filter;
    bool signalled = false;
    // Changes since the handle became signalled are kept for Next, so that none is missed between a
    // wait and the call.
    bool changed_again = false;
  };

  bool Start() {
    if (inotify_ >= 0) return true;
    inotify_ = inotify_init1(IN_CLOEXEC);
    if (inotify_ < 0) {
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return false;
    }
    std::thread([this, descriptor = inotify_] { Serve(descriptor); }).detach();
    return true;
  }

  void Serve(int descriptor) {
    alignas(inotify_event) char buffer[4096];
    for (;;) {
      const ssize_t length = read(descriptor, buffer, sizeof(buffer));
      if (length < 0 && errno == EINTR) continue;
      if (length <= 0) return;
      const std::lock_guard lock(mutex_);
      for (ssize_t offset = 0; offset < length;) {
        inotify_event event;
        std::memcpy(&event, buffer + offset, sizeof(event));
        Signal(event);
        offset += static_cast<ssize_t>(sizeof(event) + event.len);
      }
    }
  }

  void Signal(const inotify_event& event) {
    for (auto& [handle, notification] : notifications_) {
      const bool lost_events = event.mask & IN_Q_OVERFLOW;
      if (notification.watch != event.wd && !lost_events) continue;
      if (!Concerns(notification.filter, event.mask)) continue;
      if (notification.signalled) {
        notification.changed_again = true;
      } else {
        notification.signalled = true;
        SetEvent(handle);
      }
    }
  }

  std::mutex mutex_;
  int inotify_ = -1;
  std::map<HANDLE, Notification> notifications_;
};

// Never destroyed: its thread runs until the process has ended.
ChangeNotifications& TheChangeNotifications() {
  static auto& notifications = *new ChangeNotifications;
  return notifications;
}

BOOL InvalidHandleUnless(bool valid) {
  if (!valid) SetLastError(ERROR_INVALID_HANDLE);
  return valid ? TRUE : FALSE;
}

}  // namespace

HANDLE FindFirstChangeNotificationW(LPCWSTR path, BOOL subtree, DWORD filter) {
  DWORD error = ERROR_SUCCESS;
  if (!path || filter == 0 || filter & ~kKnownFilters) error = ERROR_INVALID_PARAMETER;
  if (error == ERROR_SUCCESS && subtree) error = ERROR_NOT_SUPPORTED;
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  const HANDLE handle = TheChangeNotifications().Open(linux_host::WideToUtf8(path), filter);
  return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL FindNextChangeNotification(HANDLE notification) {
  return InvalidHandleUnless(TheChangeNotifications().Next(notification));
}

BOOL FindCloseChangeNotification(HANDLE notification) {
  return InvalidHandleUnless(TheChangeNotifications().Close(notification));
}
