// Tells the message bus of probes that come and go: the property and the signal of
// org.wirefox.CLASSMonitor1, beside the class's own interfaces. It goes by the program's file
// alone, so it asks no probe and no lock; who only listens is no client and keeps no server.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/dbus/probes_file.h"
#include "platform/linux/window/message_loop.h"

namespace linux_host {

class ProbeMonitor final : public MessageLoopSource {
 public:
  // On the thread that serves the connection, which the monitor does not outlive.
  ProbeMonitor(sd_bus* bus, const ClassPlan& plan, std::string file);
  ~ProbeMonitor() override;

  // Offers the interface. A negative errno on failure.
  int Offer();

  void AppendDescriptors(std::vector<pollfd>& descriptors) override;
  int WaitLimitMs() override;
  bool Dispatch(const pollfd* ready, std::size_t count) override;

 private:
  static int OnProbes(sd_bus* bus, const char* path, const char* interface, const char* property,
                      sd_bus_message* reply, void* self, sd_bus_error* error);
  int AppendNames(sd_bus_message* message) const;
  // Reads the list if it is new, and tells of it.
  void Update();
  void EmitChanged();

  static const sd_bus_vtable kTable[];

  sd_bus* bus_;
  const ClassPlan& plan_;
  std::string interface_;
  ProbesFile file_;
  std::uint64_t deadline_ = UINT64_MAX;  // when what has changed is told
};

}  // namespace linux_host
