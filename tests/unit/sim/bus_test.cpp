// The bench as a bus: arrivals, waiting transfers, faults.
#include <atomic>
#include <functional>
#include <future>

#include "tests/unit/sim/bench_script.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;

constexpr char kEvkBench[] = R"({"probes": [{"name": "P", "kind": "evk"}]})";

struct Listener : probe_driver::UsbBusListener {
  explicit Listener(std::function<void(bool arrived)> tell) : told(std::move(tell)) {}
  void OnDeviceArrived(const std::string&) override { told(true); }
  void OnDeviceRemoved(const std::string&) override { told(false); }
  std::function<void(bool arrived)> told;
};

// Plugs again from within the removal: events stay in order, one after another.
TEST(BenchBus, ListenerMayChangeTheBenchWhileItIsTold) {
  Bench bench(kEvkBench);
  std::string events;
  Listener replug([&](bool arrived) {
    events += arrived ? "+" : "-(";
    if (!arrived) events += bench.Plug("P") ? ")" : "?";
  });
  bench.SetListener(&replug);
  bench.Unplug("P");
  EXPECT_EQ(events, "-()+");
  bench.SetListener(nullptr);
}

TEST(BenchBus, RemovedListenerIsNoLongerBeingCalled) {
  Bench bench(kEvkBench);
  std::promise<void> called, go_on;
  std::atomic<bool> finished{false};
  Listener slow([&](bool) {
    called.set_value();
    go_on.get_future().wait();
    finished = true;
  });
  bench.SetListener(&slow);
  std::thread unplugger([&] { bench.Unplug("P"); });
  called.get_future().wait();
  std::thread remover([&] {
    bench.SetListener(nullptr);
    EXPECT_TRUE(finished);
  });
  go_on.set_value();
  remover.join();
  unplugger.join();
}

TEST(BenchBus, EachUserEndsOnlyItsOwnTransfersAndMayOutliveTheBench) {
  auto bench = std::make_unique<Bench>(kEvkBench);
  auto mine = bench->OpenDevice(bench->State("P").path);
  const auto other = bench->OpenDevice(bench->State("P").path);
  Awaited aborted(0x81, Bytes(64)), closed(0x86, Bytes(64)), kept(0x81, Bytes(64));
  Awaited late(0x81, Bytes(64));
  for (Awaited* transfer : {&aborted, &closed}) mine->Submit(transfer->transfer());
  other->Submit(kept.transfer());
  mine->AbortPipe(0x81);
  EXPECT_TRUE(aborted.ended() && !closed.ended());
  mine.reset();
  EXPECT_EQ(closed.Wait(), UsbStatus::kAborted);
  EXPECT_FALSE(kept.ended());
  bench.reset();
  EXPECT_EQ(kept.Wait(), UsbStatus::kDisconnected);
  other->Submit(late.transfer());
  EXPECT_EQ(late.Wait(), UsbStatus::kDisconnected);
}

// The default scheduler's thread takes part.
TEST(BenchBus, ManyThreadsShareAProbeThatComesAndGoes) {
  Bench bench(kTracingBench);
  UseAProbeThatComesAndGoes(bench, {&bench, &bench, &bench}, 200);
}

// In order of submission; and a transfer that a fault delays keeps its place.
TEST(BenchBus, WaitingTransfersAreAnsweredInTurn) {
  ManualTime time;
  Bench bench(kEvkBench, {.scheduler = time.scheduler()});
  const auto device = bench.OpenDevice(bench.State("P").path);
  Awaited mode({0xC0, 0x41, 0x0110, 0, 3}, Bytes(3)), first(0x01, Bytes(513, 3));
  Awaited in(0x81, Bytes(512)), more(0x81, Bytes(2)), delayed(0x01, {5}), behind(0x01, {6});
  Awaited cancelled(0x01, {7});
  for (Awaited* transfer : {&mode, &in, &more}) device->Submit(transfer->transfer());
  EXPECT_FALSE(in.ended() || more.ended());
  device->Submit(first.transfer());
  EXPECT_EQ(in.actual(), 512u);
  EXPECT_THAT(more.data(), ElementsAre(3, 0));
  EXPECT_EQ(more.actual(), 1u);
  bench.ArmFault("P", {.kind = FaultKind::kDelay, .endpoint = 0x01, .count = 2, .value = 50});
  for (Awaited* transfer : {&delayed, &cancelled, &behind}) device->Submit(transfer->transfer());
  device->Cancel(cancelled.transfer());
  EXPECT_EQ(cancelled.Wait(), UsbStatus::kAborted);
  time.Advance(49);
  EXPECT_FALSE(delayed.ended() || behind.ended());
  time.Advance(1);
  EXPECT_TRUE(delayed.ended() && behind.ended());
  Awaited all(0x81, Bytes(2));
  device->Submit(all.transfer());
  EXPECT_THAT(all.data(), ElementsAre(5, 6));
}

// As hosts do: a short packet or a full buffer ends a transfer, and of a packet that is too long
// the rest is lost.
TEST(BenchBus, PacketsAndHaltsAreThoseOfTheBus) {
  ExpectPlayed(R"(
    probe "kind": "evk" | vendor 41 0110 3 | in 81 0 = waits
    out 01 07*600 | in 81 512 = 07*512 | in 81 87 = overrun 07*87 | out 01 08 | in 81 0 = overrun
    out 01 09*600 | in 81 100 = overrun 09*100 | in 81 512 = 09*88
    out 01 0A*512 | in 81 1024 = waits 0A*512 | in 81 8 = waits
    vendor 41 0104 3 | out 02 | in 84 0 = nothing | in 84 8 = waits
    # Four buffers: what would need a fifth has to wait.
    out 02 A5 | out 02 A5 | out 02 A5 | out 02 A5 | out 02 A5 = waits | in 84 5 = 00 00 00 00 07
    out 02 A5 | out 02 A5 = waits | vendor 41 0110 3 | out 01 00*2048 | out 01 00 = waits
    # What halts an endpoint, and what ends that.
    control 02 03 0000 0081 0 | control 82 00 0000 0081 2 = 01 00 | in 81 8 = stall
    control 02 01 0000 0081 0 | control 82 00 0000 0081 2 = 00 00 | in 81 8 = waits
    control 02 03 0000 0001 0 | control 01 0B 0000 0000 0 | out 01 00
    control 02 03 0000 0001 0 | control 00 09 0001 0000 0 | out 01 00
    control 02 01 0000 008F 0 = stall | control 82 00 0000 008F 2 = stall
    control 02 03 0000 0000 0 | control 82 00 0000 0000 2 = 00 00
)");
}

TEST(Faults, DoWhatTheirNamesSayAsOftenAsArmed) {
  ExpectPlayed(R"(
    probe "kind": "evk" | vendor 41 0110 3
    fault "kind": "stall" | control 80 06 0100 0000 2 = stall
    fault "kind": "silent" | control 80 06 0100 0000 2 = waits
    fault "kind": "short-reply", "value": 1 | control 80 06 0100 0000 18 = 12
    fault "kind": "wrong-length" | vendor 48 0001 2 = overrun 00 00
    # Only its request, twice; a refused one is not done.
    fault "kind": "error-status", "request": 73, "count": 2, "value": 5 | vendor 48 0001 2
    vendor 49 0001 2 = 05 00 | vendor 49 0001 2 = 05 00 | show identify = 0 | vendor 49 0001 2
    fault "kind": "error-status" | control 80 06 0100 0000 2 = 12 01 | vendor 49 0002 2 = 01 00
    fault "kind": "stall", "endpoint": 129 | clear-faults
    out 01 07 08 | fault "kind": "short-reply", "endpoint": 129, "value": 1 | in 81 2 = 07
    out 01 09 0A | fault "kind": "wrong-length", "endpoint": 129, "value": 2 | in 81 3 = overrun 09 0A EE
    out 01 0B | fault "kind": "wrong-length", "endpoint": 129 | in 81 4 = 0B EE
    fault "kind": "error-status", "endpoint": 129 | in 81 4 = error
    fault "kind": "silent", "endpoint": 1 | out 01 01 = waits
    # A pipe that has stalled is halted until it is reset, which drops what waits to be read.
    fault "kind": "stall", "endpoint": 1 | out 01 01 = stall | out 01 02 = stall
    control 02 01 0000 0001 0 | out 01 03 | control 02 01 0000 0081 0 | in 81 4 = waits
    # The same for the same seed, and the next is whole.
    fault "kind": "corrupt-descriptor", "count": 2, "value": 1 | vendor 48 0001 2
    control 80 06 0100 0000 8 = 8C 01 00 89 FF FF FF 40
    control 80 06 0100 0000 8 = 8C 01 00 89 FF FF FF 40
    fault "kind": "corrupt-descriptor", "value": 3
    control 80 06 0100 0000 8 = C8 01 00 FD FF FF FF 40
    control 80 06 0100 0000 8 = 12 01 00 02 FF FF FF 40
    # Half of the bytes have moved when the probe leaves.
    out 01 07 08 09 0A | fault "kind": "unplug", "endpoint": 129 | in 81 4 = gone 07 08
    show plugged = false | plug | open
    # A path is never used again.
    show path = "\\\\?\\usb#vid_0f0f&pid_2002#p#2"
    fault "kind": "unplug" | vendor 48 0001 2 = gone | show plugged leds = false [0,0,0,0]
)");
}

}  // namespace
}  // namespace sim
