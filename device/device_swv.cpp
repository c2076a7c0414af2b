// SWV: setting up the probe's trace receiver, and collecting what it received.
#include <algorithm>

#include "device/device.h"
#include "device/device_status.h"
#include "device/failure_log.h"
#include "support/log.h"
#include "usb/kept_memory.h"

namespace {

// One for the whole process. Its content also matters before a read: CTzWfxDevice::BulkXfer looks
// at the first bytes of every buffer.
ReplyBuffer& SwvBuffer() {
  static auto& buffer = *new ReplyBuffer(probe::kSwvBufferSize);
  buffer.Renew();
  return buffer;
}

}  // namespace

std::uint32_t CTzDevice::GetSWVData(std::vector<std::uint8_t>& data) {
  Log(LOG_TRACE, "CTzDevice::GetSWVData()", "data=%u", static_cast<std::uint32_t>(data.size()));
  std::uint32_t length = probe::kSwvBufferSize;
  std::uint8_t* const trace = SwvBuffer().Data();
  const std::uint32_t status = BulkXfer(probe::kEndpointSwvIn, trace, length, probe::kModeSwv);
  if (status == device_status::kSuccess) {
    length = std::min<std::uint32_t>(length, probe::kSwvBufferSize);
    data.insert(data.end(), trace, trace + length);
  }
  return LogFailure("CTzDevice::GetSWVData", status);
}

std::uint32_t CTzDevice::SetupSWV(std::uint32_t rate, std::uint8_t mode, std::uint16_t commit) {
  Log(LOG_TRACE, "CTzDevice::SetupSWV()", "rate=%u, mode=%u, commit=%u", rate, mode, commit);
  return LogFailure("CTzDevice::SetupSWV", ConfigureSwv(rate, mode, commit));
}

std::uint32_t CTzDevice::ConfigureSwv(std::uint32_t rate, std::uint8_t mode, std::uint16_t commit) {
  if (rate == 0) return device_status::kNotPossible;
  std::uint8_t control = 0;
  std::uint32_t status = ReadFPGAReg(probe::kRegisterSwvControl, &control);
  if (status != device_status::kSuccess) return status;
  const std::uint32_t base_clock_hz =
      (control & probe::kSwvSlowClock) != 0 ? probe::kSwvSlowBaseClockHz : probe::kSwvBaseClockHz;
  // The divisor register has 8 bits; rates too slow for it are not refused.
  const auto divisor = static_cast<std::uint8_t>(base_clock_hz / rate);
  status = WriteFPGAReg(probe::kRegisterSwvDivisor, divisor);
  if (status != device_status::kSuccess) return status;
  status = WriteFPGAReg(probe::kRegisterSwvControl, mode | probe::kSwvEnable);
  if (status != device_status::kSuccess) return status;
  return SendCommand(probe::kRequestCommitSwv, commit, probe::kCommitSwvLength);
}
