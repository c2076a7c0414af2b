#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/activity.h"
#include "client/commands.h"
#include "client/options.h"
#include "client/probe_table.h"
#include "client/stop_signal.h"

namespace client {

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  std::int64_t frames = 0;  // 0: until interrupted
  double seconds = 1;
};

// The probes at one moment, and what they have done since the one before.
class Frames {
 public:
  Result Next(const TableActivity& table, Clock::time_point now) {
    Result result;
    std::vector<ShownProbe> probes;
    std::vector<std::optional<ProbeRates>> rates;
    std::map<std::string, ProbeActivity> shown;
    auto& outputs = result.outputs["probes"] = nlohmann::ordered_json::array();
    for (const ProbeActivity& probe : table) {
      probes.push_back({probe.name, probe.mode, probe});
      rates.push_back(RatesOf(probe, now));
      outputs.push_back(OutputsOf(probes.back(), rates.back()));
      shown.try_emplace(probe.name, probe);
    }
    result.text = ProbeTable(probes, &rates);
    last_ = std::move(shown);
    last_time_ = now;
    return result;
  }

 private:
  // Nothing for a probe that was not there, or has come back and counts anew.
  std::optional<ProbeRates> RatesOf(const ProbeActivity& probe, Clock::time_point now) const {
    const auto found = last_.find(probe.name);
    if (found == last_.end()) return std::nullopt;
    const ProbeActivity& before = found->second;
    if (probe.calls < before.calls || probe.bytes < before.bytes) return std::nullopt;
    const double seconds = std::chrono::duration<double>(now - last_time_).count();
    return ProbeRates{static_cast<double>(probe.calls - before.calls) / seconds,
                      static_cast<double>(probe.bytes - before.bytes) / seconds};
  }

  static nlohmann::ordered_json OutputsOf(const ShownProbe& probe,
                                          const std::optional<ProbeRates>& rates) {
    nlohmann::ordered_json outputs = ProbeOutputs(probe);
    outputs["calls"] = probe.activity->calls;
    outputs["bytes"] = probe.activity->bytes;
    if (!rates) return outputs;
    outputs["callsPerSecond"] = rates->calls_per_second;
    outputs["bytesPerSecond"] = rates->bytes_per_second;
    return outputs;
  }

  std::map<std::string, ProbeActivity> last_;
  Clock::time_point last_time_;
};

// The table, once each probe that was not there before, and that nobody holds, has been asked for
// its mode: the service may have recorded none yet.
std::optional<TableActivity> ReadTable(Context& context, const activity::View& view,
                                       std::set<std::string>& known) {
  auto table = ReadActivity(view);
  bool asked = false;
  for (const ProbeActivity& probe : table.value_or(TableActivity())) {
    if (!known.insert(probe.name).second || IsHeld(probe)) continue;
    TzWFXStatus status{};
    context.service().GetWirefoxStatus(probe.name, status);
    asked = true;
  }
  return asked ? ReadActivity(view) : table;
}

int ReportNothingToRead(Context& context) {
  std::int32_t version = 0;
  context.service().GetVersion(version);
  if (FAILED(context.service().call_failure())) return context.Report(Result());
  return context.output.ReportUsage(
      "the service does not show what it does: its activity file, beside the one that `wfx watch` "
      "watches, cannot be made or not be read by this account");
}

int Top(Context& context, const Options& options) {
  if (!context.host.empty()) {
    return context.output.ReportUsage(
        "top shows the service of this machine alone; run it over there, as in `ssh " +
        context.host + " wfx top`");
  }
  int exit_status = kExitSuccess;
  if (!context.Connect(exit_status)) return exit_status;
  const StopSignal stop;
  // Frees what programs that have ended still hold.
  std::vector<std::string> names;
  context.service().EnumerateWirefoxs(names);
  const activity::View view(ActivityPath(context.service()).c_str());
  std::set<std::string> known;
  Frames frames;
  const auto pause_ms = static_cast<DWORD>(options.seconds * 1000);
  for (std::int64_t frame = 1;; ++frame) {
    const auto table = ReadTable(context, view, known);
    if (!table) return ReportNothingToRead(context);
    exit_status = context.output.ReportFrame(frames.Next(*table, Clock::now()));
    if (exit_status != kExitSuccess || frame == options.frames || stop.Wait(pause_ms)) {
      return exit_status;
    }
  }
}

}  // namespace

Action DefineTop(CLI::App& app) {
  auto options = std::make_shared<Options>();
  AddNumber(app, "-n", options->frames, 1, INT32_MAX, "End after so many times");
  app.add_option("-d", options->seconds, "Seconds between two times (default 1)")
      ->check(CLI::Range(0.01, 86400.0));
  return [options](Context& context) { return Top(context, *options); };
}

}  // namespace client
