// The type library in the service's executable, as clients and their tools read it.
#include <gtest/gtest.h>
#include <windows.h>

#include <objbase.h>

#include "platform/windows/com_pointer.h"
#include "tests/system_windows/programs.h"
#include "tests/system_windows/type_library_text.h"

namespace system_windows {
namespace {

using windows_host::ComPointer;

TEST(TypeLibrary, OfTheExecutableIsTheOneThatClientsWereBuiltAgainst) {
  ComPointer<ITypeLib> library;
  ASSERT_EQ(LoadTypeLib(ServiceProgram().c_str(), library.Receive()), S_OK);
  const std::string expected =
      ReadFile(WIREFOX_SOURCE_DIR "/tests/system_windows/type_library.txt");
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(TypeLibraryText(library.Get()), expected);
}

TEST(TypeLibrary, HelpTextsHoldTheApostropheAsOneByteOfTheLibrarysCodePage) {
  const HMODULE program =
      LoadLibraryExW(ServiceProgram().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  ASSERT_NE(program, nullptr);
  const HRSRC found = FindResourceW(program, MAKEINTRESOURCEW(1), L"TYPELIB");
  ASSERT_NE(found, nullptr);
  const auto* bytes = static_cast<const char*>(LockResource(LoadResource(program, found)));
  const std::string library(bytes, SizeofResource(program, found));
  EXPECT_NE(library.find("Mode used to turn the Wirefox\x92s LED off"), std::string::npos);
  FreeLibrary(program);
}

}  // namespace
}  // namespace system_windows
