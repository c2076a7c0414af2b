#include <gtest/gtest.h>
#include <libusb.h>

#include <sstream>

#include "platform/linux/usb/probe_ids.h"
#include "platform/linux/usb/usb_errors.h"

namespace linux_host {
namespace {

TEST(ProbeIds, AreThoseOfDevicesThatTheServiceHandles) {
  std::istringstream settings(
      ";1111_0001_WFXDEVICE=CONFIGURED\n"
      " ;=\n"
      "[1111_0002_WFXDEVICE]\n"
      "0F0F_1001_WFXDEVICE=UNCONFIGURED\r\n"
      "0f0f_abcd_evkdevice=\"CONFIGURED\"\n"
      "0F0F_1001_WFXDEVICE=never read\n"
      "1111_0003_KX7=file.hex\n"
      "1111_0004_WFXDEVICE=configured\n"
      "1111_0005_WFXDEVICE =CONFIGURED\n"
      "1111_0006_WFXDEVICE=off\n"
      "1111_0006_WfxDevice=CONFIGURED\n"
      "1111_00G7_WFXDEVICE=CONFIGURED\n"
      "1111-0008_WFXDEVICE=CONFIGURED\n"
      "_0009_WFXDEVICE=CONFIGURED\n"
      "+111_000A_WFXDEVICE=CONFIGURED\n"
      "1111_000B=CONFIGURED\n"
      "1111_000C_=CONFIGURED\n"
      "FFFF_0000_NEWDEVICE=CONFIGURED\n"
      "2222_0001_WFXDEVICE=CONFIGURED\x1A\n"
      "1111_000D_WFXDEVICE=CONFIGURED\n");
  const std::set<UsbIds> expected = {{0x0F0F, 0x1001}, {0x0F0F, 0xABCD}, {0xFFFF, 0}, {0x2222, 1}};
  EXPECT_EQ(expected, ReadProbeIds(settings));
}

// A code that is not in the table counts as "other error".
TEST(UsbErrors, EveryErrorOfTheLibraryHasItsRow) {
  for (int code = LIBUSB_ERROR_OTHER; code <= 0; ++code) {
    const bool is_known = std::string(libusb_error_name(code)) != "**UNKNOWN**";
    EXPECT_EQ(is_known ? code : LIBUSB_ERROR_OTHER, ErrorOfCall(code).code);
  }
  for (int status = 0; status <= LIBUSB_TRANSFER_OVERFLOW; ++status) {
    EXPECT_EQ(status, ErrorOfTransfer(status).code);
  }
}

}  // namespace
}  // namespace linux_host
