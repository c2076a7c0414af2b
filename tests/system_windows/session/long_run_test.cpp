// A server that runs for long: what its clients did leaves nothing behind in it.
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <cstddef>

#include "tests/system/harness.h"
#include "tests/system_windows/automation.h"
#include "tests/system_windows/client.h"
#include "tests/system_windows/session/handle_table.h"

namespace system_windows {
namespace {

using windows_host::ComPointer;

// Of thirteen calls, with two objects to each; every tenth has a session of its own.
constexpr int kRounds = 1000;
constexpr int kRoundsOfASession = 10;

// What the server's memory may grow by over the last three quarters of the rounds: more than two
// threads take that begin late, and less than any text, array or object that each round leaves.
constexpr std::ptrdiff_t kMaxGrowth = 64 << 10;
constexpr ULONG kPacketBytes = 256;

class LongRun : public system_test::SystemTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(Begin());
    const auto servers = ProcessesOf(program());
    ASSERT_EQ(servers.size(), 1u);
    server_ = servers[0];
    object_ = Connect();
    ASSERT_TRUE(object_);
    factory_ = ClassObject();
    ASSERT_TRUE(factory_);
    ASSERT_EQ(factory_->CreateInstance(nullptr, IID_IDispatch, kept_.ReceiveVoid()), S_OK);
  }

  // The board's list of targets is that of the mode from now on. In this one, one stands for
  // whatever is connected, and what is sent to the board comes back; without a mode there is none.
  bool ReplaceTargets(TzTransferMode mode) {
    Array targets;
    return Succeeds(object_->SetMode(board_.Get(), mode, 0, self_, &error_)) &&
           Succeeds(object_->EnumerateDevices(board_.Get(), targets.Receive(), &error_));
  }

  // As scripts make it, and used once. (Wine's own marshaller for the class's interface keeps two
  // kilobytes for each object that has had it.)
  bool MakeObject() {
    ComPointer<IDispatch> object;
    UINT count = 0;
    return factory_->CreateInstance(nullptr, IID_IDispatch, object.ReceiveVoid()) == S_OK &&
           object->GetTypeInfoCount(&count) == S_OK && count == 1;
  }

  // Each with a text or an array, in one direction or in both.
  bool MakeCalls() {
    LONG number = 0;
    for (int i = 0; i < 4; ++i) {
      Bstr location;
      Array targets;
      Array sent;
      if (object_->GetDevicesChangedLocation(location.Receive()) != S_OK ||
          location.Text().empty() ||
          !Succeeds(object_->EnumerateDevices(board_.Get(), targets.Receive(), &error_)) ||
          !Succeeds(object_->BulkTransfer(TzWirefoxEndPoint::EP1, packet_.Get(), NextDirection(),
                                          session_, sent.Receive(), &error_))) {
        return false;
      }
    }
    return object_->GetHwRevID(nobody_.Get(), &number, &error_) == S_OK &&
           error_ == TzErrorCode::INVALID_PARAM;
  }

  bool BeginSession() {
    return Succeeds(object_->AcquireDevice(board_.Get(), 0, self_, &session_, &error_));
  }
  bool EndSession() {
    return Succeeds(object_->ReleaseDevice(session_, &error_)) &&
           object_->ReleaseDevice(session_, &error_) == S_OK && error_ == TzErrorCode::NOT_ACQUIRED;
  }

  // The number of rounds that went as they should.
  int Run(int rounds) {
    for (int round = 0; round < rounds; ++round) {
      const bool good = (round % kRoundsOfASession != 0 || BeginSession()) && MakeObject() &&
                        MakeObject() && MakeCalls() &&
                        ((round + 1) % kRoundsOfASession != 0 || EndSession());
      if (!good) return round;
    }
    return rounds;
  }

  HandleCounts Handles() const { return CountHandles(server_); }

  std::ptrdiff_t Memory() const {
    const KernelHandle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, server_));
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof(counters);
    K32GetProcessMemoryInfo(process.Get(), &counters, sizeof(counters));
    return static_cast<std::ptrdiff_t>(counters.PagefileUsage);
  }

 private:
  // There and back in turn.
  CHAR NextDirection() {
    reads_ = !reads_;
    return reads_ ? 1 : 0;
  }
  bool Succeeds(HRESULT status) const { return status == S_OK && error_ == TzErrorCode::SUCCESS; }

  Apartment apartment_;
  ComPointer<ITzWirefox_v3> object_;
  ComPointer<IClassFactory> factory_;
  // Wine's server end of an interface can wait for ever for a call that has just ended when the
  // last reference to any object's interface of that kind goes. This one keeps the others from
  // being it.
  ComPointer<IDispatch> kept_;
  const Bstr board_{L"EVK0001"};
  const Bstr nobody_{L"nobody"};
  const LONG self_ = static_cast<LONG>(GetCurrentProcessId());
  const Array packet_{SafeArrayCreateVector(VT_UI1, 0, kPacketBytes)};
  TzErrorCode error_ = TzErrorCode::UNKNOWN;
  std::int64_t session_ = 0;
  bool reads_ = true;
  DWORD server_ = 0;
};

bool NoneMoreThan(const HandleCounts& before, const HandleCounts& now) {
  return std::ranges::all_of(now, [&](const auto& kind) {
    const auto was = before.find(kind.first);
    return kind.second <= (was == before.end() ? 0 : was->second);
  });
}

TEST_F(LongRun, ManyObjectsAndCallsLeaveNothingBehindButTheMutexesOfTheTargets) {
  // What is made once and kept, such as the threads that serve the calls, is there from now on.
  ASSERT_TRUE(ReplaceTargets(TzTransferMode::VSER));
  ASSERT_EQ(Run(kRoundsOfASession), kRoundsOfASession);
  ASSERT_TRUE(ReplaceTargets(TzTransferMode::IDLE));
  const HandleCounts before = Handles();
  ASSERT_FALSE(before.empty());
  ASSERT_TRUE(ReplaceTargets(TzTransferMode::VSER));

  ASSERT_EQ(Run(kRounds / 4), kRounds / 4);
  const std::ptrdiff_t early = Memory();
  ASSERT_NE(early, 0);
  ASSERT_EQ(Run(3 * kRounds / 4), 3 * kRounds / 4);
  EXPECT_LE(Memory() - early, kMaxGrowth);
  // The mutexes of the sessions are closed now, and not before.
  EXPECT_FALSE(NoneMoreThan(before, Handles()));
  ASSERT_TRUE(ReplaceTargets(TzTransferMode::IDLE));
  // Other threads of the server hold some for a moment; threads that have nothing to do end.
  EXPECT_TRUE(WaitUntil([&] { return NoneMoreThan(before, Handles()); }))
      << testing::PrintToString(before) << " became " << testing::PrintToString(Handles());
}

}  // namespace
}  // namespace system_windows
