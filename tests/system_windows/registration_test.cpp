// The three registrations, by what they leave in the registry and in the service manager.
#include <gtest/gtest.h>
#include <windows.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/system_windows/installation.h"
#include "tests/system_windows/registrar.h"
#include "tests/system_windows/registry_text.h"
#include "tests/system_windows/text.h"

namespace system_windows {
namespace {

// What a registration as a plain local server adds. %PATH% is the program's path, %FOLDER% its
// folder, %INTERFACES% what follows for each of the three.
constexpr wchar_t kLocalServer[] =
    LR"(AppID\TzWirefoxService.EXE\ = key
AppID\TzWirefoxService.EXE\AccessPermission = bytes 01000480580000006800000000000000140000000200440003000000000014000700000001010000000000050a000000000014000300000001010000000000051200000000001400030000000101000000000005040000000102000000000005200000002002000001020000000000052000000020020000
AppID\TzWirefoxService.EXE\AppID = text {176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}
AppID\{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}\ = key
AppID\{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}\@ = text TzWirefoxService
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\ = key
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\@ = text TzWirefox Class
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\AppID = text {176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\LocalServer32\ = key
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\LocalServer32\@ = text "%PATH%"
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\ProgID\ = key
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\ProgID\@ = text TzWirefoxService.TzWirefox.1
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\Programmable\ = key
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\TypeLib\ = key
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\TypeLib\@ = text {F7698827-7595-4F60-A744-54C97FC392EE}
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\VersionIndependentProgID\ = key
CLSID\{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}\VersionIndependentProgID\@ = text TzWirefoxService.TzWirefox
%INTERFACES%Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\ = key
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\ = key
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\409\ = key
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\409\win64\ = key
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\409\win64\@ = text %PATH%
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\@ = text TzWirefoxService 1.0 Type Library
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\FLAGS\ = key
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\FLAGS\@ = text 8
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\HELPDIR\ = key
Typelib\{F7698827-7595-4F60-A744-54C97FC392EE}\1.0\HELPDIR\@ = text %FOLDER%
TzWirefoxService.TzWirefox.1\ = key
TzWirefoxService.TzWirefox.1\@ = text TzWirefox Class
TzWirefoxService.TzWirefox.1\CLSID\ = key
TzWirefoxService.TzWirefox.1\CLSID\@ = text {6D1561D8-24CB-4B8E-ABBB-564080B9D86D}
TzWirefoxService.TzWirefox\ = key
TzWirefoxService.TzWirefox\@ = text TzWirefox Class
TzWirefoxService.TzWirefox\CLSID\ = key
TzWirefoxService.TzWirefox\CLSID\@ = text {6D1561D8-24CB-4B8E-ABBB-564080B9D86D}
TzWirefoxService.TzWirefox\CurVer\ = key
TzWirefoxService.TzWirefox\CurVer\@ = text TzWirefoxService.TzWirefox.1
)";

constexpr wchar_t kInterface[] =
    LR"(Interface\%ID%\ = key
Interface\%ID%\@ = text %NAME%
Interface\%ID%\ProxyStubClsid32\ = key
Interface\%ID%\ProxyStubClsid32\@ = text {00020424-0000-0000-C000-000000000046}
Interface\%ID%\ProxyStubClsid\ = key
Interface\%ID%\ProxyStubClsid\@ = text {00020424-0000-0000-C000-000000000046}
Interface\%ID%\TypeLib\ = key
Interface\%ID%\TypeLib\@ = text {F7698827-7595-4F60-A744-54C97FC392EE}
Interface\%ID%\TypeLib\Version = text 1.0
)";

// In the registry's order.
constexpr std::pair<const wchar_t*, const wchar_t*> kInterfaces[] = {
    {L"{3E503520-1800-4D75-88B9-7B5612047C4C}", L"ITzWirefox_v1"},
    {L"{C6F5E48A-A968-4A37-BB5F-459CC174FAE7}", L"ITzWirefox_v3"},
    {L"{C71D7ACB-D11F-4B8E-BBD4-64E565B527AA}", L"ITzWirefox_v2"}};

void Replace(std::wstring& text, const std::wstring& what, const std::wstring& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
}

// What a registration as a service has beside that.
constexpr wchar_t kLocalServiceLine[] =
    L"+Classes\\AppID\\{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}\\LocalService = text "
    L"TzWirefoxService";
constexpr wchar_t kServiceKey[] = L"+Services\\TzWirefoxService\\";

class Registration : public Installation {
 protected:
  // The lines of the table that stand for the installed program.
  std::vector<std::wstring> ExpectedClasses() const {
    std::vector<std::wstring> lines;
    std::wstring text = kLocalServer;
    std::wstring interfaces;
    for (const auto& [id, name] : kInterfaces) {
      std::wstring one = kInterface;
      Replace(one, L"%ID%", id);
      Replace(one, L"%NAME%", name);
      interfaces += one;
    }
    Replace(text, L"%INTERFACES%", interfaces);
    Replace(text, L"%PATH%", program().wstring());
    Replace(text, L"%FOLDER%", program().parent_path().wstring());
    std::wistringstream table(text);
    for (std::wstring line; std::getline(table, line);) lines.push_back(L"+Classes\\" + line);
    return lines;
  }

  // What has changed since the test began, but for the copy that the system keeps for 32-bit
  // programs.
  std::vector<std::wstring> Changes() const {
    auto lines = Differences(before_, ReadRegistered());
    std::erase_if(
        lines, [](const std::wstring& line) { return line.find(L"Classes\\Wow6432Node\\") == 1; });
    return lines;
  }

  // Of these, takes those that begin so.
  static std::vector<std::wstring> Take(std::vector<std::wstring>& lines,
                                        const std::wstring& beginning) {
    std::vector<std::wstring> taken;
    std::erase_if(lines, [&](const std::wstring& line) {
      if (!line.starts_with(beginning)) return false;
      taken.push_back(line);
      return true;
    });
    return taken;
  }

  void ExpectNothingLeft() { EXPECT_EQ(Differences(before_, ReadRegistered()), NoLines()); }
  static std::vector<std::wstring> NoLines() { return {}; }

  const RegistryText before_ = ReadRegistered();
};

TEST_F(Registration, OfALocalServerWritesItsEntriesAndUnregisteringRemovesThem) {
  for (const wchar_t* folder : {L"wirefox", L"with blanks and 'quotes' of %APPID%"}) {
    SCOPED_TRACE(Utf8(folder));
    Install(folder);
    EXPECT_EQ(Run("/regserver"), 0);
    EXPECT_EQ(Changes(), ExpectedClasses());
    EXPECT_EQ(Run("-UnregServer"), 0);
    ExpectNothingLeft();
  }
}

TEST_F(Registration, OfAServiceWritesTheServiceAsWellAndOfALocalServerTakesItAway) {
  Install(L"with blanks");
  // A second time it is removed and created anew.
  for (int run = 0; run < 2; ++run) {
    EXPECT_EQ(Run("-SERVICE"), 0);
    auto lines = Changes();
    EXPECT_EQ(Take(lines, kLocalServiceLine), std::vector<std::wstring>{kLocalServiceLine});
    const auto service = Take(lines, kServiceKey);
    EXPECT_EQ(lines, ExpectedClasses());
    const std::wstring key = kServiceKey;
    EXPECT_EQ(service, (std::vector<std::wstring>{
                           key + L" = key",
                           key + L"DependOnService = list RPCSS|",
                           key + L"DisplayName = text TzWirefoxService",
                           key + L"ErrorControl = number 1",
                           key + L"ImagePath = text \"" + program().wstring() + L"\"",
                           key + L"ObjectName = text LocalSystem",
                           key + L"PreshutdownTimeout = number 180000",
                           key + L"Start = number 3",
                           key + L"Type = number 16",
                       }));
  }
  EXPECT_EQ(Run("-RegServer"), 0);
  EXPECT_EQ(Changes(), ExpectedClasses());
}

TEST_F(Registration, OfARunningServerIsRemovedAndStopsIt) {
  Install();
  ASSERT_EQ(Run("-Service"), 0);
  ASSERT_TRUE(StartInstalledService());
  ASSERT_TRUE(WaitUntil([] { return ServiceState() == SERVICE_RUNNING; }));
  EXPECT_EQ(Run("-UnregServer"), 0);
  EXPECT_TRUE(ServiceProcessesEnd());
  EXPECT_TRUE(WaitUntil([] { return !IsServiceInstalled(); }));
  ExpectNothingLeft();
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
  auto expected = ExpectedClasses();
  Take(expected, L"+Classes\\Interface\\");
  Take(expected, L"+Classes\\Typelib\\");
  EXPECT_EQ(Changes(), expected);
}

TEST_F(Registration, FollowsTheCommandLineAsAWhole) {
  Install(L"a-service");
  EXPECT_EQ(Run("-RegServerX"), 2) << "matches nothing: an unregistered server starts";
  EXPECT_EQ(Run("-Service -RegServer"), 0);
  EXPECT_FALSE(IsServiceInstalled());
  EXPECT_EQ(Run("-RegServer -UnregServer"), 0);
  EXPECT_EQ(Changes(), ExpectedClasses());
  EXPECT_EQ(Run("-UnregServer -RegServer"), 0);
  ExpectNothingLeft();
}

}  // namespace
}  // namespace system_windows
