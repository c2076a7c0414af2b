// The module's run as it is told by the registry: refused, as a service, and as a local server that
// ends with its last client.
#include <gtest/gtest.h>

#include <objbase.h>

#include "api/identifiers.h"
#include "service/registry_key.h"
#include "service/service_module.h"
#include "tests/unit/service/registry_view.h"

namespace {

class LocalServer : public testing::Test {
 protected:
  ~LocalServer() override { RemoveRegistration(); }

  int Run(const wchar_t* line) {
    CTzWirefoxServiceModule module;
    return module.Main(line);
  }

  // Writes the value that makes the server a service, as it may be found.
  void WriteLocalService(DWORD type, const void* data, std::size_t size) {
    RegistryKey key;
    std::wstring path = L"AppID\\";
    path += GuidText(api::kAppId);
    ASSERT_EQ(OpenKey(HKEY_CLASSES_ROOT, path, KEY_WRITE, key), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key.Get(), L"LocalService", 0, type, static_cast<const BYTE*>(data),
                             static_cast<DWORD>(size)),
              ERROR_SUCCESS);
  }
};

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

TEST_F(LocalServer, UnregisteredServerEndsWithTheMissingKey) { EXPECT_EQ(Run(L"server"), 2); }

TEST_F(LocalServer, ServesUntilItsLastClientHasGone) {
  ASSERT_EQ(Run(L"server /regserver"), 0);
  CTzWirefoxServiceModule module;
  ClientThatLeaves client(module);
  EXPECT_EQ(module.Main(L"server -Embedding"), 0);
  EXPECT_EQ(module.GetLockCount(), 0);
}

TEST_F(LocalServer, RegisteredAsAServiceItAsksTheServiceManager) {
  ASSERT_EQ(Run(L"server -RegServer"), 0);
  WriteLocalService(REG_SZ, L"TzWirefoxService", sizeof(L"TzWirefoxService"));
  EXPECT_EQ(Run(L"server"), 1063) << "not started by the service manager";
}

TEST_F(LocalServer, ServiceValueMustBeATerminatedText) {
  ASSERT_EQ(Run(L"server -RegServer"), 0);
  const std::wstring too_long(300, L'x');
  const struct {
    const char* name;
    DWORD type;
    const wchar_t* data;
    std::size_t size;
  } kCases[] = {
      {"binary", REG_BINARY, L"Tz", sizeof(L"Tz")},
      {"unterminated", REG_SZ, L"Tz", 2 * sizeof(wchar_t)},
      {"empty", REG_SZ, L"", 0},
      {"too long", REG_SZ, too_long.c_str(), (too_long.size() + 1) * sizeof(wchar_t)},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    WriteLocalService(test.type, test.data, test.size);
    CTzWirefoxServiceModule module;
    ClientThatLeaves client(module);
    EXPECT_EQ(module.Main(L"server"), 0) << "runs as a local server";
  }
}

TEST_F(LocalServer, FailedRegistrationIsTheExitCode) {
  const NoServiceManager no_manager;
  EXPECT_EQ(static_cast<HRESULT>(Run(L"server -Service")), E_FAIL);
  EXPECT_LT(Run(L"server -UnregServer"), 0);
}

}  // namespace
