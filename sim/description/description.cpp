#include "sim/description/description.h"

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string_view>

namespace sim {
namespace {

using Json = nlohmann::json;

constexpr std::uint32_t kMaxMemoryBytes = 64u << 20;

[[noreturn]] void Refuse(const std::string& where, const std::string& why) {
  throw std::invalid_argument(where + ": " + why);
}

// One JSON object under the name by which messages call it.
class Entry {
 public:
  Entry(const Json& json, std::string where, std::initializer_list<std::string_view> members)
      : json_(json), where_(std::move(where)) {
    if (!json_.is_object()) Refuse(where_, "is not an object");
    for (const auto& [key, value] : json_.items()) {
      if (std::find(members.begin(), members.end(), key) == members.end()) {
        Refuse(where_, "has no member \"" + key + "\"");
      }
    }
  }

  const Json* Find(const char* key) const {
    const auto it = json_.find(key);
    return it == json_.end() ? nullptr : &*it;
  }
  std::string Where(const char* key) const { return where_ + "." + key; }
  const std::string& where() const { return where_; }

  // A JSON number, or a string with a decimal or hexadecimal ("0x…") number.
  template <typename T>
  void Number(const char* key, T& out, std::int64_t low = 0,
              std::int64_t high = std::numeric_limits<T>::max()) const {
    const Json* json = Find(key);
    if (!json) return;
    const std::int64_t value = ToNumber(*json, Where(key));
    if (value < low || value > high) Refuse(Where(key), "is out of range");
    out = static_cast<T>(value);
  }

  void Flag(const char* key, bool& out) const {
    const Json* json = Find(key);
    if (!json) return;
    if (!json->is_boolean()) Refuse(Where(key), "is not true or false");
    out = json->get<bool>();
  }

  void Text(const char* key, std::string& out, std::size_t longest) const {
    const Json* json = Find(key);
    if (!json) return;
    if (!json->is_string()) Refuse(Where(key), "is not a string");
    out = json->get<std::string>();
    const auto printable = [](unsigned char c) { return c >= 0x20 && c < 0x7F; };
    if (out.size() > longest || !std::all_of(out.begin(), out.end(), printable)) {
      Refuse(Where(key),
             "is not printable ASCII of at most " + std::to_string(longest) + " characters");
    }
  }

  // Calls `read` for the element, or for each element of an array.
  template <typename Read>
  void Each(const char* key, Read read) const {
    const Json* json = Find(key);
    if (!json) return;
    if (!json->is_array()) {
      if (!json->is_null()) read(*json, Where(key));
      return;
    }
    std::size_t index = 0;
    for (const Json& element : *json) {
      read(element, Where(key) + "[" + std::to_string(index++) + "]");
    }
  }

  static std::int64_t ToNumber(const Json& json, const std::string& where) {
    if (json.is_number_integer() &&
        !(json.is_number_unsigned() &&
          json.get<std::uint64_t>() >
              static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))) {
      return json.get<std::int64_t>();
    }
    if (!json.is_string()) Refuse(where, "is not a number");
    const std::string text = json.get<std::string>();
    std::size_t used = 0;
    std::int64_t value = 0;
    try {
      value = std::stoll(text, &used, 0);
    } catch (const std::exception&) {
      used = 0;
    }
    if (used == 0 || used != text.size()) Refuse(where, "is not a number");
    return value;
  }

 private:
  const Json& json_;
  std::string where_;
};

void ReadTapFunctions(const Entry& tap_entry, TapDescription& tap) {
  if (const Json* json = tap_entry.Find("debug_port")) {
    const Entry entry(*json, tap_entry.Where("debug_port"), {"ap_idr", "waits"});
    tap.debug_port.emplace();
    entry.Number("ap_idr", tap.debug_port->ap_idr);
    entry.Number("waits", tap.debug_port->waits);
  }
  if (const Json* json = tap_entry.Find("configuration")) {
    const Entry entry(*json, tap_entry.Where("configuration"), {"instruction", "program", "start"});
    tap.configuration.emplace();
    entry.Number("instruction", tap.configuration->instruction);
    entry.Number("program", tap.configuration->program);
    entry.Number("start", tap.configuration->start);
  }
  if (const Json* json = tap_entry.Find("boundary")) {
    const Entry entry(*json, tap_entry.Where("boundary"), {"sample", "extest", "bits", "pins"});
    tap.boundary.emplace();
    entry.Number("sample", tap.boundary->sample);
    entry.Number("extest", tap.boundary->extest);
    entry.Number("bits", tap.boundary->bits, 1, 64);
    entry.Number("pins", tap.boundary->pins, 0, std::numeric_limits<std::int64_t>::max());
  }
}

TapDescription ReadTap(const Json& json, const std::string& where) {
  const Entry entry(json, where,
                    {"idcode", "ir_length", "idcode_instruction", "scratch", "debug_port",
                     "configuration", "boundary"});
  TapDescription tap;
  const Json* idcode = entry.Find("idcode");
  tap.has_idcode = idcode && !idcode->is_null();
  if (tap.has_idcode) {
    entry.Number("idcode", tap.idcode);
    if ((tap.idcode & 1) == 0) Refuse(entry.Where("idcode"), "has bit 0 clear");
  }
  entry.Number("ir_length", tap.ir_length, 2, 32);
  tap.idcode_instruction = (~0u >> (32 - tap.ir_length)) & ~1u;
  entry.Number("idcode_instruction", tap.idcode_instruction);
  tap.scratch_instruction = 1u << (tap.ir_length - 1);
  if (const Json* scratch = entry.Find("scratch")) {
    const Entry reg(*scratch, entry.Where("scratch"), {"instruction", "bits"});
    reg.Number("instruction", tap.scratch_instruction);
    reg.Number("bits", tap.scratch_bits, 1, 64);
  }
  ReadTapFunctions(entry, tap);
  return tap;
}

ChainDescription ReadChain(const Json& json, const std::string& where) {
  const Entry entry(json, where, {"tdo", "taps"});
  ChainDescription chain;
  std::string output = "normal";
  entry.Text("tdo", output, 16);
  if (output == "stuck-low") {
    chain.output = ChainDescription::Output::kStuckLow;
  } else if (output == "stuck-high") {
    chain.output = ChainDescription::Output::kStuckHigh;
  } else if (output != "normal") {
    Refuse(entry.Where("tdo"), "is not normal, stuck-low or stuck-high");
  }
  entry.Each("taps", [&](const Json& tap, const std::string& at) {
    chain.taps.push_back(ReadTap(tap, at));
  });
  if (chain.taps.size() > 4096) Refuse(entry.Where("taps"), "has more than 4096 elements");
  return chain;
}

AcquireDescription ReadAcquire(const Json& json, const std::string& where) {
  const Entry entry(json, where, {"reset", "attempt", "address", "key"});
  AcquireDescription acquire;
  acquire.required = true;
  std::string reset = "any";
  entry.Text("reset", reset, 16);
  if (reset != "any" && reset != "xres" && reset != "power") {
    Refuse(entry.Where("reset"), "is not any, xres or power");
  }
  acquire.by_reset_line = reset != "power";
  acquire.by_power = reset != "xres";
  entry.Number("attempt", acquire.attempt, 1);
  acquire.needs_key = entry.Find("key") != nullptr;
  entry.Number("address", acquire.address);
  entry.Number("key", acquire.key);
  return acquire;
}

SwdDescription ReadSwd(const Json& json, const std::string& where) {
  const Entry entry(json, where, {"idcode", "ap_idr", "waits", "connectors", "memory", "acquire"});
  SwdDescription swd;
  entry.Number("idcode", swd.idcode);
  entry.Number("ap_idr", swd.ap_idr);
  entry.Number("waits", swd.waits);
  if (entry.Find("connectors")) swd.connectors = {false, false};
  entry.Each("connectors", [&](const Json& element, const std::string& at) {
    const std::int64_t connector = Entry::ToNumber(element, at);
    if (connector != 0 && connector != 1) Refuse(at, "is not 0 (port 5) or 1 (port 10)");
    swd.connectors[static_cast<std::size_t>(connector)] = true;
  });
  entry.Each("memory", [&](const Json& element, const std::string& at) {
    const Entry range(element, at, {"address", "size"});
    MemoryDescription memory;
    range.Number("address", memory.address);
    range.Number("size", memory.size, 0, kMaxMemoryBytes);
    swd.memories.push_back(memory);
  });
  if (const Json* acquire = entry.Find("acquire")) {
    swd.acquire = ReadAcquire(*acquire, entry.Where("acquire"));
  }
  return swd;
}

I2cDescription ReadI2c(const Json& json, const std::string& where) {
  const Entry entry(json, where, {"address", "size"});
  I2cDescription device;
  entry.Number("address", device.address, 0, 0x7F);
  entry.Number("size", device.size, 1, 65536);
  return device;
}

void ReadIdentity(const Entry& entry, ProbeDescription& probe) {
  std::string kind = "wirefox";
  entry.Text("kind", kind, 16);
  if (kind != "wirefox" && kind != "evk") Refuse(entry.Where("kind"), "is not wirefox or evk");
  probe.is_evk = kind == "evk";
  probe.product = probe.is_evk ? "Evk board" : "Wirefox probe";
  if (probe.is_evk) {
    probe.fresh_product_id = 0x2001;
    probe.configured_product_id = 0x2002;
    probe.fpga_version = 0;
  }
  std::string state = "configured";
  entry.Text("state", state, 16);
  if (state != "fresh" && state != "configured") {
    Refuse(entry.Where("state"), "is not fresh or configured");
  }
  probe.configured = state == "configured";
  entry.Text("name", probe.name, 100);
  if (probe.name.empty()) Refuse(entry.Where("name"), "is missing");
  entry.Flag("plugged", probe.plugged);
  entry.Number("vid", probe.vendor_id);
  entry.Number("fresh_pid", probe.fresh_product_id);
  entry.Number("pid", probe.configured_product_id);
  entry.Text("manufacturer", probe.manufacturer, 100);
  entry.Text("product", probe.product, 100);
  if (entry.Find("languages")) probe.languages.clear();
  entry.Each("languages", [&](const Json& element, const std::string& at) {
    const std::int64_t language = Entry::ToNumber(element, at);
    if (language < 0 || language > 0xFFFF) Refuse(at, "is out of range");
    probe.languages.push_back(static_cast<std::uint16_t>(language));
  });
  if (probe.languages.size() > 126) Refuse(entry.Where("languages"), "has too many elements");
}

void ReadBoard(const Entry& entry, ProbeDescription& probe) {
  entry.Number("firmware_version", probe.firmware_version);
  entry.Number("vorn_version", probe.vorn_version);
  entry.Number("fpga_version", probe.fpga_version);
  entry.Number("bootloader_version", probe.bootloader_version);
  entry.Number("hardware_revision", probe.hardware_revision, -128);
  entry.Number("external_supply", probe.external_supply);
  entry.Number("clock_settle_reads", probe.clock_settle_reads);
}

void ReadTargets(const Entry& entry, ProbeDescription& probe) {
  if (const Json* jtag = entry.Find("jtag")) probe.jtag = ReadChain(*jtag, entry.Where("jtag"));
  entry.Each("swd", [&](const Json& json, const std::string& at) {
    probe.swd.push_back(ReadSwd(json, at));
  });
  for (const TapDescription& tap : probe.jtag.taps) {
    if (tap.debug_port && probe.swd.empty()) {
      Refuse(entry.Where("jtag"),
             "has a debug port, and there is no \"swd\" whose memory it reaches");
    }
  }
  entry.Each("i2c", [&](const Json& json, const std::string& at) {
    probe.i2c.push_back(ReadI2c(json, at));
  });
  if (const Json* json = entry.Find("swv")) {
    const Entry swv(*json, entry.Where("swv"), {"bytes_per_ms", "buffer", "rate_hz", "manchester"});
    swv.Number("bytes_per_ms", probe.swv.bytes_per_ms, 0, 65536);
    swv.Number("buffer", probe.swv.buffer, 1, kMaxMemoryBytes);
    swv.Number("rate_hz", probe.swv.rate_hz);
    swv.Flag("manchester", probe.swv.manchester);
  }
  if (const Json* json = entry.Find("serial")) {
    const Entry serial(*json, entry.Where("serial"), {"external_loopback", "internal_loopback"});
    serial.Flag("external_loopback", probe.serial.external_loopback);
    serial.Flag("internal_loopback", probe.serial.internal_loopback);
  }
}

}  // namespace

nlohmann::json ParseJson(const std::string& text) {
  try {
    return Json::parse(text, nullptr, true, true);
  } catch (const Json::exception& error) {
    throw std::invalid_argument(error.what());
  }
}

ProbeDescription ParseProbe(const nlohmann::json& json) {
  std::string where = "probe";
  if (json.is_object() && json.contains("name") && json["name"].is_string()) {
    where += " " + json["name"].get<std::string>();
  }
  const Entry entry(json, where,
                    {"name",
                     "kind",
                     "state",
                     "plugged",
                     "vid",
                     "fresh_pid",
                     "pid",
                     "manufacturer",
                     "product",
                     "languages",
                     "firmware_version",
                     "vorn_version",
                     "fpga_version",
                     "bootloader_version",
                     "hardware_revision",
                     "external_supply",
                     "clock_settle_reads",
                     "jtag",
                     "swd",
                     "i2c",
                     "swv",
                     "serial"});
  ProbeDescription probe;
  ReadIdentity(entry, probe);
  ReadBoard(entry, probe);
  ReadTargets(entry, probe);
  probe.source = json.dump();
  return probe;
}

ProbeDescription ParseProbeText(const std::string& text) { return ParseProbe(ParseJson(text)); }

BenchDescription ParseBench(const std::string& text) {
  const Json json = ParseJson(text);
  const Entry entry(json, "bench", {"driver", "detach_ms", "return_ms", "keeps_paths", "probes"});
  BenchDescription bench;
  if (const Json* facts = entry.Find("driver")) {
    const Entry driver(*facts, "driver", {"version", "interface_version", "text", "second_text"});
    driver.Number("version", bench.driver.driver_version);
    driver.Number("interface_version", bench.driver.interface_version);
    driver.Text("text", bench.driver.text, 255);
    driver.Text("second_text", bench.driver.second_text, 255);
  }
  entry.Number("detach_ms", bench.detach_ms);
  entry.Number("return_ms", bench.return_ms);
  entry.Flag("keeps_paths", bench.keeps_paths);
  std::set<std::string> names;
  entry.Each("probes", [&](const Json& probe, const std::string& at) {
    bench.probes.push_back(ParseProbe(probe));
    if (!names.insert(bench.probes.back().name).second) Refuse(at, "has a name that is taken");
  });
  return bench;
}

}  // namespace sim
