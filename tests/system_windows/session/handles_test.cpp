// A server that runs for long: what its clients did leaves no handle open in it.
#include <algorithm>
#include <cstdio>
#include <functional>

#include "tests/system_windows/automation.h"
#include "tests/system_windows/client.h"
#include "tests/system_windows/session/handle_table.h"
#include "tests/system_windows/session/session.h"

namespace system_windows {
namespace {

using windows_host::ComPointer;

// As many as fit into the time, of each; calls are slow under Wine.
constexpr int kMost = 10000;
constexpr int kLeast = 100;
constexpr ULONGLONG kEnoughMs = 20000;

// Makes some at a time, until there are enough of them; gives their number, or 0 for a failure.
int MakeMany(const std::function<int()>& make) {
  const ULONGLONG end = GetTickCount64() + kEnoughMs;
  int made = 0;
  while (made < kMost && (made < kLeast || GetTickCount64() < end)) {
    const int more = make();
    if (more == 0) return 0;
    made += more;
  }
  return made;
}

// An array that a call gave.
class Received {
 public:
  Received() = default;
  ~Received() { SafeArrayDestroy(array_); }
  Received(const Received&) = delete;
  Received& operator=(const Received&) = delete;
  SAFEARRAY** Receive() { return &array_; }

 private:
  SAFEARRAY* array_ = nullptr;
};

class Handles : public Session {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(Session::SetUp());
    ASSERT_NO_FATAL_FAILURE(InstallAll());
    hold_ = Hold();
    ASSERT_TRUE(AllProbesCome());
    Json("mode WFX0001 JTAG");
    Json("targets WFX0001");
    const auto servers = ProcessesOf(program());
    ASSERT_EQ(servers.size(), 1u);
    server_ = servers[0];
    object_ = Connect();
    ASSERT_TRUE(object_);
    ASSERT_EQ(CoGetClassObject(api::kClassId, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory,
                               factory_.ReceiveVoid()),
              S_OK);
    const KernelHandle mutex(CreateMutexW(nullptr, FALSE, nullptr));
    mutex_kind_ = KindOf(mutex.Get());
    ASSERT_NE(mutex_kind_, 0u);
  }

  // One object, which is used once.
  bool MakeObject() {
    ComPointer<ITzWirefox_v3> object;
    LONG version = 0;
    return factory_->CreateInstance(nullptr, api::kInterfaceIdV3, object.ReceiveVoid()) == S_OK &&
           object->GetVersion(&version) == S_OK && version == 0x02000200;
  }

  // Every kind of call in turn: with outputs of every kind, with traffic of the probe, with a
  // session, and in vain. The number of calls that were made, all as they should be; or 0.
  int MakeCalls(bool with_list) {
    LONG number = 0;
    TzWFXStatus status = {};
    Bstr location;
    Received names;
    Received reply;
    std::int64_t session = 0;
    const LONG self = static_cast<LONG>(GetCurrentProcessId());
    const bool good =
        object_->GetVersion(&number) == S_OK &&
        object_->GetDevicesChangedLocation(location.Receive()) == S_OK &&
        Gives(TzErrorCode::SUCCESS, object_->GetWirefoxStatus(probe_.Get(), &status, &error_)) &&
        Gives(TzErrorCode::SUCCESS,
              object_->SetLedState(probe_.Get(), TzLed::LED_1_RED, TzLedState::ON, &error_)) &&
        Gives(TzErrorCode::INVALID_PARAM, object_->GetHwRevID(nobody_.Get(), &number, &error_)) &&
        Gives(TzErrorCode::SUCCESS,
              object_->AcquireDevice(probe_.Get(), 0, self, &session, &error_)) &&
        Gives(TzErrorCode::SUCCESS,
              object_->SendJtagPacket(packet_, 1, session, reply.Receive(), &error_)) &&
        Gives(TzErrorCode::SUCCESS, object_->ReleaseDevice(session, &error_)) &&
        Gives(TzErrorCode::NOT_ACQUIRED, object_->ReleaseDevice(session, &error_)) &&
        (!with_list ||
         Gives(TzErrorCode::SUCCESS, object_->EnumerateWirefoxs(names.Receive(), &error_)));
    if (!good) return 0;
    ++sessions_;
    return with_list ? 10 : 9;
  }

  // What is open in the server, without the mutexes of sessions: these stay for as long as the
  // probe's targets do, so that no handle of a session is ever given twice.
  HandleCounts Open() const {
    HandleCounts counts = CountHandles(server_);
    counts[mutex_kind_] -= sessions_;
    return counts;
  }

  DWORD server_ = 0;

 private:
  bool Gives(TzErrorCode expected, HRESULT status) const {
    return status == S_OK && error_ == expected;
  }

  Apartment apartment_;
  std::unique_ptr<Client> hold_;
  ComPointer<ITzWirefox_v3> object_;
  ComPointer<IClassFactory> factory_;
  const Bstr probe_{L"WFX0001"};
  const Bstr nobody_{L"nobody"};
  SAFEARRAY* const packet_ = SafeArrayCreateVector(VT_UI1, 0, 16);
  TzErrorCode error_ = TzErrorCode::UNKNOWN;
  unsigned mutex_kind_ = 0;
  int sessions_ = 0;
};

bool NoneMoreThan(const HandleCounts& before, const HandleCounts& now) {
  return std::ranges::all_of(now, [&](const auto& kind) {
    const auto was = before.find(kind.first);
    return kind.second <= (was == before.end() ? 0 : was->second);
  });
}

// Ten thousand of each where the machine is fast enough; how many they were is in the test's
// record.
TEST_F(Handles, ObjectsAndCallsOfAMinuteLeaveNoneBehind) {
  // What is made once and kept, such as the threads that serve the calls, is there from now on.
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(MakeObject());
    ASSERT_NE(MakeCalls(true), 0);
  }
  const HandleCounts before = Open();
  ASSERT_FALSE(before.empty());
  const int objects = MakeMany([this] { return MakeObject() ? 1 : 0; });
  ASSERT_NE(objects, 0);
  const int calls = MakeMany([this, round = 0]() mutable { return MakeCalls(round++ % 20 == 0); });
  ASSERT_NE(calls, 0);
  std::printf("%d objects, %d calls\n", objects, calls);
  RecordProperty("objects", objects);
  RecordProperty("calls", calls);
  // Other threads of the server hold some for a moment; threads that have nothing to do end.
  EXPECT_TRUE(WaitUntil([&] { return NoneMoreThan(before, Open()); }))
      << testing::PrintToString(before) << " became " << testing::PrintToString(Open());
}

}  // namespace
}  // namespace system_windows
