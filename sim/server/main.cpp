// wfxsim: runs a simulated bench, and controls one that runs.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "sim/fault.h"
#include "sim/server/control_commands.h"
#include "sim/server/program.h"

namespace {

using Json = nlohmann::json;

constexpr int kFailed = 1;  // the simulator refused
constexpr int kUsage = 2;
constexpr int kNoSimulator = 3;

struct Arguments {
  sim::ServeOptions serve;
  std::string name;
  std::string what;
  std::string file;
  std::string kind;
  std::string endpoint = "0";
  std::string request;
  std::uint32_t count = 1;
  std::uint32_t value = 0;
  std::string text;
  bool json = false;
};

// One byte, decimal or hexadecimal with 0x.
std::uint8_t ToByte(const std::string& text) {
  std::size_t used = 0;
  const int value = std::stoi(text, &used, 0);
  if (used != text.size() || value < 0 || value > 0xFF) throw std::out_of_range("not a byte");
  return static_cast<std::uint8_t>(value);
}

std::string IsByte(const std::string& text) {
  try {
    ToByte(text);
    return {};
  } catch (const std::exception&) {
    return text + " is not a number from 0 to 0xFF";
  }
}

void AddCommands(CLI::App& ctl, Arguments& arguments) {
  ctl.require_subcommand(1);
  ctl.add_option("--socket", arguments.serve.socket_path, "Socket of the simulator");
  const auto on_probe = [&](const char* name, const char* help) {
    CLI::App* command = ctl.add_subcommand(name, help);
    command->add_option("NAME", arguments.name, "Name of the probe")->required();
    return command;
  };
  CLI::App* list = ctl.add_subcommand("list", "List the probes");
  list->add_flag("--json", arguments.json, "One JSON object on one line");
  on_probe("show", "Show all of a probe's state, as JSON");
  on_probe("plug", "Plug a probe in");
  on_probe("unplug", "Take a probe away");
  CLI::App* dump = on_probe("dump", "Write a probe's memory to a file");
  dump->add_option("WHAT", arguments.what, "ram, fpga or configuration")
      ->required()
      ->check(CLI::IsMember({"ram", "fpga", "configuration"}));
  dump->add_option("FILE", arguments.file, "File to write")->required();
  CLI::App* fault = on_probe("fault", "Arm a fault");
  fault
      ->add_option("KIND", arguments.kind,
                   "stall, silent, short-reply, wrong-length, delay, error-status, unplug or "
                   "corrupt-descriptor")
      ->required()
      ->check([](const std::string& kind) {
        return sim::FaultByName(kind) ? std::string() : "there is no fault " + kind;
      });
  fault->add_option("--endpoint", arguments.endpoint, "Endpoint address, 0 for control")
      ->check(IsByte);
  fault->add_option("--request", arguments.request, "Only this control request")->check(IsByte);
  fault->add_option("--count", arguments.count, "Transfers that it hits");
  fault->add_option("--value", arguments.value, "Milliseconds, bytes, status or seed");
  on_probe("clear-faults", "Disarm a probe's faults");
  on_probe("set", "Change members of a probe's description")
      ->add_option("JSON", arguments.text, "An object of members")
      ->required();
  ctl.add_subcommand("add", "Add a probe")
      ->add_option("JSON", arguments.text, "Its description")
      ->required();
  on_probe("cycle-power", "Take the target's power away and give it back");
  on_probe("swv", "Send bytes on the target's trace pin")
      ->add_option("HEX", arguments.text, "The bytes")
      ->required();
  ctl.add_subcommand("stop", "End the simulator");
}

Json MakeRequest(const std::string& command, const Arguments& arguments) {
  Json request = {{"command", command}};
  if (!arguments.name.empty()) request["name"] = arguments.name;
  if (command == "dump") request["what"] = arguments.what;
  if (command == "swv") request["data"] = arguments.text;
  if (command == "set") request["changes"] = Json::parse(arguments.text);
  if (command == "add") request["probe"] = Json::parse(arguments.text);
  if (command == "fault") {
    request["kind"] = arguments.kind;
    request["endpoint"] = ToByte(arguments.endpoint);
    request["count"] = arguments.count;
    request["value"] = arguments.value;
    if (!arguments.request.empty()) request["request"] = ToByte(arguments.request);
  }
  return request;
}

// A character an LED: off, its two ways to flash, on.
std::string LedsAsText(const Json& leds) {
  std::string text;
  for (const Json& led : leds) text += "-12*"[led.get<unsigned>() & 3];
  return text;
}

void PrintList(const Json& probes) {
  std::printf("%-16s %-8s %-11s %-9s %4s %-4s %-5s %s\n", "NAME", "KIND", "STATE", "ID", "MODE",
              "LEDS", "RESET", "PATH");
  for (const Json& probe : probes) {
    const std::string path = probe.value("path", "");
    std::printf("%-16s %-8s %-11s %04x:%04x %4u %-4s %-5s %s\n", probe.value("name", "").c_str(),
                probe.value("kind", "").c_str(), probe.value("state", "").c_str(),
                probe.value("vid", 0u), probe.value("pid", 0u), probe.value("mode", 0u),
                LedsAsText(probe.at("leds")).c_str(), probe.at("reset_asserted") ? "low" : "high",
                path.empty() ? "(not plugged)" : path.c_str());
  }
}

int WriteDump(const Json& answer, const std::string& path) {
  const sim::Bytes bytes = sim::FromHex(answer.at("data").get<std::string>());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (file) return 0;
  std::fprintf(stderr, "wfxsim: cannot write %s\n", path.c_str());
  return kFailed;
}

int Control(const std::string& command, const Arguments& arguments) {
  std::string text;
  std::string error;
  std::string request;
  try {
    request = MakeRequest(command, arguments).dump();
  } catch (const std::exception& bad) {
    std::fprintf(stderr, "wfxsim: %s\n", bad.what());
    return kUsage;
  }
  if (!sim::Ask(arguments.serve.socket_path, request, text, error)) {
    std::fprintf(stderr, "wfxsim: %s\n", error.c_str());
    return kNoSimulator;
  }
  const Json answer = Json::parse(text);
  if (!answer.value("ok", false)) {
    std::fprintf(stderr, "wfxsim: %s\n", answer.value("error", "").c_str());
    return kFailed;
  }
  if (command == "dump") return WriteDump(answer, arguments.file);
  if (command == "show") std::printf("%s\n", answer.at("probe").dump(2).c_str());
  if (command == "list" && arguments.json) {
    std::printf("%s\n", Json({{"probes", answer.at("probes")}}).dump().c_str());
  } else if (command == "list") {
    PrintList(answer.at("probes"));
  }
  return 0;
}

std::string NamesOfCommands(const CLI::App& app) {
  std::string names;
  for (const CLI::App* command : app.get_subcommands({})) {
    if (!names.empty()) names += ", ";
    names += command->get_name();
  }
  return names;
}

int Run(int argc, char** argv) {
  Arguments arguments;
  CLI::App app("Simulates a bench of debug probes with targets behind them.", "wfxsim");
  app.add_option("--bench", arguments.serve.bench_file,
                 "Description of the bench: a JSON file, or demo");
  app.add_option("--socket", arguments.serve.socket_path, "Socket to listen on");
  app.add_option("--pcap", arguments.serve.capture_file, "File to record all USB traffic in");
  app.add_flag("--attach-kernel", arguments.serve.attach_kernel,
               "Attach the probes to this machine through the kernel's vhci_hcd");
  app.set_version_flag("--version", "wfxsim " WIREFOX_VERSION);
  CLI::App* ctl = app.add_subcommand("ctl", "Control a simulator that runs");
  AddCommands(*ctl, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) == 0) return 0;
    std::fprintf(stderr, "The command of wfxsim is ctl, those of wfxsim ctl are %s.\n",
                 NamesOfCommands(*ctl).c_str());
    return kUsage;
  }
  if (!*ctl) return sim::Serve(arguments.serve);
  try {
    return Control(ctl->get_subcommands().front()->get_name(), arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wfxsim: the simulator's answer makes no sense: %s\n", error.what());
    return kFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int status = Run(argc, argv);
  // Whoever asked for an answer is to notice that it did not arrive.
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  std::fprintf(stderr, "wfxsim: the output cannot be written\n");
  return status != 0 ? status : kFailed;
}
