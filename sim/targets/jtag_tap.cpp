#include "sim/targets/jtag_tap.h"

namespace sim {

namespace {

// ADIv5, of the instructions with four bits.
constexpr std::uint32_t kAbort = 0x8;
constexpr std::uint32_t kDpAccess = 0xA;
constexpr std::uint32_t kApAccess = 0xB;

// What an FPGA's instruction register tells beside the 01 that every one captures.
constexpr std::uint64_t kReadyForStream = 0x10;
constexpr std::uint64_t kDone = 0x20;

}  // namespace

JtagTap::JtagTap(const TapDescription& description, TargetMemory* memory)
    : description_(description) {
  if (description_.debug_port && memory) {
    debug_port_ = std::make_unique<JtagDebugPort>(*memory, description_.debug_port->ap_idr,
                                                  description_.debug_port->waits);
  }
  Reset();
}

void JtagTap::Reset() {
  const std::uint32_t bypass = ~0u >> (32 - description_.ir_length);
  instruction_ = description_.has_idcode ? description_.idcode_instruction : bypass;
  selected_ = SelectedRegister();
  configures_ = false;
}

JtagTap::Register JtagTap::SelectedRegister() const {
  const auto& fpga = description_.configuration;
  const auto& boundary = description_.boundary;
  if (description_.has_idcode && instruction_ == description_.idcode_instruction) {
    return Register::kIdcode;
  }
  if (debug_port_ && instruction_ == kAbort) return Register::kAbort;
  if (debug_port_ && instruction_ == kDpAccess) return Register::kDpAccess;
  if (debug_port_ && instruction_ == kApAccess) return Register::kApAccess;
  if (fpga && instruction_ == fpga->instruction) return Register::kConfiguration;
  if (boundary && (instruction_ == boundary->sample || instruction_ == boundary->extest)) {
    return Register::kBoundary;
  }
  return instruction_ == description_.scratch_instruction ? Register::kScratch : Register::kBypass;
}

std::uint64_t JtagTap::Pins() const {
  const auto& boundary = description_.boundary;
  if (!boundary) return 0;
  return instruction_ == boundary->extest ? boundary_ : boundary->pins;
}

void JtagTap::Load(std::uint64_t value, unsigned bits) {
  shift_ = value;
  top_bit_ = std::uint64_t{1} << (bits - 1);
}

void JtagTap::CaptureDr() {
  switch (selected_) {
    case Register::kIdcode:
      return Load(description_.idcode, 32);
    case Register::kScratch:
      return Load(scratch_, description_.scratch_bits);
    case Register::kDpAccess:
    case Register::kApAccess:
      return Load(debug_port_->Capture(), JtagDebugPort::kScanBits);
    case Register::kAbort:
      return Load(0, JtagDebugPort::kScanBits);
    case Register::kBoundary:
      return Load(Pins(), description_.boundary->bits);
    default:
      return Load(0, 1);
  }
}

void JtagTap::CaptureIr() {
  configures_ = false;
  std::uint64_t value = 0b01;
  if (description_.configuration) {
    value |= kReadyForStream | (configuration_.done() ? kDone : 0);
  }
  Load(value, description_.ir_length);
}

void JtagTap::UpdateDr() {
  if (selected_ == Register::kScratch) scratch_ = shift_;
  if (selected_ == Register::kBoundary) boundary_ = shift_;
  if (selected_ == Register::kAbort) debug_port_->Abort(shift_);
  if (selected_ == Register::kDpAccess || selected_ == Register::kApAccess) {
    debug_port_->Update(selected_ == Register::kApAccess, shift_);
  }
}

void JtagTap::UpdateIr() {
  instruction_ = static_cast<std::uint32_t>(shift_);
  selected_ = SelectedRegister();
  configures_ = selected_ == Register::kConfiguration;
  const auto& fpga = description_.configuration;
  if (fpga && instruction_ == fpga->program) configuration_.Clear();
  if (fpga && instruction_ == fpga->start) configuration_.Start();
}

}  // namespace sim
