// What a session puts on the wire, as tshark reads the bench's capture.
#include "tests/system/harness.h"

namespace system_test {
namespace {

using Wire = OnBench;

TEST_F(Wire, CarriesTheseRequests) {
  Json({"mode", "WFX0001", "JTAG"});
  Json({"mode", "WFX0002", "SWD", "--port", "10"});
  holder.reset();
  // But for the first look at the list of languages, of two bytes, in which the dissector misses
  // one.
  EXPECT_EQ(Capture("(_ws.malformed || _ws.expert.severity == error) && "
                    "!(usb.bDescriptorType == 3 && usb.bLength == 4 && usb.data_len == 2)",
                    {}),
            "");
  const auto requests = [&](const std::string& numbers, const std::string& data = "") {
    Words fields = {"usb.bmRequestType", "usb.setup.bRequest", "usb.setup.wValue",
                    "usb.setup.wIndex", "usb.setup.wLength"};
    if (!data.empty()) fields.push_back(data);
    return Capture("usb.urb_type == 'S' && usb.setup.bRequest in {" + numbers + "}", fields);
  };
  EXPECT_EQ(requests("0xa0"),
            "0x40 160 0xe600 0 1\n"  // hold the processor
            "0x40 160 0x0000 0 2048\n"
            "0x40 160 0x0800 0 2048\n"
            "0x40 160 0x1000 0 921\n"  // 5017 in all
            "0x40 160 0x1b00 0 1\n"
            "0x40 160 0x2000 0 2048\n"  // 4096 in two
            "0x40 160 0x2800 0 2048\n"
            "0x40 160 0x3800 0 2048\n"
            "0x40 160 0xfff0 0 16\n"
            "0x40 160 0xe600 0 1\n");  // let it run
  // 48999 bytes, announced as one less. Both Wirefox probes are loaded.
  const std::string load =
      "0xc0 71 0x0000 0 16\n"
      "0xc0 69 0xbf66 0 16\n"
      "0xc0 70 0x0000 0 16\n";
  EXPECT_EQ(requests("0x45, 0x46, 0x47"), load + load);
  EXPECT_EQ(requests("0x41, 0x61"),
            "0xc0 65 0x0000 0 3\n"
            "0xc0 65 0x0101 0 3\n"
            "0xc0 97 0x0000 0 3\n"
            "0xc0 65 0x0000 0 3\n"
            "0xc0 65 0x0104 0 3\n"
            "0xc0 97 0x0001 0 10\n");
  EXPECT_EQ(Capture("usb.urb_type == 'S' && usb.setup.wValue == 0xe600", {"usb.data_fragment"}),
            "01\n00\n");
}

}  // namespace
}  // namespace system_test
