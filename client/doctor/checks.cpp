#include "client/doctor/checks.h"

#include <algorithm>
#include <map>
#include <optional>
#include <sstream>
#include <string_view>

#include "client/text.h"
#include "client/unreachable.h"

namespace client {

namespace {

// The states that a file's setting makes of a device, and the image that each then needs.
constexpr std::string_view kWirefox = "WFXDEVICE";
constexpr std::string_view kEvk = "EVKDEVICE";
constexpr std::string_view kFirmware = "KX7";
constexpr std::string_view kFpgaImage = "FPGA";

std::string WhatItIs(std::string_view kind) {
  return kind == kFirmware ? "the firmware" : "the FPGA image";
}

class ImageCheck {
 public:
  ImageCheck(const Installation& installation, Checks& checks)
      : installation_(installation), checks_(checks) {}

  void Run() {
    for (const auto& [key, state] : *installation_.values) {
      const auto device = ParseDeviceKey(key);
      if (!device || (device->kind != kWirefox && device->kind != kEvk)) continue;
      ++devices_;
      const std::string ids = key.substr(0, key.size() - device->kind.size());
      if (state == kFresh) {
        CheckImage(ids, kFirmware);
      } else if (state != kReady) {
        Add(Health::kWarning, key + "=" + state + " means nothing; write " + kReady + " or " +
                                  kFresh + ", in capitals");
      } else if (device->kind == kWirefox) {
        CheckImage(ids, kFpgaImage);
      }
    }
    if (devices_ == 0) {
      Add(Health::kProblem,
          installation_.settings +
              " calls no device a probe; add their ids, as the file itself tells");
    } else if (images_ > 0) {
      Add(Health::kOk, std::to_string(images_) + (images_ == 1 ? " file" : " files") +
                           ", as the settings name them");
    }
  }

 private:
  // `ids` is what the keys begin with.
  void CheckImage(const std::string& ids, std::string_view kind) {
    const std::string key = ids + std::string(kind);
    const auto name = installation_.values->find(key);
    if (name == installation_.values->end() || name->second.empty()) {
      return Add(Health::kProblem, WhatItIs(kind) + " of the probes " + ids.substr(0, 9) +
                                       " is not named; add " + key + "=FILE to " +
                                       installation_.settings);
    }
    const std::filesystem::path file = FileOf(installation_, name->second);
    const std::string what =
        Utf8FromPath(file) + ", " + WhatItIs(kind) + " that " + key + " names, ";
    if (IsMissing(file)) return Add(Health::kProblem, what + "is missing; put it there");
    if (!IsReadable(file)) {
      return Add(Health::kWarning,
                 what + "cannot be read by this account; the service's account must be able to");
    }
    ++images_;
  }

  void Add(Health health, std::string text) {
    checks_.push_back({"images", health, std::move(text)});
  }

  const Installation& installation_;
  Checks& checks_;
  int devices_ = 0;
  int images_ = 0;
};

std::optional<std::string> Between(std::string_view line, std::string_view before,
                                   std::string_view after) {
  const std::size_t begin = line.find(before);
  if (begin == line.npos) return std::nullopt;
  const std::string_view rest = line.substr(begin + before.size());
  const std::size_t end = rest.find(after);
  if (end == rest.npos) return std::nullopt;
  return std::string(rest.substr(0, end));
}

// A device's path has its serial number between the second number sign and the third.
std::string NameIn(const std::string& path) {
  const auto rest = Between(path + "#", "#", "#");
  const auto name = rest ? Between(path + "#", "#" + *rest + "#", "#") : rest;
  return name.value_or(path);
}

// What the log's last word about each device is, by its name in small letters.
std::map<std::string, std::string> ComplaintsOf(const std::string& log) {
  std::map<std::string, std::string> complaints;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    if (const auto path = Between(line, "]Unable to open device ", ". Skipping")) {
      complaints[LowerCase(NameIn(*path))] =
          "the service cannot open it, or it does not answer; unplug it, and see that nobody else "
          "uses it";
    }
    const auto path = Between(line, " programming device ", ", with file ");
    if (!path) continue;
    const bool is_fpga = line.find("ProgramFPGA]") != line.npos;
    complaints[LowerCase(NameIn(*path))] =
        "it waits for " + WhatItIs(is_fpga ? kFpgaImage : kFirmware) + ", file " +
        Between(line + "\n", ", with file ", ".\n").value_or("") + " (error " +
        Between(line, "]Error ", " ").value_or("?") +
        "); see that the file is the right one, then unplug the probe and plug it in again";
  }
  return complaints;
}

std::string WaitsFor(const AttachedDevice& device) {
  if (device.is_fresh) return "it waits for its firmware";
  return device.may_be_opened ? "it waits for its FPGA image, or does not answer"
                              : "it may not be opened by this account, or waits for its FPGA image";
}

}  // namespace

void CheckRegistration(const Installation& installation, Checks& checks) {
  constexpr auto kNotRegistered = static_cast<HRESULT>(0x80040154);
  const auto add = [&](const char* name, Health health, std::string text) {
    checks.push_back({name, health, std::move(text)});
  };
  if (installation.program.empty()) {
    return add("registration", Health::kUnusable, UnreachableAdvice(kNotRegistered, ""));
  }
  add("registration", Health::kOk,
      installation.service.empty() ? "a plain server, which its first client starts"
                                   : "the service " + installation.service + " of the system");
  if (IsMissing(PathFromUtf8(installation.program))) {
    return add("program", Health::kUnusable,
               installation.program +
                   " is missing; run `TzWirefoxService -RegServer` again where it lies now");
  }
  add("program", Health::kOk, installation.program);
}

void CheckSettings(const Installation& installation, Checks& checks) {
  if (installation.program.empty()) return;
  const auto add = [&](Health health, std::string text) {
    checks.push_back({"settings", health, std::move(text)});
  };
  if (installation.settings_missing) {
    return add(Health::kProblem, MissingSettings(installation.settings));
  }
  if (!installation.values) {
    return add(Health::kWarning, installation.settings +
                                     " cannot be read by this account; the service's account must "
                                     "be able to");
  }
  add(Health::kOk, installation.settings);
  ImageCheck(installation, checks).Run();
}

void CheckBus(const ProbeSources& sources, const AttachedDevices& devices, Checks& checks) {
  const auto add = [&](Health health, std::string text) {
    checks.push_back({"bus", health, std::move(text)});
  };
  const std::string problem = sources.is_service ? "" : BusProblem(sources);
  if (!problem.empty()) return add(Health::kProblem, problem);
  if (!sources.bus.empty()) {
    return add(Health::kOk, sources.is_service
                                ? "the one that the service was registered with; this shell's "
                                  "WIREFOX_BUS does not reach it"
                                : "the bench that WIREFOX_BUS names, " + sources.bus);
  }
  const std::string usb = "this computer's USB";
  add(Health::kOk,
      sources.is_service ? usb + ", unless the service was registered with a WIREFOX_BUS" : usb);
  if (!devices.has_usb) {
    add(Health::kWarning,
        "there is no USB here (no /dev/bus/usb); give it to this container or guest machine");
  }
  for (const AttachedDevice& device : devices.devices) {
    // It is the service's account that opens them.
    const bool is_fine = device.may_be_opened || sources.is_service;
    add(is_fine ? Health::kOk : Health::kProblem,
        device.node + ", a probe by its ids " + device.ids +
            (is_fine ? ""
                     : ", may not be opened by this account; a udev rule for its ids gives the "
                       "right"));
  }
}

void CheckMissingProbes(const std::string& log, const AttachedDevices& devices,
                        const std::vector<std::string>& ready, Checks& checks) {
  auto complaints = ComplaintsOf(log);
  for (const std::string& name : ready) complaints.erase(LowerCase(name));
  for (const auto& [name, complaint] : complaints) {
    checks.push_back({"probes", Health::kWarning, name + " is not ready: " + complaint});
  }
  for (const AttachedDevice& device : devices.devices) {
    if (complaints.contains(LowerCase(device.name)) ||
        std::ranges::find(ready, device.name) != ready.end()) {
      continue;
    }
    checks.push_back({"probes", Health::kWarning,
                      (device.name.empty() ? device.node : device.name) + " (" + device.ids +
                          ") is not ready: " + WaitsFor(device) +
                          "; the service's log at LOGLEVEL=1, or its journal, tells why"});
  }
}

}  // namespace client
