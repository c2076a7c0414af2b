#include "platform/linux/dbus/exported_class.h"

#include <cstdio>
#include <new>

#include "platform/linux/dbus/dbus_link.h"

namespace linux_host {
namespace {

// Calls the object. What the operation throws must not reach the bus library's frames.
HRESULT CallObject(IUnknown* object, const MethodPlan& method, const CallWord* words) {
  try {
    return CallSlot(object, method.method->slot, words, method.parameters.size());
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return RPC_E_SERVERFAULT;
  }
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
  if (object_ != nullptr) return S_OK;
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
  if (object != nullptr) object->Release();
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
  for (std::size_t i = 0; i < tables_.size(); ++i) {
    const int status = sd_bus_add_object_vtable(bus, nullptr, plan_.object_path().c_str(),
                                                plan_.interfaces()[i]->name.c_str(),
                                                tables_[i].data(), bindings.data());
    if (status < 0) return status;
  }
  return 0;
}

int ExportedClass::OnCall(sd_bus_message* message, void* binding, sd_bus_error* error) {
  const Binding& bound = *static_cast<const Binding*>(binding);
  return bound.exported->Serve(message, bound, error);
}

int ExportedClass::Serve(sd_bus_message* message, const Binding& binding, sd_bus_error* error) {
  IUnknown* object = nullptr;
  is_serving_ = true;
  HRESULT status = binding.target->ObjectFor(message, &object);
  int result = 0;
  if (FAILED(status)) {
    result = SetStatusError(error, status);
  } else if (frame_.ReadInputs(message, *binding.method) < 0) {
    result = sd_bus_error_set_const(error, SD_BUS_ERROR_INVALID_ARGS,
                                    "The arguments do not match the method's.");
  } else {
    status = CallObject(object, *binding.method, frame_.words());
    result = FAILED(status) ? SetStatusError(error, status) : Reply(message, binding, error);
  }
  frame_.Release(*binding.method);
  is_serving_ = false;
  return result;
}

int ExportedClass::Reply(sd_bus_message* message, const Binding& binding, sd_bus_error* error) {
  const HRESULT fits = frame_.CheckOutputs(*binding.method, binding.target->Limits());
  if (fits == E_OUTOFMEMORY) {
    return sd_bus_error_set_const(error, SD_BUS_ERROR_LIMITS_EXCEEDED,
                                  "The result is larger than a message may be.");
  }
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
