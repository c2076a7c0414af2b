// The registration commands: what the registry holds after each, as a whole.
#include "service/registration.h"

#include <gtest/gtest.h>

#include <objbase.h>
#include <oleauto.h>

#include <algorithm>

#include "api/identifiers.h"
#include "api/tz_wirefox_object.h"
#include "platform/test_host.h"
#include "service/module_path.h"
#include "service/registry_data.h"
#include "service/registry_key.h"
#include "tests/unit/service/registry_view.h"

namespace {

constexpr char kAppId[] = "{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}";
constexpr char kClass[] = "{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}";
constexpr char kLibrary[] = "{F7698827-7595-4F60-A744-54C97FC392EE}";

// Lines in which $A, $C, $L and $M stand for the application id, the class id, the library id and
// the executable's path.
Lines Fill(Lines lines) {
  std::wstring path;
  EXPECT_EQ(GetModulePath(path), ERROR_SUCCESS);
  const std::pair<std::string, std::string> kFills[] = {
      {"$A", kAppId}, {"$C", kClass}, {"$L", kLibrary}, {"$M", Narrow(path)}};
  for (std::string& line : lines) {
    for (const auto& [mark, text] : kFills) {
      for (std::size_t at = line.find(mark); at != line.npos; at = line.find(mark, at)) {
        line.replace(at, mark.size(), text);
        at += text.size();
      }
    }
  }
  return lines;
}

class TestNames : public RegistrationNames {
 public:
  const std::wstring& ServiceName() const override { return name_; }
  void AddScriptReplacements(ScriptReplacements& replacements) const override {
    replacements.Add(kAppIdReplacement, GuidText(api::kAppId));
  }

 private:
  std::wstring name_ = L"TzWirefoxService";
};

const Lines kRegistered = {
    "AppID\\$A",
    "AppID\\$A|@=\"TzWirefoxService\"",
    "AppID\\TzWirefoxService.EXE",
    "AppID\\TzWirefoxService.EXE|AccessPermission=hex:"
    "01000480580000006800000000000000140000000200440003000000000014000700000001010000000000050a0000"
    "0000001400030000000101000000000005120000000000140003000000010100000000000504000000010200000000"
    "0005200000002002000001020000000000052000000020020000",
    "AppID\\TzWirefoxService.EXE|AppID=\"$A\"",
    "CLSID\\$C",
    "CLSID\\$C|@=\"TzWirefox Class\"",
    "CLSID\\$C|AppID=\"$A\"",
    "CLSID\\$C\\LocalServer32",
    "CLSID\\$C\\LocalServer32|@=\"\"$M\"\"",
    "CLSID\\$C\\ProgID",
    "CLSID\\$C\\ProgID|@=\"TzWirefoxService.TzWirefox.1\"",
    "CLSID\\$C\\Programmable",
    "CLSID\\$C\\TypeLib",
    "CLSID\\$C\\TypeLib|@=\"$L\"",
    "CLSID\\$C\\VersionIndependentProgID",
    "CLSID\\$C\\VersionIndependentProgID|@=\"TzWirefoxService.TzWirefox\"",
    "TzWirefoxService.TzWirefox",
    "TzWirefoxService.TzWirefox|@=\"TzWirefox Class\"",
    "TzWirefoxService.TzWirefox\\CLSID",
    "TzWirefoxService.TzWirefox\\CLSID|@=\"$C\"",
    "TzWirefoxService.TzWirefox\\CurVer",
    "TzWirefoxService.TzWirefox\\CurVer|@=\"TzWirefoxService.TzWirefox.1\"",
    "TzWirefoxService.TzWirefox.1",
    "TzWirefoxService.TzWirefox.1|@=\"TzWirefox Class\"",
    "TzWirefoxService.TzWirefox.1\\CLSID",
    "TzWirefoxService.TzWirefox.1\\CLSID|@=\"$C\"",
};

// Everything that the commands touch, without what belongs to others.
Lines Registered() {
  Lines all;
  for (const wchar_t* path :
       {L"AppID\\{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}", L"AppID\\TzWirefoxService.EXE",
        L"CLSID\\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}", L"TzWirefoxService.TzWirefox",
        L"TzWirefoxService.TzWirefox.1"}) {
    const Lines lines = KeyTree(HKEY_CLASSES_ROOT, path);
    all.insert(all.end(), lines.begin(), lines.end());
  }
  return all;
}

class Registration : public testing::Test {
 protected:
  Registration() { EXPECT_TRUE(SUCCEEDED(CoInitialize(nullptr))); }
  ~Registration() override {
    RemoveRegistration();
    CoUninitialize();
  }

  std::wstring LocalService() {
    RegistryKey key;
    std::wstring path = L"AppID\\";
    path += GuidText(api::kAppId);
    wchar_t text[64] = {};
    DWORD size = sizeof(text);
    if (OpenKey(HKEY_CLASSES_ROOT, path, KEY_READ, key) != ERROR_SUCCESS ||
        RegQueryValueExW(key.Get(), L"LocalService", nullptr, nullptr,
                         reinterpret_cast<BYTE*>(text), &size) != ERROR_SUCCESS) {
      return L"(none)";
    }
    return text;
  }

  TestNames names_;
};

TEST_F(Registration, LocalServerIsWrittenWholeAndRemovedWhole) {
  ASSERT_EQ(Registered(), Lines{}) << "something is registered already";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(RegisterAsLocalServer(names_), S_OK);
    const Lines registered = Registered();
    EXPECT_EQ(registered, Fill(kRegistered));
    EXPECT_EQ(LocalService(), L"(none)");
    EXPECT_EQ(RegisterAsLocalServer(names_), S_OK) << "twice in a row";
    EXPECT_EQ(Registered(), registered);

    EXPECT_EQ(Unregister(names_), S_OK);
    EXPECT_EQ(Registered(), Lines{});
  }
  EXPECT_TRUE(FAILED(Unregister(names_))) << "the type library is not registered any more";
}

TEST_F(Registration, LateBoundCallsWorkOnceTheLibraryIsRegistered) {
  class NoLock : public api::ModuleLock {
    LONG Lock() override { return 1; }
    LONG Unlock() override { return 1; }
    LONG GetLockCount() const override { return 1; }
  } module;
  void* created = nullptr;
  ASSERT_EQ(CTzWirefox::Create(module, nullptr, IID_IDispatch, &created), S_OK);
  auto* object = static_cast<IDispatch*>(created);
  const auto id_of = [&](const wchar_t* name) {
    std::wstring text = name;
    LPOLESTR names[] = {text.data()};
    DISPID id = -77;
    const HRESULT result = object->GetIDsOfNames(GUID{}, names, 1, 0x409, &id);
    return SUCCEEDED(result) ? id : DISPID{-1};
  };
  EXPECT_EQ(id_of(L"GetVersion"), -1) << "not registered yet";
  ASSERT_EQ(RegisterAsLocalServer(names_), S_OK);
  EXPECT_EQ(id_of(L"GetVersion"), 1);
  EXPECT_EQ(id_of(L"setjtagclock"), 10);
  EXPECT_EQ(id_of(L"PortAcquire"), 26);
  EXPECT_EQ(id_of(L"GetHwRevID"), 27);
  EXPECT_EQ(id_of(L"VendorRequest"), -1);

  DISPPARAMS none = {};
  VARIANT result;
  VariantInit(&result);
  EXPECT_EQ(object->Invoke(1, GUID{}, 0x409, DISPATCH_METHOD, &none, &result, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(V_VT(&result), VT_I4);
  EXPECT_EQ(V_I4(&result), 0x02000200);
  for (const DISPID unused : {9, 19, 28}) {
    EXPECT_EQ(
        object->Invoke(unused, GUID{}, 0x409, DISPATCH_METHOD, &none, &result, nullptr, nullptr),
        DISP_E_MEMBERNOTFOUND);
  }
  object->Release();
}

TEST_F(Registration, LocalServerRegistrationTakesTheServiceValueAway) {
  EXPECT_EQ(RegisterAsLocalServer(names_), S_OK);
  RegistryKey key;
  std::wstring path = L"AppID\\";
  path += GuidText(api::kAppId);
  ASSERT_EQ(OpenKey(HKEY_CLASSES_ROOT, path, KEY_WRITE, key), ERROR_SUCCESS);
  ASSERT_EQ(SetText(key.Get(), L"LocalService", L"TzWirefoxService"), ERROR_SUCCESS);
  EXPECT_EQ(LocalService(), L"TzWirefoxService");
  EXPECT_EQ(RegisterAsLocalServer(names_), S_OK);
  EXPECT_EQ(LocalService(), L"(none)");
}

TEST_F(Registration, ServiceIsWrittenWholeAndBecomesALocalServerAgain) {
  Lines expected = Fill(kRegistered);
  expected.insert(expected.begin() + 2, Fill({"AppID\\$A|LocalService=\"TzWirefoxService\""})[0]);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(RegisterAsService(names_), S_OK);
    EXPECT_EQ(Registered(), expected);
  }
  EXPECT_EQ(RegisterAsLocalServer(names_), S_OK);
  EXPECT_EQ(Registered(), Fill(kRegistered));
  EXPECT_EQ(RegisterAsService(names_), S_OK);
  EXPECT_EQ(Unregister(names_), S_OK);
  EXPECT_EQ(Registered(), Lines{});
}

// The entries are written, the service is not, and the user is told why.
TEST_F(Registration, ServiceWithoutAManagerFailsAfterTheEntriesAreWritten) {
  const NoServiceManager no_manager;
  test_host::TakeNotices();
  EXPECT_EQ(RegisterAsService(names_), E_FAIL);
  EXPECT_EQ(test_host::TakeNotices(),
            (std::vector<std::wstring>{L"box|TzWirefoxService|Could not open Service Manager"}));
  EXPECT_EQ(LocalService(), L"TzWirefoxService");
  Lines expected = Fill(kRegistered);
  expected.resize(5);
  expected.insert(expected.begin() + 2, Fill({"AppID\\$A|LocalService=\"TzWirefoxService\""})[0]);
  EXPECT_EQ(Registered(), expected) << "the class is not registered";
  EXPECT_EQ(RegisterAsLocalServer(names_), S_OK);
  EXPECT_EQ(Registered(), Fill(kRegistered));
}

}  // namespace
