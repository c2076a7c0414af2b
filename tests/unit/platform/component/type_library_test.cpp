// The type library's registration.

#include <oleauto.h>
#include <windows.h>

#include "platform/linux/kernel/paths.h"
#include "platform/linux/kernel/text.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

std::wstring ExecutablePath() { return linux_host::Utf8ToWide(linux_host::ExecutablePath()); }

using LibraryPointer = std::unique_ptr<ITypeLib, Releaser>;

// The library in this executable.
LibraryPointer Load() {
  ITypeLib* library = nullptr;
  EXPECT_EQ(LoadTypeLib(ExecutablePath().c_str(), &library), S_OK);
  return LibraryPointer(library);
}

class TypeLibrary : public ComponentTest {
 protected:
  // The keys of libraries and interfaces, as the hive has them in its file.
  std::string Registered() const {
    const std::string text = home_.Read("registry");
    return text.substr(text.find("[Interface]"));
  }
};

TEST_F(TypeLibrary, RegistrationWritesItsEntriesAndUnregistrationRemovesThem) {
  const std::wstring path = ExecutablePath();
  const LibraryPointer library = Load();
  const std::string id = "-0001-0002-0304-05060708090A}";
  std::string expected = "[Interface]\n\n";
  for (int version = 1; version <= 3; ++version) {
    const std::string key = "[Interface\\{5A00000" + std::to_string(version + 1) + id;
    expected += key + "]\n@=\"ISample_v" + std::to_string(version) + "\"\n\n";
    expected += key + "\\ProxyStubClsid32]\n@=\"{00020424-0000-0000-C000-000000000046}\"\n\n";
    expected += key + "\\TypeLib]\n@=\"{5A000000" + id + "\"\n\"Version\"=\"1.0\"\n\n";
  }
  const std::string key = "[TypeLib\\{5A000000" + id;
  expected += "[TypeLib]\n\n" + key + "]\n\n";
  expected += key + "\\1.0]\n@=\"Sample 1.0 Type Library\"\n\n";
  expected += key + "\\1.0\\409]\n\n";
  expected += key + "\\1.0\\409\\win64]\n@=\"" + linux_host::WideToUtf8(path) + "\"\n\n";
  expected += key + "\\1.0\\FLAGS]\n@=\"0\"\n\n";
  expected += key + "\\1.0\\HELPDIR]\n@=\"/help\"\n\nend\n";
  for (const char* time : {"for the first time", "again"}) {
    ASSERT_EQ(RegisterTypeLib(library.get(), path.c_str(), L"/help"), S_OK) << time;
    EXPECT_EQ(Registered(), expected) << time;
  }

  const auto unregister = [&] {
    return UnRegisterTypeLib(sample::kLibraryId, 1, 0, 0x409, SYS_WIN64);
  };
  ASSERT_EQ(unregister(), S_OK);
  EXPECT_EQ(Registered(), "[Interface]\n\n[TypeLib]\n\nend\n");
  EXPECT_EQ(unregister(), TYPE_E_REGISTRYACCESS);
}

TEST_F(TypeLibrary, OnlyARegisteredLibraryOfThisProgramIsLoadedById) {
  const std::wstring path = ExecutablePath();
  ITypeLib* library = nullptr;
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0x409, &library), TYPE_E_LIBNOTREGISTERED);
  const LibraryPointer loaded = Load();
  ASSERT_EQ(RegisterTypeLib(loaded.get(), path.c_str(), nullptr), S_OK);
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 2, 0, 0x409, &library), TYPE_E_LIBNOTREGISTERED);
  ASSERT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0, &library), S_OK) << "in another locale";
  library->Release();
  ASSERT_EQ(RegisterTypeLib(loaded.get(), L"/nonexistent/server", nullptr), S_OK);
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0x409, &library), TYPE_E_CANTLOADLIBRARY);
}

}  // namespace
}  // namespace component_test
