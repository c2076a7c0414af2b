// Finds the targets behind a probe and keeps its list of targets up to date.
#pragma once

#include <cstdint>

#include "config/device_table.h"

// With the device-table lock held.
namespace api {

// Scans by the interface that the probe reports as active: the JTAG chain, the SWD target, one
// placeholder for I2C and VSER, nothing otherwise. When the ids found differ from those of the
// probe's targets, in number or order, every session on the probe ends, the list is replaced, and
// the mutexes of this and of earlier sessions are closed; a failed scan counts as what it found,
// usually nothing. Only a status that cannot be read changes nothing. The probe has its device.
// Returns the status of the scan.
std::uint32_t ScanTargets(ProbeEntry& probe);

}  // namespace api
