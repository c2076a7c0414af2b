// Clients in other processes than the server's: early-bound and late-bound, and those that run
// scripts. The server has a simulated bench of probes.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "api/interface_table.h"
#include "platform/windows/com_pointer.h"
#include "tests/system_windows/automation.h"
#include "tests/system_windows/client.h"
#include "tests/system_windows/installation.h"
#include "tests/system_windows/programs.h"
#include "tests/system_windows/text.h"

namespace system_windows {
namespace {

using windows_host::ComPointer;

Finished RunScript(const std::filesystem::path& script, const std::string& arguments = "") {
  wchar_t system[MAX_PATH] = {};
  GetSystemDirectoryW(system, MAX_PATH);
  return RunToEnd(std::filesystem::path(system) / "cscript.exe",
                  "//nologo \"" + script.string() + "\" " + arguments);
}

class Clients : public Installation {
 protected:
  Clients() {
    Install(L"wirefox bench", TestProgramFolder() / "bench_service.exe");
    const auto folder = program().parent_path();
    std::ofstream(folder / "fw.hex") << ":0400000001020304F2\n:00000001FF\n";
    std::ofstream(folder / "fpga.bin") << std::string(1000, 'F');
    std::ofstream(folder / "wfxusb.ini")
        << "0F0F_1001_WFXDEVICE=UNCONFIGURED\n0F0F_1001_KX7=" << (folder / "fw.hex").string()
        << "\n0F0F_1002_WFXDEVICE=CONFIGURED\n0F0F_1002_FPGA=" << (folder / "fpga.bin").string()
        << "\n0F0F_2002_EVKDEVICE=CONFIGURED\n";
    Register("-RegServer");
    object_ = Connect();
  }

  // Until the probe is in the table: a fresh one gets there by its own arrival.
  bool ProbeIsThere(const std::wstring& name) {
    return WaitUntil([&] {
      Array names;
      return object_->EnumerateWirefoxs(names.Receive(), &error_) == S_OK &&
             std::ranges::count(names.AsStrings(), name) == 1;
    });
  }

  static LONG OwnId() { return static_cast<LONG>(GetCurrentProcessId()); }

  Apartment apartment_;
  ComPointer<ITzWirefox_v3> object_;
  TzErrorCode error_ = TzErrorCode::UNKNOWN;
};

// The packet enters Shift-DR, clocks the chain's IDCODEs out, and what follows comes back behind
// them: a megabyte of it, four bits a byte on the way there and eight on the way back.
TEST_F(Clients, MegabyteGoesThroughTheChainBothWays) {
  ASSERT_TRUE(object_);
  ASSERT_TRUE(ProbeIsThere(L"WFX0001"));
  const Bstr probe(L"WFX0001");
  ASSERT_EQ(object_->SetMode(probe.Get(), TzTransferMode::JTAG, 0, OwnId(), &error_), S_OK);
  ASSERT_EQ(error_, TzErrorCode::SUCCESS);
  Array devices;
  ASSERT_EQ(object_->EnumerateDevices(probe.Get(), devices.Receive(), &error_), S_OK);
  EXPECT_EQ(devices.AsStrings(), (std::vector<std::wstring>{L"1BA014770", L"0684617F0"}));
  std::int64_t handle = 0;
  ASSERT_EQ(object_->AcquireDevice(probe.Get(), 0, OwnId(), &handle, &error_), S_OK);
  ASSERT_EQ(error_, TzErrorCode::SUCCESS);

  constexpr std::size_t kReply = 1 << 20;
  Bytes packet(2 * kReply);
  for (std::size_t i = 0; i < packet.size(); ++i) {
    packet[i] = static_cast<std::uint8_t>((i * 7 + (i >> 9)) & 0x0F);
  }
  const Bytes to_shift = {0xF0, 0xF0, 0xF0, 0x20};
  std::ranges::copy(to_shift, packet.begin());
  Bytes expected = {0x7F, 0x61, 0x84, 0x06, 0x77, 0x14, 0xA0, 0x1B};
  for (std::size_t i = 4; expected.size() < kReply - 2; i += 2) {
    expected.push_back(static_cast<std::uint8_t>(packet[i] | packet[i + 1] << 4));
  }

  Array reply;
  ASSERT_EQ(object_->SendJtagPacket(Array(packet).Get(), 1, handle, reply.Receive(), &error_),
            S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  const Bytes received = reply.AsBytes();
  ASSERT_EQ(received.size(), kReply);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), received.begin() + 2));
  EXPECT_EQ(object_->ReleaseDevice(handle, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
}

TEST_F(Clients, StatusRecordArrivesWithItsFieldsInTheirPlaces) {
  ASSERT_TRUE(object_);
  ASSERT_TRUE(ProbeIsThere(L"WFX0002"));
  const Bstr probe(L"WFX0002");
  ASSERT_EQ(object_->SetVTarg(probe.Get(), TzVTargVoltage::VTARG_3_3, 1, OwnId(), &error_), S_OK);
  ASSERT_EQ(object_->SetMode(probe.Get(), TzTransferMode::SWD, 1, OwnId(), &error_), S_OK);
  TzWFXStatus status;
  std::memset(&status, 0xEE, sizeof(status));
  ASSERT_EQ(object_->GetWirefoxStatus(probe.Get(), &status, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  EXPECT_EQ(status.RESULT, 0);
  EXPECT_EQ(status.VTARG_SET, 11);
  EXPECT_EQ(status.VTARG_MEASURED, 330);
  EXPECT_EQ(status.ACTIVE_INTERFACE, 4);
  EXPECT_EQ(status.ACTIVE_PORT, 1);
  EXPECT_EQ(status.WFX_FLAGS_VTARG_ON, 1);
  EXPECT_EQ(status.CLOCK_FREQUENCY, 0);
}

TEST_F(Clients, NullArraysAndStringsCountAsEmpty) {
  ASSERT_TRUE(object_);
  Array reply;
  ASSERT_EQ(object_->SendSwdPacket(nullptr, -1, reply.Receive(), &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::NOT_ACQUIRED);
  EXPECT_EQ(reply.Get(), nullptr);
  LONG revision = 0;
  ASSERT_EQ(object_->GetHwRevID(nullptr, &revision, &error_), S_OK);
  EXPECT_EQ(error_, TzErrorCode::INVALID_PARAM);
}

// A late-bound call. Arguments stand in the order of the declaration.
HRESULT Call(IDispatch* object, DISPID id, std::vector<VARIANT> arguments, VARIANT* result) {
  std::ranges::reverse(arguments);
  DISPPARAMS parameters = {arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
  return object->Invoke(id, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &parameters, result, nullptr,
                        nullptr);
}

template <typename Value>
VARIANT Variant(VARTYPE type, Value value) {
  VARIANT variant = {};
  V_VT(&variant) = type;
  if constexpr (std::is_pointer_v<Value>) {
    V_BYREF(&variant) = value;
  } else {
    V_I8(&variant) = value;
  }
  return variant;
}

constexpr DISPID kNoMethod = DISPID_UNKNOWN;
constexpr DISPID kPortAcquireByProbe = 20;
constexpr DISPID kPortAcquire = 26;

DISPID IdOf(IDispatch* object, const wchar_t* name) {
  auto* text = const_cast<LPOLESTR>(name);
  DISPID id = kNoMethod;
  object->GetIDsOfNames(IID_NULL, &text, 1, LOCALE_USER_DEFAULT, &id);
  return id;
}

TEST_F(Clients, LateBoundOnesFindTheMethodsUnderTheirIds) {
  ASSERT_TRUE(object_);
  for (const auto* entry : api::kLibrary.interfaces) {
    for (const auto& method : entry->methods) {
      // Of two methods of one name the newest is found by it.
      const bool by_probe = method.dispatch_id == kPortAcquireByProbe;
      EXPECT_EQ(IdOf(object_.Get(), method.name), by_probe ? kPortAcquire : method.dispatch_id);
    }
  }
  EXPECT_EQ(IdOf(object_.Get(), L"portacquire"), kPortAcquire);
  EXPECT_EQ(IdOf(object_.Get(), L"VendorRequest"), kNoMethod);
  UINT count = 0;
  EXPECT_EQ(object_->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 1u);

  // The older versions know the older method of the name that has two.
  ComPointer<ITypeLib> library;
  ASSERT_EQ(LoadRegTypeLib(api::kLibraryId, 1, 0, 0x409, library.Receive()), S_OK);
  for (const GUID* interface_id :
       {&api::kInterfaceIdV1, &api::kInterfaceIdV2, &api::kInterfaceIdV3}) {
    ComPointer<ITypeInfo> type;
    ASSERT_EQ(library->GetTypeInfoOfGuid(*interface_id, type.Receive()), S_OK);
    auto* name = const_cast<LPOLESTR>(L"PortAcquire");
    MEMBERID id = 0;
    EXPECT_EQ(type->GetIDsOfNames(&name, 1, &id), S_OK);
    EXPECT_EQ(id, interface_id == &api::kInterfaceIdV3 ? kPortAcquire : kPortAcquireByProbe);
  }
}

TEST_F(Clients, LateBoundCallsGiveTheirOutputsByReference) {
  ASSERT_TRUE(object_);
  ASSERT_TRUE(ProbeIsThere(L"WFX0002"));
  const Bstr probe(L"WFX0002");
  const VARIANT name = Variant(VT_BSTR, probe.Get());
  const VARIANT owner = Variant(VT_I4, OwnId());
  VARIANT result = {};
  EXPECT_EQ(Call(object_.Get(), 11, {name, Variant(VT_I4, 4), Variant(VT_I4, 0), owner}, &result),
            S_OK);
  EXPECT_EQ(V_I4(&result), 0);
  Array devices;
  EXPECT_EQ(Call(object_.Get(), 4,
                 {name, Variant(VT_BYREF | VT_ARRAY | VT_BSTR, devices.Receive())}, &result),
            S_OK);
  EXPECT_EQ(V_I4(&result), 0);
  EXPECT_EQ(devices.AsStrings(), std::vector<std::wstring>{L"2BA014770"});
  std::int64_t handle = 0;
  EXPECT_EQ(Call(object_.Get(), 13,
                 {name, Variant(VT_I4, 0), owner, Variant(VT_BYREF | VT_I8, &handle)}, &result),
            S_OK);
  EXPECT_EQ(V_I4(&result), 0);
  EXPECT_NE(handle, 0);
  // A plain output instead of a result.
  LONG error = 99;
  EXPECT_EQ(Call(object_.Get(), 5,
                 {name, Variant(VT_I4, 0), Variant(VT_I4, 3), Variant(VT_BYREF | VT_I4, &error)},
                 nullptr),
            S_OK);
  EXPECT_EQ(error, 0);
  // Both methods of one name can be called by their ids: by probe, and by handle.
  const VARIANT zero = Variant(VT_I4, 0);
  const Bstr nobody(L"nobody");
  EXPECT_EQ(Call(object_.Get(), 20,
                 {Variant(VT_BSTR, nobody.Get()), zero, zero, zero, zero, zero, zero}, &result),
            S_OK);
  EXPECT_EQ(V_I4(&result), static_cast<LONG>(TzErrorCode::INVALID_PARAM));
  EXPECT_EQ(
      Call(object_.Get(), 26, {zero, zero, zero, zero, zero, zero, Variant(VT_I8, 1)}, &result),
      S_OK);
  EXPECT_EQ(V_I4(&result), static_cast<LONG>(TzErrorCode::NOT_ACQUIRED));
  EXPECT_EQ(Call(object_.Get(), 9, {}, &result), DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(object_.Get(), 19, {}, &result), DISP_E_MEMBERNOTFOUND);
}

TEST_F(Clients, ScriptsReachTheServiceByItsProgramId) {
  ASSERT_TRUE(object_);
  ASSERT_TRUE(ProbeIsThere(L"WFX0002"));
  const auto script = program().parent_path() / "client.vbs";
  std::ofstream(script) << "Set probes = CreateObject(\"TzWirefoxService.TzWirefox\")\r\n"
                           "WScript.Echo probes.GetVersion()\r\n"
                           "WScript.Echo probes.SetMode(\"WFX0002\", 4, 0, 0)\r\n"
                           "WScript.Echo probes.SetMode(\"nobody\", 4, 0, 0)\r\n"
                           "WScript.Echo probes.ReleaseDevice(5)\r\n"
                           "WScript.Echo Right(probes.GetDevicesChangedLocation(), 8)\r\n";
  EXPECT_EQ(RunScript(script).out, "33554944\r\n0\r\n5\r\n2\r\n\\wfx.log\r\n");
}

// The one for PowerShell is not run here: Wine has none.
TEST_F(Clients, SamplesRun) {
  ASSERT_TRUE(object_);
  ASSERT_TRUE(ProbeIsThere(L"WFX0001"));
  const Finished listed = RunToEnd(TestProgramFolder() / "list_probes.exe", "");
  EXPECT_EQ(listed.exit_status, 0);
  for (const char* name : {"EVK0001", "WFX0001", "WFX0002"}) {
    EXPECT_NE(listed.out.find(name), std::string::npos) << listed.out;
  }
  const auto identify =
      std::filesystem::absolute(WIREFOX_SOURCE_DIR "/client/samples/identify.vbs");
  for (const char* arguments : {"WFX0001", "WFX0001 off"}) {
    EXPECT_EQ(RunScript(identify, arguments).out, "service version 2.0.2.0\r\ndone\r\n");
  }
  EXPECT_EQ(RunScript(identify).exit_status, 2) << "says how it is called";
}

}  // namespace
}  // namespace system_windows
