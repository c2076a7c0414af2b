#include "api/target_scan.h"

#include <algorithm>
#include <array>

#include "api/jtag_chain.h"
#include "api/swd_packet.h"
#include "base/little_endian.h"
#include "device/device.h"
#include "device/probe_protocol.h"
#include "usb/kept_memory.h"

namespace api {
namespace {

// `ids` stays empty when no target answers; that is no failure.
std::uint32_t ScanSwdTarget(CTzDevice& device, std::vector<std::uint32_t>& ids) {
  if (const std::uint32_t result = device.SWD_CReset(); result != 0) return result;
  const std::array<std::uint8_t, 1> request = {swd::kReadIdcode};
  const ReplyBuffer reply(swd::kReadReplySize);
  auto room = static_cast<std::uint32_t>(reply.Size());
  const std::uint32_t result = device.SWDXfer(static_cast<std::uint32_t>(request.size()),
                                              request.data(), room, reply.Data());
  if (result != 0) return result;
  if (swd::IsGoodStatus(reply.Bytes().back())) ids.push_back(LoadLe32(reply.Data()));
  return 0;
}

std::uint32_t ScanInterface(CTzDevice& device, std::uint8_t active,
                            std::vector<std::uint32_t>& ids) {
  switch (active) {
    case probe::kModeJtag:
      return ScanJtagChain(device, ids);
    case probe::kModeSwd:
    case probe::kModeSwdSwv:
      return ScanSwdTarget(device, ids);
    case probe::kModeI2c:
    case probe::kModeVser:
      // Nothing to ask there: one target stands for whatever is connected.
      ids.push_back(0);
      return 0;
    default:
      return 0;
  }
}

bool SameTargets(const std::vector<std::uint32_t>& ids, const std::vector<TargetRecord>& targets) {
  return std::equal(
      ids.begin(), ids.end(), targets.begin(), targets.end(),
      [](std::uint32_t id, const TargetRecord& target) { return id == target.targetId; });
}

void ReplaceTargets(const std::vector<std::uint32_t>& ids, ProbeEntry& probe) {
  for (const TargetRecord& target : probe.targets) {
    if (!target.sessionMutex) continue;
    // The mutex may belong to another thread; then releasing fails, and closing is what counts.
    ReleaseMutex(target.sessionMutex);
    CloseHandle(target.sessionMutex);
  }
  for (const HANDLE mutex : probe.endedSessions) CloseHandle(mutex);
  probe.endedSessions.clear();
  probe.targets.clear();
  for (const std::uint32_t id : ids) probe.targets.push_back({.targetId = id});
}

}  // namespace

std::uint32_t ScanTargets(ProbeEntry& probe) {
  CTzDevice& device = *probe.device;
  std::array<std::uint8_t, probe::kStatusReplySize> status = {};
  if (const std::uint32_t result = device.GetDeviceStatus(status); result != 0) return result;
  std::vector<std::uint32_t> ids;
  const std::uint32_t result = ScanInterface(device, status[probe::kStatusActiveInterface], ids);
  if (!SameTargets(ids, probe.targets)) ReplaceTargets(ids, probe);
  return result;
}

}  // namespace api
