// CTzWirefox: the probe's loop that catches a target in its test mode. The repetition runs in the
// probe; here it is set up and started, and its response is judged.
#include <array>
#include <span>

#include "api/method_frame.h"
#include "api/swd_packet.h"
#include "api/tz_wirefox_object.h"
#include "base/little_endian.h"
#include "device/device.h"
#include "usb/kept_memory.h"

namespace {

constexpr std::size_t kResponseRoom = 100;
constexpr LONG kTargetAnswered = 0;
constexpr LONG kNoAnswer = 1;

// What the probe sends to the target at each attempt: the key writes, if wanted, and the read that
// shows whether the target answers.
class AcquireSequence {
 public:
  AcquireSequence(bool write_test_key, std::uint32_t address, std::uint32_t key) {
    if (write_test_key) {
      AppendWrite(swd::kWriteAccessPort4, address);
      AppendWrite(swd::kWriteAccessPortC, key);
    }
    bytes_[size_++] = swd::kReadIdcode;
  }

  const std::uint8_t* data() const { return bytes_.data(); }
  std::uint32_t size() const { return size_; }

 private:
  void AppendWrite(std::uint8_t header, std::uint32_t value) {
    bytes_[size_] = header;
    StoreLe32(&bytes_[size_ + swd::kHeaderSize], value);
    size_ += swd::kHeaderSize + swd::kDataSize;
  }

  std::array<std::uint8_t, 2 * (swd::kHeaderSize + swd::kDataSize) + swd::kHeaderSize> bytes_ = {};
  std::uint32_t size_ = 0;
};

// The response ends with the reply to the IDCODE read, before which stands the status byte of the
// request before the read. Both status bytes must be good, and a byte before them be there.
bool ShowsAnswer(std::span<const std::uint8_t> response) {
  constexpr std::size_t kMinBytes = 7;
  const std::size_t size = response.size();
  return size >= kMinBytes && swd::IsGoodStatus(response[size - 1 - swd::kReadReplySize]) &&
         swd::IsGoodStatus(response[size - 1]);
}

HRESULT QueryStatus(const wchar_t* wirefox, LONG* acquire_status, TzErrorCode* error) {
  return api::RunOnProbe(
      "CTzWirefox::GetPortAcquireStatus", wirefox, error, [&](ProbeEntry& entry) {
        const ReplyBuffer response(kResponseRoom);
        auto size = static_cast<std::uint32_t>(response.Size());
        if (entry.device->RetrievePortAcquireResponse(size, response.Data()) != 0) {
          return TzErrorCode::WFX_ERROR;
        }
        const bool answered = size <= response.Size() && ShowsAnswer(response.Bytes().first(size));
        *acquire_status = answered ? kTargetAnswered : kNoAnswer;
        return answered ? TzErrorCode::SUCCESS : TzErrorCode::WFX_ERROR;
      });
}

struct AcquireRequest {
  TzProgrammingMode mode;
  bool write_test_key;
  LONG test_mode_address;
  LONG test_mode_key;
  LONG retry_limit;
};

TzErrorCode StartPortAcquire(ProbeEntry& entry, const AcquireRequest& request) {
  // A user who resets the power by hand takes the time that it takes: no retries are counted then.
  const bool by_hand = request.mode == TzProgrammingMode::VOLTAGE_SENSE;
  const auto retries = static_cast<std::uint32_t>(by_hand ? 0 : request.retry_limit);
  if (entry.device->SetupPortAcquire(retries, request.mode == TzProgrammingMode::RESET) != 0) {
    return TzErrorCode::WFX_ERROR;
  }
  const AcquireSequence sequence(request.write_test_key,
                                 static_cast<std::uint32_t>(request.test_mode_address),
                                 static_cast<std::uint32_t>(request.test_mode_key));
  if (entry.device->StageSWDCommand(sequence.size(), sequence.data()) != 0) {
    return TzErrorCode::WFX_ERROR;
  }
  if (entry.device->BeginPortAcquire() == 0) return TzErrorCode::SUCCESS;
  // The probe may have a response all the same: it is fetched, as a client would, so that it does
  // not stay in the pipe for the next exchange. What it says does not matter any more.
  LONG status = 0;
  TzErrorCode error = TzErrorCode::SUCCESS;
  static_cast<void>(QueryStatus(entry.name, &status, &error));
  return TzErrorCode::WFX_ERROR;
}

}  // namespace

// `portAcquireKey` has no use in either variant; clients pass it.

HRESULT CTzWirefox::PortAcquire(BSTR wirefox, TzProgrammingMode mode, LONG /*portAcquireKey*/,
                                CHAR writeTestKey, LONG testModeAddress, LONG testModeKey,
                                LONG retryLimit, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::PortAcquire", wirefox, error, [&](ProbeEntry& entry) {
    // The caller does not say who it is, so its own sessions stand in its way, too.
    const TzErrorCode owner_check = api::CheckProbeUnowned(entry);
    if (owner_check != TzErrorCode::SUCCESS) return owner_check;
    return StartPortAcquire(entry,
                            {mode, writeTestKey != 0, testModeAddress, testModeKey, retryLimit});
  });
}

HRESULT CTzWirefox::PortAcquire(TzProgrammingMode mode, LONG /*portAcquireKey*/, CHAR writeTestKey,
                                LONG testModeAddress, LONG testModeKey, LONG retryLimit,
                                std::int64_t wfxHandle, TzErrorCode* error) {
  if (api::AnyMissing(error)) return E_POINTER;
  return api::RunOnSession(
      "CTzWirefox::PortAcquire(wfxHandle)", wfxHandle, error, [&](ProbeEntry& entry) {
        return StartPortAcquire(
            entry, {mode, writeTestKey != 0, testModeAddress, testModeKey, retryLimit});
      });
}

// `abort` does not stop the probe's loop, which ends by itself.
HRESULT CTzWirefox::GetPortAcquireStatus(BSTR wirefox, CHAR /*abort*/, LONG* acquireStatus,
                                         TzErrorCode* error) {
  if (api::AnyMissing(acquireStatus, error)) return E_POINTER;
  return QueryStatus(wirefox, acquireStatus, error);
}
