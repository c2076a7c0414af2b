#include <windows.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/test_host.h"
#include "platform/windows/test_host/made_once.h"
#include "platform/windows/test_host/taken_calls.h"

namespace test_host {
namespace {

struct Notices {
  std::mutex mutex;
  std::vector<std::wstring> kept;
  std::map<std::uintptr_t, std::wstring> sources;
  std::uintptr_t next_source = 0x10000001;
};

constinit MadeOnce<Notices> TheNotices;

}  // namespace

std::vector<std::wstring> TakeNotices() {
  Notices& notices = TheNotices();
  const std::lock_guard lock(notices.mutex);
  return std::exchange(notices.kept, {});
}

namespace taken {

int WINAPI MessageBoxW(HWND, LPCWSTR text, LPCWSTR title, UINT) {
  Notices& notices = TheNotices();
  const std::lock_guard lock(notices.mutex);
  notices.kept.push_back(std::wstring(L"box|") + (title ? title : L"Error") + L"|" +
                         (text ? text : L""));
  return IDOK;
}

HANDLE WINAPI RegisterEventSourceW(LPCWSTR, LPCWSTR source) {
  Notices& notices = TheNotices();
  const std::lock_guard lock(notices.mutex);
  notices.sources.emplace(notices.next_source, source);
  return reinterpret_cast<HANDLE>(notices.next_source++);
}

BOOL WINAPI ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, PSID, WORD string_count,
                         DWORD, LPCWSTR* strings, LPVOID) {
  Notices& notices = TheNotices();
  const std::lock_guard lock(notices.mutex);
  const auto source = notices.sources.find(reinterpret_cast<std::uintptr_t>(log));
  if (source == notices.sources.end()) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  std::wstring text;
  for (WORD i = 0; i < string_count; ++i)
    text += (i > 0 ? L"\r\n" : L"") + std::wstring(strings[i]);
  notices.kept.push_back(L"event|" + source->second + L"|" + std::to_wstring(type) + L"|" +
                         std::to_wstring(category) + L"|" + std::to_wstring(id) + L"|" + text);
  return TRUE;
}

BOOL WINAPI DeregisterEventSource(HANDLE log) {
  Notices& notices = TheNotices();
  const std::lock_guard lock(notices.mutex);
  if (notices.sources.erase(reinterpret_cast<std::uintptr_t>(log)) == 1) return TRUE;
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}

}  // namespace taken
}  // namespace test_host
