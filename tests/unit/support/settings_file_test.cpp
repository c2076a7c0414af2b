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
  const struct {
    const char* line;
    const char* key;
    const char* value;
  } cases[] = {
      {"a1=plain", "A1", "plain"},
      {"MiXeDz_a2=Case Stays", "mixedZ_A2", "Case Stays"},
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
      {"c3=line end of the other host\r", "C3", "line end of the other host"},
      {"c4=\"and in quotes\"\r", "C4", "and in quotes"},
      {"c5=two\r\r", "C5", "two\r"},
      {"c6=the first wins", "c6", "the first wins"},
      {"C6=the second", "C6", "the first wins"},
      {"", "no such key", ""},
  };
  std::string text = "\n[section]\nno equals sign\n";
  for (const auto& [line, key, value] : cases) text.append(line).append("\n");
  Read(text + "last=needs no end");
  for (const auto& [line, key, value] : cases) EXPECT_STREQ(value, GetSetting(key)) << line;
  ReadSettings("no such file");
  EXPECT_STREQ("needs no end", GetSetting("LAST"));
  // Without an LF behind it, a CR is the value's. Ctrl-Z ends the text.
  Read("lastcr=six\r");
  EXPECT_STREQ("six\r", GetSetting("LASTCR"));
  Read(
      "d1=before\r\nd2=cut\r\x1A"
      "off\nd3=behind\n");
  EXPECT_STREQ("before", GetSetting("D1"));
  EXPECT_STREQ("cut\r", GetSetting("D2"));
  EXPECT_STREQ("", GetSetting("D3"));
}

}  // namespace
