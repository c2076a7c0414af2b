// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace linux_host {

// A descriptor that is closed when it goes; -1: none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ~FileDescriptor() { Reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.Take()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) Reset(other.Take());
    return *this;
  }

  int get() const { return descriptor_; }
  bool is_open() const { return descriptor_ >= 0; }
  int Take() { return std::exchange(descriptor_, -1); }
  void Reset(int descriptor = -1) {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = descriptor;
  }

  // The whole text, to a file. False, with errno, on failure.
  bool WriteAll(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t length = write(descriptor_, text.data(), text.size());
      if (length < 0 && errno == EINTR) continue;
      if (length <= 0) return false;
      text.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
  }

 private:
  int descriptor_;
};

}  // namespace linux_host
