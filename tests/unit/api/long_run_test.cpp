// Ten thousand objects, and calls with texts and arrays, in one process: the class object, the
// objects and the probes' own classes keep nothing of them.
#include "api/class_factory.h"
#include "tests/unit/api/bench_fixture.h"
#include "tests/unit/api/process_resources.h"

namespace {

constexpr int kObjects = 10000;
constexpr int kObjectsOfATransfer = 10;

// A board that sends back what it gets, with one target for whatever is connected.
class LongRun : public BenchTest {
 protected:
  LongRun() : BenchTest(R"("kind": "wirefox")") { SetBoardMode(TzTransferMode::VSER); }
  ~LongRun() override { factory_->Release(); }

  // Also replaces the board's targets.
  void SetBoardMode(TzTransferMode mode) {
    EXPECT_EQ(object_->SetMode(board_, mode, 0, OwnPid(), &error_), S_OK);
    Result targets;
    EXPECT_EQ(object_->EnumerateDevices(board_, &targets, &error_), S_OK);
  }

  bool Succeeds(HRESULT status) const { return status == S_OK && error_ == TzErrorCode::SUCCESS; }

  // An object, and calls with texts.
  bool UseObject() {
    void* created = nullptr;
    if (factory_->CreateInstance(nullptr, api::kInterfaceIdV3, &created) != S_OK) return false;
    auto* object = static_cast<ITzWirefox_v3*>(created);
    BSTR location = nullptr;
    Result targets;
    const bool good = object->GetDevicesChangedLocation(&location) == S_OK &&
                      Succeeds(object->EnumerateDevices(board_, &targets, &error_));
    SysFreeString(location);
    return object->Release() == 0 && good;
  }

  // Arrays there and back, in a session of their own.
  bool Transfer(std::uint8_t byte) {
    const Array packet(Bytes(64, byte));
    Result sent, received;
    return Succeeds(object_->AcquireDevice(board_, 0, OwnPid(), &handle_, &error_)) &&
           Succeeds(
               object_->BulkTransfer(TzWirefoxEndPoint::EP1, packet, 0, handle_, &sent, &error_)) &&
           Succeeds(object_->BulkTransfer(TzWirefoxEndPoint::EP1, packet, 1, handle_, &received,
                                          &error_)) &&
           received.AsBytes() == Bytes(64, byte) &&
           Succeeds(object_->ReleaseDevice(handle_, &error_));
  }

  void UseObjects(int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(UseObject()) << i;
      ASSERT_TRUE(i % kObjectsOfATransfer != 0 || Transfer(static_cast<std::uint8_t>(i))) << i;
    }
  }

  const Text board_{L"E1"};
  api::TzWirefoxFactory* const factory_ = api::TzWirefoxFactory::Create(module_);
};

TEST_F(LongRun, TenThousandObjectsAndTheirCallsLeaveNothingBehind) {
  const LONG locks = module_.GetLockCount();
  UseObjects(kObjects / 100);
  SetBoardMode(TzTransferMode::IDLE);
  const int handles = OpenHandles();
  // The mutexes of sessions are kept until the board's targets are replaced.
  SetBoardMode(TzTransferMode::VSER);
  UseObjects(kObjects / 2);
  SetBoardMode(TzTransferMode::IDLE);
  const std::size_t memory = PrivateMemory();
  SetBoardMode(TzTransferMode::VSER);
  UseObjects(kObjects / 2);
  SetBoardMode(TzTransferMode::IDLE);
  EXPECT_LE(OpenHandles(), handles);
  EXPECT_LE(PrivateMemory(), memory + (64u << 10)) << "13 bytes for an object would be more";
  EXPECT_EQ(module_.GetLockCount(), locks);
}

}  // namespace
