// A bitstream on its way into an FPGA over XVC, as a loader sends it.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/little_endian.h"
#include "bench/bare_xvc.h"
#include "bench/rows.h"
#include "bench/table.h"

namespace bench {
namespace {

constexpr std::size_t kBitstreamBytes = 471000;
constexpr std::size_t kShiftBits = 2 * 8128;  // twice what the server tells is what loaders send
constexpr int kRounds = 15;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

struct Cycles {
  std::vector<std::uint8_t> tms;
  std::vector<std::uint8_t> tdi;
  std::size_t count = 0;

  void Add(bool tms_level, bool tdi_level) {
    if (count % 8 == 0) {
      tms.push_back(0);
      tdi.push_back(0);
    }
    tms.back() = static_cast<std::uint8_t>(tms.back() | unsigned{tms_level} << count % 8);
    tdi.back() = static_cast<std::uint8_t>(tdi.back() | unsigned{tdi_level} << count % 8);
    ++count;
  }
  void Walk(std::string_view levels) {
    for (const char level : levels) Add(level == '1', false);
  }
};

// From reset: the FPGA's instruction for its configuration, the other TAP in BYPASS, and the bits.
Cycles Load() {
  Cycles cycles;
  cycles.Walk("1111101100");
  const std::string_view instruction = "1010001111";  // 5 in six bits, the FPGA is next to TDO
  for (std::size_t i = 0; i < instruction.size(); ++i) {
    cycles.Add(i + 1 == instruction.size(), instruction[i] == '1');
  }
  cycles.Walk("10100");
  std::mt19937 random(7);
  for (std::size_t i = 0; i < kBitstreamBytes; ++i) {
    const auto bits = static_cast<std::uint32_t>(random());
    for (int bit = 0; bit < 8; ++bit) {
      cycles.Add(i + 1 == kBitstreamBytes && bit == 7, (bits >> bit & 1) != 0);
    }
  }
  cycles.Walk("10");
  return cycles;
}

class Tool {
 public:
  explicit Tool(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      Fail("nobody serves XVC there");
    }
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  ~Tool() { close(socket_); }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  // The TDO of all cycles, a shift at a time, each awaited.
  std::vector<std::uint8_t> Shift(const Cycles& cycles) {
    std::vector<std::uint8_t> tdo;
    std::vector<std::uint8_t> message;
    for (std::size_t at = 0; at < cycles.count; at += kShiftBits) {
      const std::size_t bits = std::min(kShiftBits, cycles.count - at);
      const auto from = static_cast<std::ptrdiff_t>(at / 8);
      const auto size = static_cast<std::ptrdiff_t>((bits + 7) / 8);
      message = {'s', 'h', 'i', 'f', 't', ':', 0, 0, 0, 0};
      StoreLe32(&message[6], static_cast<std::uint32_t>(bits));
      for (const auto* levels : {&cycles.tms, &cycles.tdi}) {
        message.insert(message.end(), levels->begin() + from, levels->begin() + from + size);
      }
      if (send(socket_, message.data(), message.size(), MSG_NOSIGNAL) !=
          static_cast<ssize_t>(message.size())) {
        Fail("the XVC server is gone");
      }
      Receive(tdo, static_cast<std::size_t>(size));
    }
    return tdo;
  }

 private:
  void Receive(std::vector<std::uint8_t>& tdo, std::size_t size) {
    const std::size_t end = tdo.size() + size;
    std::size_t at = tdo.size();
    tdo.resize(end);
    while (at < end) {
      const ssize_t count = recv(socket_, &tdo[at], end - at, 0);
      if (count <= 0) Fail("the XVC server does not answer");
      at += static_cast<std::size_t>(count);
    }
  }

  const int socket_;
};

}  // namespace

void XvcRow(std::uint16_t port) {
  const BareXvc bare;
  const Cycles cycles = Load();
  const auto load = [&](std::uint16_t where) { return Tool(where).Shift(cycles); };
  if (load(port) != load(bare.port())) Fail("the two XVC servers do not give the same TDO");
  PrintRow("471 KB into an FPGA through wfx serve --xvc", "a bare XVC server, same chain",
           MeasureInTurns(
               kRounds, [&] { load(port); }, [&] { load(bare.port()); })
               .Value(),
           Target{Wanted::kAtMost, 3});
}

}  // namespace bench
