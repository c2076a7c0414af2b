#include "client/service_state.h"

#include <windows.h>

#include <winsvc.h>

#include "client/text.h"

namespace client {

namespace {

// Every process of the service has it open. It guards the devices, and nobody minds who else holds
// a handle, unlike the mutex by which a second service sees the first.
constexpr wchar_t kDeviceLock[] = L"WfxDeviceLock";

ServiceState StateOfPlainServer() {
  const HANDLE lock = OpenMutexW(SYNCHRONIZE, FALSE, kDeviceLock);
  if (!lock) {
    return GetLastError() == ERROR_ACCESS_DENIED ? ServiceState::kRunningElsewhere
                                                 : ServiceState::kStopped;
  }
  CloseHandle(lock);
  return ServiceState::kRunning;
}

ServiceState StateOf(const SERVICE_STATUS& status) {
  switch (status.dwCurrentState) {
    case SERVICE_RUNNING:
      return ServiceState::kRunning;
    case SERVICE_START_PENDING:
      return ServiceState::kStarting;
    case SERVICE_STOP_PENDING:
      return ServiceState::kStopping;
    default:
      return ServiceState::kStopped;
  }
}

ServiceState StateOfService(const std::string& name) {
  SERVICE_STATUS status = {};
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  const SC_HANDLE service =
      manager ? OpenServiceW(manager, WideFromUtf8(name).c_str(), SERVICE_QUERY_STATUS) : nullptr;
  const bool is_known = service && QueryServiceStatus(service, &status) != FALSE;
  if (service) CloseServiceHandle(service);
  if (manager) CloseServiceHandle(manager);
  return is_known ? StateOf(status) : ServiceState::kStopped;
}

}  // namespace

// A service of the system may live in a session whose locks are not seen from here, and a server
// may run that no manager has started.
ServiceState FindServiceState(const Installation& installation) {
  const ServiceState managed =
      installation.service.empty() ? ServiceState::kStopped : StateOfService(installation.service);
  return managed == ServiceState::kStopped ? StateOfPlainServer() : managed;
}

}  // namespace client
