#include "platform/linux/dbus/dbus_values.h"

#include <oleauto.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/linux/automation/safearray.h"
#include "platform/linux/dbus/dbus_text.h"

namespace linux_host {
namespace {

using interface_schema::Field;
using interface_schema::FieldType;

ULONG CountOf(SAFEARRAY* array) { return array ? array->rgsabound[0].cElements : 0; }

BSTR* StringsOf(SAFEARRAY* array) { return static_cast<BSTR*>(array->pvData); }

int AppendField(sd_bus_message* message, const Field& field, const std::byte* record) {
  if (field.type == FieldType::kUnsigned8) {
    return sd_bus_message_append_basic(message, 'y', record + field.offset);
  }
  std::int16_t value;
  std::memcpy(&value, record + field.offset, sizeof value);
  return sd_bus_message_append_basic(message, 'n', &value);
}

int ReadField(sd_bus_message* message, const Field& field, std::byte* record) {
  if (field.type == FieldType::kUnsigned8) {
    return sd_bus_message_read_basic(message, 'y', record + field.offset);
  }
  std::int16_t value = 0;
  const int status = sd_bus_message_read_basic(message, 'n', &value);
  std::memcpy(record + field.offset, &value, sizeof value);
  return status;
}

// Reading past the end gives 0, which here means that a value is missing.
int Present(int status) { return status == 0 ? -EBADMSG : status; }

// Counts the strings of the array that the message stands at, and goes back to its first.
int CountStrings(sd_bus_message* message, ULONG* count) {
  const char* text;
  int status;
  *count = 0;
  while ((status = sd_bus_message_read_basic(message, 's', &text)) > 0) ++*count;
  return status < 0 ? status : sd_bus_message_rewind(message, 0);
}

int FillStrings(sd_bus_message* message, SAFEARRAY* array) {
  for (ULONG i = 0; i < CountOf(array); ++i) {
    const char* text;
    const int status = Present(sd_bus_message_read_basic(message, 's', &text));
    if (status < 0) return status;
    StringsOf(array)[i] = BstrFromDBusText(text);
    if (!StringsOf(array)[i]) return -ENOMEM;
  }
  return 0;
}

}  // namespace

int AppendString(sd_bus_message* message, BSTR text) {
  const std::size_t length = SysStringLen(text);
  char* space;
  const int status =
      sd_bus_message_append_string_space(message, DBusTextSize(text, length), &space);
  if (status < 0) return status;
  WriteDBusText(text, length, space);
  return 0;
}

int AppendByteArray(sd_bus_message* message, SAFEARRAY* array) {
  return sd_bus_message_append_array(message, 'y', array ? array->pvData : nullptr, CountOf(array));
}

int AppendStringArray(sd_bus_message* message, SAFEARRAY* array) {
  int status = sd_bus_message_open_container(message, 'a', "s");
  for (ULONG i = 0; status >= 0 && i < CountOf(array); ++i) {
    status = AppendString(message, StringsOf(array)[i]);
  }
  return status < 0 ? status : sd_bus_message_close_container(message);
}

int ReadBytes(sd_bus_message* message, const void** bytes, std::size_t* count) {
  const int status = Present(sd_bus_message_read_array(message, 'y', bytes, count));
  // For an empty array the address that comes back is not one.
  if (status >= 0 && *count == 0) *bytes = "";
  return status;
}

int ReadStringArray(sd_bus_message* message, SAFEARRAY** array) {
  *array = nullptr;
  int status = Present(sd_bus_message_enter_container(message, 'a', "s"));
  if (status < 0) return status;
  ULONG count;
  status = CountStrings(message, &count);
  if (status < 0) return status;
  SAFEARRAY* strings = SafeArrayCreateVector(VT_BSTR, 0, count);
  if (!strings) return -ENOMEM;
  status = FillStrings(message, strings);
  if (status >= 0) status = sd_bus_message_exit_container(message);
  if (status < 0) {
    SafeArrayDestroy(strings);
    return status;
  }
  *array = strings;
  return 0;
}

int AppendRecord(sd_bus_message* message, const ParameterPlan& parameter, const void* record) {
  int status = sd_bus_message_open_container(message, 'r', parameter.record_members.c_str());
  for (const Field& field : parameter.record->fields) {
    if (status < 0) return status;
    status = AppendField(message, field, static_cast<const std::byte*>(record));
  }
  return status < 0 ? status : sd_bus_message_close_container(message);
}

int ReadRecord(sd_bus_message* message, const ParameterPlan& parameter, void* record) {
  std::memset(record, 0, parameter.record->size);
  int status =
      Present(sd_bus_message_enter_container(message, 'r', parameter.record_members.c_str()));
  for (const Field& field : parameter.record->fields) {
    if (status < 0) return status;
    status = Present(ReadField(message, field, static_cast<std::byte*>(record)));
  }
  return status < 0 ? status : sd_bus_message_exit_container(message);
}

std::size_t StringBytes(BSTR text) { return 4 + DBusTextSize(text, SysStringLen(text)) + 1; }

std::size_t ByteArrayBytes(SAFEARRAY* array) { return CountOf(array); }

std::size_t StringArrayBytes(SAFEARRAY* array) {
  std::size_t bytes = 0;
  for (ULONG i = 0; i < CountOf(array); ++i) {
    bytes = (bytes + 3) / 4 * 4 + StringBytes(StringsOf(array)[i]);
  }
  return bytes;
}

}  // namespace linux_host
