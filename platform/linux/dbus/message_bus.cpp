#include "platform/linux/dbus/message_bus.h"

#include <unistd.h>

#include "platform/linux/automation/program_resources.h"
#include "platform/linux/kernel/home.h"
#include "platform/linux/services/service_dispatcher.h"

namespace linux_host {
namespace {

constexpr char kDaemonName[] = "org.freedesktop.DBus";
constexpr char kDaemonPath[] = "/org/freedesktop/DBus";

DBusHandle OpenBus() {
  if (RunsAsService() && IsMachinesAccount()) return OpenDBus(&sd_bus_open_system);
  if (!Variable("DBUS_SESSION_BUS_ADDRESS").empty() || !Variable("XDG_RUNTIME_DIR").empty()) {
    return OpenDBus(&sd_bus_open_user);
  }
  return ServesOtherAccounts() ? OpenDBus(&sd_bus_open_system) : nullptr;
}

}  // namespace

std::unique_ptr<MessageBus> MessageBus::Open(ExportedClass& exported, IClassFactory* factory) {
  DBusHandle bus = OpenBus();
  if (!bus) return nullptr;
  std::unique_ptr<MessageBus> opened(new MessageBus(std::move(bus), exported, factory));
  return opened->Start() < 0 ? nullptr : std::move(opened);
}

int MessageBus::Start() {
  sd_bus* bus = link_.bus();
  int status = exported_.Offer(bus, this, bindings_);
  if (const auto probes_file = GetProgramResources().probes_file; probes_file && status >= 0) {
    monitor_ = std::make_unique<ProbeMonitor>(bus, exported_.plan(), probes_file());
    status = monitor_->Offer();
  }
  if (status >= 0) status = sd_bus_add_filter(bus, nullptr, &OnMessage, this);
  if (status >= 0) {
    status = sd_bus_request_name_async(bus, nullptr, exported_.plan().bus_name().c_str(),
                                       SD_BUS_NAME_QUEUE, &OnNameRequested, this);
  }
  return status;
}

bool MessageBus::Process() {
  const bool is_open = link_.Process();
  std::erase_if(clients_, [](const auto& entry) { return entry.second.is_gone; });
  return is_open;
}

HRESULT MessageBus::ObjectFor(sd_bus_message* message, IUnknown** object) {
  Client* client = ClientFor(message);
  if (!client) return E_OUTOFMEMORY;
  const HRESULT status = client->object.Create(factory_, exported_.plan());
  *object = client->object.get();
  return status;
}

MessageBus::Client* MessageBus::ClientFor(sd_bus_message* message) {
  const char* sender = sd_bus_message_get_sender(message);
  if (!sender) return nullptr;
  auto found = clients_.find(sender);
  if (found != clients_.end()) return &found->second;
  const auto added = clients_.try_emplace(sender).first;
  if (Watch(added->first, added->second)) return &added->second;
  clients_.erase(added);
  return nullptr;
}

bool MessageBus::Watch(const std::string& name, Client& client) {
  const std::string rule = std::string("type='signal',sender='") + kDaemonName + "',path='" +
                           kDaemonPath + "',interface='" + kDaemonName +
                           "',member='NameOwnerChanged',arg0='" + name + "'";
  sd_bus_slot* slot = nullptr;
  if (sd_bus_add_match_async(link_.bus(), &slot, rule.c_str(), &OnDeparture, nullptr, &client) <
      0) {
    return false;
  }
  client.departure.reset(slot);
  // The bus answers in order, so who leaves after this question is heard of by the rule.
  if (sd_bus_call_method_async(link_.bus(), &slot, kDaemonName, kDaemonPath, kDaemonName,
                               "NameHasOwner", &OnPresence, &client, "s", name.c_str()) < 0) {
    return false;
  }
  client.presence.reset(slot);
  return true;
}

// Sees every message before it is dispatched. Whoever calls anything here is a client, also with no
// method of ours: a server that the bus has started for it must be able to end when it goes.
int MessageBus::OnMessage(sd_bus_message* message, void* self, sd_bus_error*) {
  std::uint8_t type = 0;
  sd_bus_message_get_type(message, &type);
  if (type == SD_BUS_MESSAGE_METHOD_CALL) {
    IUnknown* object;
    // A failure is met again, and answered, when the object is called.
    static_cast<MessageBus*>(self)->ObjectFor(message, &object);
  }
  return 0;
}

// Whether the name was had at once, later or not at all: the bus's other names still reach the
// class.
int MessageBus::OnNameRequested(sd_bus_message*, void*, sd_bus_error*) { return 0; }

int MessageBus::OnDeparture(sd_bus_message* message, void* client, sd_bus_error*) {
  const char *name, *old_owner, *new_owner;
  if (sd_bus_message_read(message, "sss", &name, &old_owner, &new_owner) >= 0 &&
      *new_owner == '\0') {
    static_cast<Client*>(client)->is_gone = true;
  }
  return 0;
}

int MessageBus::OnPresence(sd_bus_message* message, void* client, sd_bus_error*) {
  int has_owner = 1;
  if (sd_bus_message_is_method_error(message, nullptr) == 0 &&
      sd_bus_message_read(message, "b", &has_owner) >= 0 && has_owner == 0) {
    static_cast<Client*>(client)->is_gone = true;
  }
  return 0;
}

}  // namespace linux_host
