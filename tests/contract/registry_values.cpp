#include <algorithm>
#include <cstring>

#include "tests/contract/registry_scratch.h"

namespace {

class RegistryValues : public contract::RegistryScratch {};

TEST_F(RegistryValues, OfEveryTypeComeBackByteForByte) {
  const struct {
    const wchar_t* name;
    DWORD type;
    std::vector<BYTE> data;
  } cases[] = {
      {L"none", REG_NONE, {}},
      {L"binary", REG_BINARY, {0x01, 0x00, 0x04, 0x80, 0xFF}},
      {L"dword", REG_DWORD, {0x78, 0x56, 0x34, 0x12}},
      {L"short dword", REG_DWORD, {0x78, 0x56}},
      {L"empty text", REG_SZ, {}},
      {L"odd text", REG_SZ, {0x41, 0x00, 0x42}},
      {L"unknown type", 0x12345678, {0x01}},
      {L"name \"with\" \\ and = and [brackets]", REG_BINARY, {0x22}},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(0, RegSetValueExW(scratch_, c.name, 0, c.type, c.data.data(),
                                static_cast<DWORD>(c.data.size())));
  }
  for (const auto& c : cases) {
    BYTE data[16] = {};
    DWORD size = sizeof(data);
    DWORD type = ~0u;
    EXPECT_EQ(0, RegQueryValueExW(scratch_, c.name, nullptr, &type, data, &size));
    EXPECT_EQ(c.type, type);
    EXPECT_EQ(c.data, std::vector<BYTE>(data, data + size)) << testing::PrintToString(c.name);
  }
}

TEST_F(RegistryValues, TextsComeBackAsTheyWere) {
  const std::wstring texts[] = {
      L"",
      L"TzWirefox Class",
      L"\"C:\\Program Files\\x\\TzWirefoxService.exe\"",
      L"line\r\nbreak\tand \x7F control",
      L"caf\u00E9 \u20AC \xD83E\xDD8A",
      L"lone \xD800 surrogate",
      std::wstring(200, L'x') + L"\\",
  };
  for (const std::wstring& text : texts) {
    ASSERT_EQ(0, SetText(scratch_, L"Text", text));
    EXPECT_EQ(text, Text(scratch_, L"TEXT"));
  }
}

TEST_F(RegistryValues, DefaultValueHasNoName) {
  EXPECT_EQ(L"status 2", Text(scratch_, nullptr));
  ASSERT_EQ(0, SetText(scratch_, nullptr, L"default"));
  EXPECT_EQ(L"default", Text(scratch_, L""));
  EXPECT_EQ(0, RegDeleteValueW(scratch_, L""));
  EXPECT_EQ(L"status 2", Text(scratch_, nullptr));
}

TEST_F(RegistryValues, AreReplacedAndDeletedInAnyLetterCase) {
  ASSERT_EQ(0, SetText(scratch_, L"LocalService", L"first"));
  ASSERT_EQ(0, SetText(scratch_, L"LOCALSERVICE", L"second"));
  EXPECT_EQ(L"second", Text(scratch_, L"LocalService"));
  EXPECT_EQ(0, RegDeleteValueW(scratch_, L"localservice"));
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegDeleteValueW(scratch_, L"LocalService"));
}

TEST_F(RegistryValues, SizeIsReportedAlsoWithoutRoom) {
  ASSERT_EQ(0, SetText(scratch_, L"Text", L"12345"));
  const DWORD full = 6 * sizeof(WCHAR);
  DWORD size = 0;
  DWORD type = 0;
  EXPECT_EQ(0, RegQueryValueExW(scratch_, L"Text", nullptr, &type, nullptr, &size));
  EXPECT_EQ(full, size);
  EXPECT_EQ(DWORD{REG_SZ}, type);

  BYTE data[64];
  std::memset(data, 0xEE, sizeof(data));
  size = full - 1;
  EXPECT_EQ(ERROR_MORE_DATA, RegQueryValueExW(scratch_, L"Text", nullptr, nullptr, data, &size));
  EXPECT_EQ(full, size);
  EXPECT_EQ(0xEE, data[full - 1]) << "written beyond the room";
  size = full;
  EXPECT_EQ(0, RegQueryValueExW(scratch_, L"Text", nullptr, nullptr, data, &size));
  EXPECT_EQ(ERROR_INVALID_PARAMETER,
            RegQueryValueExW(scratch_, L"Text", nullptr, nullptr, data, nullptr));
}

TEST_F(RegistryValues, TextStoredWithoutNulGetsOneWhereThereIsRoom) {
  const wchar_t text[] = L"abc";
  ASSERT_EQ(0, RegSetValueExW(scratch_, L"Text", 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                              2 * sizeof(WCHAR)));
  wchar_t out[4] = {L'#', L'#', L'#', L'#'};
  DWORD size = sizeof(out);
  EXPECT_EQ(0, RegQueryValueExW(scratch_, L"Text", nullptr, nullptr, reinterpret_cast<BYTE*>(out),
                                &size));
  EXPECT_EQ(2 * sizeof(WCHAR), size);
  EXPECT_EQ(0, std::wcsncmp(L"ab", out, 4));
}

}  // namespace
