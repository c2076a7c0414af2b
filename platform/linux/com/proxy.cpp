#include "platform/linux/com/proxy.h"

#include <oleauto.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/linux/automation/call_thunks.h"
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

class Proxy {
 public:
  Proxy(DBusHandle connection, const ClassPlan& plan);

  HRESULT QueryInterface(REFIID iid, void** object);
  ULONG AddRef() { return ++references_; }
  ULONG Release();
  HRESULT GetTypeInfo(UINT index, ITypeInfo** info);
  HRESULT GetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids);
  HRESULT Invoke(DISPID id, WORD flags, DISPPARAMS* arguments, VARIANT* result,
                 EXCEPINFO* exception, UINT* bad_argument);

 private:
  ~Proxy() = default;

  HRESULT Call(const MethodPlan& method, const CallWord* words);
  HRESULT LoadTypeInfo(ITypeInfo** info);

  // First, so that the object begins with its table.
  CallReceiver receiver_;
  std::atomic<ULONG> references_{1};
  const ClassPlan& plan_;
  std::vector<const void*> table_;
  std::mutex mutex_;  // orders calls on the connection
  DBusHandle connection_;

  friend HRESULT OnProxyCall(CallReceiver* self, std::uint32_t slot, const CallWord* words);
};

// The object's address is its receiver's, whose address is that of the table pointer.
Proxy* ProxyOf(CallReceiver* receiver) { return reinterpret_cast<Proxy*>(receiver); }

HRESULT OnProxyCall(CallReceiver* self, std::uint32_t slot, const CallWord* words) {
  Proxy* proxy = ProxyOf(self);
  return proxy->Call(proxy->plan_.method(slot), words);
}

// The operations of IUnknown and IDispatch, in the order of their slots.
HRESULT OnQueryInterface(Proxy* self, REFIID iid, void** object) {
  return self->QueryInterface(iid, object);
}
ULONG OnAddRef(Proxy* self) { return self->AddRef(); }
ULONG OnRelease(Proxy* self) { return self->Release(); }
HRESULT OnGetTypeInfoCount(Proxy*, UINT* count) {
  if (count == nullptr) return E_INVALIDARG;
  *count = 1;
  return S_OK;
}
HRESULT OnGetTypeInfo(Proxy* self, UINT index, LCID, ITypeInfo** info) {
  return self->GetTypeInfo(index, info);
}
HRESULT OnGetIDsOfNames(Proxy* self, REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  return self->GetIDsOfNames(names, count, ids);
}
HRESULT OnInvoke(Proxy* self, DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* arguments,
                 VARIANT* result, EXCEPINFO* exception, UINT* bad_argument) {
  return self->Invoke(id, flags, arguments, result, exception, bad_argument);
}

template <typename Operation>
const void* AddressOf(Operation* operation) {
  return reinterpret_cast<const void*>(operation);
}

Proxy::Proxy(DBusHandle connection, const ClassPlan& plan)
    : plan_(plan), connection_(std::move(connection)) {
  table_ = {AddressOf(&OnQueryInterface), AddressOf(&OnAddRef),
            AddressOf(&OnRelease),        AddressOf(&OnGetTypeInfoCount),
            AddressOf(&OnGetTypeInfo),    AddressOf(&OnGetIDsOfNames),
            AddressOf(&OnInvoke)};
  for (std::uint32_t slot = kFirstMethodSlot; slot < plan.slot_count(); ++slot) {
    table_.push_back(ReceivingOperation(slot, plan.method(slot).parameters.size()));
  }
  receiver_.operations = table_.data();
  receiver_.on_call = &OnProxyCall;
}

HRESULT Proxy::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  const bool answers = plan_.Answers(iid);
  *object = answers ? this : nullptr;
  if (!answers) return E_NOINTERFACE;
  AddRef();
  return S_OK;
}

ULONG Proxy::Release() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT Proxy::LoadTypeInfo(ITypeInfo** info) {
  const interface_schema::Library& library = *GetProgramResources().type_library;
  ITypeLib* loaded;
  HRESULT status = LoadRegTypeLib(*library.id, library.major_version, library.minor_version,
                                  library.locale, &loaded);
  if (FAILED(status)) return status;
  status = loaded->GetTypeInfoOfGuid(*plan_.component().default_interface->id, info);
  loaded->Release();
  return status;
}

HRESULT Proxy::GetTypeInfo(UINT index, ITypeInfo** info) {
  if (info == nullptr) return E_INVALIDARG;
  *info = nullptr;
  return index != 0 ? DISP_E_BADINDEX : LoadTypeInfo(info);
}

HRESULT Proxy::GetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) {
  ITypeInfo* info;
  HRESULT status = LoadTypeInfo(&info);
  if (FAILED(status)) return status;
  status = info->GetIDsOfNames(names, count, ids);
  info->Release();
  return status;
}

HRESULT Proxy::Invoke(DISPID id, WORD flags, DISPPARAMS* arguments, VARIANT* result,
                      EXCEPINFO* exception, UINT* bad_argument) {
  ITypeInfo* info;
  HRESULT status = LoadTypeInfo(&info);
  if (FAILED(status)) return status;
  status = info->Invoke(this, id, flags, arguments, result, exception, bad_argument);
  info->Release();
  return status;
}

HRESULT Proxy::Call(const MethodPlan& method, const CallWord* words) {
  HRESULT status = ClearOutputs(method, words);
  if (FAILED(status)) return status;
  std::lock_guard lock(mutex_);
  sd_bus_message* created = nullptr;
  int result = sd_bus_message_new_method_call(connection_.get(), &created, nullptr,
                                              plan_.object_path().c_str(), method.interface_name,
                                              method.name.c_str());
  const MessageHandle call(created);
  DBusError error;
  if (result < 0) return StatusOfError(result, error.error);
  status = AppendInputs(call.get(), method, words, kPrivateLimits);
  if (FAILED(status)) return status;
  sd_bus_message* received = nullptr;
  result = sd_bus_call(connection_.get(), call.get(), UINT64_MAX, &error.error, &received);
  const MessageHandle reply(received);
  if (result < 0) return StatusOfError(result, error.error);
  return ReadOutputs(reply.get(), method, words);
}

HRESULT ServerStatus(const char* text) {
  const unsigned long status = text == nullptr ? 0 : std::strtoul(text, nullptr, 16);
  const auto result = static_cast<HRESULT>(static_cast<std::uint32_t>(status));
  return FAILED(result) ? result : RPC_E_SERVERFAULT;
}

}  // namespace

HRESULT CreateProxy(DBusHandle connection, const ClassPlan& plan, REFIID iid, void** object) {
  auto* proxy = new Proxy(std::move(connection), plan);
  const HRESULT status = proxy->QueryInterface(iid, object);
  proxy->Release();
  return status;
}

HRESULT StatusOfError(int error_number, const sd_bus_error& error) {
  if (sd_bus_error_has_name(&error, kStatusError)) return ServerStatus(error.message);
  if (sd_bus_error_has_name(&error, SD_BUS_ERROR_LIMITS_EXCEEDED)) return E_OUTOFMEMORY;
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
