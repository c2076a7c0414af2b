// Peers that break the rules of the bus frames, on both sides, and those that do not read.
#include <array>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "platform/probe_driver/bus_frames.h"
#include "sim/server/control_commands.h"
#include "sim/server/control_session.h"
#include "tests/unit/sim/socket_fixture.h"

namespace sim {
namespace {

using probe_driver::Frame;
using probe_driver::FrameHeader;
using probe_driver::FrameSocket;
using probe_driver::FrameType;
using probe_driver::UsbStatus;
using testing::HasSubstr;

constexpr char kEvk[] = R"({"probes": [{"name": "P", "kind": "evk"}]})";

class HostilePeer : public SocketFixture {
 protected:
  HostilePeer() { Serve(kEvk); }

  static bool Send(FrameSocket& socket, Frame frame, const Bytes& payload = {}) {
    frame.payload = static_cast<std::uint32_t>(payload.size());
    return socket.Send(probe_driver::EncodeFrame(frame), payload.data(), payload.size());
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
  const struct {
    const char* what;
    std::function<void(FrameSocket&)> send;
  } kTable[] = {
      {"no such type", [](FrameSocket& s) { Send(s, {.type = FrameType{9}}); }},
      {"a type of the other side", [](FrameSocket& s) { Send(s, {.type = FrameType::kListed}); }},
      {"a payload where none belongs",
       [](FrameSocket& s) { Send(s, {.type = FrameType::kClose}, {1}); }},
      {"a path too long",
       [](FrameSocket& s) { Send(s, {.type = FrameType::kOpen}, Bytes(256, 'a')); }},
      {"a path that is not text",
       [](FrameSocket& s) {
         Send(s, {.type = FrameType::kOpen}, {'a', 0});
       }},
      {"an empty path", [](FrameSocket& s) { Send(s, {.type = FrameType::kOpen}); }},
      {"a device opened twice",
       [this](FrameSocket& s) {
         Send(s, {.type = FrameType::kOpen, .device = 1}, Path());
         Send(s, {.type = FrameType::kOpen, .device = 1}, Path());
       }},
      {"a transfer to no device",
       [](FrameSocket& s) {
         Send(s, {.type = FrameType::kSubmit, .endpoint = 0x84, .device = 7});
       }},
      {"closing no device",
       [](FrameSocket& s) { Send(s, {.type = FrameType::kClose, .device = 7}); }},
      {"a length that is not the payload's",
       [](FrameSocket& s) {
         Send(s, {.type = FrameType::kSubmit, .endpoint = 0x02, .length = 2}, {1});
       }},
      {"a length beyond all",
       [](FrameSocket& s) {
         Send(s, {.type = FrameType::kSubmit, .endpoint = 0x84, .length = 0xFFFFFFFF});
       }},
      {"an id that is in flight",
       [this](FrameSocket& s) {
         Send(s, {.type = FrameType::kOpen, .device = 1}, Path());
         const Frame in{
             .type = FrameType::kSubmit, .endpoint = 0x84, .id = 5, .device = 1, .length = 8};
         Send(s, in);
         Send(s, in);
       }},
      {"more in flight than anyone needs",
       [this](FrameSocket& s) {
         Send(s, {.type = FrameType::kOpen, .device = 1}, Path());
         for (std::uint64_t id = 1; id <= 9; ++id) {
           Send(s, {.type = FrameType::kSubmit,
                    .endpoint = 0x84,
                    .id = id,
                    .device = 1,
                    .length = probe_driver::kLargestTransfer});
         }
       }},
  };
  for (const auto& row : kTable) {
    const auto socket = Dial(probe_driver::kBusGreeting);
    row.send(*socket);
    EXPECT_TRUE(Ends(*socket)) << row.what;
  }
  const auto stranger = Dial("GET / HT");
  EXPECT_TRUE(Ends(*stranger));
  ExpectServerWorks();
}

// Frames with random fields, most of them near the rules. Whatever they do, the server stays.
TEST_F(HostilePeer, RandomFramesDoNotHarmTheServer) {
  const std::uint32_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 60; ++round) {
    const auto socket = Dial(probe_driver::kBusGreeting);
    Send(*socket, {.type = FrameType::kOpen, .device = 1}, Path());
    for (int i = 0; i < 40; ++i) {
      static constexpr std::array<std::uint8_t, 8> kEndpoints = {0,    1,    2, 0x81,
                                                                 0x84, 0x86, 3, 0xFF};
      Frame frame{.type = static_cast<FrameType>(1 + random() % 6),
                  .endpoint = kEndpoints[random() % kEndpoints.size()],
                  .id = random() % 64,
                  .device = random() % 16 == 0 ? 2u : 1u,
                  .length = static_cast<std::uint32_t>(random() % 600)};
      frame.setup = {static_cast<std::uint8_t>(random()), static_cast<std::uint8_t>(random()),
                     static_cast<std::uint16_t>(random()), static_cast<std::uint16_t>(random()),
                     static_cast<std::uint16_t>(random() % 700)};
      const bool out = frame.type == FrameType::kSubmit &&
                       !probe_driver::IsInTransfer(frame.endpoint, frame.setup);
      Bytes payload(out ? frame.length : 0, static_cast<std::uint8_t>(random()));
      FrameHeader header = probe_driver::EncodeFrame(frame);
      header[0] = static_cast<std::uint8_t>(payload.size());
      header[1] = static_cast<std::uint8_t>(payload.size() >> 8);
      if (random() % 30 == 0)
        header[random() % header.size()] = static_cast<std::uint8_t>(random());
      if (!socket->Send(header, payload.data(), payload.size())) break;
    }
  }
  ExpectServerWorks();
}

TEST_F(HostilePeer, UserWhoDoesNotReadDelaysNobody) {
  const auto slow = Dial(probe_driver::kBusGreeting);
  Send(*slow, {.type = FrameType::kOpen, .device = 1}, Path());
  // 8 MiB of answers that nobody reads: the server must neither wait for them nor lose them.
  const Bytes mode_reply(3);
  Send(*slow, {.type = FrameType::kSubmit,
               .id = 1,
               .device = 1,
               .length = 3,
               .setup = {0xC0, 0x41, 0x0110, 0, 3}});
  const Bytes chunk(1 << 20, 0x5A);
  for (std::uint64_t i = 0; i < 8; ++i) {
    ASSERT_TRUE(Send(*slow,
                     {.type = FrameType::kSubmit,
                      .endpoint = 0x01,
                      .id = 100 + 2 * i,
                      .device = 1,
                      .length = 1 << 20},
                     chunk));
    ASSERT_TRUE(Send(*slow, {.type = FrameType::kSubmit,
                             .endpoint = 0x81,
                             .id = 101 + 2 * i,
                             .device = 1,
                             .length = 1 << 20}));
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
    const int listening = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, path_.size());
    ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
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
    const auto device = bus_->OpenDevice("d");
    EXPECT_NE(device, nullptr);
    if (device != nullptr) {
      Awaited in(0x84, Bytes(64, 0xCC));
      device->Submit(in.transfer());
      EXPECT_EQ(in.Wait(), UsbStatus::kDisconnected) << row.what;
      EXPECT_TRUE(bus_->ListDevices().empty()) << row.what;
    }
    simulator.join();
    bus_.reset();
  }
}

TEST_F(HostilePeer, SocketThatIsInUseOrNoSocketIsRefused) {
  EXPECT_THROW(
      {
        try {
          const SocketServer second(*bench_, path_, [] {});
        } catch (const std::runtime_error& error) {
          EXPECT_THAT(error.what(), HasSubstr("another simulator listens"));
          throw;
        }
      },
      std::runtime_error);
  ExpectServerWorks();
  server_.reset();
  std::ofstream(path_) << "a file";
  EXPECT_THROW(SocketServer(*bench_, path_, [] {}), std::runtime_error);
  EXPECT_THROW(SocketServer(*bench_, std::string(200, 'x'), [] {}), std::runtime_error);
  EXPECT_THROW(SocketServer(*bench_, directory_ + "/none/s", [] {}), std::runtime_error);
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
