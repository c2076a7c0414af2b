// The service control manager's calls on systemd: a service is a unit file. The calls of a process
// that runs as a service are apart (service_dispatcher.cpp): a program may bring a manager of its
// own.
#include <windows.h>

#include <winsvc.h>

#include <fcntl.h>
#include <unistd.h>

#include <cwchar>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "platform/linux/kernel/text.h"
#include "platform/linux/services/registration_files.h"
#include "platform/linux/services/registration_texts.h"
#include "platform/linux/services/server_process.h"
#include "platform/linux/services/systemd_manager.h"

namespace linux_host {
namespace {

// The manager's, or a service's.
struct Opened {
  std::string unit_file;  // empty: the manager
  DWORD access;
};

// Numbers of their own, so that the calls for other handles refuse them.
constexpr std::uintptr_t kFirstHandle = 0x20000001;

struct Handles {
  std::mutex mutex;
  std::uintptr_t next = kFirstHandle;
  std::map<std::uintptr_t, Opened> opened;
};

Handles& TheHandles() {
  static auto& handles = *new Handles;
  return handles;
}

SC_HANDLE AddHandle(Opened opened) {
  Handles& handles = TheHandles();
  const std::lock_guard lock(handles.mutex);
  handles.opened.emplace(handles.next, std::move(opened));
  return reinterpret_cast<SC_HANDLE>(handles.next++);
}

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

SC_HANDLE FailToOpen(DWORD error) {
  SetLastError(error);
  return nullptr;
}

// What stands behind a handle of that kind which grants `access`. None with the error set.
std::optional<Opened> LookUp(SC_HANDLE handle, bool is_manager, DWORD access) {
  Handles& handles = TheHandles();
  const std::lock_guard lock(handles.mutex);
  const auto found = handles.opened.find(reinterpret_cast<std::uintptr_t>(handle));
  if (found == handles.opened.end() || found->second.unit_file.empty() != is_manager) {
    SetLastError(ERROR_INVALID_HANDLE);
    return std::nullopt;
  }
  if ((found->second.access & access) != access) {
    SetLastError(ERROR_ACCESS_DENIED);
    return std::nullopt;
  }
  return found->second;
}

bool Exists(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool MayChangeServices() { return MayWriteTo(FolderOf(RegistrationFolder::kUnit)); }

std::string FileName(const std::string& unit) { return "/" + unit + ".service"; }

// Empty when no service can have the name.
std::string UnitFileOf(LPCWSTR name) {
  const std::string text = name ? WideToUtf8(name) : "";
  if (!IsUnitName(text)) return "";
  return FolderOf(RegistrationFolder::kUnit) + FileName(text);
}

// The machine's service of that name, for who only asks for its state. Empty when there is none.
std::string UnitFileToAsk(LPCWSTR name) {
  for (const std::string& folder : UnitFolders()) {
    std::string unit_file = folder + FileName(WideToUtf8(name));
    if (Exists(unit_file)) return unit_file;
  }
  return "";
}

// The units in place of the services in a list, whose names each end with a zero. False for a
// service that this host has nothing for.
bool FindNeeds(LPCWSTR dependencies, std::vector<std::string>& units) {
  for (; dependencies && *dependencies != 0; dependencies += std::wcslen(dependencies) + 1) {
    // Remote calls arrive over the message bus here.
    if (std::wstring_view(dependencies) != L"RPCSS") return false;
    units.emplace_back("dbus.socket");
  }
  return true;
}

SERVICE_STATUS StatusOf(UnitState state) {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state == UnitState::kStarting   ? SERVICE_START_PENDING
                          : state == UnitState::kRunning  ? SERVICE_RUNNING
                          : state == UnitState::kStopping ? SERVICE_STOP_PENDING
                                                          : SERVICE_STOPPED;
  if (state == UnitState::kRunning) status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
  return status;
}

DWORD StopService(const std::string& unit_file, SERVICE_STATUS& status) {
  const UnitState state = AskUnitState(unit_file);
  status = StatusOf(state);
  if (state == UnitState::kStopped) return ERROR_SERVICE_NOT_ACTIVE;
  if (state != UnitState::kRunning) return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  if (!StopUnit(unit_file)) return ERROR_ACCESS_DENIED;
  status = StatusOf(UnitState::kStopping);
  return ERROR_SUCCESS;
}

}  // namespace
}  // namespace linux_host

using namespace linux_host;

SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access) {
  if (machine && *machine) return FailToOpen(RPC_S_SERVER_UNAVAILABLE);
  if (database && *database) return FailToOpen(ERROR_DATABASE_DOES_NOT_EXIST);
  constexpr DWORD kForAll = SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE;
  if ((access & ~kForAll) != 0 && !MayChangeServices()) return FailToOpen(ERROR_ACCESS_DENIED);
  return AddHandle({"", access});
}

SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access) {
  if (!LookUp(manager, true, SC_MANAGER_CONNECT)) return nullptr;
  std::string unit_file = UnitFileOf(name);
  if (unit_file.empty()) return FailToOpen(ERROR_INVALID_NAME);
  constexpr DWORD kForAll = SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS;
  // Whether there is one to install or to remove goes by this account's own.
  if (access == SERVICE_QUERY_STATUS) unit_file = UnitFileToAsk(name);
  if (!Exists(unit_file)) return FailToOpen(ERROR_SERVICE_DOES_NOT_EXIST);
  if ((access & ~kForAll) != 0 && !MayChangeServices()) return FailToOpen(ERROR_ACCESS_DENIED);
  return AddHandle({std::move(unit_file), access});
}

SC_HANDLE CreateServiceW(SC_HANDLE manager, LPCWSTR name, LPCWSTR display_name, DWORD access,
                         DWORD type, DWORD start_type, DWORD error_control, LPCWSTR path,
                         LPCWSTR load_order_group, LPDWORD tag, LPCWSTR dependencies,
                         LPCWSTR account, LPCWSTR password) {
  if (!LookUp(manager, true, SC_MANAGER_CREATE_SERVICE)) return nullptr;
  const std::string unit_file = UnitFileOf(name);
  if (unit_file.empty()) return FailToOpen(ERROR_INVALID_NAME);
  if (Exists(unit_file)) return FailToOpen(ERROR_SERVICE_EXISTS);
  UnitDescription unit;
  unit.description = WideToUtf8(display_name ? display_name : name);
  unit.command = SplitCommand(path ? WideToUtf8(path) : "");
  unit.variables = InstallationVariables();
  unit.is_the_machines = ServicesAreTheMachines();
  if (type != SERVICE_WIN32_OWN_PROCESS || start_type != SERVICE_DEMAND_START ||
      error_control != SERVICE_ERROR_NORMAL || load_order_group || tag || account || password ||
      unit.command.empty() || !unit.command.front().starts_with('/') ||
      !FindNeeds(dependencies, unit.needs)) {
    return FailToOpen(ERROR_INVALID_PARAMETER);
  }
  const DWORD error = WriteRegistrationFile(unit_file, UnitText(unit));
  if (error != ERROR_SUCCESS) return FailToOpen(error);
  ReloadUnits();
  return AddHandle({unit_file, access});
}

BOOL ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status) {
  const auto opened = LookUp(service, false, control == SERVICE_CONTROL_STOP ? SERVICE_STOP : 0);
  if (!opened) return FALSE;
  if (!status) return Fail(ERROR_INVALID_PARAMETER);
  if (control != SERVICE_CONTROL_STOP) {
    *status = StatusOf(AskUnitState(opened->unit_file));
    return Fail(ERROR_INVALID_SERVICE_CONTROL);
  }
  const DWORD error = StopService(opened->unit_file, *status);
  return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

BOOL QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status) {
  const auto opened = LookUp(service, false, SERVICE_QUERY_STATUS);
  if (!opened) return FALSE;
  if (!status) return Fail(ERROR_INVALID_PARAMETER);
  *status = StatusOf(AskUnitState(opened->unit_file));
  return TRUE;
}

BOOL DeleteService(SC_HANDLE service) {
  const auto opened = LookUp(service, false, DELETE);
  if (!opened) return FALSE;
  if (!Exists(opened->unit_file)) return Fail(ERROR_SERVICE_MARKED_FOR_DELETE);
  const DWORD error = RemoveRegistrationFile(opened->unit_file);
  if (error != ERROR_SUCCESS) return Fail(error);
  ReloadUnits();
  return TRUE;
}

BOOL CloseServiceHandle(SC_HANDLE handle) {
  Handles& handles = TheHandles();
  const std::lock_guard lock(handles.mutex);
  if (handles.opened.erase(reinterpret_cast<std::uintptr_t>(handle)) == 1) return TRUE;
  return Fail(ERROR_INVALID_HANDLE);
}
