#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/linux/registry/hive.h"
#include "tests/unit/random_seed.h"

namespace {

using linux_host::FormatHive;
using linux_host::ParseHive;
using linux_host::RegistryKey;
using linux_host::RegistryValue;

RegistryValue Text(const std::wstring& text) {
  RegistryValue value{.type = REG_SZ, .data = {}};
  value.data.resize((text.size() + 1) * sizeof(WCHAR));
  std::memcpy(value.data.data(), text.c_str(), value.data.size());
  return value;
}

constexpr char kExample[] =
    "Wirefox registry 1\n"
    "\n"
    "[AppID]\n"
    "\n"
    "[AppID\\TzWirefoxService.EXE]\n"
    "\"AccessPermission\"=hex(3):01,00,04,80\n"
    "\"AppID\"=\"{176d}\"\n"
    "\n"
    "[AppID\\[a];=@ \"b\"]\n"
    "\"=\\\\]@\"=hex(fedcba98):\n"
    "\n"
    "[CLSID]\n"
    "@=\"\\\"/opt/caf\xC3\xA9\\\\x\\\"\"\n"
    "\"count \\\"n\\\"\"=dword:0000001f\n"
    "\"odd\"=hex(1):41\n"
    "\n"
    "end\n";

TEST(HiveText, IsWrittenInItsDocumentedForm) {
  RegistryKey root;
  RegistryKey& executable = root.FindOrCreate({L"AppID", L"TzWirefoxService.EXE"});
  executable.values[L"AppID"] = Text(L"{176d}");
  executable.values[L"AccessPermission"] = {.type = REG_BINARY, .data = {1, 0, 4, 0x80}};
  root.FindOrCreate({L"AppID", L"[a];=@ \"b\""}).values[L"=\\]@"] = {.type = 0xFEDCBA98,
                                                                     .data = {}};
  RegistryKey& classes = root.FindOrCreate({L"CLSID"});
  classes.values[L""] = Text(L"\"/opt/caf\u00E9\\x\"");
  classes.values[L"count \"n\""] = {.type = REG_DWORD, .data = {0x1F, 0, 0, 0}};
  classes.values[L"odd"] = {.type = REG_SZ, .data = {0x41}};
  EXPECT_EQ(kExample, FormatHive(root));

  // And is read again, also with comments and foreign line ends.
  std::string text = std::string("Wirefox registry 1\n; by hand\n") + std::strchr(kExample, '\n');
  for (std::size_t at = 0; (at = text.find('\n', at)) != text.npos; at += 2) {
    text.insert(at, 1, '\r');
  }
  RegistryKey read;
  EXPECT_EQ(0u, ParseHive(text, read).line);
  EXPECT_EQ(kExample, FormatHive(read));
}

TEST(HiveText, MalformedLinesAreNamed) {
  const std::string first = "Wirefox registry 1\n";
  const std::pair<std::string, std::size_t> whole_texts[] = {
      {"", 1},
      {"Wirefox registry 2\nend\n", 1},
      {std::string(100, '\0'), 1},
      {first, 2},
      {first + "[A]\n\"a\"=\"b\"\n", 4},
      {first + "end\nmore\n", 3},
      {first + "\"a\"=\"1\"\n\"A\"=\"2\"\nend\n", 3},
  };
  for (const auto& [text, line] : whole_texts) {
    RegistryKey root;
    EXPECT_EQ(line, ParseHive(text, root).line) << testing::PrintToString(text);
  }
  std::string too_deep = "[k";
  for (std::size_t i = 0; i < linux_host::kMaxKeyDepth; ++i) too_deep += "\\k";
  std::vector<std::string> second_lines = {
      "[\xFF]", too_deep + "]", "[" + std::string(256, 'k') + "]",
      "[" + std::string(2 * linux_host::kMaxKeyDepth, '\\') + "]"};
  // No key, no value, and no data of each kind; separated by bars.
  std::istringstream others(
      "[A|[]|[A\\\\B]|[\\A]|[A\x01]"
      R"(|name="b"|"a|"a\|"a" "b"|"a"=|"a"=b|"a"="b|"a"="b"c|"a"=dword:|"a"=dword:123456789)"
      R"(|"a"=dword:xy|"a"=hex(3)|"a"=hex():00|"a"=hex(123456789):00|"a"=hex(3):0g)"
      R"(|"a"=hex(3):00,|"a"=hex(3):00 01)");
  for (std::string line; std::getline(others, line, '|');) second_lines.push_back(line);
  for (const std::string& line : second_lines) {
    RegistryKey root;
    EXPECT_EQ(2u, ParseHive(first + line + "\nend\n", root).line) << testing::PrintToString(line);
  }
}

// A damaged example, in most cases.
std::string Damaged(std::mt19937& random) {
  std::string text = kExample;
  for (auto changes = 1 + random() % 4; changes > 0; --changes) {
    const auto at = random() % text.size();
    switch (random() % 3) {
      case 0:
        text[at] = static_cast<char>(random());
        break;
      case 1:
        text.erase(at, 1 + random() % 9);
        break;
      default:
        text.insert(at, text.substr(random() % text.size(), random() % 20));
        break;
    }
    if (text.empty()) text = "x";
  }
  return text;
}

TEST(HiveText, AnyTextIsEitherRefusedOrReadAlikeAfterwards) {
  std::mt19937 random(unit::RandomSeed());
  for (int round = 0; round < 5000; ++round) {
    const std::string text = Damaged(random);
    RegistryKey root;
    if (ParseHive(text, root).line != 0) continue;
    RegistryKey again;
    ASSERT_EQ(0u, ParseHive(FormatHive(root), again).line) << text;
    ASSERT_EQ(FormatHive(root), FormatHive(again)) << text;
  }
}

}  // namespace
