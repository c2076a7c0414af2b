#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <random>
#include <string>

#include "platform/linux/hive.h"

namespace {

using linux_host::FormatHive;
using linux_host::HiveFault;
using linux_host::ParseHive;
using linux_host::RegistryKey;
using linux_host::RegistryValue;

RegistryValue Text(const std::wstring& text) {
  RegistryValue value{.type = REG_SZ, .data = {}};
  value.data.resize((text.size() + 1) * sizeof(WCHAR));
  std::memcpy(value.data.data(), text.c_str(), value.data.size());
  return value;
}

bool SameTree(const RegistryKey& a, const RegistryKey& b) {
  if (a.values != b.values || a.subkeys.size() != b.subkeys.size()) return false;
  auto other = b.subkeys.begin();
  for (const auto& [name, key] : a.subkeys) {
    if (name != other->first || !SameTree(*key, *other->second)) return false;
    ++other;
  }
  return true;
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
    "[CLSID]\n"
    "@=\"\\\"/opt/caf\xC3\xA9\\\\x\\\"\"\n"
    "\"count \\\"n\\\"\"=dword:0000001f\n"
    "\"odd\"=hex(1):41\n"
    "\n"
    "end\n";

void FillExample(RegistryKey& root) {
  RegistryKey& executable = root.FindOrCreate({L"AppID", L"TzWirefoxService.EXE"});
  executable.values[L"AppID"] = Text(L"{176d}");
  executable.values[L"AccessPermission"] = {.type = REG_BINARY, .data = {1, 0, 4, 0x80}};
  RegistryKey& classes = root.FindOrCreate({L"CLSID"});
  classes.values[L""] = Text(L"\"/opt/caf\u00E9\\x\"");
  classes.values[L"count \"n\""] = {.type = REG_DWORD, .data = {0x1F, 0, 0, 0}};
  classes.values[L"odd"] = {.type = REG_SZ, .data = {0x41}};
}

TEST(HiveText, IsWrittenInItsDocumentedForm) {
  RegistryKey root;
  FillExample(root);
  EXPECT_EQ(kExample, FormatHive(root));
}

TEST(HiveText, IsReadWithCommentsAndForeignLineEnds) {
  std::string text = std::string("Wirefox registry 1\n; by hand\n") + std::strchr(kExample, '\n');
  for (std::size_t at = 0; (at = text.find('\n', at)) != text.npos; at += 2) {
    text.insert(at, 1, '\r');
  }
  RegistryKey expected;
  FillExample(expected);
  RegistryKey root;
  const HiveFault fault = ParseHive(text, root);
  EXPECT_EQ(0u, fault.line) << fault.what;
  EXPECT_TRUE(SameTree(expected, root));
}

TEST(HiveText, MalformedLinesAreNamed) {
  const std::string first = "Wirefox registry 1\n";
  const std::string deep(2 * linux_host::kDeepestKey, '\\');
  std::string too_deep;
  for (std::size_t i = 0; i <= linux_host::kDeepestKey; ++i) too_deep += i ? "\\k" : "k";
  const struct {
    std::string text;
    std::size_t line;
  } cases[] = {
      {"", 1},
      {"\n", 1},
      {"Wirefox registry 2\nend\n", 1},
      {std::string(100, '\0'), 1},
      {first, 2},
      {first + "[A]\n\"a\"=\"b\"\n", 4},
      {first + "end\nmore\n", 3},
      {first + "[A\nend\n", 2},
      {first + "[]\nend\n", 2},
      {first + "[A\\\\B]\nend\n", 2},
      {first + "[\\A]\nend\n", 2},
      {first + "[" + deep + "]\nend\n", 2},
      {first + "[" + too_deep + "]\nend\n", 2},
      {first + "[" + std::string(256, 'k') + "]\nend\n", 2},
      {first + "[A\x01]\nend\n", 2},
      {first + "[\xFF]\nend\n", 2},
      {first + "name=\"b\"\nend\n", 2},
      {first + "\"a\nend\n", 2},
      {first + "\"a\\\nend\n", 2},
      {first + "\"a\" \"b\"\nend\n", 2},
      {first + "\"a\"=\nend\n", 2},
      {first + "\"a\"=b\nend\n", 2},
      {first + "\"a\"=\"b\nend\n", 2},
      {first + "\"a\"=\"b\"c\nend\n", 2},
      {first + "\"a\"=dword:\nend\n", 2},
      {first + "\"a\"=dword:123456789\nend\n", 2},
      {first + "\"a\"=dword:xy\nend\n", 2},
      {first + "\"a\"=hex(3\nend\n", 2},
      {first + "\"a\"=hex():00\nend\n", 2},
      {first + "\"a\"=hex(123456789):00\nend\n", 2},
      {first + "\"a\"=hex(3):0g\nend\n", 2},
      {first + "\"a\"=hex(3):00,\nend\n", 2},
      {first + "\"a\"=hex(3):00 01\nend\n", 2},
      {first + "\"a\"=\"1\"\n\"A\"=\"2\"\nend\n", 3},
  };
  for (const auto& c : cases) {
    RegistryKey root;
    EXPECT_EQ(c.line, ParseHive(c.text, root).line) << testing::PrintToString(c.text);
  }
}

std::wstring RandomName(std::mt19937& random) {
  const wchar_t alphabet[] = L"ab\"]=[@;{} .\u00E9\u20AC";
  std::wstring name;
  for (auto length = 1 + random() % 6; length > 0; --length) name += alphabet[random() % 13];
  return name;
}

RegistryValue RandomValue(std::mt19937& random) {
  switch (random() % 3) {
    case 0:
      return Text(RandomName(random));
    case 1:
      return {.type = REG_DWORD, .data = {1, 2, 3, static_cast<std::uint8_t>(random())}};
    default:
      break;
  }
  RegistryValue value{.type = static_cast<std::uint32_t>(random()), .data = {}};
  for (auto length = random() % 9; length > 0; --length) {
    value.data.push_back(static_cast<std::uint8_t>(random()));
  }
  return value;
}

void FillRandomly(RegistryKey& root, std::mt19937& random) {
  for (auto count = random() % 12; count > 0; --count) {
    std::vector<std::wstring> path;
    for (auto depth = random() % 5; depth > 0; --depth) path.push_back(RandomName(random));
    RegistryKey& key = root.FindOrCreate(path);
    for (auto values = random() % 4; values > 0; --values) {
      key.values[random() % 4 ? RandomName(random) : L""] = RandomValue(random);
    }
  }
}

TEST(HiveText, RandomHivesSurviveTheWayThereAndBack) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 1000; ++round) {
    RegistryKey root;
    FillRandomly(root, random);
    const std::string text = FormatHive(root);
    RegistryKey again;
    const HiveFault fault = ParseHive(text, again);
    ASSERT_EQ(0u, fault.line) << fault.what << "\n" << text;
    ASSERT_TRUE(SameTree(root, again)) << text;
  }
}

TEST(HiveText, AnyTextIsEitherRefusedOrReadAlikeAfterwards) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 5000; ++round) {
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
    RegistryKey root;
    if (ParseHive(text, root).line != 0) continue;
    RegistryKey again;
    ASSERT_EQ(0u, ParseHive(FormatHive(root), again).line) << text;
    ASSERT_TRUE(SameTree(root, again)) << text;
  }
}

}  // namespace
