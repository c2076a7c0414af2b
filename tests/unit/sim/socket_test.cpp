// The bus of a bench in another process, both ends over a real socket; and peers that break the
// rules of its frames, or do not read.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <thread>

#include "platform/linux/devices/simulator_bus.h"
#include "platform/probe_driver/frame_socket.h"
#include "sim/server/control_session.h"
#include "sim/server/socket_server.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/sim/bench_user.h"

namespace sim {
namespace {

using probe_driver::Frame;
using probe_driver::FrameHeader;
using probe_driver::FrameSocket;
using probe_driver::FrameType;
using probe_driver::UsbStatus;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kBench[] =
    R"({"driver": {"version": "0x01040000", "text": "one", "second_text": "two"},
        "probes": [{"name": "P", "kind": "evk"}]})";

class SocketBus : public testing::Test {
 protected:
  void Serve(const char* description = kBench) {
    bench_ = std::make_unique<Bench>(description);
    server_ = std::make_unique<SocketServer>(*bench_, path_, [] {});
  }
  void Connect() { bus_ = linux_host::ConnectSimulatorBus(path_); }

  std::unique_ptr<probe_driver::UsbDevice> Device() {
    return bus_->OpenDevice(bench_->State("P").path);
  }

  // Uses the address for a socket: calls bind or connect.
  template <typename Call>
  static int WithAddress(Call call, int fd, const std::string& path) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, path.size());
    return call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  static int NewSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

  // A connected socket, for tests that speak the frames themselves.
  std::unique_ptr<probe_driver::FrameSocket> Dial(std::string_view greeting) const {
    auto socket = std::make_unique<probe_driver::FrameSocket>(NewSocket());
    EXPECT_EQ(WithAddress(connect, socket->fd(), path_), 0);
    EXPECT_TRUE(socket->SendBytes(greeting.data(), greeting.size()));
    return socket;
  }

  const unit::ScratchFolder folder_;
  const std::string path_ = folder_.Path("s");
  std::unique_ptr<Bench> bench_;
  std::unique_ptr<SocketServer> server_;
  std::unique_ptr<probe_driver::UsbBus> bus_;
};

TEST_F(SocketBus, DevicesAreListedAtOnceAndTransfersGoBothWaysWithTheirStatuses) {
  Serve();
  Connect();
  EXPECT_EQ(bus_->ListDevices(), bench_->ListDevices());
  EXPECT_EQ(bus_->OpenDevice("nothing"), nullptr);
  const auto device = Device();
  const auto facts = device->Facts();
  EXPECT_EQ(facts.driver_version, 0x01040000u);
  EXPECT_EQ(facts.text + facts.second_text + std::to_string(facts.usb_address), "onetwo1");
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
  Serve();
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
  EXPECT_TRUE(bus_->ListDevices().empty());
  auto events = std::make_unique<Events>(*bus_);
  Serve();
  std::vector<std::string> told = {"+" + bench_->State("P").path};
  events->Wait(1);
  auto device = Device();
  Awaited waiting(0x84, Bytes(8)), late(0x84, Bytes(8)), again(0x84, Bytes(8));
  Awaited stale(0x84, Bytes(8)), orphan(0x84, Bytes(8));
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
  EXPECT_TRUE(bus_->ListDevices().empty());
  EXPECT_FALSE(device->ResetPipe(0x84));
  Serve();
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

class HostilePeer : public SocketBus {
 protected:
  HostilePeer() { Serve(); }

  struct Sent {
    Frame frame;
    Bytes payload{};
  };
  static bool Send(FrameSocket& socket, std::vector<Sent> all) {
    return std::ranges::all_of(all, [&](Sent& sent) {
      sent.frame.payload = static_cast<std::uint32_t>(sent.payload.size());
      return socket.Send(probe_driver::EncodeFrame(sent.frame), sent.payload.data(),
                         sent.payload.size());
    });
  }
  // To or from device 1.
  static Frame Transfer(std::uint8_t endpoint, std::uint64_t id, std::uint32_t length,
                        const probe_driver::SetupPacket& setup = {}) {
    return {.type = FrameType::kSubmit,
            .endpoint = endpoint,
            .id = id,
            .device = 1,
            .length = length,
            .setup = setup};
  }
  Bytes Path() const {
    const std::string path = bench_->State("P").path;
    return {path.begin(), path.end()};
  }
  // True when the other side ends the connection, whatever it sends before.
  static bool Ends(FrameSocket& socket) {
    const timeval bound{kBound.count(), 0};
    setsockopt(socket.fd(), SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    char byte = 0;
    ssize_t count = 1;
    while (count > 0) count = recv(socket.fd(), &byte, 1, 0);
    return count == 0 || errno == ECONNRESET;
  }
  // Answers a user's transfer in the place of a server.
  void PlaySimulator(const std::vector<Sent>& answer) {
    const std::string path = path_ + "2";
    const int listening = NewSocket();
    ASSERT_TRUE(WithAddress(bind, listening, path) == 0 && listen(listening, 1) == 0);
    std::thread simulator([&] {
      FrameSocket socket(accept(listening, nullptr, nullptr));
      close(listening);
      unlink(path.c_str());
      Send(socket, {{{.type = FrameType::kArrived}, {'d'}}, {{.type = FrameType::kListed}}});
      std::array<char, probe_driver::kBusGreeting.size() + sizeof(FrameHeader) + 1> open_d;
      socket.Receive(open_d.data(), open_d.size());
      Send(socket,
           {{{.type = FrameType::kOpened, .id = 1, .status = 1}, probe_driver::EncodeFacts({})}});
      FrameHeader submit;
      socket.Receive(submit.data(), submit.size());
      Send(socket, answer);
      EXPECT_TRUE(Ends(socket));
    });
    const auto bus = linux_host::ConnectSimulatorBus(path);
    const auto device = bus->OpenDevice("d");
    Awaited in(0x84, Bytes(64, 0xCC));
    device->Submit(in.transfer());
    EXPECT_EQ(in.Wait(), UsbStatus::kDisconnected);
    EXPECT_TRUE(bus->ListDevices().empty());
    simulator.join();
  }
  void ExpectServerWorks() {
    Connect();
    // A server that has much to do may take longer than a bus waits for its first list.
    const auto latest = std::chrono::steady_clock::now() + kBound;
    while (bus_->ListDevices().empty() && std::chrono::steady_clock::now() < latest) {
      std::this_thread::yield();
    }
    EXPECT_EQ(bus_->ListDevices().size(), 1u);
    bus_.reset();
  }
};

// Each ends the connection, and nothing else: the server stays, and the user's side completes what
// is in flight.
TEST_F(HostilePeer, EachBrokenRuleEndsTheConnection) {
  using enum FrameType;
  const Sent open{{.type = kOpen, .device = 1}, Path()};
  const Sent submit{Transfer(0x84, 5, 8)};
  std::vector<Sent> too_many(10, open);
  for (std::uint64_t id = 1; id <= 9; ++id) {
    too_many[id] = {Transfer(0x84, id, probe_driver::kMaxTransferBytes)};
  }
  const struct {
    const char* what;
    std::vector<Sent> to_server;
    std::vector<Sent> to_user{};  // whose transfer of 64 bytes is in flight as number 2
  } kTable[] = {
      {"no such type", {{{.type = FrameType{9}}}}},
      {"a type of the other side", {{{.type = kListed}}}, {{{.type = kSubmit}}}},
      {"a payload where none belongs", {{{.type = kClose}, {1}}}},
      {"a path too long", {{{.type = kOpen}, Bytes(256, 'a')}}},
      {"a path that is not text", {{{.type = kOpen}, {'a', 0}}}, {{{.type = kArrived}, {1, 2}}}},
      {"an empty path", {{{.type = kOpen}}}},
      {"a device opened twice", {open, open}},
      {"a transfer to no device", {submit}},
      {"closing no device", {{{.type = kClose, .device = 7}}}},
      {"a length that is not the payload's",
       {open, {Transfer(0x02, 5, 2), {1}}},
       {{{.type = kCompleted, .id = 2, .length = 8}}}},
      {"a length beyond all",
       {open, {Transfer(0x84, 5, 0xFFFFFFFF)}},
       {{{.type = kCompleted, .endpoint = 0x84, .id = 2, .length = 65}, Bytes(65)}}},
      {"an id that is in flight", {open, submit, submit}},
      {"an id that is not", {}, {{{.type = kCompleted, .id = 77}}}},
      {"a status that is none", {}, {{{.type = kCompleted, .id = 2, .status = 6}}}},
      {"an answer to nothing", {}, {{{.type = kWasReset, .id = 2}}}},
      {"more in flight than anyone needs", too_many},
  };
  for (const auto& [what, to_server, to_user] : kTable) {
    SCOPED_TRACE(what);
    if (!to_server.empty()) {
      const auto socket = Dial(probe_driver::kBusGreeting);
      Send(*socket, to_server);
      EXPECT_TRUE(Ends(*socket));
    }
    if (!to_user.empty()) PlaySimulator(to_user);
  }
  EXPECT_TRUE(Ends(*Dial("GET / HT")));
  // Allowed, but pointless.
  const auto harmless = Dial(probe_driver::kBusGreeting);
  Send(*harmless, {{{.type = kOpen}, {'x'}},
                   open,
                   submit,
                   {{.type = kCancel, .id = 77, .device = 1}},
                   {{.type = kAbort, .endpoint = 0xFF, .device = 1}},
                   {{.type = kReset, .endpoint = 0x03, .id = 78, .device = 1}},
                   {Transfer(0xFF, 6, 8)}});
  ExpectServerWorks();
}

TEST_F(HostilePeer, UserWhoDoesNotReadDelaysNobody) {
  const auto slow = Dial(probe_driver::kBusGreeting);
  // 8 MiB of answers that nobody reads: the server must neither wait for them nor lose them.
  std::vector<Sent> frames = {{{.type = FrameType::kOpen, .device = 1}, Path()},
                              {Transfer(0, 1, 3, {0xC0, 0x41, 0x0110, 0, 3})}};
  const Bytes chunk(1 << 20, 0x5A);
  for (std::uint64_t i = 0; i < 8; ++i) {
    frames.push_back({Transfer(0x01, 100 + 2 * i, 1 << 20), chunk});
    frames.push_back({Transfer(0x81, 101 + 2 * i, 1 << 20)});
  }
  ASSERT_TRUE(Send(*slow, std::move(frames)));
  ExpectServerWorks();
  Bytes answers(8 << 20);
  ASSERT_TRUE(slow->Receive(answers.data(), answers.size()));
  EXPECT_GT(std::ranges::count(answers, 0x5A), (8 << 20) - 4096);
}

TEST_F(HostilePeer, SocketThatIsInUseOrNoSocketIsRefusedAndADeadOnesIsReplaced) {
  EXPECT_THAT([&] { SocketServer(*bench_, path_, [] {}); },
              testing::ThrowsMessage<std::runtime_error>(HasSubstr("another simulator listens")));
  ExpectServerWorks();
  server_.reset();
  const int killed = NewSocket();
  ASSERT_EQ(WithAddress(bind, killed, path_), 0);
  close(killed);
  Serve();
  ExpectServerWorks();
  server_.reset();
  std::ofstream(path_) << "a file";
  for (const std::string& path : {path_, std::string(200, 'x'), path_ + "/none"}) {
    EXPECT_THROW(SocketServer(*bench_, path, [] {}), std::runtime_error) << path;
  }
}

TEST_F(HostilePeer, CommandsAreAnsweredLineByLineWhateverTheyAre) {
  const auto socket = Dial(kControlGreeting);
  const auto ask = [&](const std::string& line) {
    std::string answer;
    socket->SendBytes((line + "\n").data(), line.size() + 1);
    for (char c = 0; socket->Receive(&c, 1) && c != '\n';) answer += c;
    return answer;
  };
  for (const char* line : {"[1]", "", "{\"command\": \"\xFF\"}"}) {
    EXPECT_THAT(ask(line), HasSubstr("false")) << line;
  }
  EXPECT_EQ(ask("{\"command\": \"stop\"}"), "{\"ok\":true}");
  const std::string endless(2 << 20, ' ');
  socket->SendBytes(endless.data(), endless.size());
  EXPECT_TRUE(Ends(*socket)) << "longer than any request";
}

}  // namespace
}  // namespace sim
