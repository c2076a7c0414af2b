#include "service/single_instance.h"

namespace {

constexpr wchar_t kMutexName[] = L"TzWirefoxService";
constexpr wchar_t kEventSource[] = L"Application";
constexpr WORD kEventCategory = 1;
constexpr DWORD kEventId = 11;
constexpr wchar_t kBoxTitle[] = L"WirefoxService Error";
constexpr wchar_t kText[] =
    L"The WirefoxService was unable to startup because another instance was already running.\r\n"
    L"Verify that only one user account is trying to access it at a time.";
constexpr int kExitCode = -1;

}  // namespace

SingleInstanceGuard::SingleInstanceGuard() : mutex_(CreateMutexW(nullptr, TRUE, kMutexName)) {}

int SingleInstanceGuard::ReportFailure() const {
  if (const HANDLE source = RegisterEventSourceW(nullptr, kEventSource); source) {
    const wchar_t* strings[] = {kText};
    ReportEventW(source, EVENTLOG_ERROR_TYPE, kEventCategory, kEventId, nullptr, 1, 0, strings,
                 nullptr);
    DeregisterEventSource(source);
  }
  MessageBoxW(nullptr, kText, kBoxTitle, MB_OK | MB_ICONERROR);
  return kExitCode;
}
