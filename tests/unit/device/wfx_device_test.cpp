#include <algorithm>
#include <array>

#include "device/device_status.h"
#include "device/evk_device.h"
#include "device/wfx_device.h"
#include "tests/unit/device/device_fixture.h"
#include "usb/usb_endpoint.h"

namespace {

// Supply measurements at the limit, and the powered one as a line of a script.
constexpr char kPowered[] = "C0 56 00 00 00 00 0F 00 -> 00 00 4B 00 00*11\n";
constexpr char kUnpowered[] = "C0 56 00 00 00 00 0F 00 -> 00 00 4A 00 00*11\n";
constexpr std::uint32_t kI2c = 2;

class WirefoxTest : public ScriptedProbeTest {
 protected:
  std::uint32_t TimeoutOf(std::uint8_t endpoint) {
    return device_.GetEndPoint(endpoint)->TimeoutMs();
  }

  // Into I2C mode with register 8 at 0 and a target that has power, with nothing left to drain.
  void EnterI2c() {
    Play(std::string(R"(C0 41 00 00 00 00 03 00 -> 00*3
                   C0 41 02 01 00 00 03 00 -> 00*3
                   C0 43 08 00 00 00 08 00 -> 00*8
                   in 81 64 -> 
)") + kPowered +
         "in 84 4 -> 01");
    ASSERT_EQ(device_.SetMode(kI2c, true), 0U);
    ASSERT_EQ(device_.PowerSupplied(), 1U);
    std::array<std::uint8_t, 4> reply;
    std::uint32_t length = 4;
    ASSERT_EQ(device_.I2CInXfer(length, reply.data()), 0U);
    ExpectPlayed();
  }

  std::uint32_t Request(const Bytes& request) {
    Bytes buffer = request;
    auto length = static_cast<std::uint32_t>(buffer.size());
    const std::uint32_t status = device_.BulkXfer(0x01, buffer.data(), length, kI2c);
    EXPECT_EQ(buffer, request);
    return status;
  }

  CTzWfxDevice device_{0, true};
};

TEST_F(WirefoxTest, TimeoutsOfDataEndpointsCarryOverToTheOnesThatI2cTravelsOn) {
  EXPECT_EQ(device_.SetTimeout(0x81, 700), 0U);
  EXPECT_EQ(device_.SetTimeout(0x01, 600), 0U);
  EXPECT_EQ(TimeoutOf(0x81), 700U);
  EXPECT_EQ(TimeoutOf(0x84), 700U);
  EXPECT_EQ(TimeoutOf(0x01), 600U);
  EXPECT_EQ(TimeoutOf(0x02), 600U);
  EXPECT_EQ(device_.SetTimeout(0x86, 5), 0U);
  EXPECT_EQ(device_.SetTimeout(0x84, 4), 0U);
  EXPECT_EQ(TimeoutOf(0x86), 5U);
  EXPECT_EQ(TimeoutOf(0x81), 700U);
}

TEST_F(WirefoxTest, I2cModeReadsTheRestartPositionDrainsTheRepliesAndSetsTimeouts) {
  Play(R"(C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 02 01 00 00 03 00 -> 00*3
                 C0 43 08 00 00 00 08 00 -> 00 00 00 83 00*4
                 in 81 64 -> silent
                 abort 81)");
  const std::uint64_t begin = clock_.NowMs();
  EXPECT_EQ(device_.SetMode(kI2c, true), 0U);
  EXPECT_EQ(clock_.NowMs() - begin, 70U + 50U);
  ExpectPlayed();
  EXPECT_EQ(TimeoutOf(0x81), 1500U);
  EXPECT_EQ(TimeoutOf(0x84), 1500U);
  EXPECT_EQ(TimeoutOf(0x01), 2000U);
  EXPECT_EQ(TimeoutOf(0x02), 2000U);
  // The register holds 0x83 already, so it is not written again.
  Play("");
  EXPECT_EQ(device_.I2CUpdateRestartPos(0x83), 0U);
}

TEST_F(WirefoxTest, RestartPositionThatCannotBeReadFailsTheModeSwitchAndCountsAsZero) {
  Play(R"(C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 02 01 00 00 03 00 -> 00*3
                 C0 43 08 00 00 00 08 00 -> 0B 00 00 83 00*4
                 in 81 64 -> 01 02)");
  EXPECT_EQ(device_.SetMode(kI2c, true), 11U);
  ExpectPlayed();
  EXPECT_EQ(TimeoutOf(0x84), 1500U);
  Play("");
  EXPECT_EQ(device_.I2CUpdateRestartPos(0), 0U);
}

TEST_F(WirefoxTest, I2cModeEnteredAgainForgetsAllThatWasKnown) {
  EnterI2c();
  Play(R"(C0 43 88 81 00 00 10 00 -> 00*16
                 out 02 : A0 10 A1 00*2 -> ok
                 out 01 : 10 01 50 AA -> ok)");
  EXPECT_EQ(Request({0x04, 0x01, 0x50, 0x02, 0xD0, 0x10}), 0U);
  EXPECT_EQ(Request({0x10, 0x01, 0x50, 0xAA}), 0U);

  // The power counts as off while it cannot be asked for; the reply is a translated one, of one
  // phase.
  Play(R"(C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 02 01 00 00 03 00 -> 00*3
                 C0 43 08 00 00 00 08 00 -> 00*8
                 in 81 64 -> 01
                 C0 56 00 00 00 00 0F 00 -> stall)");
  EXPECT_EQ(device_.SetMode(kI2c, true), 0U);
  Bytes reply(8, 0x0E);
  std::uint32_t length = 8;
  EXPECT_EQ(device_.BulkXfer(0x81, reply.data(), length, kI2c), 0U);
  EXPECT_EQ(length, 8U);
  EXPECT_EQ(reply, Bytes(8, 0));

  clock_.Advance(1000);
  Play(std::string(kPowered) + R"(
                 in 84 512 -> 01 02 03         # what was left over
                 out 02 : A0 AA -> ok)");
  EXPECT_EQ(Request({0x00, 0x01, 0x50, 0xAA}), 0U);
}

TEST_F(WirefoxTest, OtherModesAndRefusedOnesDoNotTouchTheEngine) {
  Play(R"(C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 04 01 00 00 03 00 -> 00*3
                 C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 02 01 00 00 03 00 -> 07 00 00)");
  EXPECT_EQ(device_.SetMode(4, true), 0U);
  EXPECT_EQ(device_.SetMode(kI2c, true), 7U);
}

TEST_F(WirefoxTest, PowerIsAskedForOnceASecondAndAFailureKeepsTheLastAnswer) {
  Play(kPowered);
  EXPECT_EQ(device_.PowerSupplied(), 1U);
  clock_.Advance(999);
  EXPECT_EQ(device_.PowerSupplied(), 1U);
  ExpectPlayed();
  clock_.Advance(1);
  Play("C0 56 00 00 00 00 0F 00 -> stall");
  EXPECT_EQ(device_.PowerSupplied(), 1U);
  clock_.Advance(999);
  EXPECT_EQ(device_.PowerSupplied(), 1U);
  ExpectPlayed();
  clock_.Advance(1);
  Play(kUnpowered);
  EXPECT_EQ(device_.PowerSupplied(), 0U);
}

TEST_F(WirefoxTest, PowerIsAskedForHoweverHighTheTickCountIs) {
  // Past the half of the tick count's range, where it counts as negative, and past its end.
  for (const std::uint32_t step : {0x80000000U, 0x40000000U, 0x40000000U, 0x7FFFFFFFU}) {
    clock_.Advance(step);
    Play(kPowered);
    EXPECT_EQ(device_.PowerSupplied(), 1U);
    EXPECT_EQ(device_.PowerSupplied(), 1U);
    ExpectPlayed();
  }
}

TEST_F(WirefoxTest, PacketGoesToTheEngineAndItsReplyComesBack) {
  EnterI2c();
  const Bytes packet = {0xA0, 0x10, 0xA1, 0x00, 0x00};
  Bytes reply(7, 0xEE);
  std::uint32_t length = 7;
  Play(R"(C0 43 88 83 00 00 10 00 -> 00*16      # repeated start behind 3 bytes
                 out 02 : A0 10 A1 00 00 -> ok
                 in 84 7 -> 01 00 A1 55 66)");
  EXPECT_EQ(device_.I2CXfer(5, packet.data(), 3, length, reply.data()), 0U);
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(reply, (Bytes{0x01, 0x00, 0xA1, 0x55, 0x66, 0xEE, 0xEE}));
  ExpectPlayed();

  // Back to a single phase, and then the register stands already.
  length = 7;
  Play(R"(C0 43 88 00 00 00 10 00 -> 00*16
                 out 02 : A0 -> ok
                 in 84 7 -> 01
                 out 02 : A0 -> ok
                 in 84 7 -> 01)");
  EXPECT_EQ(device_.I2CXfer(1, packet.data(), 0, length, reply.data()), 0U);
  length = 7;
  EXPECT_EQ(device_.I2CXfer(1, packet.data(), 0, length, reply.data()), 0U);
}

TEST_F(WirefoxTest, RegisterThatCannotBeWrittenStopsThePacketAndIsTriedAgain) {
  EnterI2c();
  const Bytes packet = {0xA0};
  std::uint32_t length = 1;
  std::uint8_t reply = 0;
  for (int i = 0; i < 2; ++i) {
    Play("C0 43 88 81 00 00 10 00 -> 0C 00*15");
    EXPECT_EQ(device_.I2CXfer(1, packet.data(), 1, length, &reply), 12U);
    ExpectPlayed();
  }
}

TEST_F(WirefoxTest, TargetWithoutPowerGetsNothingAndAnswersZeros) {
  const Bytes packet = {0xA0};
  Bytes reply(3, 0xEE);
  std::uint32_t length = 3;
  Play(kUnpowered);
  EXPECT_EQ(device_.I2CXfer(1, packet.data(), 3, length, reply.data()), 0U);
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(reply, Bytes(3, 0));
  // In the older format the request is translated, register 8 included, and then dropped.
  Play("C0 43 88 81 00 00 10 00 -> 00*16");
  EXPECT_EQ(Request({0x04, 0x01, 0x50, 0x02, 0xD0, 0x10}), 0U);
  Bytes buffer(8, 0x0E);
  length = 8;
  EXPECT_EQ(device_.BulkXfer(0x81, buffer.data(), length, kI2c), 0U);
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(buffer, (Bytes{0, 0, 0, 0, 0, 0x0E, 0x0E, 0x0E}));
}

TEST_F(WirefoxTest, ReadThatTimesOutMakesTheNextWriteDrainTheReplyPipeOnce) {
  EnterI2c();
  const Bytes packet = {0xA1, 0x00};
  Bytes reply(4);
  std::uint32_t length = 4;
  Play(R"(out 02 : A1 00 -> ok
                 in 84 4 -> silent
                 cancel 84
                 abort 84)");
  EXPECT_EQ(device_.I2CXfer(2, packet.data(), 0, length, reply.data()), 1U);
  ExpectPlayed();
  EXPECT_EQ(length, 0U);

  length = 4;
  const std::uint64_t begin = clock_.NowMs();
  Play(std::string(kPowered) + R"(in 84 512 -> silent    # one packet, for 50 ms
                 cancel 84
                 abort 84
                 out 02 : A1 00 -> ok
                 in 84 4 -> 01 77
                 out 02 : A1 00 -> ok
                 in 84 4 -> 01 78)");
  EXPECT_EQ(device_.I2CXfer(2, packet.data(), 0, length, reply.data()), 0U);
  EXPECT_EQ(clock_.NowMs() - begin, 50U);
  EXPECT_EQ(TimeoutOf(0x84), 1500U);
  length = 4;
  EXPECT_EQ(device_.I2CXfer(2, packet.data(), 0, length, reply.data()), 0U);
  EXPECT_EQ(reply[1], 0x78);
}

TEST_F(WirefoxTest, WriteThatTimesOutIsAbortedAndItsReplyNotAskedFor) {
  EnterI2c();
  const Bytes packet = {0xA0, 0x11};
  Bytes reply(4);
  std::uint32_t length = 4;
  Play(R"(out 02 : A0 11 -> silent
                 cancel 02
                 abort 02)");
  EXPECT_EQ(device_.I2CXfer(2, packet.data(), 0, length, reply.data()), 1U);
}

TEST_F(WirefoxTest, RequestsInTheOlderFormatBecomePacketsOfTheEngine) {
  struct {
    const char* what;
    Bytes request;
    const char* script;
  } const cases[] = {
      {"write two bytes", {0x00, 0x02, 0x50, 0xAA, 0xBB}, "out 02 : A0 AA BB -> ok"},
      {"what follows the data is not sent", {0x00, 0x01, 0x50, 0xAA, 0xBB}, "out 02 : A0 AA -> ok"},
      {"read three bytes", {0x01, 0x03, 0x50}, "out 02 : A1 00*3 -> ok"},
      {"the length has six bits", {0x01, 0xC2, 0x50}, "out 02 : A1 00*2 -> ok"},
      {"nothing but the address", {0x00, 0x00, 0x29}, "out 02 : 52 -> ok"},
      {"write, then read",
       {0x04, 0x01, 0x50, 0x02, 0xD0, 0x10},
       "C0 43 88 81 00 00 10 00 -> 00*16\n out 02 : A0 10 A1 00*2 -> ok"},
      {"read, then write",
       {0x05, 0x02, 0x50, 0x01, 0x51, 0x33},
       "C0 43 88 82 00 00 10 00 -> 00*16\n out 02 : A1 00*2 A2 33 -> ok"},
      {"write, then write",
       {0x04, 0x02, 0x50, 0x02, 0x51, 0x01, 0x02, 0x03, 0x04},
       "out 02 : A0 01 02 A2 03 04 -> ok"},
      {"read, then read", {0x05, 0x02, 0x50, 0x01, 0xD0}, "out 02 : A1 00*2 A1 00 -> ok"},
      {"lengths of 8 bits size the packet, of which the engine takes less",
       {0x05, 0x42, 0x50, 0x01, 0xD0},
       "out 02 : A1 00*2 A1 00*65 -> ok"},
      {"one phase again",
       {0x01, 0x01, 0x50},
       "C0 43 88 00 00 00 10 00 -> 00*16\n out 02 : A1 00 -> ok"},
  };
  EnterI2c();
  for (const auto& [what, request, script] : cases) {
    SCOPED_TRACE(what);
    Play(script);
    EXPECT_EQ(Request(request), 0U);
  }
}

TEST_F(WirefoxTest, SecondPhaseEndsAtTheLimitOfTheWholePacket) {
  EnterI2c();
  Bytes request = {0x04, 60, 0x50, 20, 0x51};
  request.insert(request.end(), 60, 0x11);
  request.insert(request.end(), 20, 0x22);
  // Byte 62 is the last that the second phase fills: one byte of its twenty.
  Play(R"(C0 43 88 BC 00 00 10 00 -> 00*16
          out 02 : A0 11*60 A2 22 00*19 -> ok)");
  EXPECT_EQ(Request(request), 0U);
}

TEST_F(WirefoxTest, RequestThatHoldsLessThanItAnnouncesIsRefused) {
  EnterI2c();
  Play("");
  for (const Bytes& request : std::vector<Bytes>{{},
                                                 {0x00},
                                                 {0x00, 0x01},
                                                 {0x00, 0x02, 0x50, 0xAA},
                                                 {0x04, 0x01, 0x50},
                                                 {0x04, 0x01, 0x50, 0x01},
                                                 {0x04, 0x01, 0x50, 0x01, 0xD0},
                                                 {0x04, 0x01, 0x50, 0x02, 0x51, 0x11, 0x22},
                                                 {0x05, 0x01, 0x50, 0x02, 0x51, 0x11}}) {
    EXPECT_EQ(Request(request), device_status::kNotPossible);
  }
}

TEST_F(WirefoxTest, RepliesInTheOlderFormatAreTheStatusByteAndTheBytesRead) {
  struct {
    const char* what;
    Bytes request;
    const char* script;  // without the restart position's register, which stands already
    std::uint32_t asked;
    Bytes reply;
  } const cases[] = {
      {"one phase",
       {0x01, 0x02, 0x50},
       "out 02 : A1 00*2 -> ok\n in 84 5 -> 01 55 66",
       3,
       {1, 0x55, 0x66}},
      {"nothing acknowledged gives zeros",
       {0x01, 0x02, 0x50},
       "out 02 : A1 00*2 -> ok\n in 84 5 -> 00 55 66",
       3,
       {0, 0, 0}},
      {"the second address byte is left out",
       {0x04, 0x01, 0x50, 0x02, 0xD0, 0x10},
       "C0 43 88 81 00 00 10 00 -> 00*16\n out 02 : A0 10 A1 00*2 -> ok\n in 84 10 -> 01 10 A1 55 "
       "66 77",
       8,
       {1, 0x10, 0x55, 0x66, 0x77}},
      {"no more than the client has room for",
       {0x04, 0x01, 0x50, 0x02, 0xD0, 0x10},
       "out 02 : A0 10 A1 00*2 -> ok\n in 84 5 -> 01 10 A1 55 66",
       3,
       {1, 0x10, 0x55}},
  };
  EnterI2c();
  for (const auto& [what, request, script, asked, reply] : cases) {
    SCOPED_TRACE(what);
    Play(script);
    EXPECT_EQ(Request(request), 0U);
    Bytes buffer(asked, 0x0E);
    std::uint32_t length = asked;
    EXPECT_EQ(device_.BulkXfer(0x81, buffer.data(), length, kI2c), 0U);
    ASSERT_EQ(length, reply.size());
    buffer.resize(length);
    EXPECT_EQ(buffer, reply);
  }
}

TEST_F(WirefoxTest, ReplyIsCutToSeventyBytesAndTheRestOfTheBufferLeft) {
  EnterI2c();
  Bytes buffer(512, 0x0E);
  std::uint32_t length = 512;
  Play("in 84 72 -> 01*72");
  EXPECT_EQ(device_.BulkXfer(0x81, buffer.data(), length, kI2c), 0U);
  ExpectPlayed();
  EXPECT_EQ(length, 70U);
  EXPECT_EQ(std::ranges::count(buffer, 0x01), 70);
  EXPECT_EQ(buffer[70], 0x0E);
}

TEST_F(WirefoxTest, TimeoutOfATranslatedReadIsSuccessWithAZeroFirstByte) {
  EnterI2c();
  Bytes buffer(4, 0x0E);
  std::uint32_t length = 4;
  Play("in 84 6 -> silent\n cancel 84\n abort 84");
  EXPECT_EQ(device_.BulkXfer(0x81, buffer.data(), length, kI2c), 0U);
  ExpectPlayed();
  EXPECT_EQ(buffer, (Bytes{0, 0x0E, 0x0E, 0x0E}));
}

TEST_F(WirefoxTest, NativeRequestIsPassedThroughTogetherWithItsReply) {
  EnterI2c();
  struct {
    Bytes request;
    const char* script;
  } const cases[] = {
      {{0x10, 0x01, 0x50, 0xAA},
       "out 01 : 10 01 50 AA -> ok\n in 81 4 -> 01 02 03 04\n out 02 : A1 00 -> ok"},
      {{0x20, 0x01, 0x50, 0xAA},
       "out 01 : 20 01 50 AA -> ok\n in 81 4 -> 01 02 03 04\n out 02 : A1 00 -> ok"},
      {{0x00, 0x01, 0x80, 0xAA},
       "out 01 : 00 01 80 AA -> ok\n in 81 4 -> 01 02 03 04\n out 02 : A1 00 -> ok"},
  };
  for (const auto& [request, script] : cases) {
    Play(script);
    EXPECT_EQ(Request(request), 0U);
    Bytes reply(4, 0);
    std::uint32_t length = 4;
    EXPECT_EQ(device_.BulkXfer(0x81, reply.data(), length, kI2c), 0U);
    EXPECT_EQ(reply, (Bytes{1, 2, 3, 4}));
    // The reply has ended the pass-through: this one is translated.
    EXPECT_EQ(Request({0x01, 0x01, 0x50}), 0U);
    ExpectPlayed();
  }
}

TEST_F(WirefoxTest, WhatABufferHoldsBeforeAReadOrInAnotherModeSwitchesThePassThroughOnToo) {
  EnterI2c();
  Bytes preset = {0x20, 0x00, 0x00};
  std::uint32_t length = 3;
  Play("in 81 3 -> 01 02 03");
  EXPECT_EQ(device_.BulkXfer(0x81, preset.data(), length, kI2c), 0U);
  preset = {0x00, 0x00, 0x80};
  Play("out 02 : 00 00 80 -> ok\n out 01 : 01 01 50 -> ok");
  EXPECT_EQ(device_.BulkXfer(0x02, preset.data(), length, 4), 0U);
  EXPECT_EQ(Request({0x01, 0x01, 0x50}), 0U);
}

TEST_F(WirefoxTest, OutsideI2cModeBulkDataIsNotTranslated) {
  Bytes data = {0x00, 0x02, 0x50, 0xAA, 0xBB};
  std::uint32_t length = 5;
  Play("out 01 : 00 02 50 AA BB -> ok\n in 81 5 -> 01 02 03 04 05");
  EXPECT_EQ(device_.BulkXfer(0x01, data.data(), length, 16), 0U);
  EXPECT_EQ(device_.BulkXfer(0x81, data.data(), length, 16), 0U);
  EXPECT_EQ(data, (Bytes{1, 2, 3, 4, 5}));
}

TEST_F(WirefoxTest, OtherEndpointsDoNothingInI2cMode) {
  Bytes data = {1, 2, 3};
  std::uint32_t length = 3;
  Play("");
  EXPECT_EQ(device_.BulkXfer(0x86, data.data(), length, kI2c), 0U);
  EXPECT_EQ(data, (Bytes{1, 2, 3}));
}

TEST_F(ScriptedProbeTest, EvkBoardRefusesI2cTranslatesNothingAndSetsSingleTimeouts) {
  CTzEvkDevice board(0, true);
  Bytes data = {0x00, 0x02, 0x50, 0xAA, 0xBB};
  std::uint32_t length = 5;
  Play(R"(out 01 : 00 02 50 AA BB -> ok
                 C0 41 00 00 00 00 03 00 -> 00*3
                 C0 41 02 01 00 00 03 00 -> 00*3)");
  EXPECT_EQ(board.I2CXfer(5, data.data(), 0, length, data.data()), 5U);
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(board.BulkXfer(0x01, data.data(), length, kI2c), 0U);
  EXPECT_EQ(board.SetMode(kI2c, true), 0U);
  ExpectPlayed();
  EXPECT_EQ(board.SetTimeout(0x01, 333), 0U);
  EXPECT_EQ(board.GetEndPoint(0x01)->TimeoutMs(), 333U);
  EXPECT_EQ(board.GetEndPoint(0x02)->TimeoutMs(), 1000U);
}

}  // namespace
