// Peers that break the rules of the bus frames, on both sides, and those that do not read.
#include <array>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "platform/probe_driver/bus_frames.h"
#include "sim/server/control_commands.h"
#include "sim/server/control_session.h"
#include "tests/unit/random_seed.h"
#include "tests/unit/sim/socket_fixture.h"

namespace sim {
namespace {

using probe_driver::Frame;
using probe_driver::FrameHeader;
using probe_driver::FrameSocket;
using probe_driver::FrameType;
using probe_driver::UsbStatus;
using testing::HasSubstr;

constexpr char kEvkBench[] = R"({"probes": [{"name": "P", "kind": "evk"}]})";

class HostilePeer : public SocketFixture {
 protected:
  HostilePeer() { Serve(kEvkBench); }

  static bool Send(FrameSocket& socket, Frame frame, const Bytes& payload = {}) {
    frame.payload = static_cast<std::uint32_t>(payload.size());
    return socket.Send(probe_driver::EncodeFrame(frame), payload.data(), payload.size());
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
    const std::string path = bench_->PathOf("P");
    return {path.begin(), path.end()};
  }
  // True when the other side ends the connection, whatever it sends before.
  static bool Ends(FrameSocket& socket) {
    const timeval bound{kBound.count(), 0};
    setsockopt(socket.fd(), SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    char byte = 0;
    while (true) {
      const ssize_t count = recv(socket.fd(), &byte, 1, 0);
      if (count <= 0) return count == 0 || errno == ECONNRESET;
    }
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

TEST_F(HostilePeer, EachBrokenRuleEndsTheConnectionAndNothingElse) {
  using enum FrameType;
  struct Sent {
    Frame frame;
    Bytes payload{};
  };
  const Sent open{{.type = kOpen, .device = 1}, Path()};
  const Sent submit{Transfer(0x84, 5, 8)};
  std::vector<Sent> too_many = {open};
  for (std::uint64_t id = 1; id <= 9; ++id) {
    too_many.push_back({Transfer(0x84, id, probe_driver::kLargestTransfer)});
  }
  const struct {
    const char* what;
    std::vector<Sent> frames;
  } kTable[] = {
      {"no such type", {{{.type = FrameType{9}}}}},
      {"a type of the other side", {{{.type = kListed}}}},
      {"a payload where none belongs", {{{.type = kClose}, {1}}}},
      {"a path too long", {{{.type = kOpen}, Bytes(256, 'a')}}},
      {"a path that is not text", {{{.type = kOpen}, {'a', 0}}}},
      {"an empty path", {{{.type = kOpen}}}},
      {"a device opened twice", {open, open}},
      {"a transfer to no device", {submit}},
      {"closing no device", {{{.type = kClose, .device = 7}}}},
      {"a length that is not the payload's", {open, {Transfer(0x02, 5, 2), {1}}}},
      {"a length beyond all", {open, {Transfer(0x84, 5, 0xFFFFFFFF)}}},
      {"an id that is in flight", {open, submit, submit}},
      {"more in flight than anyone needs", too_many},
  };
  for (const auto& [what, frames] : kTable) {
    const auto socket = Dial(probe_driver::kBusGreeting);
    for (const auto& [frame, payload] : frames) Send(*socket, frame, payload);
    EXPECT_TRUE(Ends(*socket)) << what;
  }
  EXPECT_TRUE(Ends(*Dial("GET / HT")));
  ExpectServerWorks();
}

// Frames with random fields, most of them near the rules. Whatever they do, the server stays.
TEST_F(HostilePeer, RandomFramesDoNotHarmTheServer) {
  std::mt19937 random(unit::RandomSeed());
  for (int round = 0; round < 60; ++round) {
    const auto socket = Dial(probe_driver::kBusGreeting);
    Send(*socket, {.type = FrameType::kOpen, .device = 1}, Path());
    for (int i = 0; i < 40; ++i) {
      static constexpr std::array<std::uint8_t, 8> kEndpoints = {0,    1,    2, 0x81,
                                                                 0x84, 0x86, 3, 0xFF};
      const auto byte = [&] { return static_cast<std::uint8_t>(random()); };
      const auto word = [&] { return static_cast<std::uint16_t>(random()); };
      Frame frame =
          Transfer(kEndpoints[random() % kEndpoints.size()], random() % 64, word() % 600u,
                   {byte(), byte(), word(), word(), static_cast<std::uint16_t>(word() % 700)});
      frame.type = static_cast<FrameType>(1 + random() % 6);
      if (random() % 16 == 0) frame.device = 2;
      const bool out = frame.type == FrameType::kSubmit &&
                       !probe_driver::IsInTransfer(frame.endpoint, frame.setup);
      Bytes payload(out ? frame.length : 0, byte());
      FrameHeader header = probe_driver::EncodeFrame(frame);
      header[0] = static_cast<std::uint8_t>(payload.size());
      header[1] = static_cast<std::uint8_t>(payload.size() >> 8);
      if (random() % 30 == 0) header[random() % header.size()] = byte();
      if (!socket->Send(header, payload.data(), payload.size())) break;
    }
  }
  ExpectServerWorks();
}

TEST_F(HostilePeer, UserWhoDoesNotReadDelaysNobody) {
  const auto slow = Dial(probe_driver::kBusGreeting);
  Send(*slow, {.type = FrameType::kOpen, .device = 1}, Path());
  // 8 MiB of answers that nobody reads: the server must neither wait for them nor lose them.
  Send(*slow, Transfer(0, 1, 3, {0xC0, 0x41, 0x0110, 0, 3}));
  const Bytes chunk(1 << 20, 0x5A);
  for (std::uint64_t i = 0; i < 8; ++i) {
    ASSERT_TRUE(Send(*slow, Transfer(0x01, 100 + 2 * i, 1 << 20), chunk));
    ASSERT_TRUE(Send(*slow, Transfer(0x81, 101 + 2 * i, 1 << 20)));
  }
  ExpectServerWorks();
  std::size_t received = 0;
  FrameHeader header;
  Bytes data(1 << 20);
  while (received < 8u << 20 && slow->Receive(header.data(), header.size())) {
    const auto frame = probe_driver::DecodeFrame(header);
    ASSERT_TRUE(frame);
    ASSERT_TRUE(slow->Receive(data.data(), frame->payload));
    if (frame->type == FrameType::kCompleted && frame->endpoint == 0x81) received += frame->payload;
  }
  EXPECT_EQ(received, 8u << 20);
}

// A simulator that answers with nonsense: the user's side ends the connection and completes all.
TEST_F(HostilePeer, NonsenseFromTheSimulatorEndsTheConnection) {
  const struct {
    const char* what;
    Frame answer;
    Bytes payload;
  } kTable[] = {
      {"more bytes than asked for",
       {.type = FrameType::kCompleted, .endpoint = 0x84, .id = 2, .length = 65},
       Bytes(65)},
      {"an id that nobody waits for", {.type = FrameType::kCompleted, .id = 77}, {}},
      {"a status that is none", {.type = FrameType::kCompleted, .id = 2, .status = 6}, {}},
      {"bytes that did not come", {.type = FrameType::kCompleted, .id = 2, .length = 8}, {}},
      {"an answer to nothing", {.type = FrameType::kWasReset, .id = 2}, {}},
      {"a path that is not text", {.type = FrameType::kArrived}, {1, 2}},
      {"a frame of its own side", {.type = FrameType::kSubmit}, {}},
  };
  for (const auto& row : kTable) {
    server_.reset();
    const int listening = NewSocket();
    ASSERT_EQ(WithAddress(bind, listening), 0);
    ASSERT_EQ(listen(listening, 1), 0);
    std::thread simulator([&] {
      FrameSocket socket(accept(listening, nullptr, nullptr));
      close(listening);
      unlink(path_.c_str());
      std::array<char, 8> greeting;
      socket.Receive(greeting.data(), greeting.size());
      Send(socket, {.type = FrameType::kArrived}, {'d'});
      Send(socket, {.type = FrameType::kListed});
      FrameHeader header;
      char path = 0;
      socket.Receive(header.data(), header.size());  // open, id 1
      socket.Receive(&path, 1);
      Send(socket, {.type = FrameType::kOpened, .id = 1, .status = 1},
           probe_driver::EncodeFacts({}));
      socket.Receive(header.data(), header.size());  // submit, id 2
      Send(socket, row.answer, row.payload);
      EXPECT_TRUE(Ends(socket)) << row.what;
    });
    Connect();
    if (const auto device = bus_->OpenDevice("d"); device != nullptr) {
      Awaited in(0x84, Bytes(64, 0xCC));
      device->Submit(in.transfer());
      EXPECT_EQ(in.Wait(), UsbStatus::kDisconnected) << row.what;
      EXPECT_TRUE(bus_->ListDevices().empty()) << row.what;
    } else {
      ADD_FAILURE() << row.what;
    }
    simulator.join();
    bus_.reset();
  }
}

TEST_F(HostilePeer, SocketThatIsInUseOrNoSocketIsRefusedAndADeadOnesIsReplaced) {
  EXPECT_THAT([&] { SocketServer(*bench_, path_, [] {}); },
              testing::ThrowsMessage<std::runtime_error>(HasSubstr("another simulator listens")));
  ExpectServerWorks();
  server_.reset();
  const int killed = NewSocket();
  ASSERT_EQ(WithAddress(bind, killed), 0);
  close(killed);
  Serve(kEvkBench);
  ExpectServerWorks();
  server_.reset();
  std::ofstream(path_) << "a file";
  for (const std::string& path : {path_, std::string(200, 'x'), directory_ + "/none/s"}) {
    EXPECT_THROW(SocketServer(*bench_, path, [] {}), std::runtime_error) << path;
  }
}

TEST_F(HostilePeer, CommandsAreAnsweredLineByLine) {
  const struct {
    const char* request;
    const char* answer;
  } kTable[] = {
      {R"({"command": "list"})", R"("name":"P")"},
      {R"({"command": "unplug", "name": "P"})", R"({"ok":true})"},
      {R"({"command": "unplug", "name": "P"})", "P is not plugged"},
      {R"({"command": "plug", "name": "Q"})", "no probe named Q"},
      {R"({"command": "plug", "name": "P"})", R"({"ok":true})"},
      {R"({"command": "dump", "name": "P", "what": "ram"})", R"({"data":"ffff)"},
      {R"({"command": "dump", "name": "P", "what": "x"})", "ram or fpga"},
      {R"({"command": "fault", "name": "P", "kind": "stall", "endpoint": 2})", R"({"ok":true})"},
      {R"({"command": "fault", "name": "P", "kind": "flood"})", "no such kind"},
      {R"({"command": "fault", "name": "P", "kind": "stall", "count": "x"})", R"("ok":false)"},
      {R"({"command": "set", "name": "P", "changes": {"hue": 1}})", "no member"},
      {R"({"command": "swv", "name": "P", "data": "0"})", "odd number"},
      {R"({"command": "dance", "name": "P"})", "no command dance"},
      {R"([1])", R"("ok":false)"},
      {"{\"command\": \"\xFF\"}", R"("ok":false)"},
      {"", R"("ok":false)"},
  };
  const auto socket = Dial(kControlGreeting);
  for (const auto& row : kTable) {
    const std::string line = std::string(row.request) + "\n";
    ASSERT_TRUE(socket->SendBytes(line.data(), line.size()));
    std::string answer;
    for (char c = 0; socket->Receive(&c, 1) && c != '\n';) answer += c;
    EXPECT_THAT(answer, HasSubstr(row.answer)) << row.request;
  }
}

}  // namespace
}  // namespace sim
