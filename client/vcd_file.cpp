#include "client/vcd_file.h"

namespace client {

namespace {

constexpr std::uint64_t kPicosecondsPerSecond = 1000000000000;

char Level(unsigned bits, unsigned at) { return (bits >> at & 1) != 0 ? '1' : '0'; }

}  // namespace

VcdFile::VcdFile(std::ostream& out, std::uint32_t hertz) : out_(out) {
  SetClock(hertz);
  text_ = "$version wfx $end\n";
  if (hertz == 0) text_ += "$comment The clock is not known: a cycle is drawn as 2 ns. $end\n";
  text_ +=
      "$timescale 1 ps $end\n"
      "$scope module jtag $end\n"
      "$var wire 1 ! TCK $end\n"
      "$var wire 1 \" TMS $end\n"
      "$var wire 1 # TDI $end\n"
      "$var wire 1 $ TDO $end\n"
      "$upscope $end\n"
      "$enddefinitions $end\n"
      "#0\n";
  Set(tck_, '0');
  Write();
}

void VcdFile::SetClock(std::uint32_t hertz) {
  parts_ = hertz == 0 ? 1000000000 : std::uint64_t{2} * hertz;
  half_cycle_ps_ = kPicosecondsPerSecond / parts_;
  part_ = kPicosecondsPerSecond % parts_;
  passed_parts_ = 0;
}

void VcdFile::PassHalfCycle() {
  now_ps_ += half_cycle_ps_;
  passed_parts_ += part_;
  if (passed_parts_ < parts_) return;
  passed_parts_ -= parts_;
  ++now_ps_;
}

void VcdFile::Set(Line& line, char level) {
  if (line.level == level) return;
  line.level = level;
  AddTime();
  text_ += {level, line.id, '\n'};
}

void VcdFile::AddTime() {
  if (now_ps_ != written_ps_) text_ += '#' + std::to_string(now_ps_) + '\n';
  written_ps_ = now_ps_;
}

void VcdFile::Add(std::span<const std::uint8_t> packet, std::span<const std::uint8_t> tdo) {
  for (std::size_t cycle = 0; cycle < 4 * packet.size(); ++cycle) {
    const unsigned levels = packet[cycle / 4];
    const auto at = static_cast<unsigned>(cycle % 4);
    Set(tck_, '0');
    Set(tms_, Level(levels, 4 + at));
    Set(tdi_, Level(levels, at));
    Set(tdo_, cycle / 8 < tdo.size() ? Level(tdo[cycle / 8], cycle % 8) : 'x');
    PassHalfCycle();
    Set(tck_, '1');
    PassHalfCycle();
  }
  Write();
}

void VcdFile::Rest(double seconds) {
  Set(tck_, '0');
  now_ps_ += static_cast<std::uint64_t>(seconds * kPicosecondsPerSecond);
}

bool VcdFile::End() {
  Set(tck_, '0');
  AddTime();
  Write();
  return out_.flush().good();
}

void VcdFile::Write() {
  out_ << text_;
  text_.clear();
}

}  // namespace client
