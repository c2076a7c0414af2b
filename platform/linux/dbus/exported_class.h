// A class on connections: its interfaces as their other ends see them, and the way of a call from
// its message to the object's operation and back.
#pragma once

#include <systemd/sd-bus.h>
#include <unknwn.h>

#include <memory>
#include <vector>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/dbus/dbus_marshal.h"

namespace linux_host {

// The error under which a call's failure status travels. Its text is the status, as in 0x8007000E.
inline constexpr char kStatusError[] = "org.wirefox.Error.HRESULT";
int SetStatusError(sd_bus_error* error, HRESULT status);

// The object of one client.
class ClientObject {
 public:
  ClientObject() = default;
  ~ClientObject() { Release(); }
  ClientObject(const ClientObject&) = delete;
  ClientObject& operator=(const ClientObject&) = delete;

  // Does nothing when the object exists.
  HRESULT Create(IClassFactory* factory, const ClassPlan& plan);
  void Release();
  // The class's default interface; null before Create.
  IUnknown* get() const { return object_; }

 private:
  IUnknown* object_ = nullptr;
};

// Knows the objects of those who call over one connection.
class CallTarget {
 public:
  // The object for the message's sender, created when it has none. No reference is passed on.
  virtual HRESULT ObjectFor(sd_bus_message* message, IUnknown** object) = 0;
  virtual const MessageLimits& Limits() const = 0;
  // Whether the interface of ProbeMonitor is offered beside the class's.
  virtual bool HasMonitor() const = 0;

 protected:
  ~CallTarget() = default;
};

// Serves calls on one thread, one at a time.
class ExportedClass {
 public:
  explicit ExportedClass(const ClassPlan& plan);
  ExportedClass(const ExportedClass&) = delete;
  ExportedClass& operator=(const ExportedClass&) = delete;

  const ClassPlan& plan() const { return plan_; }
  // Whether a call is being served. Messages are left alone meanwhile, also when the object's
  // operation runs a message loop.
  bool is_serving() const { return is_serving_; }

  // What a connection's interfaces need; lives as long as the connection.
  struct Binding {
    ExportedClass* exported;
    CallTarget* target;
    const MethodPlan* method;
  };
  using Bindings = std::vector<Binding>;

  // Offers the interfaces on the connection, under the class's path. A negative errno on failure.
  int Offer(sd_bus* bus, CallTarget* target, Bindings& bindings);

 private:
  static int OnCall(sd_bus_message* message, void* binding, sd_bus_error* error);
  static int OnMessage(sd_bus_message* message, void* bindings, sd_bus_error* error);
  static int OnIntrospect(sd_bus_message* message, const Binding& binding, sd_bus_error* error);
  int Serve(sd_bus_message* message, const Binding& binding, sd_bus_error* error);
  int Call(sd_bus_message* message, const Binding& binding, sd_bus_error* error);
  int Reply(sd_bus_message* message, const Binding& binding, sd_bus_error* error);

  const ClassPlan& plan_;
  std::vector<std::vector<sd_bus_vtable>> tables_;  // one per interface, in the plan's order
  CallFrame frame_;
  bool is_serving_ = false;
};

}  // namespace linux_host
