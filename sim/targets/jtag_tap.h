// One TAP: instruction register, IDCODE, BYPASS, a scratch register that keeps what is written into
// it, and what else it is described with: a debug port, an FPGA's configuration, a boundary
// register.
#pragma once

#include <cstdint>
#include <memory>

#include "sim/description/description.h"
#include "sim/targets/fpga_configuration.h"
#include "sim/targets/jtag_debug_port.h"

namespace sim {

// An instruction that it does not know selects BYPASS.
class JtagTap {
 public:
  // `memory` is what a debug port reaches; it outlives the TAP.
  JtagTap(const TapDescription& description, TargetMemory* memory);

  void Reset();
  void CaptureDr();
  void CaptureIr();
  void UpdateDr();
  void UpdateIr();

  // The bit at the TDO end of the selected register, and one shift towards it.
  bool Out() const { return (shift_ & 1) != 0; }
  void Shift(bool in) {
    shift_ = (shift_ >> 1) | (in ? top_bit_ : 0);
    if (configures_) configuration_.Take(in);
  }

  std::uint64_t scratch() const { return scratch_; }
  const TapDescription& description() const { return description_; }
  const FpgaConfiguration& configuration() const { return configuration_; }
  // The levels at the pins of the boundary register: what drives them from outside, or from it.
  std::uint64_t Pins() const;

 private:
  enum class Register {
    kBypass,
    kIdcode,
    kScratch,
    kDpAccess,
    kApAccess,
    kAbort,
    kConfiguration,
    kBoundary
  };

  Register SelectedRegister() const;
  void Load(std::uint64_t value, unsigned bits);

  const TapDescription description_;
  std::uint32_t instruction_ = 0;
  Register selected_ = Register::kBypass;
  bool configures_ = false;  // the stream goes to the configuration as it is shifted
  std::uint64_t shift_ = 0;
  std::uint64_t top_bit_ = 1;  // place at which a bit enters the shift register
  std::uint64_t scratch_ = 0;
  std::uint64_t boundary_ = 0;  // what EXTEST drives
  FpgaConfiguration configuration_;
  std::unique_ptr<JtagDebugPort> debug_port_;
};

}  // namespace sim
