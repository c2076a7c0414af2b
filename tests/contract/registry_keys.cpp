#include <algorithm>

#include "tests/contract/registry_scratch.h"

namespace {

using contract::kScratchKey;

class RegistryKeys : public contract::RegistryScratch {};

TEST_F(RegistryKeys, AreFoundInAnyLetterCaseAndKeepTheirOwn) {
  RegCloseKey(Create(scratch_, L"Outer\\InnerKey"));
  EXPECT_EQ(0, TryOpen(scratch_, L"oUTER\\INNERKEY"));
  RegCloseKey(Create(scratch_, L"OUTER\\innerkey"));
  HKEY outer = nullptr;
  ASSERT_EQ(0, Open(scratch_, L"outer", KEY_READ, &outer));
  EXPECT_EQ(std::vector<std::wstring>{L"InnerKey"}, contract::SubkeyNames(outer));
  RegCloseKey(outer);
}

TEST_F(RegistryKeys, TellWhetherTheyWereCreatedOrOnlyOpened) {
  for (const DWORD expected : {REG_CREATED_NEW_KEY, REG_OPENED_EXISTING_KEY}) {
    DWORD disposition = 0;
    HKEY key = nullptr;
    ASSERT_EQ(0, RegCreateKeyExW(scratch_, L"Twice\\Below", 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_READ, nullptr, &key, &disposition));
    EXPECT_EQ(expected, disposition);
    RegCloseKey(key);
  }
}

TEST_F(RegistryKeys, PathsAreTakenAsWindowsTakesThem) {
  RegCloseKey(Create(scratch_, L"A\\B"));
  const std::wstring root_path = std::wstring(kScratchKey) + L"\\A";
  const struct {
    HKEY parent;
    std::wstring path;
    LONG status;
  } cases[] = {
      {scratch_, L"", 0},
      {scratch_, L"A", 0},
      {scratch_, L"A\\", 0},
      {scratch_, L"A\\B", 0},
      {scratch_, L"A\\C", ERROR_FILE_NOT_FOUND},
      {scratch_, L"B", ERROR_FILE_NOT_FOUND},
      {scratch_, L"C\\B", ERROR_FILE_NOT_FOUND},
      {scratch_, L"\\A", ERROR_BAD_PATHNAME},
      {HKEY_CLASSES_ROOT, root_path, 0},
      {HKEY_CLASSES_ROOT, L"\\" + root_path, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.status, TryOpen(c.parent, c.path.c_str())) << testing::PrintToString(c.path);
  }
}

TEST_F(RegistryKeys, WithSubkeysAreNotDeleted) {
  RegCloseKey(Create(scratch_, L"Full\\Below"));
  EXPECT_EQ(ERROR_ACCESS_DENIED, RegDeleteKeyW(scratch_, L"Full"));
  EXPECT_EQ(0, TryOpen(scratch_, L"Full\\Below"));
  EXPECT_EQ(0, RegDeleteKeyW(scratch_, L"FULL\\below"));
  EXPECT_EQ(0, RegDeleteKeyW(scratch_, L"Full"));
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegDeleteKeyW(scratch_, L"Full"));
}

TEST_F(RegistryKeys, HandleOfADeletedKeyDoesNotGoOverToItsSuccessor) {
  const HKEY old_key = Create(scratch_, L"Reborn");
  ASSERT_EQ(0, SetText(old_key, L"Name", L"old"));
  ASSERT_EQ(0, RegDeleteKeyW(scratch_, L"Reborn"));
  const HKEY new_key = Create(scratch_, L"Reborn");
  HKEY below = nullptr;
  EXPECT_EQ(ERROR_KEY_DELETED, SetText(old_key, L"Name", L"older"));
  EXPECT_EQ(ERROR_KEY_DELETED,
            RegQueryValueExW(old_key, L"Name", nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(ERROR_KEY_DELETED,
            RegCreateKeyExW(old_key, L"Below", 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ,
                            nullptr, &below, nullptr));
  EXPECT_EQ(L"status 2", Text(new_key, L"Name"));
  EXPECT_EQ(0, RegCloseKey(old_key));
  RegCloseKey(new_key);
}

TEST_F(RegistryKeys, HandlesDoOnlyWhatTheyWereOpenedFor) {
  ASSERT_EQ(0, SetText(scratch_, L"Name", L"text"));
  HKEY reader = nullptr;
  HKEY writer = nullptr;
  ASSERT_EQ(0, Open(scratch_, nullptr, KEY_READ, &reader));
  ASSERT_EQ(0, Open(scratch_, nullptr, KEY_WRITE, &writer));
  EXPECT_EQ(ERROR_ACCESS_DENIED, SetText(reader, L"Name", L"other"));
  EXPECT_EQ(ERROR_ACCESS_DENIED, RegDeleteValueW(reader, L"Name"));
  EXPECT_EQ(L"status 5", Text(writer, L"Name"));
  wchar_t name[64];
  DWORD length = 64;
  EXPECT_EQ(ERROR_ACCESS_DENIED,
            RegEnumKeyExW(writer, 0, name, &length, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(L"text", Text(reader, L"Name"));
  EXPECT_EQ(0, SetText(writer, L"Name", L"other"));
  RegCloseKey(reader);
  RegCloseKey(writer);
}

TEST_F(RegistryKeys, AreEnumeratedOnceEachUntilNoMoreItems) {
  for (const wchar_t* name : {L"b", L"A", L"c\\below", L"B"}) RegCloseKey(Create(scratch_, name));
  auto names = contract::SubkeyNames(scratch_);
  std::sort(names.begin(), names.end());
  EXPECT_EQ((std::vector<std::wstring>{L"A", L"b", L"c"}), names);

  wchar_t name[2];
  DWORD length = 2;
  EXPECT_EQ(ERROR_NO_MORE_ITEMS,
            RegEnumKeyExW(scratch_, 3, name, &length, nullptr, nullptr, nullptr, nullptr));
  length = 1;  // without room for the NUL
  EXPECT_EQ(ERROR_MORE_DATA,
            RegEnumKeyExW(scratch_, 0, name, &length, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryKeys, ClosedHandlesAndWrongArgumentsAreRefused) {
  const HKEY key = Create(scratch_, L"Closed");
  ASSERT_EQ(0, RegCloseKey(key));
  EXPECT_EQ(ERROR_INVALID_HANDLE, RegCloseKey(key));
  EXPECT_EQ(ERROR_INVALID_HANDLE, SetText(key, L"Name", L"text"));
  EXPECT_EQ(ERROR_INVALID_HANDLE, TryOpen(key, L"Below"));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, RegOpenKeyExW(scratch_, L"", 0, KEY_READ, nullptr));
}

}  // namespace
