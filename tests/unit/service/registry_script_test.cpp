// The registry scripts: what they write below a key of the test's own, and what they leave when
// they are undone.
#include "service/registry_script.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "service/registry_data.h"
#include "service/registry_key.h"
#include "tests/unit/service/registry_view.h"

namespace {

constexpr wchar_t kScratch[] = L"TzWirefoxRegistrationTest";

// Scripts run below a key of the test's own.
class Scripts : public testing::Test {
 protected:
  Scripts() {
    EXPECT_EQ(CreateKey(HKEY_CLASSES_ROOT, kScratch, KEY_READ | KEY_WRITE, root_), ERROR_SUCCESS);
    replacements_.Add(L"AppId", L"{A}");
    replacements_.Add(L"clsid", L"{C}");
    replacements_.Add(L"LIBID", L"{L}");
    replacements_.Add(L"module", L"\"/it's %A%/server\"");
  }
  ~Scripts() override {
    root_.Reset();
    RemoveTree(HKEY_CLASSES_ROOT, kScratch);
  }

  Lines Tree() {
    Lines lines = KeyTree(HKEY_CLASSES_ROOT, kScratch);
    for (std::string& line : lines) line.erase(0, std::size(kScratch) - 1);
    return lines;
  }
  HRESULT Register(RegistryScript script) {
    return RunRegisterScript(root_.Get(), script, replacements_);
  }
  HRESULT Unregister(RegistryScript script) {
    return RunUnregisterScript(root_.Get(), script, replacements_);
  }
  void Write(const std::wstring& path, const wchar_t* name, const std::wstring& text) {
    RegistryKey key;
    ASSERT_EQ(CreateKey(root_.Get(), path, KEY_WRITE, key), ERROR_SUCCESS);
    ASSERT_EQ(SetText(key.Get(), name, text), ERROR_SUCCESS);
  }

  RegistryKey root_;
  ScriptReplacements replacements_;
};

const Lines kClassTree = {
    "",
    "\\CLSID",
    "\\CLSID\\{C}",
    "\\CLSID\\{C}|@=\"TzWirefox Class\"",
    "\\CLSID\\{C}|AppID=\"{A}\"",
    "\\CLSID\\{C}\\LocalServer32",
    "\\CLSID\\{C}\\LocalServer32|@=\"\"/it's %A%/server\"\"",
    "\\CLSID\\{C}\\ProgID",
    "\\CLSID\\{C}\\ProgID|@=\"TzWirefoxService.TzWirefox.1\"",
    "\\CLSID\\{C}\\Programmable",
    "\\CLSID\\{C}\\TypeLib",
    "\\CLSID\\{C}\\TypeLib|@=\"{L}\"",
    "\\CLSID\\{C}\\VersionIndependentProgID",
    "\\CLSID\\{C}\\VersionIndependentProgID|@=\"TzWirefoxService.TzWirefox\"",
    "\\TzWirefoxService.TzWirefox",
    "\\TzWirefoxService.TzWirefox|@=\"TzWirefox Class\"",
    "\\TzWirefoxService.TzWirefox\\CLSID",
    "\\TzWirefoxService.TzWirefox\\CLSID|@=\"{C}\"",
    "\\TzWirefoxService.TzWirefox\\CurVer",
    "\\TzWirefoxService.TzWirefox\\CurVer|@=\"TzWirefoxService.TzWirefox.1\"",
    "\\TzWirefoxService.TzWirefox.1",
    "\\TzWirefoxService.TzWirefox.1|@=\"TzWirefox Class\"",
    "\\TzWirefoxService.TzWirefox.1\\CLSID",
    "\\TzWirefoxService.TzWirefox.1\\CLSID|@=\"{C}\"",
};

const Lines kAppIdTree = {
    "",
    "\\AppID",
    "\\AppID\\TzWirefoxService.EXE",
    "\\AppID\\TzWirefoxService.EXE|AccessPermission=hex:"
    "01000480580000006800000000000000140000000200440003000000000014000700000001010000000000050a0000"
    "0000001400030000000101000000000005120000000000140003000000010100000000000504000000010200000000"
    "000520000000200200000102000000000005200000002002"
    "0000",
    "\\AppID\\TzWirefoxService.EXE|AppID=\"{A}\"",
    "\\AppID\\{A}",
    "\\AppID\\{A}|@=\"TzWirefoxService\"",
};

TEST_F(Scripts, WriteTheirKeysAndRemoveThemAgain) {
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Register(kClassScript), S_OK);
    EXPECT_EQ(Tree(), kClassTree);
    EXPECT_EQ(Register(kClassScript), S_OK) << "registering twice";
    EXPECT_EQ(Tree(), kClassTree);
    EXPECT_EQ(Unregister(kClassScript), S_OK);
    EXPECT_EQ(Tree(), (Lines{"", "\\CLSID"}));
    EXPECT_EQ(Unregister(kClassScript), S_OK) << "nothing left to unregister";
  }
}

TEST_F(Scripts, ApplicationIdHasItsPermissionAtTheExecutable) {
  EXPECT_EQ(Register(kAppIdScript), S_OK);
  EXPECT_EQ(Tree(), kAppIdTree);
  EXPECT_EQ(Unregister(kAppIdScript), S_OK);
  EXPECT_EQ(Tree(), (Lines{"", "\\AppID"}));
}

TEST_F(Scripts, ForcedKeyLosesWhatStoodThereAndOthersKeepIt) {
  Write(L"CLSID\\{C}\\InprocServer32\\Deeper", nullptr, L"old");
  Write(L"CLSID\\{C}", L"Stale", L"old");
  Write(L"CLSID\\{Other}", nullptr, L"kept");
  Write(L"TzWirefoxService.TzWirefox", L"Extra", L"kept");
  EXPECT_EQ(Register(kClassScript), S_OK);
  Lines expected = kClassTree;
  expected.insert(expected.end(), {"\\CLSID\\{Other}", "\\CLSID\\{Other}|@=\"kept\"",
                                   "\\TzWirefoxService.TzWirefox|Extra=\"kept\""});
  Lines tree = Tree();
  std::ranges::sort(expected);
  std::ranges::sort(tree);
  EXPECT_EQ(tree, expected);
}

TEST_F(Scripts, KeyWithForeignKeysBelowItIsNotRemoved) {
  EXPECT_EQ(Register(kClassScript), S_OK);
  Write(L"TzWirefoxService.TzWirefox\\Shell", nullptr, L"foreign");
  Write(L"TzWirefoxService.TzWirefox.1", L"Value", L"goes with its key");
  EXPECT_EQ(Unregister(kClassScript), S_OK);
  EXPECT_EQ(Tree(), (Lines{"", "\\CLSID", "\\TzWirefoxService.TzWirefox",
                           "\\TzWirefoxService.TzWirefox\\Shell",
                           "\\TzWirefoxService.TzWirefox\\Shell|@=\"foreign\""}));
}

TEST(ScriptReplacements, AreFoundInAnyLetterCaseAndOnlyWhole) {
  ScriptReplacements replacements;
  replacements.Add(L"APPID", L"{A}");
  const std::pair<const wchar_t*, const wchar_t*> kCases[] = {
      {L"%APPID%", L"{A}"},   {L"x%appid%y%AppId%", L"x{A}y{A}"}, {L"%OTHER%", L"%OTHER%"},
      {L"%APPID", L"%APPID"}, {L"100%%APPID%", L"100%{A}"},       {L"", L""},
  };
  for (const auto& [text, expanded] : kCases) EXPECT_EQ(replacements.Expand(text), expanded);
}

}  // namespace
