// The older I2C packet format, sent and fetched as bulk data, in terms of the FPGA's engine.
#include <algorithm>

#include "device/device_status.h"
#include "device/failure_log.h"
#include "device/wfx_device.h"
#include "support/log.h"

namespace {

std::uint8_t EngineAddress(std::uint8_t address, bool reads) {
  return static_cast<std::uint8_t>(address << 1 | (reads ? probe::kI2cReadBit : 0));
}

}  // namespace

std::uint32_t CTzWfxDevice::TranslateToEp2x4(std::uint8_t endpt, std::uint8_t* bfr,
                                             std::uint32_t& len) {
  Log(LOG_XFER | LOG_TRACE, "CTzWfxDevice::TranslateToEp2x4", "endpt=%u, bfr=%p, len=%u", endpt,
      bfr, len);
  std::uint32_t status = device_status::kSuccess;
  if (endpt == probe::kEndpointSerialOut) {
    status = TranslateRequest({bfr, len});
  } else if (endpt == probe::kEndpointSerialIn) {
    status = TranslateReply(bfr, len);
  }
  // Clients of this format take a target that does not answer from the reply's first byte, which is
  // then 0, and not from the outcome of the call.
  if (status == device_status::kTransferFailed) return device_status::kSuccess;
  return LogFailure("CTzWfxDevice::TranslateToEp2x4", status);
}

std::uint32_t CTzWfxDevice::TranslateRequest(std::span<const std::uint8_t> bfr) {
  std::vector<std::uint8_t> packet;
  const std::uint32_t status = I2CParseIn(bfr, packet);
  if (status != device_status::kSuccess || PowerSupplied() == 0) return status;
  return I2COutXfer(static_cast<std::uint32_t>(packet.size()), packet.data());
}

std::uint32_t CTzWfxDevice::TranslateReply(std::uint8_t* bfr, std::uint32_t& len) {
  if (len > 0) bfr[0] = 0;
  reply_.Renew();
  std::uint8_t* const reply = reply_.Data();
  std::fill_n(reply, reply_.Size(), std::uint8_t{0});
  len = std::min(len, kMaxReplyBytes);
  const std::uint32_t room = len;
  if (PowerSupplied() != 0) {
    std::uint32_t received = len + kReplyExtra;
    const std::uint32_t status = I2CInXfer(received, reply);
    if (status != device_status::kSuccess) return status;
  }
  // Of a two-phase reply, the byte behind the first phase is left out: the engine echoes the second
  // address byte there.
  std::uint32_t echo = len;
  if (restart_transfer_) {
    len = std::min(first_phase_length_ + second_phase_length_ + 2, room);
    echo = first_phase_length_ + 1;
  }
  for (std::uint32_t i = 0; i < len; ++i) bfr[i] = reply[i < echo ? i : i + 1];
  if (len > 0 && bfr[0] == 0) std::fill_n(bfr, len, std::uint8_t{0});
  return device_status::kSuccess;
}

std::uint32_t CTzWfxDevice::I2CParseIn(std::span<const std::uint8_t> bfr,
                                       std::vector<std::uint8_t>& packet) {
  Log(LOG_TRACE, "CTzWfxDevice::I2CParseIn", "bfr=%p", bfr.data());
  if (bfr.size() <= probe::kI2cBulkAddress) {
    return LogFailure("CTzWfxDevice::I2CParseIn", device_status::kNotPossible);
  }
  const std::uint8_t control = bfr[probe::kI2cBulkControl];
  const std::uint32_t length = bfr[probe::kI2cBulkLength] & probe::kI2cBulkLengthMask;
  restart_transfer_ = (control & probe::kI2cBulkTwoPhase) != 0;
  const std::uint32_t status = restart_transfer_ ? I2CRestartTransfer(control, length, bfr, packet)
                                                 : I2CStartTransfer(control, length, bfr, packet);
  return LogFailure("CTzWfxDevice::I2CParseIn", status);
}

std::uint32_t CTzWfxDevice::I2CStartTransfer(std::uint8_t bControl, std::uint32_t bLong,
                                             std::span<const std::uint8_t> bfr,
                                             std::vector<std::uint8_t>& packet) {
  Log(LOG_TRACE, "CTzWfxDevice::I2CStartTransfer", "bControl=%u, bLong=%p, bfr=%p", bControl,
      NumberAsAddress(bLong), bfr.data());
  const bool reads = (bControl & probe::kI2cBulkRead) != 0;
  if (!reads && bfr.size() < probe::kI2cBulkData + bLong) {
    return LogFailure("CTzWfxDevice::I2CStartTransfer", device_status::kNotPossible);
  }
  packet.assign(bLong + 1, 0);
  packet[0] = EngineAddress(bfr[probe::kI2cBulkAddress], reads);
  if (!reads) std::copy_n(bfr.begin() + probe::kI2cBulkData, bLong, packet.begin() + 1);
  return LogFailure("CTzWfxDevice::I2CStartTransfer", WriteRestartPosition(0));
}

std::uint32_t CTzWfxDevice::I2CRestartTransfer(std::uint8_t bControl, std::uint32_t bLong,
                                               std::span<const std::uint8_t> bfr,
                                               std::vector<std::uint8_t>& packet) {
  Log(LOG_TRACE, "CTzWfxDevice::I2CRestartTransfer", "bControl=%u, bLong=%p, bfr=%p", bControl,
      NumberAsAddress(bLong), bfr.data());
  if (bfr.size() < probe::kI2cBulkTwoPhaseData) {
    return LogFailure("CTzWfxDevice::I2CRestartTransfer", device_status::kNotPossible);
  }
  // Both lengths with all their bits, unlike `bLong`: the packet and the reply have room for what
  // the client announced, also where the engine takes less.
  first_phase_length_ = bfr[probe::kI2cBulkLength];
  second_phase_length_ = bfr[probe::kI2cBulkSecondLength];
  const std::uint8_t second_address = bfr[probe::kI2cBulkSecondAddress];
  const bool first_reads = (bControl & probe::kI2cBulkRead) != 0;
  const bool second_reads = (second_address & probe::kI2cBulkSecondReads) != 0;

  packet.assign(first_phase_length_ + second_phase_length_ + 2, 0);
  packet[0] = EngineAddress(bfr[probe::kI2cBulkAddress], first_reads);
  const std::uint32_t second_start = 1 + bLong;
  packet[second_start] = EngineAddress(second_address, second_reads);

  // The second phase ends at the limit counted from the packet's beginning, so what the first phase
  // takes is lost to it; the rest of the packet stays zero.
  const std::uint32_t second_data = second_start + 1;
  const std::uint32_t second_room =
      probe::kI2cPhaseLimit - std::min(second_data, probe::kI2cPhaseLimit);
  const std::uint32_t first_writes = first_reads ? 0 : bLong;
  const std::uint32_t second_writes =
      second_reads ? 0 : std::min(second_phase_length_, second_room);
  const auto data = bfr.subspan(probe::kI2cBulkTwoPhaseData);
  if (data.size() < first_writes + second_writes) {
    return LogFailure("CTzWfxDevice::I2CRestartTransfer", device_status::kNotPossible);
  }
  std::copy_n(data.begin(), first_writes, packet.begin() + 1);
  std::copy_n(data.begin() + first_writes, second_writes, packet.begin() + second_data);
  const auto position = static_cast<std::uint8_t>(bLong + probe::kI2cRestart);
  return LogFailure("CTzWfxDevice::I2CRestartTransfer", I2CUpdateRestartPos(position));
}
