// The class on the message bus, for tools that are not ours: every bus name that has sent a message
// is a client with an object of its own, until the name goes.
#pragma once

#include <map>
#include <string>

#include "platform/linux/dbus/dbus_link.h"
#include "platform/linux/dbus/exported_class.h"
#include "platform/linux/dbus/probe_monitor.h"

namespace linux_host {

class MessageBus final : public CallTarget {
 public:
  // Takes the class's name on the session's bus; on the system bus for a service of the machine and
  // for root outside any session. Null when there is no such bus: the private connections alone
  // then serve. Where another process has the name, this one comes after it.
  static std::unique_ptr<MessageBus> Open(ExportedClass& exported, IClassFactory* factory);

  DBusLink& link() { return link_; }

  // As DBusLink::Process; also lets go of clients that have left.
  bool Process();

  HRESULT ObjectFor(sd_bus_message* message, IUnknown** object) override;
  const MessageLimits& Limits() const override { return kBusLimits; }
  bool HasMonitor() const override { return monitor_ != nullptr; }

 private:
  struct SlotReleaser {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  };
  using SlotHandle = std::unique_ptr<sd_bus_slot, SlotReleaser>;

  struct Client {
    ClientObject object;
    bool is_gone = false;
    SlotHandle departure;  // the bus telling that the name has lost its owner
    SlotHandle presence;   // asks once whether it had gone before that was heard
  };

  MessageBus(DBusHandle bus, ExportedClass& exported, IClassFactory* factory)
      : exported_(exported), factory_(factory), link_(std::move(bus)) {}

  int Start();
  Client* ClientFor(sd_bus_message* message);
  bool Watch(const std::string& name, Client& client);

  static int OnMessage(sd_bus_message* message, void* self, sd_bus_error* error);
  static int OnNameRequested(sd_bus_message* message, void* self, sd_bus_error* error);
  static int OnDeparture(sd_bus_message* message, void* client, sd_bus_error* error);
  static int OnPresence(sd_bus_message* message, void* client, sd_bus_error* error);

  ExportedClass& exported_;
  IClassFactory* factory_;
  ExportedClass::Bindings bindings_;
  DBusLink link_;
  std::unique_ptr<ProbeMonitor> monitor_;  // null when the program keeps no list of probes
  std::map<std::string, Client> clients_;  // their slots go before the connection does
};

}  // namespace linux_host
