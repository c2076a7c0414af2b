// A WIREFOX_HOME of a test's own.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class ScratchHome {
 public:
  ScratchHome() {
    std::string pattern = testing::TempDir() + "wirefox-home-XXXXXX";
    directory_ = mkdtemp(pattern.data());
    if (const char* previous = getenv("WIREFOX_HOME")) previous_ = previous;
    setenv("WIREFOX_HOME", directory_.c_str(), 1);
  }

  ~ScratchHome() {
    if (previous_.empty()) {
      unsetenv("WIREFOX_HOME");
    } else {
      setenv("WIREFOX_HOME", previous_.c_str(), 1);
    }
    std::filesystem::remove_all(directory_);
  }

  ScratchHome(const ScratchHome&) = delete;
  ScratchHome& operator=(const ScratchHome&) = delete;

  const std::filesystem::path& directory() const { return directory_; }
  std::string Path(const std::string& below) const { return (directory_ / below).string(); }
  // The file's content; empty when there is none.
  std::string Read(const std::string& below) const {
    std::ifstream file(Path(below), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::filesystem::path directory_;
  std::string previous_;
};
