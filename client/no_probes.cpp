#include "client/no_probes.h"

#include <windows.h>

#include <cstdlib>
#include <string_view>

#include "client/text.h"

namespace client {

namespace {

constexpr char kBusVariable[] = "WIREFOX_BUS";
constexpr std::string_view kBench = "sim:";

bool HasBench(std::string_view bus) { return bus.starts_with(kBench); }

std::string SocketOf(const ProbeSources& sources) { return sources.bus.substr(kBench.size()); }

}  // namespace

ProbeSources LookForProbes(const Installation& installation) {
  ProbeSources sources;
  sources.settings = installation.settings;
  sources.settings_missing = installation.settings_missing;
  sources.is_service = !installation.service.empty();
  if (const char* bus = std::getenv(kBusVariable)) sources.bus = Utf8FromArgument(bus);
  if (HasBench(sources.bus)) {
    sources.bench_listens = WaitNamedPipeW(WideFromUtf8(SocketOf(sources)).c_str(), 1) != FALSE;
  }
  return sources;
}

std::string MissingSettings(const std::string& settings) {
  return "the service's settings file " + settings +
         " is missing; put it there, with the firmware and FPGA files that it names, and start "
         "the service again";
}

std::string BusProblem(const ProbeSources& sources) {
  if (sources.bus.empty()) return "";
  if (!HasBench(sources.bus)) {
    return "WIREFOX_BUS is '" + sources.bus +
           "', which names no bus; set it to sim:SOCKET for a simulated bench, or unset it";
  }
  if (sources.bench_listens) return "";
  const std::string socket = SocketOf(sources);
  return "no bench listens at " + socket +
         ", which WIREFOX_BUS names; start `wfxsim "
         "--socket " +
         socket + "`";
}

std::string NoProbesNote(const ProbeSources& sources) {
  const std::string settings = sources.settings.empty() ? "wfxusb.ini" : sources.settings;
  if (sources.settings_missing) return "no probe: " + MissingSettings(settings);
  if (sources.is_service || sources.bus.empty()) {
    return "no probe is attached; plug one in (`wfx watch` tells when it is ready), and see that " +
           settings + " lists its USB ids" +
           (sources.bus.empty() ? ""
                                : "; the service was given its WIREFOX_BUS when it was registered, "
                                  "this shell's does not reach it");
  }
  const std::string problem = BusProblem(sources);
  if (!problem.empty()) return "no probe: " + problem;
  const std::string socket = SocketOf(sources);
  return "no probe of the bench at " + socket + " is ready; `wfxsim ctl --socket " + socket +
         " list` shows what is plugged in, " + settings +
         " must list its USB ids, and a service that other clients keep has the WIREFOX_BUS of "
         "the first";
}

}  // namespace client
