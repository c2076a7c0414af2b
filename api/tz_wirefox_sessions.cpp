// CTzWirefox: the list of probes, and sessions on their targets.
#include <algorithm>
#include <string>
#include <vector>

#include "api/devices_changed_location.h"
#include "api/method_frame.h"
#include "api/tz_wirefox_object.h"
#include "config/activity_file.h"
#include "config/device_discovery.h"

namespace {

// One byte per component, the major version in the most significant one: 2.0.2.0.
constexpr LONG kServiceVersion = 0x02000200;

// A fresh mutex for a session on target `index` of the probe, owned by this thread; null when the
// system has none. Only the value of its handle matters: it becomes the session handle.
//
// The name begins with a prefix of our own because a probe's serial number is free text: a probe
// that calls itself after one of the system's locks must not get hold of that lock. A backslash
// would choose a name space, so it is replaced. Equal names do no harm, since every session gets a
// handle of its own.
HANDLE CreateSessionMutex(const wchar_t* probe_name, std::size_t index) {
  std::wstring name = L"TzWirefoxSession_";
  const std::wstring serial = probe_name ? probe_name : L"";
  if (index < serial.size()) name.append(serial, index);
  std::replace(name.begin(), name.end(), L'\\', L'_');
  return CreateMutexW(nullptr, TRUE, name.c_str());
}

}  // namespace

HRESULT CTzWirefox::GetVersion(LONG* versionNum) {
  if (api::AnyMissing(versionNum)) return E_POINTER;
  return api::RunWithoutOutcome("CTzWirefox::GetVersion", [&] { *versionNum = kServiceVersion; });
}

HRESULT CTzWirefox::GetDevicesChangedLocation(BSTR* path) {
  if (api::AnyMissing(path)) return E_POINTER;
  // Succeeds always: without memory for the copy the client gets none, as before there is a path.
  return api::RunWithoutOutcome("CTzWirefox::GetDevicesChangedLocation",
                                [&] { *path = SysAllocString(api::DevicesChangedLocation()); });
}

HRESULT CTzWirefox::EnumerateWirefoxs(SAFEARRAY** wirefoxs, TzErrorCode* error) {
  if (api::AnyMissing(wirefoxs, error)) return E_POINTER;
  return api::RunMethod("CTzWirefox::EnumerateWirefoxs", error, [&] {
    api::SweepDeadOwners(api::ProcessSnapshot());
    RefreshDevices();
    const std::vector<ProbeEntry*> probes = ListProbeEntries();
    api::OwnedArray names = api::CreateStringArray(probes.size());
    TzErrorCode outcome = TzErrorCode::UNKNOWN;
    if (api::StringArrayAccess access(names.get()); access) {
      for (std::size_t i = 0; i < probes.size(); ++i) access.Set(i, probes[i]->name);
      outcome = TzErrorCode::SUCCESS;
    }
    *wirefoxs = names.release();
    return outcome;
  });
}

HRESULT CTzWirefox::AcquireDevice(BSTR wirefox, LONG deviceNum, LONG ownerPID,
                                  std::int64_t* wfxHandle, TzErrorCode* error) {
  if (api::AnyMissing(wfxHandle, error)) return E_POINTER;
  return api::RunMethod("CTzWirefox::AcquireDevice", error, [&] {
    *wfxHandle = 0;
    const auto owner = static_cast<std::uint32_t>(ownerPID);
    const api::ProcessSnapshot running;
    if (!api::IsProcessAlive(running, owner)) return TzErrorCode::INVALID_PARAM;
    api::SweepDeadOwners(running);

    ProbeEntry* probe = api::FindProbe(wirefox);
    const auto index = static_cast<std::uint32_t>(deviceNum);
    if (!probe || index >= probe->targets.size()) return TzErrorCode::INVALID_DEVICE;
    const ShownCall shown(*probe);
    TargetRecord& target = probe->targets[index];
    if (target.ownerPID != 0 && target.ownerPID != owner) return TzErrorCode::IN_USE;

    if (!target.sessionMutex) {
      target.sessionMutex = CreateSessionMutex(probe->name, index);
      // Without a mutex there is no handle to give out. The target stays free: an owner recorded
      // now could not release it.
      if (!target.sessionMutex) return TzErrorCode::UNKNOWN;
    }
    // An owner of 0, the system's idle process, passes every check here; its session is one without
    // owner, which any process may take over.
    target.ownerPID = owner;
    *wfxHandle = SessionHandleOf(target.sessionMutex);
    return TzErrorCode::SUCCESS;
  });
}

HRESULT CTzWirefox::ReleaseDevice(std::int64_t wfxHandle, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnSession("CTzWirefox::ReleaseDevice", wfxHandle, error, [&](ProbeEntry& probe) {
    for (TargetRecord& target : probe.targets) {
      if (SessionHandleOf(target.sessionMutex) == wfxHandle) api::EndSession(probe, target);
    }
    return TzErrorCode::SUCCESS;
  });
}
