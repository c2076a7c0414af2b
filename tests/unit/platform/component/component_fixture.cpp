#include "tests/unit/platform/component/component_fixture.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "platform/linux/automation/guid_text.h"
#include "platform/linux/automation/program_resources.h"
#include "platform/linux/registry/classes_key.h"

namespace component_test {

SamplePointer CreateSample(HRESULT* status) {
  void* object = nullptr;
  const HRESULT result = CoCreateInstance(sample::kClassId, nullptr, CLSCTX_LOCAL_SERVER,
                                          sample::kInterfaceIdV3, &object);
  if (status) *status = result;
  return SamplePointer(static_cast<sample::ISample_v3*>(object));
}

bool Answers(const SamplePointer& object) {
  LONG difference = 0;
  return object && object->Subtract(40, -2, &difference) == S_OK && difference == 42;
}

LONG CountBy(const SamplePointer& object) {
  LONG count = 0;
  return object && object->CountObjects(&count) == S_OK ? count : -1;
}

OwnedString MakeString(std::wstring_view text) {
  return OwnedString(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
}

std::wstring ToWide(BSTR text) { return text ? std::wstring(text, SysStringLen(text)) : L"(null)"; }

OwnedArray MakeBytes(const std::vector<std::uint8_t>& bytes) {
  OwnedArray array(SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size())));
  if (!bytes.empty()) std::memcpy(array->pvData, bytes.data(), bytes.size());
  return array;
}

std::vector<std::uint8_t> ToBytes(const OwnedArray& array) {
  const auto* data = static_cast<const std::uint8_t*>(array->pvData);
  return {data, data + array->rgsabound[0].cElements};
}

ServerThread::ServerThread() {
  thread_ = std::thread([this] {
    const HRESULT status = sample::Serve(sample::ServeUntil::kQuit, [this] {
      thread_id_ = GetCurrentThreadId();
      published_.release();
    });
    EXPECT_EQ(status, S_OK);
    published_.release();  // when it could not be
  });
  published_.acquire();
}

void ServerThread::Stop() {
  if (!thread_.joinable()) return;
  PostThreadMessageW(thread_id_, WM_QUIT, 0, 0);
  thread_.join();
}

std::string ProbesFile() { return std::string(getenv("WIREFOX_HOME")) + "/probes"; }

ComponentTest::ComponentTest() {
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  unsetenv("XDG_RUNTIME_DIR");
  linux_host::SetProgramResources({&sample::kLibrary, {}, &ProbesFile});
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  Register(L"\"/nonexistent/server\"");
}

ComponentTest::~ComponentTest() { CoUninitialize(); }

namespace {

const std::wstring kClassKey = L"CLSID\\" + linux_host::GuidText(sample::kClassId);
const std::wstring kServerKey = kClassKey + L"\\LocalServer32";

}  // namespace

void ComponentTest::Unregister() {
  for (const std::wstring& path : {kServerKey, kClassKey}) {
    EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, path.c_str()), ERROR_SUCCESS);
  }
}

void ComponentTest::Register(const std::wstring& command) {
  linux_host::ClassesKey key;
  EXPECT_TRUE(key.Create(kServerKey) && key.Set(nullptr, command));
}

}  // namespace component_test
