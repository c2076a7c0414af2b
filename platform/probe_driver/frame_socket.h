// A connected stream socket that carries the frames of bus_frames.h, on hosts with POSIX sockets.
#pragma once

#include <errno.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

namespace probe_driver {

// Sends may come from several threads, one at a time; receives from one thread. Shutdown may be
// called at any time and ends both.
class FrameSocket {
 public:
  // Owns the descriptor.
  explicit FrameSocket(int fd) : fd_(fd) {}
  ~FrameSocket() { close(fd_); }
  FrameSocket(const FrameSocket&) = delete;
  FrameSocket& operator=(const FrameSocket&) = delete;

  int fd() const { return fd_; }
  void Shutdown() { shutdown(fd_, SHUT_RDWR); }

  // Sends all, waiting as long as the other side takes. The payload goes out from where it is.
  // False: the connection is lost.
  bool Send(std::span<const std::uint8_t> header, const std::uint8_t* payload, std::size_t size) {
    std::size_t sent = 0;
    while (sent < header.size() + size) {
      const ssize_t count = SendSome(header, payload, size, sent, 0);
      if (count < 0) return false;
      sent += static_cast<std::size_t>(count);
    }
    return true;
  }

  // Sends what the other side takes at once; the number of bytes, of the header and the payload
  // together. Negative: the connection is lost.
  ssize_t SendNow(std::span<const std::uint8_t> header, const std::uint8_t* payload,
                  std::size_t size) {
    const ssize_t count = SendSome(header, payload, size, 0, MSG_DONTWAIT);
    return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : count;
  }

  bool SendBytes(const void* bytes, std::size_t size) {
    const char* at = static_cast<const char*>(bytes);
    while (size > 0) {
      const ssize_t count = send(fd_, at, size, MSG_NOSIGNAL);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return false;
      at += count;
      size -= static_cast<std::size_t>(count);
    }
    return true;
  }

  // Receives exactly `size` bytes. Large pieces arrive straight in `out`. False: the connection
  // ended before.
  bool Receive(void* out, std::size_t size) {
    char* at = static_cast<char*>(out);
    while (size > 0) {
      if (begin_ == end_ && size >= buffer_.size()) {
        const ssize_t count = ReceiveSome(at, size);
        if (count <= 0) return false;
        at += count;
        size -= static_cast<std::size_t>(count);
        continue;
      }
      if (begin_ == end_) {
        const ssize_t count = ReceiveSome(buffer_.data(), buffer_.size());
        if (count <= 0) return false;
        begin_ = 0;
        end_ = static_cast<std::size_t>(count);
      }
      const std::size_t taken = std::min(size, end_ - begin_);
      std::memcpy(at, buffer_.data() + begin_, taken);
      begin_ += taken;
      at += taken;
      size -= taken;
    }
    return true;
  }

 private:
  ssize_t SendSome(std::span<const std::uint8_t> header, const std::uint8_t* payload,
                   std::size_t size, std::size_t sent, int flags) {
    iovec pieces[2];
    int count = 0;
    if (sent < header.size()) {
      pieces[count++] = {const_cast<std::uint8_t*>(header.data()) + sent, header.size() - sent};
      sent = header.size();
    }
    const std::size_t of_payload = sent - header.size();
    if (of_payload < size) {
      pieces[count++] = {const_cast<std::uint8_t*>(payload) + of_payload, size - of_payload};
    }
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = static_cast<std::size_t>(count);
    ssize_t moved = 0;
    do {
      moved = sendmsg(fd_, &message, flags | MSG_NOSIGNAL);
    } while (moved < 0 && errno == EINTR);
    return moved;
  }

  ssize_t ReceiveSome(char* out, std::size_t room) {
    ssize_t moved = 0;
    do {
      moved = recv(fd_, out, room, 0);
    } while (moved < 0 && errno == EINTR);
    return moved;
  }

  const int fd_;
  std::array<char, 4096> buffer_;  // received, begin_ to end_ not yet handed out
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace probe_driver
