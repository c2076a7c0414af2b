// Which USB devices are probes, as the service's settings file says.
#pragma once

#include <cstdint>
#include <istream>
#include <set>
#include <string>
#include <utility>

namespace linux_host {

// Vendor id and product id.
using UsbIds = std::pair<std::uint16_t, std::uint16_t>;

// The ids VVVV_PPPP of the keys VVVV_PPPP_...DEVICE whose value is CONFIGURED or UNCONFIGURED: the
// devices that the service takes for probes of any family. A file name alone (VVVV_PPPP_KX7) makes
// no device a probe. The file is read as the service reads it: the first line with a key counts,
// in any letter case, and a line that begins with a semicolon is a comment.
std::set<UsbIds> ReadProbeIds(std::istream& settings);

// The settings file of this program: wfxusb.ini in the folder where the program's own file lies,
// which is where the service looks for it as well.
std::string SettingsPath();

}  // namespace linux_host
