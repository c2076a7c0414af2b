// A folder of a test's own, and the log as a test reads it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "support/log.h"

namespace unit {

// Removed at its end with all that is in it, as far as the host lets go of the files.
class ScratchFolder {
 public:
  ScratchFolder() {
    char name[32];
    std::snprintf(name, sizeof name, "wirefox-%08x%08x", std::random_device{}(),
                  std::random_device{}());
    path_ = std::filesystem::temp_directory_path() / name;
    std::filesystem::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& directory() const { return path_; }
  std::string Path(const std::string& name) const { return (path_ / name).string(); }

  std::string Write(const std::string& name, std::string_view content) const {
    std::ofstream file(Path(name), std::ios::binary);
    file << content;
    return Path(name);
  }

  std::string Read(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  bool Holds(const std::string& name) const { return std::filesystem::exists(Path(name)); }

 private:
  std::filesystem::path path_;
};

// The log of a test, at `level`, off again at its end.
class LogFile {
 public:
  explicit LogFile(std::int32_t level) : path_(folder_.Path("service.log")) {
    OpenLog(path_.c_str(), level);
  }
  // Closes the file, so that it can be removed.
  ~LogFile() { OpenLog("", 0); }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // The lines so far without their times.
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    const std::string text = folder_.Read("service.log");
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find("\r\n", at);
      const std::string line = text.substr(at, end - at);
      lines.push_back(line.substr(line.find('[')));
      if (end == std::string::npos) break;
      at = end + 2;
    }
    return lines;
  }

  // Those since the last call.
  std::vector<std::string> Take() {
    std::vector<std::string> lines = Lines();
    const std::size_t taken = std::exchange(taken_, lines.size());
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(taken));
    return lines;
  }

 private:
  ScratchFolder folder_;
  std::string path_;
  std::size_t taken_ = 0;
};

}  // namespace unit
