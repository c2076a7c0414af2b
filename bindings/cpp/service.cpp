#include "bindings/cpp/connection.h"

namespace wirefox {
namespace {

using client::ServiceClient;

// The one output of a method that names a probe.
template <typename Value, typename Method>
Value Asked(Connection& connection, const char* name, Method method, const std::string& probe) {
  Value value{};
  connection.Run(name, [&](ServiceClient& c) { return (c.*method)(probe, value); });
  return value;
}

}  // namespace

Service::Service() : Service(std::make_shared<Connection>()) {}
Service::Service(std::shared_ptr<Connection> connection) noexcept
    : connection_(std::move(connection)) {}
Service::Service(Service&&) noexcept = default;
Service& Service::operator=(Service&&) noexcept = default;
Service::~Service() = default;

std::int32_t Service::GetVersion() {
  std::int32_t version = 0;
  connection_->Run("GetVersion", [&](ServiceClient& c) { return c.GetVersion(version); });
  return version;
}

std::string Service::GetDevicesChangedLocation() {
  std::string path;
  connection_->Run("GetDevicesChangedLocation",
                   [&](ServiceClient& c) { return c.GetDevicesChangedLocation(path); });
  return path;
}

std::vector<std::string> Service::EnumerateWirefoxs() {
  std::vector<std::string> names;
  connection_->Run("EnumerateWirefoxs",
                   [&](ServiceClient& c) { return c.EnumerateWirefoxs(names); });
  return names;
}

std::vector<std::string> Service::EnumerateDevices(const std::string& probe) {
  return Asked<std::vector<std::string>>(*connection_, "EnumerateDevices",
                                         &ServiceClient::EnumerateDevices, probe);
}

TzWFXStatus Service::GetWirefoxStatus(const std::string& probe) {
  return Asked<TzWFXStatus>(*connection_, "GetWirefoxStatus", &ServiceClient::GetWirefoxStatus,
                            probe);
}

std::int32_t Service::GetHwRevID(const std::string& probe) {
  return Asked<std::int32_t>(*connection_, "GetHwRevID", &ServiceClient::GetHwRevID, probe);
}

void Service::SetLedState(const std::string& probe, TzLed led, TzLedState state) {
  connection_->Run("SetLedState",
                   [&](ServiceClient& c) { return c.SetLedState(probe, led, state); });
}

void Service::VisualIdentify(const std::string& probe, TzLedIdentifyState state) {
  connection_->Run("VisualIdentify",
                   [&](ServiceClient& c) { return c.VisualIdentify(probe, state); });
}

void Service::SetTimeOut(const std::string& probe, TzWirefoxEndPoint endpoint,
                         std::int32_t timeout_ms) {
  connection_->Run("SetTimeOut",
                   [&](ServiceClient& c) { return c.SetTimeOut(probe, endpoint, timeout_ms); });
}

void Service::SetJtagClock(const std::string& probe, TzJtagClock clock) {
  connection_->Run("SetJtagClock", [&](ServiceClient& c) { return c.SetJtagClock(probe, clock); });
}

void Service::SetMode(const std::string& probe, TzTransferMode mode, bool port10) {
  connection_->Run("SetMode", [&](ServiceClient& c) { return c.SetMode(probe, mode, port10); });
}

void Service::SetVTarg(const std::string& probe, TzVTargVoltage voltage, bool supply) {
  connection_->Run("SetVTarg",
                   [&](ServiceClient& c) { return c.SetVTarg(probe, voltage, supply); });
}

void Service::ToggleXres(const std::string& probe, bool active) {
  connection_->Run("ToggleXres", [&](ServiceClient& c) { return c.ToggleXres(probe, active); });
}

void Service::SetupSWV(const std::string& probe, std::int32_t frequency_hz, bool manchester,
                       std::int16_t commit_time) {
  connection_->Run("SetupSWV", [&](ServiceClient& c) {
    return c.SetupSWV(probe, frequency_hz, manchester, commit_time);
  });
}

Session Service::AcquireDevice(const std::string& probe, std::int32_t target) {
  std::int64_t handle = 0;
  connection_->Run("AcquireDevice",
                   [&](ServiceClient& c) { return c.AcquireDevice(probe, target, handle); });
  return Session(connection_, handle);
}

void Service::PortAcquire(const std::string& probe, const PortAcquireSettings& settings) {
  connection_->Run("PortAcquire", [&](ServiceClient& c) {
    return c.PortAcquire(probe, ClientSettings(settings));
  });
}

bool Service::GetPortAcquireStatus(const std::string& probe) {
  constexpr const char* kMethod = "GetPortAcquireStatus";
  std::optional<std::int32_t> status;
  const TzErrorCode error = connection_->Ask(
      kMethod, [&](ServiceClient& c) { return c.GetPortAcquireStatus(probe, status); });
  // A part that has not answered is an outcome here, though the service calls it an error.
  if (!status) Connection::ThrowOutcome(kMethod, error);
  return *status == 0;
}

}  // namespace wirefox
