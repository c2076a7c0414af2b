#include "tests/support/process.h"

#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

namespace support {

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::optional<std::string> Process::ReadLine(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  std::size_t line_end = 0;
  while ((line_end = buffer_.find('\n')) == std::string::npos) {
    if (!Fill(end)) return std::nullopt;
  }
  std::string line = buffer_.substr(0, line_end);
  buffer_.erase(0, line_end + 1);
  return line;
}

std::string Process::ReadAll(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (Fill(end)) {
  }
  return std::exchange(buffer_, "");
}

Finished RunToEnd(const Words& command, const Surroundings& surroundings) {
  Process process(command, surroundings);
  Finished finished;
  finished.out = process.ReadAll();
  finished.exit_status = process.Wait();
  finished.err = ReadFile(surroundings.error_file);
  std::erase(finished.err, '\r');
  return finished;
}

}  // namespace support
