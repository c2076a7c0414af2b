#include "platform/linux/com/dbus_proxy.h"

#include <oleauto.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "base/proxy.h"
#include "platform/linux/automation/program_resources.h"
#include "platform/linux/dbus/dbus_marshal.h"
#include "platform/linux/dbus/exported_class.h"

namespace linux_host {
namespace {

// Frees what a failed call left of its message, reply and error.
struct DBusError {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  ~DBusError() { sd_bus_error_free(&error); }
};

class DBusProxy final : public interface_schema::RemoteObject {
 public:
  DBusProxy(DBusHandle connection, const ClassPlan& plan, const CallRoute& route)
      : plan_(plan), route_(route), connection_(std::move(connection)) {}

  HRESULT Call(MethodCall method_call, const CallWord* words) override;
  bool Answers(REFIID iid) const override { return plan_.Answers(iid); }
  HRESULT LoadTypeInfo(ITypeInfo** info) override;

 private:
  const ClassPlan& plan_;
  const CallRoute route_;
  std::mutex mutex_;  // orders calls on the connection
  DBusHandle connection_;
};

HRESULT DBusProxy::LoadTypeInfo(ITypeInfo** info) {
  const interface_schema::Library& library = *GetProgramResources().type_library;
  ITypeLib* loaded;
  HRESULT status = LoadRegTypeLib(*library.id, library.major_version, library.minor_version,
                                  library.locale, &loaded);
  if (FAILED(status)) return status;
  status = loaded->GetTypeInfoOfGuid(*plan_.component().default_interface->id, info);
  loaded->Release();
  return status;
}

HRESULT DBusProxy::Call(MethodCall method_call, const CallWord* words) {
  const MethodPlan& method = plan_.method(method_call);
  HRESULT status = ClearOutputs(method, words);
  if (FAILED(status)) return status;
  std::lock_guard lock(mutex_);
  sd_bus_message* created = nullptr;
  const std::string& destination = route_.destination;
  int result = sd_bus_message_new_method_call(
      connection_.get(), &created, destination.empty() ? nullptr : destination.c_str(),
      plan_.object_path().c_str(), method.interface_name, method.name.c_str());
  const MessageHandle call(created);
  DBusError error;
  if (result < 0) return StatusOfError(result, error.error);
  status = AppendInputs(call.get(), method, words, route_);
  if (FAILED(status)) return status;
  sd_bus_message* received = nullptr;
  result = sd_bus_call(connection_.get(), call.get(), UINT64_MAX, &error.error, &received);
  const MessageHandle reply(received);
  if (result < 0) return StatusOfError(result, error.error);
  return ReadOutputs(reply.get(), method, words);
}

HRESULT ServerStatus(const char* text) {
  const unsigned long status = text ? std::strtoul(text, nullptr, 16) : 0;
  const auto result = static_cast<HRESULT>(static_cast<std::uint32_t>(status));
  return FAILED(result) ? result : RPC_E_SERVERFAULT;
}

}  // namespace

HRESULT CreateProxy(DBusHandle connection, const ClassPlan& plan, const CallRoute& route,
                    REFIID iid, void** object) {
  IUnknown* proxy =
      plan.component().make_proxy(std::make_unique<DBusProxy>(std::move(connection), plan, route));
  const HRESULT status = proxy->QueryInterface(iid, object);
  proxy->Release();
  return status;
}

HRESULT StatusOfError(int error_number, const sd_bus_error& error) {
  if (sd_bus_error_has_name(&error, kStatusError)) return ServerStatus(error.message);
  if (sd_bus_error_has_name(&error, SD_BUS_ERROR_LIMITS_EXCEEDED)) return E_OUTOFMEMORY;
  if (sd_bus_error_has_name(&error, SD_BUS_ERROR_ACCESS_DENIED)) return E_ACCESSDENIED;
  // A bus tells so that the server has gone, before the call or during it.
  for (const char* name : {SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER,
                           SD_BUS_ERROR_NO_REPLY, SD_BUS_ERROR_DISCONNECTED}) {
    if (sd_bus_error_has_name(&error, name)) return HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
  }
  switch (-error_number) {
    case ECONNRESET:
    case ENOTCONN:
    case EPIPE:
    case ESHUTDOWN:
    case ECONNREFUSED:
      return HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    case ENOMEM:
      return E_OUTOFMEMORY;
    default:
      return RPC_E_SERVERFAULT;
  }
}

}  // namespace linux_host
