#include <dbt.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/devices/bus_selection.h"
#include "platform/linux/window/window.h"

namespace linux_host {
namespace {

// Guarded by the dispatcher lock. Never destroyed: threads that outlive main still use it.
struct Registrations {
  std::map<std::uintptr_t, HWND> windows;
  std::uintptr_t next = 1;
};

Registrations& TheRegistrations() {
  static auto& registrations = *new Registrations;
  return registrations;
}

// The record that travels with the message: it ends with the path.
std::shared_ptr<std::vector<std::byte>> BroadcastRecord(const std::string& path) {
  constexpr std::size_t kNameOffset = offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name);
  DEV_BROADCAST_DEVICEINTERFACE_W header = {};
  const std::wstring name(path.begin(), path.end());
  const std::size_t size = kNameOffset + (name.size() + 1) * sizeof(wchar_t);
  header.dbcc_size = static_cast<DWORD>(size);
  header.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  header.dbcc_classguid = DriverClass();
  auto record = std::make_shared<std::vector<std::byte>>(size);
  std::memcpy(record->data(), &header, kNameOffset);
  std::memcpy(record->data() + kNameOffset, name.c_str(), size - kNameOffset);
  return record;
}

}  // namespace

void TellWindows(DWORD event, const std::string& path) {
  const auto record = BroadcastRecord(path);
  DispatcherLock lock;
  // Registrations end with their windows, whose handles are not used again.
  std::erase_if(TheRegistrations().windows,
                [](const auto& registration) { return !FindWindowEntry(registration.second); });
  for (const auto& [id, window] : TheRegistrations().windows) {
    SendLater(lock, window, WM_DEVICECHANGE, event, reinterpret_cast<LPARAM>(record->data()),
              record);
  }
}

}  // namespace linux_host

using namespace linux_host;

HDEVNOTIFY RegisterDeviceNotificationW(HANDLE recipient, LPVOID filter, DWORD flags) {
  const auto* const wanted = static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(filter);
  if (!wanted || flags != DEVICE_NOTIFY_WINDOW_HANDLE ||
      wanted->dbcc_size < offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name) ||
      wanted->dbcc_devicetype != DBT_DEVTYP_DEVICEINTERFACE) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const auto window = static_cast<HWND>(recipient);
  std::uintptr_t id;
  {
    const DispatcherLock lock;
    if (!FindWindowEntry(window)) {
      SetLastError(ERROR_INVALID_WINDOW_HANDLE);
      return nullptr;
    }
    Registrations& registrations = TheRegistrations();
    id = registrations.next++;
    // Devices of another class never come.
    if (IsDriverClass(wanted->dbcc_classguid)) registrations.windows[id] = window;
  }
  WatchBus();
  return reinterpret_cast<HDEVNOTIFY>(id);
}
