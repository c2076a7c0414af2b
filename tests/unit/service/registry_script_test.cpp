// The registry scripts, run below a key of the test's own: what they leave of what stands there.
// What they write as a whole is tried where the server is registered.
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
    replacements_.Add(L"module", L"server");
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

TEST_F(Scripts, ForcedKeyLosesWhatStoodThereAndOthersKeepIt) {
  EXPECT_EQ(Register(kClassScript), S_OK);
  Lines expected = Tree();
  Write(L"CLSID\\{C}\\InprocServer32\\Deeper", nullptr, L"old");
  Write(L"CLSID\\{C}", L"Stale", L"old");
  Write(L"CLSID\\{Other}", nullptr, L"kept");
  Write(L"TzWirefoxService.TzWirefox", L"Extra", L"kept");
  EXPECT_EQ(Register(kClassScript), S_OK);
  expected.insert(expected.end(), {"\\CLSID\\{Other}", "\\CLSID\\{Other}|@=\"kept\"",
                                   "\\TzWirefoxService.TzWirefox|Extra=\"kept\""});
  Lines tree = Tree();
  std::ranges::sort(expected);
  std::ranges::sort(tree);
  EXPECT_EQ(tree, expected);
}

TEST_F(Scripts, KeysThatOthersUseAreNotRemoved) {
  EXPECT_EQ(Register(kAppIdScript), S_OK);
  EXPECT_EQ(Register(kClassScript), S_OK);
  Write(L"TzWirefoxService.TzWirefox\\Shell", nullptr, L"foreign");
  Write(L"TzWirefoxService.TzWirefox.1", L"Value", L"goes with its key");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Unregister(kClassScript), S_OK);
    EXPECT_EQ(Unregister(kAppIdScript), S_OK);
    EXPECT_EQ(Tree(), (Lines{"", "\\AppID", "\\CLSID", "\\TzWirefoxService.TzWirefox",
                             "\\TzWirefoxService.TzWirefox\\Shell",
                             "\\TzWirefoxService.TzWirefox\\Shell|@=\"foreign\""}));
  }
}

TEST(ScriptReplacements, AreFoundInAnyLetterCaseAndOnlyWhole) {
  ScriptReplacements replacements;
  replacements.Add(L"APPID", L"{A}");
  replacements.Add(L"Module", L"/100 %appid%/");
  const std::pair<const wchar_t*, const wchar_t*> kCases[] = {
      {L"%APPID%", L"{A}"},
      {L"x%appid%y%AppId%", L"x{A}y{A}"},
      {L"%OTHER%", L"%OTHER%"},
      {L"%APPID", L"%APPID"},
      {L"100%%APPID%", L"100%{A}"},
      {L"", L""},
      {L"\"%MODULE%\"", L"\"/100 %appid%/\""},
  };
  for (const auto& [text, expanded] : kCases) EXPECT_EQ(replacements.Expand(text), expanded);
}

}  // namespace
