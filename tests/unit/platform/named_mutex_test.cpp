#include <gtest/gtest.h>
#include <windows.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>

#include "platform/linux/home.h"

namespace {

// A directory of its own stands for an installation of its own.
class NamedMutexes : public testing::Test {
 protected:
  void SetUp() override {
    char directory[] = "/tmp/wirefox-mutex-XXXXXX";
    home_ = mkdtemp(directory);
    if (const char* const before = getenv("WIREFOX_HOME")) before_ = before;
    setenv("WIREFOX_HOME", home_.c_str(), 1);
    // Locks that this process has opened stay as they are: each test has names of its own.
    name_ = L"Mutex" + std::to_wstring(++g_tests);
  }
  void TearDown() override {
    setenv("WIREFOX_HOME", before_.c_str(), 1);
    EXPECT_EQ(0, std::system(("rm -rf " + home_).c_str()));
  }

  // Runs `body` in a process of its own; it ends with what `body` returns.
  static pid_t Fork(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    return child;
  }
  static int Await(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  std::string home_;
  std::string before_;
  std::wstring name_;
  static inline int g_tests = 0;
};

TEST_F(NamedMutexes, AnotherAccountIsRefusedWithError5) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to become another account";
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
  ASSERT_NE(nullptr, mutex);
  // The directories are opened to all, so that the mutex alone refuses.
  chmod(home_.c_str(), 0777);
  chmod((home_ + "/run").c_str(), 0777);
  chmod((home_ + "/run/locks").c_str(), 0777);
  const std::string path = home_ + "/run/locks/" + std::string(name_.begin(), name_.end());
  // The forked process has this name open already, and asks for the same file by another one.
  EXPECT_EQ(0, link(path.c_str(), (path + "b").c_str()));
  const std::wstring other = name_ + L"b";
  EXPECT_EQ(0, Await(Fork([&] {
              if (setuid(65534) != 0) return 1;
              if (CreateMutexW(nullptr, TRUE, other.c_str())) return 2;
              return GetLastError() == 5 ? 0 : 3;
            })));
  CloseHandle(mutex);
}

TEST_F(NamedMutexes, OwnerThatIsKilledLeavesItAbandonedAndUsable) {
  const auto seed = std::random_device{}();
  std::printf("seed %u\n", seed);
  std::mt19937 random(seed);
  // Held open here, so that it is never made anew; the forked owners share it.
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
  for (int round = 0; round < 30; ++round) {
    const bool owns_it_for_sure = round % 2 == 0;
    int pipe_ends[2];
    ASSERT_EQ(0, pipe(pipe_ends));
    const pid_t owner = Fork([&] {
      for (bool told = false;; told = true) {
        WaitForSingleObject(mutex, INFINITE);
        if (!told && write(pipe_ends[1], "x", 1) != 1) return 1;
        if (owns_it_for_sure) pause();
        ReleaseMutex(mutex);
      }
    });
    char byte;
    ASSERT_EQ(1, read(pipe_ends[0], &byte, 1));
    if (!owns_it_for_sure) usleep(random() % 2000);  // anywhere in its loop
    kill(owner, SIGKILL);
    Await(owner);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
    const DWORD result = WaitForSingleObject(mutex, 10000);
    if (owns_it_for_sure || result != WAIT_OBJECT_0) {
      EXPECT_EQ(static_cast<DWORD>(WAIT_ABANDONED), result);
    }
    EXPECT_TRUE(ReleaseMutex(mutex));
  }
  CloseHandle(mutex);
}

TEST_F(NamedMutexes, ProcessesThatOpenItAtOnceShareOneLock) {
  constexpr int kProcesses = 16;
  constexpr int kRounds = 200;
  // A byte that every holder takes out of the pipe and puts back: two at once find it empty.
  int baton[2];
  ASSERT_EQ(0, pipe2(baton, O_NONBLOCK));
  ASSERT_EQ(1, write(baton[1], "x", 1));
  pid_t children[kProcesses];
  for (pid_t& child : children) {
    child = Fork([&] {
      const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
      for (int i = 0; i < kRounds; ++i) {
        if (WaitForSingleObject(mutex, 20000) != WAIT_OBJECT_0) return 1;
        char byte = 0;
        if (read(baton[0], &byte, 1) != 1) return 2;
        if (write(baton[1], &byte, 1) != 1) return 3;
        if (!ReleaseMutex(mutex)) return 4;
      }
      return 0;
    });
  }
  for (const pid_t child : children) EXPECT_EQ(0, Await(child));
  close(baton[0]);
  close(baton[1]);
}

TEST_F(NamedMutexes, OneThatOnlyADeadProcessHadIsMadeAnew) {
  EXPECT_EQ(0, Await(Fork([&] {
              const HANDLE mutex = CreateMutexW(nullptr, TRUE, name_.c_str());
              return mutex && GetLastError() == 0 ? 0 : 1;
            })));
  // Its file is still there, and proves nothing.
  EXPECT_EQ(nullptr, OpenMutexW(SYNCHRONIZE, FALSE, name_.c_str()));
  EXPECT_EQ(2U, GetLastError());
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, name_.c_str());
  EXPECT_EQ(0U, GetLastError());
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, 0));
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

TEST_F(NamedMutexes, PlaceWhereNoFileCanBeMadeIsRefused) {
  const std::string file = home_ + "/file";
  EXPECT_EQ(0, std::system(("touch " + file).c_str()));
  setenv("WIREFOX_HOME", (file + "/below").c_str(), 1);
  EXPECT_EQ(nullptr, CreateMutexW(nullptr, FALSE, name_.c_str()));
  EXPECT_EQ(5U, GetLastError());
}

TEST(Home, EverythingLiesBelowWirefoxHomeWhenThatIsSet) {
  const std::string before = getenv("WIREFOX_HOME") ? getenv("WIREFOX_HOME") : "";
  char directory[] = "/tmp/wirefox-home-XXXXXX";
  const std::string base = mkdtemp(directory);
  setenv("WIREFOX_HOME", (base + "/deep/er///").c_str(), 1);
  using linux_host::HomeKind;
  EXPECT_EQ(base + "/deep/er/run", linux_host::HomePath(HomeKind::kRuntime));
  EXPECT_EQ(base + "/deep/er", linux_host::HomePath(HomeKind::kState));
  EXPECT_EQ(base + "/deep/er", linux_host::MachineHomePath(HomeKind::kState));
  struct stat status;
  ASSERT_EQ(0, stat((base + "/deep/er/run").c_str(), &status));
  EXPECT_EQ(0700U, status.st_mode & 0777);
  setenv("WIREFOX_HOME", before.c_str(), 1);
  EXPECT_EQ(0, std::system(("rm -rf " + base).c_str()));
}

}  // namespace
