#include "support/settings_file.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/scratch_folder.h"

namespace {

// The table only grows, so that each test has keys of its own.
void Read(const std::string& text) {
  const unit::ScratchFolder folder;
  ReadSettings(folder.Write("wfxusb.ini", text).c_str());
}

TEST(SettingsFile, GrammarOfLines) {
  struct Case {
    const char* line;
    const char* key;
    const char* value;
  };
  const Case cases[] = {
      {"a1=plain", "A1", "plain"},
      {"MiXeD_a2=Case Stays", "mixed_A2", "Case Stays"},
      {"a3 =blank before", "A3", ""},
      {"a4 =blank before", "A4 ", "blank before"},
      {"a5= 16", "A5", " 16"},
      {"a6=x=y=z", "A6", "x=y=z"},
      {"a7=\"in quotes\"", "A7", "in quotes"},
      {"a8=\"\"", "A8", ""},
      {"a9=\"", "A9", ""},
      {"b1=\"only one", "B1", "\"only one"},
      {"b2=\"in\"side\"", "B2", "in\"side"},
      {"b3=\" quoted \" ", "B3", "\" quoted \" "},
      {"b4=", "B4", ""},
      {";b5=comment", "B5", ""},
      {" ;b6=no comment", " ;B6", "no comment"},
      {"[b7]", "[B7]", ""},
      {"[b8=odd]", "[B8", "odd]"},
      {"\tb9=tab", "\tB9", "tab"},
      {"c1=cr\rin the middle", "C1", "cr\rin the middle"},
      {"\xE4\xFC_c2=bytes above 7F", "\xE4\xFC_C2", "bytes above 7F"},
      {"=empty key", "", "empty key"},
  };
  std::string text = "\n[section]\nno equals sign\n";
  for (const Case& c : cases) text.append(c.line).append("\n");
  Read(text);
  for (const Case& c : cases) EXPECT_STREQ(c.value, GetSetting(c.key)) << c.line;
}

TEST(SettingsFile, FirstOfTwoEqualKeysWins) {
  Read("twice=first\nTWICE=second\n");
  EXPECT_STREQ("first", GetSetting("twice"));
}

TEST(SettingsFile, LineEndsOfBothHostsAreRead) {
  Read("crlf1=one\r\ncrlf2=\"two\"\r\nlf=three\ntwocr=four\r\r\nlast=five");
  EXPECT_STREQ("one", GetSetting("CRLF1"));
  EXPECT_STREQ("two", GetSetting("CRLF2"));
  EXPECT_STREQ("three", GetSetting("LF"));
  EXPECT_STREQ("four\r", GetSetting("TWOCR"));
  EXPECT_STREQ("five", GetSetting("LAST"));
  // Without an LF behind it, a CR is the value's.
  Read("lastcr=six\r");
  EXPECT_STREQ("six\r", GetSetting("LASTCR"));
}

TEST(SettingsFile, MissingFileLeavesEveryKeyEmpty) {
  const unit::ScratchFolder folder;
  ReadSettings(folder.Path("nothing.ini").c_str());
  EXPECT_STREQ("", GetSetting("NOTHING"));
}

TEST(SettingsFile, ValuesStayInPlaceWhileKeysAreAdded) {
  Read("stay=here\n");
  const char* const before = GetSetting("STAY");
  std::string many;
  for (int i = 0; i < 2000; ++i) many.append("k").append(std::to_string(i)).append("=v\n");
  Read(many);
  EXPECT_EQ(before, GetSetting("STAY"));
  EXPECT_STREQ("v", GetSetting("K1999"));
}

}  // namespace
