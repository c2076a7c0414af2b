// An XVC server with nothing behind it but the bench's JTAG chain: no service, no client, no USB.
#pragma once

#include <cstdint>

#include "bench/baselines.h"

namespace bench {

// Serves the chain of the demo bench's WFX0001 in a process of its own, to one client after
// another.
class BareXvc {
 public:
  BareXvc();

  // Of the loopback interface.
  std::uint16_t port() const { return port_; }

 private:
  std::uint16_t port_ = 0;
  Child server_;
};

}  // namespace bench
