// The service as the client sees it: each method of the interface in the client's own types.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "api/tz_wirefox.h"
#include "client/numbers.h"

namespace client {

// One object of the class TzWirefox. Every method gives the outcome that the service answered. When
// a call itself fails (the service has ended, or the connection would not carry the data), it gives
// UNKNOWN, and from then on call_failure() is the call's status and no further call is made.
class ServiceClient {
 public:
  enum class Place { kThisMachine, kAnotherMachine };

  // Takes over one reference to the object, which is there.
  explicit ServiceClient(ITzWirefox_v3* object, Place place = Place::kThisMachine);

  HRESULT call_failure() const { return call_failure_; }

  // The same, and calls are made again.
  HRESULT TakeCallFailure() { return std::exchange(call_failure_, S_OK); }

  // Asked when a method that names a probe answers IN_USE: true to call it again. None at first.
  void SetRetry(std::function<bool()> retry) { retry_ = std::move(retry); }

  TzErrorCode GetVersion(std::int32_t& version);
  TzErrorCode GetDevicesChangedLocation(std::string& path);
  TzErrorCode EnumerateWirefoxs(std::vector<std::string>& names);
  TzErrorCode EnumerateDevices(const std::string& probe, std::vector<std::string>& devices);
  TzErrorCode GetWirefoxStatus(const std::string& probe, TzWFXStatus& status);
  TzErrorCode GetHwRevID(const std::string& probe, std::int32_t& revision);

  TzErrorCode SetLedState(const std::string& probe, TzLed led, TzLedState state);
  TzErrorCode VisualIdentify(const std::string& probe, TzLedIdentifyState state);
  TzErrorCode SetTimeOut(const std::string& probe, TzWirefoxEndPoint endpoint,
                         std::int32_t timeout_ms);
  TzErrorCode SetJtagClock(const std::string& probe, TzJtagClock clock);
  TzErrorCode SetMode(const std::string& probe, TzTransferMode mode, bool port10);
  TzErrorCode SetVTarg(const std::string& probe, TzVTargVoltage voltage, bool supply);
  TzErrorCode ToggleXres(const std::string& probe, bool active);
  TzErrorCode SetupSWV(const std::string& probe, std::int32_t frequency_hz, bool manchester,
                       std::int16_t commit_time);

  TzErrorCode AcquireDevice(const std::string& probe, std::int32_t target, std::int64_t& handle);
  TzErrorCode ReleaseDevice(std::int64_t handle);

  TzErrorCode SendJtagPacket(std::span<const std::uint8_t> packet, bool read, std::int64_t handle,
                             Bytes& result);
  TzErrorCode SendSwdPacket(std::span<const std::uint8_t> packet, std::int64_t handle,
                            Bytes& result);
  TzErrorCode SendI2CPacket(std::span<const std::uint8_t> packet, std::int64_t handle,
                            std::int32_t restart_location, Bytes& result);
  TzErrorCode BulkTransfer(TzWirefoxEndPoint endpoint, std::span<const std::uint8_t> data,
                           bool read, std::int64_t handle, Bytes& result);
  TzErrorCode RequestSwvPackets(std::int64_t handle, Bytes& result);
  TzErrorCode RequestEtmPackets(std::int64_t handle, Bytes& result);

  struct PortAcquireSettings {
    TzProgrammingMode mode = TzProgrammingMode::RESET;
    std::int32_t key = 0;
    bool write_test_key = false;
    std::int32_t test_mode_address = 0;
    std::int32_t test_mode_key = 0;
    std::int32_t retry_limit = 0;
  };
  TzErrorCode PortAcquire(const std::string& probe, const PortAcquireSettings& settings);
  TzErrorCode PortAcquire(std::int64_t handle, const PortAcquireSettings& settings);
  // Nothing in `acquire_status` when the probe could not be asked.
  TzErrorCode GetPortAcquireStatus(const std::string& probe,
                                   std::optional<std::int32_t>& acquire_status);

 private:
  struct Release {
    void operator()(ITzWirefox_v3* object) const { object->Release(); }
  };

  // Makes one call, unless one has failed already.
  template <typename Call>
  TzErrorCode Run(Call call);

  // The same, again and again while it is IN_USE and there is patience.
  template <typename Call>
  TzErrorCode RunUntilFree(Call call);

  // The same of a method that names a probe.
  template <typename Method, typename... Values>
  TzErrorCode RunOnProbe(Method method, const std::string& probe, Values... values);

  // The same for a method that answers with a byte array.
  template <typename Call>
  TzErrorCode RunForBytes(Bytes& result, Call call);

  std::unique_ptr<ITzWirefox_v3, Release> object_;
  HRESULT call_failure_ = S_OK;
  std::function<bool()> retry_;
  Place place_;
  LONG process_id_;
};

// Makes a service out of nothing: connects, and starts the server if need be; on this machine when
// `host` is empty. On failure gives null and the status. Called on any thread.
using Connector =
    std::function<std::unique_ptr<ServiceClient>(const std::string& host, HRESULT& status)>;

// Through the component library, which the calling thread has initialised.
std::unique_ptr<ServiceClient> ConnectToService(const std::string& host, HRESULT& status);

}  // namespace client
