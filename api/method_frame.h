// The frame that all methods of the client interface share, written once: lock, log, find the
// probe, do the method's own work, log a failure, unlock.
#pragma once

#include <windows.h>

#include <cstdint>
#include <exception>

#include "api/automation_arrays.h"
#include "api/owner_sweep.h"
#include "api/tz_wirefox.h"
#include "config/activity_file.h"
#include "config/device_table.h"
#include "support/log.h"

// `source` is the method's name in the log. `work` runs with the device-table lock held and gives
// the method's outcome; it is called with the probe, where the frame finds one.
namespace api {

inline void LogEntry(const char* source) { Log(LOG_API | LOG_TRACE, source, ""); }

inline void LogFailure(const char* source, TzErrorCode error) {
  Log(LOG_ERROR, source, "Error %u occured.", static_cast<unsigned>(error));
}

// For a method that has no outcome because it cannot fail: `work` throws nothing.
template <typename Work>
HRESULT RunWithoutOutcome(const char* source, Work&& work) {
  DeviceTableGuard lock;
  LogEntry(source);
  work();
  return S_OK;
}

// S_OK whatever the outcome: that travels in `*error`. No exception leaves: into the component
// library's frames it must not go.
template <typename Work>
HRESULT RunMethod(const char* source, TzErrorCode* error, Work&& work) {
  DeviceTableGuard lock;
  LogEntry(source);
  *error = TzErrorCode::SUCCESS;
  try {
    *error = work();
  } catch (const OutOfStrings&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception&) {
    // Memory for a work buffer, or a driver handle that the system refused to close.
    *error = TzErrorCode::UNKNOWN;
  }
  if (*error != TzErrorCode::SUCCESS) LogFailure(source, *error);
  return S_OK;
}

// The probe of this name that can be used, or null. A null name counts as an empty one, as it does
// everywhere for automation strings.
inline ProbeEntry* FindProbe(const wchar_t* wirefox) {
  ProbeEntry* probe = FindProbeByName(wirefox ? wirefox : L"");
  return probe && probe->device ? probe : nullptr;
}

template <typename Work>
HRESULT RunOnProbe(const char* source, const wchar_t* wirefox, TzErrorCode* error, Work&& work) {
  return RunMethod(source, error, [&] {
    ProbeEntry* probe = FindProbe(wirefox);
    if (!probe) return TzErrorCode::INVALID_PARAM;
    const ShownCall shown(*probe);
    return work(*probe);
  });
}

// For what changes the probe's configuration: refused while another process owns a target of it.
template <typename Work>
HRESULT RunOnOwnProbe(const char* source, const wchar_t* wirefox, LONG owner_pid,
                      TzErrorCode* error, Work&& work) {
  return RunOnProbe(source, wirefox, error, [&](ProbeEntry& probe) {
    const TzErrorCode owner_check = CheckProbeOwner(probe, static_cast<std::uint32_t>(owner_pid));
    return owner_check == TzErrorCode::SUCCESS ? work(probe) : owner_check;
  });
}

template <typename Work>
HRESULT RunOnSession(const char* source, std::int64_t handle, TzErrorCode* error, Work&& work) {
  return RunMethod(source, error, [&] {
    ProbeEntry* probe = FindProbeByHandle(handle);
    if (!probe || !probe->device) return TzErrorCode::NOT_ACQUIRED;
    const ShownCall shown(*probe);
    return work(*probe);
  });
}

// The outcome for a client of a probe operation's status.
inline TzErrorCode OutcomeOf(std::uint32_t status) {
  return status == 0 ? TzErrorCode::SUCCESS : TzErrorCode::WFX_ERROR;
}

// Whether a caller left out a place for an output; only a caller in this process can. E_POINTER is
// the answer, before anything is done.
template <typename... Output>
bool AnyMissing(const Output*... outputs) {
  return (... || !outputs);
}

}  // namespace api
