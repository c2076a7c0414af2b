#include <gtest/gtest.h>
#include <windows.h>

#include <oleauto.h>

#include <cwchar>
#include <string>

namespace {

TEST(AutomationStrings, NullIsEmptyAndMayBeFreed) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  EXPECT_EQ(SysStringByteLen(nullptr), 0u);
  SysFreeString(nullptr);
}

TEST(AutomationStrings, CountTheirCharactersAndEndWithAZero) {
  const std::wstring cases[] = {L"", L"WFX0001", std::wstring(L"a\0b", 3),
                                std::wstring(5000, L'x')};
  for (const std::wstring& text : cases) {
    const BSTR string = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(SysStringLen(string), text.size());
    EXPECT_EQ(SysStringByteLen(string), text.size() * sizeof(OLECHAR));
    EXPECT_EQ(std::wstring(string, text.size()), text);
    EXPECT_EQ(string[text.size()], L'\0');
    SysFreeString(string);
  }
  const BSTR cut = SysAllocString(std::wstring(L"a\0b", 3).c_str());
  EXPECT_EQ(SysStringLen(cut), 1u);
  SysFreeString(cut);
}

TEST(AutomationStrings, AreCopiedByTheirByteCount) {
  const BSTR source = SysAllocStringLen(L"x\0y", 3);
  const BSTR copy =
      SysAllocStringByteLen(reinterpret_cast<LPCSTR>(source), SysStringByteLen(source));
  EXPECT_EQ(std::wstring(copy, SysStringLen(copy)), std::wstring(L"x\0y", 3));
  SysFreeString(copy);
  SysFreeString(source);
}

TEST(AutomationStrings, KeepAnOddByteCountAndRoundTheirLengthDown) {
  const BSTR string = SysAllocStringByteLen("abc", 3);
  EXPECT_EQ(SysStringByteLen(string), 3u);
  EXPECT_EQ(SysStringLen(string), 3u / sizeof(OLECHAR));
  SysFreeString(string);
}

}  // namespace
