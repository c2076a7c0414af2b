#include "tests/unit/platform/component/component_fixture.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>

#include "platform/linux/program_resources.h"

namespace component_test {

SamplePointer CreateSample(HRESULT* status) {
  void* object = nullptr;
  const HRESULT result = CoCreateInstance(sample::kClassId, nullptr, CLSCTX_LOCAL_SERVER,
                                          sample::kInterfaceIdV3, &object);
  if (status != nullptr) *status = result;
  return SamplePointer(static_cast<sample::ISample_v3*>(object));
}

OwnedString MakeString(std::wstring_view text) {
  return OwnedString(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
}

std::wstring ToWide(BSTR text) {
  return text == nullptr ? L"(null)" : std::wstring(text, SysStringLen(text));
}

OwnedArray MakeBytes(const std::vector<std::uint8_t>& bytes) {
  OwnedArray array(SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size())));
  if (!bytes.empty()) std::memcpy(array->pvData, bytes.data(), bytes.size());
  return array;
}

std::vector<std::uint8_t> ToBytes(SAFEARRAY* array) {
  const auto* data = static_cast<const std::uint8_t*>(array->pvData);
  return {data, data + array->rgsabound[0].cElements};
}

ServerThread::ServerThread() {
  std::promise<DWORD> published;
  thread_ = std::thread([&published] {
    bool is_published = false;
    const HRESULT status = sample::Serve(
        [&] {
          is_published = true;
          published.set_value(GetCurrentThreadId());
        },
        {});
    EXPECT_EQ(status, S_OK);
    if (!is_published) published.set_value(0);
  });
  thread_id_ = published.get_future().get();
}

ServerThread::~ServerThread() { Stop(); }

void ServerThread::Stop() {
  if (!thread_.joinable()) return;
  PostThreadMessageW(thread_id_, WM_QUIT, 0, 0);
  thread_.join();
}

void ComponentTest::SetUp() {
  char pattern[] = "/tmp/component-test-XXXXXX";
  home_ = mkdtemp(pattern);
  setenv("WIREFOX_HOME", home_.c_str(), 1);
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  unsetenv("XDG_RUNTIME_DIR");
  linux_host::SetProgramResources({&sample::kLibrary, {}});
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  Register(L"\"/nonexistent/server\"");
}

void ComponentTest::TearDown() {
  CoUninitialize();
  std::filesystem::remove_all(home_);
}

void ComponentTest::Register(const std::wstring& command) {
  OLECHAR id[40];
  StringFromGUID2(sample::kClassId, id, 40);
  const std::wstring path = L"CLSID\\" + std::wstring(id) + L"\\LocalServer32";
  HKEY key;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                            &key, nullptr),
            ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueExW(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(command.c_str()),
                           static_cast<DWORD>((command.size() + 1) * sizeof(WCHAR))),
            ERROR_SUCCESS);
  RegCloseKey(key);
}

}  // namespace component_test
