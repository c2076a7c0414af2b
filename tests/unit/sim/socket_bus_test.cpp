// The bus of a bench in another process: both ends over a real socket.
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "tests/unit/sim/socket_fixture.h"

namespace sim {
namespace {

using probe_driver::UsbStatus;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kEvk[] =
    R"({"driver": {"version": "0x01040000", "text": "one", "second_text": "two"},
                           "probes": [{"name": "P", "kind": "evk"}]})";

class SocketBus : public SocketFixture {};

TEST_F(SocketBus, ListsDevicesAtOnceAndCarriesTheDriversFacts) {
  Serve(kEvk);
  Connect();
  EXPECT_EQ(bus_->ListDevices(), bench_->ListDevices());
  const auto device = bus_->OpenDevice(bench_->PathOf("P"));
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->Facts().driver_version, 0x01040000u);
  EXPECT_EQ(device->Facts().text, "one");
  EXPECT_EQ(device->Facts().second_text, "two");
  EXPECT_EQ(device->Facts().usb_address, 1);
  EXPECT_EQ(bus_->OpenDevice("nothing"), nullptr);
}

TEST_F(SocketBus, TransfersGoBothWays) {
  Serve(kEvk);
  Connect();
  const auto device = bus_->OpenDevice(bench_->PathOf("P"));
  const auto mode = Awaited::Control({0xC0, 0x41, 0x0110, 0, 3});
  Bytes large(3 << 20);
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::uint8_t>(i * 7 >> 3);
  Awaited out(0x01, large), in(0x81, Bytes(large.size())), more(0x81, Bytes(8));
  device->Submit(mode->transfer());
  device->Submit(out.transfer());
  device->Submit(in.transfer());
  EXPECT_EQ(mode->Wait(), UsbStatus::kOk);
  EXPECT_THAT(mode->data(), ElementsAre(0, 0, 0));
  EXPECT_EQ(out.Wait(), UsbStatus::kOk);
  EXPECT_EQ(out.transfer().actual, large.size());
  EXPECT_EQ(in.Wait(), UsbStatus::kOk);
  EXPECT_EQ(in.transfer().actual, large.size());
  EXPECT_TRUE(in.data() == large);
  device->Submit(more.transfer());
  Awaited two(0x01, {5, 6});
  device->Submit(two.transfer());
  EXPECT_EQ(more.Wait(), UsbStatus::kOk);
  EXPECT_EQ(more.transfer().actual, 2u);
  EXPECT_THAT(more.data(), ElementsAre(5, 6, 0, 0, 0, 0, 0, 0)) << "nothing else is touched";
}

TEST_F(SocketBus, StatusesComeThrough) {
  Serve(kEvk);
  Connect();
  const auto device = bus_->OpenDevice(bench_->PathOf("P"));
  const struct {
    FaultKind kind;
    UsbStatus status;
    std::uint32_t actual;
  } kTable[] = {{FaultKind::kStall, UsbStatus::kStall, 0},
                {FaultKind::kErrorStatus, UsbStatus::kError, 0},
                {FaultKind::kUnplug, UsbStatus::kDisconnected, 2}};
  for (const auto& row : kTable) {
    bench_->ArmFault("P", {.kind = row.kind, .endpoint = 0x02});
    Awaited out(0x02, {1, 2, 3, 4});
    device->Submit(out.transfer());
    EXPECT_EQ(out.Wait(), row.status);
    EXPECT_EQ(out.transfer().actual, row.actual);
    device->ResetPipe(0x02);
  }
}

TEST_F(SocketBus, WhatIsInFlightCanBeEnded) {
  Serve(kEvk);
  Connect();
  auto device = bus_->OpenDevice(bench_->PathOf("P"));
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
  Serve(kEvk);
  Connect();
  Events events(*bus_);
  bus_->SetListener(&events);
  const auto device = bus_->OpenDevice(bench_->PathOf("P"));
  Awaited waiting(0x84, Bytes(64));
  device->Submit(waiting.transfer());
  bench_->Unplug("P");
  EXPECT_EQ(waiting.Wait(), UsbStatus::kDisconnected);
  bench_->Plug("P");
  EXPECT_EQ(events.Wait(2), "-+");
  EXPECT_EQ(bus_->ListDevices(), bench_->ListDevices());
  Awaited late(0x84, Bytes(64));
  device->Submit(late.transfer());
  EXPECT_EQ(late.Wait(), UsbStatus::kDisconnected);
  bus_->SetListener(nullptr);
}

TEST_F(SocketBus, AbsentSimulatorMeansNoDevicesUntilItComes) {
  Connect();
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  Events events(*bus_);
  bus_->SetListener(&events);
  Serve(kEvk);
  EXPECT_EQ(events.Wait(1), "+");
  EXPECT_EQ(bus_->ListDevices().size(), 1u);
  bus_->SetListener(nullptr);
}

TEST_F(SocketBus, LostSimulatorEndsEverything) {
  Serve(kEvk);
  Connect();
  Events events(*bus_);
  bus_->SetListener(&events);
  auto device = bus_->OpenDevice(bench_->PathOf("P"));
  Awaited waiting(0x84, Bytes(64));
  device->Submit(waiting.transfer());
  server_.reset();
  EXPECT_EQ(waiting.Wait(), UsbStatus::kDisconnected);
  EXPECT_EQ(events.Wait(1), "-");
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  EXPECT_FALSE(device->ResetPipe(0x84));
  Awaited late(0x84, Bytes(64));
  device->Submit(late.transfer());
  EXPECT_EQ(late.Wait(), UsbStatus::kDisconnected);
  Serve(kEvk);
  EXPECT_EQ(events.Wait(2), "-+") << "found again";
  Awaited stale(0x84, Bytes(64));
  device->Submit(stale.transfer());
  EXPECT_EQ(stale.Wait(), UsbStatus::kDisconnected) << "the old attachment stays gone";
  bus_->SetListener(nullptr);
  bus_.reset();
  Awaited orphan(0x84, Bytes(64));
  device->Submit(orphan.transfer());
  EXPECT_EQ(orphan.Wait(), UsbStatus::kDisconnected) << "a device may outlive its bus";
}

TEST_F(SocketBus, KilledSimulatorEndsEverything) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    Bench bench(kEvk);
    const SocketServer server(bench, path_, [] {});
    if (write(ready[1], "", 1) != 1) _exit(1);
    while (true) pause();
  }
  char byte = 1;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  close(ready[1]);
  Connect();
  ASSERT_EQ(bus_->ListDevices().size(), 1u);
  const auto device = bus_->OpenDevice(bus_->ListDevices()[0]);
  Awaited waiting(0x84, Bytes(64));
  device->Submit(waiting.transfer());
  kill(child, SIGKILL);
  EXPECT_EQ(waiting.Wait(), UsbStatus::kDisconnected);
  waitpid(child, nullptr, 0);
  Serve(kEvk);
  SUCCEED() << "the socket file that the dead one left is replaced";
}

TEST_F(SocketBus, TwoUsersShareTheBench) {
  Serve(kEvk);
  Connect();
  const auto second = linux_host::ConnectSimulatorBus(path_);
  const std::string path = bench_->PathOf("P");
  const auto work = [&](probe_driver::UsbBus& bus, std::uint16_t led) {
    const auto device = bus.OpenDevice(path);
    ASSERT_NE(device, nullptr);
    for (std::uint16_t i = 0; i < 200; ++i) {
      const auto set =
          Awaited::Control({0xC0, 0x48, static_cast<std::uint16_t>(led << 8 | i % 4), 0, 2});
      device->Submit(set->transfer());
      ASSERT_EQ(set->Wait(), UsbStatus::kOk);
    }
  };
  std::thread other([&] { work(*second, 1); });
  work(*bus_, 0);
  other.join();
  EXPECT_THAT(bench_->State("P").leds, ElementsAre(3, 3, 0, 0));
}

TEST_F(SocketBus, ManyThreadsSubmitAndEndTransfersWhileProbesComeAndGo) {
  Serve(R"({"probes": [{"name": "P", "kind": "evk", "swv": {"bytes_per_ms": 200}}]})");
  Connect();
  std::atomic<bool> ending{false};
  const auto work = [&] {
    while (!ending) {
      const auto paths = bus_->ListDevices();
      const auto device = paths.empty() ? nullptr : bus_->OpenDevice(paths[0]);
      if (device == nullptr) continue;
      const auto mode = Awaited::Control({0xC0, 0x41, 0x010C, 0, 3});
      Awaited in(0x86, Bytes(512)), out(0x02, Bytes(2000, 0xA5));
      for (auto* transfer : {&mode->transfer(), &in.transfer(), &out.transfer()}) {
        device->Submit(*transfer);
      }
      device->Cancel(in.transfer());
      device->AbortPipe(0x02);
      mode->Wait();
      in.Wait();
      out.Wait();
    }
  };
  std::thread threads[] = {std::thread(work), std::thread(work)};
  for (int i = 0; i < 50; ++i) {
    bench_->Unplug("P");
    bench_->Plug("P");
    const auto paths = bus_->ListDevices();
    if (const auto device = paths.empty() ? nullptr : bus_->OpenDevice(paths[0])) {
      Awaited in(0x84, Bytes(16));
      device->Submit(in.transfer());
      device->AbortPipe(0x84);
      in.Wait();
    }
  }
  ending = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace sim
