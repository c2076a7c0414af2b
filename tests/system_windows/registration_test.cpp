// The three registrations, by what they leave in the registry and in the service manager.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "tests/system_windows/installation.h"
#include "tests/system_windows/registrar.h"
#include "tests/system_windows/registry_text.h"
#include "tests/system_windows/text.h"

namespace system_windows {
namespace {

// What a registration as a plain local server adds. $A, $C and $L are the ids of application, class
// and library, $P is the program's path, $F its folder.
const char* const kLocalServer[] = {
    R"(AppID\$A)",
    R"(AppID\$A|@="TzWirefoxService")",
    R"(AppID\TzWirefoxService.EXE)",
    R"(AppID\TzWirefoxService.EXE|AccessPermission=hex:)"
    "01000480580000006800000000000000140000000200440003000000000014000700000001010000000000050a0000"
    "00"
    "0000140003000000010100000000000512000000000014000300000001010000000000050400000001020000000000"
    "05"
    "200000002002000001020000000000052000000020020000",
    R"(AppID\TzWirefoxService.EXE|AppID="$A")",
    R"(CLSID\$C)",
    R"(CLSID\$C|@="TzWirefox Class")",
    R"(CLSID\$C|AppID="$A")",
    R"(CLSID\$C\LocalServer32)",
    R"(CLSID\$C\LocalServer32|@=""$P"")",
    R"(CLSID\$C\ProgID)",
    R"(CLSID\$C\ProgID|@="TzWirefoxService.TzWirefox.1")",
    R"(CLSID\$C\Programmable)",
    R"(CLSID\$C\TypeLib)",
    R"(CLSID\$C\TypeLib|@="$L")",
    R"(CLSID\$C\VersionIndependentProgID)",
    R"(CLSID\$C\VersionIndependentProgID|@="TzWirefoxService.TzWirefox")",
    R"(Typelib\$L)",
    R"(Typelib\$L\1.0)",
    R"(Typelib\$L\1.0|@="TzWirefoxService 1.0 Type Library")",
    R"(Typelib\$L\1.0\409)",
    R"(Typelib\$L\1.0\409\win64)",
    R"(Typelib\$L\1.0\409\win64|@="$P")",
    R"(Typelib\$L\1.0\FLAGS)",
    R"(Typelib\$L\1.0\FLAGS|@="8")",
    R"(Typelib\$L\1.0\HELPDIR)",
    R"(Typelib\$L\1.0\HELPDIR|@="$F")",
    R"(TzWirefoxService.TzWirefox)",
    R"(TzWirefoxService.TzWirefox|@="TzWirefox Class")",
    R"(TzWirefoxService.TzWirefox\CLSID)",
    R"(TzWirefoxService.TzWirefox\CLSID|@="$C")",
    R"(TzWirefoxService.TzWirefox\CurVer)",
    R"(TzWirefoxService.TzWirefox\CurVer|@="TzWirefoxService.TzWirefox.1")",
    R"(TzWirefoxService.TzWirefox.1)",
    R"(TzWirefoxService.TzWirefox.1|@="TzWirefox Class")",
    R"(TzWirefoxService.TzWirefox.1\CLSID)",
    R"(TzWirefoxService.TzWirefox.1\CLSID|@="$C")",
};

// $I and $N are id and name of an interface.
const char* const kInterface[] = {
    R"(Interface\$I)",
    R"(Interface\$I|@="$N")",
    R"(Interface\$I\ProxyStubClsid)",
    R"(Interface\$I\ProxyStubClsid|@="{00020424-0000-0000-C000-000000000046}")",
    R"(Interface\$I\ProxyStubClsid32)",
    R"(Interface\$I\ProxyStubClsid32|@="{00020424-0000-0000-C000-000000000046}")",
    R"(Interface\$I\TypeLib)",
    R"(Interface\$I\TypeLib|@="$L")",
    R"(Interface\$I\TypeLib|Version="1.0")",
};

const std::pair<const char*, const char*> kInterfaces[] = {
    {"{3E503520-1800-4D75-88B9-7B5612047C4C}", "ITzWirefox_v1"},
    {"{C71D7ACB-D11F-4B8E-BBD4-64E565B527AA}", "ITzWirefox_v2"},
    {"{C6F5E48A-A968-4A37-BB5F-459CC174FAE7}", "ITzWirefox_v3"}};

// What a registration as a service has beside that.
const char* const kService[] = {
    R"(Services\TzWirefoxService)",
    R"(Services\TzWirefoxService|DependOnService=hex(7):520050004300530053000000)"
    "0000",  // RPCSS alone
    R"(Services\TzWirefoxService|DisplayName="TzWirefoxService")",
    R"(Services\TzWirefoxService|ErrorControl=dword:00000001)",
    R"(Services\TzWirefoxService|ImagePath=""$P"")",
    R"(Services\TzWirefoxService|ObjectName="LocalSystem")",
    R"(Services\TzWirefoxService|PreshutdownTimeout=dword:0002bf20)",
    R"(Services\TzWirefoxService|Start=dword:00000003)",
    R"(Services\TzWirefoxService|Type=dword:00000010)",
    R"(AppID\$A|LocalService="TzWirefoxService")",
};

using Lines = std::vector<std::string>;

Lines Filled(std::span<const char* const> lines, const std::map<char, std::string>& texts) {
  Lines filled;
  for (std::string line : lines) {
    for (std::size_t at = 0; (at = line.find('$', at)) != line.npos;) {
      const std::string& text = texts.at(line[at + 1]);
      line.replace(at, 2, text);
      at += text.size();
    }
    filled.push_back(std::string("+") + line);
  }
  return filled;
}

// Everything that the server's registration may touch, but for the copy that the system keeps for
// 32-bit programs.
Lines ReadRegistered() {
  Lines lines = RegistryLines("HKLM\\Software\\Classes");
  std::erase_if(lines, [](const std::string& line) { return line.starts_with("Wow6432Node"); });
  for (const std::string& line : RegistryLines("HKLM\\System\\CurrentControlSet\\Services")) {
    lines.push_back(std::string("Services\\") + line);
  }
  return lines;
}

class Registration : public Installation {
 protected:
  Lines Expected(bool as_service) const {
    std::map<char, std::string> texts = {{'A', "{176DAFBD-EC7C-45F6-A7CE-F1A21DB7B674}"},
                                         {'C', "{6D1561D8-24CB-4B8E-ABBB-564080B9D86D}"},
                                         {'L', "{F7698827-7595-4F60-A744-54C97FC392EE}"},
                                         {'P', program().string()},
                                         {'F', program().parent_path().string()}};
    Lines lines = Filled(kLocalServer, texts);
    const auto add = [&](std::span<const char* const> more) {
      const Lines filled = Filled(more, texts);
      lines.insert(lines.end(), filled.begin(), filled.end());
    };
    for (const auto& [id, name] : kInterfaces) {
      texts['I'] = id;
      texts['N'] = name;
      add(kInterface);
    }
    if (as_service) add(kService);
    std::ranges::sort(lines);
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
