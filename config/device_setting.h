// Settings that belong to the devices with given ids.
#pragma once

#include <cstdint>

#include "device/device.h"

// The value of the key "VVVV_PPPP_`kind`", in hexadecimal; empty when there is none. The text lives
// as long as the process.
const char* GetDeviceSetting(std::uint16_t vendor_id, std::uint16_t product_id, const char* kind);

// The same for the ids of `device`.
const char* GetDeviceSetting(CTzDevice& device, const char* kind);
