#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/processes.h"

namespace linux_host {
namespace {

constexpr unsigned long kKernelThread = 0x00200000;  // PF_KTHREAD in the kernel's task flags

// Field `index` of a line of fields separated by blanks; empty when there are fewer.
std::string_view Field(std::string_view line, int index) {
  for (; index > 0; --index) {
    const auto blank = line.find(' ');
    if (blank == line.npos) return {};
    line.remove_prefix(blank + 1);
  }
  return line.substr(0, line.find(' '));
}

template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

std::optional<RunningProcess> ReadProcess(int proc, const char* entry) {
  const auto id = ParseNumber<std::uint32_t>(entry);
  if (!id) return std::nullopt;
  char path[32];
  const auto name_length = std::strlen(entry);
  if (name_length + sizeof("/stat") > sizeof(path)) return std::nullopt;
  std::memcpy(path, entry, name_length);
  std::memcpy(path + name_length, "/stat", sizeof("/stat"));

  const int file = openat(proc, path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return std::nullopt;
  std::array<char, 1024> buffer;
  const ssize_t length = read(file, buffer.data(), buffer.size());
  close(file);
  if (length <= 0) return std::nullopt;

  // The program's name, in parentheses, may hold anything, further parentheses too.
  std::string_view line(buffer.data(), static_cast<std::size_t>(length));
  const auto name_end = line.rfind(") ");
  if (name_end == line.npos) return std::nullopt;
  line.remove_prefix(name_end + 2);
  const std::string_view state = Field(line, 0);
  const auto flags = ParseNumber<unsigned long>(Field(line, 6));
  const auto ticks = [&](int field) { return ParseNumber<std::uint64_t>(Field(line, field)); };
  const auto start_time = ticks(19);
  if (state == "Z" || state == "X" || !flags || *flags & kKernelThread || !start_time) {
    return std::nullopt;
  }
  return RunningProcess{*id, *start_time, ticks(11).value_or(0), ticks(12).value_or(0)};
}

std::optional<RunningProcess> FindProcess(std::uint32_t id) {
  const FileDescriptor proc(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!proc.is_open()) return std::nullopt;
  return ReadProcess(proc.get(), std::to_string(id).c_str());
}

}  // namespace linux_host
