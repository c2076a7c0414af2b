#include "sim/server/control_commands.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace sim {
namespace {

using Json = nlohmann::json;

std::string ToHex(const Bytes& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

int Digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  throw std::invalid_argument("not a hexadecimal digit");
}

Json Summary(const ProbeState& state) {
  return {{"name", state.name},
          {"kind", state.is_evk ? "evk" : "wirefox"},
          {"state", state.configured ? "configured" : "fresh"},
          {"plugged", state.plugged},
          {"vid", state.vendor_id},
          {"pid", state.product_id},
          {"mode", state.mode},
          {"leds", state.leds},
          {"reset_asserted", state.reset_asserted},
          {"path", state.path}};
}

Json Whole(const ProbeState& state) {
  Json json = Summary(state);
  json.update({{"processor_held", state.processor_held},
               {"fpga_loaded", state.fpga_loaded},
               {"external", state.external},
               {"connector", state.connector},
               {"identify", state.identify},
               {"supply_on", state.supply_on},
               {"voltage_code", state.voltage_code},
               {"measured", state.measured},
               {"clock_code", state.clock_code},
               {"resets", state.resets},
               {"swv_commit", state.swv_commit},
               {"swv_lost", state.swv_lost},
               {"target_caught", state.target_caught},
               {"acquire_attempts", state.acquire_attempts},
               {"configuration_bits", state.configuration_bits},
               {"configuration_crc", state.configuration_crc},
               {"configuration_done", state.configuration_done},
               {"pins", state.pins}});
  return json;
}

[[noreturn]] void NoProbe(const std::string& name) {
  throw std::invalid_argument("there is no probe named " + name);
}

Json Dump(Bench& bench, const std::string& name, const std::string& what) {
  if (bench.State(name).name.empty()) NoProbe(name);
  if (what == "ram") return {{"data", ToHex(bench.DumpRam(name))}};
  if (what == "fpga") return {{"data", ToHex(bench.DumpFpga(name))}};
  if (what == "configuration") return {{"data", ToHex(bench.DumpConfiguration(name))}};
  throw std::invalid_argument("what to dump is ram, fpga or configuration");
}

Fault ReadFault(const Json& request) {
  Fault fault;
  const std::optional<FaultKind> kind = FaultByName(request.at("kind").get<std::string>());
  if (!kind) throw std::invalid_argument("there is no such kind of fault");
  fault.kind = *kind;
  fault.endpoint = request.value("endpoint", std::uint8_t{0});
  if (request.contains("request")) fault.request = request["request"].get<std::uint8_t>();
  fault.count = request.value("count", 1u);
  fault.value = request.value("value", 0u);
  return fault;
}

Json Run(Bench& bench, const Json& request) {
  const std::string command = request.at("command").get<std::string>();
  if (command == "list") {
    Json probes = Json::array();
    for (const ProbeState& state : bench.List()) probes.push_back(Summary(state));
    return {{"probes", probes}};
  }
  if (command == "add") {
    bench.AddProbe(request.at("probe").dump());
    return Json::object();
  }
  const std::string name = request.at("name").get<std::string>();
  bool known = true;
  if (command == "show") {
    const ProbeState state = bench.State(name);
    if (state.name.empty()) NoProbe(name);
    return {{"probe", Whole(state)}};
  } else if (command == "plug" || command == "unplug") {
    if (bench.State(name).name.empty()) NoProbe(name);
    if (!(command == "plug" ? bench.Plug(name) : bench.Unplug(name))) {
      throw std::invalid_argument(name + (command == "plug" ? " is plugged" : " is not plugged"));
    }
  } else if (command == "dump") {
    return Dump(bench, name, request.at("what").get<std::string>());
  } else if (command == "fault") {
    known = bench.ArmFault(name, ReadFault(request));
  } else if (command == "clear-faults") {
    known = bench.ClearFaults(name);
  } else if (command == "set") {
    known = bench.Rearrange(name, request.at("changes").dump());
  } else if (command == "cycle-power") {
    known = bench.CyclePower(name);
  } else if (command == "swv") {
    known = bench.PushSwv(name, FromHex(request.at("data").get<std::string>()));
  } else {
    throw std::invalid_argument("there is no command " + command);
  }
  if (!known) NoProbe(name);
  return Json::object();
}

}  // namespace

Bytes FromHex(const std::string& text) {
  if (text.size() % 2 != 0) throw std::invalid_argument("an odd number of hexadecimal digits");
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(Digit(text[i]) * 16 + Digit(text[i + 1])));
  }
  return bytes;
}

std::string RunCommand(Bench& bench, const std::string& text, const std::function<void()>& stop) {
  Json answer;
  try {
    const Json request = Json::parse(text);
    if (request.is_object() && request.value("command", "") == "stop") {
      stop();
      answer = Json::object();
    } else {
      answer = Run(bench, request);
    }
    answer["ok"] = true;
  } catch (const std::exception& error) {
    answer = {{"ok", false}, {"error", error.what()}};
  }
  return answer.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace sim
