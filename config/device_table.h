// The device table: the configured probes, the targets behind them, and the lock that guards them.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device/device.h"

// One target behind a probe.
struct TargetRecord {
  std::uint32_t targetId = 0;
  // Null while no session is on the target. Its handle's value is the session handle.
  HANDLE sessionMutex = nullptr;
  std::uint32_t ownerPID = 0;  // 0: no owner
};

// One configured probe. Guarded by the device-table lock.
struct ProbeEntry {
  std::unique_ptr<CTzDevice> device;
  const wchar_t* name = nullptr;  // the serial-number string inside `device`; lives as long
  std::string path;               // device-interface path: names the attachment
  std::vector<TargetRecord> targets;
  // The mutexes of sessions that have ended, released. They stay open until the list of targets is
  // replaced: a session handle's value must not be given to another session meanwhile.
  std::vector<HANDLE> endedSessions;
  std::uint32_t mode = 0;  // transfer mode as last set or reported
  // The attachment has ended, even when its path is listed: the next removal pass disposes of it.
  bool left = false;
  std::optional<std::uint32_t> voltage;    // the target's, by its code, once a client has set it
  std::uint64_t calls = 0;                 // of clients
  std::uint8_t* activityRecord = nullptr;  // where config/activity_file.h shows the probe
};

class CTzDeviceConfigure;

// Takes the one lock of the device table and of everything reachable from it, waiting without time
// limit, and returns the handle to give to UnlockDeviceTable. Re-entrant on the thread that holds
// it; to be released as often as taken. When the mutex can be neither opened nor created (another
// account or another kind of object holds its name) it tries again for ever, a tenth of a second
// apart, and logs that once: no caller can go on without the lock.
[[nodiscard]] HANDLE LockDeviceTable();
void UnlockDeviceTable(HANDLE lock);

// As LockDeviceTable, but null when the lock cannot be had at once or does not come free within
// `timeout_ms`: only for who can do without it.
[[nodiscard]] HANDLE TryLockDeviceTable(std::uint32_t timeout_ms);

// Whether the lock's mutex can be opened or created now. A process that may be shut out, because a
// service of another account holds it, asks before it takes the lock for the first time.
[[nodiscard]] bool CanOpenDeviceTableLock();

// Holds the device-table lock while it lives.
class DeviceTableGuard {
 public:
  DeviceTableGuard() : lock_(LockDeviceTable()) {}
  ~DeviceTableGuard() { UnlockDeviceTable(lock_); }
  DeviceTableGuard(const DeviceTableGuard&) = delete;
  DeviceTableGuard& operator=(const DeviceTableGuard&) = delete;

 private:
  HANDLE lock_;
};

// All below: with the lock held. Pointers to entries are valid until the lock is released or a
// configuration or removal pass runs.

// The configuration objects of the probe families, in table order. Filled once at start; neither
// the list nor the objects are ever destroyed, since threads still use them when the process ends.
std::vector<CTzDeviceConfigure*>& Configurators();

// Every entry in table order: Evk boards first, then Wirefox probes.
std::vector<ProbeEntry*> ListProbeEntries();

// The first entry whose name is exactly `name`, or null. Null `name` finds nothing.
ProbeEntry* FindProbeByName(const wchar_t* name);

// The session handle that clients know for a session mutex: its value, sign-extended from 32 bits.
std::int64_t SessionHandleOf(HANDLE session_mutex);

// The first entry with a target whose session handle is `session`, or null; 0 finds nothing.
ProbeEntry* FindProbeByHandle(std::int64_t session);
