// Servers that are started for their clients.

#include <objbase.h>
#include <windows.h>

#include <fstream>

#include "platform/linux/kernel/text.h"
#include "platform/linux/services/server_process.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

const std::wstring kServer = linux_host::Utf8ToWide("\"" COMPONENT_SERVER "\"");

class ComponentActivation : public ComponentTest {
 protected:
  ComponentActivation() { Register(kServer); }

  // The last argument of each.
  std::vector<std::string> Starts() const {
    std::ifstream file(home_.Path("starts"));
    std::vector<std::string> starts;
    for (std::string line; std::getline(file, line);) starts.push_back(line);
    return starts;
  }
};

TEST_F(ComponentActivation, ClientsThatComeTogetherStartOneServer) {
  std::vector<std::thread> threads;
  std::vector<SamplePointer> clients(6);
  for (SamplePointer& client : clients) {
    threads.emplace_back([&client] { client = CreateSample(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Starts(), std::vector<std::string>{"-Embedding"});
  EXPECT_EQ(CountBy(clients[0]), 6);
}

TEST_F(ComponentActivation, AClientThatMeetsAnEndingServerGetsANewOne) {
  for (int i = 0; i < 30; ++i) ASSERT_TRUE(Answers(CreateSample())) << i;
}

TEST_F(ComponentActivation, AServerThatCannotServeIsAFailureAtOnce) {
  const struct {
    const char* what;
    std::wstring command;
    std::size_t starts;
  } cases[] = {
      {"no such program", L"\"/nonexistent/server\"", 0},
      {"a directory", L"/tmp", 0},
      {"ends without serving", kServer + L" --fail", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Register(c.command);
    HRESULT status = S_OK;
    EXPECT_EQ(CreateSample(&status), nullptr);
    EXPECT_EQ(status, CO_E_SERVER_EXEC_FAILURE);
    EXPECT_EQ(Starts().size(), c.starts);
  }
}

TEST_F(ComponentActivation, CreationHasItsPreconditions) {
  void* object = &object;
  const auto create = [](const GUID& id, DWORD context, const IID& interface, void** result) {
    return CoCreateInstance(id, nullptr, context, interface, result);
  };
  EXPECT_EQ(create(sample::kClassId, CLSCTX_INPROC_SERVER, IID_IUnknown, &object),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(create(sample::kClassId, CLSCTX_LOCAL_SERVER, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(create(sample::kClassId, CLSCTX_LOCAL_SERVER, IID_IClassFactory, &object),
            E_NOINTERFACE);
  EXPECT_EQ(create(sample::kLibraryId, CLSCTX_LOCAL_SERVER, IID_IUnknown, &object),
            REGDB_E_CLASSNOTREG);
  const ScratchHome without_registration;
  EXPECT_EQ(create(sample::kClassId, CLSCTX_LOCAL_SERVER, IID_IUnknown, &object),
            REGDB_E_CLASSNOTREG);
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
