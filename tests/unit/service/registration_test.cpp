// The registration commands, by what the registry holds after each, as a whole; and the run that
// follows what it says.
#include <gtest/gtest.h>

#include <oleauto.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "api/tz_wirefox_object.h"
#include "platform/test_host.h"
#include "service/module_path.h"
#include "service/registry_key.h"
#include "service/service_module.h"
#include "service/type_library.h"
#include "tests/unit/service/registry_view.h"

namespace {

// $A, $C, $L and $M stand for the application id, the class id, the library id and the executable's
// path.
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

constexpr char kServiceLine[] = "AppID\\$A|LocalService=\"TzWirefoxService\"";

// With what the signs stand for, and the line of a service in its place.
Lines Fill(Lines lines, bool as_service) {
  if (as_service) lines.insert(lines.begin() + 2, kServiceLine);
  std::wstring path;
  EXPECT_EQ(GetModulePath(path), ERROR_SUCCESS);
  const std::pair<std::string, std::string> kFills[] = {
      {"$A", "{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}"},
      {"$C", "{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}"},
      {"$L", "{F7698827-7595-4F60-A744-54C97FC392EE}"},
      {"$M", Narrow(path)}};
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

class Registration : public testing::Test {
 protected:
  ~Registration() override { RemoveRegistration(); }

  // Everything that the commands touch, without what belongs to others.
  static Lines Registered() {
    Lines all;
    for (const wchar_t* path : kServerKeys) {
      const Lines lines = KeyTree(HKEY_CLASSES_ROOT, path);
      all.insert(all.end(), lines.begin(), lines.end());
    }
    return all;
  }

  CTzWirefoxServiceModule module_;
};

TEST_F(Registration, LocalServerIsWrittenWholeAndRemovedWhole) {
  ASSERT_EQ(Registered(), Lines{}) << "something is registered already";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
    EXPECT_EQ(Registered(), Fill(kRegistered, false));
    EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK) << "twice in a row";
    EXPECT_EQ(Registered(), Fill(kRegistered, false));

    EXPECT_EQ(module_.Main(L"server -UnregServer"), S_OK);
    EXPECT_EQ(Registered(), Lines{});
  }
  // The class first, then its library: when that cannot be removed, the rest stays.
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  EXPECT_EQ(UnregisterOwnTypeLibrary(), S_OK);
  EXPECT_LT(module_.Main(L"server -UnregServer"), 0);
  EXPECT_EQ(Registered(), Fill({kRegistered.begin(), kRegistered.begin() + 5}, false));
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

TEST_F(Registration, ServiceIsWrittenWholeAndBecomesALocalServerAgain) {
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(module_.Main(L"server -Service"), S_OK);
    EXPECT_EQ(Registered(), Fill(kRegistered, true));
  }
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  EXPECT_EQ(Registered(), Fill(kRegistered, false));
  EXPECT_EQ(module_.Main(L"server -Service"), S_OK);
  EXPECT_EQ(module_.Main(L"server -UnregServer"), S_OK);
  EXPECT_EQ(Registered(), Lines{});
}

// The entries are written, the service is not, and the user is told why. The failure is the exit
// code.
TEST_F(Registration, ServiceWithoutAManagerFailsAfterTheEntriesAreWritten) {
  // A file stands where the service manager's folder would.
  const auto folder = std::filesystem::path(std::getenv("WIREFOX_HOME")) / "systemd";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder.parent_path());
  std::ofstream(folder) << "no folder";
  test_host::TakeNotices();
  EXPECT_EQ(static_cast<HRESULT>(module_.Main(L"server -Service")), E_FAIL);
  EXPECT_EQ(test_host::TakeNotices(),
            (std::vector<std::wstring>{L"box|TzWirefoxService|Could not open Service Manager"}));
  const Lines application_id(kRegistered.begin(), kRegistered.begin() + 5);
  EXPECT_EQ(Registered(), Fill(application_id, true)) << "the class is not registered";
  EXPECT_EQ(module_.Main(L"server -RegServer"), S_OK);
  EXPECT_EQ(Registered(), Fill(kRegistered, false));
  std::filesystem::remove(folder);
}

// A window whose message stands for a client that comes and goes while the server runs.
class ClientThatLeaves {
 public:
  explicit ClientThatLeaves(CTzWirefoxServiceModule& module) {
    module_ = &module;
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = Procedure;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = L"ClientThatLeaves";
    RegisterClassExW(&window_class);
    window_ = CreateWindowExW(0, L"ClientThatLeaves", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                              window_class.hInstance, nullptr);
    EXPECT_NE(window_, nullptr);
    PostMessageW(window_, WM_USER, 0, 0);
  }
  ~ClientThatLeaves() { DestroyWindow(window_); }

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message != WM_USER) return DefWindowProcW(window, message, first, second);
    module_->Lock();
    module_->Lock();
    module_->Unlock();
    module_->Unlock();
    return 0;
  }

  static inline CTzWirefoxServiceModule* module_ = nullptr;
  HWND window_;
};

TEST_F(Registration, LocalServerServesUntilItsLastClientHasGoneUnlessItIsRegisteredAsAService) {
  ASSERT_EQ(CTzWirefoxServiceModule().Main(L"server /regserver"), 0);
  RegistryKey key;
  ASSERT_EQ(OpenKey(HKEY_CLASSES_ROOT, kServerKeys[0], KEY_WRITE, key), ERROR_SUCCESS);
  const std::wstring too_long(300, L'x');
  constexpr int kNotStartedByTheServiceManager = 1063;
  const struct {
    const char* name;
    DWORD type;
    const wchar_t* data;
    std::size_t size;
    int expected = 0;  // of a local server
  } kCases[] = {
      {"no value", REG_NONE, nullptr, 0},
      {"binary", REG_BINARY, L"Tz", sizeof(L"Tz")},
      {"unterminated", REG_SZ, L"Tz", 2 * sizeof(wchar_t)},
      {"empty", REG_SZ, L"", 0},
      {"too long", REG_SZ, too_long.c_str(), (too_long.size() + 1) * sizeof(wchar_t)},
      {"a text", REG_SZ, L"Tz", sizeof(L"Tz"), kNotStartedByTheServiceManager},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    if (test.type != REG_NONE) {
      ASSERT_EQ(
          RegSetValueExW(key.Get(), L"LocalService", 0, test.type,
                         reinterpret_cast<const BYTE*>(test.data), static_cast<DWORD>(test.size)),
          ERROR_SUCCESS);
    }
    CTzWirefoxServiceModule module;
    ClientThatLeaves client(module);
    EXPECT_EQ(module.Main(L"server -Embedding"), test.expected);
    EXPECT_EQ(module.GetLockCount(), 0);
  }
}

}  // namespace
