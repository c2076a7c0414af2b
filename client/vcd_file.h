// A Value Change Dump (IEEE 1364) of a probe's JTAG lines, for programs that draw waveforms.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>

namespace client {

// TCK is low for the first half of a cycle, in which TMS and TDI are set and TDO has come, and
// rises in the middle. Cycles are drawn one behind the other: how long the probe rests between its
// packets is not known.
class VcdFile {
 public:
  // Begins the file. The stream outlives it. With a clock that is not known (0) half a cycle is
  // drawn as a nanosecond.
  VcdFile(std::ostream& out, std::uint32_t hertz);

  // Cycles in the probe's packing, and a TDO bit for each; behind the last one TDO is unknown.
  void Add(std::span<const std::uint8_t> packet, std::span<const std::uint8_t> tdo);

  // From the next cycle on.
  void SetClock(std::uint32_t hertz);

  // TCK falls, and the lines stay as they are for so long.
  void Rest(double seconds);

  // TCK falls for the last time, and the time is written. False: the file could not be written
  // whole.
  bool End();

 private:
  struct Line {
    char id;
    char level;
  };

  void Set(Line& line, char level);
  void AddTime();
  void PassHalfCycle();
  void Write();

  std::ostream& out_;
  std::string text_;
  std::uint64_t half_cycle_ps_ = 0;
  std::uint64_t part_ = 0;   // what half a cycle has beyond whole picoseconds, in `parts_`
  std::uint64_t parts_ = 1;  // of a picosecond
  std::uint64_t passed_parts_ = 0;
  std::uint64_t now_ps_ = 0;
  std::uint64_t written_ps_ = 0;  // what stands in the file as the time
  Line tck_{'!', 'x'};
  Line tms_{'"', 'x'};
  Line tdi_{'#', 'x'};
  Line tdo_{'$', 'x'};
};

}  // namespace client
