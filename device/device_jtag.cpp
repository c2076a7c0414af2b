// JTAG: the clock, streams of cycles, and the switch of a target's port to JTAG.
#include <windows.h>

#include <algorithm>
#include <array>

#include "device/device.h"
#include "device/device_status.h"
#include "device/failure_log.h"
#include "device/stream_exchange.h"
#include "support/log.h"
#include "usb/kept_memory.h"

namespace {

constexpr int kClockPolls = 50;
constexpr DWORD kClockPollMs = 1;

std::uint32_t ReplyBytes(std::int32_t cycles) {
  return cycles <= 0 ? 0 : (static_cast<std::uint32_t>(cycles) + 7) / 8;
}

// The probe takes whole pairs of bytes, also where the last is not needed.
std::uint32_t StreamBytes(std::int32_t cycles) { return 2 * ReplyBytes(cycles); }

}  // namespace

std::uint32_t CTzDevice::JTAG_SetClock(std::uint32_t code) {
  Log(LOG_TRACE, "CTzDevice::JTAG_SetClock()", "mhz=%u", code);
  return LogFailure("CTzDevice::JTAG_SetClock", SwitchJtagClock(code));
}

std::uint32_t CTzDevice::SwitchJtagClock(std::uint32_t code) {
  std::array<std::uint8_t, probe::kSetJtagClockLength> reply{};
  // The status byte of this reply is not judged: the FPGA decides, through the registers below.
  std::uint32_t status = XferData(probe::kProbeToHost, probe::kRequestSetJtagClock,
                                  static_cast<std::uint16_t>(code), 0, reply.data(), reply.size());
  if (status != device_status::kSuccess) return status;
  const auto register_code = static_cast<std::uint8_t>(code);
  status = WriteFPGAReg(probe::kRegisterClockCode, register_code | probe::kClockChange);
  if (status != device_status::kSuccess) return status;
  status = WriteFPGAReg(probe::kRegisterClockCode, register_code);
  if (status != device_status::kSuccess) return status;

  for (int poll = 0; poll < kClockPolls; ++poll) {
    Sleep(kClockPollMs);
    std::uint8_t state = 0;
    status = ReadFPGAReg(probe::kRegisterClockState, &state);
    if (status != device_status::kSuccess) return status;
    if ((state & probe::kClockRunning) == probe::kClockRunning) break;
  }
  // Success also when the clock never showed as running: the code is set, and what the client reads
  // back tells it which.
  return device_status::kSuccess;
}

std::uint32_t CTzDevice::JTAG_GetClock(std::uint32_t* code) {
  Log(LOG_TRACE, "CTzDevice::JTAG_GetClock()", "mhz=%u", AddressAsNumber(code));
  std::array<std::uint8_t, probe::kGetJtagClockLength> reply{};
  std::uint32_t status =
      XferData(probe::kProbeToHost, probe::kRequestGetJtagClock, 0, 0, reply.data(), reply.size());
  if (status == device_status::kSuccess) status = reply[probe::kReplyStatus];
  *code = reply[probe::kReplyJtagClock];
  return LogFailure("CTzDevice::JTAG_GetClock", status);
}

std::uint32_t CTzDevice::JTAG_BufferedIo(std::int32_t bitcount, const std::uint8_t* tmstdi,
                                         bool want_read, std::uint8_t* tdo, bool loopback) {
  return ShiftJtag(bitcount, {tmstdi, StreamBytes(bitcount)}, want_read, tdo, loopback);
}

std::uint32_t CTzDevice::JTAG_BufferedIoBytes(std::span<const std::uint8_t> tmstdi, bool want_read,
                                              std::uint8_t* tdo, bool loopback) {
  if (tmstdi.size() > kMaxStreamBytes) {
    return LogFailure("CTzDevice::JTAG_BufferedIo", device_status::kNotPossible);
  }
  const auto bitcount = static_cast<std::int32_t>(probe::kJtagCyclesPerByte * tmstdi.size());
  return ShiftJtag(bitcount, tmstdi, want_read, tdo, loopback);
}

std::uint32_t CTzDevice::ShiftJtag(std::int32_t bitcount, std::span<const std::uint8_t> tmstdi,
                                   bool want_read, std::uint8_t* tdo, bool loopback) {
  Log(LOG_XFER | LOG_TRACE, "CTzDevice::JTAG_BufferedIo",
      "bitcount=%u, tmstdi=%p, want_read=%u, tdo=%p, loopback=%u", bitcount, tmstdi.data(),
      want_read, tdo, loopback);
  CTzUSBEndPoint* const out = GetEndPoint(probe::kEndpointStreamOut);
  CTzUSBEndPoint* const in = GetEndPoint(probe::kEndpointStreamIn);
  if (!out || !in) {
    return LogFailure("CTzDevice::JTAG_BufferedIo", device_status::kNoEndpoint);
  }

  // A reply that nobody wants goes, chunk over chunk, into one buffer. Both buffers are declared
  // before the exchange, so that they are still there while its transfers are being aborted.
  ReplyBuffer unwanted_reply(want_read ? 0
                                       : ReplyBytes(std::min(bitcount, probe::kJtagChunkCycles)));
  std::vector<std::uint8_t> completed_tail;
  StreamExchange exchange(*out, *in);

  std::uint32_t status = device_status::kSuccess;
  bool complete = true;
  std::int32_t remaining = bitcount;
  while (remaining > 0) {
    status = AnnounceJtagCycles(remaining, loopback);
    if (status != device_status::kSuccess) break;
    const std::int32_t chunk =
        remaining <= probe::kJtagLastChunkCycles ? remaining : probe::kJtagChunkCycles;
    const std::uint8_t* source = tmstdi.data();
    if (tmstdi.size() < StreamBytes(chunk)) {
      completed_tail.assign(tmstdi.begin(), tmstdi.end());
      completed_tail.resize(StreamBytes(chunk), 0);
      source = completed_tail.data();
    }
    std::uint32_t received = ReplyBytes(chunk);
    complete &=
        exchange.Run(source, StreamBytes(chunk), want_read ? tdo : unwanted_reply.Data(), received);
    // A failed chunk does not stop the stream: the target's TAP is to end where the client sent it.
    remaining -= chunk;
    if (remaining <= 0) break;
    tmstdi = tmstdi.subspan(static_cast<std::size_t>(chunk) / probe::kJtagCyclesPerByte);
    if (want_read) tdo += chunk / 8;
  }
  if (!complete) {
    exchange.AbortAndReset();
    if (status == device_status::kSuccess) status = device_status::kStreamFailed;
  }
  return LogFailure("CTzDevice::JTAG_BufferedIo", status);
}

std::uint32_t CTzDevice::AnnounceJtagCycles(std::int32_t remaining, bool loopback) {
  // The probe is told all that remains, not the chunk. From 0x4000 cycles on the count's high bits
  // fall on the flags; the probe then goes by the bytes that it receives.
  const std::uint32_t status =
      WriteFPGAReg(probe::kRegisterJtagCountLow, static_cast<std::uint8_t>(remaining));
  if (status != device_status::kSuccess) return status;
  const std::int32_t high =
      probe::kJtagShift | (loopback ? probe::kJtagLoopback : 0) | (remaining >> 8);
  return WriteFPGAReg(probe::kRegisterJtagCountHigh, static_cast<std::uint8_t>(high));
}

std::uint32_t CTzDevice::JTAG_Reset() {
  Log(LOG_TRACE, "CTzDevice::JTAG_Reset()", "");
  std::uint32_t status = SetMode(probe::kModeJtag, true);
  if (status == device_status::kSuccess) {
    probe::LineResetSequence cycles = probe::kSwdToJtagSequence;
    status = JTAG_BufferedIo(probe::kLineResetCycles, cycles.data(), false, nullptr, false);
  }
  return LogFailure("CTzDevice::JTAG_Reset", status);
}
