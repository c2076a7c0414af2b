// Clients that come, go and die.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <windows.h>

#include <filesystem>

#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

class ComponentClients : public ComponentTest {};

// A client in a process of its own, which runs `work` and then waits to be killed.
class ClientProcess {
 public:
  template <typename Work>
  explicit ClientProcess(Work work) : process_(fork()) {
    if (process_ != 0) return;
    work();
    for (;;) pause();
  }
  ~ClientProcess() { Kill(); }

  void Kill() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = 0;
  }

 private:
  pid_t process_;
};

TEST_F(ComponentClients, EachClientHasAnObjectAndOnlyItsOwnGoesWithIt) {
  ServerThread server;
  SamplePointer first = CreateSample();
  SamplePointer second = CreateSample();
  ASSERT_TRUE(first && second);
  LONG count = 0;
  ASSERT_EQ(second->CountObjects(&count), S_OK);
  EXPECT_EQ(count, 2);
  first.reset();
  sample::AwaitObjectCount(1);
  ASSERT_EQ(second->CountObjects(&count), S_OK);
  EXPECT_EQ(count, 1);
  second.reset();
  sample::AwaitObjectCount(0);
}

TEST_F(ComponentClients, TheObjectExistsWhenCreationReturns) {
  ServerThread server;
  const SamplePointer client = CreateSample();
  EXPECT_EQ(sample::ObjectCount(), 1);
}

// The child is forked before the server's thread starts, so that it begins with one thread.
TEST_F(ComponentClients, AClientKilledInItsCallHarmsNobody) {
  sample::Gate::Close();
  ClientProcess killed([] {
    SamplePointer client;
    while (client == nullptr) client = CreateSample();
    LONG passed = 0;
    client->WaitAtGate(&passed);
  });
  // The registered server cannot start, so the child comes through once this one serves.
  ServerThread server;
  sample::Gate::AwaitCaller();
  killed.Kill();
  sample::Gate::Open();
  sample::AwaitObjectCount(0);
  const SamplePointer client = CreateSample();
  ASSERT_NE(client, nullptr);
  LONG sum = 0;
  EXPECT_EQ(client->Sum(20, 22, &sum), S_OK);
  EXPECT_EQ(sum, 42);
}

TEST_F(ComponentClients, AStopPostedDuringACallTakesEffectAfterIt) {
  sample::Gate::Close();
  auto server = std::make_unique<ServerThread>();
  const SamplePointer client = CreateSample();
  const SamplePointer other = CreateSample();
  ASSERT_TRUE(client && other);
  LONG passed = 0;
  std::thread caller([&] { EXPECT_EQ(client->WaitAtGate(&passed), S_OK); });
  sample::Gate::AwaitCaller();
  HRESULT late = S_OK;
  std::thread waiting([&] {
    LONG sum = 0;
    late = other->Sum(1, 1, &sum);
  });
  std::thread opener([&] {
    // Stop posts the quit message first and then waits for the thread.
    server.reset();
  });
  sample::Gate::Open();
  caller.join();
  opener.join();
  waiting.join();
  EXPECT_EQ(passed, 1);
  EXPECT_TRUE(late == S_OK || late == static_cast<HRESULT>(0x800706BA)) << std::hex << late;
  EXPECT_EQ(sample::ObjectCount(), 0);
}

TEST_F(ComponentClients, RevokingRemovesTheSocketAndReleasesTheObjects) {
  auto server = std::make_unique<ServerThread>();
  const SamplePointer client = CreateSample();
  EXPECT_TRUE(std::filesystem::exists(SocketPath()));
  server.reset();
  EXPECT_FALSE(std::filesystem::exists(SocketPath()));
  EXPECT_EQ(sample::ObjectCount(), 0);
}

TEST_F(ComponentClients, ASocketLeftByADeadServerIsReplaced) {
  std::filesystem::create_directories(home() + "/run");
  ASSERT_EQ(mknod(SocketPath().c_str(), S_IFSOCK | 0600, 0), 0);
  HRESULT status = S_OK;
  EXPECT_EQ(CreateSample(&status), nullptr);
  EXPECT_EQ(status, static_cast<HRESULT>(0x80080005));
  ServerThread server;
  EXPECT_NE(CreateSample(), nullptr);
}

TEST_F(ComponentClients, ASecondServerTakesOverWhenTheFirstEnds) {
  auto first = std::make_unique<ServerThread>();
  ServerThread second;
  SamplePointer client = CreateSample();
  ASSERT_NE(client, nullptr);
  first.reset();
  LONG count = 0;
  EXPECT_EQ(client->CountObjects(&count), static_cast<HRESULT>(0x800706BA))
      << "the first one had served it";
  // Until the second has noticed, nobody listens.
  while ((client = CreateSample()) == nullptr) {
  }
  EXPECT_EQ(client->CountObjects(&count), S_OK);
}

TEST_F(ComponentClients, ThePublishingThreadGetsItsObjectWithoutTheSocket) {
  std::thread([] {
    ASSERT_EQ(sample::Serve(
                  [] {
                    const SamplePointer own = CreateSample();
                    ASSERT_NE(own, nullptr);
                    LONG count = 0;
                    EXPECT_EQ(own->CountObjects(&count), S_OK);
                    EXPECT_EQ(count, 1);
                    PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
                  },
                  {}),
              S_OK);
  }).join();
}

TEST_F(ComponentClients, SecurityCannotBeChosenOnceAClassIsPublished) {
  ServerThread server;
  auto Choose = [](void* descriptor) {
    return CoInitializeSecurity(descriptor, 0, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE,
                                RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr);
  };
  EXPECT_EQ(Choose(nullptr), RPC_E_TOO_LATE);
  int descriptor = 0;
  EXPECT_EQ(Choose(&descriptor), E_INVALIDARG) << "access is the socket's permissions";
}

TEST_F(ComponentClients, OnlyTheOwnerMayConnect) {
  ServerThread server;
  const auto permissions = std::filesystem::status(SocketPath()).permissions();
  EXPECT_EQ(permissions, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

}  // namespace
}  // namespace component_test
