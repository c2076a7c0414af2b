// What is left of an installation when nothing is registered any more.

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "platform/linux/com/leftovers.h"
#include "tests/unit/platform/child_process.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

class Leftovers : public ComponentTest {
 protected:
  Names RemoveThem() const {
    linux_host::RemoveLeftovers(sample::kLibrary);
    Names names;
    for (const auto& entry : fs::recursive_directory_iterator(home_.directory())) {
      names.insert(entry.path().lexically_relative(home_.directory()));
    }
    return names;
  }
};

TEST_F(Leftovers, OfKilledProcessesGoOnceNothingIsRegistered) {
  for (const char* folder : {"run/locks/Long+", "systemd", "dbus-1/services"}) {
    fs::create_directories(home_.Path(folder));
  }
  Names names = {"dbus-1", "dbus-1/services", "registry",        "registry.lock",
                 "run",    "run/locks",       "run/locks/Long+", "systemd"};
  for (const char* file : {"sock", "serve", "start"}) {
    names.insert(std::string("run/org.wirefox.Sample.") + file);
  }
  names.insert({"run/locks/Long+/er", "run/locks/Theirs"});
  for (const std::string& name : names) std::ofstream(home_.Path(name), std::ios::app);
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"OfThisProcess");
  names.insert("run/locks/OfThisProcess");
  EXPECT_EQ(RemoveThem(), names);
  Unregister();
  EXPECT_EQ(RemoveThem(), Names());
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

TEST_F(Leftovers, ThatSomebodyUsesStayAndGoWithTheirUser) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  ChildProcess holder([&] {
    CreateMutexW(nullptr, FALSE, L"OfAnother");
    if (write(ready[1], "x", 1) == 1) pause();
    return 0;
  });
  char byte;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  for (const int end : ready) close(end);
  ServerThread server;
  Unregister();
  EXPECT_EQ(RemoveThem(), (Names{"run", "run/locks", "run/locks/OfAnother",
                                 "run/org.wirefox.Sample.serve", "run/org.wirefox.Sample.sock"}));
  EXPECT_TRUE(holder.End() < 0);
  server.Stop();
  EXPECT_EQ(RemoveThem(), Names());
}

}  // namespace
}  // namespace component_test
