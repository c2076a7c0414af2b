#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using testing::ElementsAre;

constexpr char kTwoTargets[] = R"("kind": "evk", "swd": [
  {"idcode": "0x2BA01477", "connectors": [0], "memory": {"address": "0x20000000", "size": 4096}},
  {"idcode": "0x0BC11477", "connectors": [1]}])";

// Request headers.
constexpr std::uint8_t kReadIdcode = 0xA5;
constexpr std::uint8_t kWriteAbort = 0x81;
constexpr std::uint8_t kReadControl = 0x8D;
constexpr std::uint8_t kWriteControl = 0xA9;
constexpr std::uint8_t kWriteSelect = 0xB1;
constexpr std::uint8_t kReadBuffer = 0xBD;
constexpr std::uint8_t kWriteCsw = 0xA3;
constexpr std::uint8_t kWriteTar = 0x8B;
constexpr std::uint8_t kReadTar = 0xAF;
constexpr std::uint8_t kWriteDrw = 0xBB;
constexpr std::uint8_t kReadDrw = 0x9F;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Bytes FourBytes(std::uint32_t word) {
  return {static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
          static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)};
}

Bytes Write(std::uint8_t header, std::uint32_t word) { return Bytes{header} + FourBytes(word); }

// A word read and its status.
Bytes Word(std::uint32_t word, std::uint8_t status) { return FourBytes(word) + Bytes{status}; }

class SwdTest : public OneProbe {
 protected:
  SwdTest() { Plug(kTwoTargets); }

  // Line reset, identification, debug power, word accesses with single increment.
  void Begin() {
    user_->ResetSwdLine();
    ASSERT_EQ(user_->Swd({kReadIdcode}), Word(0x2BA01477, 1));
    ASSERT_EQ(user_->Swd(Write(kWriteControl, 0x50000000) + Write(kWriteCsw, 0x23000012)),
              (Bytes{1, 1}));
  }

  // The last word read by a packet, and its status.
  Bytes LastWord(const Bytes& requests) {
    const Bytes reply = user_->Swd(requests);
    return Bytes(reply.end() - 5, reply.end());
  }
};

TEST_F(SwdTest, TargetIsSilentUntilTheLineIsResetAndItsIdentificationRead) {
  user_->Command(0x41, 0x104, 3);
  EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0, 7));
  user_->ResetSwdLine();
  EXPECT_EQ(user_->Swd({kReadControl, kReadIdcode}), Word(0, 7) + Word(0, 7));
  user_->ResetSwdLine();
  EXPECT_EQ(user_->Swd({kReadIdcode, kReadControl}), Word(0x2BA01477, 1) + Word(0, 1));
}

TEST_F(SwdTest, MalformedHeadersAreNotAnsweredAndLoseTheLine) {
  const struct {
    const char* what;
    std::uint8_t header;
  } kTable[] = {
      {"parity", 0xA5 ^ 0x20}, {"no start", 0xA4}, {"stop high", 0xE5}, {"no park", 0x25}};
  for (const auto& row : kTable) {
    Begin();
    EXPECT_EQ(user_->Swd({row.header}).back(), 7) << row.what;
    EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0, 7)) << row.what << ": lost until a line reset";
  }
  Begin();
}

TEST_F(SwdTest, StreamedLevelsThatAreNoResetLoseTheLineUnlessItIsBlocked) {
  Bytes two_short(14, 0x00);
  std::fill_n(two_short.begin(), 12, std::uint8_t{0xF0});  // 48 cycles: two short of a line reset
  Begin();
  user_->StreamToSwdLine(0x40, {0xA0, 0x50});
  EXPECT_EQ(user_->Swd({kReadControl}).back(), 1) << "blocked";
  user_->StreamToSwdLine(0x00, two_short);
  EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0, 7));
  Begin();
  user_->SwitchSwdLine({0xC0, 0x30, 0x70, 0xE0});
  EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0, 7)) << "switched back to JTAG";
}

TEST_F(SwdTest, MemoryIsWrittenAndReadWithPostedReads) {
  Begin();
  EXPECT_EQ(user_->Swd(Write(kWriteTar, 0x20000000) + Write(kWriteDrw, 0x11223344) +
                       Write(kWriteDrw, 0x55667788)),
            (Bytes{1, 1, 1}));
  EXPECT_THAT(bench_->SwdMemory("P", 0x20000000, 8),
              ElementsAre(0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55));
  // The first read brings what was posted before it, the read buffer the last one.
  const Bytes reply = user_->Swd(Write(kWriteTar, 0x20000000) + Bytes{kReadDrw, kReadDrw} +
                                 Bytes{kReadBuffer, kReadTar, kReadBuffer});
  EXPECT_EQ(Bytes(reply.begin() + 6, reply.end()),
            Word(0x11223344, 1) + Word(0x55667788, 1) + Word(0x55667788, 1) + Word(0x20000008, 1));
  EXPECT_EQ(
      LastWord(Write(kWriteTar, 0x200003FC) + Write(kWriteDrw, 1) + Bytes{kReadTar, kReadBuffer}),
      Word(0x20000000, 1))
      << "the increment wraps within a kibibyte";
}

TEST_F(SwdTest, BytesTravelOnTheLaneOfTheirAddress) {
  Begin();
  user_->Swd(Write(kWriteCsw, 0x23000010) + Write(kWriteTar, 0x20000001) +
             Write(kWriteDrw, 0x0000AB00) + Write(kWriteDrw, 0x00CD0000));
  EXPECT_THAT(bench_->SwdMemory("P", 0x20000000, 4), ElementsAre(0, 0xAB, 0xCD, 0));
  EXPECT_EQ(LastWord(Write(kWriteTar, 0x20000002) + Bytes{kReadDrw, kReadBuffer}),
            Word(0x00CD0000, 1));
}

TEST_F(SwdTest, FaultSticksUntilItIsCleared) {
  Begin();
  EXPECT_EQ(user_->Swd(Write(kWriteTar, 0x30000000) + Bytes{kReadDrw}).back(), 1)
      << "the access that fails has been acknowledged";
  EXPECT_EQ(user_->Swd({kReadDrw}), Word(0, 4));
  EXPECT_EQ(user_->Swd({kReadBuffer}), Word(0, 4));
  EXPECT_EQ(user_->Swd(Write(kWriteTar, 0x20000000)), (Bytes{4}));
  EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0x2BA01477, 1));
  EXPECT_EQ(user_->Swd({kReadControl}), Word(0xF0000020, 1)) << "powered, sticky error";
  EXPECT_EQ(user_->Swd(Write(kWriteAbort, 0x04) + Write(kWriteTar, 0x20000000)), (Bytes{1, 1}));
}

TEST_F(SwdTest, AccessPortNeedsDebugPowerAndHasItsIdentificationInItsLastBank) {
  user_->ResetSwdLine();
  user_->Swd({kReadIdcode});
  EXPECT_EQ(user_->Swd(Write(kWriteTar, 0) + Write(kWriteAbort, 0x04)), (Bytes{4, 1}));
  Begin();
  EXPECT_EQ(LastWord(Write(kWriteSelect, 0xF0) + Bytes{kReadDrw, kReadBuffer}),
            Word(0x24770011, 1));
  EXPECT_EQ(LastWord(Write(kWriteSelect, 0x010000F0) + Bytes{kReadDrw, kReadBuffer}), Word(0, 1))
      << "there is one port only";
}

TEST_F(SwdTest, ConnectorsHaveTargetsOfTheirOwnAndAllHearTheReset) {
  user_->ResetSwdLine();
  EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0x2BA01477, 1));
  EXPECT_EQ(user_->Command(0x61, 1, 10), Bytes(10, 0));
  EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0x0BC11477, 1));
  EXPECT_EQ(user_->Command(0x61, 2, 10)[0], 2) << "there is no third connector";
}

TEST_F(SwdTest, RepliesHaveTheLengthThatTheRequestsCallFor) {
  Begin();
  EXPECT_EQ(user_->Swd({}), Bytes{});
  EXPECT_EQ(user_->Swd({kReadIdcode, kWriteTar, 0x00}), Word(0x2BA01477, 1) + Bytes{7})
      << "a write that is cut short counts one byte and is not carried out";
  EXPECT_EQ(user_->Swd(Bytes(103, kReadIdcode)).size(), 512u) << "of 515";
  EXPECT_EQ(user_->In(0x84, 512).data, (Bytes{0xA0, 0x2B, 1}));
}

TEST_F(SwdTest, UnpoweredTargetDoesNotAnswerAndForgets) {
  Begin();
  user_->Swd(Write(kWriteTar, 0x20000000) + Write(kWriteDrw, 0xFFFFFFFF));
  ASSERT_TRUE(bench_->Rearrange("P", R"({"external_supply": 0})"));
  user_->ResetSwdLine();
  EXPECT_EQ(user_->Swd({kReadIdcode}), Word(0, 7));
  EXPECT_EQ(user_->Command(0x55, 11, 2), (Bytes{0, 0}));
  EXPECT_EQ(user_->Command(0x51, 1, 2), (Bytes{0, 0}));
  Begin();
  EXPECT_THAT(bench_->SwdMemory("P", 0x20000000, 4), ElementsAre(0, 0, 0, 0));
}

}  // namespace
}  // namespace sim
