#include <gtest/gtest.h>
#include <windows.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>

#include "platform/linux/hive_file.h"
#include "tests/unit/platform/scratch_home.h"

namespace {

using linux_host::HiveFile;
using linux_host::RegistryKey;
using linux_host::RegistryValue;

RegistryValue Number(std::uint8_t number) { return {.type = REG_BINARY, .data = {number}}; }

// The files at the file system's own level; the registry calls come in further down.
class HiveFileTest : public testing::Test {
 protected:
  std::string path() const { return (home_.directory() / "registry").string(); }

  static std::uint32_t Set(HiveFile& hive, const std::wstring& name, const RegistryValue& value) {
    return hive.Change([&](RegistryKey& root, bool* altered) {
      root.values[name] = value;
      *altered = true;
      return std::uint32_t{ERROR_SUCCESS};
    });
  }

  // The first byte of a value; -1 when there is none, -2 when the hive cannot be read.
  static int Get(HiveFile& hive, const std::wstring& name) {
    const RegistryKey* root = nullptr;
    if (hive.Read(&root) != ERROR_SUCCESS) return -2;
    const auto found = root->values.find(name);
    return found == root->values.end() ? -1 : found->second.data[0];
  }

  void WriteText(const std::string& text) { std::ofstream(path(), std::ios::binary) << text; }

  static std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static pid_t InChild(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    return child;
  }

  static int ExitOf(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  ScratchHome home_;
};

TEST_F(HiveFileTest, EachWriteIsSeenByOthersAtOnce) {
  HiveFile one(path());
  HiveFile other(path());
  // Often enough for the file system to use its inode numbers again.
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(0u, Set(i % 2 ? one : other, L"n", Number(static_cast<std::uint8_t>(i))));
    ASSERT_EQ(i, Get(one, L"n"));
    ASSERT_EQ(i, Get(other, L"n"));
  }
  std::filesystem::remove(path());
  EXPECT_EQ(-1, Get(one, L"n"));
}

TEST_F(HiveFileTest, WritersInSeveralProcessesLoseNothing) {
  constexpr int kWriters = 4;
  constexpr int kValues = 15;
  pid_t children[kWriters];
  for (int writer = 0; writer < kWriters; ++writer) {
    children[writer] = InChild([&] {
      HiveFile hive(path());
      for (int i = 0; i < kValues; ++i) {
        const auto name = std::to_wstring(writer) + L"/" + std::to_wstring(i);
        if (Set(hive, name, Number(1)) != 0) return 1;
      }
      return 0;
    });
  }
  for (const pid_t child : children) EXPECT_EQ(0, ExitOf(child));
  HiveFile hive(path());
  const RegistryKey* root = nullptr;
  ASSERT_EQ(0u, hive.Read(&root));
  EXPECT_EQ(std::size_t{kWriters * kValues}, root->values.size());
}

TEST_F(HiveFileTest, AWriterKilledAtAnyMomentLeavesAWholeHiveAndNoLock) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  HiveFile hive(path());
  ASSERT_EQ(0u, Set(hive, L"a", Number(0)));
  ASSERT_EQ(0u, Set(hive, L"b", Number(0)));
  for (int round = 0; round < 40; ++round) {
    const pid_t child = InChild([&]() -> int {
      HiveFile own(path());
      for (std::uint8_t i = 1;; ++i) {
        own.Change([i](RegistryKey& root, bool* altered) {
          root.values[L"a"] = root.values[L"b"] = Number(i);
          *altered = true;
          return std::uint32_t{ERROR_SUCCESS};
        });
      }
    });
    // Somewhere in the middle of a write, after the first was seen.
    const int before = Get(hive, L"a");
    while (Get(hive, L"a") == before) {
    }
    usleep(random() % 20000);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const int left = Get(hive, L"a");
    ASSERT_GE(left, 0);
    ASSERT_EQ(left, Get(hive, L"b"));
    ASSERT_EQ(0u, Set(hive, L"a", Number(0)));
    ASSERT_EQ(0u, Set(hive, L"b", Number(0)));
  }
}

TEST_F(HiveFileTest, AFailedWriteChangesNothing) {
  HiveFile hive(path());
  ASSERT_EQ(0u, Set(hive, L"n", Number(7)));
  const std::string before = ReadText(path());
  EXPECT_EQ(0, ExitOf(InChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit = {10, 10};
              setrlimit(RLIMIT_FSIZE, &limit);
              HiveFile own(path());
              if (Set(own, L"n", Number(8)) != ERROR_WRITE_FAULT) return 1;
              return Get(own, L"n") == 7 ? 0 : 2;
            })));
  EXPECT_EQ(before, ReadText(path()));
  EXPECT_FALSE(std::filesystem::exists(path() + ".new"));

  const RegistryValue too_large{.type = REG_BINARY, .data = std::vector<BYTE>(2 << 20)};
  EXPECT_EQ(std::uint32_t{ERROR_NO_SYSTEM_RESOURCES}, Set(hive, L"n", too_large));
  EXPECT_EQ(7, Get(hive, L"n"));

  HiveFile nowhere((home_.directory() / "missing" / "registry").string());
  EXPECT_EQ(std::uint32_t{ERROR_WRITE_FAULT}, Set(nowhere, L"n", Number(1)));
}

TEST_F(HiveFileTest, ADamagedHiveIsRefusedThenKeptAside) {
  for (const std::string text : {"garbage", "Wirefox registry 1\n[A]\n"}) {
    WriteText(text);
    HiveFile hive(path());
    const RegistryKey* root = nullptr;
    EXPECT_EQ(std::uint32_t{ERROR_REGISTRY_CORRUPT}, hive.Read(&root));
    EXPECT_EQ(text, ReadText(path())) << "reading touches nothing";
    EXPECT_EQ(0u, Set(hive, L"n", Number(1)));
    EXPECT_EQ(1, Get(hive, L"n"));
    std::filesystem::remove(path());
  }
  EXPECT_EQ("garbage", ReadText(path() + ".damaged-1"));
  EXPECT_EQ("Wirefox registry 1\n[A]\n", ReadText(path() + ".damaged-2"));
}

TEST_F(HiveFileTest, AnythingButAFileIsDamageAndNotWaitedFor) {
  const std::function<void()> cases[] = {
      [&] { ASSERT_EQ(0, mkfifo(path().c_str(), 0600)); },
      [&] { std::filesystem::create_directory(path()); },
      [&] { WriteText(std::string(linux_host::kLargestHive + 1, ';')); },
  };
  for (const auto& make : cases) {
    make();
    HiveFile hive(path());
    EXPECT_EQ(-2, Get(hive, L"n"));
    EXPECT_EQ(0u, Set(hive, L"n", Number(1)));
    std::filesystem::remove(path());
  }
}

TEST_F(HiveFileTest, RegistryCallsRecoverFromDamageWhenAKeyIsCreated) {
  WriteText("garbage");
  HKEY key = nullptr;
  EXPECT_EQ(ERROR_REGISTRY_CORRUPT, RegOpenKeyExW(HKEY_CLASSES_ROOT, L"AppID", 0, KEY_READ, &key));
  ASSERT_EQ(0, RegCreateKeyExW(HKEY_CLASSES_ROOT, L"AppID", 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_READ, nullptr, &key, nullptr));
  HKEY below = nullptr;
  EXPECT_EQ(ERROR_ACCESS_DENIED, RegCreateKeyExW(key, L"Below", 0, nullptr, REG_OPTION_NON_VOLATILE,
                                                 KEY_READ, nullptr, &below, nullptr))
      << "opened for reading only";
  RegCloseKey(key);
  EXPECT_EQ("garbage", ReadText(path() + ".damaged-1"));
}

TEST_F(HiveFileTest, WritingWhatStandsThereAlreadyLeavesTheFileAlone) {
  HKEY key = nullptr;
  ASSERT_EQ(0, RegCreateKeyExW(HKEY_CLASSES_ROOT, L"AppID", 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_ALL_ACCESS, nullptr, &key, nullptr));
  const auto set = [&](BYTE byte) { return RegSetValueExW(key, L"v", 0, REG_BINARY, &byte, 1); };
  struct stat before, after;
  ASSERT_EQ(0, set(1));
  stat(path().c_str(), &before);
  ASSERT_EQ(0, set(1));
  stat(path().c_str(), &after);
  EXPECT_EQ(before.st_ino, after.st_ino);
  ASSERT_EQ(0, set(2));
  stat(path().c_str(), &after);
  EXPECT_NE(before.st_ino, after.st_ino);
  RegCloseKey(key);
}

TEST_F(HiveFileTest, AKeyThatAnotherProcessDeletedAnswersSo) {
  HKEY key = nullptr;
  ASSERT_EQ(0, RegCreateKeyExW(HKEY_CLASSES_ROOT, L"Gone", 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_ALL_ACCESS, nullptr, &key, nullptr));
  EXPECT_EQ(0, ExitOf(InChild([] { return RegDeleteKeyW(HKEY_CLASSES_ROOT, L"Gone"); })));
  EXPECT_EQ(ERROR_KEY_DELETED, RegSetValueExW(key, L"v", 0, REG_NONE, nullptr, 0));
  EXPECT_EQ(0, RegCloseKey(key));
}

}  // namespace
