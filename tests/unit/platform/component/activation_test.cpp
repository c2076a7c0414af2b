// Servers that are started for their clients.

#include <objbase.h>
#include <unistd.h>
#include <windows.h>

#include <filesystem>
#include <fstream>

#include "platform/linux/server_process.h"
#include "platform/linux/text.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

class ComponentActivation : public ComponentTest {
 protected:
  void SetUp() override {
    ComponentTest::SetUp();
    RegisterServer("");
  }

  void RegisterServer(const std::string& arguments) {
    Register(linux_host::Utf8ToWide("\"" COMPONENT_SERVER "\"" + arguments));
  }

  std::vector<std::string> Starts() const {
    std::ifstream file(home() + "/starts");
    std::vector<std::string> starts;
    for (std::string line; std::getline(file, line);) starts.push_back(line);
    return starts;
  }
};

TEST_F(ComponentActivation, AnUnregisteredClassIsRefused) {
  OLECHAR id[40];
  StringFromGUID2(sample::kClassId, id, 40);
  const std::wstring path = L"CLSID\\" + std::wstring(id) + L"\\LocalServer32";
  ASSERT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, path.c_str()), ERROR_SUCCESS);
  HRESULT status = S_OK;
  EXPECT_EQ(CreateSample(&status), nullptr);
  EXPECT_EQ(status, REGDB_E_CLASSNOTREG);
}

TEST_F(ComponentActivation, TheFirstClientStartsTheServerAndTheNextOneSharesIt) {
  const SamplePointer first = CreateSample();
  ASSERT_NE(first, nullptr);
  const SamplePointer second = CreateSample();
  ASSERT_NE(second, nullptr);
  LONG count = 0;
  EXPECT_EQ(second->CountObjects(&count), S_OK);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(Starts(), std::vector<std::string>{"-Embedding"});
}

TEST_F(ComponentActivation, ClientsThatComeTogetherStartOneServer) {
  constexpr int kClients = 6;
  std::vector<std::thread> threads;
  std::vector<SamplePointer> clients(kClients);
  for (SamplePointer& client : clients) {
    threads.emplace_back([&client] { client = CreateSample(); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const SamplePointer& client : clients) ASSERT_NE(client, nullptr);
  EXPECT_EQ(Starts().size(), 1u);
  LONG count = 0;
  EXPECT_EQ(clients[0]->CountObjects(&count), S_OK);
  EXPECT_EQ(count, kClients);
}

TEST_F(ComponentActivation, AClientThatMeetsAnEndingServerGetsANewOne) {
  for (int i = 0; i < 30; ++i) {
    const SamplePointer client = CreateSample();
    ASSERT_NE(client, nullptr) << i;
    LONG sum = 0;
    ASSERT_EQ(client->Sum(i, 1, &sum), S_OK) << i;
    ASSERT_EQ(sum, i + 1);
  }
}

TEST_F(ComponentActivation, AServerThatCannotServeIsAFailureAtOnce) {
  struct Case {
    const char* what;
    std::wstring command;
    std::size_t starts;
  };
  const Case cases[] = {
      {"no such program", L"\"/nonexistent/server\"", 0},
      {"a directory", L"/tmp", 0},
      {"ends without serving", linux_host::Utf8ToWide("\"" COMPONENT_SERVER "\" --fail"), 1},
  };
  for (const Case& c : cases) {
    Register(c.command);
    HRESULT status = S_OK;
    EXPECT_EQ(CreateSample(&status), nullptr) << c.what;
    EXPECT_EQ(status, CO_E_SERVER_EXEC_FAILURE) << c.what;
    EXPECT_EQ(Starts().size(), c.starts) << c.what;
  }
}

TEST_F(ComponentActivation, CreationHasItsPreconditions) {
  void* object = &object;
  std::thread([&] {
    EXPECT_EQ(
        CoCreateInstance(sample::kClassId, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object),
        REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(
        CoCreateInstance(sample::kLibraryId, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, &object),
        REGDB_E_CLASSNOTREG);
    EXPECT_EQ(
        CoCreateInstance(sample::kClassId, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, nullptr),
        E_POINTER);
  }).join();
  EXPECT_EQ(
      CoCreateInstance(sample::kClassId, nullptr, CLSCTX_LOCAL_SERVER, IID_IClassFactory, &object),
      E_NOINTERFACE);
}

TEST(ServerCommand, IsSplitAtBlanksOutsideQuotes) {
  using Words = std::vector<std::string>;
  const std::pair<const char*, Words> cases[] = {
      {"", {}},
      {"  ", {}},
      {"/usr/bin/server", {"/usr/bin/server"}},
      {"\"/opt/my tools/server\"", {"/opt/my tools/server"}},
      {"\"/opt/my tools/server\"  -a \t b", {"/opt/my tools/server", "-a", "b"}},
      {"server \"\" x", {"server", "", "x"}},
      {"\"unclosed quote", {"unclosed quote"}},
      {"\"/opt/my 7\"tools/server\" -a", {"/opt/my 7\"tools/server", "-a"}},
  };
  for (const auto& [command, words] : cases) {
    EXPECT_EQ(linux_host::SplitCommand(command), words) << command;
  }
}

}  // namespace
}  // namespace component_test
