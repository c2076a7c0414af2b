// The probe driver in user space: serves the requests that clients send to a device file of the
// driver by transfers on a USB device.
//
// It runs wherever a host hands it a control code with its two buffers: behind the device files of
// the Linux layer, behind the virtual devices of a test machine, in unit tests. Buffers come from
// the client and are checked before use.
//
// How a transfer that was started ends for the client:
//
//   UsbStatus        error   bus status word (unless the bus gives its own)   bytes
//   kOk              none    0                                                header + moved
//   kStall           31      0xC0000004, endpoint stalled                     header + moved, or 0
//   kAborted         995     0xC0010000, cancelled                            0
//   kDisconnected    1167    0xC0007000, device gone                          0
//   kOverrun         31      0xC0000008, data overrun                         header + moved, or 0
//   kError           31      0xC0000011, transaction error                    header + moved, or 0
//
// "header" is what precedes the payload in the record: 38 bytes, none in the direct form. Where no
// byte moved in a failed transfer the count is 0. The bus and driver status words are written into
// the client's record in every case. A bus may report status words beside kOk: the request then
// succeeds, and the client judges the words.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace probe_driver {

// The device-interface class under which the driver presents its devices, in the byte order that a
// GUID has in memory: {CB74512D-0292-428D-8DF8-5B2EA1D34AE7}.
inline constexpr std::array<std::uint8_t, 16> kDeviceInterfaceClass = {
    0x2D, 0x51, 0x74, 0xCB, 0x92, 0x02, 0x8D, 0x42, 0x8D, 0xF8, 0x5B, 0x2E, 0xA1, 0xD3, 0x4A, 0xE7};

// System error codes with which requests end, 0 being success.
enum DriverError : std::uint32_t {
  kSuccess = 0,
  kInvalidFunction = 1,       // no such control code
  kGeneralFailure = 31,       // the transfer failed on the bus
  kNotSupported = 50,         // isochronous transfers, on a bus whose probes have no such endpoint
  kInvalidParameter = 87,     // the record or another input contradicts itself or its buffer
  kInsufficientBuffer = 122,  // the output buffer is too small
  kAborted = 995,
  kDeviceNotConnected = 1167,
};

class ProbeDriver;

// One request, owned by whoever submits it. The request and both buffers stay alive until
// `complete` has run and Submit has returned.
struct DriverRequest {
  DriverRequest();
  DriverRequest(const DriverRequest&) = delete;
  DriverRequest& operator=(const DriverRequest&) = delete;

  std::uint32_t code = 0;
  std::uint8_t* input = nullptr;  // the direct form's status words are written here
  std::uint32_t input_size = 0;
  std::uint8_t* output = nullptr;  // may be the input buffer
  std::uint32_t output_size = 0;

  // Called exactly once when Submit returned kSuccess, also from within Submit, on any thread. The
  // results below are set. When `transfer.kept` is set the buffers must stay for good.
  std::function<void(DriverRequest&)> complete;

  DriverError error = kSuccess;
  std::uint32_t bytes = 0;  // bytes returned, as the table above counts them

  // The driver's own.
  enum class TimeOut : std::uint8_t { kNone, kArmed, kOver };
  ProbeDriver* driver = nullptr;  // once the transfer is started
  UsbTransfer transfer;
  std::uint8_t* record = nullptr;  // where the status words go; null: request without a record
  std::uint32_t header_size = 0;   // of the client's record, counted with the payload
  std::uint32_t packet_table = 0;  // its place in the record
  std::vector<UsbPacket> packets;
  std::uint32_t time_out_ms = 0;  // 0: none
  std::uint64_t timer = 0;
  std::atomic<TimeOut> time_out_state = TimeOut::kNone;
};

// What the call that submitted a request gives its client when the request has completed by then:
// 0, success at once, the status words being the client's to judge; 1167 when the device is gone;
// otherwise 997, in flight, and the client collects the outcome as it does after a wait. A transfer
// that fails on the wire is thus reported in one way, however fast the bus is.
inline std::uint32_t StartResult(const DriverRequest& completed) {
  constexpr std::uint32_t kInFlight = 997;
  if (completed.error == kDeviceNotConnected) return kDeviceNotConnected;
  return completed.error == kSuccess ? 0 : kInFlight;
}

// Where the driver's time-outs come from.
class DriverTimers {
 public:
  virtual ~DriverTimers() = default;

  // Runs `fire` once in `ms` milliseconds, on any thread. Returns an id, not 0.
  virtual std::uint64_t Start(std::uint32_t ms, std::function<void()> fire) = 0;

  // When it returns, `fire` is not running any more and will not run; called from within `fire`
  // itself it returns at once.
  virtual void Stop(std::uint64_t id) = 0;
};

// An opened device. Any thread may call; several requests may be in flight at once.
class ProbeDriver {
 public:
  // `timers` outlives the driver.
  ProbeDriver(std::unique_ptr<UsbDevice> device, DriverTimers& timers);

  // Aborts what is in flight and returns when every completion has run.
  ~ProbeDriver() = default;

  // kSuccess: the request was started, and `complete` has been or will be called; the request's
  // outcome is in its results. Otherwise the reason why it was refused; `complete` is not called
  // and the buffers are untouched.
  [[nodiscard]] DriverError Submit(DriverRequest& request);

  // Aborts a request that was submitted and is still alive; without effect when it has completed.
  void Cancel(DriverRequest& request) { device_->Cancel(request.transfer); }

  // As the device's.
  WaitingWork* Work() { return device_->Work(); }

 private:
  friend struct DriverRequest;

  DriverError SubmitControl(DriverRequest& request);
  DriverError SubmitBuffered(DriverRequest& request);
  DriverError SubmitDirect(DriverRequest& request);
  DriverError TakePackets(DriverRequest& request, std::uint32_t table_end);
  DriverError SubmitPipeRequest(DriverRequest& request);
  DriverError SubmitQuery(DriverRequest& request);
  DriverError Answer(DriverRequest& request, const void* data, std::uint32_t size);
  DriverError SubmitTransfer(DriverRequest& request);
  void Complete(DriverRequest& request);

  DriverTimers& timers_;
  std::atomic<bool> gone_ = false;
  // Last: destroyed first, while what its completions use still stands.
  std::unique_ptr<UsbDevice> device_;
};

}  // namespace probe_driver
