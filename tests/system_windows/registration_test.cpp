// The three registrations, by what they leave in the registry and in the service manager.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>

#include "tests/system_windows/installation.h"
#include "tests/system_windows/registrar.h"
#include "tests/system_windows/registry_text.h"
#include "tests/system_windows/text.h"

namespace system_windows {
namespace {

// Everything that the server's registration may touch, but for the copy that the system keeps for
// 32-bit programs.
Lines ReadRegistered() {
  Lines lines = RegistryBelow("HKEY_LOCAL_MACHINE\\Software\\Classes");
  std::erase_if(lines, [](const std::string& line) { return line.starts_with("Wow6432Node"); });
  for (const std::string& line :
       RegistryBelow("HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services")) {
    lines.push_back("Services\\" + line);
  }
  std::ranges::sort(lines);
  return lines;
}

class Registration : public Installation {
 protected:
  Lines Expected(bool as_service) const {
    Lines lines = support::RegistrationLines(program(), as_service);
    for (std::string& line : lines) line.insert(0, 1, '+');
    return lines;
  }

  // What has changed since the test began.
  Lines Changes() const { return Differences(before_, ReadRegistered()); }

  void ExpectRegistered(bool as_service) const { EXPECT_EQ(Changes(), Expected(as_service)); }

  const Lines before_ = ReadRegistered();
};

TEST_F(Registration, OfALocalServerWritesItsEntriesAndUnregisteringRemovesThem) {
  for (const wchar_t* folder : {L"wirefox", L"with blanks and 'quotes' of %APPID%"}) {
    SCOPED_TRACE(Utf8(folder));
    Install(folder);
    EXPECT_EQ(Run({"/regserver"}), 0);
    ExpectRegistered(false);
    EXPECT_EQ(Run({"-UnregServer"}), 0);
    EXPECT_EQ(Changes(), Lines());
  }
}

TEST_F(Registration, OfAServiceWritesTheServiceAsWellAndOfALocalServerTakesItAway) {
  Install(L"with blanks");
  // A second time it is removed and created anew.
  for (int run = 0; run < 2; ++run) {
    EXPECT_EQ(Run({"-SERVICE"}), 0);
    ExpectRegistered(true);
  }
  EXPECT_EQ(Run({"-RegServer"}), 0);
  ExpectRegistered(false);
}

TEST_F(Registration, OfARunningServerIsRemovedAndStopsIt) {
  Install();
  ASSERT_EQ(Run({"-Service"}), 0);
  ASSERT_TRUE(StartInstalledService());
  ASSERT_TRUE(WaitUntil([] { return ServiceState() == SERVICE_RUNNING; }));
  EXPECT_EQ(Run({"-UnregServer"}), 0);
  EXPECT_TRUE(ServiceProcessesEnd());
  EXPECT_TRUE(WaitUntil([] { return !IsServiceInstalled(); }));
  EXPECT_EQ(Changes(), Lines());
}

TEST_F(Registration, ScriptsThatTheProgramCarriesWriteTheSame) {
  Install(L"with blanks");
  const auto registrar = CreateRegistrar();
  ASSERT_TRUE(registrar);
  const std::wstring path = program().wstring();
  registrar->AddReplacement(L"APPID", L"{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}");
  registrar->AddReplacement(L"Module", (L"\"" + path + L"\"").c_str());
  EXPECT_EQ(registrar->ResourceRegister(path.c_str(), 101, L"REGISTRY"), S_OK);
  EXPECT_EQ(registrar->ResourceRegister(path.c_str(), 102, L"REGISTRY"), S_OK);
  auto expected = Expected(false);
  std::erase_if(expected, [](const std::string& line) {
    return line.starts_with("+Interface") || line.starts_with("+Typelib");
  });
  EXPECT_EQ(Changes(), expected);
}

TEST_F(Registration, FollowsTheCommandLineAsAWhole) {
  Install(L"a-service");
  EXPECT_EQ(Run({"-RegServerX"}), 2) << "matches nothing: an unregistered server starts";
  EXPECT_EQ(Run({"-Service", "-RegServer"}), 0);
  EXPECT_FALSE(IsServiceInstalled());
  EXPECT_EQ(Run({"-RegServer", "-UnregServer"}), 0);
  ExpectRegistered(false);
  EXPECT_EQ(Run({"-UnregServer", "-RegServer"}), 0);
  EXPECT_EQ(Changes(), Lines());
}

}  // namespace
}  // namespace system_windows
