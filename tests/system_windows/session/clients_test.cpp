// Clients in other processes than the server's: early-bound and late-bound, and those that run
// scripts. The server has the probes of a simulator.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "api/interface_table.h"
#include "platform/windows/com_pointer.h"
#include "tests/system/harness.h"
#include "tests/system_windows/automation.h"
#include "tests/system_windows/client.h"

namespace system_windows {
namespace {

using windows_host::ComPointer;

Finished RunCscript(const std::filesystem::path& script, const Words& arguments = {}) {
  wchar_t system[MAX_PATH] = {};
  GetSystemDirectoryW(system, MAX_PATH);
  Words command = {(std::filesystem::path(system) / "cscript.exe").string(), "//nologo",
                   script.string()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return RunToEnd(command);
}

class Clients : public system_test::SystemTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(Begin());
    object_ = Connect();
    ASSERT_TRUE(object_);
  }

  static LONG OwnId() { return static_cast<LONG>(GetCurrentProcessId()); }

  Apartment apartment_;
  ComPointer<ITzWirefox_v3> object_;
  TzErrorCode error_ = TzErrorCode::UNKNOWN;
};

TEST_F(Clients, NullArraysAndStringsCountAsEmpty) {
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
}

TEST_F(Clients, LateBoundCallsGiveTheirOutputsByReference) {
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
  const auto script = program().parent_path() / "client.vbs";
  std::ofstream(script) << "Set probes = CreateObject(\"TzWirefoxService.TzWirefox\")\r\n"
                           "WScript.Echo probes.GetVersion()\r\n"
                           "WScript.Echo probes.SetMode(\"WFX0002\", 4, 0, 0)\r\n"
                           "WScript.Echo probes.SetMode(\"nobody\", 4, 0, 0)\r\n"
                           "WScript.Echo probes.ReleaseDevice(5)\r\n"
                           "WScript.Echo Right(probes.GetDevicesChangedLocation(), 8)\r\n";
  EXPECT_EQ(RunCscript(script).out, "33554944\n0\n5\n2\n\\wfx.log\n");
}

// The one for PowerShell is not run here: Wine has none.
TEST_F(Clients, SamplesRun) {
  const Finished listed = RunToEnd({(TestProgramFolder() / "list_probes.exe").string()});
  EXPECT_EQ(listed.exit_status, 0);
  for (const char* name : {"EVK0001", "WFX0001", "WFX0002"}) {
    EXPECT_NE(listed.out.find(name), std::string::npos) << listed.out;
  }
  const auto identify =
      std::filesystem::absolute(WIREFOX_SOURCE_DIR "/client/samples/identify.vbs");
  for (const Words& arguments : {Words{"WFX0001"}, Words{"WFX0001", "off"}}) {
    EXPECT_EQ(RunCscript(identify, arguments).out, "service version 2.0.2.0\ndone\n");
  }
  EXPECT_EQ(RunCscript(identify).exit_status, 2) << "says how it is called";
}

}  // namespace
}  // namespace system_windows
