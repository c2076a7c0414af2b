#include <memory>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/no_probes.h"
#include "client/options.h"
#include "client/probe_advice.h"

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

}  // namespace

Action DefineList(CLI::App&) {
  return [](Context& context) {
    Result result;
    std::vector<std::string> names;
    result.error = context.service().EnumerateWirefoxs(names);
    result.outputs["wirefoxs"] = names;
    for (const std::string& name : names) result.text += name + "\n";
    if (names.empty() && !context.output.json()) {
      result.note =
          context.host.empty() ? NoProbesNote(LookForProbes()) : "no probe is ready there";
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
    const auto bits = static_cast<std::uint32_t>(version);
    result.text = "TzWirefoxService " + std::to_string(bits >> 24) + "." +
                  std::to_string(bits >> 16 & 0xFF) + "." + std::to_string(bits >> 8 & 0xFF) + "." +
                  std::to_string(bits & 0xFF) + "\n";
    return context.Report(result);
  };
}

}  // namespace client
