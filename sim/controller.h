// The KX7 controller's RAM and the register that holds and releases its processor.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sim {

class Controller {
 public:
  static constexpr std::size_t kRamSize = 65536;

  // `processor_runs_firmware`: what the processor does after power-up is up to the probe; RAM is
  // blank and the processor runs.
  void PowerUp();

  // A RAM write request. False: refused, because data is written only while the processor is
  // held. A single byte at 0xE600 is the control register; longer writes there are data. The
  // address counter has 16 bits and wraps.
  bool Write(std::uint16_t address, std::span<const std::uint8_t> data);

  bool held() const { return held_; }

  // True once after the processor was released with RAM that had been written while it was held:
  // it starts what was written.
  bool TakeStarted();

  // The RAM at the last release, over the life of the probe; 0xFF where never written.
  const std::vector<std::uint8_t>& released_ram() const { return released_ram_; }

 private:
  std::vector<std::uint8_t> ram_ = std::vector<std::uint8_t>(kRamSize, 0xFF);
  std::vector<std::uint8_t> released_ram_ = std::vector<std::uint8_t>(kRamSize, 0xFF);
  bool held_ = false;
  bool written_ = false;
  bool started_ = false;
};

}  // namespace sim
