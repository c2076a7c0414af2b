// The service's log as a client on the same machine reads it: what was written during a call.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "client/installation.h"

namespace client {

class ServiceLog {
 public:
  // Looks at the file as it is now. The settings are those that the next service starts with; one
  // that runs may have others. A service that does not run empties the file when it is started.
  ServiceLog(const Installation& installation, bool service_runs);

  // Why there is nothing to read; empty when the file can be read.
  std::string Problem() const;

  // The lines since this object was made, each with its end. A file that was emptied meanwhile, as
  // each start of the service does, is read from its beginning.
  std::string NewLines() const;

  // All of it.
  std::string Text() const { return TextFrom(0); }

  std::int64_t level() const { return level_; }
  const std::string& file() const { return file_; }

 private:
  std::string TextFrom(std::uintmax_t offset) const;
  // What stands before the place, as far as it is needed to know the file again.
  std::string Before(std::uintmax_t offset) const;

  bool has_settings_ = false;
  std::int64_t level_ = 0;
  std::string file_;  // as the settings name it
  std::filesystem::path path_;
  std::uintmax_t begin_ = 0;
  std::string before_;
};

}  // namespace client
