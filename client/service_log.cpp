#include "client/service_log.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>

#include "client/text.h"

namespace client {

namespace {

// A line's time and what follows it tell one run of the service from another.
constexpr std::uintmax_t kKnownAgainBytes = 256;

// Of a longer text the end is taken, from within a line.
constexpr std::uintmax_t kMaxTextBytes = 16 << 20;

std::string ValueOf(const SettingsTable& values, std::string_view key) {
  const auto found = values.find(key);
  return found == values.end() ? "" : found->second;
}

}  // namespace

ServiceLog::ServiceLog(const Installation& installation, bool service_runs) {
  has_settings_ = installation.values.has_value();
  if (!has_settings_) return;
  level_ = std::atoi(ValueOf(*installation.values, "LOGLEVEL").c_str());
  file_ = ValueOf(*installation.values, "LOGFILE");
  // A relative one lies where the service was started: a plain server perhaps here.
  path_ = PathFromUtf8(Utf8FromArgument(file_));
  if (!service_runs && level_ > 0) return;
  std::error_code missing;
  begin_ = std::filesystem::file_size(path_, missing);
  if (missing) begin_ = 0;
  before_ = Before(begin_);
}

std::string ServiceLog::Problem() const {
  if (!has_settings_) return "the service's log is not known: its settings cannot be read";
  if (level_ == 0 || file_.empty()) {
    return "the service writes no log: its settings have " +
           std::string(level_ == 0 ? "LOGLEVEL=0" : "no LOGFILE");
  }
  if (IsReadable(path_)) return "";
  return "the service's log " + file_ + " cannot be read here" +
         (path_.is_absolute() ? "" : "; it lies in the folder where the service was started");
}

std::string ServiceLog::NewLines() const {
  std::error_code missing;
  const std::uintmax_t size = std::filesystem::file_size(path_, missing);
  const bool goes_on = !missing && size >= begin_ && Before(begin_) == before_;
  return TextFrom(goes_on ? begin_ : 0);
}

std::string ServiceLog::Before(std::uintmax_t offset) const {
  const std::uintmax_t size = std::min(offset, kKnownAgainBytes);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  std::ifstream file(path_, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(offset - size));
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return bytes.substr(0, static_cast<std::size_t>(file.gcount()));
}

std::string ServiceLog::TextFrom(std::uintmax_t offset) const {
  std::string text;
  std::error_code missing;
  const std::uintmax_t size = std::filesystem::file_size(path_, missing);
  if (!missing && size > kMaxTextBytes) offset = std::max(offset, size - kMaxTextBytes);
  std::ifstream file(path_, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(offset));
  std::array<char, 65536> block;
  while (file && text.size() <= kMaxTextBytes) {
    file.read(block.data(), block.size());
    text.append(block.data(), static_cast<std::size_t>(file.gcount()));
  }
  // Zeros are gaps: a service writes on at its place in a file that another process has emptied.
  std::erase_if(text, [](char c) { return c == '\r' || c == '\0'; });
  return text;
}

}  // namespace client
