#include "service/service_installer.h"

#include <windows.h>

#include <winsvc.h>

#include <array>

#include "service/module_path.h"
#include "support/handle.h"

namespace {

struct ServiceHandleTraits {
  using Type = SC_HANDLE;
  static Type Null() { return nullptr; }
  static void Close(Type handle) { CloseServiceHandle(handle); }
};
using ServiceHandle = UniqueHandle<ServiceHandleTraits>;

// A message, and the string of the program's resources that may stand in for it, so that it can be
// translated.
struct Message {
  UINT resource;
  const wchar_t* text;
};

constexpr Message kCannotOpenManager = {55306, L"Could not open Service Manager"};
constexpr Message kCannotCreate = {55307, L"Could not start service"};
constexpr Message kCannotOpen = {55308, L"Could not open service"};
constexpr Message kCannotDelete = {55309, L"Could not delete service"};
constexpr Message kCannotStop = {55310, L"Could not stop service"};

// A list of names, each ended by a zero, with one more at its end.
constexpr wchar_t kDependencies[] = L"RPCSS\0";

void Show(const Message& message, const std::wstring& title) {
  std::array<wchar_t, 256> text = {};
  const int length = LoadStringW(GetModuleHandleW(nullptr), message.resource, text.data(),
                                 static_cast<int>(text.size()));
  MessageBoxW(nullptr, length > 0 ? text.data() : message.text, title.c_str(), MB_OK);
}

ServiceHandle OpenManager() {
  return ServiceHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
}

bool IsInstalled(const std::wstring& name) {
  const ServiceHandle manager = OpenManager();
  if (!manager) return false;
  return bool(ServiceHandle(OpenServiceW(manager.Get(), name.c_str(), SERVICE_QUERY_CONFIG)));
}

// Whether a stop that was refused needs no word: the service does not run, or is stopping already.
// `status` is what came with the refusal: a handle that may stop a service need not be one that may
// ask for its status.
bool IsStoppedOrStopping(DWORD error, const SERVICE_STATUS& status) {
  return error == ERROR_SERVICE_NOT_ACTIVE || (error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL &&
                                               status.dwCurrentState == SERVICE_STOP_PENDING);
}

}  // namespace

bool InstallService(const std::wstring& name) {
  if (IsInstalled(name)) return true;
  std::wstring path;
  if (GetModulePath(path) != ERROR_SUCCESS) return false;
  const ServiceHandle manager = OpenManager();
  if (!manager) {
    Show(kCannotOpenManager, name);
    return false;
  }
  const ServiceHandle service(
      CreateServiceW(manager.Get(), name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                     SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                     InQuotes(path).c_str(), nullptr, nullptr, kDependencies, nullptr, nullptr));
  if (!service) {
    Show(kCannotCreate, name);
    return false;
  }
  return true;
}

bool UninstallService(const std::wstring& name) {
  if (!IsInstalled(name)) return true;
  const ServiceHandle manager = OpenManager();
  if (!manager) {
    Show(kCannotOpenManager, name);
    return false;
  }
  const ServiceHandle service(OpenServiceW(manager.Get(), name.c_str(), SERVICE_STOP | DELETE));
  if (!service) {
    Show(kCannotOpen, name);
    return false;
  }
  SERVICE_STATUS status = {};
  if (ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) == FALSE) {
    if (!IsStoppedOrStopping(GetLastError(), status)) Show(kCannotStop, name);
  }
  if (DeleteService(service.Get()) == FALSE) {
    Show(kCannotDelete, name);
    return false;
  }
  return true;
}
