#include <algorithm>
#include <array>

#include "device/device.h"
#include "device/wfx_device.h"
#include "tests/unit/device/device_fixture.h"
#include "usb/usb_endpoint.h"

namespace {

constexpr std::uint32_t kTimedOut = 997;

class StreamTest : public ScriptedProbeTest {
 protected:
  CTzDevice device_{0, true};
};

TEST_F(StreamTest, NoCyclesMeanNoTraffic) {
  Play("");
  EXPECT_EQ(device_.JTAG_BufferedIo(0, nullptr, true, nullptr, false), 0U);
  EXPECT_EQ(device_.JTAG_BufferedIo(-5, nullptr, false, nullptr, false), 0U);
  EXPECT_EQ(device_.JTAG_BufferedIoBytes({}, true, nullptr, false), 0U);
}

TEST_F(StreamTest, FiveCyclesTravelAsAWholePairOfBytes) {
  const Bytes stream = {0x11, 0x22};
  std::uint8_t tdo = 0;
  Play(R"(C0 43 81 05 00 00 10 00 -> 00*16
                 C0 43 82 80 00 00 10 00 -> 00*16
                 out 02 : 11 22 -> ok
                 in 84 1 -> 5A)");
  EXPECT_EQ(device_.JTAG_BufferedIo(5, stream.data(), true, &tdo, false), 0U);
  EXPECT_EQ(tdo, 0x5A);
  ExpectPlayed();
  Play(R"(C0 43 81 05 00 00 10 00 -> 00*16
                 C0 43 82 C0 00 00 10 00 -> 00*16    # loopback
                 out 02 : 11 22 -> ok
                 in 84 1 -> 5B)");
  EXPECT_EQ(device_.JTAG_BufferedIo(5, stream.data(), false, nullptr, true), 0U);
}

constexpr char kTwoChunks[] = R"(
    C0 43 81 40 00 00 10 00 -> 00*16    # 40000 = 0x9C40 to go
    C0 43 82 9C 00 00 10 00 -> 00*16
    out 02 : 11*8192 -> ok
    in 84 4096 -> 55*4096
    C0 43 81 40 00 00 10 00 -> 00*16    # 7232 = 0x1C40 to go
    C0 43 82 9C 00 00 10 00 -> 00*16
    out 02 : 22*1808 -> ok
    in 84 904 -> 66*904)";

// `count` bytes: 0x11 as far as a chunk goes, then 0x22.
Bytes LongStream(std::size_t count) {
  Bytes stream(count, 0x11);
  if (count > 8192) std::fill(stream.begin() + 8192, stream.end(), std::uint8_t{0x22});
  return stream;
}

Bytes ReplyOfTwoChunks(std::uint8_t first, std::uint8_t second) {
  Bytes reply(4096 + 904, first);
  std::fill(reply.begin() + 4096, reply.end(), second);
  return reply;
}

TEST_F(StreamTest, LongStreamIsSentInChunksEachAnnouncedWithAllThatRemains) {
  const Bytes stream = LongStream(10000);
  for (const bool want_read : {true, false}) {
    Bytes tdo(5000, 0xEE);
    Play(kTwoChunks);
    EXPECT_EQ(device_.JTAG_BufferedIo(40000, stream.data(), want_read, tdo.data(), false), 0U);
    EXPECT_EQ(tdo, want_read ? ReplyOfTwoChunks(0x55, 0x66) : Bytes(5000, 0xEE));
  }
}

unit::ScriptedDevice ProbeOfAnOldDriver() {
  unit::ScriptedDevice device;
  device.facts.driver_version = 0x010504FF;
  return device;
}

class OldDriverTest : public ScriptedProbeTest {
 protected:
  OldDriverTest() : ScriptedProbeTest(ProbeOfAnOldDriver()) {}
};

TEST_F(OldDriverTest, WithoutDirectTransfersTheExchangeIsTheSame) {
  CTzDevice device(0, true);
  ASSERT_FALSE(device.GetEndPoint(0x02)->IsDirect());
  const Bytes stream = LongStream(10000);
  Bytes tdo(5000);
  Play(kTwoChunks);
  EXPECT_EQ(device.JTAG_BufferedIo(40000, stream.data(), true, tdo.data(), false), 0U);
  EXPECT_EQ(tdo, ReplyOfTwoChunks(0x55, 0x66));
}

TEST_F(StreamTest, ChunksEndWhereTheLimitsSay) {
  struct {
    std::int32_t cycles;
    const char* script;
  } const cases[] = {
      {0x7FFF, R"(C0 43 81 FF 00 00 10 00 -> 00*16
                  C0 43 82 FF 00 00 10 00 -> 00*16
                  out 02 : 11*8192 -> ok
                  in 84 4096 -> 55*4096)"},
      {0x8000, R"(C0 43 81 00 00 00 10 00 -> 00*16
                  C0 43 82 80 00 00 10 00 -> 00*16
                  out 02 : 11*8192 -> ok
                  in 84 4096 -> 55*4096)"},
      {0x8001, R"(C0 43 81 01 00 00 10 00 -> 00*16
                  C0 43 82 80 00 00 10 00 -> 00*16
                  out 02 : 11*8192 -> ok
                  in 84 4096 -> 55*4096
                  C0 43 81 01 00 00 10 00 -> 00*16
                  C0 43 82 80 00 00 10 00 -> 00*16
                  out 02 : 22 22 -> ok
                  in 84 1 -> 7E)"},
  };
  for (const auto& [cycles, script] : cases) {
    const Bytes stream = LongStream(2 * ((static_cast<std::size_t>(cycles) + 7) / 8));
    Bytes tdo(stream.size() / 2);
    Play(script);
    EXPECT_EQ(device_.JTAG_BufferedIo(cycles, stream.data(), true, tdo.data(), false), 0U);
    EXPECT_EQ(tdo.back(), cycles == 0x8001 ? 0x7E : 0x55);
  }
}

TEST_F(StreamTest, OddNumberOfBytesIsCompletedWithALowByteAndReadNoFurther) {
  struct {
    std::size_t count;
    const char* script;
  } const cases[] = {
      {3, R"(C0 43 81 0C 00 00 10 00 -> 00*16
             C0 43 82 80 00 00 10 00 -> 00*16
             out 02 : 11 11 11 00 -> ok
             in 84 2 -> A1 A2)"},
      {8195, R"(C0 43 81 0C 00 00 10 00 -> 00*16
                C0 43 82 80 00 00 10 00 -> 00*16
                out 02 : 11*8192 -> ok
                in 84 4096 -> 55*4096
                C0 43 81 0C 00 00 10 00 -> 00*16
                C0 43 82 80 00 00 10 00 -> 00*16
                out 02 : 22 22 22 00 -> ok
                in 84 2 -> A1 A2)"},
  };
  for (const auto& [count, script] : cases) {
    const Bytes stream = LongStream(count);  // on the heap, so that a byte too far is noticed
    Bytes tdo((count + 1) / 2);
    Play(script);
    EXPECT_EQ(device_.JTAG_BufferedIoBytes(stream, true, tdo.data(), false), 0U);
    EXPECT_EQ(tdo.back(), 0xA2);
  }
}

TEST_F(StreamTest, EvenNumberOfBytesGoesOutAsItIs) {
  const Bytes stream = {1, 2, 3, 4};
  Play(R"(C0 43 81 10 00 00 10 00 -> 00*16
                 C0 43 82 C0 00 00 10 00 -> 00*16
                 out 02 : 01 02 03 04 -> ok
                 in 84 2 -> 00 00)");
  EXPECT_EQ(device_.JTAG_BufferedIoBytes(stream, false, nullptr, true), 0U);
}

TEST_F(StreamTest, ReplyThatNeverComesLetsTheStreamGoOnAndThenClearsBothPipes) {
  const Bytes stream = LongStream(10000);
  Bytes tdo(5000, 0xEE);
  Play(R"(C0 43 81 40 00 00 10 00 -> 00*16
                 C0 43 82 9C 00 00 10 00 -> 00*16
                 out 02 : 11*8192 -> ok
                 in 84 4096 -> silent
                 cancel 84
                 C0 43 81 40 00 00 10 00 -> 00*16
                 C0 43 82 9C 00 00 10 00 -> 00*16
                 out 02 : 22*1808 -> ok
                 in 84 904 -> 66*904
                 abort 02
                 reset 02
                 abort 84
                 reset 84)");
  const std::uint64_t begin = clock_.NowMs();
  EXPECT_EQ(device_.JTAG_BufferedIo(40000, stream.data(), true, tdo.data(), false), 8U);
  EXPECT_EQ(clock_.NowMs() - begin, 2000U);  // the time-out of 0x84
  ExpectPlayed();
  // What came of the second chunk stands where it belongs.
  Bytes expected(5000, 0xEE);
  std::fill(expected.begin() + 4096, expected.end(), std::uint8_t{0x66});
  EXPECT_EQ(tdo, expected);
}

TEST_F(StreamTest, ProbeThatTakesNothingIsWaitedForOnBothPipesInTurn) {
  const Bytes stream = {1, 2};
  Play(R"(C0 43 81 08 00 00 10 00 -> 00*16
                 C0 43 82 80 00 00 10 00 -> 00*16
                 out 02 : 01 02 -> silent
                 in 84 1 -> silent
                 cancel 02
                 cancel 84
                 abort 02
                 reset 02
                 abort 84
                 reset 84)");
  const std::uint64_t begin = clock_.NowMs();
  EXPECT_EQ(device_.JTAG_BufferedIo(8, stream.data(), false, nullptr, false), 8U);
  EXPECT_EQ(clock_.NowMs() - begin, 3000U);
}

TEST_F(StreamTest, RefusedChunkCountsAsAFailedStream) {
  const Bytes stream = {1, 2};
  Play(R"(C0 43 81 08 00 00 10 00 -> 00*16
                 C0 43 82 80 00 00 10 00 -> 00*16
                 out 02 : 01 02 -> stall
                 in 84 1 -> 00
                 abort 02
                 reset 02
                 abort 84
                 reset 84)");
  EXPECT_EQ(device_.JTAG_BufferedIo(8, stream.data(), false, nullptr, false), 8U);
  ExpectPlayed();
  EXPECT_EQ(log_.TakeErrors(),
            std::vector<std::string>{"[CTzDevice::JTAG_BufferedIo]Error 8 occured."});
}

TEST_F(StreamTest, RegisterThatCannotBeWrittenEndsTheStreamWithItsOwnStatus) {
  const Bytes stream = LongStream(10000);
  Play("C0 43 81 40 00 00 10 00 -> 0C 00*15");
  EXPECT_EQ(device_.JTAG_BufferedIo(40000, stream.data(), false, nullptr, false), 12U);
  ExpectPlayed();  // nothing had been sent: no pipe is reset

  Play(R"(C0 43 81 40 00 00 10 00 -> 00*16
                 C0 43 82 9C 00 00 10 00 -> 00*16
                 out 02 : 11*8192 -> stall
                 in 84 4096 -> 55*4096
                 C0 43 81 40 00 00 10 00 -> 00*16
                 C0 43 82 9C 00 00 10 00 -> 0D 00*15
                 abort 02
                 reset 02
                 abort 84
                 reset 84)");
  EXPECT_EQ(device_.JTAG_BufferedIo(40000, stream.data(), false, nullptr, false), 13U);
}

TEST_F(StreamTest, SwdPacketReportsWhatCameBack) {
  const Bytes request = {0xA5};
  Bytes reply(512, 0xEE);
  std::uint32_t length = 512;
  Play(R"(out 02 : A5 -> ok
                 in 84 512 -> 77 14 A0 2B 01)");
  EXPECT_EQ(device_.SWDXfer(1, request.data(), length, reply.data()), 0U);
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 6), (Bytes{0x77, 0x14, 0xA0, 0x2B, 0x01, 0xEE}));
}

TEST_F(StreamTest, SwdPacketWithoutReplyStillAsksForNoBytes) {
  std::uint32_t length = 0;
  Play(R"(out 02 : -> ok
                 in 84 0 -> )");
  EXPECT_EQ(device_.SWDXfer(0, nullptr, length, nullptr), 0U);
}

TEST_F(StreamTest, FailedSwdPacketClearsBothPipes) {
  const Bytes request = {0xA5};
  Bytes reply(5);
  for (const char* script :
       {"out 02 : A5 -> ok\n in 84 5 -> silent\n cancel 84\n",
        "out 02 : A5 -> silent\n in 84 5 -> 01\n cancel 02\n",
        "out 02 : A5 -> stall\n in 84 5 -> 01\n", "out 02 : A5 -> ok\n in 84 5 -> stall\n",
        "out 02 : A5 -> ok\n in 84 5 -> 00*6\n"}) {
    std::uint32_t length = 5;
    SCOPED_TRACE(script);
    Play(std::string(script) + "abort 02\n reset 02\n abort 84\n reset 84");
    EXPECT_EQ(device_.SWDXfer(1, request.data(), length, reply.data()), 8U);
    ExpectPlayed();
    EXPECT_LE(length, 5U);
    EXPECT_EQ(log_.TakeErrors(), std::vector<std::string>{"[CTzDevice::SWDXfer]Error 8 occured."});
  }
}

constexpr char kJtagMode[] = R"(
    C0 41 00 00 00 00 03 00 -> 00*3
    C0 41 01 01 00 00 03 00 -> 00*3
    C0 61 00 00 00 00 03 00 -> 00*3
)";

TEST_F(StreamTest, JtagResetSendsTheSelectSequenceInJtagMode) {
  Play(std::string(kJtagMode) + R"(
      C0 43 81 78 00 00 10 00 -> 00*16
      C0 43 82 80 00 00 10 00 -> 00*16
      out 02 : F0*13 C0 30 70 E0 F0*13 -> ok       # 52 high, 0xE73C, 52 high
      in 84 15 -> 00*15)");
  EXPECT_EQ(device_.JTAG_Reset(), 0U);
  ExpectPlayed();
  Play("C0 41 00 00 00 00 03 00 -> 09 00 00");
  EXPECT_EQ(device_.JTAG_Reset(), 9U);
}

// Status of a probe in SWD mode with SWV, on connector 1.
constexpr char kSwdStatus[] = "C0 44 00 00 00 00 0E 00 -> 00*5 0C 00*5 01 00 00\n";

TEST_F(StreamTest, SwdLineResetGoesByWayOfJtagAndComesBackToModeAndConnector) {
  const std::string script = std::string(kSwdStatus) + kJtagMode + R"(
      C0 43 11 00 00 00 08 00 -> 00 00 00 D5 00*4
      C0 43 91 15 00 00 10 00 -> 00*16        # bits 6 and 7 off
      C0 43 81 78 00 00 10 00 -> 00*16
      C0 43 82 80 00 00 10 00 -> 00*16
      out 02 : F0*13 E0 90 70 E0 F0*13 -> ok           # 52 high, 0xE79E, 52 high
      in 84 15 -> 00*15
      C0 43 91 D5 00 00 10 00 -> 00*16
      C0 41 00 00 00 00 03 00 -> 00*3
      C0 41 0C 01 00 00 03 00 -> 00*3
)" + kSwdStatus + "C0 61 01 00 00 00 0A 00 -> 00*10";
  Play(script);
  EXPECT_EQ(device_.SWD_CReset(), 0U);
  ExpectEndsAtEachFailure([&] { return device_.SWD_CReset(); }, script);
}

TEST_F(StreamTest, SwdLineResetOutsideTheSwdModesIsRefused) {
  Play("C0 44 00 00 00 00 0E 00 -> 00*5 0B 00*8");
  EXPECT_EQ(device_.SWD_CReset(), 5U);
}

TEST_F(StreamTest, PortAcquireDataMovesInBlockingTransfers) {
  const Bytes command = {0x8B, 1, 2, 3};
  Play("out 02 : 8B 01 02 03 -> ok");
  EXPECT_EQ(device_.StageSWDCommand(4, command.data()), 0U);
  ExpectPlayed();
  Play("out 02 : 8B 01 02 03 -> silent\n abort 02");
  EXPECT_EQ(device_.StageSWDCommand(4, command.data()), kTimedOut);
  ExpectPlayed();

  Bytes reply(100);
  std::uint32_t length = 100;
  Play("in 84 100 -> 01 02 03 04 05 06 01");
  EXPECT_EQ(device_.RetrievePortAcquireResponse(length, reply.data()), 0U);
  EXPECT_EQ(length, 7U);
  length = 100;
  Play("in 84 100 -> silent\n abort 84");
  EXPECT_EQ(device_.RetrievePortAcquireResponse(length, reply.data()), kTimedOut);
  EXPECT_EQ(length, 0U);
}

TEST_F(StreamTest, BulkTransferGoesTheWayOfItsEndpointAndReportsWhatMoved) {
  Bytes data = {1, 2, 3};
  std::uint32_t length = 3;
  Play("out 01 : 01 02 03 -> ok");
  EXPECT_EQ(device_.BulkXfer(0x01, data.data(), length, 2), 0U);
  EXPECT_EQ(length, 3U);
  ExpectPlayed();
  Play("in 81 3 -> 09 08");
  EXPECT_EQ(device_.BulkXfer(0x81, data.data(), length, 2), 0U);
  EXPECT_EQ(length, 2U);
  EXPECT_EQ(data, (Bytes{9, 8, 3}));
  ExpectPlayed();
  length = 3;
  Play("in 81 3 -> silent\n abort 81");
  EXPECT_EQ(device_.BulkXfer(0x81, data.data(), length, 2), kTimedOut);
}

TEST_F(StreamTest, SwvDataIsAppendedAndNothingWithinTheTimeoutIsAFailure) {
  CTzWfxDevice device(0, true);  // which would take another mode for one to translate in
  Bytes data = {0xAA};
  Play("in 86 512 -> 01 02 03");
  EXPECT_EQ(device.GetSWVData(data), 0U);
  EXPECT_EQ(data, (Bytes{0xAA, 1, 2, 3}));
  ExpectPlayed();
  Play("in 86 512 -> silent\n abort 86");
  const std::uint64_t begin = clock_.NowMs();
  EXPECT_EQ(device.GetSWVData(data), kTimedOut);
  EXPECT_EQ(clock_.NowMs() - begin, 100U);
  EXPECT_EQ(data, (Bytes{0xAA, 1, 2, 3}));
}

unit::ScriptedDevice ProbeWithoutReplies() {
  unit::ScriptedDevice device;
  device.endpoints = {0x02};
  return device;
}

class NoReplyEndpointTest : public ScriptedProbeTest {
 protected:
  NoReplyEndpointTest() : ScriptedProbeTest(ProbeWithoutReplies()) {}
};

TEST_F(NoReplyEndpointTest, ExchangesAreRefusedBeforeAnythingIsSent) {
  CTzDevice device(0, false);
  std::array<std::uint8_t, 2> bytes{};
  std::uint32_t length = 2;
  Play("");
  EXPECT_EQ(device.JTAG_BufferedIo(8, bytes.data(), false, nullptr, false), 6U);
  EXPECT_EQ(device.SWDXfer(1, bytes.data(), length, bytes.data()), 6U);
  EXPECT_EQ(length, 2U);
  EXPECT_EQ(device.RetrievePortAcquireResponse(length, bytes.data()), 6U);
  CTzWfxDevice wirefox(0, false);
  EXPECT_EQ(wirefox.I2COutXfer(2, bytes.data()), 5U);
}

}  // namespace
