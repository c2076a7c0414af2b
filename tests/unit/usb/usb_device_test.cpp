#include "usb/usb_device.h"

#include <algorithm>
#include <random>
#include <string>

#include "tests/unit/random_seed.h"
#include "tests/unit/usb/usb_fixture.h"

namespace {

using unit::Bytes;
using unit::ScriptedDevice;

using UsbDeviceTest = ScriptedBusTest;

ScriptedDevice Named(const std::string& name) {
  ScriptedDevice device;
  device.name = name;
  return device;
}

TEST_F(UsbDeviceTest, OpeningReadsTheDescriptorsInTheirOrder) {
  ASSERT_TRUE(device_.Open(0));
  EXPECT_EQ((std::vector<std::string>{
                "80 06 00 01 00 00 12 00",                             // device
                "80 06 00 03 00 00 02 00", "80 06 00 03 00 00 04 00",  // languages
                "80 06 01 03 09 04 02 00", "80 06 01 03 09 04 10 00",  // manufacturer
                "80 06 02 03 09 04 02 00", "80 06 02 03 09 04 0C 00",  // product
                "80 06 03 03 09 04 02 00", "80 06 03 03 09 04 10 00",  // serial number
                "80 06 00 02 00 00 09 00", "80 06 00 02 00 00 35 00",  // configuration
            }),
            bus_.TakeDescriptorRequests());
  EXPECT_EQ(0x0F0F, device_.VendorId());
  EXPECT_EQ(0x1002, device_.ProductId());
  EXPECT_STREQ(L"Wirefox", device_.Manufacturer());
  EXPECT_STREQ(L"Probe", device_.Product());
  EXPECT_STREQ(L"WFX0001", device_.SerialNumber());
  EXPECT_STREQ("\\\\?\\usb#vid_0f0f&pid_1002#WFX0001", device_.DevicePath());
  EXPECT_TRUE(device_.IsHighSpeed());
  EXPECT_EQ(0x01050500U, device_.DriverVersion());
  EXPECT_EQ(6, device_.EndPointCount());
  EXPECT_EQ(64, device_.ControlEndPoint()->MaxPacketSize());
}

TEST_F(UsbDeviceTest, FirstOfAKindIsTheFirstInDescriptorOrder) {
  // Address and attributes; the first has synchronisation bits, so that its place stays empty.
  const std::uint8_t endpoints[][2] = {{0x81, 5}, {0x86, 2}, {0x02, 2}, {0x84, 2}, {0x01, 2},
                                       {0x83, 3}, {0x03, 3}, {0x85, 1}, {0x05, 1}};
  ScriptedDevice probe;
  Bytes descriptor = {9, 2, 81, 0, 1, 1, 0, 0x80, 50, 9, 4, 0, 0, 9, 0xFF, 0, 0, 0};
  for (const auto& [address, attributes] : endpoints) {
    descriptor.insert(descriptor.end(), {7, 5, address, attributes, 64, 0, 1});
  }
  probe.descriptors[0x0200] = descriptor;
  bus_.SetDevices({probe});
  ASSERT_TRUE(device_.Open(0));
  EXPECT_EQ(10, device_.EndPointCount());
  EXPECT_EQ(nullptr, device_.EndPoint(1));
  EXPECT_EQ(0x86, device_.FirstBulkIn()->Address());
  EXPECT_EQ(0x02, device_.FirstBulkOut()->Address());
  EXPECT_EQ(0x83, device_.FirstInterruptIn()->Address());
  EXPECT_EQ(0x03, device_.FirstInterruptOut()->Address());
  EXPECT_EQ(0x85, device_.FirstIsocIn()->Address());
  EXPECT_EQ(0x05, device_.FirstIsocOut()->Address());
}

TEST_F(UsbDeviceTest, OnlyPresentIndexesOpen) {
  bus_.SetDevices({Named("B"), Named("A")});
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

TEST_F(UsbDeviceTest, ClosedDeviceMayBeClosedAgain) {
  ASSERT_TRUE(device_.Open(0));
  for (int i = 0; i < 2; ++i) {
    device_.Close();
    EXPECT_FALSE(device_.IsOpen());
    EXPECT_EQ(0, device_.EndPointCount());
    EXPECT_EQ(nullptr, device_.EndPoint(0));
    EXPECT_EQ(nullptr, device_.ControlEndPoint());
    EXPECT_EQ(nullptr, device_.FirstBulkIn());
  }
  EXPECT_TRUE(device_.Open(0));
}

TEST_F(UsbDeviceTest, LanguageIsTheFirstOrUsEnglish) {
  struct Case {
    Bytes list;
    std::uint16_t language;
  };
  const Case cases[] = {
      {{6, 3, 0x07, 0x04, 0x09, 0x04}, 0x0409},
      {{4, 3, 0x07, 0x04}, 0x0407},
      {{2, 3}, 0},
      {{5, 3, 0x07, 0x04, 0x09}, 0x0407},
      {{255, 3, 0x07, 0x04}, 0x0407},  // promises more than it sends
      {{1, 3}, 0},
      {{0, 3}, 0},
      {{}, 0},
  };
  for (const Case& c : cases) {
    ScriptedDevice probe;
    probe.descriptors[0x0300] = c.list;
    bus_.SetDevices({probe});
    EXPECT_TRUE(device_.Open(0));
    EXPECT_EQ(c.language, device_.LanguageId()) << unit::HexText(c.list);
  }
}

TEST_F(UsbDeviceTest, StringsHoldWhatCameOfThem) {
  struct Case {
    Bytes descriptor;
    std::wstring text;
  };
  const Case cases[] = {
      {{2, 3}, L""},
      {{6, 3, 'A', 0, 0x3A, 0x04}, L"A\x43A"},
      {{6, 2, 'A', 0, 'B', 0}, L""},      // another type of descriptor
      {{5, 3, 'A', 0, 'B'}, L"AB"},       // half a character
      {{255, 3, 'A', 0, 'B', 0}, L"AB"},  // promises more than it sends
      {{1, 3, 'A', 0}, L""},
      {{6, 3, 'A', 0, 0, 0}, L"A"},
      {{}, L""},
  };
  for (const Case& c : cases) {
    // Opened before with a name, which must not pass for this one's.
    bus_.SetDevices({Named("ELSEWHERE")});
    ASSERT_TRUE(device_.Open(0));
    ScriptedDevice probe;
    probe.descriptors[0x0303] = c.descriptor;
    bus_.SetDevices({probe});
    ASSERT_TRUE(device_.Open(0));
    EXPECT_EQ(c.text, device_.SerialNumber()) << unit::HexText(c.descriptor);
  }
}

TEST_F(UsbDeviceTest, LongestStringFits) {
  ScriptedDevice probe;
  Bytes longest(255, 'x');
  longest[0] = 255;
  longest[1] = 3;
  probe.descriptors[0x0303] = longest;
  bus_.SetDevices({probe});
  ASSERT_TRUE(device_.Open(0));
  EXPECT_EQ(127U, std::wstring(device_.SerialNumber()).size());
}

TEST_F(UsbDeviceTest, StringWithoutIndexIsNotAskedFor) {
  ScriptedDevice probe;
  Bytes descriptor = probe.Descriptor(0x0100);
  descriptor[16] = 0;
  probe.descriptors[0x0100] = descriptor;
  bus_.SetDevices({probe});
  ASSERT_TRUE(device_.Open(0));
  EXPECT_STREQ(L"", device_.SerialNumber());
}

TEST_F(UsbDeviceTest, OlderDriverMakesDataEndpointsBuffered) {
  for (const std::uint32_t version : {0x01050500U, 0x010504FFU, 0U}) {
    ScriptedDevice probe;
    probe.facts.driver_version = version;
    bus_.SetDevices({probe});
    ASSERT_TRUE(device_.Open(0));
    EXPECT_EQ(version == 0x01050500U, EndPoint(0x84).IsDirect()) << version;
    EXPECT_FALSE(device_.ControlEndPoint()->IsDirect());
  }
}

TEST_F(UsbDeviceTest, AlternateSettingDecidesTheEndpoints) {
  for (const std::uint8_t setting : {0, 1, 7}) {
    ScriptedDevice probe;
    probe.descriptors[0x0200] = {9, 2, 41,   0, 1, 1,    0, 0x80, 50,  //
                                 9, 4, 0,    0, 0, 0xFF, 0, 0,    0,   // setting 0: no endpoints
                                 9, 4, 0,    1, 2, 0xFF, 0, 0,    0,   // setting 1: two
                                 7, 5, 0x02, 2, 0, 2,    0, 7,    5,  0x84, 2, 0, 2, 0};
    probe.facts.alternate_setting = setting;
    bus_.SetDevices({probe});
    EXPECT_TRUE(device_.Open(0));
    // A setting that the device does not describe leaves no list at all.
    const int counts[] = {1, 3, 0};
    EXPECT_EQ(counts[std::min<int>(setting, 2)], device_.EndPointCount());
  }
}

TEST_F(UsbDeviceTest, WithoutAConfigurationItStaysOpenWithoutEndpoints) {
  struct Case {
    const char* what;
    std::uint16_t value;
    Bytes descriptor;
  };
  const Case cases[] = {
      {"no configuration descriptor", 0x0200, {}},
      {"a cut-off one", 0x0200, {9, 2, 40, 0, 1}},
      {"one that claims no bytes", 0x0200, {9, 2, 0, 0, 1, 1, 0, 0x80, 50}},
      {"no interface", 0x0200, {9, 2, 9, 0, 0, 1, 0, 0x80, 50}},
      {"no device descriptor", 0x0100, {}},
      {"a short device descriptor", 0x0100, {17, 1, 0, 2, 0, 0, 0, 64, 1, 1, 1, 1, 1, 1, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    ScriptedDevice probe;
    probe.descriptors[c.value] = c.descriptor;
    bus_.SetDevices({probe});
    EXPECT_FALSE(device_.Open(0)) << c.what;
    EXPECT_TRUE(device_.IsOpen()) << c.what;
    EXPECT_EQ(0, device_.EndPointCount()) << c.what;
  }
}

TEST_F(UsbDeviceTest, PathThatDoesNotFitIsRefused) {
  for (const std::size_t length : {255U, 256U}) {
    ScriptedDevice probe;
    probe.name = std::string(length - Named("").Path().size(), length == 255 ? 'n' : 'm');
    probe.descriptors[0x0303] = ScriptedDevice::String("WFX");
    bus_.SetDevices({probe});
    EXPECT_EQ(length == 255, device_.Open(0));
    EXPECT_EQ(length == 255, device_.IsOpen());
    // Shown all the same, and not the device that was open before.
    EXPECT_EQ(probe.Path().substr(0, 255), device_.DevicePath());
  }
}

TEST_F(UsbDeviceTest, OnlyTwoConfigurationsAreRead) {
  ScriptedDevice probe;
  Bytes descriptor = probe.Descriptor(0x0100);
  descriptor[17] = 200;
  probe.descriptors[0x0100] = descriptor;
  for (std::uint16_t i = 1; i < 4; ++i) probe.descriptors[0x0200 + i] = probe.Configuration();
  bus_.SetDevices({probe});
  EXPECT_TRUE(device_.Open(0));
  const std::vector<std::string> requests = bus_.TakeDescriptorRequests();
  const auto asked_for = [&](const char* setup) {
    return std::ranges::count_if(
        requests, [&](const std::string& request) { return request.starts_with(setup); });
  };
  EXPECT_EQ(2, asked_for("80 06 00 02"));
  EXPECT_EQ(2, asked_for("80 06 01 02"));
  EXPECT_EQ(0, asked_for("80 06 02 02"));
}

// Descriptors with a few bytes changed and the end cut off: whatever comes, nothing is read that
// the device did not send, and what is left of the device can be used.
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
    bus_.SetDevices({probe});
    device_.Open(0);
    for (std::uint8_t place = 0; place < device_.EndPointCount(); ++place) {
      if (CTzUSBEndPoint* endpoint = device_.EndPoint(place)) {
        endpoint->SetTransferSize(100);
        endpoint->AbortTransfers();
      }
    }
  }
}

}  // namespace
