#include <gtest/gtest.h>
#include <windows.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "platform/linux/window/message_loop.h"

namespace {

// Serves the bytes of a pipe, a given number at a time, and notes them.
class PipeSource : public linux_host::MessageLoopSource {
 public:
  explicit PipeSource(std::string& log) : log_(log) {
    EXPECT_EQ(0, pipe2(ends_, O_CLOEXEC | O_NONBLOCK));
    linux_host::AddMessageLoopSource(this);
  }
  ~PipeSource() override {
    linux_host::RemoveMessageLoopSource(this);
    close(ends_[0]);
    close(ends_[1]);
  }

  void Write(const std::string& text) const {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), write(ends_[1], text.data(), text.size()));
  }

  void AppendDescriptors(std::vector<pollfd>& descriptors) override {
    ++waits;
    descriptors.push_back({ends_[0], POLLIN, 0});
  }
  int WaitLimitMs() override { return -1; }
  bool Dispatch(const pollfd* ready, std::size_t count) override {
    EXPECT_EQ(1U, count);
    EXPECT_EQ(ends_[0], ready->fd);
    char byte;
    if (read(ends_[0], &byte, 1) != 1) return false;
    log_ += byte;
    if (byte == 'q') PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
    if (byte == 'm') PostThreadMessageW(GetCurrentThreadId(), WM_APP, 0, 0);
    return true;
  }

  int waits = 0;

 private:
  std::string& log_;
  int ends_[2];
};

std::string RunLoop(std::string& log) {
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) log += 'M';
  return std::exchange(log, {});
}

TEST(MessageLoop, ServesASourceAndLooksForMessagesBetweenItsCalls) {
  std::string log;
  PipeSource source(log);
  source.Write("abmcq");
  // The message that serving 'm' posts is taken before 'c' is served.
  EXPECT_EQ("abmMcq", RunLoop(log));
  // What was known to wait was served without looking at the descriptors again.
  EXPECT_EQ(1, source.waits);
}

}  // namespace
