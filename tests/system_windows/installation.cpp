#include "tests/system_windows/installation.h"

#include <objbase.h>

#include <winsvc.h>

#include <memory>

#include "api/identifiers.h"
#include "tests/system_windows/text.h"

namespace system_windows {
namespace {

struct ServiceCloser {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<SC_HANDLE__, ServiceCloser>;

// Calls with the handle of the service, null when it is not installed.
template <typename Call>
auto WithService(Call call) {
  const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  const ServiceHandle service(OpenServiceW(manager.get(), kServiceName, SERVICE_ALL_ACCESS));
  return call(service.get());
}

void DeleteClassesKey(const std::wstring& path) {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, (L"Software\\Classes\\" + path).c_str());
}

std::wstring MarshallersKey() {
  return L"Software\\Classes\\TypeLib\\" + GuidText(api::kLibraryId) + L"\\1.0\\0";
}

}  // namespace

Installation::Installation() { Clean(); }

Installation::~Installation() {
  Clean();
  std::error_code ignored;
  if (!program_.empty()) std::filesystem::remove_all(program_.parent_path(), ignored);
}

void Installation::Clean() const {
  SendControl(SERVICE_CONTROL_STOP);
  if (!program_.empty()) {
    for (const DWORD id : ProcessesOf(program_)) {
      const KernelHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
      TerminateProcess(process.Get(), 99);
      WaitForSingleObject(process.Get(), kPatienceMs);
    }
  }
  WithService([](SC_HANDLE service) { return service && DeleteService(service); });
  WaitUntil([] { return !IsServiceInstalled(); });
  for (const wchar_t* name : {L"TzWirefoxService.TzWirefox.1", L"TzWirefoxService.TzWirefox",
                              L"AppID\\TzWirefoxService.EXE"}) {
    DeleteClassesKey(name);
  }
  DeleteClassesKey(L"AppID\\" + GuidText(api::kAppId));
  DeleteClassesKey(L"CLSID\\" + GuidText(api::kClassId));
  for (const wchar_t* view : {L"", L"Wow6432Node\\"}) {
    DeleteClassesKey(view + (L"TypeLib\\" + GuidText(api::kLibraryId)));
    for (const GUID* id : {&api::kInterfaceIdV1, &api::kInterfaceIdV2, &api::kInterfaceIdV3}) {
      DeleteClassesKey(view + (L"Interface\\" + GuidText(*id)));
    }
  }
}

void Installation::Install(const std::wstring& folder) {
  const std::filesystem::path target = std::filesystem::temp_directory_path() / folder;
  std::filesystem::remove_all(target);
  std::filesystem::create_directories(target);
  program_ = target / "TzWirefoxService.exe";
  std::filesystem::copy_file(ServiceProgram(), program_);
}

int Installation::Run(Words options) {
  options.insert(options.begin(), program_.string());
  return RunToEnd(options).exit_status;
}

void Installation::Register(const std::string& keyword) {
  ASSERT_EQ(Run({keyword}), 0);
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, (MarshallersKey() + L"\\win64").c_str(), 0, nullptr,
                            0, KEY_WRITE, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  const std::wstring path = program_.wstring();
  RegSetValueExW(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                 static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(key);
}

bool Installation::ServiceProcessesEnd() const {
  return WaitUntil([this] { return ProcessesOf(program_).empty(); });
}

bool IsServiceInstalled() {
  return WithService([](SC_HANDLE service) { return service != nullptr; });
}

DWORD ServiceState() {
  return WithService([](SC_HANDLE service) -> DWORD {
    SERVICE_STATUS status = {};
    return service && QueryServiceStatus(service, &status) ? status.dwCurrentState : 0;
  });
}

bool StartInstalledService() {
  return WithService(
      [](SC_HANDLE service) { return service && StartServiceW(service, 0, nullptr) != FALSE; });
}

bool SendControl(DWORD control) {
  return WithService([control](SC_HANDLE service) {
    SERVICE_STATUS status = {};
    return service && ControlService(service, control, &status) != FALSE;
  });
}

}  // namespace system_windows
