// getinfo:                            xvcServer_v1.0:BYTES\n
// settck:PERIOD                       PERIOD              nanoseconds, four bytes
// shift:BITS TMS… TDI…                TDO…                BITS in four bytes; whole bytes of bits
#include <algorithm>
#include <string_view>
#include <vector>

#include "client/serve/tool_protocol.h"

namespace client {

namespace {

// The bytes of a vector that a tool is told. Tools shift twice as many bits at once: what then
// becomes one packet for the probe is the most that fits into one.
constexpr std::string_view kInfo = "xvcServer_v1.0:8128\n";

// A vector beyond this is no shift that a tool would make.
constexpr std::uint32_t kMaxBits = 1u << 23;

constexpr std::string_view kGetInfo = "getinfo:";
constexpr std::string_view kSetTck = "settck:";
constexpr std::string_view kShift = "shift:";

class Xvc : public ToolProtocol {
 public:
  Xvc(JtagBridge& bridge, const ProbeControls& controls) : bridge_(bridge), controls_(controls) {}

  bool Work(std::span<const std::uint8_t> input, Bytes& answers, std::string& problem) override {
    pending_.insert(pending_.end(), input.begin(), input.end());
    std::size_t at = 0;
    while (true) {
      const std::size_t size = OneMessage(std::span(pending_).subspan(at), answers, problem);
      if (!problem.empty()) return false;
      if (size == 0) break;
      at += size;
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
    return RunShifts(answers);
  }

  bool IsBetweenMessages() const override { return pending_.empty(); }

 private:
  static bool Begins(std::span<const std::uint8_t> input, std::string_view word) {
    return input.size() >= word.size() && std::ranges::equal(input.first(word.size()), word);
  }
  static bool MayBecome(std::span<const std::uint8_t> input, std::string_view word) {
    return input.size() < word.size() && std::ranges::equal(input, word.substr(0, input.size()));
  }

  // The bytes of the message that `input` begins with; 0 when it is not whole.
  std::size_t OneMessage(std::span<const std::uint8_t> input, Bytes& answers,
                         std::string& problem) {
    if (Begins(input, kShift)) return Shift(input, problem);
    if (Begins(input, kSetTck)) return SetTck(input, answers, problem);
    if (Begins(input, kGetInfo)) {
      if (!RunShifts(answers)) problem = kNoAnswer;
      answers.insert(answers.end(), kInfo.begin(), kInfo.end());
      return kGetInfo.size();
    }
    if (!MayBecome(input, kShift) && !MayBecome(input, kSetTck) && !MayBecome(input, kGetInfo)) {
      problem = "the tool sent " +
                HexFromBytes(input.first(std::min<std::size_t>(input.size(), 8))) +
                ", which is none of getinfo, settck and shift";
    }
    return 0;
  }

  std::size_t SetTck(std::span<const std::uint8_t> input, Bytes& answers, std::string& problem) {
    const std::size_t size = kSetTck.size() + 4;
    if (input.size() < size) return 0;
    if (!RunShifts(answers)) problem = kNoAnswer;
    AppendWord(answers, controls_.set_period(LoadWord(input, kSetTck.size())));
    return size;
  }

  std::size_t Shift(std::span<const std::uint8_t> input, std::string& problem) {
    const std::size_t head = kShift.size() + 4;
    if (input.size() < head) return 0;
    const std::uint32_t bits = LoadWord(input, kShift.size());
    if (bits > kMaxBits) {
      problem = "the tool wants to shift " + std::to_string(bits) + " bits at once";
      return 0;
    }
    const std::size_t vector = (bits + 7) / 8;
    if (input.size() < head + 2 * vector) return 0;
    bridge_.Add(input.subspan(head, vector), input.subspan(head + vector, vector), bits);
    shifts_.push_back(bits);
    return head + 2 * vector;
  }

  // Answers the shifts since the last answer.
  bool RunShifts(Bytes& answers) {
    Bytes tdo;
    if (bridge_.queued() > 0 && !bridge_.Run(tdo)) return false;
    std::size_t at = 0;
    for (const std::uint32_t bits : shifts_) {
      const Bytes slice = SliceBits(tdo, at, bits);
      answers.insert(answers.end(), slice.begin(), slice.end());
      at += bits;
    }
    shifts_.clear();
    return true;
  }

  static constexpr const char* kNoAnswer = "the probe did not clock the tool's cycles";

  JtagBridge& bridge_;
  const ProbeControls& controls_;
  Bytes pending_;
  std::vector<std::uint32_t> shifts_;  // the bits of each that waits in the bridge
};

}  // namespace

std::unique_ptr<ToolProtocol> MakeXvc(JtagBridge& bridge, const ProbeControls& controls) {
  return std::make_unique<Xvc>(bridge, controls);
}

}  // namespace client
