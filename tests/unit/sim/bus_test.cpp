// The bench as a bus: arrivals, waiting transfers, faults.
#include <atomic>
#include <future>

#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;

constexpr char kEvkBench[] = R"({"probes": [{"name": "P", "kind": "evk"}]})";

// A board in the serial mode, which sends back what it receives.
class SerialBoard : public OneProbe {
 protected:
  SerialBoard() { PlugInSerialMode(); }
  void PlugInSerialMode() {
    Plug(kEvk);
    user_->Command(0x41, 0x110, 3);
  }
};

TEST(BenchBus, ListIsSortedAndPathsAreNeverUsedAgain) {
  const auto bench = Bench::Default();
  Events events(*bench);
  const std::string first = bench->PathOf("WFX0002");
  EXPECT_EQ(first, R"(\\?\usb#vid_0f0f&pid_1002#wfx0002#2)");
  EXPECT_TRUE(bench->Unplug("WFX0002"));
  EXPECT_FALSE(bench->Unplug("WFX0002"));
  EXPECT_TRUE(bench->Plug("WFX0002"));
  EXPECT_FALSE(bench->Plug("WFX0002"));
  EXPECT_FALSE(bench->Plug("nobody"));
  const std::string second = bench->PathOf("WFX0002");
  EXPECT_THAT(events.Wait(2), ElementsAre("-" + first, "+" + second));
  EXPECT_NE(first, second);
  EXPECT_EQ(bench->OpenDevice(first), nullptr);
  const auto paths = bench->ListDevices();
  EXPECT_EQ(paths.size(), 3u);
  EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
}

// Plugs again from within the removal: events stay in order, one after another.
TEST(BenchBus, ListenerMayChangeTheBenchWhileItIsTold) {
  Bench bench(kEvkBench);
  struct Replug : probe_driver::UsbBusListener {
    explicit Replug(Bench& b) : bench(b) {}
    void OnDeviceArrived(const std::string&) override { events += inside ? "nested" : "+"; }
    void OnDeviceRemoved(const std::string&) override {
      inside = true;
      bench.Plug("P");
      events += "-";
      inside = false;
    }
    Bench& bench;
    bool inside = false;
    std::string events;
  } replug(bench);
  bench.SetListener(&replug);
  bench.Unplug("P");
  EXPECT_EQ(replug.events, "-+");
  bench.SetListener(nullptr);
}

TEST(BenchBus, RemovedListenerIsNoLongerBeingCalled) {
  Bench bench(kEvkBench);
  struct Slow : probe_driver::UsbBusListener {
    void OnDeviceArrived(const std::string&) override {}
    void OnDeviceRemoved(const std::string&) override {
      called.set_value();
      go_on.get_future().wait();
      finished = true;
    }
    std::promise<void> called, go_on;
    std::atomic<bool> finished{false};
  } slow;
  bench.SetListener(&slow);
  std::thread unplugger([&] { bench.Unplug("P"); });
  slow.called.get_future().wait();
  std::thread remover([&] {
    bench.SetListener(nullptr);
    EXPECT_TRUE(slow.finished);
  });
  slow.go_on.set_value();
  remover.join();
  unplugger.join();
}

TEST_F(SerialBoard, AnswersWaitingTransfersInOrderOfSubmission) {
  Awaited first(0x81, Bytes(2)), second(0x81, Bytes(2));
  user_->device().Submit(first.transfer());
  user_->device().Submit(second.transfer());
  EXPECT_FALSE(first.ended() || second.ended());
  user_->Out(0x01, {1, 2, 3});
  EXPECT_THAT(first.data(), ElementsAre(1, 2));
  EXPECT_THAT(second.data(), ElementsAre(3, 0));
  EXPECT_EQ(second.actual(), 1u);
}

TEST(BenchBus, EachWayToEndATransferEndsThoseItNames) {
  auto bench = std::make_unique<Bench>(kEvkBench);
  const std::string path = bench->PathOf("P");
  auto mine = bench->OpenDevice(path);
  auto other = bench->OpenDevice(path);
  Awaited a(0x81, Bytes(64)), b(0x81, Bytes(64)), c(0x86, Bytes(64)), d(0x81, Bytes(64));
  for (Awaited* transfer : {&a, &b, &c}) mine->Submit(transfer->transfer());
  other->Submit(d.transfer());
  mine->Cancel(b.transfer());
  EXPECT_TRUE(b.ended() && !a.ended());
  mine->AbortPipe(0x81);
  EXPECT_TRUE(a.ended() && !c.ended() && !d.ended());
  mine.reset();
  EXPECT_TRUE(c.ended() && !d.ended());
  for (Awaited* transfer : {&a, &b, &c}) EXPECT_EQ(transfer->Wait(), UsbStatus::kAborted);
  bench->Unplug("P");
  EXPECT_EQ(d.Wait(), UsbStatus::kDisconnected);
  Awaited late(0x81, Bytes(64));
  other->Submit(late.transfer());
  EXPECT_EQ(late.Wait(), UsbStatus::kDisconnected);
  EXPECT_FALSE(other->ResetPipe(0x81));

  // A device may outlive its bench.
  bench->Plug("P");
  User user = User::Of(*bench, "P");
  Awaited waiting(0x84, Bytes(64));
  user.device().Submit(waiting.transfer());
  bench.reset();
  EXPECT_EQ(waiting.Wait(), UsbStatus::kDisconnected);
  EXPECT_EQ(user.Control(0x80, 6, 0x0100, 0, 18).status, UsbStatus::kDisconnected);
}

// The default scheduler's thread takes part.
TEST(BenchBus, ManyThreadsShareAProbeThatComesAndGoes) {
  Bench bench(kTracingBench);
  UseAProbeThatComesAndGoes(bench, {&bench, &bench, &bench}, 200);
}

TEST_F(SerialBoard, FaultsDoWhatTheirNamesSay) {
  const struct {
    FaultKind kind;
    std::uint8_t endpoint;
    std::uint32_t value;
    UsbStatus status;
    Bytes data;
  } kTable[] = {
      {FaultKind::kStall, 0x00, 0, UsbStatus::kStall, {}},
      {FaultKind::kSilent, 0x00, 0, UsbStatus::kAborted, {}},
      {FaultKind::kShortReply, 0x00, 2, UsbStatus::kOk, {0, 0}},
      {FaultKind::kWrongLength, 0x00, 0, UsbStatus::kOverrun, {0, 0, 0}},
      {FaultKind::kErrorStatus, 0x00, 9, UsbStatus::kOk, {9, 0, 0}},
      {FaultKind::kUnplug, 0x00, 0, UsbStatus::kDisconnected, {}},
      {FaultKind::kStall, 0x81, 0, UsbStatus::kStall, {}},
      {FaultKind::kSilent, 0x81, 0, UsbStatus::kAborted, {}},
      {FaultKind::kShortReply, 0x81, 1, UsbStatus::kOk, {7}},
      {FaultKind::kWrongLength, 0x81, 2, UsbStatus::kOverrun, {7, 8, 9, 0xEE}},
      {FaultKind::kErrorStatus, 0x81, 0, UsbStatus::kError, {}},
      {FaultKind::kUnplug, 0x81, 0, UsbStatus::kDisconnected, {7, 8}},
  };
  for (const auto& [kind, endpoint, value, status, data] : kTable) {
    SCOPED_TRACE(std::string(FaultName(kind)) + " on " + std::to_string(endpoint));
    PlugInSerialMode();
    user_->Out(0x01, {7, 8, 9});
    ASSERT_TRUE(bench_->ArmFault("P", {.kind = kind, .endpoint = endpoint, .value = value}));
    const Outcome outcome =
        endpoint == 0 ? user_->Control(0xC0, 0x41, 0, 0, 3) : user_->In(endpoint, 4);
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.data, data);
    EXPECT_EQ(bench_->ListDevices().empty(), kind == FaultKind::kUnplug);
  }
}

TEST_F(SerialBoard, FaultsHitTheirRequestAsOftenAsArmed) {
  bench_->ArmFault("P", {.kind = FaultKind::kErrorStatus, .request = 0x49, .count = 2, .value = 5});
  EXPECT_EQ(user_->Command(0x48, 0, 2)[0], 0) << "another request";
  EXPECT_EQ(user_->Command(0x49, 1, 2)[0], 5);
  EXPECT_EQ(user_->Command(0x49, 1, 2)[0], 5);
  EXPECT_EQ(bench_->State("P").identify, 0) << "refused, so not done";
  EXPECT_EQ(user_->Command(0x49, 1, 2)[0], 0);
  EXPECT_EQ(bench_->State("P").identify, 1);
}

TEST_F(SerialBoard, StalledPipeIsHaltedUntilItIsReset) {
  bench_->ArmFault("P", {.kind = FaultKind::kStall, .endpoint = 0x01});
  EXPECT_EQ(user_->Out(0x01, {1}).status, UsbStatus::kStall);
  EXPECT_EQ(user_->Out(0x01, {2}).status, UsbStatus::kStall);
  EXPECT_TRUE(user_->device().ResetPipe(0x01));
  EXPECT_FALSE(user_->device().ResetPipe(0x03));
  EXPECT_EQ(user_->Out(0x01, {3}).status, UsbStatus::kOk);
  EXPECT_THAT(user_->In(0x81, 64).data, ElementsAre(3));
  user_->Out(0x01, {4});
  user_->device().ResetPipe(0x81);
  EXPECT_EQ(user_->In(0x81, 64).status, UsbStatus::kAborted)
      << "a reset drops what waits to be read";
}

TEST_F(SerialBoard, DelayedTransferKeepsItsPlaceAndItsTime) {
  bench_->ArmFault("P", {.kind = FaultKind::kDelay, .endpoint = 0x01, .value = 50});
  Awaited first(0x01, {1}), second(0x01, {2}), cancelled(0x01, {3});
  user_->device().Submit(first.transfer());
  user_->device().Submit(second.transfer());
  time_.Advance(49);
  EXPECT_FALSE(first.ended() || second.ended());
  time_.Advance(1);
  EXPECT_TRUE(first.ended() && second.ended());
  EXPECT_THAT(user_->In(0x81, 64).data, ElementsAre(1, 2));
  bench_->ArmFault("P", {.kind = FaultKind::kDelay, .endpoint = 0x01, .value = 50});
  user_->device().Submit(cancelled.transfer());
  user_->device().Cancel(cancelled.transfer());
  time_.Advance(50);
  EXPECT_EQ(cancelled.Wait(), UsbStatus::kAborted);
}

TEST_F(SerialBoard, CorruptDescriptorIsTheSameForTheSameSeed) {
  const auto configuration = [&] { return user_->Control(0x80, 6, 0x0200, 0, 255).data; };
  const Bytes whole = configuration();
  int changed = 0;
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    bench_->ArmFault("P", {.kind = FaultKind::kCorruptDescriptor, .count = 2, .value = seed});
    const Bytes first = configuration();
    EXPECT_EQ(first, configuration());
    changed += first != whole;
  }
  EXPECT_GT(changed, 15);
  EXPECT_EQ(configuration(), whole);
}

TEST_F(OneProbe, RearrangedTargetsActAtOnceAndIdentitiesWithTheNextPlug) {
  Plug(kEvk);
  EXPECT_TRUE(bench_->Rearrange("P", R"({"external_supply": 120, "pid": 9})"));
  EXPECT_EQ(bench_->State("P").measured, 120);
  EXPECT_EQ(bench_->State("P").product_id, 0x2002);
  EXPECT_THROW(bench_->Rearrange("P", R"({"pid": -1})"), std::invalid_argument);
  EXPECT_FALSE(bench_->Rearrange("Q", "{}"));
  bench_->Unplug("P");
  bench_->Plug("P");
  EXPECT_EQ(bench_->State("P").product_id, 9);
  bench_->AddProbe(R"({"name": "Q", "kind": "evk"})");
  EXPECT_EQ(bench_->ListDevices().size(), 2u);
  EXPECT_THROW(bench_->AddProbe(R"({"name": "Q"})"), std::invalid_argument);
}

}  // namespace
}  // namespace sim
