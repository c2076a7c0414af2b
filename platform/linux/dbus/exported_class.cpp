#include "platform/linux/dbus/exported_class.h"

#include <cerrno>
#include <new>

#include "platform/linux/dbus/dbus_link.h"
#include "platform/linux/dbus/introspection.h"

namespace linux_host {
namespace {

int SetTooLarge(sd_bus_error* error) {
  return sd_bus_error_set_const(error, SD_BUS_ERROR_LIMITS_EXCEEDED,
                                "The result is larger than a message may be.");
}

int SetWrongArguments(sd_bus_error* error) {
  return sd_bus_error_set_const(error, SD_BUS_ERROR_INVALID_ARGS,
                                "The arguments do not match the method's.");
}

sd_bus_vtable TableStart() {
  sd_bus_vtable start = SD_BUS_VTABLE_START(0);
  return start;
}

sd_bus_vtable TableEnd() {
  sd_bus_vtable end = SD_BUS_VTABLE_END;
  return end;
}

sd_bus_vtable TableMethod(const MethodPlan& method, sd_bus_message_handler_t handler,
                          std::size_t offset) {
  sd_bus_vtable entry = SD_BUS_METHOD_WITH_OFFSET(
      method.name.c_str(), method.input_signature.c_str(), method.output_signature.c_str(), handler,
      offset, SD_BUS_VTABLE_UNPRIVILEGED);
  entry.x.method.names = method.parameter_names.c_str();
  return entry;
}

}  // namespace

int SetStatusError(sd_bus_error* error, HRESULT status) {
  return sd_bus_error_setf(error, kStatusError, "0x%08X", static_cast<unsigned>(status));
}

HRESULT ClientObject::Create(IClassFactory* factory, const ClassPlan& plan) {
  if (object_) return S_OK;
  void* object = nullptr;
  HRESULT status;
  try {
    status = factory->CreateInstance(nullptr, *plan.component().default_interface->id, &object);
  } catch (const std::bad_alloc&) {
    status = E_OUTOFMEMORY;
  } catch (...) {
    status = RPC_E_SERVERFAULT;
  }
  if (SUCCEEDED(status)) object_ = static_cast<IUnknown*>(object);
  return status;
}

void ClientObject::Release() {
  // Forgotten first: the object's last operation may look at its client's state.
  IUnknown* object = object_;
  object_ = nullptr;
  if (object) object->Release();
}

ExportedClass::ExportedClass(const ClassPlan& plan) : plan_(plan) {
  std::size_t index = 0;
  for (const auto& interface : plan.interfaces()) {
    std::vector<sd_bus_vtable>& table = tables_.emplace_back();
    table.push_back(TableStart());
    for (const MethodPlan& method : interface->methods) {
      table.push_back(TableMethod(method, &OnCall, index++ * sizeof(Binding)));
    }
    table.push_back(TableEnd());
  }
}

int ExportedClass::Offer(sd_bus* bus, CallTarget* target, Bindings& bindings) {
  bindings.clear();
  for (const auto& interface : plan_.interfaces()) {
    for (const MethodPlan& method : interface->methods) {
      bindings.push_back({this, target, &method});
    }
  }
  const char* path = plan_.object_path().c_str();
  int status = sd_bus_add_object(bus, nullptr, path, &OnMessage, &bindings);
  for (std::size_t i = 0; status >= 0 && i < tables_.size(); ++i) {
    status = sd_bus_add_object_vtable(bus, nullptr, path, plan_.interfaces()[i]->name.c_str(),
                                      tables_[i].data(), bindings.data());
  }
  return status < 0 ? status : 0;
}

int ExportedClass::OnIntrospect(sd_bus_message* message, const Binding& binding,
                                sd_bus_error* error) {
  if (!sd_bus_message_is_empty(message)) return SetWrongArguments(error);
  const std::string xml = IntrospectionXml(binding.exported->plan_, binding.target->HasMonitor());
  return sd_bus_reply_method_return(message, "s", xml.c_str());
}

// Sees every call of the object first. The bus library finds methods by their interface, but a call
// may come without one; and of what the library answers by itself, it would describe the object
// without our annotations.
int ExportedClass::OnMessage(sd_bus_message* message, void* bindings, sd_bus_error* error) {
  if (sd_bus_message_is_method_call(message, "org.freedesktop.DBus.Introspectable", "Introspect")) {
    return OnIntrospect(message, static_cast<const Bindings*>(bindings)->front(), error);
  }
  if (sd_bus_message_get_interface(message)) return 0;
  const char* member = sd_bus_message_get_member(message);
  const Binding* found = nullptr;
  for (const Binding& binding : *static_cast<const Bindings*>(bindings)) {
    if (binding.method->name != member) continue;
    if (found) {
      return sd_bus_error_setf(error, SD_BUS_ERROR_UNKNOWN_METHOD,
                               "Several interfaces have a method %s: name one of them.", member);
    }
    found = &binding;
  }
  if (!found) {
    return sd_bus_error_setf(error, SD_BUS_ERROR_UNKNOWN_METHOD, "Unknown method %s.", member);
  }
  if (sd_bus_message_has_signature(message, found->method->input_signature.c_str()) <= 0) {
    return SetWrongArguments(error);
  }
  return found->exported->Serve(message, *found, error);
}

int ExportedClass::OnCall(sd_bus_message* message, void* binding, sd_bus_error* error) {
  const Binding& bound = *static_cast<const Binding*>(binding);
  return bound.exported->Serve(message, bound, error);
}

int ExportedClass::Serve(sd_bus_message* message, const Binding& binding, sd_bus_error* error) {
  is_serving_ = true;
  int result;
  // Nothing that is thrown may reach the bus library's frames.
  try {
    result = Call(message, binding, error);
  } catch (const std::bad_alloc&) {
    result = SetStatusError(error, E_OUTOFMEMORY);
  } catch (...) {
    result = SetStatusError(error, RPC_E_SERVERFAULT);
  }
  frame_.Release(*binding.method);
  is_serving_ = false;
  return result;
}

int ExportedClass::Call(sd_bus_message* message, const Binding& binding, sd_bus_error* error) {
  const MethodPlan& method = *binding.method;
  IUnknown* object = nullptr;
  HRESULT status = binding.target->ObjectFor(message, &object);
  if (FAILED(status)) return SetStatusError(error, status);
  const int read = frame_.ReadInputs(message, method);
  if (read == -ENOMEM) return SetStatusError(error, E_OUTOFMEMORY);
  if (read < 0) return SetWrongArguments(error);
  const ArrayLimit limit(binding.target->Limits().array_bytes);
  status = method.method->call(object, frame_.words());
  if (limit.was_exceeded()) return SetTooLarge(error);
  return FAILED(status) ? SetStatusError(error, status) : Reply(message, binding, error);
}

int ExportedClass::Reply(sd_bus_message* message, const Binding& binding, sd_bus_error* error) {
  const HRESULT fits = frame_.CheckOutputs(*binding.method, binding.target->Limits());
  if (fits == E_OUTOFMEMORY) return SetTooLarge(error);
  if (FAILED(fits)) return SetStatusError(error, fits);
  sd_bus_message* created = nullptr;
  int result = sd_bus_message_new_method_return(message, &created);
  const MessageHandle reply(created);
  if (result >= 0) result = frame_.AppendOutputs(reply.get(), *binding.method);
  if (result >= 0) result = sd_bus_send(nullptr, reply.get(), nullptr);
  // A caller that is gone already is noticed by its connection.
  return result < 0 ? result : 1;
}

}  // namespace linux_host
