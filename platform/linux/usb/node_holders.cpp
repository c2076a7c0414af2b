#include "platform/linux/usb/node_holders.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace linux_host {
namespace {

namespace fs = std::filesystem;

// Processes and their files come and go while one looks, and those of other accounts are closed:
// what cannot be read does not count.
bool HasOpen(const fs::path& process, const fs::path& node) {
  std::error_code error;
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
       file.increment(error)) {
    std::error_code unreadable;
    if (fs::read_symlink(file->path(), unreadable) == node) return true;
  }
  return false;
}

}  // namespace

std::string NodeHolders(const std::string& node) {
  std::string holders;
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; !error && process != end;
       process.increment(error)) {
    const std::string id = process->path().filename();
    const bool is_process = std::ranges::all_of(id, [](unsigned char c) { return isdigit(c); });
    if (!is_process || id == std::to_string(getpid()) || !HasOpen(process->path(), node)) continue;
    std::string name;
    std::getline(std::ifstream(process->path() / "comm"), name);
    holders += (holders.empty() ? "" : ", ") + name + " (process " + id + ")";
  }
  return holders;
}

}  // namespace linux_host
