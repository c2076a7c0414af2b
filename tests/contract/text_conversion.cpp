#include <gtest/gtest.h>
#include <windows.h>

#include <string>

namespace {

std::wstring ToWide(const std::string& text, DWORD flags = 0) {
  wchar_t wide[64];
  const int length =
      MultiByteToWideChar(CP_UTF8, flags, text.data(), static_cast<int>(text.size()), wide, 64);
  return std::wstring(wide, static_cast<std::size_t>(length));
}

std::string ToNarrow(const std::wstring& wide, DWORD flags = 0) {
  char text[64];
  const int length = WideCharToMultiByte(CP_UTF8, flags, wide.data(), static_cast<int>(wide.size()),
                                         text, 64, nullptr, nullptr);
  return std::string(text, static_cast<std::size_t>(length));
}

TEST(TextConversion, CharactersOfEveryLengthConvertBothWays) {
  const struct {
    std::string narrow;
    std::wstring wide;
  } cases[] = {
      {"WFX0001", L"WFX0001"},
      {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
      {"\xC2\x80\xDF\xBF", L"\x80\x7FF"},
      {"\xD5\xAA\xE5\x95\xAA\xF2\xA5\x95\xAA", L"\x56A\x556A\xDA55\xDD6A"},
      {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", L"\x800\xD7FF\xE000\xFFFF"},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\xD800\xDC00\xDBFF\xDFFF"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.wide, ToWide(c.narrow, MB_ERR_INVALID_CHARS));
    EXPECT_EQ(c.narrow, ToNarrow(c.wide, WC_ERR_INVALID_CHARS));
  }
}

TEST(TextConversion, MalformedInputBecomesReplacementCharacters) {
  const struct {
    std::string narrow;
    std::wstring wide;
  } cases[] = {
      {"a\x80z", L"a\xFFFDz"},                               // nothing begins with a trailing byte
      {"a\xFFz", L"a\xFFFDz"},     {"a\xC3z", L"a\xFFFDz"},  // cut in the middle
      {"a\xE2\x82z", L"a\xFFFDz"}, {"a\xE2\x82", L"a\xFFFD"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.wide, ToWide(c.narrow)) << testing::PrintToString(c.narrow);
    EXPECT_EQ(L"", ToWide(c.narrow, MB_ERR_INVALID_CHARS));
    EXPECT_EQ(DWORD{ERROR_NO_UNICODE_TRANSLATION}, GetLastError());
  }
  // How many replace one that is well-formed in shape only differs between hosts.
  for (const std::string narrow : {
           "a\xC0\xAFz", "a\xE0\x80\xAFz",          // longer than need be
           "a\xED\xA0\x80z", "a\xF4\x90\x80\x80z",  // a surrogate; beyond U+10FFFF
       }) {
    const std::wstring wide = ToWide(narrow);
    ASSERT_GE(wide.size(), 3u);
    EXPECT_EQ(L"a" + std::wstring(wide.size() - 2, L'\xFFFD') + L"z", wide);
    EXPECT_EQ(L"", ToWide(narrow, MB_ERR_INVALID_CHARS));
  }
  for (const std::wstring wide : {L"a\xD800z", L"a\xDC00z", L"a\xD800"}) {
    const std::string tail = wide.size() == 3 ? "z" : "";
    EXPECT_EQ("a\xEF\xBF\xBD" + tail, ToNarrow(wide));
    EXPECT_EQ("", ToNarrow(wide, WC_ERR_INVALID_CHARS));
    EXPECT_EQ(DWORD{ERROR_NO_UNICODE_TRANSLATION}, GetLastError());
  }
  EXPECT_EQ("\xEF\xBF\xBD\xF0\x90\x80\x80", ToNarrow(L"\xD800\xD800\xDC00"));
}

TEST(TextConversion, RoomIsReportedAndHeeded) {
  EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, nullptr, 0));
  EXPECT_EQ(3, MultiByteToWideChar(CP_UTF8, 0, "abc", 3, nullptr, 0));
  EXPECT_EQ(4, WideCharToMultiByte(CP_ACP, 0, L"abc", -1, nullptr, 0, nullptr, nullptr));

  wchar_t wide[4] = {L'#', L'#', L'#', L'#'};
  EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 3));
  EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, GetLastError());
  EXPECT_EQ(L'#', wide[3]) << "written beyond the room";
  EXPECT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 4));
  EXPECT_STREQ(L"abc", wide);

  char text[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, text, 3, nullptr, nullptr));
  EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, GetLastError());
  EXPECT_EQ('#', text[3]) << "written beyond the room";
}

}  // namespace
