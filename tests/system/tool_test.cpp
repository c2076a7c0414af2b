// Tools that misbehave, or are disturbed, while they use a probe's JTAG chain.
#ifdef _WIN32
#include <winsock2.h>
#else
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <sstream>
#include <thread>

#include "tests/system/served_probe.h"

namespace system_test {
namespace {

class Tool : public ServedProbe {};

// Sockets as both hosts have them.
#ifdef _WIN32
using Length = int;
constexpr int kNoSignal = 0;
constexpr int kSendSide = SD_SEND;

void SetPatience(SOCKET socket) {
  const DWORD patience_ms = 30000;
  for (const int side : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    setsockopt(socket, SOL_SOCKET, side, reinterpret_cast<const char*>(&patience_ms),
               sizeof patience_ms);
  }
}

const bool g_started = [] {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}();
#else
using SOCKET = int;
using Length = ssize_t;
constexpr int kNoSignal = MSG_NOSIGNAL;
constexpr int kSendSide = SHUT_WR;

int closesocket(SOCKET socket) { return close(socket); }

void SetPatience(SOCKET socket) {
  const timeval patience{30, 0};
  for (const int side : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    setsockopt(socket, SOL_SOCKET, side, &patience, sizeof patience);
  }
}
#endif

// One of the tools' connections.
class Connection {
 public:
  explicit Connection(const std::string& port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    SetPatience(socket_);
  }
  ~Connection() { closesocket(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool Send(const std::string& bytes) {
    return send(socket_, bytes.data(), static_cast<Length>(bytes.size()), kNoSignal) ==
           static_cast<Length>(bytes.size());
  }
  void EndSending() { shutdown(socket_, kSendSide); }
  // `size` bytes, or all until the other side ends.
  std::string Receive(std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t at = 0;
    while (at < size) {
      const auto count = recv(socket_, bytes.data() + at, static_cast<Length>(size - at), 0);
      if (count <= 0) break;
      at += static_cast<std::size_t>(count);
    }
    return bytes.substr(0, at);
  }

 private:
  const SOCKET socket_;
};

// The ids of the default bench, out of the registers that a reset selects.
std::string ReadIds(Connection& tool) {
  // 5 cycles to reset, idle, select, capture, and 64 that shift.
  const std::string tms("\x5f\0\0\0\0\0\0\0\0\0", 10);
  EXPECT_TRUE(tool.Send(std::string("shift:\x49\0\0\0", 10) + tms + std::string(10, '\0')));
  const std::string tdo = tool.Receive(10);
  std::uint64_t ids = 0;
  for (int i = 0; i < 64 && tdo.size() == 10; ++i) {
    const int at = i + 9;
    ids |=
        std::uint64_t{static_cast<std::uint8_t>(tdo[static_cast<std::size_t>(at / 8)]) >> at % 8 &
                      1u}
        << i;
  }
  std::ostringstream text;
  text << std::hex << ids;
  return text.str();
}
constexpr char kIds[] = "1ba014770684617f";

TEST_F(Tool, AToolThatMisbehavesLosesItsConnectionAndTheNextOneFindsTheChain) {
  ASSERT_NO_FATAL_FAILURE(Bring());
  ASSERT_NO_FATAL_FAILURE(Start("--xvc"));
  const std::pair<std::string, std::string> cases[] = {
      {"GET / HTTP/1.1\r\n",
       "the tool sent 474554202f204854, which is none of getinfo, settck and "
       "shift; the connection is closed"},
      {std::string("shift:\x01\0\x80\0", 10),
       "the tool wants to shift 8388609 bits at once; the connection is closed"},
      {std::string("shift:\x10\0\0\0\0\0\0", 13),
       "the tool left in the middle of a message; the connection is closed"},
  };
  for (const auto& [sent, said] : cases) {
    Connection tool(where);
    EXPECT_TRUE(tool.Send(sent));
    tool.EndSending();
    EXPECT_EQ(tool.Receive(100), "");
    EXPECT_EQ(Said("problem"), said);
    Connection next(where);
    EXPECT_EQ(ReadIds(next), kIds);
  }
  // A second tool has its turn when the first has left.
  {
    Connection first(where);
    EXPECT_TRUE(first.Send("getinfo:"));
    EXPECT_TRUE(first.Receive(20).starts_with("xvcServer_v1.0:"));
    Connection second(where);
    EXPECT_EQ(ReadIds(first), kIds);
  }
  for (int i = 0; i < 1000; ++i) {
    const bool sends = i % 4 == 0;
    {
      Connection tool(where);
      ASSERT_TRUE(!sends || tool.Send("settck:"));
    }
    ASSERT_TRUE(!sends || Said("problem") == cases[2].second);
  }
  Connection last(where);
  EXPECT_EQ(ReadIds(last), kIds);
}

TEST_F(Tool, AToolThatReadsNothingIsDropped) {
  ASSERT_NO_FATAL_FAILURE(Bring());
  ASSERT_NO_FATAL_FAILURE(Start("--xvc"));
  Connection tool(where);
  std::string questions;
  for (int i = 0; i < 1 << 20; ++i) questions += "getinfo:";
  EXPECT_TRUE(tool.Send(questions));
  EXPECT_EQ(Said("problem"), "the tool does not read its answers; the connection is closed");
  Connection next(where);
  EXPECT_EQ(ReadIds(next), kIds);
}

TEST_F(Tool, AnotherProgramsScanIsToldAndAKilledServerLeavesNothingBehind) {
  ASSERT_NO_FATAL_FAILURE(Bring());
  ASSERT_NO_FATAL_FAILURE(Start("--xvc"));
  {
    Connection tool(where);
    EXPECT_EQ(ReadIds(tool), kIds);
    EXPECT_EQ(Wfx({"mode", "WFX0001", "SWD"}).exit_status, 11);
    EXPECT_EQ(Wfx({"clock", "WFX0001", "FREQ_A_48_0"}).exit_status, 11);
    EXPECT_EQ(ReadIds(tool), kIds);
    EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014770", "0684617F0"}));
    EXPECT_TRUE(tool.Send(std::string("shift:\x08\0\0\0\0\0", 12)));
    EXPECT_EQ(tool.Receive(1), "");
    EXPECT_EQ(Said("error"), "NOT_ACQUIRED");
  }
  Connection next(where);
  EXPECT_EQ(ReadIds(next), kIds);
  server->Kill();
  ASSERT_NO_FATAL_FAILURE(Start("--xvc"));
  Connection again(where);
  EXPECT_EQ(ReadIds(again), kIds);
  server.reset();
  EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014770", "0684617F0"}));
}

#ifndef _WIN32
// What it sends is neither kept without end nor worked on when the server has to go.
TEST_F(Tool, AToolThatNeverStopsSendingDoesNotKeepTheServer) {
  ASSERT_NO_FATAL_FAILURE(Bring());
  ASSERT_NO_FATAL_FAILURE(Start("--remote-bitbang"));
  Connection tool(where);
  std::string cycles;
  for (int i = 0; i < 1 << 20; ++i) cycles += "04";
  const std::jthread sends([&] {
    while (tool.Send(cycles)) {
    }
  });
  const auto file = std::filesystem::file_size(capture_path());
  EXPECT_TRUE(WaitUntil([&] { return std::filesystem::file_size(capture_path()) > file + 10000; }))
      << "nothing of it is ever clocked";
  server->Interrupt();
  EXPECT_EQ(server->Wait(), 0);
}

TEST_F(Tool, WhereItListensIsCheckedAndFreedAgain) {
  ASSERT_NO_FATAL_FAILURE(Bring());
  const std::string at = (home() / "at").string();
  WriteFile(at, "not ours");
  sockaddr_un datagrams{AF_UNIX, {}};
  (at + "d").copy(datagrams.sun_path, sizeof datagrams.sun_path - 1);
  const int held = socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_EQ(bind(held, reinterpret_cast<sockaddr*>(&datagrams), sizeof datagrams), 0);
  const std::pair<Words, std::string> cases[] = {
      {{"--xvc", ""}, "'' is no [ADDRESS:]PORT or path"},
      {{"--xvc", at}, "'" + at + "' is no [ADDRESS:]PORT"},
      {{"--xvc", "[::1]:65536"}, "'[::1]:65536' is no [ADDRESS:]PORT"},
      {{"--xvc", "nobody.invalid:1"}, "'nobody.invalid' is no address of this computer"},
      {{"--remote-bitbang", at},
       "cannot listen on " + at + ": something else than a socket is there"},
      {{"--remote-bitbang", at + "d"},
       "cannot listen on " + at + "d: somebody listens there already"},
      {{"--remote-bitbang", at + std::string(200, 'x')},
       "the path of a local socket is at most 107 bytes long"},
  };
  for (const auto& [words, problem] : cases) {
    Words command = {"serve", "WFX0001", "--json"};
    command.insert(command.end(), words.begin(), words.end());
    const Finished refused = Wfx(command);
    EXPECT_EQ(refused.exit_status, 2);
    EXPECT_EQ(nlohmann::json::parse(refused.out, nullptr, false).value("problem", ""), problem);
  }
  close(held);
  // A colon and digits in a path are no port.
  for (const auto& ends : {&Client::Kill, &Client::Interrupt}) {
    ASSERT_NO_FATAL_FAILURE(Start("--remote-bitbang", at + ":33"));
    ((*server).*ends)();
    server->Wait();
  }
  EXPECT_FALSE(std::filesystem::exists(at + ":33"));
  EXPECT_EQ(ReadFile(at), "not ours");
}

// Calls of another client that are always waiting: between two of them at most one packet goes out.
TEST_F(Tool, AnotherClientsCallWaitsForAtMostOnePacket) {
  ASSERT_NO_FATAL_FAILURE(Bring());
  ASSERT_NO_FATAL_FAILURE(Start("--xvc"));
  Connection tool(where);
  const std::uint32_t bits = 1u << 23;
  const std::string size{'\0', '\0', '\x80', '\0'};
  const auto file = std::filesystem::file_size(capture_path());
  EXPECT_TRUE(tool.Send("shift:" + size + std::string(bits / 4, '\0')));
  EXPECT_TRUE(WaitUntil([&] { return std::filesystem::file_size(capture_path()) > file + 20000; }));
  sd_bus* other = nullptr;
  sd_bus_new(&other);
  const auto socket = home() / "run" / "org.wirefox.TzWirefox.sock";
  sd_bus_set_address(other, ("unix:path=" + socket.string()).c_str());
  ASSERT_GE(sd_bus_start(other), 0);
  for (int i = 0; i < 200; ++i) {
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(other, &call, "org.wirefox.TzWirefox", "/org/wirefox/TzWirefox",
                                   "org.wirefox.ITzWirefox_v3", "GetHwRevID");
    sd_bus_message_append(call, "s", "WFX0002");
    EXPECT_GE(sd_bus_call_async(
                  other, nullptr, call, [](sd_bus_message*, void*, sd_bus_error*) { return 0; },
                  nullptr, UINT64_MAX),
              0);
    sd_bus_message_unref(call);
  }
  sd_bus_flush(other);
  EXPECT_EQ(tool.Receive(bits / 8).size(), bits / 8);
  sd_bus_flush_close_unref(other);
  holder.reset();
  server.reset();
  // A 3 for each packet, a 2 for each of those calls.
  std::string wire = Capture(
      "usb.urb_type == 'S' && (usb.endpoint_address == 0x02 && usb.transfer_type == 3 || "
      "usb.setup.bRequest == 0x5c)",
      {"usb.transfer_type"});
  std::erase_if(wire, [](char c) { return c != '2' && c != '3'; });
  ASSERT_EQ(std::ranges::count(wire, '2'), 200);
  wire = wire.substr(wire.find('2'), wire.rfind('2') - wire.find('2'));
  EXPECT_EQ(wire.find("33"), std::string::npos) << wire;
  EXPECT_NE(wire.find('3'), std::string::npos) << "the tool's scan was over before";
}
#endif

}  // namespace
}  // namespace system_test
