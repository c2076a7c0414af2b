#include "usb/usb_device.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>

#include "tests/unit/random_seed.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/usb/opened_device.h"

namespace {

using unit::Bytes;
using unit::HexBytes;
using unit::ScriptedDevice;

using UsbDeviceTest = OpenedDeviceTest;

TEST_F(UsbDeviceTest, OpeningReadsTheDescriptorsInTheirOrder) {
  ASSERT_TRUE(Open({.facts = {.text = "driver", .second_text = "bus", .usb_address = 7}}));
  EXPECT_EQ((std::vector<std::string>{
                "80 06 00 01 00 00 12 00",                             // device
                "80 06 00 03 00 00 02 00", "80 06 00 03 00 00 04 00",  // languages
                "80 06 01 03 09 04 02 00", "80 06 01 03 09 04 10 00",  // manufacturer
                "80 06 02 03 09 04 02 00", "80 06 02 03 09 04 0C 00",  // product
                "80 06 03 03 09 04 02 00", "80 06 03 03 09 04 10 00",  // serial number
                "80 06 00 02 00 00 09 00", "80 06 00 02 00 00 35 00",  // configuration
            }),
            bus_.TakeDescriptorRequests());
  EXPECT_EQ((std::vector<std::uint32_t>{0x0F0F, 0x1002, 0x0200, 0x01050500, 0x0600, 7}),
            (std::vector<std::uint32_t>{device_.VendorId(), device_.ProductId(),
                                        device_.UsbVersion(), device_.DriverVersion(),
                                        device_.InterfaceVersion(), device_.UsbAddress()}));
  EXPECT_EQ("driver bus", std::string(device_.DriverText()) + " " + device_.SecondDriverText());
  EXPECT_STREQ(L"Wirefox", device_.Manufacturer());
  EXPECT_STREQ(L"Probe", device_.Product());
  EXPECT_STREQ(L"WFX0001", device_.SerialNumber());
  EXPECT_STREQ("\\\\?\\usb#vid_0f0f&pid_1002#WFX0001", device_.DevicePath());
  EXPECT_TRUE(device_.IsHighSpeed());
  EXPECT_EQ(6, device_.EndPointCount());
  EXPECT_EQ(64, device_.ControlEndPoint()->MaxPacketSize());

  for (int i = 0; i < 2; ++i) {  // closed, it may be closed again
    device_.Close();
    EXPECT_FALSE(device_.IsOpen());
    EXPECT_EQ(0, device_.EndPointCount());
    EXPECT_EQ(nullptr, device_.EndPoint(0));
    EXPECT_EQ(nullptr, device_.ControlEndPoint());
  }
  EXPECT_TRUE(device_.Open(0));
}

TEST_F(UsbDeviceTest, FirstOfAKindIsTheFirstInDescriptorOrder) {
  // Address and attributes; the first has synchronisation bits, so that its place stays empty.
  const std::uint8_t endpoints[][2] = {{0x81, 5}, {0x86, 2}, {0x02, 2}, {0x84, 2}, {0x01, 2},
                                       {0x83, 3}, {0x03, 3}, {0x85, 1}, {0x05, 1}};
  Bytes descriptor = HexBytes("09 02 51 00 01 01 00 80 32 09 04 00 00 09 FF 00 00 00");
  for (const auto& [address, attributes] : endpoints) {
    descriptor.insert(descriptor.end(), {7, 5, address, attributes, 64, 0, 1});
  }
  ASSERT_TRUE(OpenWith(0x0200, descriptor));
  EXPECT_EQ(10, device_.EndPointCount());
  EXPECT_EQ(nullptr, device_.EndPoint(1));
  const auto firsts = [this] {
    return std::vector{device_.FirstBulkIn(),      device_.FirstBulkOut(),
                       device_.FirstInterruptIn(), device_.FirstInterruptOut(),
                       device_.FirstIsocIn(),      device_.FirstIsocOut()};
  };
  EXPECT_EQ((std::vector{&EndPoint(0x86), &EndPoint(0x02), &EndPoint(0x83), &EndPoint(0x03),
                         &EndPoint(0x85), &EndPoint(0x05)}),
            firsts());
  device_.Close();
  EXPECT_EQ(std::vector<CTzUSBEndPoint*>(6), firsts());
}

TEST_F(UsbDeviceTest, OnlyPresentIndexesOpen) {
  bus_.SetDevices({{.name = "B"}, {.name = "A"}});
  EXPECT_EQ(2, device_.DeviceCount());
  EXPECT_TRUE(device_.Open(1));
  EXPECT_STREQ(L"B", device_.SerialNumber());
  EXPECT_TRUE(device_.Open(0));
  EXPECT_STREQ(L"A", device_.SerialNumber());
  const int opens = bus_.OpensSoFar();
  EXPECT_FALSE(device_.Open(2));
  EXPECT_FALSE(device_.IsOpen());
  EXPECT_EQ(0, device_.EndPointCount());
  bus_.SetDevices({});
  EXPECT_EQ(0, device_.DeviceCount());
  EXPECT_FALSE(device_.Open(0));
  EXPECT_EQ(opens, bus_.OpensSoFar());
}

TEST_F(UsbDeviceTest, LanguageIsTheFirstOrUsEnglish) {
  const struct {
    const char* list;
    std::uint16_t language;
  } cases[] = {
      {"06 03 07 04 09 04", 0x0409},
      {"06 03 07 04 0C 04", 0x0407},
      {"02 03", 0},
      {"05 03 07 04 09", 0x0407},
      {"FF 03 07 04", 0x0407},  // promises more than it sends
      {"01 03", 0},
      {"00 03", 0},
      {"", 0},
  };
  for (const auto& [list, language] : cases) {
    EXPECT_TRUE(OpenWith(0x0300, HexBytes(list)));
    EXPECT_EQ(language, device_.LanguageId()) << list;
  }
}

// Descriptor requests have five seconds, after which the client cancels them; the driver, which
// counts in whole seconds, does so a second later. One that is kept even so has the device given
// up.
TEST_F(UsbDeviceTest, DescriptorThatNeverComesIsNotWaitedForLongerThanItsTime) {
  const struct {
    const char* answer;
    std::uint64_t elapsed_ms;
    const char* ended;
    bool given_up;
  } cases[] = {{"silent", 5000, "cancel 00", false},
               {"slow", 6000, "cancel 00 \n cancel 00", false},
               {"kept", 7000, "cancel 00 \n cancel 00", true}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.answer);
    unit::LogFile log(31);
    bus_.TakeDescriptorRequests();
    bus_.Play(test.ended);
    EXPECT_EQ(test.elapsed_ms, ElapsedMs([&] { EXPECT_FALSE(Open({.instead = test.answer})); }));
    EXPECT_EQ(test.given_up ? 1U : 3U, bus_.TakeDescriptorRequests().size());
    EXPECT_EQ(test.given_up ? 1U : 0U, log.Lines().size());
    EXPECT_EQ(test.given_up ? 0U : 0x01050500U, device_.DriverVersion());
  }
}

TEST_F(UsbDeviceTest, HandleThatCannotBeClosedIsToldAndForgotten) {
  ASSERT_TRUE(device_.Open(0));
  HANDLE driver = nullptr;
  for (std::uintptr_t value = 4; !driver && value < 0x4000; value += 4) {
    // Only a file has requests that could be looked for.
    CancelIoEx(reinterpret_cast<HANDLE>(value), nullptr);
    if (GetLastError() == ERROR_NOT_FOUND) driver = reinterpret_cast<HANDLE>(value);
  }
  ASSERT_TRUE(CloseHandle(driver));
  EXPECT_THAT([&] { device_.Close(); },
              testing::ThrowsMessage<std::runtime_error>("Failed to close handle to driver."));
  EXPECT_FALSE(device_.IsOpen());
  EXPECT_EQ(nullptr, device_.ControlEndPoint());
  EXPECT_TRUE(device_.Open(0));
}

TEST_F(UsbDeviceTest, StringsHoldWhatCameOfThem) {
  const struct {
    const char* descriptor;
    std::wstring text;
  } cases[] = {
      {"02 03", L""},
      {"06 03 41 00 3A 04", L"A\x43A"},
      {"06 02 41 00 42 00", L""},    // another type of descriptor
      {"05 03 41 00 42", L"AB"},     // half a character
      {"FF 03 41 00 42 00", L"AB"},  // promises more than it sends
      {"01 03 41 00", L""},
      {"06 03 41 00 00 00", L"A"},
      {"", L""},
      {"FF 03 78*253", std::wstring(126, L'\x7878') + L"x"},  // the longest
  };
  for (const auto& [descriptor, text] : cases) {
    // Opened before with a name, which must not pass for this one's.
    ASSERT_TRUE(Open({.name = "ELSEWHERE"}));
    ASSERT_TRUE(OpenWith(0x0303, HexBytes(descriptor)));
    EXPECT_EQ(text, device_.SerialNumber()) << descriptor;
  }
  // One without an index is not asked for: as a descriptor it would be the language list.
  ASSERT_TRUE(OpenWith(0x0100, HexBytes("12 01 00 02 FF 00 00 40 0F 0F 02 10 00 00 01 02 00 01")));
  EXPECT_STREQ(L"", device_.SerialNumber());
}

TEST_F(UsbDeviceTest, OlderDriverMakesDataEndpointsBuffered) {
  for (const std::uint32_t version : {0x01050500U, 0x010504FFU, 0U}) {
    ScriptedDevice probe;
    probe.facts.driver_version = version;
    ASSERT_TRUE(Open(probe));
    EXPECT_EQ(version == 0x01050500U, EndPoint(0x84).IsDirect()) << version;
    EXPECT_FALSE(device_.ControlEndPoint()->IsDirect());
  }
}

TEST_F(UsbDeviceTest, AlternateSettingDecidesTheEndpoints) {
  // Setting 0 has no endpoints, setting 1 has two. One that the device does not describe leaves no
  // list at all.
  const Bytes configuration = HexBytes(
      "09 02 29 00 01 01 00 80 32 09 04 00 00 00 FF 00 00 00 09 04 00 01 02 FF 00 00 00 "
      "07 05 02 02 00 02 00 07 05 84 02 00 02 00");
  for (const auto& [setting, count] : {std::pair<std::uint8_t, int>{0, 1}, {1, 3}, {7, 0}}) {
    ScriptedDevice probe{.descriptors = {{0x0200, configuration}}};
    probe.facts.alternate_setting = setting;
    EXPECT_TRUE(Open(probe));
    EXPECT_EQ(count, device_.EndPointCount());
  }
}

TEST_F(UsbDeviceTest, WithoutAConfigurationItStaysOpenWithoutEndpoints) {
  const struct {
    const char* what;
    std::uint16_t value;
    const char* descriptor;
  } cases[] = {
      {"no configuration descriptor", 0x0200, ""},
      {"a cut-off one", 0x0200, "09 02 28 00 01"},
      {"one that claims no bytes", 0x0200, "09 02 00 00 01 01 00 80 32"},
      {"no interface", 0x0200, "09 02 09 00 00 01 00 80 32"},
      {"no device descriptor", 0x0100, ""},
      {"a short one", 0x0100, "11 01 00 02 00 00 00 40 01 01 01 01 01 01 00 00 00"},
  };
  for (const auto& [what, value, descriptor] : cases) {
    EXPECT_FALSE(OpenWith(value, HexBytes(descriptor))) << what;
    EXPECT_TRUE(device_.IsOpen()) << what;
    EXPECT_EQ(value == 0x0100 ? 0 : 0x0F0F, device_.VendorId()) << what;
    EXPECT_EQ(0, device_.EndPointCount()) << what;
  }
}

TEST_F(UsbDeviceTest, PathThatDoesNotFitIsRefused) {
  for (const std::size_t length : {255U, 256U}) {
    ScriptedDevice probe{.descriptors = {{0x0303, ScriptedDevice::String("WFX")}}};
    probe.name.append(length - probe.Path().size(), length == 255 ? 'n' : 'm');
    EXPECT_EQ(length == 255, Open(probe));
    EXPECT_EQ(length == 255, device_.IsOpen());
    // Shown all the same, and not the device that was open before.
    EXPECT_EQ(probe.Path().substr(0, 255), device_.DevicePath());
  }
}

TEST_F(UsbDeviceTest, OnlyTwoConfigurationsAreRead) {
  ScriptedDevice probe;
  probe.descriptors[0x0100] = HexBytes("12 01 00 02 FF 00 00 40 0F 0F 02 10 00 00 01 02 03 C8");
  for (std::uint16_t i = 1; i < 4; ++i) probe.descriptors[0x0200 + i] = probe.Configuration();
  EXPECT_TRUE(Open(probe));
  const std::vector<std::string> requests = bus_.TakeDescriptorRequests();
  EXPECT_EQ((std::vector<std::string>{"80 06 00 02 00 00 09 00", "80 06 00 02 00 00 35 00",
                                      "80 06 01 02 00 00 09 00", "80 06 01 02 00 00 35 00"}),
            std::vector(requests.end() - 4, requests.end()));
}

// Descriptors with a few bytes changed and the end cut off: whatever comes, nothing is read that
// the device did not send.
TEST_F(UsbDeviceTest, DamagedDescriptorsAreSurvived) {
  std::mt19937 random(unit::RandomSeed());
  for (int round = 0; round < 400; ++round) {
    ScriptedDevice probe;
    for (const std::uint16_t value : {0x0100, 0x0200, 0x0300, 0x0301, 0x0303}) {
      Bytes descriptor = probe.Descriptor(value);
      for (unsigned changes = random() % 4; changes > 0; --changes) {
        descriptor[random() % descriptor.size()] = static_cast<std::uint8_t>(random());
      }
      if (random() % 4 == 0) descriptor.resize(random() % (descriptor.size() + 1));
      probe.descriptors[value] = descriptor;
    }
    probe.facts.alternate_setting = static_cast<std::uint8_t>(random() % 2);
    Open(probe);
  }
}

}  // namespace
