#include "bench/baselines.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace bench {
namespace {

constexpr char kPath[] = "/bench";
constexpr char kInterface[] = "bench.Bare";

void Check(int result, const char* what) {
  if (result >= 0) return;
  std::fprintf(stderr, "bench: %s: %s\n", what, std::strerror(-result));
  std::exit(1);
}

// Starts `serve` in a child on one end of a socket pair and stores the other end in `*socket`.
pid_t StartServer(int* socket, const std::function<void(int)>& serve) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) Check(-errno, "socketpair");
  const pid_t pid = fork();
  if (pid == 0) {
    close(ends[0]);
    serve(ends[1]);
    _exit(0);
  }
  if (pid < 0) Check(-errno, "fork");
  close(ends[1]);
  *socket = ends[0];
  return pid;
}

bool ReadAll(int socket, void* data, std::size_t length) {
  auto* at = static_cast<std::uint8_t*>(data);
  while (length > 0) {
    const ssize_t count = read(socket, at, length);
    if (count <= 0) return false;
    at += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

bool WriteAll(int socket, const void* data, std::size_t length) {
  const auto* at = static_cast<const std::uint8_t*>(data);
  while (length > 0) {
    const ssize_t count = write(socket, at, length);
    if (count <= 0) return false;
    at += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

struct EchoHeader {
  std::uint32_t sent;
  std::uint32_t wanted;
};

void ServeEcho(int socket) {
  std::vector<std::uint8_t> bytes;
  EchoHeader header;
  while (ReadAll(socket, &header, sizeof header)) {
    bytes.resize(std::max(header.sent, header.wanted));
    if (!ReadAll(socket, bytes.data(), header.sent)) return;
    if (!WriteAll(socket, bytes.data(), header.wanted)) return;
  }
}

int OnGetNumber(sd_bus_message* message, void*, sd_bus_error*) {
  return sd_bus_reply_method_return(message, "i", 33554944);
}

int OnHalf(sd_bus_message* message, void*, sd_bus_error*) {
  const void* bytes = nullptr;
  std::size_t count = 0;
  int result = sd_bus_message_read_array(message, 'y', &bytes, &count);
  if (result < 0) return result;
  sd_bus_message* reply = nullptr;
  result = sd_bus_message_new_method_return(message, &reply);
  if (result >= 0) result = sd_bus_message_append_array(reply, 'y', bytes, count / 2);
  if (result >= 0) result = sd_bus_message_append(reply, "i", 0);
  if (result >= 0) result = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return result < 0 ? result : 1;
}

const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetNumber", "", "i", OnGetNumber, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Half", "ay", "ayi", OnHalf, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

void ServeBus(int socket) {
  sd_bus* bus = nullptr;
  sd_id128_t id;
  Check(sd_id128_randomize(&id), "id");
  Check(sd_bus_new(&bus), "bus");
  Check(sd_bus_set_fd(bus, socket, socket), "bus socket");
  Check(sd_bus_set_server(bus, 1, id), "bus server");
  Check(sd_bus_set_trusted(bus, 1), "bus trust");
  Check(sd_bus_start(bus), "bus start");
  Check(sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kMethods, nullptr),
        "bus methods");
  for (;;) {
    const int handled = sd_bus_process(bus, nullptr);
    if (handled < 0) return;
    if (handled == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return;
  }
}

}  // namespace

Child::~Child() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

SocketEcho::SocketEcho() : server_(StartServer(&socket_, ServeEcho)) {}
SocketEcho::~SocketEcho() { close(socket_); }

void SocketEcho::Call(const std::vector<std::uint8_t>& sent, std::vector<std::uint8_t>& reply) {
  const EchoHeader header{static_cast<std::uint32_t>(sent.size()),
                          static_cast<std::uint32_t>(reply.size())};
  if (!WriteAll(socket_, &header, sizeof header) || !WriteAll(socket_, sent.data(), sent.size()) ||
      !ReadAll(socket_, reply.data(), reply.size())) {
    Check(-EPIPE, "echo");
  }
}

BareBus::BareBus() : server_(StartServer(&socket_, ServeBus)) {
  Check(sd_bus_new(&bus_), "client bus");
  Check(sd_bus_set_fd(bus_, socket_, socket_), "client socket");
  Check(sd_bus_start(bus_), "client start");
}

BareBus::~BareBus() { sd_bus_close_unref(bus_); }

std::int32_t BareBus::GetNumber() {
  sd_bus_message* reply = nullptr;
  std::int32_t number = 0;
  Check(sd_bus_call_method(bus_, nullptr, kPath, kInterface, "GetNumber", nullptr, &reply, ""),
        "call");
  Check(sd_bus_message_read(reply, "i", &number), "reply");
  sd_bus_message_unref(reply);
  return number;
}

void BareBus::Half(const std::vector<std::uint8_t>& sent, std::vector<std::uint8_t>& reply) {
  sd_bus_message* call = nullptr;
  sd_bus_message* answer = nullptr;
  Check(sd_bus_message_new_method_call(bus_, &call, nullptr, kPath, kInterface, "Half"), "message");
  Check(sd_bus_message_append_array(call, 'y', sent.data(), sent.size()), "array");
  Check(sd_bus_call(bus_, call, UINT64_MAX, nullptr, &answer), "call");
  const void* bytes = nullptr;
  std::size_t count = 0;
  Check(sd_bus_message_read_array(answer, 'y', &bytes, &count), "reply");
  reply.assign(static_cast<const std::uint8_t*>(bytes),
               static_cast<const std::uint8_t*>(bytes) + count);
  sd_bus_message_unref(call);
  sd_bus_message_unref(answer);
}

}  // namespace bench
