// Single strings, arrays and records in messages: what both ends of a call have in common.
//
// Functions that return int give a negative errno on failure, as those of sd-bus do.
#pragma once

#include <oaidl.h>
#include <systemd/sd-bus.h>

#include <cstddef>

#include "platform/linux/automation/interface_plan.h"

namespace linux_host {

int AppendString(sd_bus_message* message, BSTR text);

// Null is an empty array. The array is one that IsArrayOf accepts.
int AppendByteArray(sd_bus_message* message, SAFEARRAY* array);
int AppendStringArray(sd_bus_message* message, SAFEARRAY* array);

// Points into the message, never null.
int ReadBytes(sd_bus_message* message, const void** bytes, std::size_t* count);
// *array is the caller's, null on failure.
int ReadStringArray(sd_bus_message* message, SAFEARRAY** array);

int AppendRecord(sd_bus_message* message, const ParameterPlan& parameter, const void* record);
// Bytes between the fields become zero.
int ReadRecord(sd_bus_message* message, const ParameterPlan& parameter, void* record);

// Bytes that the value takes in a message, at least.
std::size_t StringBytes(BSTR text);
std::size_t ByteArrayBytes(SAFEARRAY* array);
std::size_t StringArrayBytes(SAFEARRAY* array);

}  // namespace linux_host
