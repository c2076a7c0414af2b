#include "usb/configuration_record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "tests/unit/hex_bytes.h"

namespace {

using unit::Bytes;
using unit::HexBytes;

constexpr const char* kHeader = "09 02 00 00 01 01 00 80 32 ";

// The configuration as "number.setting:class(total) addresses", `--` for an empty place.
std::string Described(const Bytes& bytes) {
  // Of exactly this size on the heap, so that a sanitizer sees a read behind it.
  const auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
  std::memcpy(copy.get(), bytes.data(), bytes.size());
  DriverFile closed;
  const auto record = BuildConfiguration({copy.get(), bytes.size()}, closed);
  std::string text;
  for (const InterfaceRecord& setting : record->interfaces) {
    char head[64];
    std::snprintf(head, sizeof head, "%u.%u:%02X(%u)*%u", setting.interface_number,
                  setting.alternate_setting, setting.interface_class, setting.total_length,
                  setting.settings_of_interface);
    text += text.empty() ? head : std::string("; ") + head;
    for (std::size_t slot = 1; slot <= setting.endpoint_count; ++slot) {
      const CTzUSBEndPoint* const endpoint = setting.endpoints[slot];
      char address[8];
      std::snprintf(address, sizeof address, " %02X", endpoint ? endpoint->Address() : 0);
      text += endpoint ? address : " --";
    }
  }
  return text;
}

std::string Repeat(const char* text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

TEST(ConfigurationRecord, DescriptorsBecomeInterfacesAndEndpoints) {
  const std::string interface = "09 04 00 00 01 FF 00 00 00 ";
  const std::string endpoint = "07 05 84 02 00 02 00 ";
  const std::string foreign = "05 24 00 00 00 ";
  const struct {
    const char* what;
    std::string bytes;
    std::string described;
  } cases[] = {
      {"a plain interface", interface + endpoint, "0.0:FF(16)*1 84"},
      {"two settings of one interface, and another interface",
       interface + endpoint + "09 04 00 01 00 FE 00 00 00 " + "09 04 03 00 00 FD 00 00 00 ",
       "0.0:FF(16)*2 84; 0.1:FE(9)*2; 3.0:FD(9)*1"},
      {"descriptors between and before", foreign + interface + foreign + endpoint,
       "0.0:FF(21)*1 84"},
      {"synchronisation bits give no object", interface + "07 05 84 05 00 02 00 ",
       "0.0:FF(16)*1 --"},
      {"an endpoint descriptor longer than usual", interface + "09 05 81 02 00 02 00 00 00 ",
       "0.0:FF(18)*1 81"},
      {"an endpoint descriptor that is too short", interface + "05 05 81 02 00 ",
       "0.0:FF(14)*1 --"},
      {"eleven foreign descriptors are passed over",
       interface + Repeat(foreign.c_str(), 11) + endpoint, "0.0:FF(71)*1 84"},
      {"the twelfth is where the walk stands still",
       interface + Repeat(foreign.c_str(), 12) + endpoint, "0.0:FF(69)*1 --"},
      {"more endpoints than places",
       "09 04 00 00 14 FF 00 00 00 " + Repeat(endpoint.c_str(), 20) + interface + endpoint,
       "0.0:FF(149)*2" + Repeat(" 84", 15) + "; 0.0:FF(16)*2 84"},
      {"more interfaces than places", Repeat((interface + endpoint).c_str(), 10),
       "0.0:FF(16)*8 84" + Repeat("; 0.0:FF(16)*8 84", 7)},
      {"endpoints missing at the end", "09 04 00 00 FF FF 00 00 00 " + endpoint,
       "0.0:FF(16)*1 84" + Repeat(" --", 14)},
      {"an endpoint cut off", interface + "07 05 84 02 00 ", "0.0:FF(16)*1 --"},
      {"an interface cut off", "09 04 00 00 01 FF ", ""},
      {"an interface that is too short", "08 04 00 00 01 FF 00 00 " + interface + endpoint,
       "0.0:FF(16)*1 84"},
      {"a descriptor of one byte is passed over", interface + "01 " + endpoint, "0.0:FF(17)*1 84"},
      {"length 0 ends the walk", "00 24 " + interface + endpoint, ""},
      {"length 0 among endpoints ends theirs", interface + "00 05 84 02 00 02 00 ",
       "0.0:FF(9)*1 --"},
  };
  for (const auto& [what, bytes, described] : cases) {
    EXPECT_EQ(described, Described(HexBytes(kHeader + bytes))) << what;
  }
}

TEST(ConfigurationRecord, PacketSizesCountPacketsPerMicroframe) {
  const std::string before = std::string(kHeader) + "09 04 00 00 01 FF 00 00 00 07 05 81 02 ";
  for (const auto& [size, max_packet_size] : {std::pair{"00 02", 512},
                                              {"40 00", 64},
                                              {"00 14", 3072},
                                              {"FF FF", 0x7FF * 4},
                                              {"00 E0", 0}}) {
    DriverFile closed;
    const auto record = BuildConfiguration(HexBytes(before + size + " 00"), closed);
    EXPECT_EQ(max_packet_size, record->interfaces[0].endpoints[1]->MaxPacketSize()) << size;
  }
}

}  // namespace
