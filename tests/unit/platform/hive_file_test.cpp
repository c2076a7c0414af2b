#include <gtest/gtest.h>
#include <windows.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>

#include "platform/linux/registry/classes_key.h"
#include "platform/linux/registry/registry.h"
#include "tests/unit/platform/child_process.h"
#include "tests/unit/platform/scratch_home.h"
#include "tests/unit/random_seed.h"

namespace {

using linux_host::ClassesKey;
using linux_host::HiveFile;
using linux_host::RegistryKey;
using linux_host::RegistryValue;

RegistryValue Number(std::uint8_t number) { return {.type = REG_BINARY, .data = {number}}; }

// The files at the file system's own level; the registry calls come in further down.
class HiveFileTest : public testing::Test {
 protected:
  // Sets the values of both names in one change.
  static std::uint32_t Set(HiveFile& hive, const std::wstring& name, const RegistryValue& value,
                           const std::wstring& other_name) {
    return hive.Change([&](RegistryKey& root, bool* altered) {
      root.values[name] = root.values[other_name] = value;
      *altered = true;
      return std::uint32_t{ERROR_SUCCESS};
    });
  }
  static std::uint32_t Set(HiveFile& hive, const std::wstring& name, const RegistryValue& value) {
    return Set(hive, name, value, name);
  }

  // The first byte of a value; -1 when there is none, -2 when the hive cannot be read.
  static int Get(HiveFile& hive, const std::wstring& name) {
    const RegistryKey* root = nullptr;
    if (hive.Read(&root) != ERROR_SUCCESS) return -2;
    const auto found = root->values.find(name);
    return found == root->values.end() ? -1 : found->second.data[0];
  }

  void WriteText(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }

  ino_t Inode() const {
    struct stat state = {};
    stat(path_.c_str(), &state);
    return state.st_ino;
  }

  const ScratchHome home_;
  const std::string path_ = home_.Path("registry");
};

TEST_F(HiveFileTest, EachWriteIsSeenByOthersAtOnce) {
  HiveFile one(path_);
  HiveFile other(path_);
  // Often enough for the file system to use its inode numbers again.
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(0u, Set(i % 2 ? one : other, L"n", Number(static_cast<std::uint8_t>(i))));
    ASSERT_EQ(i, Get(one, L"n"));
    ASSERT_EQ(i, Get(other, L"n"));
  }
  std::filesystem::remove(path_);
  EXPECT_EQ(-1, Get(one, L"n"));
}

TEST_F(HiveFileTest, AWriterKilledAtAnyMomentLeavesAWholeHiveAndNoLock) {
  std::mt19937 random(unit::RandomSeed());
  HiveFile hive(path_);
  for (int round = 0; round < 40; ++round) {
    ASSERT_EQ(0u, Set(hive, L"a", Number(0), L"b"));
    ChildProcess writer([&]() -> int {
      HiveFile own(path_);
      for (std::uint8_t i = 1;; ++i) Set(own, L"a", Number(i), L"b");
    });
    // Somewhere in the middle of a write, after the first was seen.
    while (Get(hive, L"a") == 0) {
    }
    usleep(random() % 20000);
    writer.End();
    const int left = Get(hive, L"a");
    ASSERT_GE(left, 0);
    ASSERT_EQ(left, Get(hive, L"b"));
  }
}

TEST_F(HiveFileTest, IsRemovedOnlyWhileItHoldsNothingButKeysBelowItsRoot) {
  const std::string contents[] = {"\"v\"=\"\"\n", "[A]\n\"v\"=\"\"\n", "[A\\B]\n", "[A\n"};
  for (const std::string& content : contents) {
    WriteText("Wirefox registry 1\n" + content + "end\n");
    EXPECT_FALSE(HiveFile(path_).RemoveIfBare()) << content;
    EXPECT_TRUE(std::filesystem::exists(path_)) << content;
  }
  WriteText("Wirefox registry 1\n[A]\n[B]\nend\n");
  EXPECT_TRUE(HiveFile(path_).RemoveIfBare());
  EXPECT_TRUE(std::filesystem::is_empty(home_.directory()));
}

TEST_F(HiveFileTest, WritersAndRemoversInSeveralProcessesLoseNothing) {
  ChildProcess remover([&]() -> int {
    for (HiveFile hive(path_);;) hive.RemoveIfBare();
  });
  std::deque<ChildProcess> writers;
  for (const wchar_t* name : {L"a", L"b", L"c"}) {
    writers.emplace_back([&, name] {
      HiveFile hive(path_);
      const auto erase = [&](RegistryKey& root, bool* altered) {
        *altered = root.values.erase(name) == 1;
        return static_cast<std::uint32_t>(*altered ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND);
      };
      for (int i = 0; i < 100; ++i) {
        if (Set(hive, name, Number(1)) != 0 || hive.Change(erase) != 0) return 1;
      }
      return 0;
    });
  }
  for (ChildProcess& writer : writers) EXPECT_EQ(0, writer.Await());
}

TEST_F(HiveFileTest, AFailedWriteChangesNothing) {
  HiveFile hive(path_);
  ASSERT_EQ(0u, Set(hive, L"n", Number(7)));
  const std::string before = home_.Read("registry");
  ChildProcess without_room([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {10, 10};
    setrlimit(RLIMIT_FSIZE, &limit);
    HiveFile own(path_);
    if (Set(own, L"n", Number(8)) != ERROR_WRITE_FAULT) return 1;
    return Get(own, L"n") == 7 ? 0 : 2;
  });
  EXPECT_EQ(0, without_room.Await());
  EXPECT_EQ(before, home_.Read("registry"));
  EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));

  const RegistryValue too_large{.type = REG_BINARY, .data = std::vector<BYTE>(2 << 20)};
  EXPECT_EQ(std::uint32_t{ERROR_NO_SYSTEM_RESOURCES}, Set(hive, L"n", too_large));
  EXPECT_EQ(7, Get(hive, L"n"));

  HiveFile nowhere(home_.Path("missing/registry"));
  EXPECT_EQ(std::uint32_t{ERROR_WRITE_FAULT}, Set(nowhere, L"n", Number(1)));
}

TEST_F(HiveFileTest, WhatIsNoHiveIsRefusedAtOnceThenKeptAside) {
  const std::string cut = "Wirefox registry 1\n[A]\n";
  const std::function<void()> cases[] = {
      [&] { WriteText(cut); },
      [&] { ASSERT_EQ(0, mkfifo(path_.c_str(), 0600)); },
      [&] { std::filesystem::create_directory(path_); },
      [&] { WriteText(std::string(linux_host::kMaxHiveBytes + 1, ';')); },
  };
  for (const auto& make : cases) {
    make();
    HiveFile hive(path_);
    const RegistryKey* root = nullptr;
    const ino_t before = Inode();
    EXPECT_EQ(std::uint32_t{ERROR_REGISTRY_CORRUPT}, hive.Read(&root));
    EXPECT_EQ(before, Inode()) << "reading touches nothing";
    EXPECT_EQ(0u, Set(hive, L"n", Number(1)));
    EXPECT_EQ(1, Get(hive, L"n"));
    std::filesystem::remove(path_);
  }
  EXPECT_EQ(cut, home_.Read("registry.damaged-1"));
  EXPECT_TRUE(std::filesystem::is_directory(path_ + ".damaged-3"));
}

TEST_F(HiveFileTest, RegistryCallsRecoverFromDamageWhenAKeyIsCreated) {
  WriteText("garbage");
  HKEY key = nullptr;
  EXPECT_EQ(ERROR_REGISTRY_CORRUPT, RegOpenKeyExW(HKEY_CLASSES_ROOT, L"AppID", 0, KEY_READ, &key));
  EXPECT_TRUE(ClassesKey().Create(L"AppID"));
  EXPECT_EQ("garbage", home_.Read("registry.damaged-1"));
}

TEST_F(HiveFileTest, WritingWhatStandsThereAlreadyLeavesTheFileAlone) {
  ClassesKey key;
  ASSERT_TRUE(key.Create(L"AppID") && key.Set(L"v", L"1"));
  const ino_t before = Inode();
  ASSERT_TRUE(key.Set(L"v", L"1"));
  EXPECT_EQ(before, Inode());
  ASSERT_TRUE(key.Set(L"v", L"2"));
  EXPECT_NE(before, Inode());
}

TEST_F(HiveFileTest, AKeyThatAnotherProcessDeletedAnswersSo) {
  ClassesKey key;
  ASSERT_TRUE(key.Create(L"Gone"));
  EXPECT_EQ(0, ChildProcess([] { return RegDeleteKeyW(HKEY_CLASSES_ROOT, L"Gone"); }).Await());
  EXPECT_FALSE(key.Set(L"v", L"1"));
  ClassesKey other;
  ASSERT_TRUE(other.Create(L"Here") && ClassesKey().Create(L"Before"));
  EXPECT_EQ(0, RegDeleteKeyW(HKEY_CLASSES_ROOT, L"Before"));
  EXPECT_TRUE(other.Set(L"v", L"1")) << "not this one";
}

TEST(RegistryView, TheUsersOwnHiveHidesTheMachines) {
  RegistryKey user;
  RegistryKey machine;
  user.values[L"path"] = Number(1);
  machine.values[L"PATH"] = Number(2);
  machine.values[L"machine"] = Number(3);
  for (const wchar_t* name : {L"Both", L"User"}) user.FindOrCreate({name});
  for (const wchar_t* name : {L"BOTH", L"Machine"}) machine.FindOrCreate({name});

  const linux_host::KeyView view({&user, &machine}, true);
  EXPECT_EQ(1, view.FindValue(L"Path")->data[0]);
  EXPECT_EQ(3, view.FindValue(L"Machine")->data[0]);
  EXPECT_EQ(nullptr, view.FindValue(L"none"));
  using Names = std::set<std::wstring, linux_host::NameLess>;
  EXPECT_EQ((Names{L"Both", L"Machine", L"User"}), view.SubkeyNames());
}

}  // namespace
