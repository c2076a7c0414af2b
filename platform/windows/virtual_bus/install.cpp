// wfxvbus: installs the virtual bus driver on a test machine, and removes it. No INF file is
// needed: the device at the root, its service and the tie between them are made directly.
#include <windows.h>

#include <devguid.h>
#include <setupapi.h>

#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <string>

namespace {

constexpr wchar_t kService[] = L"wfxvbus";
constexpr wchar_t kDriverFile[] = L"wfxvbus.sys";
constexpr wchar_t kRootDevice[] = L"ROOT\\WFXVBUS\\0000";
constexpr wchar_t kHardwareIds[] = L"root\\wfxvbus\0";
constexpr wchar_t kDescription[] = L"Virtual bus for simulated probes";

constexpr int kFailed = 1;
constexpr int kUsage = 2;

class Service {
 public:
  explicit Service(SC_HANDLE handle) : handle_(handle) {}
  ~Service() {
    if (handle_) CloseServiceHandle(handle_);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  SC_HANDLE Get() const { return handle_; }

 private:
  const SC_HANDLE handle_;
};

class DeviceSet {
 public:
  DeviceSet() : set_(SetupDiCreateDeviceInfoList(&GUID_DEVCLASS_SYSTEM, nullptr)) {}
  ~DeviceSet() { SetupDiDestroyDeviceInfoList(set_); }
  DeviceSet(const DeviceSet&) = delete;
  DeviceSet& operator=(const DeviceSet&) = delete;
  HDEVINFO Get() const { return set_; }

 private:
  const HDEVINFO set_;
};

int Fail(const char* step) {
  std::fprintf(stderr, "wfxvbus: %s: error %lu\n", step, GetLastError());
  return kFailed;
}

std::wstring DriverPath() {
  std::wstring path(MAX_PATH, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
  return std::filesystem::path(path).replace_filename(kDriverFile).wstring();
}

bool RegisterRootDevice() {
  const DeviceSet set;
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof device;
  if (SetupDiOpenDeviceInfoW(set.Get(), kRootDevice, nullptr, 0, &device)) return true;
  return SetupDiCreateDeviceInfoW(set.Get(), kRootDevice, &GUID_DEVCLASS_SYSTEM, kDescription,
                                  nullptr, 0, &device) &&
         SetupDiSetDeviceRegistryPropertyW(set.Get(), &device, SPDRP_HARDWAREID,
                                           reinterpret_cast<const BYTE*>(kHardwareIds),
                                           sizeof kHardwareIds) &&
         SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set.Get(), &device) &&
         SetupDiSetDeviceRegistryPropertyW(set.Get(), &device, SPDRP_SERVICE,
                                           reinterpret_cast<const BYTE*>(kService),
                                           sizeof kService);
}

// The service's file is set anew where there is one: the driver may lie elsewhere by now.
bool RegisterService(SC_HANDLE manager, const std::wstring& path) {
  const Service made(CreateServiceW(
      manager, kService, kService, SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START,
      SERVICE_ERROR_NORMAL, path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
  if (made.Get()) return true;
  if (GetLastError() != ERROR_SERVICE_EXISTS) return false;
  const Service present(OpenServiceW(manager, kService, SERVICE_ALL_ACCESS));
  return present.Get() && ChangeServiceConfigW(present.Get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                               SERVICE_NO_CHANGE, path.c_str(), nullptr, nullptr,
                                               nullptr, nullptr, nullptr, nullptr);
}

int Install() {
  const Service manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!manager.Get()) return Fail("cannot reach the service manager");
  const std::wstring path = DriverPath();
  if (!std::filesystem::exists(path)) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return Fail("wfxvbus.sys is not beside this program");
  }
  if (!RegisterService(manager.Get(), path)) return Fail("cannot register the driver");
  if (!RegisterRootDevice()) return Fail("cannot register the bus");
  const Service service(OpenServiceW(manager.Get(), kService, SERVICE_ALL_ACCESS));
  if (!service.Get()) return Fail("cannot open the driver's service");
  if (!StartServiceW(service.Get(), 0, nullptr) &&
      GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
    return Fail("cannot start the driver");
  }
  std::printf("wfxvbus: the driver is installed and runs\n");
  return 0;
}

int Remove() {
  const DeviceSet set;
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof device;
  if (SetupDiOpenDeviceInfoW(set.Get(), kRootDevice, nullptr, 0, &device) &&
      !SetupDiCallClassInstaller(DIF_REMOVE, set.Get(), &device)) {
    return Fail("cannot remove the bus");
  }
  const Service manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!manager.Get()) return Fail("cannot reach the service manager");
  const Service service(OpenServiceW(manager.Get(), kService, SERVICE_ALL_ACCESS));
  bool stopped = true;
  if (service.Get()) {
    // Without its device the driver can be unloaded, unless somebody still uses it.
    SERVICE_STATUS status{};
    stopped = ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) ||
              GetLastError() == ERROR_SERVICE_NOT_ACTIVE;
    if (!DeleteService(service.Get())) return Fail("cannot delete the driver's service");
  }
  std::printf("wfxvbus: the driver is removed%s\n",
              stopped ? "" : "; it runs until the system is restarted");
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc == 2 && std::wcscmp(argv[1], L"install") == 0) return Install();
  if (argc == 2 && std::wcscmp(argv[1], L"remove") == 0) return Remove();
  std::fprintf(
      stderr,
      "usage: wfxvbus install | remove\n"
      "Installs the driver that presents simulated probes to this machine, or removes it.\n");
  return kUsage;
}
