// Sessions of a client over the simulated bench: what only the real device classes can show.
#include "tests/unit/api/bench_fixture.h"

namespace {

class TwoTaps : public BenchTest {
 protected:
  TwoTaps() : BenchTest(kTwoTaps) {
    EXPECT_EQ(SetMode(TzTransferMode::JTAG), TzErrorCode::SUCCESS);
  }

  const Strings kBoth = {L"1BA014770", L"0684617F0"};
};

TEST_F(TwoTaps, ChainIsListedFromTdiToTdoAndShiftedThroughASessionByAsManyCyclesAsItSends) {
  EXPECT_EQ(Targets(L"P1"), kBoth);
  EXPECT_EQ(Acquire(L"P1", 1), TzErrorCode::SUCCESS);
  EXPECT_EQ(Targets(L"P1"), (Strings{L"1BA014770", L"0684617F1"}));
  // Reset, Shift-DR, then 64 cycles through both IDCODE registers; the one next to TDO comes first.
  const Bytes cycles = {0xF0, 0xF0, 0xF0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(Jtag(cycles, 0), "00*10") << "what is not read is all zeros";
  for (const CHAR read : {1, 2, -1}) {
    EXPECT_EQ(Jtag(cycles, read).substr(6), "7F 61 84 06 77 14 A0 1B") << int{read};
  }
  // Shift-DR is entered and 4 cycles of it are clocked by a packet of 5 bytes; what comes next must
  // be the fifth bit of the IDCODE, not the ninth.
  EXPECT_EQ(Jtag({0xF0, 0xF0, 0xF0, 0x20, 0x00}, 0), "00 00 00");
  EXPECT_EQ(Jtag(Bytes(8, 0), 1), "17 46 68 70");
  EXPECT_EQ(TakeLog(), Lines{});
}

// Two registers announce the cycles, each written by a request with a reply of 16 bytes.
TEST_F(TwoTaps, ThePayloadOfEveryTransferIsCountedWhereOthersSeeItGrow) {
  EXPECT_EQ(Targets(L"P1"), kBoth);
  EXPECT_EQ(Acquire(L"P1", 1), TzErrorCode::SUCCESS);
  CTzUSBDevice& device = *FindProbeByName(L"P1")->device->GetUSBDevice();
  std::uint64_t shown = 0;
  device.ShowBytesMoved(&shown);
  Jtag(Bytes(20, 0), 1);
  const std::uint64_t first = shown;
  Jtag(Bytes(40, 0), 1);
  EXPECT_EQ(shown - first, 2 * 16 + 40 + 20);
  EXPECT_EQ(device.BytesMoved(), shown);
  device.ShowBytesMoved(nullptr);
}

TEST_F(TwoTaps, ChainsOfAllKindsAreListedAndAFaultEmptiesTheList) {
  const std::pair<std::string, Strings> kCases[] = {
      {R"({"tdo": "stuck-high"})", {}},
      {R"({"tdo": "stuck-low"})", {}},
      {R"({"taps": []})", {}},
      {R"({"taps": [{"ir_length": 4}]})", {L"000000000"}},
      // 33 bits, of which 32 are read: the unread one is a device in bypass, or a top bit.
      {R"({"taps": [{"ir_length": 4}, {"idcode": "0x1BA01477"}]})", {L"000000000", L"1BA014770"}},
      {R"({"taps": [{"idcode": "0x1BA01477"}, {"ir_length": 4}]})", {L"1BA014770", L"000000000"}},
      {R"({"taps": [{"idcode": "0x0684617F"}]})", {L"0684617F0"}},
  };
  for (const auto& [chain, listed] : kCases) {
    SCOPED_TRACE(chain);
    ASSERT_TRUE(bench_->Rearrange("P1", R"({"jtag": )" + chain + "}"));
    EXPECT_EQ(Targets(L"P1"), listed);
  }
  sim::Fault stall;
  stall.kind = sim::FaultKind::kStall;
  stall.endpoint = 0x02;
  ASSERT_TRUE(bench_->ArmFault("P1", stall));
  EXPECT_EQ(Targets(L"P1"), Strings{});
  EXPECT_EQ(Targets(L"P1"), Strings{L"0684617F0"});
}

class OneSwdTarget : public BenchTest {
 protected:
  OneSwdTarget()
      : BenchTest(R"("swd": {"idcode": "0x2BA01477",
                             "memory": {"address": "0x20000000", "size": 256}})") {}
};

TEST_F(OneSwdTarget, PortAcquireCatchesATargetThatAnswers) {
  EXPECT_EQ(SetMode(TzTransferMode::SWD), TzErrorCode::SUCCESS);
  // Without the key writes the response is the read's own five bytes: too short to be judged.
  for (const auto& [key_writes, outcome] :
       {std::pair{CHAR{0}, TzErrorCode::WFX_ERROR}, {CHAR{1}, TzErrorCode::SUCCESS}}) {
    LONG status = 77;
    EXPECT_EQ(Outcome(object_->PortAcquire(Text(L"P1"), TzProgrammingMode::RESET, 0, key_writes,
                                           0x20000000, 0x12345678, 5, &error_)),
              TzErrorCode::SUCCESS);
    clock_.Advance(1000);
    EXPECT_EQ(Outcome(object_->GetPortAcquireStatus(Text(L"P1"), 0, &status, &error_)), outcome);
    EXPECT_EQ(status, outcome == TzErrorCode::SUCCESS ? 0 : 1);
  }
}

}  // namespace
