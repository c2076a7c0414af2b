#include "platform/linux/dbus/private_connection.h"

#include <unistd.h>

namespace linux_host {

const sd_bus_vtable PrivateConnection::kActivationTable[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_HIDDEN),
    SD_BUS_METHOD(kCreateObject, "", "", &PrivateConnection::OnCreateObject,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

const sd_bus_vtable PrivateConnection::kHelloTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Hello", "", "s", &PrivateConnection::OnHello, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

std::unique_ptr<PrivateConnection> PrivateConnection::Open(int descriptor, ExportedClass& exported,
                                                           IClassFactory* factory) {
  sd_bus* created = nullptr;
  sd_id128_t id;
  if (sd_bus_new(&created) < 0 || sd_id128_randomize(&id) < 0 ||
      sd_bus_set_fd(created, descriptor, descriptor) < 0) {
    sd_bus_unref(created);
    close(descriptor);
    return nullptr;
  }
  DBusHandle bus(created);
  // Who may connect has been decided by the socket's permissions.
  if (sd_bus_set_server(created, 1, id) < 0 || sd_bus_set_trusted(created, 1) < 0 ||
      sd_bus_negotiate_fds(created, 0) < 0 || sd_bus_start(created) < 0) {
    return nullptr;
  }
  std::unique_ptr<PrivateConnection> connection(
      new PrivateConnection(std::move(bus), exported, factory));
  return connection->Offer() < 0 ? nullptr : std::move(connection);
}

int PrivateConnection::Offer() {
  sd_bus* bus = link_.bus();
  int status = exported_.Offer(bus, this, bindings_);
  if (status >= 0) {
    status = sd_bus_add_object_vtable(bus, nullptr, exported_.plan().object_path().c_str(),
                                      kActivationInterface, kActivationTable, this);
  }
  if (status >= 0) {
    status = sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                      kHelloTable, this);
  }
  return status;
}

HRESULT PrivateConnection::ObjectFor(sd_bus_message*, IUnknown** object) {
  const HRESULT status = object_.Create(factory_, exported_.plan());
  *object = object_.get();
  return status;
}

int PrivateConnection::OnCreateObject(sd_bus_message* message, void* self, sd_bus_error* error) {
  IUnknown* object;
  const HRESULT status = static_cast<PrivateConnection*>(self)->ObjectFor(message, &object);
  if (FAILED(status)) return SetStatusError(error, status);
  return sd_bus_reply_method_return(message, nullptr);
}

int PrivateConnection::OnHello(sd_bus_message* message, void* self, sd_bus_error* error) {
  IUnknown* object;
  const HRESULT status = static_cast<PrivateConnection*>(self)->ObjectFor(message, &object);
  if (FAILED(status)) return SetStatusError(error, status);
  return sd_bus_reply_method_return(message, "s", ":1.1");
}

}  // namespace linux_host
