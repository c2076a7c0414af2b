#include "api/owner_sweep.h"

#include <psapi.h>

#include <algorithm>

#include "config/activity_file.h"

namespace api {

ProcessSnapshot::ProcessSnapshot() {
  DWORD filled_bytes = 0;
  taken_ = EnumProcesses(ids_.data(), sizeof(ids_), &filled_bytes) != FALSE;
  if (taken_) count_ = std::min<std::size_t>(filled_bytes / sizeof(DWORD), ids_.size());
}

bool ProcessSnapshot::Lists(std::uint32_t pid) const {
  const auto end = ids_.begin() + static_cast<std::ptrdiff_t>(count_);
  return std::find(ids_.begin(), end, pid) != end;
}

bool IsProcessAlive(const ProcessSnapshot& running, std::uint32_t pid) {
  return !running.taken() || running.Lists(pid);
}

void SweepDeadOwners(const ProcessSnapshot& running) {
  if (!running.taken()) return;
  for (ProbeEntry* probe : ListProbeEntries()) {
    for (TargetRecord& target : probe->targets) {
      if (target.ownerPID != 0 && !running.Lists(target.ownerPID)) EndSession(*probe, target);
    }
    ShowProbe(*probe);
  }
}

void EndSession(ProbeEntry& probe, TargetRecord& target) {
  // The mutex handle stays open on purpose, here and wherever a session ends while its target stays
  // listed: its value is the session handle, and a client that still has it must not find itself
  // in another client's session because the system gave the value out again. Releasing fails when
  // another thread made the session, which does not matter: nobody waits on it.
  ReleaseMutex(target.sessionMutex);
  probe.endedSessions.push_back(target.sessionMutex);
  target.sessionMutex = nullptr;
  target.ownerPID = 0;
}

TzErrorCode CheckProbeOwner(const ProbeEntry& probe, std::uint32_t pid) {
  const bool foreign = std::any_of(
      probe.targets.begin(), probe.targets.end(),
      [pid](const TargetRecord& target) { return target.ownerPID != 0 && target.ownerPID != pid; });
  return foreign ? TzErrorCode::IN_USE : TzErrorCode::SUCCESS;
}

TzErrorCode CheckProbeUnowned(const ProbeEntry& probe) {
  const bool owned = std::any_of(probe.targets.begin(), probe.targets.end(),
                                 [](const TargetRecord& target) { return target.ownerPID != 0; });
  return owned ? TzErrorCode::IN_USE : TzErrorCode::SUCCESS;
}

}  // namespace api
