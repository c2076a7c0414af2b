// A character an action, answered only where it asks:
//   0 … 7     levels: TCK is worth 4, TMS 2, TDI 1; a cycle is a rising edge of TCK
//   R         '0' or '1', the level of TDO
//   r s t u   resets: r none, s the target's, t the TAPs', u both
//   B b       a light; Q ends
#include <utility>
#include <vector>

#include "client/serve/tool_protocol.h"

namespace client {

namespace {

// From any state to Test-Logic-Reset, which is what TRST does.
constexpr int kResetCycles = 5;

class RemoteBitbang : public ToolProtocol {
 public:
  RemoteBitbang(JtagBridge& bridge, const ProbeControls& controls)
      : bridge_(bridge), controls_(controls) {}
  // A tool that leaves does not leave the target in reset.
  ~RemoteBitbang() override {
    if (target_reset_) controls_.drive_reset(false);
  }
  RemoteBitbang(const RemoteBitbang&) = delete;
  RemoteBitbang& operator=(const RemoteBitbang&) = delete;

  bool Work(std::span<const std::uint8_t> input, Bytes& answers, std::string& problem) override {
    for (const std::uint8_t action : input) {
      if (!Act(static_cast<char>(action), answers, problem)) return false;
    }
    return Answer(answers);
  }

  bool IsBetweenMessages() const override { return true; }

 private:
  bool Act(char action, Bytes& answers, std::string& problem) {
    if (action >= '0' && action <= '7') return SetLevels(action - '0', problem);
    switch (action) {
      case 'R':
        // TDO changes with the falling edge: while TCK is low it has the level that the next rising
        // edge will sample.
        reads_.push_back(static_cast<std::ptrdiff_t>(bridge_.queued()) -
                         (tck_ || ran_ahead_ ? 1 : 0));
        return true;
      case 'r':
      case 's':
      case 't':
      case 'u':
        return Answer(answers) &&
               SetResets(action == 't' || action == 'u', action == 's' || action == 'u', problem);
      case 'B':
      case 'b':
        return true;
      case 'Q':
        // Tools do not wait for what comes before it.
        static_cast<void>(Answer(answers));
        return false;
      default:
        problem = std::string("the tool sent '") + action +
                  "', which is no action of remote_bitbang's JTAG";
        return false;
    }
  }

  bool SetLevels(int levels, std::string& problem) {
    const bool rises = (levels & 4) != 0 && !tck_;
    tck_ = (levels & 4) != 0;
    tms_ = (levels & 2) != 0;
    tdi_ = (levels & 1) != 0;
    if (!rises) return true;
    if (!std::exchange(ran_ahead_, false)) {
      bridge_.Add(tms_ || taps_reset_, tdi_);
      return true;
    }
    if (tms_ == ahead_tms_ && tdi_ == ahead_tdi_) return true;
    problem = "the tool changed TMS or TDI after it had read TDO, before the clock's edge";
    return false;
  }

  bool SetResets(bool taps, bool target, std::string& problem) {
    for (int i = 0; taps && i < kResetCycles; ++i) bridge_.Add(true, false);
    taps_reset_ = taps;
    // Whatever ran ahead, the edge to come is the first one of or after the reset.
    if (taps) ran_ahead_ = false;
    if (target == target_reset_) return true;
    target_reset_ = target;
    if (!Run()) return false;
    if (controls_.drive_reset(target)) return true;
    problem = "the probe did not drive the target's reset line";
    return false;
  }

  // Answers the reads since the last answer.
  bool Answer(Bytes& answers) {
    const auto next = static_cast<std::ptrdiff_t>(bridge_.queued());
    // The tool will not send the clock's edge before it has the bit that the edge samples. So that
    // cycle runs now, with the levels that are set, and its edge is passed over when it comes.
    // Where nothing shifts TDO floats, and any bit does.
    if (!reads_.empty() && reads_.back() == next && IsShift(bridge_.state())) {
      bridge_.Add(tms_, tdi_);
      ran_ahead_ = true;
      ahead_tms_ = tms_;
      ahead_tdi_ = tdi_;
    }
    const bool before = last_tdo_;
    if (!Run()) return false;
    for (const std::ptrdiff_t cycle : reads_) {
      const auto at = static_cast<std::size_t>(cycle);
      const bool bit =
          cycle < 0 ? before : at >= tdo_.size() * 8 || (tdo_[at / 8] >> at % 8 & 1) != 0;
      answers.push_back(bit ? '1' : '0');
    }
    reads_.clear();
    return true;
  }

  bool Run() {
    tdo_.clear();
    const std::size_t cycles = bridge_.queued();
    if (cycles == 0) return true;
    if (!bridge_.Run(tdo_)) return false;
    last_tdo_ = (tdo_.back() >> (cycles - 1) % 8 & 1) != 0;
    return true;
  }

  JtagBridge& bridge_;
  const ProbeControls& controls_;
  bool tck_ = false;
  bool tms_ = true;
  bool tdi_ = false;
  bool taps_reset_ = false;  // which no clock ends
  bool target_reset_ = false;
  std::vector<std::ptrdiff_t>
      reads_;  // the cycles whose TDO bits are wanted; -1: the last run's last
  Bytes tdo_;
  bool last_tdo_ = true;
  bool ran_ahead_ = false;  // the next rising edge has been clocked already, with these levels
  bool ahead_tms_ = false;
  bool ahead_tdi_ = false;
};

}  // namespace

std::unique_ptr<ToolProtocol> MakeRemoteBitbang(JtagBridge& bridge, const ProbeControls& controls) {
  return std::make_unique<RemoteBitbang>(bridge, controls);
}

}  // namespace client
