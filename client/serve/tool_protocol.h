// The protocols by which other programs drive a JTAG chain, without the connection that carries
// them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "client/numbers.h"
#include "client/serve/jtag_bridge.h"

namespace client {

// What a tool asks of the probe besides cycles.
struct ProbeControls {
  // Makes the clock's period at least this long, if it can still be changed; gives what it is.
  std::function<std::uint32_t(std::uint32_t period_ns)> set_period;
  // Drives or releases the target's reset line. False: the probe did not.
  std::function<bool(bool active)> drive_reset;
};

// One tool's conversation.
class ToolProtocol {
 public:
  virtual ~ToolProtocol() = default;

  // Works on all that has come, with as few packets to the probe as there can be, and appends the
  // answers. False: the conversation is over, and `problem` says why, or is empty when the tool
  // wished it so or the bridge has failed.
  [[nodiscard]] virtual bool Work(std::span<const std::uint8_t> input, Bytes& answers,
                                  std::string& problem) = 0;

  // Whether the last message has come to its end.
  virtual bool IsBetweenMessages() const = 0;
};

// Xilinx Virtual Cable 1.0. Both outlive the protocol.
std::unique_ptr<ToolProtocol> MakeXvc(JtagBridge& bridge, const ProbeControls& controls);

// OpenOCD's remote_bitbang, which carries JTAG.
std::unique_ptr<ToolProtocol> MakeRemoteBitbang(JtagBridge& bridge, const ProbeControls& controls);

}  // namespace client
