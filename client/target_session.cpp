#include "client/target_session.h"

namespace client {

TzErrorCode AcquireTarget(Service& service, const std::string& probe, std::int32_t target,
                          std::int64_t& handle) {
  // Only the recorded mode matters; a probe that cannot be asked shows itself right afterwards.
  TzWFXStatus status{};
  service.GetWirefoxStatus(probe, status);
  const TzErrorCode error = service.AcquireDevice(probe, target, handle);
  if (error != TzErrorCode::INVALID_DEVICE) return error;
  std::vector<std::string> devices;
  service.EnumerateDevices(probe, devices);
  return service.AcquireDevice(probe, target, handle);
}

TargetSession::~TargetSession() {
  if (acquired_here_) context_.service().ReleaseDevice(handle_);
}

bool TargetSession::Open(const TransferTarget& target, int& exit_status) {
  if (target.probe.starts_with('$')) {
    const auto session = context_.sessions.find(target.probe.substr(1));
    if (session == context_.sessions.end()) {
      exit_status = context_.output.ReportUsage("there is no session " + target.probe);
      return false;
    }
    probe_ = session->second.probe;
    handle_ = session->second.handle;
    return true;
  }
  probe_ = target.probe;
  const TzErrorCode error =
      AcquireTarget(context_.service(), probe_, static_cast<std::int32_t>(target.target), handle_);
  if (error != TzErrorCode::SUCCESS) {
    exit_status = context_.Report(Outcome(error));
    return false;
  }
  acquired_here_ = true;
  return true;
}

}  // namespace client
