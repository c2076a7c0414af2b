// The type library's registration.

#include <oleauto.h>
#include <windows.h>

#include <map>

#include "platform/linux/program_resources.h"
#include "platform/linux/text.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

using Entries = std::map<std::wstring, std::wstring>;

// Every value below a key, by "path" (default values) or "path:name".
void Collect(HKEY root, const std::wstring& path, Entries& entries) {
  HKEY key;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return;
  WCHAR name[300], data[1000];
  for (DWORD i = 0;; ++i) {
    DWORD length = 300, size = sizeof data, type = 0;
    if (RegEnumValueW(key, i, name, &length, nullptr, &type, reinterpret_cast<BYTE*>(data),
                      &size) != ERROR_SUCCESS) {
      break;
    }
    entries[length == 0 ? path : path + L":" + name] = data;
  }
  for (DWORD i = 0;; ++i) {
    DWORD length = 300;
    if (RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
      break;
    }
    entries.try_emplace(path + L"\\" + name, L"(key)");
    Collect(root, path + L"\\" + name, entries);
  }
  RegCloseKey(key);
}

Entries Collect() {
  Entries entries;
  Collect(HKEY_CLASSES_ROOT, L"TypeLib", entries);
  Collect(HKEY_CLASSES_ROOT, L"Interface", entries);
  return entries;
}

std::wstring ExecutablePath() {
  WCHAR path[MAX_PATH];
  EXPECT_NE(GetModuleFileNameW(nullptr, path, MAX_PATH), 0u);
  return path;
}

class TypeLibrary : public ComponentTest {};

constexpr wchar_t kSampleLibrary[] = L"{5A000000-0001-0002-0304-05060708090A}";

TEST_F(TypeLibrary, RegistrationWritesItsEntriesAndUnregistrationRemovesThem) {
  const std::wstring path = ExecutablePath();
  ITypeLib* library = nullptr;
  ASSERT_EQ(LoadTypeLib(path.c_str(), &library), S_OK);
  TLIBATTR* attributes = nullptr;
  ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);
  const TLIBATTR copy = *attributes;
  library->ReleaseTLibAttr(attributes);
  EXPECT_EQ(copy.syskind, SYS_WIN64);

  ASSERT_EQ(RegisterTypeLib(library, path.c_str(), L"/help"), S_OK);
  const std::wstring base = std::wstring(L"TypeLib\\") + kSampleLibrary;
  Entries expected = {{base, L"(key)"},
                      {base + L"\\1.0", L"Sample 1.0 Type Library"},
                      {base + L"\\1.0\\FLAGS", L"0"},
                      {base + L"\\1.0\\409", L"(key)"},
                      {base + L"\\1.0\\409\\win64", path},
                      {base + L"\\1.0\\HELPDIR", L"/help"}};
  for (int version = 1; version <= 3; ++version) {
    const std::wstring key =
        L"Interface\\{5A00000" + std::to_wstring(version + 1) + L"-0001-0002-0304-05060708090A}";
    expected[key] = L"ISample_v" + std::to_wstring(version);
    expected[key + L"\\ProxyStubClsid32"] = L"{00020424-0000-0000-C000-000000000046}";
    expected[key + L"\\TypeLib"] = kSampleLibrary;
    expected[key + L"\\TypeLib:Version"] = L"1.0";
  }
  EXPECT_EQ(Collect(), expected);
  ASSERT_EQ(RegisterTypeLib(library, path.c_str(), L"/help"), S_OK) << "again";
  EXPECT_EQ(Collect(), expected);
  library->Release();

  ASSERT_EQ(
      UnRegisterTypeLib(copy.guid, copy.wMajorVerNum, copy.wMinorVerNum, copy.lcid, SYS_WIN64),
      S_OK);
  EXPECT_EQ(Collect(), Entries{});
  EXPECT_EQ(UnRegisterTypeLib(copy.guid, 1, 0, copy.lcid, SYS_WIN64), TYPE_E_REGISTRYACCESS);
}

TEST_F(TypeLibrary, OnlyARegisteredLibraryOfThisProgramIsLoadedById) {
  ITypeLib* library = nullptr;
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0x409, &library), TYPE_E_LIBNOTREGISTERED);
  ASSERT_EQ(LoadTypeLib(ExecutablePath().c_str(), &library), S_OK);
  const std::unique_ptr<ITypeLib, Releaser> loaded(library);
  ASSERT_EQ(RegisterTypeLib(library, ExecutablePath().c_str(), nullptr), S_OK);
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 2, 0, 0x409, &library), TYPE_E_LIBNOTREGISTERED);
  ASSERT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0, &library), S_OK) << "in another locale";
  library->Release();
  ASSERT_EQ(RegisterTypeLib(loaded.get(), L"/nonexistent/server", nullptr), S_OK);
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0x409, &library), TYPE_E_CANTLOADLIBRARY);
}

TEST_F(TypeLibrary, OtherFilesHoldNoLibrary) {
  ITypeLib* library = nullptr;
  EXPECT_EQ(LoadTypeLib(L"/etc/passwd", &library), TYPE_E_CANTLOADLIBRARY);
  EXPECT_EQ(library, nullptr);
  linux_host::SetProgramResources({nullptr, {}});
  EXPECT_EQ(LoadTypeLib(ExecutablePath().c_str(), &library), TYPE_E_CANTLOADLIBRARY);
}

TEST_F(TypeLibrary, DescribesItsInterfacesAndNothingElse) {
  ITypeLib* library = nullptr;
  ASSERT_EQ(LoadTypeLib(ExecutablePath().c_str(), &library), S_OK);
  const std::unique_ptr<ITypeLib, Releaser> loaded(library);
  ITypeInfo* info = nullptr;
  for (const GUID& id : {sample::kInterfaceIdV1, sample::kInterfaceIdV2, sample::kInterfaceIdV3}) {
    ASSERT_EQ(library->GetTypeInfoOfGuid(id, &info), S_OK);
    info->Release();
  }
  EXPECT_EQ(library->GetTypeInfoOfGuid(sample::kClassId, &info), TYPE_E_ELEMENTNOTFOUND);
  EXPECT_EQ(info, nullptr);
}

}  // namespace
}  // namespace component_test
