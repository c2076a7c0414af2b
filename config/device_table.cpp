#include "config/device_table.h"

#include <cwchar>

#include "config/device_configure.h"
#include "support/handle.h"
#include "support/log.h"

namespace {

constexpr const wchar_t* kLockName = L"WfxDeviceLock";
constexpr DWORD kRetryPauseMs = 100;

// Opens the mutex or creates it. Creating asks for every right on one that exists; waiting and
// releasing need less, and get by where that is refused.
KernelHandle OpenLock() {
  KernelHandle lock(CreateMutexW(nullptr, FALSE, kLockName));
  if (!lock) lock.Reset(OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kLockName));
  return lock;
}

// A holder that ended without releasing has left the table as it was in its own process: there is
// nothing to repair here.
bool Acquire(const KernelHandle& lock, DWORD timeout_ms) {
  const DWORD waited = WaitForSingleObject(lock.Get(), timeout_ms);
  return waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
}

}  // namespace

HANDLE LockDeviceTable() {
  bool logged = false;
  for (;;) {
    KernelHandle lock = OpenLock();
    if (lock && Acquire(lock, INFINITE)) return lock.Release();
    if (!logged) Log(LOG_ERROR, "LockDeviceTable", "Error %u occured.", GetLastError());
    logged = true;
    Sleep(kRetryPauseMs);
  }
}

void UnlockDeviceTable(HANDLE lock) {
  const KernelHandle closed_at_end(lock);
  ReleaseMutex(lock);
}

HANDLE TryLockDeviceTable(std::uint32_t timeout_ms) {
  KernelHandle lock = OpenLock();
  return lock && Acquire(lock, timeout_ms) ? lock.Release() : nullptr;
}

bool CanOpenDeviceTableLock() { return static_cast<bool>(OpenLock()); }

std::vector<CTzDeviceConfigure*>& Configurators() {
  static auto& configurators = *new std::vector<CTzDeviceConfigure*>;
  return configurators;
}

std::vector<ProbeEntry*> ListProbeEntries() {
  std::vector<ProbeEntry*> entries;
  for (CTzDeviceConfigure* configurator : Configurators()) {
    const std::vector<ProbeEntry*> family = configurator->GetConfiguredDevices();
    entries.insert(entries.end(), family.begin(), family.end());
  }
  return entries;
}

ProbeEntry* FindProbeByName(const wchar_t* name) {
  if (!name) return nullptr;
  for (ProbeEntry* entry : ListProbeEntries()) {
    if (entry->name && std::wcscmp(entry->name, name) == 0) return entry;
  }
  return nullptr;
}

std::int64_t SessionHandleOf(HANDLE session_mutex) {
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(session_mutex));
}

ProbeEntry* FindProbeByHandle(std::int64_t session) {
  if (session == 0) return nullptr;
  for (ProbeEntry* entry : ListProbeEntries()) {
    for (const TargetRecord& target : entry->targets) {
      if (SessionHandleOf(target.sessionMutex) == session) return entry;
    }
  }
  return nullptr;
}
