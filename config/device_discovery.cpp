#include "config/device_discovery.h"

#include <dbt.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cwchar>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "config/activity_file.h"
#include "config/device_table.h"
#include "config/evk_configure.h"
#include "config/wfx_configure.h"
#include "support/handle.h"
#include "support/log.h"
#include "support/paths.h"
#include "usb/device_interface_guid.h"

namespace {

constexpr const wchar_t* kWindowClass = L"Wirefox_API_t";
constexpr const wchar_t* kWindowTitle = L"Wirefox_API";
constexpr const wchar_t* kNoWindowText =
    L"Failed to register event handler. Unable to detect Wirefox attach/detach events";
constexpr UINT_PTR kTimerId = 0x11112222;
constexpr UINT kTimerPeriodMs = 5000;
constexpr DWORD kPollPauseMs = 1;
constexpr DWORD kNoWindowExitCode = 0xFFFFFFFF;
constexpr DWORD kStartTimeoutMs = 5000;

// Never destroyed: the notification thread and the last client call outlive the end of main.
std::wstring& DevicesChangedPath() {
  static auto& path = *new std::wstring;
  return path;
}

// Set and read on the notification thread alone.
bool quit = false;

// Signalled when the notification thread has registered, or cannot. Made before the thread and,
// like it, there until the process ends; null when the system had no event.
HANDLE watching = nullptr;

// A name as the file shows it: by the conversion of the "C" locale, in which the process runs, or,
// when that cannot represent a character, all of it in the host's narrow character set.
std::string LineText(const wchar_t* name) {
  if (!name) return {};
  std::string text;
  std::array<char, MB_LEN_MAX> bytes;
  std::mbstate_t state{};
  for (const wchar_t* at = name; *at != 0; ++at) {
    const std::size_t length = std::wcrtomb(bytes.data(), *at, &state);
    if (length == static_cast<std::size_t>(-1)) return NarrowText(name);
    text.append(bytes.data(), length);
  }
  return text;
}

// Binary, with the line ends written out, so that the file is the same on every host.
std::ofstream OpenDevicesChangedFile() {
  return std::ofstream(StreamPath(DevicesChangedPath().c_str()),
                       std::ios::binary | std::ios::trunc);
}

HWND CreateNotificationWindow(HINSTANCE instance) {
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof window_class;
  window_class.lpfnWndProc = NotificationWindowProc;
  window_class.hInstance = instance;
  window_class.lpszClassName = kWindowClass;
  RegisterClassExW(&window_class);
  return CreateWindowExW(0, kWindowClass, kWindowTitle, WS_POPUP, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                         instance, nullptr);
}

// Both calls' results are not looked at: without notifications clients still refresh the table. The
// registration ends with the window.
void RegisterForNotifications(HWND window) {
  DEV_BROADCAST_DEVICEINTERFACE_W filter{};
  static_assert(sizeof filter == 32);
  filter.dbcc_size = sizeof filter;
  filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  filter.dbcc_classguid = kProbeDriverInterface;
  RegisterDeviceNotificationW(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
}

// Polls rather than waits: device notifications must be picked up soon, and are lost on some hosts
// when the thread is not seen to look at its queue.
void HandleMessages(HWND window) {
  while (!quit) {
    MSG message;
    while (PeekMessageW(&message, window, 0, 0, PM_NOREMOVE)) {
      if (!PeekMessageW(&message, window, 0, 0, PM_REMOVE)) break;
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
    Sleep(kPollPauseMs);
  }
}

// Runs until the process ends: nothing sends the quit message.
DWORD WINAPI NotificationThread(LPVOID parameter) {
  const HWND window = CreateNotificationWindow(static_cast<HINSTANCE>(parameter));
  if (!window) {
    SetEvent(watching);
    // Kept although a service's box may be seen by nobody: this thread has nothing else to do.
    MessageBoxW(nullptr, kNoWindowText, L"Error", MB_OK);
    return kNoWindowExitCode;
  }
  const UINT_PTR timer = SetTimer(window, kTimerId, kTimerPeriodMs, nullptr);
  RegisterForNotifications(window);
  SetEvent(watching);
  HandleMessages(window);
  DestroyWindow(window);
  if (timer != 0) KillTimer(window, kTimerId);
  return 0;
}

// The path of an attachment whose end was announced and of which no pass has heard yet, or null.
// The notification thread puts it here before it waits for the lock: whoever has it meanwhile is to
// know, too. There is one at most, since that thread handles it before it hears of another.
std::atomic<const std::string*> announced_removal = nullptr;

using AnnouncedPath = std::unique_ptr<const std::string>;

// Puts `path` there and gives what was there before.
AnnouncedPath ExchangeAnnouncedRemoval(AnnouncedPath path) {
  return AnnouncedPath(announced_removal.exchange(path.release()));
}

// The path that a device-change message names; empty when it names none.
std::wstring_view NamedPath(LPARAM second) {
  constexpr std::size_t kNameOffset = offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name);
  const auto* const record = reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(second);
  if (!record || record->dbcc_devicetype != DBT_DEVTYP_DEVICEINTERFACE ||
      record->dbcc_size < kNameOffset) {
    return {};
  }
  const std::wstring_view name(record->dbcc_name,
                               (record->dbcc_size - kNameOffset) / sizeof(wchar_t));
  return name.substr(0, name.find(L'\0'));
}

// Announcements may spell a path in other letter case than the enumeration.
bool IsSamePath(std::string_view one, std::string_view other) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::ranges::equal(one, other, {}, lower, lower);
}

// Before removal passes: a probe that came back at once, under its old path, would be found there
// and keep the entry of the attachment that has ended. An announcement may also come late, when a
// pass has replaced that entry already: the device of the new one answers.
void MarkWhatLeft() {
  const AnnouncedPath path = ExchangeAnnouncedRemoval(nullptr);
  if (!path) return;
  for (ProbeEntry* entry : ListProbeEntries()) {
    if (IsSamePath(entry->path, *path)) entry->left = !entry->device->GetUSBDevice()->Answers();
  }
}

// A pass that changed the table makes clients look at the file. What else has changed in the table,
// other programs see as well.
bool Announce(bool changed) {
  ShowDeviceTable();
  if (changed) WriteDevicesChangedFile();
  return changed;
}

}  // namespace

void StartDeviceDiscovery(HINSTANCE instance, const wchar_t* path) {
  watching = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  KernelHandle thread;
  {
    // Taken before the thread starts: it must not handle a message while the list below is
    // incomplete.
    const DeviceTableGuard guard;
    // The thread is left to itself until the process ends.
    thread.Reset(CreateThread(nullptr, 0, NotificationThread, instance, 0, nullptr));
    if (!thread) Log(LOG_ERROR, "StartDeviceDiscovery", "Error %u occured.", GetLastError());
    DevicesChangedPath() = path;
    OpenDevicesChangedFile();
    Configurators().push_back(new CTzEvkConfigure);
    Configurators().push_back(new CTzWfxConfigure);
  }
  // A fresh probe that the caller's refresh gives its firmware comes back at once, and would do so
  // unnoticed. A system that is slower than this is not waited for.
  if (thread) WaitForSingleObject(watching, kStartTimeoutMs);
}

const wchar_t* GetDevicesChangedPath() {
  return DevicesChangedPath().empty() ? nullptr : DevicesChangedPath().c_str();
}

bool RefreshDevices() {
  const DeviceTableGuard guard;
  MarkWhatLeft();
  CTzUSBDevice enumerator(kProbeDriverInterface, true);
  bool changed = false;
  for (CTzDeviceConfigure* configurator : Configurators()) {
    changed |= configurator->UpdateState(enumerator);
    changed |= configurator->ConfigureNewDevices(enumerator);
  }
  return Announce(changed);
}

bool HandleDeviceEvent(WPARAM event) {
  if (event == DBT_DEVICEREMOVECOMPLETE) MarkWhatLeft();
  CTzUSBDevice enumerator(kProbeDriverInterface, true);
  bool changed = false;
  for (CTzDeviceConfigure* configurator : Configurators()) {
    if (event == DBT_DEVICEARRIVAL) {
      changed |= configurator->ConfigureNewDevices(enumerator);
    } else if (event == DBT_DEVICEREMOVECOMPLETE) {
      changed |= configurator->UpdateState(enumerator);
    }
  }
  return Announce(changed);
}

void WriteDevicesChangedFile() {
  std::ofstream file = OpenDevicesChangedFile();
  if (!file) return;
  for (const ProbeEntry* entry : ListProbeEntries()) {
    file << LineText(entry->name) << "\r\n" << std::flush;
  }
}

LRESULT CALLBACK NotificationWindowProc(HWND window, UINT message, WPARAM first, LPARAM second) {
  switch (message) {
    case WM_CREATE:
    case WM_DESTROY:
      return 0;
    case WM_QUIT:
      quit = true;
      return 0;
    case WM_TIMER:  // its id is no event code: the enumeration is all that happens
    case WM_DEVICECHANGE: {
      if (message == WM_DEVICECHANGE && first == DBT_DEVICEREMOVECOMPLETE) {
        ExchangeAnnouncedRemoval(
            std::make_unique<const std::string>(NarrowText(NamedPath(second))));
      }
      const DeviceTableGuard guard;
      HandleDeviceEvent(first);
      return 1;
    }
    default:
      return DefWindowProcW(window, message, first, second);
  }
}
