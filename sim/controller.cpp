#include "sim/controller.h"

#include <algorithm>
#include <utility>

#include "sim/protocol.h"

namespace sim {

void Controller::PowerUp() {
  std::fill(ram_.begin(), ram_.end(), 0xFF);
  held_ = written_ = started_ = false;
}

bool Controller::Write(std::uint16_t address, std::span<const std::uint8_t> data) {
  if (address == protocol::kControlRegister && data.size() == 1) {
    const bool hold = (data[0] & 1) != 0;
    if (held_ && !hold) {
      released_ram_ = ram_;
      started_ = written_;
      written_ = false;
    }
    held_ = hold;
    return true;
  }
  if (!held_) return false;
  for (const std::uint8_t byte : data) ram_[address++] = byte;
  written_ = written_ || !data.empty();
  return true;
}

bool Controller::TakeStarted() { return std::exchange(started_, false); }

}  // namespace sim
