#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "client/i2c_packet.h"
#include "client/swd_link.h"
#include "client/swd_packet.h"

namespace client {
namespace {

TEST(SwdRequest, HeadersCarryEvenParityOverPortDirectionAndAddress) {
  struct Case {
    SwdPort port;
    bool read;
    std::uint32_t address;
    std::uint8_t header;
  };
  const Case cases[] = {
      {SwdPort::kDebug, true, 0x0, 0xA5},   {SwdPort::kDebug, true, 0x4, 0x8D},
      {SwdPort::kDebug, true, 0x8, 0x95},   {SwdPort::kDebug, true, 0xC, 0xBD},
      {SwdPort::kDebug, false, 0x0, 0x81},  {SwdPort::kDebug, false, 0x4, 0xA9},
      {SwdPort::kDebug, false, 0x8, 0xB1},  {SwdPort::kDebug, false, 0xC, 0x99},
      {SwdPort::kAccess, true, 0x0, 0x87},  {SwdPort::kAccess, true, 0x4, 0xAF},
      {SwdPort::kAccess, true, 0x8, 0xB7},  {SwdPort::kAccess, true, 0xC, 0x9F},
      {SwdPort::kAccess, false, 0x0, 0xA3}, {SwdPort::kAccess, false, 0x4, 0x8B},
      {SwdPort::kAccess, false, 0x8, 0x93}, {SwdPort::kAccess, false, 0xC, 0xBB},
  };
  for (const Case& c : cases) EXPECT_EQ(SwdRequestHeader(c.port, c.read, c.address), c.header);
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

TEST(SwdPacket, RepliesAreTakenApartInTheOrderOfTheRequests) {
  SwdPacket packet;
  packet.Read(SwdPort::kDebug, 0x0);
  packet.Write(SwdPort::kDebug, 0x4, 0x50000000);
  packet.Read(SwdPort::kDebug, 0x4);
  EXPECT_EQ(packet.bytes(), (Bytes{0xA5, 0xA9, 0x00, 0x00, 0x00, 0x50, 0x8D}));
  const Bytes reply = {0x77, 0x14, 0xA0, 0x2B, 0x01, 0x01, 0x40, 0x00, 0x00, 0xF0, 0x04};
  const auto answers = packet.Decode(reply);
  ASSERT_TRUE(answers);
  ASSERT_EQ(answers->size(), 3u);
  EXPECT_EQ((*answers)[0].value, 0x2BA01477u);
  EXPECT_EQ((*answers)[1].status, 0x01);
  EXPECT_EQ((*answers)[2].value, 0xF0000040u);
  EXPECT_EQ((*answers)[2].status, 0x04);
  for (std::size_t length = 0; length < reply.size(); ++length) {
    EXPECT_FALSE(packet.Decode(std::span(reply).first(length))) << length;
  }
  Bytes longer = reply;
  longer.push_back(0);
  EXPECT_FALSE(packet.Decode(longer));
}

// A debug port with one memory access port, as ADIv5 has it: a read of the access port answers what
// the one before it read, and the address increments within blocks of 1 KiB only.
class DebugTarget {
 public:
  bool Exchange(const Bytes& packet, Bytes& reply) {
    for (std::size_t at = 0; at < packet.size();) {
      const std::uint8_t header = packet[at++];
      const bool access = (header & 2) != 0;
      const bool read = (header & 4) != 0;
      const std::uint32_t address = (header >> 3 & 3) * 4;
      if (read) {
        AppendWord(reply, access ? ReadAccess(address) : ReadDebug(address));
      } else {
        const std::uint32_t value = LoadWord(packet, at);
        at += 4;
        access ? WriteAccess(address, value) : WriteDebug(address, value);
      }
      reply.push_back(faults_from == 0 || ++requests < faults_from ? 0x01 : 0x04);
    }
    return true;
  }

  std::map<std::uint32_t, std::uint32_t> memory;
  std::uint32_t select = 0;
  std::uint32_t control_word = 0x23000040;
  bool powers_up = true;
  int faults_from = 0;  // the request from which on the target faults; 0: none
  int requests = 0;

 private:
  std::uint32_t ReadDebug(std::uint32_t address) {
    if (address == 0xC) return posted_;
    return address == 0x4 && powers_up ? control_ | control_ << 1 : control_;
  }
  void WriteDebug(std::uint32_t address, std::uint32_t value) {
    if (address == 0x4) control_ = value;
    if (address == 0x8) select = value;
  }
  std::uint32_t ReadAccess(std::uint32_t address) {
    const std::uint32_t before = posted_;
    const std::uint32_t full = (select & 0xF0) | address;
    if (full == 0x00) posted_ = control_word;
    if (full == 0x0C) posted_ = memory[Next()];
    if (full == 0xFC) posted_ = 0x24770011;
    return before;
  }
  void WriteAccess(std::uint32_t address, std::uint32_t value) {
    const std::uint32_t full = (select & 0xF0) | address;
    if (full == 0x00) control_word = value;
    if (full == 0x04) transfer_address_ = value;
    if (full == 0x0C) memory[Next()] = value;
  }
  std::uint32_t Next() {
    const std::uint32_t address = transfer_address_;
    if ((control_word & 0x37) == 0x12) {
      transfer_address_ = (address & ~0x3FFu) | ((address + 4) & 0x3FF);
    }
    return address;
  }

  std::uint32_t control_ = 0;
  std::uint32_t posted_ = 0xBAD0BAD0;
  std::uint32_t transfer_address_ = 0;
};

SwdLink LinkTo(DebugTarget& target) {
  return SwdLink(
      [&target](const Bytes& packet, Bytes& reply) { return target.Exchange(packet, reply); }, 0);
}

TEST(SwdLink, MemoryIsReadAndWrittenAcrossBlocksOfTheAddressIncrement) {
  DebugTarget target;
  std::vector<std::uint32_t> words(700);
  for (std::size_t i = 0; i < words.size(); ++i)
    words[i] = static_cast<std::uint32_t>(i * 2654435761u);
  ASSERT_TRUE(LinkTo(target).WriteMemory(0x200003F8, words));
  EXPECT_EQ(target.memory.size(), words.size());
  for (std::size_t i = 0; i < words.size(); ++i) {
    ASSERT_EQ(target.memory[static_cast<std::uint32_t>(0x200003F8 + i * 4)], words[i]) << i;
  }
  // The bus's protection bits are the target's own.
  EXPECT_EQ(target.control_word, 0x23000052u);
  std::vector<std::uint32_t> read(words.size());
  ASSERT_TRUE(LinkTo(target).ReadMemory(0x200003F8, read));
  EXPECT_EQ(read, words);
}

TEST(SwdLink, AccessPortRegistersAreReadThroughTheirBankAndTheReadBuffer) {
  DebugTarget target;
  SwdLink link = LinkTo(target);
  std::uint32_t value = 0;
  ASSERT_TRUE(link.ReadAccessPort(0xFC, value));
  EXPECT_EQ(value, 0x24770011u);
  EXPECT_EQ(target.select, 0xF0u);
}

TEST(SwdLink, ATargetThatFaultsOrStaysUnpoweredIsReported) {
  DebugTarget faulty;
  faulty.faults_from = 2;
  SwdLink link = LinkTo(faulty);
  std::uint32_t value = 0;
  EXPECT_FALSE(link.ReadAccessPort(0x0, value));
  EXPECT_EQ(link.problem().substr(0, 23), "request 2 of 3: FAULT (");

  DebugTarget unpowered;
  unpowered.powers_up = false;
  SwdLink other = LinkTo(unpowered);
  std::vector<std::uint32_t> words(1);
  EXPECT_FALSE(other.ReadMemory(0, words));
  EXPECT_EQ(other.problem(), "the debug domain does not power up (CTRL/STAT reads 0x50000000)");
}

TEST(I2cPacket, TransactionsAreEnginePackets) {
  const I2cPacket write = MakeI2cWrite(0x50, Bytes{0xAA, 0xBB});
  EXPECT_EQ(write.bytes, (Bytes{0xA0, 0xAA, 0xBB}));
  EXPECT_EQ(write.restart_location, 0);

  const I2cPacket read = MakeI2cRead(0x50, 2);
  EXPECT_EQ(read.bytes, (Bytes{0xA1, 0x00, 0x00}));
  EXPECT_EQ(read.Decode(Bytes{0x01, 0x10, 0x20, 0x00, 0x00}), (Bytes{0x10, 0x20}));

  const I2cPacket both = MakeI2cWriteRead(0x50, Bytes{0x10}, 2);
  EXPECT_EQ(both.bytes, (Bytes{0xA0, 0x10, 0xA1, 0x00, 0x00}));
  EXPECT_EQ(both.restart_location, 1);
  // Status, the byte written, the echoed second address, the bytes read.
  EXPECT_EQ(both.Decode(Bytes{0x01, 0x10, 0xA1, 0x55, 0x66, 0x00, 0x00}), (Bytes{0x55, 0x66}));
}

TEST(I2cPacket, AReplyOfZeroStatusOrTooFewBytesIsNoAnswer) {
  const I2cPacket read = MakeI2cRead(0x50, 2);
  EXPECT_FALSE(read.Decode(Bytes{0x00, 0x10, 0x20}));
  EXPECT_FALSE(read.Decode(Bytes{0x01, 0x10}));
  EXPECT_FALSE(read.Decode(Bytes{}));
}

}  // namespace
}  // namespace client
