#include "support/log.h"

#include <windows.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>

namespace {

constexpr std::size_t kMessageBytes = 4096;  // with the terminator

struct LogFile {
  std::mutex mutex;
  const char* path = "";
  std::ofstream stream;

  bool EnsureOpen() {
    if (!stream.is_open()) stream.open(path, std::ios::binary | std::ios::app);
    return stream.is_open();
  }
};

// Never destroyed: threads that nobody waits for log until the process ends. Nothing is lost by
// that, since each line is flushed.
LogFile& File() {
  static auto& file = *new LogFile;
  return file;
}

// The text of ctime with its line end replaced by a blank, and a two-digit day on every host.
std::string TimeText() {
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  SYSTEMTIME now;
  GetLocalTime(&now);
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%s %s %02u %02u:%02u:%02u %04u ",
                kDays[now.wDayOfWeek % 7], kMonths[(now.wMonth + 11) % 12], now.wDay, now.wHour,
                now.wMinute, now.wSecond, now.wYear);
  return text.data();
}

// Hosts print addresses differently; log lines do not.
std::string WithFixedAddressFormat(const char* format) {
  std::string fixed;
  for (const char* at = format; *at != 0; ++at) {
    fixed += *at;
    if (*at != '%') continue;
    ++at;
    if (*at == 'p') {
      fixed += "016llX";
    } else {
      fixed += *at;
    }
  }
  return fixed;
}

// Callers read the last error of the call that they log about.
class LastErrorKeeper {
 public:
  LastErrorKeeper() : error_(GetLastError()) {}
  ~LastErrorKeeper() { SetLastError(error_); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  DWORD error_;
};

}  // namespace

void OpenLog(const char* path, std::int32_t level) {
  LogFile& file = File();
  const std::lock_guard lock(file.mutex);
  file.path = path;
  file.stream.close();
  file.stream.clear();
  // A negative level enables every category but does not empty the file.
  if (level > 0) file.stream.open(path, std::ios::binary | std::ios::trunc);
  log_internal::level.store(level, std::memory_order_relaxed);
}

namespace log_internal {

void WriteLine(const char* source, const char* format, ...) {
  const LastErrorKeeper keeper;
  std::array<char, kMessageBytes> message{};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message.data(), message.size(), WithFixedAddressFormat(format).c_str(), arguments);
  va_end(arguments);

  std::string line = TimeText();
  line.append("[").append(source).append("]").append(message.data()).append("\r\n");

  LogFile& file = File();
  const std::lock_guard lock(file.mutex);
  if (!file.EnsureOpen()) return;
  file.stream << line << std::flush;
  // While the disk is full, lines wait in the stream's buffer, as far as that goes, and are written
  // with the next that fits; the one that was cut off follows its first part, then whole.
  file.stream.clear();
}

}  // namespace log_internal
