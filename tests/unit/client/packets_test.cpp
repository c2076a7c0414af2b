#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>

#include "client/swd_link.h"
#include "client/swd_packet.h"
#include "sim/targets/debug_port.h"

namespace client {
namespace {

TEST(SwdRequest, HeadersCarryEvenParityOverPortDirectionAndAddress) {
  // Of registers 0, 4, 8 and C.
  const std::tuple<SwdPort, bool, std::array<std::uint8_t, 4>> cases[] = {
      {SwdPort::kDebug, true, {0xA5, 0x8D, 0x95, 0xBD}},
      {SwdPort::kDebug, false, {0x81, 0xA9, 0xB1, 0x99}},
      {SwdPort::kAccess, true, {0x87, 0xAF, 0xB7, 0x9F}},
      {SwdPort::kAccess, false, {0xA3, 0x8B, 0x93, 0xBB}}};
  for (const auto& [port, read, headers] : cases) {
    for (std::uint32_t i = 0; i < 4; ++i)
      EXPECT_EQ(SwdRequestHeader(port, read, 4 * i), headers[i]);
  }
}

TEST(SwdRequest, AStatusIsGoodWithBit0SetAndBit2Clear) {
  const std::map<std::uint8_t, bool> cases = {{0x00, false}, {0x01, true},  {0x02, false},
                                              {0x03, true},  {0x04, false}, {0x05, false},
                                              {0x07, false}, {0xF9, true},  {0xFF, false}};
  for (const auto& [status, good] : cases) EXPECT_EQ(IsGoodSwdStatus(status), good) << +status;
  EXPECT_THAT(SwdStatusText(2), testing::StartsWith("WAIT"));
  EXPECT_THAT(SwdStatusText(4), testing::StartsWith("FAULT"));
  EXPECT_THAT(SwdStatusText(7), testing::StartsWith("no answer")) << "the line at rest";
}

// A simulated debug port with one memory access port, at the level of packets.
class DebugTarget {
 public:
  DebugTarget() { port.PowerUp(); }

  bool Exchange(const Bytes& packet, Bytes& reply) {
    for (std::size_t at = 0; at < packet.size();) {
      const std::uint8_t header = packet[at++];
      const bool access = (header & 2) != 0;
      const auto address = static_cast<std::uint8_t>(header >> 1 & 0x0C);
      std::uint32_t value = 0;
      if ((header & 4) != 0) {
        const std::uint8_t status = port.Read(access, address, value);
        AppendWord(reply, value);
        reply.push_back(status);
        continue;
      }
      const bool powers_up = !access && address == 0x4;
      if (!powers_up || has_power) value = LoadWord(packet, at);
      at += 4;
      reply.push_back(port.Write(access, address, value));
    }
    return true;
  }

  static constexpr std::uint32_t kMemory = 0x20000000;
  sim::TargetMemory memory{{{kMemory, 4096}}};
  sim::DebugPort port{memory, 0x2BA01477, 0x24770011};
  bool has_power = true;
};

SwdLink LinkTo(DebugTarget& target) {
  return SwdLink(
      [&target](const Bytes& packet, Bytes& reply) { return target.Exchange(packet, reply); }, 0);
}

TEST(SwdLink, MemoryIsReadAndWrittenAcrossBlocksOfTheAddressIncrement) {
  DebugTarget target;
  SwdLink link = LinkTo(target);
  constexpr std::uint32_t kOffset = 0x3F8;
  std::vector<std::uint32_t> words(700);
  Bytes expected(kOffset);
  for (std::size_t i = 0; i < words.size(); ++i) {
    words[i] = static_cast<std::uint32_t>(i * 2654435761u);
    AppendWord(expected, words[i]);
  }
  expected.resize(4096);
  ASSERT_TRUE(link.WriteMemory(target.kMemory + kOffset, words)) << link.problem();
  EXPECT_EQ(target.memory.Dump(target.kMemory, 4096), expected);
  std::uint32_t control_word = 0;
  EXPECT_TRUE(link.ReadAccessPort(0x00, control_word));
  EXPECT_EQ(control_word, 0x23000052u) << "the bus's protection bits are the target's own";
  std::vector<std::uint32_t> read(words.size());
  ASSERT_TRUE(LinkTo(target).ReadMemory(target.kMemory + kOffset, read));
  EXPECT_EQ(read, words);
  // A register in another bank, through the read buffer.
  std::uint32_t identification = 0;
  ASSERT_TRUE(link.ReadAccessPort(0xFC, identification));
  EXPECT_EQ(identification, 0x24770011u);
}

TEST(SwdLink, ATargetThatFaultsOrStaysUnpoweredIsReported) {
  DebugTarget target;
  target.has_power = false;
  SwdLink link = LinkTo(target);
  std::uint32_t value = 0;
  EXPECT_FALSE(link.ReadAccessPort(0x0, value));
  EXPECT_EQ(link.problem().substr(0, 23), "request 2 of 3: FAULT (");
  std::vector<std::uint32_t> words(1);
  EXPECT_FALSE(link.ReadMemory(0, words));
  EXPECT_EQ(link.problem(), "the debug domain does not power up (CTRL/STAT reads 0x00000000)");
}

}  // namespace
}  // namespace client
