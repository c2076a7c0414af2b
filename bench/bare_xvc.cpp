#include "bench/bare_xvc.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "base/little_endian.h"
#include "sim/bench.h"
#include "sim/description/description.h"
#include "sim/targets/jtag_chain.h"

namespace bench {
namespace {

constexpr std::string_view kInfo = "xvcServer_v1.0:8128\n";  // as `wfx serve` says

void Turn(int socket, int option) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, option, &on, sizeof on);
}

class Connection {
 public:
  explicit Connection(int socket) : socket_(socket) { Turn(socket, TCP_NODELAY); }
  ~Connection() { close(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool Read(std::uint8_t* bytes, std::size_t size) {
    for (std::size_t at = 0; at < size;) {
      const ssize_t count = recv(socket_, bytes + at, size - at, 0);
      if (count <= 0) return false;
      at += static_cast<std::size_t>(count);
      Turn(socket_, TCP_QUICKACK);
    }
    return true;
  }
  bool Write(const void* bytes, std::size_t size) {
    return send(socket_, bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
  }

 private:
  const int socket_;
};

// Of the messages only those that the bench's client sends.
void Serve(Connection& client, sim::JtagChain& chain) {
  std::uint8_t word[4];
  std::uint8_t name[8];
  std::vector<std::uint8_t> vectors;
  std::vector<std::uint8_t> tdo;
  while (client.Read(name, 2)) {
    if (name[0] == 'g') {
      if (!client.Read(name, 6) || !client.Write(kInfo.data(), kInfo.size())) return;
      continue;
    }
    if (!client.Read(name, 4) || !client.Read(word, 4)) return;
    const std::uint32_t bits = LoadLe32(word);
    const std::size_t size = (bits + 7) / 8;
    vectors.resize(2 * size);
    if (!client.Read(vectors.data(), vectors.size())) return;
    tdo.assign(size, 0);
    for (std::uint32_t i = 0; i < bits; ++i) {
      const bool tms = (vectors[i / 8] >> i % 8 & 1) != 0;
      const bool tdi = (vectors[size + i / 8] >> i % 8 & 1) != 0;
      if (chain.Clock(tms, tdi)) tdo[i / 8] = static_cast<std::uint8_t>(tdo[i / 8] | 1u << i % 8);
    }
    if (!client.Write(tdo.data(), tdo.size())) return;
  }
}

[[noreturn]] void ServeForEver(int listener) {
  const sim::BenchDescription demo = sim::ParseBench(sim::Bench::DemoDescription());
  sim::TargetMemory memory(demo.probes[0].swd[0].memories);
  sim::JtagChain chain(demo.probes[0].jtag, &memory);
  chain.PowerUp();
  while (true) {
    Connection client(accept(listener, nullptr, nullptr));
    Serve(client, chain);
  }
}

pid_t Start(std::uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      listen(listener, 1) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    std::perror("bench: bare XVC server");
    std::exit(1);
  }
  port = ntohs(address.sin_port);
  const pid_t pid = fork();
  if (pid == 0) ServeForEver(listener);
  close(listener);
  return pid;
}

}  // namespace

BareXvc::BareXvc() : server_(Start(port_)) {}

}  // namespace bench
