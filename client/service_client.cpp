#include "client/service_client.h"

#include <objbase.h>

#include "client/automation.h"
#include "client/text.h"

namespace client {

ServiceClient::ServiceClient(ITzWirefox_v3* object, Place place)
    : object_(object), place_(place), process_id_(static_cast<LONG>(GetCurrentProcessId())) {}

template <typename Call>
TzErrorCode ServiceClient::Run(Call call) {
  if (FAILED(call_failure_)) return TzErrorCode::UNKNOWN;
  TzErrorCode error = TzErrorCode::SUCCESS;
  const HRESULT status = call(&error);
  if (SUCCEEDED(status)) return error;
  call_failure_ = status;
  return TzErrorCode::UNKNOWN;
}

template <typename Call>
TzErrorCode ServiceClient::RunUntilFree(Call call) {
  TzErrorCode error = Run(call);
  while (error == TzErrorCode::IN_USE && retry_ && retry_()) error = Run(call);
  return error;
}

template <typename Method, typename... Values>
TzErrorCode ServiceClient::RunOnProbe(Method method, const std::string& probe, Values... values) {
  const Bstr name = MakeBstr(probe);
  return RunUntilFree(
      [&](TzErrorCode* e) { return (object_.get()->*method)(name.get(), values..., e); });
}

template <typename Call>
TzErrorCode ServiceClient::RunForBytes(Bytes& result, Call call) {
  SAFEARRAY* array = nullptr;
  const TzErrorCode error = Run([&](TzErrorCode* e) { return call(&array, e); });
  const SafeArray owner(array);
  result = BytesOf(array);
  return error;
}

TzErrorCode ServiceClient::GetVersion(std::int32_t& version) {
  LONG value = 0;
  const TzErrorCode error = Run([&](TzErrorCode*) { return object_->GetVersion(&value); });
  version = value;
  return error;
}

TzErrorCode ServiceClient::GetDevicesChangedLocation(std::string& path) {
  BSTR value = nullptr;
  const TzErrorCode error =
      Run([&](TzErrorCode*) { return object_->GetDevicesChangedLocation(&value); });
  const Bstr owner(value);
  path = Utf8FromBstr(value);
  return error;
}

TzErrorCode ServiceClient::EnumerateWirefoxs(std::vector<std::string>& names) {
  SAFEARRAY* array = nullptr;
  const TzErrorCode error =
      Run([&](TzErrorCode* e) { return object_->EnumerateWirefoxs(&array, e); });
  const SafeArray owner(array);
  names = StringsOf(array);
  return error;
}

TzErrorCode ServiceClient::EnumerateDevices(const std::string& probe,
                                            std::vector<std::string>& devices) {
  const Bstr name = MakeBstr(probe);
  SAFEARRAY* array = nullptr;
  const TzErrorCode error =
      Run([&](TzErrorCode* e) { return object_->EnumerateDevices(name.get(), &array, e); });
  const SafeArray owner(array);
  devices = StringsOf(array);
  return error;
}

TzErrorCode ServiceClient::GetWirefoxStatus(const std::string& probe, TzWFXStatus& status) {
  return RunOnProbe(&ITzWirefox_v1::GetWirefoxStatus, probe, &status);
}

TzErrorCode ServiceClient::GetHwRevID(const std::string& probe, std::int32_t& revision) {
  LONG value = 0;
  const TzErrorCode error = RunOnProbe(&ITzWirefox_v3::GetHwRevID, probe, &value);
  revision = value;
  return error;
}

TzErrorCode ServiceClient::SetLedState(const std::string& probe, TzLed led, TzLedState state) {
  return RunOnProbe(&ITzWirefox_v1::SetLedState, probe, led, state);
}

TzErrorCode ServiceClient::VisualIdentify(const std::string& probe, TzLedIdentifyState state) {
  return RunOnProbe(&ITzWirefox_v1::VisualIdentify, probe, state);
}

TzErrorCode ServiceClient::SetTimeOut(const std::string& probe, TzWirefoxEndPoint endpoint,
                                      std::int32_t timeout_ms) {
  return RunOnProbe(&ITzWirefox_v1::SetTimeOut, probe, endpoint, timeout_ms, process_id_);
}

TzErrorCode ServiceClient::SetJtagClock(const std::string& probe, TzJtagClock clock) {
  return RunOnProbe(&ITzWirefox_v1::SetJtagClock, probe, clock, process_id_);
}

TzErrorCode ServiceClient::SetMode(const std::string& probe, TzTransferMode mode, bool port10) {
  return RunOnProbe(&ITzWirefox_v1::SetMode, probe, mode, port10, process_id_);
}

TzErrorCode ServiceClient::SetVTarg(const std::string& probe, TzVTargVoltage voltage, bool supply) {
  return RunOnProbe(&ITzWirefox_v1::SetVTarg, probe, voltage, supply, process_id_);
}

TzErrorCode ServiceClient::ToggleXres(const std::string& probe, bool active) {
  return RunOnProbe(&ITzWirefox_v1::ToggleXres, probe, active);
}

TzErrorCode ServiceClient::SetupSWV(const std::string& probe, std::int32_t frequency_hz,
                                    bool manchester, std::int16_t commit_time) {
  return RunOnProbe(&ITzWirefox_v1::SetupSWV, probe, frequency_hz, manchester, commit_time);
}

TzErrorCode ServiceClient::AcquireDevice(const std::string& probe, std::int32_t target,
                                         std::int64_t& handle) {
  handle = 0;
  const auto acquire = [&] {
    return RunOnProbe(&ITzWirefox_v1::AcquireDevice, probe, target, process_id_, &handle);
  };
  const TzErrorCode error = acquire();
  if (error != TzErrorCode::INVALID_PARAM || place_ == Place::kThisMachine) return error;
  // This process is nobody there, and nothing stands for it: the session has no owner.
  process_id_ = 0;
  return acquire();
}

TzErrorCode ServiceClient::ReleaseDevice(std::int64_t handle) {
  return Run([&](TzErrorCode* e) { return object_->ReleaseDevice(handle, e); });
}

TzErrorCode ServiceClient::SendJtagPacket(std::span<const std::uint8_t> packet, bool read,
                                          std::int64_t handle, Bytes& result) {
  const SafeArray input = MakeByteArray(packet);
  return RunForBytes(result, [&](SAFEARRAY** array, TzErrorCode* e) {
    return object_->SendJtagPacket(input.get(), read ? 1 : 0, handle, array, e);
  });
}

TzErrorCode ServiceClient::SendSwdPacket(std::span<const std::uint8_t> packet, std::int64_t handle,
                                         Bytes& result) {
  const SafeArray input = MakeByteArray(packet);
  return RunForBytes(result, [&](SAFEARRAY** array, TzErrorCode* e) {
    return object_->SendSwdPacket(input.get(), handle, array, e);
  });
}

TzErrorCode ServiceClient::SendI2CPacket(std::span<const std::uint8_t> packet, std::int64_t handle,
                                         std::int32_t restart_location, Bytes& result) {
  const SafeArray input = MakeByteArray(packet);
  return RunForBytes(result, [&](SAFEARRAY** array, TzErrorCode* e) {
    return object_->SendI2CPacket(input.get(), handle, restart_location, array, e);
  });
}

TzErrorCode ServiceClient::BulkTransfer(TzWirefoxEndPoint endpoint,
                                        std::span<const std::uint8_t> data, bool read,
                                        std::int64_t handle, Bytes& result) {
  const SafeArray input = MakeByteArray(data);
  return RunForBytes(result, [&](SAFEARRAY** array, TzErrorCode* e) {
    return object_->BulkTransfer(endpoint, input.get(), read ? 1 : 0, handle, array, e);
  });
}

TzErrorCode ServiceClient::RequestSwvPackets(std::int64_t handle, Bytes& result) {
  return RunForBytes(result, [&](SAFEARRAY** array, TzErrorCode* e) {
    return object_->RequestSwvPackets(handle, array, e);
  });
}

TzErrorCode ServiceClient::RequestEtmPackets(std::int64_t handle, Bytes& result) {
  return RunForBytes(result, [&](SAFEARRAY** array, TzErrorCode* e) {
    return object_->RequestEtmPackets(handle, array, e);
  });
}

TzErrorCode ServiceClient::PortAcquire(const std::string& probe,
                                       const PortAcquireSettings& settings) {
  const Bstr name = MakeBstr(probe);
  return Run([&](TzErrorCode* e) {
    return object_->PortAcquire(name.get(), settings.mode, settings.key,
                                settings.write_test_key ? 1 : 0, settings.test_mode_address,
                                settings.test_mode_key, settings.retry_limit, e);
  });
}

TzErrorCode ServiceClient::PortAcquire(std::int64_t handle, const PortAcquireSettings& settings) {
  return Run([&](TzErrorCode* e) {
    return object_->PortAcquire(settings.mode, settings.key, settings.write_test_key ? 1 : 0,
                                settings.test_mode_address, settings.test_mode_key,
                                settings.retry_limit, handle, e);
  });
}

TzErrorCode ServiceClient::GetPortAcquireStatus(const std::string& probe,
                                                std::optional<std::int32_t>& acquire_status) {
  LONG value = 0;
  const TzErrorCode error = RunOnProbe(&ITzWirefox_v1::GetPortAcquireStatus, probe, 0, &value);
  // The service writes 0 only with SUCCESS. With any other outcome a 0 is what the caller or the
  // connection put there.
  acquire_status.reset();
  if (error == TzErrorCode::SUCCESS || value != 0) acquire_status = value;
  return error;
}

std::unique_ptr<ServiceClient> ConnectToService(const std::string& host, HRESULT& status) {
  const bool is_here = host.empty();
  std::wstring name = WideFromUtf8(host);
  COSERVERINFO machine = {0, name.data(), nullptr, 0};
  MULTI_QI wanted = {&api::kInterfaceIdV3, nullptr, S_OK};
  status = CoCreateInstanceEx(api::kClassId, nullptr,
                              is_here ? CLSCTX_LOCAL_SERVER : CLSCTX_REMOTE_SERVER,
                              is_here ? nullptr : &machine, 1, &wanted);
  if (FAILED(status)) return nullptr;
  using enum ServiceClient::Place;
  return std::make_unique<ServiceClient>(static_cast<ITzWirefox_v3*>(wanted.pItf),
                                         is_here ? kThisMachine : kAnotherMachine);
}

}  // namespace client
