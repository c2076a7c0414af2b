// The client library for other programs, on a service that records its calls.
#include <gtest/gtest.h>
#include <wirefox/client.h>

#include <array>
#include <optional>
#include <sstream>
#include <thread>

#include "api/interface_table.h"
#include "bindings/cpp/connection.h"
#include "client/text.h"
#include "tests/unit/client/fake_wirefox.h"

namespace client_test {
namespace {

using namespace wirefox;

Service ServiceOn(FakeService& fake) {
  return Connection::ServiceOn(std::make_shared<Connection>(ClientOf(fake)));
}

// What has been called since the last time, a line each.
std::string Called(FakeService& fake) {
  std::string lines;
  for (const std::string& call : std::exchange(fake.calls, {})) lines += call + "\n";
  return lines;
}

// What `call` throws: its text, code and status.
template <typename Call>
std::string Thrown(Call call) {
  try {
    call();
  } catch (const Error& error) {
    std::ostringstream text;
    text << error.what() << " | " << static_cast<int>(error.code()) << " | " << std::hex
         << error.call_status();
    return text.str();
  }
  return "nothing";
}

TEST(ClientLibrary, EachMethodPassesItsArgumentsOnAndReturnsWhatComesBack) {
  FakeService fake;
  fake.version = 33554944;
  fake.path = "C:\\Grüße";
  fake.wirefoxs = {"WFX0001", "EVK0001"};
  fake.devices = {"1BA014770", "0684617F1"};
  fake.status = {1, 11, -2, 12, 1, 0x0102, 0x0304, 200, -32768, 3, 0, 1, 0, 1, 1, 1, 224};
  fake.revision = 7;
  fake.acquire_status = 0;
  fake.reply = [](const Bytes& packet) { return Bytes(packet.rbegin(), packet.rend()); };
  constexpr PortAcquireSettings kSettings = {TzProgrammingMode::VOLTAGE_SENSE, 1, true, 2, 3, 4};
  {
    Service service = ServiceOn(fake);
    EXPECT_EQ(service.GetVersion(), 33554944);
    EXPECT_EQ(service.GetDevicesChangedLocation(), fake.path);
    EXPECT_EQ(service.EnumerateWirefoxs(), fake.wirefoxs);
    EXPECT_EQ(service.EnumerateDevices("A"), fake.devices);
    const TzWFXStatus status = service.GetWirefoxStatus("B");
    EXPECT_EQ(std::tuple(status.VTARG_MEASURED, status.BOOTLOADER_VERSION, status.CLOCK_FREQUENCY),
              std::tuple(-2, -32768, 224));
    EXPECT_EQ(service.GetHwRevID("C"), 7);
    service.SetLedState("D", TzLed::LED_4_YELLOW, TzLedState::FLASH2);
    service.VisualIdentify("E", TzLedIdentifyState::ID_OFF);
    service.SetTimeOut("F", TzWirefoxEndPoint::EP6, 250);
    service.SetJtagClock("G", TzJtagClock::FREQ_C_00_2);
    service.SetMode("H", TzTransferMode::VSER_INT);
    service.SetMode("H", TzTransferMode::SWD, true);
    service.SetVTarg("I", TzVTargVoltage::VTARG_5_0, true);
    service.ToggleXres("J", true);
    service.SetupSWV("K", 2000000, true, 9);
    service.PortAcquire("L", kSettings);
    EXPECT_TRUE(service.GetPortAcquireStatus("M"));
    Session session = service.AcquireDevice("N", 5);
    EXPECT_EQ(session.handle(), 0x104);
    const Bytes packet = {1, 2, 3}, reversed = {3, 2, 1};
    EXPECT_EQ(session.SendJtagPacket(packet), reversed);
    EXPECT_EQ(session.SendJtagPacket(std::array<std::uint8_t, 3>{1, 2, 3}, false), reversed);
    EXPECT_EQ(session.SendSwdPacket({packet.data(), 2}), (Bytes{2, 1}));
    EXPECT_EQ(session.SendI2CPacket(packet, 6), reversed);
    EXPECT_EQ(session.BulkTransfer(TzWirefoxEndPoint::EP2, packet, true), reversed);
    EXPECT_EQ(session.RequestSwvPackets(), Bytes());
    EXPECT_EQ(session.RequestEtmPackets(), Bytes());
    session.PortAcquire(kSettings);
  }
  // Process ids are 1 when they are this one's, and packets stand last.
  const std::string called = Called(fake);
  EXPECT_EQ(called,
            "GetVersion\n"
            "GetDevicesChangedLocation\n"
            "EnumerateWirefoxs\n"
            "EnumerateDevices A\n"
            "GetWirefoxStatus B\n"
            "GetHwRevID C\n"
            "SetLedState D 3 2\n"
            "VisualIdentify E 3\n"
            "SetTimeOut F 6 250 1\n"
            "SetJtagClock G 154 1\n"
            "SetMode H 272 0 1\n"
            "SetMode H 4 1 1\n"
            "SetVTarg I 7 1 1\n"
            "ToggleXres J 1\n"
            "SetupSWV K 2000000 1 9\n"
            "PortAcquire L 2 1 1 2 3 4\n"
            "GetPortAcquireStatus M 0\n"
            "AcquireDevice N 5 1\n"
            "SendJtagPacket 1 260 010203\n"
            "SendJtagPacket 0 260 010203\n"
            "SendSwdPacket 260 0102\n"
            "SendI2CPacket 260 6 010203\n"
            "BulkTransfer 2 1 260 010203\n"
            "RequestSwvPackets 260\n"
            "RequestEtmPackets 260\n"
            "PortAcquire 2 1 1 2 3 4 260\n"
            "ReleaseDevice 260\n");
  for (const interface_schema::Interface* version : api::kLibrary.interfaces) {
    for (const interface_schema::Method& method : version->methods) {
      EXPECT_NE(called.find(client::Utf8FromWide(method.name)), called.npos) << method.name;
    }
  }
}

TEST(ClientLibrary, ErrorsSayWhetherTheServiceAnsweredAndWhat) {
  FakeService fake;
  Service service = ServiceOn(fake);
  fake.outcomes["SetMode"] = {TzErrorCode::IN_USE};
  const auto set_mode = [&] { service.SetMode("A", TzTransferMode::JTAG); };
  EXPECT_EQ(Thrown(set_mode), "SetMode: IN_USE (error 1) | 1 | 0");
  // A packet that cannot be sent spoils nothing for the calls that follow.
  fake.call_failures["SetMode"] = static_cast<HRESULT>(0x8007000E);
  EXPECT_EQ(Thrown(set_mode),
            "SetMode: the data is too large to be sent (0x8007000e) | 7 | 8007000e");
  fake.call_failures.clear();
  EXPECT_EQ(Thrown(set_mode), "nothing");
  // A part that has not answered yet is no error; a probe that could not be asked is one.
  fake.outcomes["GetPortAcquireStatus"] = {TzErrorCode::WFX_ERROR, TzErrorCode::WFX_ERROR};
  fake.acquire_status = 1;
  EXPECT_FALSE(service.GetPortAcquireStatus("A"));
  fake.acquire_status.reset();
  EXPECT_EQ(Thrown([&] { service.GetPortAcquireStatus("A"); }),
            "GetPortAcquireStatus: WFX_ERROR (error 6) | 6 | 0");
}

TEST(ClientLibrary, ThreadsCallOneServiceAndEachHearsOfItsOwnFailures) {
  FakeService fake;  // is not made for two calls at once
  Service service = ServiceOn(fake);
  fake.call_failures["SetMode"] = static_cast<HRESULT>(0x8007000E);
  int wrong_failures = 0;
  int wrong_successes = 0;
  std::thread failing([&] {
    for (int i = 0; i < 500; ++i) {
      const auto set_mode = [&] { service.SetMode("A", TzTransferMode::JTAG); };
      if (Thrown(set_mode) == "nothing") ++wrong_successes;
    }
  });
  for (int i = 0; i < 500; ++i) {
    if (Thrown([&] { service.GetVersion(); }) != "nothing") ++wrong_failures;
  }
  failing.join();
  EXPECT_EQ(std::pair(wrong_failures, wrong_successes), std::pair(0, 0));
  EXPECT_EQ(fake.calls.size(), 1000u);
}

TEST(ClientLibrary, AThreadMayReleaseWhatAnotherUses) {
  FakeService fake;
  Service service = ServiceOn(fake);
  Session session = service.AcquireDevice("A");
  std::string ended;
  std::thread using_it([&] {
    ended = Thrown([&] {
      while (true) session.RequestSwvPackets();
    });
  });
  session.ReleaseDevice();
  using_it.join();
  EXPECT_EQ(ended, "RequestSwvPackets: NOT_ACQUIRED (error 2) | 2 | 0");
  EXPECT_EQ(fake.calls.back(), "ReleaseDevice 260");
}

TEST(ClientLibrary, ASessionReleasesItsTargetOnceWhoeverHoldsIt) {
  FakeService fake;
  std::optional<Service> service(ServiceOn(fake));
  Session first = service->AcquireDevice("A");
  Session second = service->AcquireDevice("B", 1);
  Called(fake);
  second = std::move(first);
  EXPECT_EQ(Called(fake), "ReleaseDevice 260\n") << "what it held before";
  service.reset();
  EXPECT_EQ(Thrown([&] { first.RequestSwvPackets(); }),
            "RequestSwvPackets: NOT_ACQUIRED (error 2) | 2 | 0");
  fake.outcomes["ReleaseDevice"] = {TzErrorCode::NOT_ACQUIRED};
  EXPECT_EQ(Thrown([&] { second.ReleaseDevice(); }),
            "ReleaseDevice: NOT_ACQUIRED (error 2) | 2 | 0");
  EXPECT_EQ(Called(fake), "ReleaseDevice 260\n");
  EXPECT_EQ(second.handle(), 0);
  {
    Session third = std::move(second);
    service.emplace(ServiceOn(fake));
    third = service->AcquireDevice("C");
    fake.call_failures["ReleaseDevice"] = static_cast<HRESULT>(0x800706BA);
  }
  EXPECT_EQ(Called(fake), "AcquireDevice C 0 1\nReleaseDevice 260\n");
}

}  // namespace
}  // namespace client_test
