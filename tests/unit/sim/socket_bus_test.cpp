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

TEST_F(SocketBus, DevicesAreListedAtOnceAndTransfersGoBothWaysWithTheirStatuses) {
  Serve(kEvkBench);
  Connect();
  EXPECT_EQ(bus_->ListDevices(), bench_->ListDevices());
  EXPECT_EQ(bus_->OpenDevice("nothing"), nullptr);
  const auto device = Device();
  const auto facts = device->Facts();
  EXPECT_EQ(facts.driver_version, 0x01040000u);
  EXPECT_EQ(facts.text + "," + facts.second_text, "one,two");
  EXPECT_EQ(facts.usb_address, 1);
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
  EXPECT_TRUE(in.data() == large);
  EXPECT_EQ(more.Wait(), UsbStatus::kOk);
  EXPECT_EQ(more.actual(), 2u);
  EXPECT_THAT(more.data(), ElementsAre(5, 6, 0, 0, 0, 0, 0, 0)) << "nothing else is touched";
  bench_->ArmFault("P", {.kind = FaultKind::kUnplug, .endpoint = 0x02});
  Awaited half(0x02, {1, 2, 3, 4});
  device->Submit(half.transfer());
  EXPECT_EQ(half.Wait(), UsbStatus::kDisconnected);
  EXPECT_EQ(half.actual(), 2u);
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

TEST_F(SocketBus, ArrivalsAndRemovalsAreToldAlsoOfTheSimulatorItself) {
  Connect();
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  auto events = std::make_unique<Events>(*bus_);
  Serve(kEvkBench);
  std::vector<std::string> told = {"+" + bench_->State("P").path};
  events->Wait(1);
  auto device = Device();
  Awaited waiting(0x84, Bytes(64)), late(0x84, Bytes(64)), again(0x84, Bytes(64));
  Awaited stale(0x84, Bytes(64)), orphan(0x84, Bytes(64));
  const auto ends_gone = [&](Awaited& transfer) {
    device->Submit(transfer.transfer());
    return transfer.Wait() == UsbStatus::kDisconnected;
  };
  device->Submit(waiting.transfer());
  bench_->Unplug("P");
  bench_->Plug("P");
  EXPECT_EQ(waiting.Wait(), UsbStatus::kDisconnected);
  told.insert(told.end(), {"-" + told[0].substr(1), "+" + bench_->State("P").path});
  EXPECT_EQ(events->Wait(3), told);
  EXPECT_EQ(bus_->ListDevices(), bench_->ListDevices());
  EXPECT_TRUE(ends_gone(late));

  device = Device();
  device->Submit(again.transfer());
  server_.reset();
  EXPECT_EQ(again.Wait(), UsbStatus::kDisconnected);
  told.push_back("-" + bench_->State("P").path);
  EXPECT_EQ(events->Wait(4), told);
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  EXPECT_FALSE(device->ResetPipe(0x84));
  Serve(kEvkBench);
  EXPECT_EQ(events->Wait(5).back(), "+" + bench_->State("P").path) << "found again";
  EXPECT_TRUE(ends_gone(stale)) << "the old attachment stays gone";
  events.reset();
  bus_.reset();
  EXPECT_TRUE(ends_gone(orphan)) << "a device may outlive its bus";
}

TEST_F(SocketBus, ManyThreadsOfTwoUsersShareAProbeThatComesAndGoes) {
  Serve(kTracingBench);
  Connect();
  const auto second = linux_host::ConnectSimulatorBus(path_);
  UseAProbeThatComesAndGoes(*bench_, {bus_.get(), bus_.get(), second.get()}, 50);
}

}  // namespace
}  // namespace sim
