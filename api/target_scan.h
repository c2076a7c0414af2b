// Finds the targets behind a probe and keeps its list of targets up to date.
#pragma once

#include <cstdint>
#include <vector>

#include "config/device_table.h"

// With the device-table lock held.
namespace api {

// Scans by the interface that the probe reports as active: the JTAG chain, the SWD target, one
// placeholder for I2C and VSER, nothing otherwise. When the ids found differ from those in
// `targets`, in number or order, every session on the probe ends and the list is replaced; a failed
// scan counts as what it found, usually nothing. Only a status that cannot be read changes nothing.
// Returns the status of the scan.
std::uint32_t ScanTargets(CTzDevice& device, std::vector<TargetRecord>& targets);

}  // namespace api
