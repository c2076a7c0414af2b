#include "bindings/cpp/connection.h"

namespace wirefox {
namespace {

using client::ServiceClient;

std::span<const std::uint8_t> SpanOf(ByteView bytes) { return {bytes.data(), bytes.size()}; }

}  // namespace

Session::Session(std::shared_ptr<Connection> connection, std::int64_t handle) noexcept
    : connection_(std::move(connection)), handle_(handle) {}

Session::Session(Session&& other) noexcept
    : connection_(std::move(other.connection_)), handle_(other.handle_.exchange(0)) {}

Session& Session::operator=(Session&& other) noexcept {
  if (this == &other) return *this;
  LetGo();
  connection_ = std::move(other.connection_);
  handle_ = other.handle_.exchange(0);
  return *this;
}

Session::~Session() { LetGo(); }

void Session::LetGo() noexcept {
  try {
    if (handle_ != 0) ReleaseDevice();
  } catch (const std::exception&) {
    // The service has taken it back already, or is gone; or the list of probes will tell.
  }
}

// Calls `call` with the client and throws unless it succeeds. Other threads may release the target
// meanwhile, but not during the call.
template <typename Call>
void Session::OnTarget(const char* method, Call call) {
  if (!connection_) Connection::ThrowOutcome(method, TzErrorCode::NOT_ACQUIRED);
  connection_->Run(
      method, [&](ServiceClient& c) { return handle_ != 0 ? call(c) : TzErrorCode::NOT_ACQUIRED; });
}

Bytes Session::SendJtagPacket(ByteView tdi_tms, bool read) {
  Bytes result;
  OnTarget("SendJtagPacket", [&](ServiceClient& c) {
    return c.SendJtagPacket(SpanOf(tdi_tms), read, handle_, result);
  });
  return result;
}

Bytes Session::SendSwdPacket(ByteView data) {
  Bytes result;
  OnTarget("SendSwdPacket",
           [&](ServiceClient& c) { return c.SendSwdPacket(SpanOf(data), handle_, result); });
  return result;
}

Bytes Session::SendI2CPacket(ByteView data, std::int32_t restart_location) {
  Bytes result;
  OnTarget("SendI2CPacket", [&](ServiceClient& c) {
    return c.SendI2CPacket(SpanOf(data), handle_, restart_location, result);
  });
  return result;
}

Bytes Session::BulkTransfer(TzWirefoxEndPoint endpoint, ByteView data, bool read) {
  Bytes result;
  OnTarget("BulkTransfer", [&](ServiceClient& c) {
    return c.BulkTransfer(endpoint, SpanOf(data), read, handle_, result);
  });
  return result;
}

Bytes Session::RequestSwvPackets() {
  Bytes result;
  OnTarget("RequestSwvPackets",
           [&](ServiceClient& c) { return c.RequestSwvPackets(handle_, result); });
  return result;
}

Bytes Session::RequestEtmPackets() {
  Bytes result;
  OnTarget("RequestEtmPackets",
           [&](ServiceClient& c) { return c.RequestEtmPackets(handle_, result); });
  return result;
}

void Session::PortAcquire(const PortAcquireSettings& settings) {
  OnTarget("PortAcquire",
           [&](ServiceClient& c) { return c.PortAcquire(handle_, ClientSettings(settings)); });
}

void Session::ReleaseDevice() {
  // Once: whatever the answer, the session has ended.
  OnTarget("ReleaseDevice", [&](ServiceClient& c) { return c.ReleaseDevice(handle_.exchange(0)); });
}

}  // namespace wirefox
