// The simulated bench: any number of probes with the targets behind them, presented as a USB bus.
// docs/bench.md describes the JSON text that a bench is made from.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/probe_driver/usb_bus.h"
#include "sim/fault.h"

namespace sim {

class BenchCore;
class TimerThread;
using Bytes = std::vector<std::uint8_t>;

// Calls `action` once, `delay_ms` milliseconds later, on any thread, never from within the call.
using Scheduler = std::function<void(std::uint64_t delay_ms, std::function<void()> action)>;

// What a probe is and the state it is in, for tests and for the command line.
struct ProbeState {
  std::string name;  // the USB serial-number string
  bool is_evk = false;
  bool configured = false;  // runs its firmware; false: a fresh controller
  bool plugged = false;     // false also while the probe restarts with new firmware
  std::string path;         // of the present attachment, otherwise empty
  std::uint16_t vendor_id = 0;
  std::uint16_t product_id = 0;
  bool processor_held = false;
  bool fpga_loaded = false;
  std::uint8_t mode = 0;
  bool external = false;  // bit 8 of the last mode request
  std::uint8_t connector = 0;
  std::array<std::uint8_t, 4> leds{};
  std::uint8_t identify = 0;
  bool supply_on = false;
  std::uint8_t voltage_code = 0;
  std::uint16_t measured = 0;  // supply at the target, in units of 10 mV
  std::uint8_t clock_code = 0;
  bool reset_asserted = false;  // the target's XRES line is driven
  std::uint32_t resets = 0;     // times XRES went from released to driven
  std::uint16_t swv_commit = 0;
  std::uint64_t swv_lost = 0;          // trace bytes that found the buffer full
  bool target_caught = false;          // the last port acquisition brought the part into test mode
  std::uint32_t acquire_attempts = 0;  // resets that the last port acquisition made
  // Of the FPGA on the JTAG chain: the stream from its synchronisation word on.
  std::uint64_t configuration_bits = 0;
  std::uint32_t configuration_crc = 0;  // CRC-32 of its bytes
  bool configuration_done = false;      // started since
  std::uint64_t pins = 0;               // levels at the boundary register
};

struct BenchOptions {
  // Delays run in real time on one thread of the bench when empty.
  Scheduler scheduler{};
  // Part of every path, so that the paths of two benches differ. Printable lower-case ASCII.
  std::string instance{};
};

// Thread-safe. Transfers are answered within Submit whenever the probe can answer. A device object
// may outlive the bench: its transfers then end with kDisconnected. A device object must not be
// destroyed from within the completion of one of its own transfers.
class Bench : public probe_driver::UsbBus {
 public:
  // WFX0001 (fresh, with a JTAG chain), WFX0002 (configured, SWD and I2C), EVK0001 (SWD).
  static std::string DefaultDescription();
  // The same, with a chain behind WFX0001 that other programs work on: a debug port and an FPGA.
  static std::string DemoDescription();
  static std::unique_ptr<Bench> Default(BenchOptions options = {});

  // Throws std::invalid_argument, with a text that names the bad entry, when the description is
  // not well formed. Probes that are described as plugged are present at once.
  explicit Bench(const std::string& description, BenchOptions options = {});
  ~Bench() override;

  // UsbBus
  std::vector<std::string> ListDevices() override;
  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override;
  void SetListener(probe_driver::UsbBusListener* listener) override;

  // False when there is no such probe, or it is (or is not) plugged already. A probe that is
  // plugged starts as described: without firmware when fresh, without FPGA image, mode idle.
  // Unplugging ends its transfers with kDisconnected before it returns.
  bool Plug(const std::string& name);
  bool Unplug(const std::string& name);

  // Every probe of the bench, in the order of the description.
  std::vector<ProbeState> List() const;
  // One probe; an object with an empty name when there is none.
  ProbeState State(const std::string& name) const;

  // The controller's 64 KiB RAM as it was when its processor was last released, 0xFF where never
  // written; all 0xFF before. Kept when the probe leaves. Empty for an unknown probe.
  Bytes DumpRam(const std::string& name) const;
  // The last FPGA image as received, also when it did not load. Empty for an unknown probe.
  Bytes DumpFpga(const std::string& name) const;
  // The stream that the FPGA on the JTAG chain received (FpgaConfiguration::stream).
  Bytes DumpConfiguration(const std::string& name) const;

  // False for an unknown probe. Faults survive unplugging; ClearFaults removes what is armed.
  bool ArmFault(const std::string& name, const Fault& fault);
  bool ClearFaults(const std::string& name);

  // Changes the probe's description while it runs: `changes` is a JSON object whose members
  // replace those of the probe ("jtag", "swd", "i2c", "swv", "external_supply", ...). Target
  // members act at once; identities act when the probe is plugged next. Throws
  // std::invalid_argument; nothing is changed then. False for an unknown probe.
  bool Rearrange(const std::string& name, const std::string& changes);
  // Adds a probe described by a JSON object; it is plugged unless it says otherwise. Throws
  // std::invalid_argument, also when the name is taken.
  void AddProbe(const std::string& description);

  // Takes the target's power away and gives it back, as a user does by hand.
  bool CyclePower(const std::string& name);
  // Adds bytes to what the SWV pin has sent.
  bool PushSwv(const std::string& name, const Bytes& data);

  // Writes all traffic from now on to a capture file (link type 220). False when the file cannot
  // be created.
  bool CaptureTo(const std::string& path);

 private:
  std::unique_ptr<TimerThread> timer_;  // only without a scheduler of the caller's
  std::shared_ptr<BenchCore> core_;
};

}  // namespace sim
