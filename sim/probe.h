// A simulated probe: its controller, FPGA, registers and supply, and the targets behind it. It
// knows requests and data, not transfers: those are matched with it by the bench.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "sim/bench.h"
#include "sim/controller.h"
#include "sim/description/description.h"
#include "sim/fpga_loader.h"
#include "sim/in_pipe.h"
#include "sim/protocol.h"
#include "sim/swv_source.h"
#include "sim/targets/i2c_bus.h"
#include "sim/targets/jtag_chain.h"
#include "sim/targets/swd_target.h"

namespace sim {

// The answer to a control request, at most as long as the longest descriptor.
struct ControlReply {
  bool stall = false;
  std::uint32_t size = 0;
  std::array<std::uint8_t, 256> bytes;
};

// Not thread-safe: the bench calls it with its lock held.
class Probe {
 public:
  // Runs an action later, under the bench's lock, unless the probe has left the bus by then.
  using After = std::function<void(std::uint64_t delay_ms, std::function<void()> action)>;

  Probe(const ProbeDescription& description, After after);

  const ProbeDescription& description() const { return description_; }
  std::uint16_t product_id() const {
    return runs_firmware_ ? description_.configured_product_id : description_.fresh_product_id;
  }

  // The probe is plugged (as described), or comes back running the firmware it was given.
  void PowerUp(bool with_firmware);

  bool HasEndpoint(std::uint8_t endpoint) const;
  void Control(const probe_driver::SetupPacket& setup, std::span<const std::uint8_t> data,
               ControlReply& reply);
  // False while too much waits to be read for it to go on.
  bool Takes(std::uint8_t endpoint) const {
    return !(endpoint == protocol::kSerialOut ? serial_in_ : stream_in_).IsFull();
  }
  void Out(std::uint8_t endpoint, std::span<const std::uint8_t> data);
  InPipe& in(std::uint8_t endpoint);

  // True once after the controller was released with new firmware in its RAM.
  bool TakeStarted() { return controller_.TakeStarted(); }

  // Takes a changed description; the targets are new ones, as after power-up.
  void Rearrange(const ProbeDescription& description);
  void CyclePower();
  void PushSwv(std::span<const std::uint8_t> data);

  void Describe(ProbeState& state) const;
  const std::vector<std::uint8_t>& released_ram() const { return controller_.released_ram(); }
  const std::vector<std::uint8_t>& fpga_image() const { return loader_.image(); }
  std::vector<std::uint8_t> Configuration() const;  // of the chain's FPGA

 private:
  struct Acquisition {
    bool armed = false;  // the next packet on the stream endpoint is the staged sequence
    bool by_reset_line = false;
    std::uint32_t retries = 0;
    std::vector<std::uint8_t> staged{};
    bool waits_for_hand = false;
    std::uint32_t attempts = 0;
    bool caught = false;
    std::uint64_t number = 0;  // a later acquisition or mode ends those before it
  };

  void Standard(const probe_driver::SetupPacket& setup, ControlReply& reply) const;
  void Vendor(const probe_driver::SetupPacket& setup, ControlReply& reply);
  void Answer(const probe_driver::SetupPacket& setup, ControlReply& reply);
  std::uint8_t SetMode(std::uint16_t value);
  std::uint8_t AccessRegister(std::uint16_t value, std::uint8_t& read);
  std::uint8_t ReadRegister(std::uint8_t address);
  void WriteRegister(std::uint8_t address, std::uint8_t value);
  void ReadStatus(ControlReply& reply) const;
  std::uint8_t ArmAcquire(std::uint16_t value);
  std::uint8_t StartAcquire();
  void Attempt(std::uint64_t number);

  bool HasLogic() const { return description_.is_evk || loader_.loaded(); }
  void ResetLogic();
  void MakeTargets();
  std::uint16_t MeasuredSupply() const;
  bool TargetPowered() const;
  void SetSupply(bool on, std::uint8_t code);
  void PowerUpTargets();

  void JtagChunk(std::span<const std::uint8_t> data);
  std::vector<std::uint8_t> SwdPacket(std::span<const std::uint8_t> data);
  SwdTarget* ActiveSwdTarget();
  SwvSampling Sampling() const;
  bool SamplesSwv() const;
  void KeepTicking();

  ProbeDescription description_;
  After after_;

  bool runs_firmware_ = false;
  Controller controller_;
  FpgaLoader loader_;
  std::array<std::uint8_t, 128> registers_{};
  std::uint32_t clock_reads_ = 0;  // of the clock state until the new clock runs
  std::uint8_t clock_code_ = 0;
  std::uint8_t mode_ = 0;
  bool external_ = false;
  std::uint8_t connector_ = 0;
  std::array<std::uint8_t, 4> leds_{};
  std::uint8_t identify_ = 0;
  bool supply_on_ = false;
  std::uint8_t voltage_code_ = 0;
  std::uint32_t resets_ = 0;
  bool swv_committed_ = false;
  std::uint16_t swv_commit_ = 0;
  bool ticking_ = false;
  Acquisition acquisition_;

  InPipe serial_in_;
  InPipe stream_in_;
  InPipe swv_in_;

  std::vector<std::unique_ptr<SwdTarget>> swd_;
  std::unique_ptr<JtagChain> chain_;  // its debug ports reach the first of these targets' memory
  std::unique_ptr<I2cBus> i2c_;
  SwvSource swv_;
};

}  // namespace sim
