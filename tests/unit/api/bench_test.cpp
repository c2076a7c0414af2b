// Sessions of a client over the simulated bench: chains and targets of all kinds, packets of odd
// lengths, faults on the way.
#include <span>

#include "tests/unit/api/bench_fixture.h"

namespace {

using Strings = std::vector<std::wstring>;

sim::Fault EndpointFault(sim::FaultKind kind, std::uint8_t endpoint) {
  sim::Fault fault;
  fault.kind = kind;
  fault.endpoint = endpoint;
  return fault;
}

class TwoTaps : public BenchTest {
 protected:
  TwoTaps()
      : BenchTest(R"("jtag": {"taps": [{"idcode": "0x1BA01477"},
                                       {"idcode": "0x0684617F", "ir_length": 5}]})") {
    SetMode(TzTransferMode::JTAG);
  }
};

TEST_F(TwoTaps, ChainIsListedFromTdiToTdoAndReadThroughASession) {
  EXPECT_EQ(Scan(), (Strings{L"1BA014770", L"0684617F0"}));
  Acquire(1);
  EXPECT_EQ(Scan(), (Strings{L"1BA014770", L"0684617F1"}));
  // Reset, Shift-DR, then 64 cycles through both IDCODE registers; the one next to TDO comes first.
  Bytes cycles = {0xF0, 0xF0, 0xF0, 0x20};
  cycles.resize(cycles.size() + 16, 0);
  EXPECT_EQ(Jtag(cycles)->size(), 10u);
  const Bytes reply = *Jtag(cycles);
  EXPECT_EQ(Hex(std::span(reply).subspan(2)), "7F 61 84 06 77 14 A0 1B");
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  EXPECT_EQ(log_.Take(), std::vector<std::string>{});
}

TEST_F(TwoTaps, PacketsOfEveryLengthClockFourCyclesAByte) {
  Scan();
  Acquire(0);
  // Into Shift-DR and back to Run-Test/Idle, so that each packet starts from the same state.
  const Bytes to_shift = {0xF0, 0x20};
  for (const std::size_t length : {0u, 1u, 2u, 3u, 5u, 17u, 63u}) {
    SCOPED_TRACE(length);
    Jtag(to_shift);
    bench_->Record("P1");
    const Bytes packet(length, 0x0F);
    const auto reply = Jtag(packet);
    EXPECT_EQ(error_, TzErrorCode::SUCCESS);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->size(), (length + 1) / 2);
    // The missing byte of the last pair goes out as zero.
    Bytes sent = packet;
    sent.resize((length + 1) / 2 * 2, 0);
    EXPECT_EQ(Sent(0x02), sent);
  }
}

TEST_F(TwoTaps, OddPacketDoesNotClockBeyondItsEnd) {
  Scan();
  Acquire(0);
  // Shift-DR is entered and 4 cycles of it are clocked by a packet of 5 bytes; what comes next must
  // be the fifth bit of the IDCODE, not the ninth.
  EXPECT_EQ(Jtag({0xF0, 0xF0, 0xF0, 0x20, 0x00})->size(), 3u);
  const Bytes rest = *Jtag(Bytes(8, 0));
  EXPECT_EQ(Hex(rest), Hex(Bytes{0x17, 0x46, 0x68, 0x70}));
}

TEST_F(TwoTaps, UnreadReplyIsAllZeros) {
  Scan();
  Acquire(0);
  const auto reply = Jtag({0xF0, 0x20, 0x00, 0x00, 0x00}, false);
  EXPECT_EQ(reply, Bytes(3, 0));
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
}

TEST_F(TwoTaps, FailedPacketGivesItsArrayAndAnError) {
  Scan();
  Acquire(0);
  ASSERT_TRUE(bench_->ArmFault("P1", EndpointFault(sim::FaultKind::kSilent, 0x84)));
  const auto reply = Jtag({0xF0, 0x20, 0x00, 0x00});
  EXPECT_EQ(error_, TzErrorCode::WFX_ERROR);
  ASSERT_TRUE(reply.has_value());
  EXPECT_EQ(reply->size(), 2u);
  const std::vector<std::string> lines = log_.Take();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "[CTzWirefox::SendJtagPacket]Error 6 occured.");
  // The pipes are usable again.
  Jtag({0xF0, 0x20});
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
}

TEST_F(TwoTaps, SessionEndsWithItsProbe) {
  Scan();
  const std::int64_t handle = Acquire(0);
  ASSERT_TRUE(bench_->Unplug("P1"));
  Result names;
  EXPECT_EQ(object_->EnumerateWirefoxs(&names, &error_), S_OK);
  EXPECT_EQ(names.AsStrings(), Strings{L"E1"});
  EXPECT_EQ(object_->ReleaseDevice(handle, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::NOT_ACQUIRED);
  // It comes back as a new attachment, without targets and idle.
  ASSERT_TRUE(bench_->Plug("P1"));
  Result again;
  EXPECT_EQ(object_->EnumerateWirefoxs(&again, &error_), S_OK);
  EXPECT_EQ(again.AsStrings(), (Strings{L"E1", L"P1"}));
  EXPECT_EQ(object_->AcquireDevice(Text(L"P1"), 0, OwnPid(), &handle_, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::INVALID_DEVICE);
}

TEST_F(TwoTaps, ChangedChainEndsTheSession) {
  Scan();
  const std::int64_t handle = Acquire(0);
  ASSERT_TRUE(bench_->Rearrange("P1", R"({"jtag": {"taps": [{"idcode": "0x1BA01477"}]}})"));
  EXPECT_EQ(Scan(), Strings{L"1BA014770"});
  Jtag({0xF0});
  EXPECT_EQ(error_, TzErrorCode::NOT_ACQUIRED);
  EXPECT_EQ(object_->ReleaseDevice(handle, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::NOT_ACQUIRED);
}

TEST_F(TwoTaps, ChainsOfAllKindsAreListed) {
  Strings bypass(12, L"000000000");
  const struct {
    const char* jtag;
    Strings listed;
  } kCases[] = {
      {R"({"tdo": "stuck-high"})", {}},
      {R"({"tdo": "stuck-low"})", {}},
      {R"({"taps": []})", {}},
      {R"({"taps": [{"ir_length": 4}]})", {L"000000000"}},
      // 33 bits, of which 32 are read: the unread one is a device in bypass, or a top bit.
      {R"({"taps": [{"ir_length": 4}, {"idcode": "0x1BA01477"}]})", {L"000000000", L"1BA014770"}},
      {R"({"taps": [{"idcode": "0x1BA01477"}, {"ir_length": 4}]})", {L"1BA014770", L"000000000"}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.jtag);
    std::string change = R"({"jtag": )";
    change += test.jtag;
    change += "}";
    ASSERT_TRUE(bench_->Rearrange("P1", change));
    EXPECT_EQ(Scan(), test.listed);
  }
}

TEST_F(TwoTaps, LongestChainIsListedAndALongerOneIsNot) {
  const auto chain = [](int devices) {
    std::string text = R"({"jtag": {"taps": [)";
    for (int i = 0; i < devices; ++i) {
      if (i != 0) text += ",";
      text += R"({"idcode": "0x0684617F"})";
    }
    return text + "]}}";
  };
  ASSERT_TRUE(bench_->Rearrange("P1", chain(100)));
  EXPECT_EQ(Scan(), Strings(100, L"0684617F0"));
  ASSERT_TRUE(bench_->Rearrange("P1", chain(101)));
  EXPECT_EQ(Scan(), Strings{}) << "its two measurements cannot agree";
}

TEST_F(TwoTaps, FaultDuringAScanEmptiesTheListAndEndsSessions) {
  Scan();
  const std::int64_t handle = Acquire(0);
  ASSERT_TRUE(bench_->ArmFault("P1", EndpointFault(sim::FaultKind::kStall, 0x02)));
  EXPECT_EQ(Scan(), Strings{});
  EXPECT_EQ(object_->ReleaseDevice(handle, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::NOT_ACQUIRED);
  EXPECT_EQ(Scan(), (Strings{L"1BA014770", L"0684617F0"}));
}

class OneSwdTarget : public BenchTest {
 protected:
  OneSwdTarget()
      : BenchTest(R"("swd": {"idcode": "0x2BA01477",
                             "memory": {"address": "0x20000000", "size": 256}},
                     "i2c": {"address": "0x50", "size": 16})") {}
};

TEST_F(OneSwdTarget, IsListedAndAnswersPackets) {
  SetMode(TzTransferMode::SWD);
  EXPECT_EQ(Scan(), Strings{L"2BA014770"});
  Acquire(0);
  EXPECT_EQ(Hex(*Swd({0xA5})), "77 14 A0 2B 01");
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  EXPECT_EQ(Scan(), Strings{L"2BA014771"});
  SetMode(TzTransferMode::SWD_SWV);
  EXPECT_EQ(Hex(*Swd({0xA5})), "77 14 A0 2B 01");
  Result trace;
  EXPECT_EQ(object_->RequestSwvPackets(handle_, &trace, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::WFX_ERROR) << "no trace data";
  EXPECT_FALSE(trace.IsSet());
  EXPECT_EQ(object_->SetupSWV(Text(L"P1"), 1000000, 0, 1, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  ASSERT_TRUE(bench_->PushSwv("P1", {1, 2, 3}));
  Result more;
  EXPECT_EQ(object_->RequestSwvPackets(handle_, &more, &error_), S_OK);
  EXPECT_EQ(more.AsBytes(), (Bytes{1, 2, 3}));
}

TEST_F(OneSwdTarget, ModeThatTheProbeReportsOpensAndShutsTransfers) {
  SetMode(TzTransferMode::I2C);
  EXPECT_EQ(Scan(), Strings{L"000000000"});
  Acquire(0);
  Swd({0xA5});
  EXPECT_EQ(error_, TzErrorCode::INVALID_MODE);
  TzWFXStatus status = {};
  EXPECT_EQ(object_->GetWirefoxStatus(Text(L"P1"), &status, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  EXPECT_EQ(status.ACTIVE_INTERFACE, 2);
  // Write the memory's pointer, then read back: the engine's packet is address, data.
  Result reply;
  EXPECT_EQ(object_->SendI2CPacket(Array({0xA0, 0x00, 0x5A}), handle_, 0, &reply, &error_), S_OK);
  ASSERT_TRUE(reply.IsSet());
  EXPECT_EQ(reply.AsBytes()->size(), 5u);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  EXPECT_EQ(bench_->I2cMemory("P1", 0x50).at(0), 0x5A);
}

TEST_F(OneSwdTarget, PortAcquireCatchesATargetThatAnswers) {
  SetMode(TzTransferMode::SWD);
  EXPECT_EQ(object_->PortAcquire(Text(L"P1"), TzProgrammingMode::RESET, 0, 0, 0, 0, 5, &error_),
            S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  clock_.Advance(1000);
  LONG status = 77;
  EXPECT_EQ(object_->GetPortAcquireStatus(Text(L"P1"), 0, &status, &error_), S_OK);
  // Without the key writes the response is the read's own five bytes: too short to be judged.
  EXPECT_EQ(status, 1);
  EXPECT_EQ(error_, TzErrorCode::WFX_ERROR);

  EXPECT_EQ(object_->PortAcquire(Text(L"P1"), TzProgrammingMode::RESET, 0, 1, 0x20000000,
                                 0x12345678, 5, &error_),
            S_OK);
  clock_.Advance(1000);
  EXPECT_EQ(object_->GetPortAcquireStatus(Text(L"P1"), 0, &status, &error_), S_OK);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
}

}  // namespace
