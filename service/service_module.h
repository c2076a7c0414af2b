// CTzWirefoxServiceModule: the process as a server of client objects, whether it runs as a service
// or as a plain local server.
#pragma once

#include <windows.h>

#include <winsvc.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include "api/module_lock.h"
#include "service/registration.h"

struct IUnknown;

// One per process, made and destroyed on the main thread, which is a single-threaded apartment
// meanwhile. Everything but the lock count belongs to the thread that runs the message loop, and
// before that to the main thread; the control handler changes only the reported state.
//
// The process does not linger: a plain local server ends as soon as its last client has gone.
class CTzWirefoxServiceModule : public api::ModuleLock, public RegistrationNames {
 public:
  CTzWirefoxServiceModule();
  CTzWirefoxServiceModule(const CTzWirefoxServiceModule&) = delete;
  CTzWirefoxServiceModule& operator=(const CTzWirefoxServiceModule&) = delete;
  ~CTzWirefoxServiceModule() override;

  // The count of live client objects and server locks. In local-server mode, the decrement to 0
  // ends the message loop; as a service it changes nothing.
  LONG Lock() override;
  LONG Unlock() override;
  LONG GetLockCount() const override;

  // The process's global interface table, created on first use; the module keeps its reference, the
  // caller gets one more. The status of creating it, and null, where the host has none.
  virtual HRESULT GetGlobalInterfaceTable(IUnknown** table);

  void AddScriptReplacements(ScriptReplacements& replacements) const override;
  const std::wstring& ServiceName() const override { return service_name_; }

  // Obeys the command line (the whole line, program path included) and returns the exit code of the
  // process: of a registration command its status, of a run its outcome; -1 when construction
  // failed.
  int Main(const wchar_t* command_line);

  // What the service dispatcher's thread does, from its start to the end of the service.
  void ServiceMain();

  // Control codes: a stop ends the message loop once the call in progress has returned; pause,
  // continue, interrogate and shutdown do nothing.
  void HandleControl(DWORD control);

 private:
  int Start();
  int RunAsService();
  void RunServiceThread();
  void SetServiceThreadRuns(bool runs);
  HRESULT Run();
  bool InstallControlHandler();
  void SetServiceState(DWORD state);
  void LogServiceEvent(const std::wstring& text) const;

  std::wstring service_name_;
  bool as_service_ = true;
  std::mutex status_mutex_;  // guards the two below: the control handler reports, too
  SERVICE_STATUS status_ = {};
  SERVICE_STATUS_HANDLE status_handle_ = nullptr;
  std::atomic<DWORD> service_thread_id_{0};  // the control handler's thread reads it
  const DWORD main_thread_id_;
  std::atomic<LONG> lock_count_{0};
  bool library_initialised_ = false;
  bool construction_failed_ = false;
  IUnknown* interface_table_ = nullptr;

  // Waited for with a lock: the atomics of one of the compilers' libraries can miss their waker.
  std::mutex service_thread_mutex_;
  std::condition_variable service_thread_ended_;
  bool service_thread_runs_ = false;
};
