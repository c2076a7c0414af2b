// The service itself, with a bus inside that answers at once. Linked with the service's own entry.
#include "bench/instant_bus.h"
#include "platform/linux/test_host.h"

namespace {

// Set before the entry runs, as the service looks for probes first thing.
const bool kBusIsSet = [] {
  static auto* const bus = new bench::InstantBus;  // lives until the process ends
  test_host::UseBus(bus);
  return true;
}();

}  // namespace
