// Clients that come, go and die.

#include <sys/stat.h>
#include <windows.h>

#include <filesystem>

#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

class ComponentClients : public ComponentTest {};

TEST_F(ComponentClients, EachClientHasAnObjectAndOnlyItsOwnGoesWithIt) {
  ServerThread server;
  SamplePointer first = CreateSample();
  EXPECT_EQ(sample::ObjectCount(), 1) << "it exists when creation returns";
  SamplePointer second = CreateSample();
  EXPECT_EQ(CountBy(second), 2);
  first.reset();
  sample::AwaitObjectCount(1);
  EXPECT_EQ(CountBy(second), 1);
  second.reset();
  sample::AwaitObjectCount(0);
}

TEST_F(ComponentClients, TheSocketIsTheOwnersAloneAndGoesWithTheServerAndItsObjects) {
  using std::filesystem::perms;
  auto server = std::make_unique<ServerThread>();
  const SamplePointer client = CreateSample();
  EXPECT_EQ(std::filesystem::status(SocketPath()).permissions(),
            perms::owner_read | perms::owner_write);
  server.reset();
  EXPECT_TRUE(std::filesystem::is_empty(home_.Path("run")));
  EXPECT_EQ(sample::ObjectCount(), 0);
}

TEST_F(ComponentClients, ASocketLeftByADeadServerIsReplaced) {
  std::filesystem::create_directories(home_.Path("run"));
  ASSERT_EQ(mknod(SocketPath().c_str(), S_IFSOCK | 0600, 0), 0);
  HRESULT status = S_OK;
  EXPECT_EQ(CreateSample(&status), nullptr);
  EXPECT_EQ(status, CO_E_SERVER_EXEC_FAILURE);
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
  EXPECT_EQ(client->CountObjects(&count), kServerUnavailable) << "the first one had served it";
  // Until the second has noticed, nobody listens.
  while (!(client = CreateSample())) {
  }
  EXPECT_TRUE(Answers(client));
}

TEST_F(ComponentClients, ThePublishingThreadGetsItsObjectWithoutTheSocket) {
  std::thread([] {
    const HRESULT status = sample::Serve(sample::ServeUntil::kQuit, [] {
      EXPECT_EQ(CountBy(CreateSample()), 1);
      PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
    });
    EXPECT_EQ(status, S_OK);
  }).join();
}

}  // namespace
}  // namespace component_test
