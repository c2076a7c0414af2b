// Gives the service's own program the default bench for its bus, in its own process.
#include "platform/test_host.h"
#include "sim/bench.h"

namespace {

// Never destroyed, like the threads that work on it.
[[maybe_unused]] const bool uses_bench = [] {
  test_host::UseBus(sim::Bench::Default().release());
  return true;
}();

}  // namespace
