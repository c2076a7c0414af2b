#include "platform/linux/dbus/probe_monitor.h"

#include <oleauto.h>

#include <cerrno>
#include <memory>

#include "platform/linux/dbus/dbus_link.h"
#include "platform/linux/dbus/dbus_text.h"
#include "platform/linux/dbus/dbus_values.h"
#include "platform/linux/dbus/introspection.h"
#include "platform/linux/services/dbus_handle.h"

namespace linux_host {
namespace {

// What happens within this time is told as one change.
constexpr std::uint64_t kGatherMicroseconds = 50'000;

// A name as the class's own methods spell it on the bus.
int AppendName(sd_bus_message* message, const std::string& name) {
  BSTR text = BstrFromDBusText(name.c_str());
  if (!text) return -ENOMEM;
  const int status = AppendString(message, text);
  SysFreeString(text);
  return status;
}

}  // namespace

const sd_bus_vtable ProbeMonitor::kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY(MonitorTexts::kProbes, "as", &ProbeMonitor::OnProbes, 0,
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_SIGNAL(MonitorTexts::kChanged, "as", 0), SD_BUS_VTABLE_END};

ProbeMonitor::ProbeMonitor(sd_bus* bus, const ClassPlan& plan, std::string file)
    : bus_(bus), plan_(plan), interface_(plan.monitor_name()), file_(std::move(file)) {
  AddMessageLoopSource(this);
}

ProbeMonitor::~ProbeMonitor() { RemoveMessageLoopSource(this); }

int ProbeMonitor::Offer() {
  return sd_bus_add_object_vtable(bus_, nullptr, plan_.object_path().c_str(), interface_.c_str(),
                                  kTable, this);
}

void ProbeMonitor::AppendDescriptors(std::vector<pollfd>& descriptors) {
  // While changes are gathered more of them end no wait.
  if (deadline_ == UINT64_MAX) descriptors.push_back({file_.descriptor(), POLLIN, 0});
}

int ProbeMonitor::WaitLimitMs() {
  if (deadline_ == UINT64_MAX) return -1;
  const std::uint64_t now = MonotonicMicroseconds();
  return deadline_ <= now ? 0 : static_cast<int>((deadline_ - now + 999) / 1000);
}

bool ProbeMonitor::Dispatch(const pollfd*, std::size_t) {
  file_.TakeEvents();
  const std::uint64_t now = MonotonicMicroseconds();
  if (deadline_ <= now) Update();
  if (deadline_ == UINT64_MAX && file_.has_changed()) deadline_ = now + kGatherMicroseconds;
  return false;
}

void ProbeMonitor::Update() {
  deadline_ = UINT64_MAX;
  const auto before = file_.names();
  if (!file_.has_changed() || !file_.Read() || !file_.names()) return;
  EmitChanged();
  if (file_.names() != before) {
    sd_bus_emit_properties_changed(bus_, plan_.object_path().c_str(), interface_.c_str(),
                                   MonitorTexts::kProbes, nullptr);
  }
}

void ProbeMonitor::EmitChanged() {
  sd_bus_message* created = nullptr;
  int status = sd_bus_message_new_signal(bus_, &created, plan_.object_path().c_str(),
                                         interface_.c_str(), MonitorTexts::kChanged);
  const MessageHandle signal(created);
  if (status >= 0) status = AppendNames(signal.get());
  if (status >= 0) sd_bus_send(bus_, signal.get(), nullptr);
}

int ProbeMonitor::AppendNames(sd_bus_message* message) const {
  int status = sd_bus_message_open_container(message, 'a', "s");
  for (const std::string& name : *file_.names()) {
    if (status < 0) return status;
    status = AppendName(message, name);
  }
  return status < 0 ? status : sd_bus_message_close_container(message);
}

int ProbeMonitor::OnProbes(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                           void* self, sd_bus_error* error) {
  auto& monitor = *static_cast<ProbeMonitor*>(self);
  monitor.file_.TakeEvents();
  monitor.Update();
  if (monitor.file_.names()) return monitor.AppendNames(reply);
  return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED,
                           "The probes are not known: %s is no file that this service can write.",
                           monitor.file_.path().c_str());
}

}  // namespace linux_host
