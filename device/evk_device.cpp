#include "device/evk_device.h"

CTzEvkDevice::CTzEvkDevice(std::uint8_t device_index, bool set_timeouts)
    : CTzDevice(device_index, set_timeouts) {}

CTzEvkDevice::~CTzEvkDevice() = default;
