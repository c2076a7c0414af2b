// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace linux_host {

// A descriptor that is closed when it goes; -1: none.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ~Descriptor() { Reset(); }
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.Take()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
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

 private:
  int descriptor_;
};

}  // namespace linux_host
