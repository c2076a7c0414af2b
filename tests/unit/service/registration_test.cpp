// The registration commands, by what the registry holds after each, as a whole; and the run that
// follows what it says.
#include <gtest/gtest.h>

#include <oleauto.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "api/identifiers.h"
#include "api/tz_wirefox_object.h"
#include "platform/test_host.h"
#include "service/module_path.h"
#include "service/registry_key.h"
#include "service/service_module.h"
#include "service/type_library_registration.h"
#include "support/paths.h"

namespace {

// $A, $C, $D, $L, $M and $P stand for the application id, the class id, the executable's folder,
// the library id, the executable's path and the access permission.
constexpr char kApplication[] = R"([AppID]
[AppID\TzWirefoxService.EXE]
"AccessPermission"=hex(3):$P
"AppID"="$A"
[AppID\$A]
@="TzWirefoxService"
)";
constexpr char kClass[] = R"([CLSID]
[CLSID\$C]
@="TzWirefox Class"
"AppID"="$A"
[CLSID\$C\LocalServer32]
@="\"$M\""
[CLSID\$C\ProgID]
@="TzWirefoxService.TzWirefox.1"
[CLSID\$C\Programmable]
[CLSID\$C\TypeLib]
@="$L"
[CLSID\$C\VersionIndependentProgID]
@="TzWirefoxService.TzWirefox"
)";
constexpr char kOthers[] = R"([CLSID\{Other}]
@="kept"
)";
constexpr char kNames[] = R"([TypeLib\$L\1.0\HELPDIR]
@="$D"
[TzWirefoxService.TzWirefox]
@="TzWirefox Class"
[TzWirefoxService.TzWirefox\CLSID]
@="$C"
[TzWirefoxService.TzWirefox\CurVer]
@="TzWirefoxService.TzWirefox.1"
[TzWirefoxService.TzWirefox.1]
@="TzWirefox Class"
[TzWirefoxService.TzWirefox.1\CLSID]
@="$C"
)";
constexpr char kPermission[] =
    "01,00,04,80,58,00,00,00,68,00,00,00,00,00,00,00,14,00,00,00,02,00,44,00,03,00,00,00,"
    "00,00,14,00,07,00,00,00,01,01,00,00,00,00,00,05,0a,00,00,00,00,00,14,00,03,00,00,00,"
    "01,01,00,00,00,00,00,05,12,00,00,00,00,00,14,00,03,00,00,00,01,01,00,00,00,00,00,05,"
    "04,00,00,00,01,02,00,00,00,00,00,05,20,00,00,00,20,02,00,00,01,02,00,00,00,00,00,05,"
    "20,00,00,00,20,02,00,00";

// With what the signs stand for.
std::string Filled(std::string text) {
  std::wstring path;
  EXPECT_EQ(GetModulePath(path), ERROR_SUCCESS);
  const std::pair<const char*, std::string> fills[] = {
      {"$A", "{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}"},
      {"$C", "{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}"},
      {"$D", std::filesystem::path(NarrowText(path)).parent_path().string()},
      {"$L", "{F7698827-7595-4F60-A744-54C97FC392EE}"},
      {"$M", NarrowText(path)},
      {"$P", kPermission}};
  for (const auto& [mark, fill] : fills) {
    for (std::size_t at; (at = text.find(mark)) != text.npos;) text.replace(at, 2, fill);
  }
  return text;
}
const std::string kServer = Filled(std::string(kApplication) + kClass + kNames);
const std::string kParents = "[AppID]\n[CLSID]\n";  // which others use as well

std::string AsService(std::string text) {
  constexpr char kName[] = "@=\"TzWirefoxService\"\n";
  return text.insert(text.find(kName) + std::strlen(kName),
                     "\"LocalService\"=\"TzWirefoxService\"\n");
}

std::filesystem::path Home() { return std::getenv("WIREFOX_HOME"); }

class Registration : public testing::Test {
 protected:
  ~Registration() override {
    static_cast<void>(UnregisterOwnTypeLibrary());
    for (const wchar_t* key :
         {L"AppID", L"CLSID", L"TzWirefoxService.TzWirefox", L"TzWirefoxService.TzWirefox.1"}) {
      EXPECT_EQ(DeleteTree(HKEY_CLASSES_ROOT, key), ERROR_SUCCESS);
    }
  }

  // What the registry's file holds, without most of the type library and empty lines.
  static std::string Registered() {
    std::ifstream file(Home() / "registry");
    std::string registered;
    std::string key;
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with('[')) key = line;
      const bool foreign = key.starts_with("[Interface") ||
                           (key.starts_with("[TypeLib") && !key.ends_with("HELPDIR]"));
      if (!key.empty() && !foreign && !line.empty() && line != "end") registered += line + "\n";
    }
    return registered;
  }

  static void Write(const wchar_t* path, const wchar_t* name, const wchar_t* text) {
    RegistryKey key;
    ASSERT_EQ(CreateKey(HKEY_CLASSES_ROOT, path, KEY_WRITE, key), ERROR_SUCCESS);
    ASSERT_EQ(SetText(key.Get(), name, text), ERROR_SUCCESS);
  }

  CTzWirefoxServiceModule module_;
};

TEST_F(Registration, EachCommandLeavesTheRegistryAsAWhole) {
  ASSERT_EQ(Registered(), "") << "something is registered already";
  const std::string service = AsService(kServer);
  const std::pair<const wchar_t*, std::string> steps[] = {
      {L"-RegServer", kServer}, {L"-RegServer", kServer},    {L"-UnregServer", kParents},
      {L"-Service", service},   {L"-Service", service},      {L"-RegServer", kServer},
      {L"-Service", service},   {L"-UnregServer", kParents}, {L"-RegServer", kServer}};
  for (const auto& [command, registered] : steps) {
    EXPECT_EQ(module_.Main(command), S_OK);
    EXPECT_EQ(Registered(), registered) << NarrowText(command);
    EXPECT_EQ(std::filesystem::exists(Home() / "systemd/TzWirefoxService.service"),
              registered == service);
  }
  // The class goes first, then its library: when that cannot be removed, the rest stays.
  EXPECT_EQ(UnregisterOwnTypeLibrary(), S_OK);
  EXPECT_LT(module_.Main(L"server -UnregServer"), 0);
  EXPECT_EQ(Registered(), Filled(kApplication) + "[CLSID]\n");
}

TEST_F(Registration, LateBoundCallsWorkOnceTheLibraryIsRegistered) {
  void* created = nullptr;
  ASSERT_EQ(CTzWirefox::Create(module_, nullptr, IID_IDispatch, &created), S_OK);
  auto* object = static_cast<IDispatch*>(created);
  wchar_t name[] = L"portacquire";
  LPOLESTR names[] = {name};
  DISPID id = 0;
  EXPECT_TRUE(FAILED(object->GetIDsOfNames(GUID{}, names, 1, 0x409, &id))) << "not registered yet";
  ASSERT_EQ(module_.Main(L"server -RegServer"), S_OK);
  EXPECT_EQ(object->GetIDsOfNames(GUID{}, names, 1, 0x409, &id), S_OK);
  EXPECT_EQ(id, 26) << "the newer of the two of this name";
  ITypeInfo* info = nullptr;
  EXPECT_EQ(object->GetTypeInfo(1, 0x409, &info), DISP_E_BADINDEX);

  DISPPARAMS none = {};
  VARIANT result;
  VariantInit(&result);
  EXPECT_EQ(object->Invoke(1, GUID{}, 0x409, DISPATCH_METHOD, &none, &result, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(V_VT(&result), VT_I4);
  EXPECT_EQ(V_I4(&result), 0x02000200);
  EXPECT_EQ(object->Invoke(9, GUID{}, 0x409, DISPATCH_METHOD, &none, &result, nullptr, nullptr),
            DISP_E_MEMBERNOTFOUND);
  object->Release();
}

// The entries are written, the service is not, and the user is told why. The failure is the exit
// code.
TEST_F(Registration, ServiceWithoutAManagerFailsAfterTheEntriesAreWritten) {
  // A file stands where the service manager's folder would.
  const auto folder = Home() / "systemd";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder.parent_path());
  std::ofstream(folder) << "no folder";
  test_host::TakeNotices();
  EXPECT_EQ(static_cast<HRESULT>(module_.Main(L"server -Service")), E_FAIL);
  EXPECT_EQ(test_host::TakeNotices(),
            (std::vector<std::wstring>{L"box|TzWirefoxService|Could not open Service Manager"}));
  EXPECT_EQ(Registered(), AsService(Filled(kApplication))) << "the class is not registered";
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  EXPECT_EQ(Registered(), kServer);
  std::filesystem::remove(folder);
}

// A class that is registered anew loses what stood there; what others have put beside it stays,
// also when it is unregistered.
TEST_F(Registration, WhatOthersUseIsKept) {
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  const std::wstring class_key = L"CLSID\\" + GuidText(api::kClassId);
  Write((class_key + L"\\InprocServer32\\Deeper").c_str(), nullptr, L"old");
  Write(class_key.c_str(), L"Stale", L"old");
  Write(L"CLSID\\{Other}", nullptr, L"kept");
  Write(L"TzWirefoxService.TzWirefox.1", L"Value", L"kept");
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  std::string expected = Filled(std::string(kApplication) + kClass + kOthers + kNames);
  expected.insert(expected.find("[TzWirefoxService.TzWirefox.1\\CLSID]"), "\"Value\"=\"kept\"\n");
  EXPECT_EQ(Registered(), expected);
  Write(L"TzWirefoxService.TzWirefox\\Shell", nullptr, L"foreign");
  EXPECT_EQ(module_.Main(L"server -UnregServer"), S_OK);
  EXPECT_EQ(Registered(), kParents + kOthers +
                              "[TzWirefoxService.TzWirefox]\n"
                              "[TzWirefoxService.TzWirefox\\Shell]\n@=\"foreign\"\n");
}

}  // namespace
