// The line on a terminal that says what a command is waiting for. It appears when the command has
// taken a second, is drawn over itself, and is wiped out at the end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace client {

// What is to be written, and when.
class ProgressText {
 public:
  using Time = std::chrono::steady_clock::time_point;

  void Begin(Time now);
  // Nothing to be shown when it is empty.
  void Show(const std::string& text) { text_ = text; }
  // Empty when there is nothing to draw.
  std::string Draw(Time now);
  // Wipes out what is drawn.
  std::string End();
  bool goes_on() const { return goes_on_; }

 private:
  bool goes_on_ = false;
  Time begin_{};
  std::string text_;
  std::string drawn_;
};

// Draws on a thread of its own, since whoever waits cannot. Between Begin and End nobody else
// writes to the stream.
class ProgressLine {
 public:
  explicit ProgressLine(std::ostream& err);

  void Begin();
  void Show(const std::string& text);
  void End();

 private:
  void Run(const std::stop_token& stop);

  std::ostream& err_;
  std::mutex mutex_;
  std::condition_variable_any changed_;
  ProgressText text_;
  std::jthread thread_;  // the last member: it uses the others
};

}  // namespace client
