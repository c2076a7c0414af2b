#include "support/log.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/test_host.h"
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

// In each month, and then now. The test's own zone is far from UTC where that can be said.
TEST_F(LogTest, TimeIsThatOfTheUsersClock) {
  for (int month = 0; month <= 12; ++month) {
    const std::int64_t fixed = month < 12 ? kFixedTime + month * 30 * 86400 : -1;
    test_host::FixWallClock(fixed);
    Open(31);
    const auto now_text = [&] {
      const std::time_t now = fixed < 0 ? std::time(nullptr) : fixed;
      const std::tm* const time = fixed < 0 ? std::localtime(&now) : std::gmtime(&now);
      char text[64];
      std::strftime(text, sizeof text, "%a %b %d %H:%M:%S %Y [s]\r\n", time);
      return std::string(text);
    };
    const std::string before = now_text();
    Log(LOG_ERROR, "s", "");
    EXPECT_TRUE(Content() == before || Content() == now_text()) << Content() << before;
  }
}

TEST_F(LogTest, LevelIsAMaskOfCategories) {
  const struct {
    std::int32_t level;
    const char* lines;
  } cases[] = {
      {1, "error "},
      {2, "device "},
      {4, "client "},
      {8, "notice transfer "},
      {16, "client transfer probe "},
      {31, "error device client notice transfer probe "},
  };
  for (const auto& [level, expected] : cases) {
    const unit::LogFile log(level);
    Log(LOG_ERROR, "", "error ");
    Log(LOG_DEVICE, "", "device ");
    Log(LOG_API | LOG_TRACE, "", "client ");
    Log(LOG_XFER, "", "notice ");
    Log(LOG_XFER | LOG_TRACE, "", "transfer ");
    Log(LOG_TRACE, "", "probe ");
    std::string lines;
    for (const std::string& line : log.Lines()) lines += line.substr(2);
    EXPECT_EQ(expected, lines) << level;
  }
}

TEST_F(LogTest, OpeningEmptiesTheFileOnlyAtAPositiveLevel) {
  const std::string added = "Fri Sep 06 08:05:03 2024 [s]new\r\n";
  for (const auto& [level, content] :
       {std::pair{0, std::string("old\r\n")}, {16, ""}, {2, added}, {-1, "old\r\n" + added}}) {
    folder_.Write("service.log", "old\r\n");
    Open(level);
    Log(LOG_DEVICE, "s", "new");
    EXPECT_EQ(content, Content()) << level;
  }
  OpenLog(folder_.Path("never").c_str(), 0);
  Log(LOG_ERROR, "s", "lost");
  EXPECT_FALSE(folder_.Holds("never"));
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
  SetLastError(997);
  Log(LOG_ERROR, "s", "lost");
  EXPECT_EQ(997U, GetLastError()) << "callers read that of what they log about";
  std::filesystem::create_directory(folder_.Path("later"));
  Log(LOG_ERROR, "s", "kept");
  EXPECT_EQ("Fri Sep 06 08:05:03 2024 [s]kept\r\n", folder_.Read("later/service.log"));
}

TEST_F(LogTest, LinesOfSeveralThreadsStayWhole) {
  const unit::LogFile log(31);
  std::map<std::string, int> expected;
  std::vector<std::thread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    const std::string text(100, letter);
    expected["[t]" + text] = 500;
    threads.emplace_back([text] {
      for (int line = 0; line < 500; ++line) Log(LOG_TRACE, "t", "%s", text.c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::map<std::string, int> lines;
  for (const std::string& line : log.Lines()) ++lines[line];
  EXPECT_EQ(expected, lines);
}

}  // namespace
