// What tests of probe objects share: a scripted probe, and the log at full level.
#pragma once

#include <string>
#include <vector>

#include "tests/unit/scratch_folder.h"
#include "tests/unit/scripted_bus.h"

using unit::Bytes;
using unit::HexBytes;
using unit::HexText;

inline constexpr std::uint32_t kTimedOut = 997;

class ProbeTest : public unit::ScriptedBusTest {
 protected:
  explicit ProbeTest(const unit::ScriptedDevice& probe = {}) : ScriptedBusTest({probe}) {}

  // The lines since the last call that report a status.
  std::vector<std::string> TakeErrors() {
    std::vector<std::string> lines = log_.Take();
    std::erase_if(
        lines, [](const std::string& line) { return line.find("]Error ") == std::string::npos; });
    return lines;
  }

  unit::LogFile log_{31};
};
