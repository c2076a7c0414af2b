// The bench as a bus: arrivals, waiting transfers, faults.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;
using testing::ElementsAre;

constexpr char kEvk[] = R"({"probes": [{"name": "P", "kind": "evk"}]})";

// A transfer that waits at its endpoint.
struct Waiting {
  explicit Waiting(std::uint8_t endpoint, std::uint32_t length = 64) : data(length) {
    transfer.endpoint = endpoint;
    transfer.data = data.data();
    transfer.length = length;
    transfer.complete = [this](UsbTransfer&) { ++completions; };
  }
  Bytes data;
  UsbTransfer transfer;
  int completions = 0;
};

class Journal : public probe_driver::UsbBusListener {
 public:
  explicit Journal(Bench& bench) : bench_(bench) {}
  void OnDeviceArrived(const std::string& path) override { Note("+", path, 1); }
  void OnDeviceRemoved(const std::string& path) override { Note("-", path, 0); }
  std::vector<std::string> lines;

 private:
  void Note(const char* what, const std::string& path, long listed) {
    lines.push_back(what + path);
    const auto present = bench_.ListDevices();
    EXPECT_EQ(std::count(present.begin(), present.end(), path), listed)
        << "listed before its arrival is told, gone before its removal is";
  }
  Bench& bench_;
};

TEST(BenchBus, ListIsSortedAndPathsAreNeverUsedAgain) {
  const auto bench = Bench::Default();
  Journal journal(*bench);
  bench->SetListener(&journal);
  const std::string first = bench->PathOf("WFX0002");
  EXPECT_EQ(first, R"(\\?\usb#vid_0f0f&pid_1002#wfx0002#2)");
  EXPECT_TRUE(bench->Unplug("WFX0002"));
  EXPECT_FALSE(bench->Unplug("WFX0002"));
  EXPECT_TRUE(bench->Plug("WFX0002"));
  EXPECT_FALSE(bench->Plug("WFX0002"));
  EXPECT_FALSE(bench->Plug("nobody"));
  const std::string second = bench->PathOf("WFX0002");
  EXPECT_THAT(journal.lines, ElementsAre("-" + first, "+" + second));
  EXPECT_NE(first, second);
  EXPECT_EQ(bench->OpenDevice(first), nullptr);
  const auto paths = bench->ListDevices();
  EXPECT_EQ(paths.size(), 3u);
  EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
  bench->SetListener(nullptr);
}

// Plugs again from within the removal: events stay in order, one after another.
TEST(BenchBus, ListenerMayChangeTheBenchWhileItIsTold) {
  Bench bench(kEvk);
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
  Bench bench(kEvk);
  struct Slow : probe_driver::UsbBusListener {
    void OnDeviceArrived(const std::string&) override {}
    void OnDeviceRemoved(const std::string&) override {
      std::unique_lock lock(mutex);
      called = true;
      changed.notify_all();
      changed.wait(lock, [&] { return go_on; });
      finished = true;
    }
    std::mutex mutex;
    std::condition_variable changed;
    bool called = false, go_on = false;
    std::atomic<bool> finished{false};
  } slow;
  bench.SetListener(&slow);
  std::thread unplugger([&] { bench.Unplug("P"); });
  {
    std::unique_lock lock(slow.mutex);
    slow.changed.wait(lock, [&] { return slow.called; });
  }
  std::thread remover([&] {
    bench.SetListener(nullptr);
    EXPECT_TRUE(slow.finished);
  });
  {
    const std::lock_guard lock(slow.mutex);
    slow.go_on = true;
    slow.changed.notify_all();
  }
  remover.join();
  unplugger.join();
}

TEST(BenchBus, WaitingTransfersAreAnsweredInOrderOfSubmission) {
  Bench bench(kEvk);
  User user = User::Of(bench, "P");
  user.Command(0x41, 0x110, 3);
  Waiting first(0x81, 2), second(0x81, 2);
  user.device().Submit(first.transfer);
  user.device().Submit(second.transfer);
  EXPECT_EQ(first.completions + second.completions, 0);
  user.Out(0x01, {1, 2, 3});
  EXPECT_THAT(first.data, ElementsAre(1, 2));
  EXPECT_EQ(second.data[0], 3);
  EXPECT_EQ(second.transfer.actual, 1u);
}

TEST(BenchBus, EachWayToEndATransferEndsThoseItNames) {
  Bench bench(kEvk);
  const std::string path = bench.PathOf("P");
  auto mine = bench.OpenDevice(path);
  auto other = bench.OpenDevice(path);
  Waiting a(0x81), b(0x81), c(0x86), d(0x81);
  mine->Submit(a.transfer);
  mine->Submit(b.transfer);
  mine->Submit(c.transfer);
  other->Submit(d.transfer);
  mine->Cancel(b.transfer);
  EXPECT_EQ(b.transfer.status, UsbStatus::kAborted);
  EXPECT_EQ(a.completions, 0);
  mine->AbortPipe(0x81);
  EXPECT_EQ(a.transfer.status, UsbStatus::kAborted);
  EXPECT_EQ(c.completions + d.completions, 0);
  mine.reset();
  EXPECT_EQ(c.transfer.status, UsbStatus::kAborted);
  EXPECT_EQ(d.completions, 0);
  bench.Unplug("P");
  EXPECT_EQ(d.transfer.status, UsbStatus::kDisconnected);
  Waiting late(0x81);
  other->Submit(late.transfer);
  EXPECT_EQ(late.transfer.status, UsbStatus::kDisconnected);
  EXPECT_FALSE(other->ResetPipe(0x81));
  for (const Waiting* transfer : {&a, &b, &c, &d, &late}) EXPECT_EQ(transfer->completions, 1);
}

TEST(BenchBus, DeviceMayOutliveItsBench) {
  auto bench = std::make_unique<Bench>(kEvk);
  User user = User::Of(*bench, "P");
  Waiting waiting(0x84);
  user.device().Submit(waiting.transfer);
  bench.reset();
  EXPECT_EQ(waiting.transfer.status, UsbStatus::kDisconnected);
  EXPECT_EQ(user.Control(0x80, 6, 0x0100, 0, 18).status, UsbStatus::kDisconnected);
}

// Users of one probe on several threads while it is unplugged and plugged: every transfer ends
// exactly once. The default scheduler's thread takes part.
TEST(BenchBus, ManyThreadsShareAProbeThatComesAndGoes) {
  Bench bench(R"({"probes": [{"name": "P", "kind": "evk", "swv": {"bytes_per_ms": 64}}]})");
  std::atomic<bool> ending{false};
  std::atomic<int> submitted{0}, completed{0};
  const auto work = [&] {
    while (!ending) {
      const auto device = bench.OpenDevice(bench.PathOf("P"));
      if (device == nullptr) continue;
      std::vector<std::uint8_t> data(64);
      UsbTransfer in, mode;
      in.endpoint = 0x86;
      mode.setup = {0xC0, 0x41, 0x10C, 0, 3};
      in.data = mode.data = data.data();
      in.length = 32;
      mode.length = 3;
      mode.data += 32;
      in.complete = mode.complete = [&](UsbTransfer&) { ++completed; };
      submitted += 2;
      device->Submit(in);
      device->Submit(mode);
      device->AbortPipe(0x86);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back(work);
  for (int i = 0; i < 200; ++i) {
    bench.Unplug("P");
    bench.Plug("P");
  }
  ending = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(submitted, completed);
}

TEST(Faults, EachKindDoesWhatItsNameSays) {
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
  for (const auto& row : kTable) {
    Bench bench(kEvk);
    User user = User::Of(bench, "P");
    user.Command(0x41, 0x110, 3);
    user.Out(0x01, {7, 8, 9});
    ASSERT_TRUE(
        bench.ArmFault("P", {.kind = row.kind, .endpoint = row.endpoint, .value = row.value}));
    const Outcome outcome =
        row.endpoint == 0 ? user.Control(0xC0, 0x41, 0, 0, 3) : user.In(row.endpoint, 4);
    const std::string what =
        std::string(FaultName(row.kind)) + " on " + std::to_string(row.endpoint);
    EXPECT_EQ(outcome.status, row.status) << what;
    EXPECT_EQ(outcome.data, row.data) << what;
    EXPECT_EQ(bench.ListDevices().empty(), row.kind == FaultKind::kUnplug) << what;
  }
}

TEST(Faults, HitTheirRequestAsOftenAsArmed) {
  Bench bench(kEvk);
  User user = User::Of(bench, "P");
  bench.ArmFault("P", {.kind = FaultKind::kErrorStatus, .request = 0x49, .count = 2, .value = 5});
  EXPECT_EQ(user.Command(0x48, 0, 2)[0], 0) << "another request";
  EXPECT_EQ(user.Command(0x49, 1, 2)[0], 5);
  EXPECT_EQ(user.Command(0x49, 1, 2)[0], 5);
  EXPECT_EQ(bench.State("P").identify, 0) << "refused, so not done";
  EXPECT_EQ(user.Command(0x49, 1, 2)[0], 0);
  EXPECT_EQ(bench.State("P").identify, 1);
}

TEST(Faults, StalledPipeIsHaltedUntilItIsReset) {
  Bench bench(kEvk);
  User user = User::Of(bench, "P");
  user.Command(0x41, 0x110, 3);
  bench.ArmFault("P", {.kind = FaultKind::kStall, .endpoint = 0x01});
  EXPECT_EQ(user.Out(0x01, {1}).status, UsbStatus::kStall);
  EXPECT_EQ(user.Out(0x01, {2}).status, UsbStatus::kStall);
  EXPECT_TRUE(user.device().ResetPipe(0x01));
  EXPECT_FALSE(user.device().ResetPipe(0x03));
  EXPECT_EQ(user.Out(0x01, {3}).status, UsbStatus::kOk);
  EXPECT_THAT(user.In(0x81, 64).data, ElementsAre(3));
  user.Out(0x01, {4});
  user.device().ResetPipe(0x81);
  EXPECT_EQ(user.In(0x81, 64).status, UsbStatus::kAborted) << "a reset drops what waits to be read";
}

TEST(Faults, DelayedTransferKeepsItsPlaceAndItsTime) {
  ManualTime time;
  Bench bench(kEvk, {.scheduler = time.scheduler()});
  User user = User::Of(bench, "P");
  user.Command(0x41, 0x110, 3);
  bench.ArmFault("P", {.kind = FaultKind::kDelay, .endpoint = 0x01, .value = 50});
  Waiting first(0x01, 1), second(0x01, 1);
  first.data[0] = 1;
  second.data[0] = 2;
  user.device().Submit(first.transfer);
  user.device().Submit(second.transfer);
  time.Advance(49);
  EXPECT_EQ(first.completions + second.completions, 0);
  time.Advance(1);
  EXPECT_EQ(first.completions + second.completions, 2);
  EXPECT_THAT(user.In(0x81, 64).data, ElementsAre(1, 2));
  bench.ArmFault("P", {.kind = FaultKind::kDelay, .endpoint = 0x01, .value = 50});
  Waiting cancelled(0x01, 1);
  user.device().Submit(cancelled.transfer);
  user.device().Cancel(cancelled.transfer);
  EXPECT_EQ(cancelled.transfer.status, UsbStatus::kAborted);
  time.Advance(50);
  EXPECT_EQ(cancelled.completions, 1);
}

TEST(Faults, CorruptDescriptorIsTheSameForTheSameSeed) {
  Bench bench(kEvk);
  User user = User::Of(bench, "P");
  const Bytes whole = user.Control(0x80, 6, 0x0200, 0, 255).data;
  int changed = 0;
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    bench.ArmFault("P", {.kind = FaultKind::kCorruptDescriptor, .count = 2, .value = seed});
    const Bytes first = user.Control(0x80, 6, 0x0200, 0, 255).data;
    EXPECT_EQ(first, user.Control(0x80, 6, 0x0200, 0, 255).data);
    changed += first != whole;
  }
  EXPECT_GT(changed, 15);
  EXPECT_EQ(user.Control(0x80, 6, 0x0200, 0, 255).data, whole);
}

TEST(BenchBus, RecordsWhatAProbeReceives) {
  Bench bench(kEvk);
  User user = User::Of(bench, "P");
  user.Command(0x41, 0x101, 3);
  bench.Record("P");
  user.Command(0x41, 0x104, 3);
  user.Out(0x02, {0xA5});
  user.In(0x84, 5);
  const std::vector<Received> records = bench.TakeRecords("P");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].setup.value, 0x104);
  EXPECT_THAT(records[1].data, ElementsAre(0xA5));
  EXPECT_TRUE(bench.TakeRecords("P").empty());
}

TEST(BenchBus, RearrangedTargetsActAtOnceAndIdentitiesWithTheNextPlug) {
  Bench bench(kEvk);
  EXPECT_TRUE(bench.Rearrange("P", R"({"external_supply": 120, "pid": 9})"));
  EXPECT_EQ(bench.State("P").measured, 120);
  EXPECT_EQ(bench.State("P").product_id, 0x2002);
  EXPECT_THROW(bench.Rearrange("P", R"({"pid": -1})"), std::invalid_argument);
  EXPECT_FALSE(bench.Rearrange("Q", "{}"));
  bench.Unplug("P");
  bench.Plug("P");
  EXPECT_EQ(bench.State("P").product_id, 9);
  bench.AddProbe(R"({"name": "Q", "kind": "evk"})");
  EXPECT_EQ(bench.ListDevices().size(), 2u);
  EXPECT_THROW(bench.AddProbe(R"({"name": "Q"})"), std::invalid_argument);
}

}  // namespace
}  // namespace sim
