// What an SWD client does with whole packets: port registers by address, and target memory through
// a memory access port (ADIv5).
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "client/swd_packet.h"

namespace client {

class SwdLink {
 public:
  // Sends one packet and gives the reply; false when that failed, which ends the operation.
  using Exchange = std::function<bool(const Bytes& packet, Bytes& reply)>;

  // `index` names the access port, 0 the first.
  SwdLink(Exchange exchange, std::uint32_t access_port_index)
      : exchange_(std::move(exchange)), access_port_index_(access_port_index) {}

  // All operations: false when the exchange failed (`problem` stays empty) or the target did not
  // answer well (`problem` says how). Addresses of access port registers are their full eight bits;
  // the bank is selected on the way.
  bool ReadDebugPort(std::uint32_t address, std::uint32_t& value);
  bool WriteDebugPort(std::uint32_t address, std::uint32_t value);
  bool ReadAccessPort(std::uint32_t address, std::uint32_t& value);
  bool WriteAccessPort(std::uint32_t address, std::uint32_t value);

  // Whole words; the address is a multiple of four and the range stays below 2^32. Powers the debug
  // domain up, then moves in bursts, with a call of `progress` (may be empty) after each.
  bool ReadMemory(std::uint32_t address, std::span<std::uint32_t> words);
  bool WriteMemory(std::uint32_t address, std::span<const std::uint32_t> words);

  void SetProgress(std::function<void(std::size_t done, std::size_t all)> progress) {
    progress_ = std::move(progress);
  }

  const std::string& problem() const { return problem_; }

  // The replies of all packets so far, one behind the other.
  const Bytes& replies() const { return replies_; }

 private:
  bool Run(const SwdPacket& packet, std::vector<SwdPacket::Answer>& answers);
  bool OpenMemory();
  std::uint32_t SelectValue(std::uint32_t register_address) const;

  Exchange exchange_;
  std::uint32_t access_port_index_;
  std::function<void(std::size_t, std::size_t)> progress_;
  std::string problem_;
  Bytes replies_;
};

}  // namespace client
