// Who holds the targets of a probe: the sessions' handles, the owner check, and the sweep that
// frees the targets of client processes that have ended.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <span>

#include "api/tz_wirefox.h"
#include "config/device_table.h"

// All of it is called with the device-table lock held.
namespace api {

// The ids of the processes that run now, as far as 4096 bytes hold them: with more than 1024
// processes the rest count as not running.
class ProcessSnapshot {
 public:
  ProcessSnapshot();

  // False when the system could not tell.
  bool taken() const { return taken_; }
  bool Lists(std::uint32_t pid) const;

 private:
  std::array<DWORD, 1024> ids_;
  std::size_t count_ = 0;
  bool taken_ = false;
};

// When the system could not tell, every process counts as running.
bool IsProcessAlive(const ProcessSnapshot& running, std::uint32_t pid);

// Frees every target, of all probes, whose owner does not run any more; none when the system could
// not tell. No timer does this: a dead owner's targets stay owned until a client lists the probes
// or acquires a target.
void SweepDeadOwners(const ProcessSnapshot& running);

// Ends the session on a target of the probe, which has one.
void EndSession(ProbeEntry& probe, TargetRecord& target);

// IN_USE when a process other than `pid` owns any target of the probe, otherwise SUCCESS. It covers
// the probe as a whole: two processes that each own a target of it block one another.
TzErrorCode CheckProbeOwner(const ProbeEntry& probe, std::uint32_t pid);

// IN_USE when anyone at all owns a target of the probe.
TzErrorCode CheckProbeUnowned(const ProbeEntry& probe);

}  // namespace api
