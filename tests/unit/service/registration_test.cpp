// The registration commands, by what the registry holds after each, as a whole; and the run that
// follows what it says.
#include <gtest/gtest.h>

#include <oleauto.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "api/identifiers.h"
#include "api/tz_wirefox_object.h"
#include "platform/linux/test_host.h"
#include "service/module_path.h"
#include "service/registry_key.h"
#include "service/service_module.h"
#include "service/type_library_registration.h"
#include "support/paths.h"
#include "tests/support/process.h"
#include "tests/support/registry_text.h"

namespace {

using support::Lines;

const Lines kParents = {"AppID", "CLSID", "Interface", "TypeLib"};  // which others use as well

Lines Sorted(Lines lines, const Lines& more = {}) {
  lines.insert(lines.end(), more.begin(), more.end());
  std::ranges::sort(lines);
  return lines;
}

Lines Registration(bool as_service) {
  std::wstring path;
  EXPECT_EQ(GetModulePath(path), ERROR_SUCCESS);
  return support::RegistrationLines(NarrowText(path), as_service);
}
const Lines kServer = Registration(false);
const Lines kService = Registration(true);

// When the class is not registered, or no longer.
Lines ApplicationOf(Lines lines, const Lines& more = {}) {
  std::erase_if(lines, [](const std::string& line) { return !line.starts_with("AppID"); });
  return Sorted(lines, more);
}

std::filesystem::path Home() { return std::getenv("WIREFOX_HOME"); }

class RegistrationTest : public testing::Test {
 protected:
  ~RegistrationTest() override {
    for (const wchar_t* key : {L"AppID", L"CLSID", L"Interface", L"TypeLib",
                               L"TzWirefoxService.TzWirefox", L"TzWirefoxService.TzWirefox.1"}) {
      EXPECT_EQ(DeleteTree(HKEY_CLASSES_ROOT, key), ERROR_SUCCESS);
    }
  }

  static Lines Registered() {
    return support::RegistryLines(support::ReadFile(Home() / "registry"), 0);
  }

  static void Write(const wchar_t* path, const wchar_t* name, const wchar_t* text) {
    RegistryKey key;
    ASSERT_EQ(CreateKey(HKEY_CLASSES_ROOT, path, KEY_WRITE, key), ERROR_SUCCESS);
    ASSERT_EQ(SetText(key.Get(), name, text), ERROR_SUCCESS);
  }

  CTzWirefoxServiceModule module_;
};

TEST_F(RegistrationTest, EachCommandLeavesTheRegistryAsAWhole) {
  ASSERT_EQ(Registered(), Lines()) << "something is registered already";
  const std::pair<const wchar_t*, Lines> steps[] = {
      {L"-RegServer", kServer}, {L"-RegServer", kServer},    {L"-UnregServer", kParents},
      {L"-Service", kService},  {L"-Service", kService},     {L"-RegServer", kServer},
      {L"-Service", kService},  {L"-UnregServer", kParents}, {L"-RegServer", kServer}};
  for (const auto& [command, registered] : steps) {
    EXPECT_EQ(module_.Main(command), S_OK);
    EXPECT_EQ(Registered(), registered) << NarrowText(command);
    EXPECT_EQ(std::filesystem::exists(Home() / "systemd/TzWirefoxService.service"),
              registered == kService);
  }
  // The class goes first, then its library: when that cannot be removed, the rest stays.
  EXPECT_EQ(UnregisterOwnTypeLibrary(), S_OK);
  EXPECT_LT(module_.Main(L"server -UnregServer"), 0);
  EXPECT_EQ(Registered(), ApplicationOf(kServer, {"CLSID", "Interface", "TypeLib"}));
}

TEST_F(RegistrationTest, LateBoundCallsWorkOnceTheLibraryIsRegistered) {
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
TEST_F(RegistrationTest, ServiceWithoutAManagerFailsAfterTheEntriesAreWritten) {
  // A file stands where the service manager's folder would.
  const auto folder = Home() / "systemd";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder.parent_path());
  std::ofstream(folder) << "no folder";
  test_host::TakeNotices();
  EXPECT_EQ(static_cast<HRESULT>(module_.Main(L"server -Service")), E_FAIL);
  EXPECT_EQ(test_host::TakeNotices(),
            (std::vector<std::wstring>{L"box|TzWirefoxService|Could not open Service Manager"}));
  EXPECT_EQ(Registered(), ApplicationOf(kService)) << "the class is not registered";
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  EXPECT_EQ(Registered(), kServer);
  std::filesystem::remove(folder);
}

// A class that is registered anew loses what stood there; what others have put beside it stays,
// also when it is unregistered.
TEST_F(RegistrationTest, WhatOthersUseIsKept) {
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  const std::wstring class_key = L"CLSID\\" + GuidText(api::kClassId);
  Write((class_key + L"\\InprocServer32\\Deeper").c_str(), nullptr, L"old");
  Write(class_key.c_str(), L"Stale", L"old");
  Write(L"CLSID\\{Other}", nullptr, L"kept");
  Write(L"TzWirefoxService.TzWirefox.1", L"Value", L"kept");
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  const Lines others = {R"(CLSID\{Other})", R"(CLSID\{Other}|@="kept")"};
  EXPECT_EQ(Registered(),
            Sorted(Sorted(kServer, others), {R"(TzWirefoxService.TzWirefox.1|Value="kept")"}));
  Write(L"TzWirefoxService.TzWirefox\\Shell", nullptr, L"foreign");
  EXPECT_EQ(module_.Main(L"server -UnregServer"), S_OK);
  EXPECT_EQ(Registered(),
            Sorted(Sorted(kParents, others),
                   {"TzWirefoxService.TzWirefox", R"(TzWirefoxService.TzWirefox\Shell)",
                    R"(TzWirefoxService.TzWirefox\Shell|@="foreign")"}));
}

}  // namespace
