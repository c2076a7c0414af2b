// The download of an FPGA image: prepare, announce the length, receive, finish.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sim {

class FpgaLoader {
 public:
  void PowerUp();

  // The four steps. Each but Receive returns byte 0 of the reply.
  std::uint8_t Prepare();
  std::uint8_t Announce(std::uint16_t low, std::uint16_t high);
  void Receive(std::span<const std::uint8_t> data);
  std::uint8_t Finish();

  // Data on the OUT endpoint belongs to the image.
  bool receiving() const { return step_ == Step::kReceiving; }
  bool loaded() const { return loaded_; }
  // Byte 1 of the finish reply, and whether the last finish failed.
  std::uint8_t error() const { return error_; }
  bool failed() const { return error_ != 0; }

  // The bytes received by the last download, over the life of the probe.
  const std::vector<std::uint8_t>& image() const { return image_; }

 private:
  enum class Step { kNone, kPrepared, kReceiving };

  Step step_ = Step::kNone;
  bool loaded_ = false;
  std::uint8_t error_ = 0;
  std::uint64_t announced_ = 0;
  std::uint64_t received_ = 0;
  std::vector<std::uint8_t> image_;
};

}  // namespace sim
