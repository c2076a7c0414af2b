// The description of a bench as read from JSON: every probe and the targets behind it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "platform/probe_driver/usb_bus.h"

namespace sim {

// An ADIv5 debug port, in front of the memory of the probe's first serial-wire target.
struct DebugPortDescription {
  std::uint32_t ap_idr = 0x24770011;
  std::uint32_t waits = 0;  // scans answered WAIT after each access to an access port
};

// The instructions by which an FPGA takes a stream, begins anew, and starts.
struct ConfigurationDescription {
  std::uint32_t instruction = 0x5;
  std::uint32_t program = 0xB;
  std::uint32_t start = 0xC;
};

struct BoundaryDescription {
  std::uint32_t sample = 0x1;
  std::uint32_t extest = 0xF;
  unsigned bits = 32;      // 1 to 64
  std::uint64_t pins = 0;  // levels from outside
};

struct TapDescription {
  bool has_idcode = true;  // false: BYPASS is selected by reset
  std::uint32_t idcode = 0;
  unsigned ir_length = 4;  // 2 to 32
  std::uint32_t idcode_instruction = 0xE;
  std::uint32_t scratch_instruction = 0x8;
  unsigned scratch_bits = 32;  // 1 to 64
  std::optional<DebugPortDescription> debug_port{};
  std::optional<ConfigurationDescription> configuration{};
  std::optional<BoundaryDescription> boundary{};
};

struct ChainDescription {
  enum class Output { kNormal, kStuckLow, kStuckHigh };
  Output output = Output::kNormal;
  std::vector<TapDescription> taps;  // from TDI to TDO; none: TDO is pulled high
};

struct MemoryDescription {
  std::uint32_t address = 0;
  std::uint32_t size = 0;
};

// When a part lets itself be caught in test mode.
struct AcquireDescription {
  bool required = false;      // false: the part answers to any acquisition, and without one
  bool by_reset_line = true;  // catchable after XRES
  bool by_power = true;       // catchable after its power came back
  std::uint32_t attempt = 1;  // first attempt that catches it
  bool needs_key = false;     // the key has to be written
  std::uint32_t address = 0;  // where
  std::uint32_t key = 0;      // and what
};

struct SwdDescription {
  std::uint32_t idcode = 0;
  std::uint32_t ap_idr = 0x24770011;
  std::uint32_t waits =
      0;  // what the access port is asked is answered WAIT so often before it is done
  std::array<bool, 2> connectors{true, true};
  std::vector<MemoryDescription> memories;
  AcquireDescription acquire;
};

struct I2cDescription {
  std::uint8_t address = 0;  // 7 bits
  std::uint32_t size = 256;
};

struct SwvDescription {
  std::uint32_t bytes_per_ms = 0;  // 0: sends only what the bench is told to send
  std::uint32_t buffer = 4096;     // bytes that the probe keeps
  std::uint32_t rate_hz = 0;       // of the target's pin; 0: fits every set-up
  bool manchester = false;
};

struct SerialDescription {
  bool external_loopback = true;
  bool internal_loopback = true;
};

struct ProbeDescription {
  std::string name;
  bool is_evk = false;
  bool configured = false;
  bool plugged = true;
  std::uint16_t vendor_id = 0x0F0F;
  std::uint16_t fresh_product_id = 0x1001;
  std::uint16_t configured_product_id = 0x1002;
  std::string manufacturer = "Wirefox";
  std::string product;
  std::vector<std::uint16_t> languages{0x0409};
  std::uint16_t firmware_version = 0x0203;
  std::uint16_t vorn_version = 0x0104;
  std::uint8_t fpga_version = 0x11;
  std::uint16_t bootloader_version = 0x0100;
  std::int8_t hardware_revision = 3;
  std::uint16_t external_supply = 330;   // of the target's own supply, in units of 10 mV
  std::uint32_t clock_settle_reads = 2;  // reads of the clock state until the new clock runs
  ChainDescription jtag;
  std::vector<SwdDescription> swd;
  std::vector<I2cDescription> i2c;
  SwvDescription swv;
  SerialDescription serial;
  std::string source;  // the JSON text that this was read from
};

struct BenchDescription {
  probe_driver::DriverFacts driver;
  std::uint32_t detach_ms = 5;    // from the release of the processor to the probe's leaving
  std::uint32_t return_ms = 100;  // from there to its coming back
  // A probe that comes back has the path that it had, as hosts give it to devices with a serial
  // number; otherwise no path is used twice.
  bool keeps_paths = false;
  std::vector<ProbeDescription> probes;
};

// All throw std::invalid_argument with a text that names the bad entry. Unknown members are
// refused, so that a misspelt one does not pass unnoticed.
BenchDescription ParseBench(const std::string& text);
ProbeDescription ParseProbe(const nlohmann::json& json);
ProbeDescription ParseProbeText(const std::string& text);
nlohmann::json ParseJson(const std::string& text);

}  // namespace sim
