#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/activity.h"
#include "client/commands.h"
#include "client/no_probes.h"
#include "client/numbers.h"
#include "client/options.h"
#include "client/probe_advice.h"
#include "client/probe_table.h"

namespace client {

namespace {

// A target as the interface lists it: eight hexadecimal digits of id, and '1' when it is acquired.
constexpr std::size_t kIdLength = 8;

std::string TargetLines(const Output& output, const std::vector<std::string>& devices) {
  std::string text;
  for (std::size_t i = 0; i < devices.size(); ++i) {
    const std::string id = devices[i].substr(0, kIdLength);
    const bool acquired = devices[i].substr(id.size()) == "1";
    text += std::to_string(i) + "  0x" + id + "  " +
            (acquired ? output.Coloured(Colour::kCaution, "acquired")
                      : output.Coloured(Colour::kGood, "free")) +
            "\n";
  }
  return text;
}

// The mode is asked for afterwards: the listing itself does not tell it.
std::string NoTargetsNote(Context& context, const std::string& probe) {
  TzWFXStatus status{};
  const TzErrorCode asked = context.service().GetWirefoxStatus(probe, status);
  return asked == TzErrorCode::SUCCESS ? NoTargets(probe, status)
                                       : "no target answers; the probe does not tell its mode";
}

// Who holds a probe has set its mode; of others it is asked for, since a service that was just
// started has recorded none.
ShownProbe LookAt(Context& context, const std::string& name, const TableActivity* table) {
  ShownProbe shown = {name, {}, {}};
  if (const ProbeActivity* found = table ? FindProbe(*table, name) : nullptr) {
    shown.activity = *found;
    shown.mode = found->mode;
    if (IsHeld(*found)) return shown;
  }
  TzWFXStatus status{};
  if (context.service().GetWirefoxStatus(name, status) == TzErrorCode::SUCCESS) {
    shown.mode = status.ACTIVE_INTERFACE;
  }
  return shown;
}

void TellAll(Context& context, const std::vector<std::string>& names, Result& result) {
  std::optional<TableActivity> table;
  if (context.host.empty()) table = AskActivity(context.service());
  std::vector<ShownProbe> probes;
  result.outputs["probes"] = nlohmann::ordered_json::array();
  for (const std::string& name : names) {
    probes.push_back(LookAt(context, name, table ? &*table : nullptr));
    result.outputs["probes"].push_back(ProbeOutputs(probes.back()));
  }
  if (names.empty()) return;
  result.text = ProbeTable(probes);
  if (table) return;
  result.note = context.host.empty() ? "the service does not show who holds what"
                                     : "who holds what is known on that machine alone";
}

}  // namespace

Action DefineList(CLI::App& app) {
  auto is_long = std::make_shared<bool>(false);
  app.add_flag("--long", *is_long, "With mode, voltage, targets and who holds them");
  return [is_long](Context& context) {
    Result result;
    std::vector<std::string> names;
    result.error = context.service().EnumerateWirefoxs(names);
    result.outputs["wirefoxs"] = names;
    if (*is_long) {
      TellAll(context, names, result);
    } else {
      for (const std::string& name : names) result.text += name + "\n";
    }
    if (names.empty() && !context.output.json()) {
      result.note = context.host.empty() ? NoProbesNote(LookForProbes(FindInstallation()))
                                         : "no probe is ready there";
    }
    return context.Report(result);
  };
}

Action DefineTargets(CLI::App& app) {
  auto probe = std::make_shared<std::string>();
  AddProbe(app, *probe);
  return [probe](Context& context) {
    Result result;
    std::vector<std::string> devices;
    result.error = context.service().EnumerateDevices(*probe, devices);
    result.outputs["devices"] = devices;
    if (result.error == TzErrorCode::SUCCESS) {
      result.text = TargetLines(context.output, devices);
      if (devices.empty() && !context.output.json()) result.note = NoTargetsNote(context, *probe);
    }
    return ReportOnProbe(context, result, *probe);
  };
}

Action DefineVersion(CLI::App&) {
  return [](Context& context) {
    Result result;
    std::int32_t version = 0;
    result.error = context.service().GetVersion(version);
    result.outputs["versionNum"] = version;
    result.text = "TzWirefoxService " + VersionText(version) + "\n";
    return context.Report(result);
  };
}

}  // namespace client
