// The list of targets: what is scanned in which interface and how, and what happens to sessions
// when the list changes. bench_test.cpp scans simulated chains.
#include "tests/unit/api/api_fixture.h"

namespace {

class Enumeration : public ApiTest {
 protected:
  Enumeration() : probe_(AddProbe(L"P1")) { device_->reply = kIdcodeReply; }

  // The list of a scan while the probe reports this interface.
  Strings Scan(std::uint8_t active) {
    device_->status_reply[5] = active;
    return Targets(L"P1");
  }

  static inline const Bytes kIdcodeReply = {0x0A, 0xBC, 0x34, 0x12, 1};
  ProbeEntry& probe_;
};

TEST_F(Enumeration, EachInterfaceHasItsWayToFindTargets) {
  const char* const kSwdScan = "GetDeviceStatus(); SWD_CReset(); SWDXfer(A5, room 5); ";
  const char* const kNoScan = "GetDeviceStatus(); ";
  const struct {
    std::uint8_t active;
    Strings listed;
    const char* calls;
  } kCases[] = {
      {0, {}, kNoScan},
      {2, {L"000000000"}, kNoScan},  // stands for whatever is connected
      {3, {}, kNoScan},
      {4, {L"1234BC0A0"}, kSwdScan},
      {8, {}, kNoScan},
      {12, {L"1234BC0A0"}, kSwdScan},
      {16, {L"000000000"}, kNoScan},
      {32, {}, kNoScan},
      {255, {}, kNoScan},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(int{test.active});
    probe_.mode = 1;  // the recorded mode plays no part
    EXPECT_EQ(Scan(test.active), test.listed);
    EXPECT_EQ(device_->TakeCalls(), test.calls);
    EXPECT_EQ(probe_.mode, 1u);
  }
}

TEST_F(Enumeration, SwdTargetIsThereWhenItsStatusIsGood) {
  const std::pair<std::uint8_t, bool> kCases[] = {{1, true},  {0xFB, true}, {4, false},
                                                  {5, false}, {0, false},   {2, false}};
  for (const auto& [status, there] : kCases) {
    device_->reply = {1, 0, 0, 0, status};
    EXPECT_EQ(Scan(4), there ? Strings{L"000000010"} : Strings{}) << int{status};
  }
}

TEST_F(Enumeration, SessionSurvivesScansThatFindTheSameOrCannotStart) {
  Scan(4);
  ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
  EXPECT_EQ(Scan(12), Strings{L"1234BC0A1"});
  device_->failing = {{"GetDeviceStatus", 31}};
  EXPECT_EQ(Scan(8), Strings{L"1234BC0A1"});
  EXPECT_EQ(Release(handle_), TzErrorCode::SUCCESS);
  EXPECT_EQ(Scan(8), Strings{L"1234BC0A0"});
  // A session without an owner is one.
  ASSERT_EQ(Acquire(L"P1", 0, 0), TzErrorCode::SUCCESS);
  EXPECT_EQ(Scan(8), Strings{L"1234BC0A1"});
}

TEST_F(Enumeration, SessionsEndWhenAnythingElseIsFound) {
  const struct {
    const char* what;
    std::uint8_t active;
    const char* reply;
    const char* failing;
  } kChanges[] = {
      {"another device", 4, "78 BC 34 12 01", ""},
      {"no device", 4, "0A BC 34 12 04", ""},
      {"no answer", 4, "", ""},
      {"a mode without targets", 8, "", ""},
      {"a placeholder", 2, "", ""},
      {"a failed reset", 4, "0A BC 34 12 01", "SWD_CReset"},
      {"a failed transfer", 4, "0A BC 34 12 01", "SWDXfer"},
  };
  for (const auto& [what, active, reply, failing] : kChanges) {
    SCOPED_TRACE(what);
    device_->failing.clear();
    device_->reply = kIdcodeReply;
    Scan(4);
    ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
    const HANDLE kept = probe_.targets[0].sessionMutex;
    EXPECT_TRUE(ReleaseMutex(kept) && WaitForSingleObject(kept, 0) == WAIT_OBJECT_0);
    EXPECT_EQ(Release(handle_), TzErrorCode::SUCCESS);
    EXPECT_FALSE(ReleaseMutex(kept)) << "an ended session's mutex is still owned";
    ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
    const HANDLE mutex = probe_.targets[0].sessionMutex;
    EXPECT_NE(kept, mutex) << "the value of a handle that a client may still hold";
    device_->reply = HexBytes(reply);
    device_->failing = {{failing, 5}};
    Scan(active);
    EXPECT_EQ(Release(handle_), TzErrorCode::NOT_ACQUIRED);
    EXPECT_EQ(WaitForSingleObject(kept, 0), WAIT_FAILED) << "an ended session's mutex is open";
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_FAILED) << "the session's mutex is still open";
    EXPECT_TRUE(probe_.endedSessions.empty()) << "will be closed once more";
    for (const TargetRecord& target : probe_.targets) EXPECT_EQ(target.ownerPID, 0u);
  }
}

// The operations of a scan of the chain, in which all bits of its length are then read.
std::string ChainScan(const std::string& read) {
  const std::string reset = "JTAG_BufferedIo(16, F0 F0 F0 20, not read, target); ";
  return "GetDeviceStatus(); JTAG_Reset(); " + reset +
         "JTAG_BufferedIo(3200, 0F*800, not read, target); "
         "JTAG_BufferedIo(3200, 00*800, read, target); "
         "JTAG_BufferedIo(3200, 0F*800, read, target); " +
         (read.empty() ? "" : reset + "JTAG_BufferedIo(" + read + ", read, target); ");
}

TEST_F(Enumeration, ChainIsResetMeasuredResetAgainAndReadInWholeBytes) {
  const Strings seven(7, L"000000000");
  Strings seven_last = seven;
  seven_last.insert(seven_last.begin(), L"01A014770");
  const struct {
    // What comes out: ones, then zeros, as long as the chain is; and the chain itself.
    const char* ones;
    const char* zeros;
    const char* bits;
    Strings listed;
    std::string read;  // cycles and stream
  } kCases[] = {
      {"FF*8 00*392",
       "00*8 FF*392",
       "7F 61 84 06 77 14 A0 1B",
       {L"1BA014770", L"0684617F0"},
       "64, 00*16"},
      {"FF 00*399", "00 FF*399", "00", Strings(8, L"000000000"), "8, 00 00"},
      {"FF*400", "00*400", "FF*400", Strings(100, L"FFFFFFFF0"), "3200, 00*800"},
      // Bits that are not read count as zeros: devices in bypass, or top bits of an IDCODE.
      {"FF*4 01 00*395", "00*4 FE FF*395", "77 14 A0 1B", {L"000000000", L"1BA014770"}, "32, 00*8"},
      {"FF*4 01 00*395", "00*4 FE FF*395", "EE 28 40 37", {L"1BA014770", L"000000000"}, "32, 00*8"},
      {"FF*4 7F 00*395", "00*4 80 FF*395", "80 3B 0A D0", seven_last, "32, 00*8"},
      {"7F 00*399", "80 FF*399", "FF", seven, "0, "},
      // Without an end of the zeros, the ones count.
      {"FF*4 00*396", "00*400", "77 14 A0 1B", {L"1BA014770"}, "32, 00*8"},
      // No chain; one without an end; and zeros that are not as long as the ones.
      {"00*400", "00*400", "", {}, ""},
      {"FF*400", "FF*400", "", {}, ""},
      {"FF*8 00*392", "00*8 FE FF*391", "", {}, ""},
      {"FF*8 00*392", "00*7 80 FF*392", "", {}, ""},
  };
  for (const auto& [ones, zeros, bits, listed, read] : kCases) {
    SCOPED_TRACE(std::string(ones) + ", " + zeros + ", " + bits);
    device_->tdo = {HexBytes(ones), HexBytes(zeros), HexBytes(bits)};
    EXPECT_EQ(Scan(1), listed);
    EXPECT_EQ(device_->TakeCalls(), ChainScan(read));
  }
}

TEST_F(Enumeration, ChainScanEndsWithItsFirstFailureAndAllSessionsWithIt) {
  const std::string whole = ChainScan("64, 00*16");
  const auto scan = [&](int failing_call) {
    device_->tdo = {HexBytes("FF*8 00*392"), HexBytes("00*8 FF*392"),
                    HexBytes("7F 61 84 06 77 14 A0 1B")};
    device_->failing_call = failing_call;
    return Scan(1);
  };
  std::size_t end = whole.find("; ") + 2;
  for (int call = 1; end < whole.size(); ++call) {
    scan(-1);
    device_->TakeCalls();
    ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
    end = whole.find("; ", end) + 2;
    EXPECT_EQ(scan(call), Strings{});
    EXPECT_EQ(device_->TakeCalls(), whole.substr(0, end));
    EXPECT_EQ(Release(handle_), TzErrorCode::NOT_ACQUIRED);
  }
}

}  // namespace
