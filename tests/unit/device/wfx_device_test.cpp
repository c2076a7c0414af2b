#include <algorithm>
#include <array>

#include "device/device_status.h"
#include "device/evk_device.h"
#include "device/wfx_device.h"
#include "tests/unit/device/probe_test.h"

namespace {

// Supply measurements at the limit.
constexpr char kPowered[] = "C0 56 00 00 00 00 0F 00 -> 00 00 4B 00 00*11\n";
constexpr char kUnpowered[] = "C0 56 00 00 00 00 0F 00 -> 00 00 4A 00 00*11\n";
constexpr char kPowerStalls[] = "C0 56 00 00 00 00 0F 00 -> stall\n";

// The switch to I2C mode, with what register 8 and the old replies are read as.
std::string I2cMode(const std::string& restart_register, const std::string& old_replies) {
  return "C0 41 00 00 00 00 03 00 -> 00*3\nC0 41 02 01 00 00 03 00 -> 00*3\n"
         "C0 43 08 00 00 00 08 00 -> " +
         restart_register + "\nin 81 64 -> " + old_replies + "\n";
}

class WirefoxTest : public ProbeTest {
 protected:
  // Into I2C mode with register 8 at 0 and a target that has power, with nothing left to drain.
  void EnterI2c() {
    bus_.Play(I2cMode("00*8", "") + kPowered + "in 84 4 -> 01");
    ASSERT_EQ(device_.SetMode(kI2c, true), 0U);
    ASSERT_EQ(device_.PowerSupplied(), 1U);
    std::array<std::uint8_t, 4> reply;
    std::uint32_t length = 4;
    ASSERT_EQ(device_.I2CInXfer(length, reply.data()), 0U);
    bus_.ExpectPlayed();
  }

  // A request in the older format: its status.
  std::uint32_t Request(const std::string& request) {
    Bytes buffer = HexBytes(request);
    auto length = static_cast<std::uint32_t>(buffer.size());
    const std::uint32_t status = device_.BulkXfer(0x01, buffer.data(), length, kI2c);
    EXPECT_EQ(buffer, HexBytes(request));
    return status;
  }

  // Its reply, asked for with room for so many bytes: how many there are, and all the room.
  std::string Reply(std::uint32_t room) {
    Bytes buffer(room, 0x0E);
    std::uint32_t length = room;
    EXPECT_EQ(device_.BulkXfer(0x81, buffer.data(), length, kI2c), 0U);
    return std::to_string(length) + ": " + HexText(buffer);
  }

  // A packet for the engine: its status, how many bytes came, and all the room for them.
  std::string Packet(const std::string& packet, std::uint8_t restart, std::uint32_t room) {
    const Bytes sent = HexBytes(packet);
    Bytes buffer(room, 0x0E);
    const std::uint32_t status = device_.I2CXfer(static_cast<std::uint32_t>(sent.size()),
                                                 sent.data(), restart, room, buffer.data());
    return std::to_string(status) + ", " + std::to_string(room) + ": " + HexText(buffer);
  }

  CTzWfxDevice device_{0, true};
};

TEST_F(WirefoxTest, TimeoutsOfDataEndpointsCarryOverToTheOnesThatI2cTravelsOn) {
  EXPECT_EQ(device_.SetTimeout(0x81, 700), 0U);
  EXPECT_EQ(device_.SetTimeout(0x01, 600), 0U);
  EXPECT_EQ(Timeouts(device_), "10000 600 700 600 700 100 ");
  EXPECT_EQ(device_.SetTimeout(0x86, 5), 0U);
  EXPECT_EQ(device_.SetTimeout(0x84, 4), 0U);
  EXPECT_EQ(device_.SetTimeout(0x02, 3), 0U);
  EXPECT_EQ(Timeouts(device_), "10000 600 700 3 4 5 ");
}

TEST_F(WirefoxTest, I2cModeReadsTheRestartPositionDrainsTheRepliesAndSetsTimeouts) {
  bus_.Play(I2cMode("00 00 00 83 00*4", "silent\n abort 81"));
  EXPECT_EQ(ElapsedMs([&] { EXPECT_EQ(device_.SetMode(kI2c, true), 0U); }), 70U + 50U);
  EXPECT_EQ(Timeouts(device_), "10000 2000 1500 2000 1500 100 ");
  // The register holds 0x83 already, so it is not written again.
  EXPECT_EQ(device_.I2CUpdateRestartPos(0x83), 0U);
}

TEST_F(WirefoxTest, RestartPositionThatCannotBeReadFailsTheModeSwitchAndCountsAsZero) {
  bus_.Play(I2cMode("00 00 00 83 00*4", ""));
  EXPECT_EQ(device_.SetMode(kI2c, true), 0U);
  bus_.Play(I2cMode("0B 00 00 83 00*4", "01 02"));
  EXPECT_EQ(device_.SetMode(kI2c, true), 11U);
  EXPECT_EQ(Timeouts(device_), "10000 2000 1500 2000 1500 100 ");
  EXPECT_EQ(device_.I2CUpdateRestartPos(0), 0U);
}

TEST_F(WirefoxTest, I2cModeEnteredAgainForgetsAllThatWasKnown) {
  EnterI2c();
  bus_.Play(R"(C0 43 88 81 00 00 10 00 -> 00*16
               out 02 : A0 10 A1 00*2 -> ok
               out 01 : 10 01 50 AA -> ok)");
  EXPECT_EQ(Request("04 01 50 02 D0 10"), 0U);
  EXPECT_EQ(Request("10 01 50 AA"), 0U);

  // The power counts as off while it cannot be asked for; the reply is a translated one, of one
  // phase.
  bus_.Play(I2cMode("00*8", "01") + kPowerStalls);
  EXPECT_EQ(device_.SetMode(kI2c, true), 0U);
  EXPECT_EQ(Reply(8), "8: 00*8");

  clock_.Advance(1000);
  bus_.Play(std::string(kPowered) + R"(
               in 84 512 -> 01 02 03         # what was left over
               out 02 : A0 AA -> ok)");
  EXPECT_EQ(Request("00 01 50 AA"), 0U);
}

TEST_F(WirefoxTest, OtherModesAndRefusedOnesDoNotTouchTheEngine) {
  bus_.Play(R"(C0 41 00 00 00 00 03 00 -> 00*3
               C0 41 04 01 00 00 03 00 -> 00*3
               C0 41 00 00 00 00 03 00 -> 00*3
               C0 41 02 01 00 00 03 00 -> 07 00 00)");
  EXPECT_EQ(device_.SetMode(4, true), 0U);
  EXPECT_EQ(device_.SetMode(kI2c, true), 7U);
}

TEST_F(WirefoxTest, PowerIsAskedForOnceASecondAndAFailureKeepsTheLastAnswer) {
  const struct {
    std::uint32_t passed_ms;
    const char* script;
    std::uint32_t answer;
  } steps[] = {
      {0, kPowered, 1},
      {999, "", 1},
      {1, kPowerStalls, 1},
      {999, "", 1},
      {1, kUnpowered, 0},
      // Past the half of the tick count's range, where it counts as negative, and past its end.
      {0x80001000, kPowered, 1},
      {0, "", 1},
      {0x40000000, kPowered, 1},
      {0x40000000, kPowered, 1},
      {0, "", 1},
      {0x7FFFFFFF, kPowered, 1},
  };
  for (const auto& [passed_ms, script, answer] : steps) {
    clock_.Advance(passed_ms);
    bus_.Play(script);
    EXPECT_EQ(device_.PowerSupplied(), answer) << clock_.NowMs();
  }
}

TEST_F(WirefoxTest, PacketsGoToTheEngineAndTheirRepliesComeBack) {
  const std::string refused = "C0 43 88 81 00 00 10 00 -> 0C 00*15";
  const struct {
    const char* what;
    const char* packet;
    std::uint8_t restart;
    std::uint32_t room;
    std::string script;
    const char* reply;
    std::uint64_t elapsed_ms = 0;
  } cases[] = {
      {"repeated start behind 3 bytes", "A0 10 A1 00 00", 3, 7,
       R"(C0 43 88 83 00 00 10 00 -> 00*16
          out 02 : A0 10 A1 00 00 -> ok
          in 84 7 -> 01 00 A1 55 66)",
       "0, 5: 01 00 A1 55 66 0E 0E"},
      {"back to a single phase", "A0", 0, 3,
       "C0 43 88 00 00 00 10 00 -> 00*16\n out 02 : A0 -> ok\n in 84 3 -> 01", "0, 1: 01 0E 0E"},
      {"the register stands already", "A0", 0, 3, "out 02 : A0 -> ok\n in 84 3 -> 01",
       "0, 1: 01 0E 0E"},
      {"a register that cannot be written stops the packet", "A0", 1, 1, refused, "12, 1: 0E"},
      {"and is tried again", "A0", 1, 1, refused, "12, 1: 0E"},
      // Only a wait counts: what is refused at once is no failure, and nothing is left to drain.
      {"stalls", "A0", 0, 3, "out 02 : A0 -> stall\n in 84 3 -> stall", "0, 0: 0E 0E 0E"},
      {"a read that times out", "A1 00", 0, 4,
       "out 02 : A1 00 -> ok\n in 84 4 -> silent\n cancel 84\n abort 84", "1, 0: 0E 0E 0E 0E",
       1500},
      {"the next write drains one packet for 50 ms", "A1 00", 0, 4,
       std::string(kPowered) + R"(in 84 512 -> silent
          cancel 84
          abort 84
          out 02 : A1 00 -> ok
          in 84 4 -> 01 77)",
       "0, 2: 01 77 0E 0E", 50},
      {"and no other", "A1 00", 0, 4, "out 02 : A1 00 -> ok\n in 84 4 -> 01 78",
       "0, 2: 01 78 0E 0E"},
      {"a write that times out, whose reply is not asked for", "A0 11", 0, 4,
       "out 02 : A0 11 -> silent\n cancel 02\n abort 02", "1, 4: 0E 0E 0E 0E", 2000},
  };
  EnterI2c();
  for (const auto& [what, packet, restart, room, script, reply, elapsed_ms] : cases) {
    SCOPED_TRACE(what);
    bus_.Play(script);
    EXPECT_EQ(ElapsedMs([&] { EXPECT_EQ(Packet(packet, restart, room), reply); }), elapsed_ms);
    bus_.ExpectPlayed();
  }
  EXPECT_EQ(Timeouts(device_), "10000 2000 1500 2000 1500 100 ");
}

TEST_F(WirefoxTest, TargetWithoutPowerGetsNothingAndAnswersZeros) {
  bus_.Play(kUnpowered);
  EXPECT_EQ(Packet("A0", 3, 3), "0, 3: 00 00 00");
  // In the older format the request is translated, register 8 included, and then dropped.
  bus_.Play("C0 43 88 81 00 00 10 00 -> 00*16");
  EXPECT_EQ(Request("04 01 50 02 D0 10"), 0U);
  EXPECT_EQ(Reply(8), "5: 00 00 00 00 00 0E 0E 0E");
}

TEST_F(WirefoxTest, RequestsInTheOlderFormatBecomePacketsOfTheEngine) {
  const struct {
    const char* what;
    const char* request;
    const char* script;
  } cases[] = {
      {"write two bytes", "00 02 50 AA BB", "out 02 : A0 AA BB -> ok"},
      {"what follows the data is not sent", "00 01 50 AA BB", "out 02 : A0 AA -> ok"},
      {"the length has six bits", "01 C2 50", "out 02 : A1 00*2 -> ok"},
      {"nothing but the address", "00 00 29", "out 02 : 52 -> ok"},
      {"write, then read", "04 01 50 02 D0 10",
       "C0 43 88 81 00 00 10 00 -> 00*16\n out 02 : A0 10 A1 00*2 -> ok"},
      {"read, then write", "05 02 50 01 51 33",
       "C0 43 88 82 00 00 10 00 -> 00*16\n out 02 : A1 00*2 A2 33 -> ok"},
      {"write, then write", "04 02 50 02 51 01 02 03 04", "out 02 : A0 01 02 A2 03 04 -> ok"},
      {"lengths of 8 bits size the packet, of which the engine takes less", "05 42 50 01 D0",
       "out 02 : A1 00*2 A1 00*65 -> ok"},
      {"one phase again", "01 01 50", "C0 43 88 00 00 00 10 00 -> 00*16\n out 02 : A1 00 -> ok"},
      // Byte 62 is the last that the second phase fills: one byte of its twenty.
      {"the second phase ends at the limit of the whole packet", "04 3C 50 14 51 11*60 22*20",
       "C0 43 88 BC 00 00 10 00 -> 00*16\n out 02 : A0 11*60 A2 22 00*19 -> ok"},
      {"which leaves it nothing", "04 3E 50 14 51 11*62 22*20",
       "C0 43 88 BE 00 00 10 00 -> 00*16\n out 02 : A0 11*62 A2 00*20 -> ok"},
      {"and less than nothing", "04 3F 50 14 51 11*63 22*20",
       "C0 43 88 BF 00 00 10 00 -> 00*16\n out 02 : A0 11*63 A2 00*20 -> ok"},
  };
  EnterI2c();
  for (const auto& [what, request, script] : cases) {
    SCOPED_TRACE(what);
    bus_.Play(script);
    EXPECT_EQ(Request(request), 0U);
    bus_.ExpectPlayed();
  }
  for (const char* too_short : {"", "00", "00 01", "00 02 50 AA", "04 01 50", "04 01 50 01",
                                "04 01 50 01 D0", "04 01 50 02 51 11 22", "05 01 50 02 51 11"}) {
    EXPECT_EQ(Request(too_short), device_status::kNotPossible) << too_short;
  }
}

TEST_F(WirefoxTest, RepliesInTheOlderFormatAreTheStatusByteAndTheBytesRead) {
  // A two-phase request of one byte out and two in: register 8 stands from the first one on.
  const std::string two_phases = "04 01 50 02 D0 10";
  const std::string two_phases_sent = "out 02 : A0 10 A1 00*2 -> ok\n";
  const std::string one_phase_sent = "out 02 : A1 00*2 -> ok\n";
  const struct {
    const char* what;
    std::string request;
    std::string script;
    std::uint32_t room;
    const char* reply;
  } cases[] = {
      {"one phase", "01 02 50", one_phase_sent + "in 84 5 -> 01 55 66", 3, "3: 01 55 66"},
      {"nothing acknowledged gives zeros", "01 02 50", one_phase_sent + "in 84 5 -> 00 55 66", 3,
       "3: 00 00 00"},
      {"a stall is not judged", "01 02 50", one_phase_sent + "in 84 5 -> stall", 3, "3: 00 00 00"},
      {"cut to 70 bytes, and the rest of the buffer left", "01 02 50",
       one_phase_sent + "in 84 72 -> 01*72", 512, "70: 01*70 0E*442"},
      {"a time-out is success with a zero first byte", "01 02 50",
       one_phase_sent + "in 84 6 -> silent\n cancel 84\n abort 84", 4, "4: 00 0E 0E 0E"},
      {"the second address byte is left out", two_phases,
       std::string("C0 43 88 81 00 00 10 00 -> 00*16\n") + kPowered + "in 84 512 -> 01\n" +
           two_phases_sent + "in 84 10 -> 01 10 A1 55 66 77",
       8, "5: 01 10 55 66 77 0E 0E 0E"},
      {"no more than the client has room for", two_phases,
       two_phases_sent + "in 84 5 -> 01 10 A1 55 66", 3, "3: 01 10 55"},
  };
  EnterI2c();
  for (const auto& [what, request, script, room, reply] : cases) {
    SCOPED_TRACE(what);
    bus_.Play(script);
    EXPECT_EQ(Request(request), 0U);
    EXPECT_EQ(Reply(room), reply);
    bus_.ExpectPlayed();
  }
}

TEST_F(WirefoxTest, NativeRequestIsPassedThroughTogetherWithItsReply) {
  EnterI2c();
  for (const std::string request : {"10 01 50 AA", "20 01 50 AA", "00 01 80 AA"}) {
    // The reply ends the pass-through: the last one is translated.
    bus_.Play("out 01 : " + request + " -> ok\n in 81 4 -> 01 02 03 04\n out 02 : A1 00 -> ok");
    EXPECT_EQ(Request(request), 0U);
    EXPECT_EQ(Reply(4), "4: 01 02 03 04");
    EXPECT_EQ(Request("01 01 50"), 0U);
  }
}

TEST_F(WirefoxTest, WhatABufferHoldsBeforeAReadOrInAnotherModeSwitchesThePassThroughOnToo) {
  EnterI2c();
  Bytes preset = {0x20, 0x00, 0x00};
  std::uint32_t length = 3;
  bus_.Play("in 81 3 -> 01 02 03");
  EXPECT_EQ(device_.BulkXfer(0x81, preset.data(), length, kI2c), 0U);
  preset = {0x00, 0x00, 0x80};
  bus_.Play("out 02 : 00 00 80 -> ok\n out 01 : 01 01 50 -> ok");
  EXPECT_EQ(device_.BulkXfer(0x02, preset.data(), length, 4), 0U);
  EXPECT_EQ(Request("01 01 50"), 0U);
}

TEST_F(WirefoxTest, OutsideI2cModeBulkDataIsNotTranslatedAndInItOtherEndpointsDoNothing) {
  Bytes data = HexBytes("00 02 50 AA BB");
  std::uint32_t length = 5;
  bus_.Play("out 01 : 00 02 50 AA BB -> ok\n in 81 5 -> 01 02 03 04 05");
  EXPECT_EQ(device_.BulkXfer(0x01, data.data(), length, 16), 0U);
  EXPECT_EQ(device_.BulkXfer(0x81, data.data(), length, 16), 0U);
  EXPECT_EQ(device_.BulkXfer(0x86, data.data(), length, kI2c), 0U);
  EXPECT_EQ(HexText(data), "01 02 03 04 05");
}

TEST_F(ProbeTest, EvkBoardRefusesI2cTranslatesNothingAndSetsSingleTimeouts) {
  CTzEvkDevice board(0, true);
  Bytes data = HexBytes("00 02 50 AA BB");
  std::uint32_t length = 5;
  bus_.Play(R"(out 01 : 00 02 50 AA BB -> ok
               C0 41 00 00 00 00 03 00 -> 00*3
               C0 41 02 01 00 00 03 00 -> 00*3)");
  EXPECT_EQ(board.I2CXfer(5, data.data(), 0, length, data.data()), 5U);
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(board.BulkXfer(0x01, data.data(), length, kI2c), 0U);
  EXPECT_EQ(board.SetMode(kI2c, true), 0U);
  EXPECT_EQ(board.SetTimeout(0x01, 333), 0U);
  EXPECT_EQ(Timeouts(board), "10000 333 1000 1000 2000 100 ");
}

}  // namespace
