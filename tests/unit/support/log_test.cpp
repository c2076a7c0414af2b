#include "support/log.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/test_host.h"
#include "tests/unit/scratch_folder.h"

namespace {

// The sixth of a month, and hours, minutes and seconds of one digit: Fri Sep 06 08:05:03 2024.
constexpr std::int64_t kFixedTime = 1725609903;

class LogTest : public testing::Test {
 protected:
  LogTest() : path_(folder_.Path("service.log")) { test_host::FixWallClock(kFixedTime); }
  ~LogTest() override {
    OpenLog("", 0);
    test_host::FixWallClock(-1);
  }

  void Open(std::int32_t level) { OpenLog(path_.c_str(), level); }
  std::string Content() const { return folder_.Read("service.log"); }

  unit::ScratchFolder folder_;
  std::string path_;
};

TEST_F(LogTest, LinesAreTheSameBytesOnEveryHost) {
  Open(31);
  Log(LOG_TRACE, "CTzDevice::SetMode()", "mode=%u external=%u", 4U, true);
  Log(LOG_API | LOG_TRACE, "CTzWirefox::AcquireDevice", "");
  Log(LOG_XFER, "x", "VID=%4.4X, PID=%2.2X %x %d%% file %s", 0xFU, 0x1002, 255U, -5, "a.hex");
  Log(LOG_XFER, "x", "endpt=%u, bfr=%p, len=%u", 132, reinterpret_cast<void*>(0x1234abcd), 5);
  Log(LOG_XFER, "x", "%p", nullptr);
  EXPECT_EQ(
      "Fri Sep 06 08:05:03 2024 [CTzDevice::SetMode()]mode=4 external=1\r\n"
      "Fri Sep 06 08:05:03 2024 [CTzWirefox::AcquireDevice]\r\n"
      "Fri Sep 06 08:05:03 2024 [x]VID=000F, PID=1002 ff -5% file a.hex\r\n"
      "Fri Sep 06 08:05:03 2024 [x]endpt=132, bfr=000000001234ABCD, len=5\r\n"
      "Fri Sep 06 08:05:03 2024 [x]0000000000000000\r\n",
      Content());
}

TEST_F(LogTest, LevelIsAMaskOfCategories) {
  struct Case {
    std::int32_t level;
    const char* lines;
  };
  const Case cases[] = {
      {1, "error "},
      {2, "device "},
      {3, "error device "},
      {4, "client "},
      {8, "notice transfer "},
      {16, "client transfer probe "},
      {31, "error device client notice transfer probe "},
  };
  for (const Case& c : cases) {
    Open(c.level);
    Log(LOG_ERROR, "s", "error ");
    Log(LOG_DEVICE, "s", "device ");
    Log(LOG_API | LOG_TRACE, "s", "client ");
    Log(LOG_XFER, "s", "notice ");
    Log(LOG_XFER | LOG_TRACE, "s", "transfer ");
    Log(LOG_TRACE, "s", "probe ");
    std::string lines;
    const std::string content = Content();
    for (std::size_t at = 0; (at = content.find(']', at)) != std::string::npos; ++at) {
      lines += content.substr(at + 1, content.find('\r', at) - at - 1);
    }
    EXPECT_EQ(c.lines, lines) << c.level;
  }
}

TEST_F(LogTest, LevelZeroCreatesAndEmptiesNoFile) {
  Open(0);
  Log(LOG_ERROR, "s", "lost");
  EXPECT_FALSE(folder_.Holds("service.log"));
  folder_.Write("service.log", "old");
  Open(0);
  EXPECT_EQ("old", Content());
}

TEST_F(LogTest, StartingAgainEmptiesTheFile) {
  folder_.Write("service.log", "old");
  Open(16);
  EXPECT_EQ("", Content());
}

TEST_F(LogTest, NegativeLevelLogsAllAndKeepsOldContent) {
  folder_.Write("service.log", "old\r\n");
  Open(-1);
  Log(LOG_DEVICE, "s", "new");
  EXPECT_EQ("old\r\nFri Sep 06 08:05:03 2024 [s]new\r\n", Content());
}

TEST_F(LogTest, LongMessagesAreCut) {
  Open(31);
  const std::string text(5000, 'x');
  Log(LOG_ERROR, "s", "%s", text.c_str());
  EXPECT_EQ("Fri Sep 06 08:05:03 2024 [s]" + std::string(4095, 'x') + "\r\n", Content());
}

TEST_F(LogTest, FileThatCannotBeOpenedIsTriedAgainAtEachLine) {
  const std::string path = folder_.Path("later") + "/service.log";
  OpenLog(path.c_str(), 31);
  Log(LOG_ERROR, "s", "lost");
  std::filesystem::create_directory(folder_.Path("later"));
  Log(LOG_ERROR, "s", "kept");
  EXPECT_EQ("Fri Sep 06 08:05:03 2024 [s]kept\r\n", folder_.Read("later/service.log"));
}

TEST_F(LogTest, LinesOfSeveralThreadsStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  Open(31);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i] {
      const std::string text(100, static_cast<char>('a' + i));
      for (int line = 0; line < kLines; ++line) Log(LOG_TRACE, "t", "%s", text.c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::map<std::string, int> lines;
  const std::string content = Content();
  for (std::size_t at = 0; at < content.size();) {
    const std::size_t end = content.find("\r\n", at);
    ASSERT_NE(std::string::npos, end);
    ++lines[content.substr(at, end - at)];
    at = end + 2;
  }
  std::map<std::string, int> expected;
  for (int i = 0; i < kThreads; ++i) {
    expected["Fri Sep 06 08:05:03 2024 [t]" + std::string(100, static_cast<char>('a' + i))] =
        kLines;
  }
  EXPECT_EQ(expected, lines);
}

TEST_F(LogTest, CallersLastErrorIsKept) {
  path_ = folder_.Path("no such folder") + "/service.log";
  Open(31);
  SetLastError(997);
  Log(LOG_ERROR, "s", "fails to open");
  EXPECT_EQ(997U, GetLastError());
}

}  // namespace
