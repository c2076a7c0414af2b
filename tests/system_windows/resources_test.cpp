// What the service's executable carries beside its code and its type library.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/system_windows/programs.h"

namespace system_windows {
namespace {

TEST(Resources, NameTheServiceAndNothingElse) {
  const HMODULE program =
      LoadLibraryExW(ServiceProgram().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  ASSERT_NE(program, nullptr);
  wchar_t text[256] = {};
  EXPECT_EQ(LoadStringW(program, 100, text, 256), 16);
  EXPECT_EQ(std::wstring(text), L"TzWirefoxService");
  // With texts of their own under these ids the messages of registration would change.
  for (UINT id = 55306; id <= 55310; ++id) EXPECT_EQ(LoadStringW(program, id, text, 256), 0) << id;
  FreeLibrary(program);
}

TEST(Resources, VersionOfTheFileIsTheOneThatClientsAreTold) {
  const std::wstring path = ServiceProgram().wstring();
  DWORD ignored = 0;
  std::vector<std::uint8_t> data(GetFileVersionInfoSizeW(path.c_str(), &ignored));
  ASSERT_FALSE(data.empty());
  ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(data.size()), data.data()));
  void* fixed = nullptr;
  UINT size = 0;
  ASSERT_TRUE(VerQueryValueW(data.data(), L"\\", &fixed, &size));
  const auto& version = *static_cast<const VS_FIXEDFILEINFO*>(fixed);
  EXPECT_EQ(version.dwFileVersionMS, 0x00020000u);
  EXPECT_EQ(version.dwFileVersionLS, 0x00020000u);
}

}  // namespace
}  // namespace system_windows
