// Loads the firmware of a fresh probe's controller from an Intel HEX file into its RAM.
#pragma once

#include <cstdint>
#include <string>

#include "device/device.h"

// The statuses that both families give.
inline constexpr std::uint32_t kFirmwareLoaded = 0;
inline constexpr std::uint32_t kNoFirmwareFile = 1;
inline constexpr std::uint32_t kBadFirmwareFile = 2;

// `file_setting` is the file as the settings name it, `label` the source of the log line, and
// `request_failed` what a failed request to the controller gives. The controller then stays in
// reset, unless that could not be reached either. Nothing is sent before the whole file was read.
std::uint32_t DownloadFirmware(CTzDevice& device, const std::string& file_setting,
                               const char* label, std::uint32_t request_failed);
