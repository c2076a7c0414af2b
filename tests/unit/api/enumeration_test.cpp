// The list of targets: what is scanned in which interface, and what happens to sessions when the
// list changes. Chains are scanned over the bench, in bench_test.cpp.
#include <functional>

#include "api/jtag_chain.h"
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
  const Calls kSwdScan = {"GetDeviceStatus()", "SWD_CReset()", "SWDXfer(A5, room 5)"};
  const Calls kNoScan = {"GetDeviceStatus()"};
  const struct {
    std::uint8_t active;
    Strings listed;
    Calls calls;
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
}

TEST_F(Enumeration, SessionsEndWhenAnythingElseIsFound) {
  const struct {
    const char* name;
    std::function<void()> change;
  } kChanges[] = {
      {"another device", [&] { device_->reply[0] = 0x78; }},
      {"no device", [&] { device_->reply[4] = 4; }},
      {"a mode without targets", [&] { device_->status_reply[5] = 8; }},
      {"a placeholder", [&] { device_->status_reply[5] = 2; }},
      {"a failed reset",
       [&] {
         device_->failing = {{"SWD_CReset", 5}};
       }},
      {"a failed transfer",
       [&] {
         device_->failing = {{"SWDXfer", 8}};
       }},
  };
  for (const auto& test : kChanges) {
    SCOPED_TRACE(test.name);
    device_->failing.clear();
    device_->reply = kIdcodeReply;
    Scan(4);
    ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
    const HANDLE kept = probe_.targets[0].sessionMutex;
    EXPECT_EQ(Release(handle_), TzErrorCode::SUCCESS);
    ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
    const HANDLE mutex = probe_.targets[0].sessionMutex;
    EXPECT_NE(kept, mutex) << "the value of a handle that a client may still hold";
    test.change();
    Scan(device_->status_reply[5]);
    EXPECT_EQ(Release(handle_), TzErrorCode::NOT_ACQUIRED);
    EXPECT_EQ(WaitForSingleObject(kept, 0), WAIT_FAILED) << "an ended session's mutex is open";
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_FAILED) << "the session's mutex is still open";
    for (const TargetRecord& target : probe_.targets) EXPECT_EQ(target.ownerPID, 0u);
  }
}

// A stream of bits, first bit first.
Bytes Pack(const std::string& bits) {
  Bytes bytes((bits.size() + 7) / 8);
  for (std::size_t i = 0; i < bits.size(); ++i) {
    if (bits[i] == '1') bytes[i / 8] |= static_cast<std::uint8_t>(1u << (i % 8));
  }
  return bytes;
}

// The bits of a chain as they leave it: an IDCODE's lowest first, a zero for a device in bypass.
constexpr std::uint32_t kBypass = 0;
std::string BitsOf(const std::vector<std::uint32_t>& devices) {
  std::string bits;
  for (const std::uint32_t device : devices) {
    const int length = device == kBypass ? 1 : 32;
    for (int i = 0; i < length; ++i) bits.push_back((device >> i & 1) != 0 ? '1' : '0');
  }
  return bits;
}

// A chain is read in whole bytes: up to 7 bits at its end stay unread, and count as zeros.
TEST(JtagChain, BitsAreDividedIntoDevicesLastOutFirstAlsoWhereTheyAreUnread) {
  const std::uint32_t kA = 0x1BA01477;
  const std::uint32_t kB = 0x0684617F;
  const std::uint32_t kTopBitsSet = 0xFBA01477;
  const struct {
    const char* name;
    std::string bits;  // as they leave the chain
    std::vector<std::uint32_t> ids;
  } kCases[] = {
      {"two with IDCODE", BitsOf({kB, kA}), {kA, kB}},
      {"all in bypass", "00000000", std::vector<std::uint32_t>(8, 0)},
      {"bypass first out", BitsOf({0, 0, 0, 0, kA, 0, 0, 0, 0}), {0, 0, 0, 0, kA, 0, 0, 0, 0}},
      {"empty", "", {}},
      {"IDCODE first out, bypass unread", BitsOf({kA, 0}), {0, kA}},
      {"bypass first out, top bit of the IDCODE unread", BitsOf({0, kA}), {kA, 0}},
      {"seven bits of the IDCODE unread",
       BitsOf({0, 0, 0, 0, 0, 0, 0, kTopBitsSet}),
       {kTopBitsSet & 0x01FFFFFF, 0, 0, 0, 0, 0, 0, 0}},
      {"nothing read at all", "000", {0, 0, 0}},
  };
  for (const auto& test : kCases) {
    Bytes received = Pack(test.bits.substr(0, test.bits.size() / 8 * 8));
    received.shrink_to_fit();  // so that a read beyond it shows
    EXPECT_EQ(api::ParseChain(received, static_cast<std::uint32_t>(test.bits.size())), test.ids)
        << test.name;
  }
}

}  // namespace
