#include "client/swd_link.h"

#include <algorithm>

namespace client {

namespace {

// Debug port registers; the last two stand for a write and a read at one address.
constexpr std::uint32_t kAbort = 0x0;
constexpr std::uint32_t kControlStatus = 0x4;
constexpr std::uint32_t kSelect = 0x8;
constexpr std::uint32_t kReadBuffer = 0xC;

constexpr std::uint32_t kClearStickyErrors = 0x1E;
constexpr std::uint32_t kPowerUpRequests = 0x50000000;
constexpr std::uint32_t kPowerUpAnswers = 0xA0000000;
constexpr int kPowerUpAttempts = 100;

// Registers of a memory access port.
constexpr std::uint32_t kControlStatusWord = 0x00;
constexpr std::uint32_t kTransferAddress = 0x04;
constexpr std::uint32_t kDataReadWrite = 0x0C;

// Of the control word: size and address increment are ours, the bus's protection bits stay as the
// port has them.
constexpr std::uint32_t kSizeAndIncrementMask = 0x37;
constexpr std::uint32_t kWordsWithIncrement = 0x12;

// The address increments by itself only within a block of 1 KiB (ADIv5), and a burst keeps its
// reply within one packet of the bus.
constexpr std::uint32_t kIncrementBlockBytes = 1024;
constexpr std::size_t kWordsPerBurst = 96;

std::size_t BurstLength(std::uint32_t address, std::size_t words_left) {
  const std::size_t to_block_end = (kIncrementBlockBytes - address % kIncrementBlockBytes) / 4;
  return std::min({to_block_end, words_left, kWordsPerBurst});
}

}  // namespace

std::uint32_t SwdLink::SelectValue(std::uint32_t register_address) const {
  return access_port_index_ << 24 | (register_address & 0xF0);
}

bool SwdLink::Run(const SwdPacket& packet, std::vector<SwdPacket::Answer>& answers) {
  Bytes reply;
  if (!exchange_(packet.bytes(), reply)) return false;
  replies_.insert(replies_.end(), reply.begin(), reply.end());
  auto decoded = packet.Decode(reply);
  if (!decoded) {
    problem_ = "the reply's length does not fit the requests";
    return false;
  }
  answers = std::move(*decoded);
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (IsGoodSwdStatus(answers[i].status)) continue;
    problem_ = "request " + std::to_string(i + 1) + " of " + std::to_string(answers.size()) + ": " +
               SwdStatusText(answers[i].status);
    return false;
  }
  return true;
}

bool SwdLink::ReadDebugPort(std::uint32_t address, std::uint32_t& value) {
  SwdPacket packet;
  packet.Read(SwdPort::kDebug, address);
  std::vector<SwdPacket::Answer> answers;
  if (!Run(packet, answers)) return false;
  value = answers[0].value;
  return true;
}

bool SwdLink::WriteDebugPort(std::uint32_t address, std::uint32_t value) {
  SwdPacket packet;
  packet.Write(SwdPort::kDebug, address, value);
  std::vector<SwdPacket::Answer> answers;
  return Run(packet, answers);
}

bool SwdLink::ReadAccessPort(std::uint32_t address, std::uint32_t& value) {
  SwdPacket packet;
  packet.Write(SwdPort::kDebug, kSelect, SelectValue(address));
  // A read of an access port delivers the result of the one before it; the read buffer gives the
  // last.
  packet.Read(SwdPort::kAccess, address);
  packet.Read(SwdPort::kDebug, kReadBuffer);
  std::vector<SwdPacket::Answer> answers;
  if (!Run(packet, answers)) return false;
  value = answers[2].value;
  return true;
}

bool SwdLink::WriteAccessPort(std::uint32_t address, std::uint32_t value) {
  SwdPacket packet;
  packet.Write(SwdPort::kDebug, kSelect, SelectValue(address));
  packet.Write(SwdPort::kAccess, address, value);
  // A write is under way when it is acknowledged; the read buffer answers once it is through.
  packet.Read(SwdPort::kDebug, kReadBuffer);
  std::vector<SwdPacket::Answer> answers;
  return Run(packet, answers);
}

bool SwdLink::OpenMemory() {
  if (!WriteDebugPort(kAbort, kClearStickyErrors)) return false;
  if (!WriteDebugPort(kControlStatus, kPowerUpRequests)) return false;
  std::uint32_t status = 0;
  for (int attempt = 0; (status & kPowerUpAnswers) != kPowerUpAnswers; ++attempt) {
    if (attempt == kPowerUpAttempts) {
      problem_ = "the debug domain does not power up (CTRL/STAT reads " + HexWord(status) + ")";
      return false;
    }
    if (!ReadDebugPort(kControlStatus, status)) return false;
  }
  std::uint32_t control = 0;
  return ReadAccessPort(kControlStatusWord, control) &&
         WriteAccessPort(kControlStatusWord,
                         (control & ~kSizeAndIncrementMask) | kWordsWithIncrement);
}

bool SwdLink::ReadMemory(std::uint32_t address, std::span<std::uint32_t> words) {
  if (!OpenMemory()) return false;
  for (std::size_t done = 0; done < words.size();) {
    const auto position = static_cast<std::uint32_t>(address + done * 4);
    const std::size_t count = BurstLength(position, words.size() - done);
    SwdPacket packet;
    packet.Write(SwdPort::kAccess, kTransferAddress, position);
    for (std::size_t i = 0; i < count; ++i) packet.Read(SwdPort::kAccess, kDataReadWrite);
    packet.Read(SwdPort::kDebug, kReadBuffer);
    std::vector<SwdPacket::Answer> answers;
    if (!Run(packet, answers)) return false;
    // Each word arrives with the read after its own: the answers from the third on.
    for (std::size_t i = 0; i < count; ++i) words[done + i] = answers[i + 2].value;
    done += count;
    if (progress_) progress_(done, words.size());
  }
  return true;
}

bool SwdLink::WriteMemory(std::uint32_t address, std::span<const std::uint32_t> words) {
  if (!OpenMemory()) return false;
  for (std::size_t done = 0; done < words.size();) {
    const auto position = static_cast<std::uint32_t>(address + done * 4);
    const std::size_t count = BurstLength(position, words.size() - done);
    SwdPacket packet;
    packet.Write(SwdPort::kAccess, kTransferAddress, position);
    for (std::size_t i = 0; i < count; ++i) {
      packet.Write(SwdPort::kAccess, kDataReadWrite, words[done + i]);
    }
    packet.Read(SwdPort::kDebug, kReadBuffer);
    std::vector<SwdPacket::Answer> answers;
    if (!Run(packet, answers)) return false;
    done += count;
    if (progress_) progress_(done, words.size());
  }
  return true;
}

}  // namespace client
