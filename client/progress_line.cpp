#include "client/progress_line.h"

namespace client {

namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kInterval{100};

}  // namespace

void ProgressText::Begin(Time now) {
  goes_on_ = true;
  begin_ = now;
  text_.clear();
}

std::string ProgressText::Draw(Time now) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now - begin_);
  if (!goes_on_ || seconds < kPatience || text_.empty()) return "";
  const std::string line = text_ + ", " + std::to_string(seconds.count()) + " s";
  if (line == drawn_) return "";
  std::string output = "\r" + line;
  if (line.size() < drawn_.size()) output.append(drawn_.size() - line.size(), ' ');
  drawn_ = line;
  return output;
}

std::string ProgressText::End() {
  goes_on_ = false;
  if (drawn_.empty()) return "";
  std::string wipe(drawn_.size() + 2, ' ');
  wipe.front() = wipe.back() = '\r';
  drawn_.clear();
  return wipe;
}

ProgressLine::ProgressLine(std::ostream& err)
    : err_(err), thread_([this](const std::stop_token& stop) { Run(stop); }) {}

void ProgressLine::Begin() {
  const std::lock_guard lock(mutex_);
  text_.Begin(std::chrono::steady_clock::now());
  changed_.notify_one();
}

void ProgressLine::Show(const std::string& text) {
  const std::lock_guard lock(mutex_);
  text_.Show(text);
}

void ProgressLine::End() {
  const std::lock_guard lock(mutex_);
  if (const std::string wipe = text_.End(); !wipe.empty()) err_ << wipe << std::flush;
}

void ProgressLine::Run(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested() && changed_.wait(lock, stop, [this] { return text_.goes_on(); })) {
    const std::string line = text_.Draw(std::chrono::steady_clock::now());
    if (!line.empty()) err_ << line << std::flush;
    changed_.wait_for(lock, stop, kInterval, [] { return false; });
  }
}

}  // namespace client
