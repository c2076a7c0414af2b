#include <windows.h>

#include <dbt.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>

#include "platform/probe_driver/probe_driver.h"
#include "platform/windows/test_host/clock.h"
#include "platform/windows/test_host/device_files.h"
#include "platform/windows/test_host/made_once.h"
#include "platform/windows/test_host/system_calls.h"
#include "platform/windows/test_host/taken_calls.h"

namespace test_host {
namespace {

struct DeviceEvent {
  HWND window;
  DWORD event;
  std::string path;
};

// A timer on the test clock, of the thread whose window it has.
struct Timer {
  HWND window;
  UINT_PTR id;
  std::uint64_t period_ms;
  std::uint64_t due_ms;
};

struct Messages {
  std::mutex mutex;
  std::vector<HWND> notified;
  std::deque<DeviceEvent> events;
  std::vector<Timer> timers;
  std::uintptr_t next_registration = 1;
};

constinit MadeOnce<Messages> TheMessages;

bool IsOfThisThread(HWND window) {
  return GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId();
}

// The record that travels with the message ends with the path.
void Send(const DeviceEvent& event) {
  constexpr std::size_t kNameOffset = offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name);
  const std::wstring name(event.path.begin(), event.path.end());
  DEV_BROADCAST_DEVICEINTERFACE_W header = {};
  header.dbcc_size = static_cast<DWORD>(kNameOffset + (name.size() + 1) * sizeof(wchar_t));
  header.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  std::memcpy(&header.dbcc_classguid, probe_driver::kDeviceInterfaceClass.data(), sizeof(GUID));
  std::vector<std::byte> record(header.dbcc_size);
  std::memcpy(record.data(), &header, kNameOffset);
  std::memcpy(record.data() + kNameOffset, name.c_str(), header.dbcc_size - kNameOffset);
  SendMessageW(event.window, WM_DEVICECHANGE, event.event, reinterpret_cast<LPARAM>(record.data()));
}

// Windows dispatches sent messages inside PeekMessage, and so do these reach their windows.
void SendDeviceEvents() {
  Messages& messages = TheMessages();
  for (;;) {
    std::unique_lock lock(messages.mutex);
    const auto found = std::find_if(messages.events.begin(), messages.events.end(),
                                    [](const auto& e) { return IsOfThisThread(e.window); });
    if (found == messages.events.end()) return;
    const DeviceEvent event = std::move(*found);
    messages.events.erase(found);
    lock.unlock();
    Send(event);
  }
}

void PostDueTimers() {
  if (!clock::Lives()) return;
  Messages& messages = TheMessages();
  const std::lock_guard lock(messages.mutex);
  const std::uint64_t now = clock::NowMs();
  for (Timer& timer : messages.timers) {
    if (timer.due_ms > now || !IsOfThisThread(timer.window)) continue;
    // However many periods have passed, one message waits.
    timer.due_ms = now + timer.period_ms;
    PostMessageW(timer.window, WM_TIMER, timer.id, 0);
  }
}

}  // namespace

void QueueDeviceEvent(DWORD event, const std::string& path) {
  Messages& messages = TheMessages();
  const std::lock_guard lock(messages.mutex);
  for (const HWND window : messages.notified) messages.events.push_back({window, event, path});
}

namespace taken {

HDEVNOTIFY WINAPI RegisterDeviceNotificationW(HANDLE recipient, LPVOID filter, DWORD flags) {
  const auto* wanted = static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(filter);
  if (!wanted || flags != DEVICE_NOTIFY_WINDOW_HANDLE ||
      wanted->dbcc_size < offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name) ||
      wanted->dbcc_devicetype != DBT_DEVTYP_DEVICEINTERFACE) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  Messages& messages = TheMessages();
  std::uintptr_t registration;
  {
    const std::lock_guard lock(messages.mutex);
    if (IsDriverClass(wanted->dbcc_classguid)) {
      messages.notified.push_back(static_cast<HWND>(recipient));
    }
    registration = messages.next_registration++;
  }
  WatchBus();
  return reinterpret_cast<HDEVNOTIFY>(registration);
}

UINT_PTR WINAPI SetTimer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure) {
  if (!clock::Lives() || !window || procedure) {
    return system_call::SetTimer(window, id, period_ms, procedure);
  }
  taken::KillTimer(window, id);
  Messages& messages = TheMessages();
  const std::lock_guard lock(messages.mutex);
  messages.timers.push_back({window, id, period_ms, clock::NowMs() + period_ms});
  return id;
}

BOOL WINAPI KillTimer(HWND window, UINT_PTR id) {
  Messages& messages = TheMessages();
  {
    const std::lock_guard lock(messages.mutex);
    const auto killed = std::erase_if(messages.timers, [&](const Timer& timer) {
      return timer.window == window && timer.id == id;
    });
    if (killed > 0) return TRUE;
  }
  return system_call::KillTimer(window, id);
}

BOOL WINAPI PeekMessageW(LPMSG message, HWND window, UINT first, UINT last, UINT remove) {
  SendDeviceEvents();
  PostDueTimers();
  return system_call::PeekMessageW(message, window, first, last, remove);
}

}  // namespace taken
}  // namespace test_host
