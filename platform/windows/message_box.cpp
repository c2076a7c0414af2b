// Message boxes of the service's executable: shown where somebody can answer them.
//
// A service, or a process that a service starts, has a window station of its own that nobody sees:
// a box there would wait for ever. Its text goes to the standard error and to the event log
// instead.
#include <windows.h>

#include <cstdio>

namespace {

constexpr wchar_t kEventSource[] = L"TzWirefoxService";

bool SomebodyCanAnswer() {
  USEROBJECTFLAGS flags = {};
  DWORD needed = 0;
  const HWINSTA station = GetProcessWindowStation();
  return station &&
         GetUserObjectInformationW(station, UOI_FLAGS, &flags, sizeof flags, &needed) != FALSE &&
         (flags.dwFlags & WSF_VISIBLE) != 0;
}

void Record(LPCWSTR text, LPCWSTR title, UINT type) {
  std::fprintf(stderr, "%ls: %ls\n", title ? title : L"Error", text);
  // A box with the error icon repeats an event that is in the log already.
  if ((type & MB_ICONMASK) == MB_ICONERROR) return;
  const HANDLE log = RegisterEventSourceW(nullptr, kEventSource);
  if (!log) return;
  LPCWSTR strings[] = {text};
  ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, 0, nullptr, 1, 0, strings, nullptr);
  DeregisterEventSource(log);
}

int WINAPI ShowOrRecord(HWND owner, LPCWSTR text, LPCWSTR title, UINT type) {
  if (SomebodyCanAnswer()) return MessageBoxExW(owner, text, title, type, 0);
  Record(text, title, type);
  return IDOK;
}

}  // namespace

// The call of the system's DLL goes through this pointer, which the import library defines unless
// the program does.
extern "C" {
constinit auto __imp_MessageBoxW = &ShowOrRecord;
}
