#include <algorithm>
#include <array>
#include <functional>

#include "device/device.h"
#include "device/wfx_device.h"
#include "tests/unit/device/probe_test.h"
#include "usb/usb_endpoint.h"

namespace {

class StreamTest : public ProbeTest {
 protected:
  CTzDevice device_{0, true};
};

constexpr char kPipesCleared[] = "abort 02\n reset 02\n abort 84\n reset 84\n";

// The registers that announce a chunk: the low 8 bits of all the cycles that remain, and the flags
// with what fits of the rest.
std::string Announced(const std::string& low, const std::string& flags) {
  return "C0 43 81 " + low + " 00 00 10 00 -> 00*16\nC0 43 82 " + flags + " 00 00 10 00 -> 00*16\n";
}

// The chunk that every longer stream begins with, and the second one of 40,000 cycles.
constexpr char kFullChunk[] = "out 02 : 11*8192 -> ok\n in 84 4096 -> 55*4096\n";
constexpr char kSecondChunk[] = "out 02 : 22*1808 -> ok\n in 84 904 -> 66*904\n";

// `count` bytes: 0x11 as far as a chunk goes, then 0x22. On the heap, so that a sanitizer sees a
// byte too far.
Bytes LongStream(std::size_t count) {
  Bytes stream(count, 0x11);
  if (count > 8192) std::fill(stream.begin() + 8192, stream.end(), std::uint8_t{0x22});
  return stream;
}

// With the reply wanted or not, and with the driver's direct and buffered transfers alike.
TEST_F(StreamTest, CyclesTravelInChunksAndAFailureOfOneIsToldAtTheEnd) {
  const struct {
    const char* what;
    std::int32_t cycles;
    bool loopback;
    std::uint32_t status;
    std::uint64_t elapsed_ms;
    std::string script;
    const char* tdo;
  } cases[] = {
      {"no cycles mean no traffic", 0, false, 0, 0, "", ""},
      {"nor does less than none", -5, false, 0, 0, "", ""},
      {"five cycles as a whole pair of bytes", 5, false, 0, 0,
       Announced("05", "80") + "out 02 : 11 11 -> ok\n in 84 1 -> 5A", "5A"},
      {"with loopback", 5, true, 0, 0,
       Announced("05", "C0") + "out 02 : 11 11 -> ok\n in 84 1 -> 5B", "5B"},
      {"40,000 = 0x9C40, then 7,232 = 0x1C40", 40000, false, 0, 0,
       Announced("40", "9C") + kFullChunk + Announced("40", "9C") + kSecondChunk, "55*4096 66*904"},
      {"one less than a chunk", 0x7FFF, false, 0, 0, Announced("FF", "FF") + kFullChunk, "55*4096"},
      {"a chunk", 0x8000, false, 0, 0, Announced("00", "80") + kFullChunk, "55*4096"},
      {"one more", 0x8001, false, 0, 0,
       Announced("01", "80") + kFullChunk + Announced("01", "80") +
           "out 02 : 22 22 -> ok\n in 84 1 -> 7E",
       "55*4096 7E"},
      {"a reply never comes: the rest is sent, and lands where it belongs", 40000, false, 8, 2000,
       Announced("40", "9C") + "out 02 : 11*8192 -> ok\n in 84 4096 -> silent\n cancel 84\n" +
           Announced("40", "9C") + kSecondChunk + kPipesCleared,
       "EE*4096 66*904"},
      {"nothing is taken: both pipes are waited for in turn", 8, false, 8, 3000,
       Announced("08", "80") + "out 02 : 11 11 -> silent\n in 84 1 -> silent\n cancel 02\n" +
           "cancel 84\n" + kPipesCleared,
       "EE"},
      {"a chunk is refused", 8, false, 8, 0,
       Announced("08", "80") + "out 02 : 11 11 -> stall\n in 84 1 -> 00\n" + kPipesCleared, "00"},
      {"the first register is refused: no pipe needs to be cleared", 40000, false, 12, 0,
       "C0 43 81 40 00 00 10 00 -> 0C 00*15", "EE*5000"},
      {"a chunk, then a register is refused", 40000, false, 13, 0,
       Announced("40", "9C") + "out 02 : 11*8192 -> stall\n in 84 4096 -> 55*4096\n" +
           "C0 43 81 40 00 00 10 00 -> 00*16\n C0 43 82 9C 00 00 10 00 -> 0D 00*15\n" +
           kPipesCleared,
       "55*4096 EE*904"},
  };
  for (const auto& [what, cycles, loopback, status, elapsed_ms, script, expected] : cases) {
    const std::size_t reply_bytes = (static_cast<std::size_t>(cycles) + 7) / 8;
    const Bytes stream = LongStream(2 * reply_bytes);
    for (const auto& [want_read, direct] : {std::pair{true, true}, {false, true}, {true, false}}) {
      SCOPED_TRACE(std::string(what) + (want_read ? ", read" : "") + (direct ? ", direct" : ""));
      for (const std::uint8_t address : {0x02, 0x84}) {
        device_.GetEndPoint(address)->SetDirect(direct);
      }
      Bytes tdo(reply_bytes, 0xEE);
      std::uint32_t result = 0;
      bus_.Play(script);
      EXPECT_EQ(ElapsedMs([&] {
                  result = device_.JTAG_BufferedIo(cycles, stream.data(), want_read, tdo.data(),
                                                   loopback);
                }),
                elapsed_ms);
      bus_.ExpectPlayed();
      EXPECT_EQ(result, status);
      EXPECT_EQ(HexText(tdo), want_read ? expected : HexText(Bytes(reply_bytes, 0xEE)));
      const std::string last =
          "[CTzDevice::JTAG_BufferedIo]Error " + std::to_string(status) + " occured.";
      EXPECT_EQ(log_.Take().back() == last, status != 0);
    }
  }
}

TEST_F(StreamTest, OddNumberOfBytesIsCompletedWithALowByteAndReadNoFurther) {
  const struct {
    std::size_t count;
    bool loopback;
    std::string script;
  } cases[] = {
      {0, false, ""},
      {4, true, Announced("10", "C0") + "out 02 : 11 11 11 11 -> ok\n in 84 2 -> A1 A2"},
      {3, false, Announced("0C", "80") + "out 02 : 11 11 11 00 -> ok\n in 84 2 -> A1 A2"},
      {8195, false,
       Announced("0C", "80") + kFullChunk + Announced("0C", "80") +
           "out 02 : 22 22 22 00 -> ok\n in 84 2 -> A1 A2"},
  };
  for (const auto& [count, loopback, script] : cases) {
    Bytes tdo((count + 1) / 2);
    bus_.Play(script);
    EXPECT_EQ(device_.JTAG_BufferedIoBytes(LongStream(count), true, tdo.data(), loopback), 0U);
    EXPECT_TRUE(tdo.empty() || tdo.back() == 0xA2);
  }
}

TEST_F(StreamTest, SwdPacketReportsWhatCameBackAndAFailedOneClearsBothPipes) {
  const struct {
    std::string script;
    std::uint32_t sent;
    std::uint32_t asked;
    std::uint32_t status;
    const char* reply;
  } cases[] = {
      {"out 02 : A5 -> ok\n in 84 512 -> 77 14 A0 2B 01", 1, 512, 0, "77 14 A0 2B 01"},
      {"out 02 : -> ok\n in 84 0 -> ", 0, 0, 0, ""},  // without a reply, still asked for
      {"out 02 : A5 -> ok\n in 84 5 -> silent\n cancel 84\n", 1, 5, 8, ""},
      {"out 02 : A5 -> silent\n in 84 5 -> 01\n cancel 02\n", 1, 5, 8, "01"},
      {"out 02 : A5 -> stall\n in 84 5 -> 01\n", 1, 5, 8, "01"},
      {"out 02 : A5 -> ok\n in 84 5 -> stall\n", 1, 5, 8, ""},
      {"out 02 : A5 -> ok\n in 84 5 -> 00*6\n", 1, 5, 8, "00 00 00 00 00"},
  };
  for (const auto& [script, sent, asked, status, expected] : cases) {
    SCOPED_TRACE(script);
    const Bytes request(sent, 0xA5);
    Bytes reply(asked);
    std::uint32_t length = asked;
    bus_.Play(status == 0 ? script : script + kPipesCleared);
    EXPECT_EQ(device_.SWDXfer(sent, request.data(), length, reply.data()), status);
    ASSERT_LE(length, asked);
    reply.resize(length);
    EXPECT_EQ(HexText(reply), expected);
    EXPECT_EQ(log_.Take().back() == "[CTzDevice::SWDXfer]Error 8 occured.", status != 0);
  }
}

TEST_F(StreamTest, BlockingTransfersReportWhatMovedAndEndAtTheirTimeout) {
  using Length = std::uint32_t;
  using Call = std::function<std::uint32_t(std::uint8_t * data, Length & length)>;
  const Call stage = [&](auto* data, Length&) { return device_.StageSWDCommand(4, data); };
  const Call retrieve = [&](auto* data, Length& length) {
    return device_.RetrievePortAcquireResponse(length, data);
  };
  const auto bulk = [&](std::uint8_t endpoint) -> Call {
    return [&, endpoint](auto* data, Length& length) {
      return device_.BulkXfer(endpoint, data, length, 2);
    };
  };
  const struct {
    Call call;
    const char* script;
    std::uint32_t status;
    const char* moved;
  } cases[] = {
      {stage, "out 02 : 8B 01 02 03 -> ok", 0, "8B 01 02 03"},
      {stage, "out 02 : 8B 01 02 03 -> silent\n abort 02", kTimedOut, "8B 01 02 03"},
      {retrieve, "in 84 4 -> 77 14 01", 0, "77 14 01"},
      {retrieve, "in 84 4 -> silent\n abort 84", kTimedOut, ""},
      {bulk(0x01), "out 01 : 8B 01 02 03 -> ok", 0, "8B 01 02 03"},
      {bulk(0x81), "in 81 4 -> 09 08", 0, "09 08"},
      {bulk(0x81), "in 81 4 -> silent\n abort 81", kTimedOut, ""},
  };
  for (const auto& [call, script, status, moved] : cases) {
    SCOPED_TRACE(script);
    Bytes data = {0x8B, 1, 2, 3};
    Length length = 4;
    bus_.Play(script);
    EXPECT_EQ(call(data.data(), length), status);
    data.resize(length);
    EXPECT_EQ(HexText(data), moved);
  }
}

TEST_F(StreamTest, SwvDataIsAppendedAndNothingWithinTheTimeoutIsAFailure) {
  CTzWfxDevice device(0, true);  // which would take another mode for one to translate in
  Bytes data = {0xAA};
  bus_.Play("in 86 512 -> 01 02 03");
  EXPECT_EQ(device.GetSWVData(data), 0U);
  EXPECT_EQ(HexText(data), "AA 01 02 03");
  bus_.Play("in 86 512 -> silent\n abort 86");
  EXPECT_EQ(ElapsedMs([&] { EXPECT_EQ(device.GetSWVData(data), kTimedOut); }), 100U);
  EXPECT_EQ(HexText(data), "AA 01 02 03");
}

TEST_F(ProbeTest, WithoutAReplyEndpointExchangesAreRefusedBeforeAnythingIsSent) {
  bus_.SetDevices({{.endpoints = {0x02}}});
  CTzDevice device(0, false);
  std::array<std::uint8_t, 2> bytes{};
  std::uint32_t length = 2;
  EXPECT_EQ(device.JTAG_BufferedIo(8, bytes.data(), false, nullptr, false), 6U);
  EXPECT_EQ(device.SWDXfer(1, bytes.data(), length, bytes.data()), 6U);
  EXPECT_EQ(length, 2U);
  EXPECT_EQ(device.RetrievePortAcquireResponse(length, bytes.data()), 6U);
  CTzWfxDevice wirefox(0, false);
  EXPECT_EQ(wirefox.I2COutXfer(2, bytes.data()), 5U);
}

}  // namespace
