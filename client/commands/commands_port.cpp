#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "client/commands.h"
#include "client/options.h"
#include "client/probe_advice.h"
#include "client/stop_signal.h"
#include "client/target_session.h"

namespace client {

namespace {

constexpr std::int64_t kNotGiven = -1;
constexpr std::int64_t kDefaultWaitSeconds = 5;
// The user has to find the switch first.
constexpr std::int64_t kDefaultManualWaitSeconds = 60;
constexpr DWORD kPauseMs = 20;

struct Options {
  std::string probe;
  std::int64_t target = kNotGiven;
  std::int64_t mode = 0;
  std::int64_t key = 0;
  std::int64_t retries = 10;
  std::int64_t wait_seconds = kNotGiven;
  std::string test_key;
};

std::optional<ServiceClient::PortAcquireSettings> SettingsOf(const Options& options) {
  ServiceClient::PortAcquireSettings settings;
  settings.mode = static_cast<TzProgrammingMode>(options.mode);
  settings.key = static_cast<std::int32_t>(options.key);
  settings.retry_limit = static_cast<std::int32_t>(options.retries);
  if (options.test_key.empty()) return settings;
  const std::size_t colon = options.test_key.find(':');
  if (colon == std::string::npos) return std::nullopt;
  const auto address = ParseNumber(options.test_key.substr(0, colon), 0, UINT32_MAX);
  const auto value = ParseNumber(options.test_key.substr(colon + 1), 0, UINT32_MAX);
  if (!address || !value) return std::nullopt;
  settings.write_test_key = true;
  settings.test_mode_address = static_cast<std::int32_t>(*address);
  settings.test_mode_key = static_cast<std::int32_t>(*value);
  return settings;
}

// By name, unless a target or a session is named: a part that does not answer has no target, so it
// cannot be acquired before it was caught.
bool Start(Context& context, const Options& options, TargetSession& session, Result& result,
           int& exit_status) {
  const auto settings = SettingsOf(options);
  if (!settings) {
    exit_status = context.output.ReportUsage("--test-key wants ADDRESS:VALUE, 32 bits each");
    return false;
  }
  if (options.target == kNotGiven && !options.probe.starts_with('$')) {
    result.error = context.service().PortAcquire(options.probe, *settings);
    return true;
  }
  const std::int64_t target = options.target == kNotGiven ? 0 : options.target;
  if (!session.Open({options.probe, target}, exit_status)) return false;
  result.error = context.service().PortAcquire(session.handle(), *settings);
  return true;
}

// Asks until the target has answered or the time is over. The probe's loop goes on by itself
// meanwhile, and an early question only finds no response yet.
void AwaitAnswer(Context& context, const std::string& probe, std::int64_t wait_seconds,
                 Result& result) {
  const StopSignal stop;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(wait_seconds);
  std::optional<std::int32_t> status;
  for (;;) {
    result.error = context.service().GetPortAcquireStatus(probe, status);
    if (result.error != TzErrorCode::WFX_ERROR) break;
    if (std::chrono::steady_clock::now() >= end || stop.Wait(kPauseMs)) break;
    context.output.ShowProgress("waiting for the target");
  }
  if (status) result.outputs["acquireStatus"] = *status;
  if (result.error == TzErrorCode::SUCCESS) result.text = "the target answered\n";
  if (result.error == TzErrorCode::WFX_ERROR) {
    result.advice = status ? "the target did not answer; check its power and wiring, and how it is "
                             "restarted (--mode, --retries, --test-key)"
                           : "the probe does not tell how it went; plug it in again";
  }
}

int Run(Context& context, const Options& options) {
  TargetSession session(context, kTargetModes);
  Result result;
  int exit_status = kExitSuccess;
  if (!Start(context, options, session, result, exit_status)) return exit_status;
  const bool manual = options.mode == static_cast<std::int64_t>(TzProgrammingMode::VOLTAGE_SENSE);
  std::int64_t wait_seconds = manual ? kDefaultManualWaitSeconds : kDefaultWaitSeconds;
  if (options.wait_seconds != kNotGiven) wait_seconds = options.wait_seconds;
  const std::string& probe = options.probe.starts_with('$') ? session.probe() : options.probe;
  if (result.error == TzErrorCode::SUCCESS) AwaitAnswer(context, probe, wait_seconds, result);
  return ReportOnProbe(context, result, probe);
}

}  // namespace

Action DefineAcquirePort(CLI::App& app) {
  auto options = std::make_shared<Options>();
  Offer(app.add_option("PROBE", options->probe, "The probe's name; in a script also $SESSION"),
        kProbeOffer)
      ->required();
  AddNumber(app, "--target", options->target, 0, INT32_MAX,
            "Acquire this target first, and go by its session");
  AddNamed(app, "--mode", options->mode, kProgrammingModes, INT32_MAX,
           "How the target is restarted (default RESET)");
  AddNumber(app, "--retries", options->retries, INT32_MIN, INT32_MAX,
            "Attempts of the probe (default 10)");
  app.add_option("--test-key", options->test_key,
                 "ADDRESS:VALUE to write before the target is asked for its id");
  AddNumber(app, "--key", options->key, INT32_MIN, UINT32_MAX, "The port acquire key");
  AddNumber(app, "--wait", options->wait_seconds, 0, 86400,
            "Seconds until the client gives up (default 5, with VOLTAGE_SENSE 60)");
  return [options](Context& context) { return Run(context, *options); };
}

}  // namespace client
