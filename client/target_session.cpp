#include "client/target_session.h"

namespace client {

Result AcquireTarget(ServiceClient& service, const TransferTarget& target, Modes modes,
                     std::int64_t& handle) {
  const auto number = static_cast<std::int32_t>(target.target);
  // A probe that cannot be asked shows itself right afterwards.
  TzWFXStatus status{};
  const TzErrorCode asked = service.GetWirefoxStatus(target.probe, status);
  Result result = Outcome(service.AcquireDevice(target.probe, number, handle));
  result.probe = target.probe;
  result.target = static_cast<std::size_t>(target.target);
  if (result.error != TzErrorCode::INVALID_DEVICE) return result;
  std::vector<std::string> devices;
  service.EnumerateDevices(target.probe, devices);
  result.error = service.AcquireDevice(target.probe, number, handle);
  if (asked == TzErrorCode::INVALID_PARAM) result.advice = NoSuchProbe(service, target.probe);
  if (asked != TzErrorCode::SUCCESS) return result;
  result.advice = WrongMode(target.probe, status, modes);
  if (!result.advice.empty()) return result;
  result.advice = devices.empty()
                      ? NoTargets(target.probe, status)
                      : "the last target is number " + std::to_string(devices.size() - 1) +
                            "; `wfx targets " + target.probe + "` lists them";
  return result;
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
  const Result result = AcquireTarget(context_.service(), target, modes_, handle_);
  if (result.error != TzErrorCode::SUCCESS) {
    exit_status = context_.Report(result);
    return false;
  }
  acquired_here_ = true;
  return true;
}

int TargetSession::Report(Result result) {
  TzWFXStatus status{};
  if (result.error == TzErrorCode::INVALID_MODE &&
      context_.service().GetWirefoxStatus(probe_, status) == TzErrorCode::SUCCESS) {
    result.advice = WrongMode(probe_, status, modes_);
  }
  return context_.Report(result);
}

}  // namespace client
