// The bus of a bench in another process: both ends over a real socket.
#include <future>

#include "tests/unit/sim/socket_fixture.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kEvkBench[] =
    R"({"driver": {"version": "0x01040000", "text": "one", "second_text": "two"},
        "probes": [{"name": "P", "kind": "evk"}]})";

class SocketBus : public SocketFixture {};

TEST_F(SocketBus, ListsDevicesAtOnceAndCarriesTheDriversFacts) {
  Serve(kEvkBench);
  Connect();
  EXPECT_EQ(bus_->ListDevices(), bench_->ListDevices());
  const auto device = Device();
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->Facts().driver_version, 0x01040000u);
  EXPECT_EQ(device->Facts().text, "one");
  EXPECT_EQ(device->Facts().second_text, "two");
  EXPECT_EQ(device->Facts().usb_address, 1);
  EXPECT_EQ(bus_->OpenDevice("nothing"), nullptr);
}

TEST_F(SocketBus, TransfersGoBothWaysWithTheirStatuses) {
  Serve(kEvkBench);
  Connect();
  const auto device = Device();
  Awaited mode({0xC0, 0x41, 0x0110, 0, 3}, Bytes(3));
  Bytes large(3 << 20);
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::uint8_t>(i * 7 >> 3);
  Awaited out(0x01, large), in(0x81, Bytes(large.size())), more(0x81, Bytes(8)), two(0x01, {5, 6});
  for (Awaited* transfer : {&mode, &out, &in, &more, &two}) {
    device->Submit(transfer->transfer());
    if (transfer == &more) continue;  // waits for the one behind it
    EXPECT_EQ(transfer->Wait(), UsbStatus::kOk);
    EXPECT_EQ(transfer->actual(), transfer->data().size());
  }
  EXPECT_THAT(mode.data(), ElementsAre(0, 0, 0));
  EXPECT_TRUE(in.data() == large);
  EXPECT_EQ(more.Wait(), UsbStatus::kOk);
  EXPECT_EQ(more.actual(), 2u);
  EXPECT_THAT(more.data(), ElementsAre(5, 6, 0, 0, 0, 0, 0, 0)) << "nothing else is touched";

  const struct {
    FaultKind kind;
    UsbStatus status;
    std::uint32_t actual;
  } kTable[] = {{FaultKind::kStall, UsbStatus::kStall, 0},
                {FaultKind::kErrorStatus, UsbStatus::kError, 0},
                {FaultKind::kUnplug, UsbStatus::kDisconnected, 2}};
  for (const auto& [kind, status, actual] : kTable) {
    bench_->ArmFault("P", {.kind = kind, .endpoint = 0x02});
    Awaited faulty(0x02, {1, 2, 3, 4});
    device->Submit(faulty.transfer());
    EXPECT_EQ(faulty.Wait(), status) << FaultName(kind);
    EXPECT_EQ(faulty.actual(), actual) << FaultName(kind);
    device->ResetPipe(0x02);
  }
}

TEST_F(SocketBus, WhatIsInFlightCanBeEnded) {
  Serve(kEvkBench);
  Connect();
  auto device = Device();
  Awaited a(0x84, Bytes(64)), b(0x84, Bytes(64)), c(0x86, Bytes(64)), d(0x81, Bytes(64));
  for (Awaited* transfer : {&a, &b, &c, &d}) device->Submit(transfer->transfer());
  device->Cancel(b.transfer());
  EXPECT_EQ(b.Wait(), UsbStatus::kAborted);
  device->AbortPipe(0x84);
  EXPECT_EQ(a.Wait(), UsbStatus::kAborted);
  EXPECT_TRUE(device->ResetPipe(0x84));
  EXPECT_FALSE(device->ResetPipe(0x05));
  EXPECT_FALSE(c.ended() || d.ended());
  device->Cancel(b.transfer());  // has ended: nothing happens
  device.reset();
  EXPECT_TRUE(c.ended() && d.ended()) << "closing returns when every completion has run";
  EXPECT_EQ(c.Wait(), UsbStatus::kAborted);
}

TEST_F(SocketBus, ArrivalsAndRemovalsAreTold) {
  Serve(kEvkBench);
  Connect();
  Events events(*bus_);
  const std::string first = bench_->PathOf("P");
  const auto device = Device();
  Awaited waiting(0x84, Bytes(64)), late(0x84, Bytes(64));
  device->Submit(waiting.transfer());
  bench_->Unplug("P");
  EXPECT_EQ(waiting.Wait(), UsbStatus::kDisconnected);
  bench_->Plug("P");
  EXPECT_THAT(events.Wait(2), ElementsAre("-" + first, "+" + bench_->PathOf("P")));
  EXPECT_EQ(bus_->ListDevices(), bench_->ListDevices());
  device->Submit(late.transfer());
  EXPECT_EQ(late.Wait(), UsbStatus::kDisconnected);
}

TEST_F(SocketBus, SimulatorMayComeLateAndItsLossEndsEverything) {
  Connect();
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  auto events = std::make_unique<Events>(*bus_);
  Serve(kEvkBench);
  const std::string path = bench_->PathOf("P");
  EXPECT_THAT(events->Wait(1), ElementsAre("+" + path));
  const auto device = Device();
  Awaited waiting(0x84, Bytes(64)), late(0x84, Bytes(64)), stale(0x84, Bytes(64)),
      orphan(0x84, Bytes(64));
  device->Submit(waiting.transfer());
  server_.reset();
  EXPECT_EQ(waiting.Wait(), UsbStatus::kDisconnected);
  EXPECT_THAT(events->Wait(2), ElementsAre("+" + path, "-" + path));
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  EXPECT_FALSE(device->ResetPipe(0x84));
  device->Submit(late.transfer());
  EXPECT_EQ(late.Wait(), UsbStatus::kDisconnected);
  Serve(kEvkBench);
  EXPECT_EQ(events->Wait(3).back(), "+" + bench_->PathOf("P")) << "found again";
  device->Submit(stale.transfer());
  EXPECT_EQ(stale.Wait(), UsbStatus::kDisconnected) << "the old attachment stays gone";
  events.reset();
  bus_.reset();
  device->Submit(orphan.transfer());
  EXPECT_EQ(orphan.Wait(), UsbStatus::kDisconnected) << "a device may outlive its bus";
}

// Completions run without a lock of the bus, also those of a connection that is lost: what another
// thread asks of the device meanwhile may be what they wait for.
TEST_F(SocketBus, CompletionMayWaitForAnotherThreadsCall) {
  Serve(kEvkBench);
  Connect();
  const auto device = Device();
  std::future<void> other;
  std::promise<std::future_status> waited;
  probe_driver::UsbTransfer transfer;
  transfer.endpoint = 0x84;
  transfer.complete = [&](probe_driver::UsbTransfer&) {
    other = std::async(std::launch::async, [&] { device->AbortPipe(0x84); });
    waited.set_value(other.wait_for(kBound));
  };
  device->Submit(transfer);
  bus_.reset();
  EXPECT_EQ(waited.get_future().get(), std::future_status::ready);
}

TEST_F(SocketBus, ManyThreadsOfTwoUsersShareAProbeThatComesAndGoes) {
  Serve(kTracingBench);
  Connect();
  const auto second = linux_host::ConnectSimulatorBus(path_);
  UseAProbeThatComesAndGoes(*bench_, {bus_.get(), bus_.get(), second.get()}, 50);
}

}  // namespace
}  // namespace sim
