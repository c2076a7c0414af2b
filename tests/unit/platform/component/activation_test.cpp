// Servers that are started for their clients.

#include <objbase.h>
#include <windows.h>

#include <atomic>
#include <fstream>

#include "platform/linux/com/component_paths.h"
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

TEST_F(ComponentActivation, ClientsThatComeTogetherAndMeetEndingServersAreServed) {
  for (int round = 0; round < 20; ++round) {
    std::vector<std::thread> clients;
    for (int i = 0; i < 8; ++i) {
      clients.emplace_back([=] { EXPECT_TRUE(Answers(CreateSample())) << round; });
    }
    for (std::thread& client : clients) client.join();
  }
}

TEST_F(ComponentActivation, ServersThatOthersHaveUsedUpAreNoFailures) {
  Register(kServer + L" --used-up");
  EXPECT_TRUE(Answers(CreateSample()));
  EXPECT_EQ(Starts().size(), 6u);
  EXPECT_FALSE(std::ifstream(home_.Path("run/org.wirefox.Sample.start"))) << "it is the client's";
}

TEST_F(ComponentActivation, AServerThatCannotServeIsAFailure) {
  const struct {
    const char* what;
    std::wstring command;
    std::size_t starts;  // until then
  } cases[] = {
      {"no such program", L"\"/nonexistent/server\"", 0},
      {"a directory", L"/tmp", 0},
      {"ends without serving", kServer + L" --fail", 1},
      {"ends when it is called", kServer + L" --die", 4},
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

TEST_F(ComponentActivation, NothingIsCreatedWithoutAServerOrByAnInterfaceThatItHasNot) {
  void* object = &object;
  EXPECT_EQ(
      CoCreateInstance(sample::kClassId, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object),
      REGDB_E_CLASSNOTREG);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(
      CoCreateInstance(sample::kClassId, nullptr, CLSCTX_LOCAL_SERVER, IID_IClassFactory, &object),
      E_NOINTERFACE);
}

TEST(StartLock, IsHeldByOneAtATimeAlthoughItsHoldersRemoveIt) {
  const ScratchHome home;
  const linux_host::ComponentDirectory directory(home.directory());
  std::atomic<int> holders = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int taken = 0; taken < 1000;) {
        const linux_host::FileDescriptor lock = directory.TryLock("lock");
        if (!lock.is_open()) continue;
        ++taken;
        EXPECT_EQ(++holders, 1);
        std::this_thread::yield();
        --holders;
        directory.Remove("lock");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
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
