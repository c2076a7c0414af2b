#include "platform/linux/dbus/dbus_marshal.h"

#include <oleauto.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>

#include "base/typed_call.h"
#include "platform/linux/automation/bstr.h"
#include "platform/linux/dbus/dbus_text.h"
#include "platform/linux/dbus/dbus_values.h"

namespace linux_host {
namespace {

using interface_schema::FromWord;
using interface_schema::ToWord;
using interface_schema::ValueType;

static_assert(std::endian::native == std::endian::little, "narrow values begin their words");

// The type code and the width of the parameters that are plain integers; 0 for the others.
char IntegerCode(ValueType type) {
  switch (type) {
    case ValueType::kLong:
    case ValueType::kProcessId:
    case ValueType::kEnumeration:
      return 'i';
    case ValueType::kShort:
      return 'n';
    case ValueType::kChar:
      return 'y';
    case ValueType::kInt64:
      return 'x';
    default:
      return 0;
  }
}

std::size_t IntegerWidth(ValueType type) {
  switch (IntegerCode(type)) {
    case 'i':
      return 4;
    case 'n':
      return 2;
    case 'y':
      return 1;
    default:
      return 8;
  }
}

VARTYPE ElementType(ValueType type) { return type == ValueType::kByteArray ? VT_UI1 : VT_BSTR; }

bool IsArray(ValueType type) {
  return type == ValueType::kByteArray || type == ValueType::kStringArray;
}

// Bytes of an output in the caller's memory.
std::size_t StorageSize(const ParameterPlan& parameter) {
  if (parameter.type == ValueType::kRecord) return parameter.record->size;
  return IntegerCode(parameter.type) != 0 ? IntegerWidth(parameter.type) : sizeof(void*);
}

// `storage` holds the value: integers in their width, strings and arrays as pointers.
int AppendValue(sd_bus_message* message, const ParameterPlan& parameter, const void* storage) {
  if (const char code = IntegerCode(parameter.type); code != 0) {
    return sd_bus_message_append_basic(message, code, storage);
  }
  if (parameter.type == ValueType::kRecord) return AppendRecord(message, parameter, storage);
  void* pointer;
  std::memcpy(&pointer, storage, sizeof pointer);
  switch (parameter.type) {
    case ValueType::kBstr:
      return AppendString(message, static_cast<BSTR>(pointer));
    case ValueType::kByteArray:
      return AppendByteArray(message, static_cast<SAFEARRAY*>(pointer));
    default:
      return AppendStringArray(message, static_cast<SAFEARRAY*>(pointer));
  }
}

// Adds what a string or array takes; false when it is beyond the limits.
bool CountValue(ValueType type, const void* pointer, const MessageLimits& limits,
                std::size_t& total) {
  std::size_t bytes = 0;
  void* value = const_cast<void*>(pointer);
  if (type == ValueType::kBstr) bytes = StringBytes(static_cast<BSTR>(value));
  if (type == ValueType::kByteArray) bytes = ByteArrayBytes(static_cast<SAFEARRAY*>(value));
  if (type == ValueType::kStringArray) bytes = StringArrayBytes(static_cast<SAFEARRAY*>(value));
  total += bytes;
  return (!IsArray(type) || bytes <= limits.array_bytes) && total <= limits.total_bytes;
}

// Checks one string or array that is to travel; other values always can.
HRESULT CheckValue(ValueType type, const void* pointer, const MessageLimits& limits,
                   HRESULT wrong_type, std::size_t& total) {
  if (IsArray(type) &&
      !IsArrayOf(static_cast<SAFEARRAY*>(const_cast<void*>(pointer)), ElementType(type))) {
    return wrong_type;
  }
  return CountValue(type, pointer, limits, total) ? S_OK : E_OUTOFMEMORY;
}

bool IsPointerValue(ValueType type) { return type == ValueType::kBstr || IsArray(type); }

int ReadByteArray(sd_bus_message* message, SAFEARRAY** array) {
  const void* bytes;
  std::size_t count;
  const int status = ReadBytes(message, &bytes, &count);
  if (status < 0) return status;
  *array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(count));
  if (!*array) return -ENOMEM;
  std::memcpy((*array)->pvData, bytes, count);
  return 0;
}

int ReadValue(sd_bus_message* message, const ParameterPlan& parameter, void* storage) {
  if (const char code = IntegerCode(parameter.type); code != 0) {
    return sd_bus_message_read_basic(message, code, storage);
  }
  switch (parameter.type) {
    case ValueType::kRecord:
      return ReadRecord(message, parameter, storage);
    case ValueType::kByteArray:
      return ReadByteArray(message, static_cast<SAFEARRAY**>(storage));
    case ValueType::kStringArray:
      return ReadStringArray(message, static_cast<SAFEARRAY**>(storage));
    default: {
      const char* text;
      const int status = sd_bus_message_read_basic(message, 's', &text);
      if (status <= 0) return status < 0 ? status : -EBADMSG;
      BSTR string = BstrFromDBusText(text);
      *static_cast<BSTR*>(storage) = string;
      return string ? 0 : -ENOMEM;
    }
  }
}

void FreePointerValue(ValueType type, void* pointer) {
  if (type == ValueType::kBstr) {
    SysFreeString(static_cast<BSTR>(pointer));
  } else if (IsArray(type)) {
    SafeArrayDestroy(static_cast<SAFEARRAY*>(pointer));
  }
}

}  // namespace

int CallFrame::ReadInput(sd_bus_message* message, const ParameterPlan& parameter,
                         std::size_t index) {
  Room& room = (*rooms_)[index];
  switch (parameter.type) {
    case ValueType::kBstr: {
      const char* text;
      const int status = sd_bus_message_read_basic(message, 's', &text);
      if (status <= 0) return status < 0 ? status : -EBADMSG;
      const std::size_t size = std::strlen(text);
      const std::size_t length = WideTextLength(text, size);
      BSTR string;
      if (BstrRoom(length) <= room.text.size()) {
        string = PlaceBstr(room.text.data(), static_cast<std::uint32_t>(length));
      } else {
        string = room.long_text = SysAllocStringLen(nullptr, static_cast<UINT>(length));
        if (!string) return -ENOMEM;
      }
      WriteWideText(text, size, string);
      words_[index] = ToWord(string);
      return 0;
    }
    case ValueType::kByteArray: {
      const void* bytes;
      std::size_t count;
      const int status = ReadBytes(message, &bytes, &count);
      if (status < 0) return status;
      words_[index] = ToWord(BorrowBytes(room.borrowed, bytes, static_cast<std::uint32_t>(count)));
      return 0;
    }
    case ValueType::kStringArray: {
      const int status = ReadStringArray(message, &room.strings);
      words_[index] = ToWord(room.strings);
      return status;
    }
    default: {
      const int status =
          sd_bus_message_read_basic(message, IntegerCode(parameter.type), &words_[index]);
      return status == 0 ? -EBADMSG : status;
    }
  }
}

int CallFrame::ReadInputs(sd_bus_message* message, const MethodPlan& method) {
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    Room& room = (*rooms_)[i];
    room.value = 0;
    room.strings = nullptr;
    room.long_text = nullptr;
    const ParameterPlan& parameter = method.parameters[i];
    if (parameter.type == ValueType::kRecord) {
      std::memset(room.record.data(), 0, parameter.record->size);
      words_[i] = ToWord(room.record.data());
    } else if (parameter.is_output) {
      words_[i] = ToWord(&room.value);
    }
  }
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    if (method.parameters[i].is_output) continue;
    const int status = ReadInput(message, method.parameters[i], i);
    if (status < 0) return status;
  }
  return 0;
}

HRESULT CallFrame::CheckOutputs(const MethodPlan& method, const MessageLimits& limits) const {
  std::size_t total = 0;
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    const ParameterPlan& parameter = method.parameters[i];
    if (!parameter.is_output || !IsPointerValue(parameter.type)) continue;
    const HRESULT status = CheckValue(parameter.type, FromWord<void*>((*rooms_)[i].value), limits,
                                      RPC_E_SERVERFAULT, total);
    if (FAILED(status)) return status;
  }
  return S_OK;
}

int CallFrame::AppendOutputs(sd_bus_message* reply, const MethodPlan& method) const {
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    if (!method.parameters[i].is_output) continue;
    const int status = AppendValue(reply, method.parameters[i], FromWord<const void*>(words_[i]));
    if (status < 0) return status;
  }
  return 0;
}

void CallFrame::Release(const MethodPlan& method) {
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    Room& room = (*rooms_)[i];
    const ParameterPlan& parameter = method.parameters[i];
    if (parameter.is_output) FreePointerValue(parameter.type, FromWord<void*>(room.value));
    SafeArrayDestroy(room.strings);
    SysFreeString(room.long_text);
    room.value = 0;
    room.strings = nullptr;
    room.long_text = nullptr;
  }
}

HRESULT ClearOutputs(const MethodPlan& method, const CallWord* words) {
  HRESULT status = S_OK;
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    if (!method.parameters[i].is_output) continue;
    if (words[i] == 0) {
      status = HRESULT_FROM_WIN32(RPC_X_NULL_REF_POINTER);
    } else {
      std::memset(FromWord<void*>(words[i]), 0, StorageSize(method.parameters[i]));
    }
  }
  return status;
}

HRESULT AppendInputs(sd_bus_message* message, const MethodPlan& method, const CallWord* words,
                     const CallRoute& route) {
  std::size_t total = 0;
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    const ParameterPlan& parameter = method.parameters[i];
    if (parameter.is_output) continue;
    if (IsPointerValue(parameter.type)) {
      const HRESULT status =
          CheckValue(parameter.type, FromWord<void*>(words[i]), route.limits, E_INVALIDARG, total);
      if (FAILED(status)) return status;
    }
    const bool names_this_process =
        parameter.type == ValueType::kProcessId && FromWord<LONG>(words[i]) == getpid();
    const bool is_replaced = names_this_process && route.stand_in != 0;
    // On little-endian hosts a narrow value stands in the first bytes of its word.
    const void* value = is_replaced ? static_cast<const void*>(&route.stand_in) : &words[i];
    if (AppendValue(message, parameter, value) < 0) return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT ReadOutputs(sd_bus_message* reply, const MethodPlan& method, const CallWord* words) {
  for (std::size_t i = 0; i < method.parameters.size(); ++i) {
    const ParameterPlan& parameter = method.parameters[i];
    if (!parameter.is_output) continue;
    const int status = ReadValue(reply, parameter, FromWord<void*>(words[i]));
    if (status >= 0) continue;
    for (std::size_t done = 0; done <= i; ++done) {
      const ParameterPlan& other = method.parameters[done];
      if (!other.is_output) continue;
      if (IsPointerValue(other.type)) {
        FreePointerValue(other.type, *FromWord<void**>(words[done]));
      }
      std::memset(FromWord<void*>(words[done]), 0, StorageSize(other));
    }
    return status == -ENOMEM ? E_OUTOFMEMORY : RPC_E_SERVERFAULT;
  }
  return S_OK;
}

}  // namespace linux_host
