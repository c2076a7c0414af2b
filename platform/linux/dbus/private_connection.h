// A client that has connected to the class's own socket: one connection, one object.
//
// Besides the class's interfaces the connection offers org.wirefox.Activation.CreateObject, which
// creates the object before the first call, so that a client knows that it holds its server; and
// the Hello of a bus daemon, so that tools made for a bus can call too. What comes first creates
// it.
#pragma once

#include "platform/linux/dbus/dbus_link.h"
#include "platform/linux/dbus/exported_class.h"

namespace linux_host {

inline constexpr char kActivationInterface[] = "org.wirefox.Activation";
inline constexpr char kCreateObject[] = "CreateObject";

class PrivateConnection final : public CallTarget {
 public:
  // Null when the connection cannot be taken up. Takes the descriptor in every case.
  static std::unique_ptr<PrivateConnection> Open(int descriptor, ExportedClass& exported,
                                                 IClassFactory* factory);

  DBusLink& link() { return link_; }

  HRESULT ObjectFor(sd_bus_message* message, IUnknown** object) override;
  const MessageLimits& Limits() const override { return kPrivateLimits; }
  bool HasMonitor() const override { return false; }

 private:
  PrivateConnection(DBusHandle bus, ExportedClass& exported, IClassFactory* factory)
      : exported_(exported), factory_(factory), link_(std::move(bus)) {}

  int Offer();
  static int OnCreateObject(sd_bus_message* message, void* self, sd_bus_error* error);
  static int OnHello(sd_bus_message* message, void* self, sd_bus_error* error);

  static const sd_bus_vtable kActivationTable[];
  static const sd_bus_vtable kHelloTable[];

  ExportedClass& exported_;
  IClassFactory* factory_;  // the publication's
  ClientObject object_;
  ExportedClass::Bindings bindings_;
  DBusLink link_;  // goes before what its handlers use
};

}  // namespace linux_host
