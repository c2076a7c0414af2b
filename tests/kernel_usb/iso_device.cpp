#include "tests/kernel_usb/iso_device.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

#include "tests/kernel_usb/gadget.h"
#include "tests/unit/hex_bytes.h"

namespace kernel_usb {
namespace {

using unit::Bytes;

// The protocol's header: words in network order (48 bytes with the setup packet at its end).
using Header = std::array<std::uint32_t, 12>;
enum Place { kCommand, kSequence, kDevice, kIn, kEndpoint, kStatus, kLength, kFrame, kPackets };
constexpr std::uint32_t kSubmit = 1, kUnlink = 2, kAnswer = 2;  // an answer is the command and 2
struct Packet {
  std::uint32_t offset, length, actual, status;
};

bool Receive(int socket, void* bytes, std::size_t size) {
  return size == 0 || recv(socket, bytes, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

template <typename Words>
void SwapWords(Words* words, std::size_t size) {
  auto* const word = reinterpret_cast<std::uint32_t*>(words);
  std::transform(word, word + size / 4, word, [](std::uint32_t w) { return ntohl(w); });
}

Bytes Descriptor(std::uint8_t type) {
  if (type == 1) return unit::HexBytes("12 01 00 02 FF 00 00 40 0F 0F 02 20 00 01 00 00 00 01");
  if (type != 2) return {};
  return unit::HexBytes(
      "09 02 37 00 01 01 00 80 32 09 04 00 00 03 FF 00 00 00 "
      "07 05 01 01 08 00 01 07 05 81 01 08 00 01 07 05 02 02 00 02 00 "
      "09 04 00 01 01 FF 00 00 00 07 05 02 03 08 00 01");
}

}  // namespace

IsoDevice::IsoDevice() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("no socket");
  socket_ = ends[0];
  // Port, socket, an id of ours, high speed.
  WriteFile("/sys/devices/platform/vhci_hcd.0/attach", "0 " + std::to_string(ends[1]) + " 1 3");
  close(ends[1]);
  server_ = std::thread([this] { Serve(); });
}

IsoDevice::~IsoDevice() {
  shutdown(socket_, SHUT_RDWR);
  server_.join();
  close(socket_);
}

void IsoDevice::Serve() {
  Header header;
  while (Receive(socket_, header.data(), sizeof header)) {
    const std::uint32_t setup = header[10];
    SwapWords(header.data(), sizeof header);
    const bool in = header[kIn] != 0;
    const bool submitted = header[kCommand] == kSubmit;
    const std::uint32_t count = submitted && header[kEndpoint] == 1 ? header[kPackets] : 0;
    Bytes data(submitted && !in ? header[kLength] : 0);
    std::vector<Packet> packets(count);
    if (!Receive(socket_, data.data(), data.size())) return;
    if (!Receive(socket_, packets.data(), count * sizeof(Packet))) return;
    SwapWords(packets.data(), count * sizeof(Packet));
    if (!in && count != 0) taken_.clear();
    for (std::uint32_t i = 0; i < count; ++i) {
      Packet& packet = packets[i];
      packet.actual = in ? std::min(i + 1, packet.length) : packet.length;
      packet.status = 0;
      if (in && i == 1) packet.actual = 0, packet.status = static_cast<std::uint32_t>(-EPROTO);
      if (in) data.insert(data.end(), packet.actual, static_cast<std::uint8_t>(i));
      const auto start = data.begin() + packet.offset;
      if (!in) taken_ += unit::HexText(Bytes(start, start + packet.length)) + "|";
    }
    if (submitted && header[kEndpoint] == 0 && in && (setup & 0xFFFF) == 0x0680) {
      data = Descriptor(static_cast<std::uint8_t>(setup >> 24));
    }
    Header answer{header[kCommand] + kAnswer, header[kSequence]};
    if (submitted)
      answer[kLength] =
          in ? std::min<std::uint32_t>(data.size(), header[kLength]) : header[kLength];
    data.resize(in ? answer[kLength] : 0);
    answer[kPackets] = count;
    SwapWords(answer.data(), sizeof answer);
    SwapWords(packets.data(), count * sizeof(Packet));
    send(socket_, answer.data(), sizeof answer, MSG_NOSIGNAL);
    send(socket_, data.data(), data.size(), MSG_NOSIGNAL);
    send(socket_, packets.data(), count * sizeof(Packet), MSG_NOSIGNAL);
  }
}

}  // namespace kernel_usb
