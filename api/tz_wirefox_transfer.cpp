// CTzWirefox: the methods that move data between a client and the target of its session. The handle
// is their only credential. Input arrays are used in place and never written.
#include <algorithm>
#include <vector>

#include "api/method_frame.h"
#include "api/swd_packet.h"
#include "api/tz_wirefox_object.h"
#include "device/device.h"
#include "device/probe_protocol.h"
#include "usb/kept_memory.h"

namespace {

// The probe is always offered at least this much room for an SWD reply.
constexpr std::size_t kMinSwdReplyRoom = 512;

// What the I2C engine sends back beyond a byte for each byte sent.
constexpr std::uint64_t kI2cReplyExtra = 2;

// The exchange with a reply of exactly `reply` bytes for the client. Where that is less than the
// room that the probe is to have, the reply goes through a buffer, and its beginning to the client,
// also after a failure. The buffer serves one call after another, under the device-table lock.
std::uint32_t TransferSwd(CTzDevice& device, std::span<const std::uint8_t> requests,
                          std::span<std::uint8_t> reply) {
  const auto request_size = static_cast<std::uint32_t>(requests.size());
  if (reply.size() >= kMinSwdReplyRoom) {
    auto room = static_cast<std::uint32_t>(reply.size());
    return device.SWDXfer(request_size, requests.data(), room, reply.data());
  }
  static auto& buffer = *new ReplyBuffer(kMinSwdReplyRoom);
  buffer.Renew();
  std::ranges::fill(buffer.Bytes(), std::uint8_t{0});
  auto room = static_cast<std::uint32_t>(buffer.Size());
  const std::uint32_t result = device.SWDXfer(request_size, requests.data(), room, buffer.Data());
  std::copy_n(buffer.Data(), reply.size(), reply.begin());
  return result;
}

}  // namespace

HRESULT CTzWirefox::SendJtagPacket(SAFEARRAY* tdi_tms, CHAR read, std::int64_t wfxHandle,
                                   SAFEARRAY** RESULT, TzErrorCode* error) {
  if (api::AnyMissing(RESULT, error)) return E_POINTER;
  return api::RunOnSession("CTzWirefox::SendJtagPacket", wfxHandle, error, [&](ProbeEntry& entry) {
    if (entry.mode != probe::kModeJtag) return TzErrorCode::INVALID_MODE;
    // Two bytes of cycles give one byte of TDO bits. The array is made whether or not the client
    // reads, and then stays zero.
    *RESULT = api::CreateByteArray((std::uint64_t{api::ByteCount(tdi_tms)} + 1) / 2);
    const api::ByteArrayAccess cycles(tdi_tms);
    const api::ByteArrayAccess tdo(*RESULT);
    if (!cycles || !tdo) return TzErrorCode::UNKNOWN;
    return api::OutcomeOf(
        entry.device->JTAG_BufferedIoBytes(cycles.bytes(), read != 0, tdo.bytes().data(), false));
  });
}

HRESULT CTzWirefox::SendSwdPacket(SAFEARRAY* data, std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                  TzErrorCode* error) {
  if (api::AnyMissing(RESULT, error)) return E_POINTER;
  return api::RunOnSession("CTzWirefox::SendSwdPacket", wfxHandle, error, [&](ProbeEntry& entry) {
    if (entry.mode != probe::kModeSwd && entry.mode != probe::kModeSwdSwv) {
      return TzErrorCode::INVALID_MODE;
    }
    const api::ByteArrayAccess requests(data);
    if (!requests) return TzErrorCode::UNKNOWN;
    *RESULT = api::CreateByteArray(swd::ReplySize(requests.bytes()));
    const api::ByteArrayAccess reply(*RESULT);
    if (!reply) return TzErrorCode::UNKNOWN;
    return api::OutcomeOf(TransferSwd(*entry.device, requests.bytes(), reply.bytes()));
  });
}

HRESULT CTzWirefox::SendI2CPacket(SAFEARRAY* data, std::int64_t wfxHandle, LONG restartLocation,
                                  SAFEARRAY** RESULT, TzErrorCode* error) {
  if (api::AnyMissing(RESULT, error)) return E_POINTER;
  return api::RunOnSession("CTzWirefox::SendI2CPacket", wfxHandle, error, [&](ProbeEntry& entry) {
    if (entry.mode != probe::kModeI2c) return TzErrorCode::INVALID_MODE;
    const api::ByteArrayAccess packet(data);
    if (!packet) return TzErrorCode::UNKNOWN;
    *RESULT = api::CreateByteArray(packet.bytes().size() + kI2cReplyExtra);
    const api::ByteArrayAccess reply(*RESULT);
    if (!reply) return TzErrorCode::UNKNOWN;
    // The array keeps its size however long the reply is.
    auto room = static_cast<std::uint32_t>(reply.bytes().size());
    return api::OutcomeOf(entry.device->I2CXfer(
        static_cast<std::uint32_t>(packet.bytes().size()), packet.bytes().data(),
        static_cast<std::uint8_t>(restartLocation), room, reply.bytes().data()));
  });
}

HRESULT CTzWirefox::BulkTransfer(TzWirefoxEndPoint endPoint, SAFEARRAY* data, CHAR readNwrite,
                                 std::int64_t wfxHandle, SAFEARRAY** RESULT, TzErrorCode* error) {
  if (api::AnyMissing(RESULT, error)) return E_POINTER;
  return api::RunOnSession("CTzWirefox::BulkTransfer", wfxHandle, error, [&](ProbeEntry& entry) {
    *RESULT = api::CreateByteArray(api::ByteCount(data));
    const api::ByteArrayAccess given(data);
    const api::ByteArrayAccess buffer(*RESULT);
    if (!given || !buffer) return TzErrorCode::UNKNOWN;
    std::copy(given.bytes().begin(), given.bytes().end(), buffer.bytes().begin());
    const std::uint8_t direction = readNwrite != 0 ? probe::kEndpointInBit : 0;
    const auto address = static_cast<std::uint8_t>(static_cast<std::uint8_t>(endPoint) | direction);
    // The array keeps its size however much is moved.
    auto length = static_cast<std::uint32_t>(buffer.bytes().size());
    return api::OutcomeOf(
        entry.device->BulkXfer(address, buffer.bytes().data(), length, entry.mode));
  });
}

HRESULT CTzWirefox::RequestSwvPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                      TzErrorCode* error) {
  if (api::AnyMissing(RESULT, error)) return E_POINTER;
  return api::RunOnSession("CTzWirefox::RequestSwvPackets", wfxHandle, error,
                           [&](ProbeEntry& entry) {
                             // Only the combined mode: in SWV alone a client reads endpoint 6 with
                             // BulkTransfer.
                             if (entry.mode != probe::kModeSwdSwv) return TzErrorCode::INVALID_MODE;
                             std::vector<std::uint8_t> trace;
                             if (entry.device->GetSWVData(trace) != 0)
                               return TzErrorCode::WFX_ERROR;
                             *RESULT = api::CreateByteArray(trace.size());
                             const api::ByteArrayAccess result(*RESULT);
                             if (!result) return TzErrorCode::UNKNOWN;
                             std::copy(trace.begin(), trace.end(), result.bytes().begin());
                             return TzErrorCode::SUCCESS;
                           });
}

HRESULT CTzWirefox::RequestEtmPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                      TzErrorCode* error) {
  if (api::AnyMissing(RESULT, error)) return E_POINTER;
  return api::RunOnSession("CTzWirefox::RequestEtmPackets", wfxHandle, error,
                           [](ProbeEntry& entry) {
                             // No probe collects ETM data yet: in ETM mode the answer is success
                             // without an array.
                             const bool etm = (entry.mode & probe::kModeEtm) != 0;
                             return etm ? TzErrorCode::SUCCESS : TzErrorCode::INVALID_MODE;
                           });
}
