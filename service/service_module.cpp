#include "service/service_module.h"

#include <objbase.h>

#include <array>
#include <cstdio>

#include "api/class_factory.h"
#include "api/identifiers.h"
#include "service/command_line.h"
#include "service/registry_data.h"
#include "service/registry_key.h"

namespace {

// The name of the service in the executable's resources, and the same name for an executable that
// carries none.
constexpr UINT kServiceNameResource = 100;
constexpr wchar_t kServiceName[] = L"TzWirefoxService";
constexpr int kServiceNameRoom = 256;

constexpr int kConstructionFailed = -1;

constexpr DWORD kLocalServiceRoom = 260;

// The component library's own global interface table.
constexpr GUID kGlobalInterfaceTableClass = {
    0x00000323, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr GUID kGlobalInterfaceTableId = {
    0x00000146, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// The service dispatcher's callbacks carry no context.
CTzWirefoxServiceModule* the_module = nullptr;

VOID WINAPI RunServiceMain(DWORD, LPWSTR*) { the_module->ServiceMain(); }

VOID WINAPI RunControlHandler(DWORD control) { the_module->HandleControl(control); }

std::wstring LoadServiceName() {
  std::array<wchar_t, kServiceNameRoom> text = {};
  const int length =
      LoadStringW(GetModuleHandleW(nullptr), kServiceNameResource, text.data(), kServiceNameRoom);
  return length > 0 ? std::wstring(text.data(), static_cast<std::size_t>(length)) : kServiceName;
}

// Whether a thread whose apartment somebody else has chosen can be lived with: the managed-code
// runtime does so in its processes.
bool CanGoOn(HRESULT initialised) {
  return SUCCEEDED(initialised) ||
         (initialised == RPC_E_CHANGED_MODE && GetModuleHandleW(L"mscoree.dll"));
}

// Whether the registered value tells the server to run as a service.
bool SaysService(HKEY app_id) {
  std::array<wchar_t, kLocalServiceRoom> text = {};
  DWORD type = 0;
  DWORD size = sizeof(text);
  const LONG result = RegQueryValueExW(app_id, kLocalServiceValue, nullptr, &type,
                                       reinterpret_cast<BYTE*>(text.data()), &size);
  if (result != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return false;
  const std::size_t length = size / sizeof(wchar_t);
  return length > 0 && size % sizeof(wchar_t) == 0 && text[length - 1] == 0;
}

void RunMessageLoop() {
  MSG message = {};
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

}  // namespace

CTzWirefoxServiceModule::CTzWirefoxServiceModule() : main_thread_id_(GetCurrentThreadId()) {
  the_module = this;
  status_.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status_.dwCurrentState = SERVICE_STOPPED;
  status_.dwControlsAccepted = SERVICE_ACCEPT_STOP;
  const HRESULT initialised = CoInitialize(nullptr);
  library_initialised_ = SUCCEEDED(initialised);
  construction_failed_ = !CanGoOn(initialised);
  service_name_ = LoadServiceName();
}

CTzWirefoxServiceModule::~CTzWirefoxServiceModule() {
  if (interface_table_) interface_table_->Release();
  if (library_initialised_) CoUninitialize();
  the_module = nullptr;
}

LONG CTzWirefoxServiceModule::Lock() { return ++lock_count_; }

LONG CTzWirefoxServiceModule::Unlock() {
  const LONG count = --lock_count_;
  if (count == 0 && !as_service_) PostThreadMessageW(main_thread_id_, WM_QUIT, 0, 0);
  return count;
}

LONG CTzWirefoxServiceModule::GetLockCount() const { return lock_count_; }

HRESULT CTzWirefoxServiceModule::GetGlobalInterfaceTable(IUnknown** table) {
  if (!table) return E_POINTER;
  *table = nullptr;
  if (!interface_table_) {
    void* created = nullptr;
    const HRESULT result =
        CoCreateInstance(kGlobalInterfaceTableClass, nullptr, CLSCTX_INPROC_SERVER,
                         kGlobalInterfaceTableId, &created);
    if (FAILED(result)) return result;
    interface_table_ = static_cast<IUnknown*>(created);
  }
  interface_table_->AddRef();
  *table = interface_table_;
  return S_OK;
}

void CTzWirefoxServiceModule::AddScriptReplacements(ScriptReplacements& replacements) const {
  replacements.Add(kAppIdReplacement, GuidText(api::kAppId));
}

int CTzWirefoxServiceModule::Main(const wchar_t* command_line) {
  if (construction_failed_) return kConstructionFailed;
  switch (ParseCommandLine(command_line)) {
    case ServerCommand::kUnregister:
      return Unregister(*this);
    case ServerCommand::kRegister:
      return RegisterAsLocalServer(*this);
    case ServerCommand::kRegisterService:
      return RegisterAsService(*this);
    case ServerCommand::kRun:
      break;
  }
  return Start();
}

int CTzWirefoxServiceModule::Start() {
  RegistryKey parent;
  RegistryKey app_id;
  LONG result = OpenKey(HKEY_CLASSES_ROOT, kAppIdParentKey, KEY_READ, parent);
  if (result == ERROR_SUCCESS) {
    result = OpenKey(parent.Get(), GuidText(api::kAppId), KEY_READ, app_id);
  }
  if (result != ERROR_SUCCESS) {
    // Never registered: nobody could reach it.
    status_.dwWin32ExitCode = static_cast<DWORD>(result);
    return static_cast<int>(result);
  }
  as_service_ = SaysService(app_id.Get());
  app_id.Reset();
  parent.Reset();
  return as_service_ ? RunAsService() : Run();
}

int CTzWirefoxServiceModule::RunAsService() {
  const SERVICE_TABLE_ENTRYW table[] = {{service_name_.data(), RunServiceMain}, {}};
  if (StartServiceCtrlDispatcherW(table) == FALSE) return static_cast<int>(GetLastError());
  // The dispatcher may return as soon as the service has reported that it stopped, while its thread
  // still has its last words to say.
  std::unique_lock lock(service_thread_mutex_);
  service_thread_ended_.wait(lock, [this] { return !service_thread_runs_; });
  return static_cast<int>(status_.dwWin32ExitCode);
}

void CTzWirefoxServiceModule::ServiceMain() {
  SetServiceThreadRuns(true);
  RunServiceThread();
  // The last that it does with the module, which may be gone when this returns.
  SetServiceThreadRuns(false);
}

void CTzWirefoxServiceModule::SetServiceThreadRuns(bool runs) {
  const std::lock_guard lock(service_thread_mutex_);
  service_thread_runs_ = runs;
  service_thread_ended_.notify_all();
}

void CTzWirefoxServiceModule::RunServiceThread() {
  if (!InstallControlHandler()) {
    LogServiceEvent(L"Handler not installed");
    return;
  }
  SetServiceState(SERVICE_START_PENDING);
  {
    const std::lock_guard lock(status_mutex_);
    status_.dwWin32ExitCode = 0;
    status_.dwCheckPoint = 0;
    status_.dwWaitHint = 0;
  }

  const HRESULT initialised = CoInitialize(nullptr);
  // When the thread cannot be an apartment the service reports that it stopped, with the reason as
  // its exit code: the manager must not wait for a start that will not come.
  const HRESULT result = CanGoOn(initialised) ? Run() : initialised;
  {
    const std::lock_guard lock(status_mutex_);
    status_.dwWin32ExitCode = static_cast<DWORD>(result);
  }
  if (SUCCEEDED(initialised)) CoUninitialize();
  SetServiceState(SERVICE_STOPPED);
  LogServiceEvent(L"Service stopped");
}

// A control may come before the call returns: it waits until the handle to answer by is stored.
bool CTzWirefoxServiceModule::InstallControlHandler() {
  const std::lock_guard lock(status_mutex_);
  status_.dwCurrentState = SERVICE_START_PENDING;
  status_handle_ = RegisterServiceCtrlHandlerW(service_name_.c_str(), RunControlHandler);
  return status_handle_ != nullptr;
}

void CTzWirefoxServiceModule::HandleControl(DWORD control) {
  switch (control) {
    case SERVICE_CONTROL_STOP:
      SetServiceState(SERVICE_STOP_PENDING);
      PostThreadMessageW(service_thread_id_, WM_QUIT, 0, 0);
      break;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE:
    case SERVICE_CONTROL_INTERROGATE:
    case SERVICE_CONTROL_SHUTDOWN:
      break;
    default:
      LogServiceEvent(L"Bad service request");
      break;
  }
}

HRESULT CTzWirefoxServiceModule::Run() {
  if (as_service_) {
    service_thread_id_ = GetCurrentThreadId();
    // Who may call is decided by the access permission in the registry. A failure does not keep the
    // service from starting: clients are then checked by the system's own rules.
    static_cast<void>(CoInitializeSecurity(nullptr, 0, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE,
                                           RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr));
  }
  IUnknown* factory = api::TzWirefoxFactory::Create(*this);
  if (!factory) return E_OUTOFMEMORY;
  DWORD cookie = 0;
  const HRESULT published = CoRegisterClassObject(api::kClassId, factory, CLSCTX_LOCAL_SERVER,
                                                  REGCLS_MULTIPLEUSE, &cookie);
  factory->Release();
  if (FAILED(published)) return published;
  if (as_service_) {
    LogServiceEvent(L"Service started");
    SetServiceState(SERVICE_RUNNING);
  }
  // Any other success means that there is nothing to wait for.
  if (published == S_OK) RunMessageLoop();
  return CoRevokeClassObject(cookie);
}

void CTzWirefoxServiceModule::SetServiceState(DWORD state) {
  const std::lock_guard lock(status_mutex_);
  status_.dwCurrentState = state;
  SetServiceStatus(status_handle_, &status_);
}

// An event of the log is named after the service. A failure to register it drops the event.
void CTzWirefoxServiceModule::LogServiceEvent(const std::wstring& text) const {
  constexpr std::size_t kMaxCharacters = 255;
  const std::wstring event = text.substr(0, kMaxCharacters);
  if (!as_service_) std::printf("%ls\n", event.c_str());
  const HANDLE source = RegisterEventSourceW(nullptr, service_name_.c_str());
  if (!source) return;
  const wchar_t* strings[] = {event.c_str()};
  ReportEventW(source, EVENTLOG_INFORMATION_TYPE, 0, 0, nullptr, 1, 0, strings, nullptr);
  DeregisterEventSource(source);
}
