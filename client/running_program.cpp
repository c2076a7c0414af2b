#include "client/running_program.h"

#include <windows.h>

#include <array>
#include <memory>

#include "base/running_process.h"
#include "client/text.h"

namespace client {

namespace {

struct Close {
  void operator()(void* handle) const { CloseHandle(handle); }
};

std::string FileName(std::wstring_view path) {
  return Printable(Utf8FromWide(path.substr(path.find_last_of(L"\\/") + 1)));
}

}  // namespace

RunningProgram ProgramOf(std::uint32_t pid) {
  const std::unique_ptr<void, Close> process(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
  if (!process) return {GetLastError() == ERROR_ACCESS_DENIED, ""};
  if (!StartOfProcess(process.get())) return {};
  std::array<wchar_t, 1024> path;
  auto size = static_cast<DWORD>(path.size());
  if (!QueryFullProcessImageNameW(process.get(), 0, path.data(), &size)) return {true, ""};
  return {true, FileName({path.data(), size})};
}

std::string DescribeProcess(std::uint32_t pid) {
  const RunningProgram program = ProgramOf(pid);
  std::string text = std::to_string(pid);
  if (!program.runs) return text + " (ended)";
  return program.name.empty() ? text : text + " " + program.name;
}

}  // namespace client
