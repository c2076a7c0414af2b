#include "sim/fpga_loader.h"

#include <algorithm>

#include "sim/protocol.h"

namespace sim {
namespace {

// What the bench keeps of an image; longer ones are counted but not kept.
constexpr std::size_t kMaxImageBytes = 256u << 20;

}  // namespace

void FpgaLoader::PowerUp() {
  step_ = Step::kNone;
  loaded_ = false;
  error_ = 0;
}

std::uint8_t FpgaLoader::Prepare() {
  step_ = Step::kPrepared;
  loaded_ = false;
  error_ = 0;
  received_ = 0;
  image_.clear();
  return protocol::kDone;
}

std::uint8_t FpgaLoader::Announce(std::uint16_t low, std::uint16_t high) {
  if (step_ == Step::kNone) return protocol::kNotReady;
  // The announced number is the length less one, so that an empty image announces 4 GiB and never
  // loads.
  announced_ = (std::uint64_t{high} << 16 | low) + 1;
  step_ = Step::kReceiving;
  return protocol::kDone;
}

void FpgaLoader::Receive(std::span<const std::uint8_t> data) {
  received_ += data.size();
  const std::size_t room = kMaxImageBytes - std::min(kMaxImageBytes, image_.size());
  const auto kept = data.first(std::min(room, data.size()));
  image_.insert(image_.end(), kept.begin(), kept.end());
}

std::uint8_t FpgaLoader::Finish() {
  const bool complete = step_ == Step::kReceiving && received_ == announced_;
  error_ = complete                    ? 0
           : step_ == Step::kReceiving ? protocol::kImageIncomplete
                                       : protocol::kNoDownload;
  step_ = Step::kNone;
  loaded_ = complete;
  return complete ? protocol::kDone : 1;
}

}  // namespace sim
