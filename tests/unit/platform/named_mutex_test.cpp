#include <gtest/gtest.h>
#include <windows.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "platform/linux/kernel/home.h"
#include "tests/unit/platform/child_process.h"
#include "tests/unit/platform/scratch_home.h"
#include "tests/unit/random_seed.h"

namespace {

// A home of its own stands for an installation of its own. Locks that this process has opened stay
// as they are: each test has a name of its own.
class NamedMutexes : public testing::Test {
 protected:
  const ScratchHome home_;
  const std::wstring name_ = L"Mutex" + std::to_wstring(++g_tests);
  static inline int g_tests = 0;
};

TEST_F(NamedMutexes, AnotherAccountIsRefusedWithError5) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to become another account";
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
  ASSERT_NE(nullptr, mutex);
  // The directories are opened to all, so that the mutex alone refuses.
  for (const char* below : {"", "run", "run/locks"}) chmod(home_.Path(below).c_str(), 0777);
  const std::string path = home_.Path("run/locks/" + std::string(name_.begin(), name_.end()));
  // The forked process has this name open already, and asks for the same file by another one.
  EXPECT_EQ(0, link(path.c_str(), (path + "b").c_str()));
  const std::wstring other = name_ + L"b";
  ChildProcess stranger([&] {
    if (setuid(65534) != 0) return 1;
    if (CreateMutexW(nullptr, TRUE, other.c_str())) return 2;
    return GetLastError() == 5 ? 0 : 3;
  });
  EXPECT_EQ(0, stranger.Await());
  CloseHandle(mutex);
}

// Root's may lie in the directory of the service's account.
TEST_F(NamedMutexes, NothingThatAnotherAccountPutThereIsUsedOrFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to be several accounts";
  namespace fs = std::filesystem;
  const fs::path locks = home_.Path("run/locks"), elsewhere = home_.Path("elsewhere");
  const fs::path file = locks / fs::path(name_);
  fs::create_directories(locks);
  const int planted = open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
  ASSERT_EQ(0, fchown(planted, 65534, 65534));
  ASSERT_EQ(4, pwrite(planted, "kept", 4, 0));
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
  EXPECT_NE(nullptr, mutex);
  struct stat status;
  ASSERT_EQ(0, stat(file.c_str(), &status));
  EXPECT_EQ(geteuid(), status.st_uid);
  ASSERT_EQ(0, fstat(planted, &status));
  EXPECT_EQ(4, status.st_size);
  close(planted);

  fs::rename(locks, elsewhere);
  fs::create_directory_symlink(elsewhere, locks);
  EXPECT_EQ(nullptr, CreateMutexW(nullptr, FALSE, (name_ + L"b").c_str()));
  EXPECT_EQ(5U, GetLastError());
  EXPECT_EQ(1, std::distance(fs::directory_iterator(elsewhere), {}));

  fs::remove(locks);
  fs::create_directory(locks);
  std::ofstream(home_.Path("own")) << "kept";
  fs::create_hard_link(home_.Path("own"), locks / fs::path(name_ + L"c"));
  const HANDLE other = CreateMutexW(nullptr, FALSE, (name_ + L"c").c_str());
  EXPECT_EQ(4U, fs::file_size(home_.Path("own")));
  for (const HANDLE opened : {mutex, other}) EXPECT_TRUE(CloseHandle(opened));
}

TEST_F(NamedMutexes, OwnerThatIsKilledLeavesItAbandonedAndUsable) {
  std::mt19937 random(unit::RandomSeed());
  // Held open here, so that it is never made anew; the forked owners share it.
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
  for (int round = 0; round < 30; ++round) {
    int pipe_ends[2];
    ASSERT_EQ(0, pipe(pipe_ends));
    ChildProcess owner([&] {
      for (bool told = false;; told = true) {
        WaitForSingleObject(mutex, INFINITE);
        if (!told && write(pipe_ends[1], "x", 1) != 1) return 1;
        ReleaseMutex(mutex);
      }
    });
    char byte;
    ASSERT_EQ(1, read(pipe_ends[0], &byte, 1));
    usleep(random() % 2000);  // anywhere in its loop
    owner.End();
    for (const int end : pipe_ends) close(end);
    const DWORD result = WaitForSingleObject(mutex, 10000);
    EXPECT_TRUE(result == WAIT_ABANDONED || result == WAIT_OBJECT_0) << result;
    EXPECT_TRUE(ReleaseMutex(mutex));
  }
  CloseHandle(mutex);
}

TEST_F(NamedMutexes, ProcessesThatOpenItAtOnceShareOneLock) {
  // A byte that every holder takes out of the pipe and puts back: two at once find it empty.
  int baton[2];
  ASSERT_EQ(0, pipe2(baton, O_NONBLOCK));
  ASSERT_EQ(1, write(baton[1], "x", 1));
  std::deque<ChildProcess> children;
  for (int process = 0; process < 16; ++process) {
    children.emplace_back([&] {
      const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
      for (int i = 0; i < 200; ++i) {
        if (WaitForSingleObject(mutex, 20000) != WAIT_OBJECT_0) return 1;
        char byte = 0;
        if (read(baton[0], &byte, 1) != 1) return 2;
        if (write(baton[1], &byte, 1) != 1) return 3;
        if (!ReleaseMutex(mutex)) return 4;
      }
      return 0;
    });
  }
  for (ChildProcess& child : children) EXPECT_EQ(0, child.Await());
  for (const int end : baton) close(end);
}

TEST_F(NamedMutexes, OneThatOnlyADeadProcessHadIsMadeAnew) {
  ChildProcess owner([&] {
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, name_.c_str());
    return mutex && GetLastError() == 0 ? 0 : 1;
  });
  EXPECT_EQ(0, owner.Await());
  // Its file is still there, and proves nothing.
  EXPECT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, name_.c_str()));
  EXPECT_EQ(2U, GetLastError());
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
  EXPECT_EQ(0U, GetLastError());
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, 0));
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

TEST(Home, EverythingLiesBelowWirefoxHomeWhenThatIsSet) {
  const ScratchHome home;
  const std::string deep = home.Path("deep/er");
  setenv("WIREFOX_HOME", (deep + "///").c_str(), 1);
  using linux_host::HomeKind;
  EXPECT_EQ(deep + "/run", linux_host::HomePath(HomeKind::kRuntime));
  EXPECT_EQ(deep, linux_host::HomePath(HomeKind::kState));
  struct stat status;
  ASSERT_EQ(0, stat((deep + "/run").c_str(), &status));
  EXPECT_EQ(0700U, status.st_mode & 0777);
}

}  // namespace
