#include "platform/linux/services/server_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

// The header declares its calls without saying that they are C's.
extern "C" {
#include <sys/pidfd.h>
}

#include <cerrno>
#include <string_view>

namespace linux_host {
namespace {

// Between fork and exec nothing is called that might need a lock of a thread left behind.

void ResetSignals() {
  for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Becomes the program. What is written to `report` closes with it, so that an empty report means
// that it runs.
[[noreturn]] void BecomeServer(char* const* arguments, int report) {
  ResetSignals();
  const int null = open("/dev/null", O_RDWR);
  for (int stream = 0; stream <= 2; ++stream) dup2(null, stream);
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  execv(arguments[0], arguments);
  const int error = errno;
  (void)!write(report, &error, sizeof error);
  _exit(127);
}

// Runs in the child: leaves the server to the system, which reaps it, and tells its id.
[[noreturn]] void LeaveServer(char* const* arguments, int id_pipe, int report) {
  setsid();
  const pid_t server = fork();
  if (server == 0) BecomeServer(arguments, report);
  (void)!write(id_pipe, &server, sizeof server);
  _exit(0);
}

bool MakePipe(FileDescriptor& reading, FileDescriptor& writing) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  reading = FileDescriptor(ends[0]);
  writing = FileDescriptor(ends[1]);
  return true;
}

template <typename T>
bool ReadWhole(const FileDescriptor& source, T& value) {
  ssize_t count;
  do {
    count = read(source.get(), &value, sizeof value);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof value);
}

void Reap(pid_t child) {
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

std::vector<std::string> SplitCommand(const std::string& command) {
  constexpr std::string_view kBlanks = " \t";
  if (command.size() > 2 && command.starts_with('"') && command.ends_with('"')) {
    const std::string path = command.substr(1, command.size() - 2);
    if (access(path.c_str(), F_OK) == 0) return {path};
  }
  std::vector<std::string> words;
  bool is_in_word = false, is_quoted = false;
  for (std::size_t i = 0; i < command.size(); ++i) {
    const char character = command[i];
    if (!is_quoted && kBlanks.find(character) != kBlanks.npos) {
      is_in_word = false;
      continue;
    }
    if (!is_in_word) words.emplace_back();
    is_in_word = true;
    const bool is_word_end =
        i + 1 == command.size() || kBlanks.find(command[i + 1]) != kBlanks.npos;
    if (character == '"' && (!is_quoted || is_word_end)) {
      is_quoted = !is_quoted;
    } else {
      words.back() += character;
    }
  }
  return words;
}

bool ServerProcess::Start(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  FileDescriptor id_reading, id_writing, report_reading, report_writing;
  if (command.empty() || !MakePipe(id_reading, id_writing) ||
      !MakePipe(report_reading, report_writing)) {
    return false;
  }
  const pid_t child = fork();
  if (child == 0) LeaveServer(arguments.data(), id_writing.get(), report_writing.get());
  id_writing.Reset();
  report_writing.Reset();
  if (child < 0) return false;
  Reap(child);
  pid_t server = -1;
  int error;
  if (!ReadWhole(id_reading, server) || server < 0 || ReadWhole(report_reading, error))
    return false;
  process_ = FileDescriptor(pidfd_open(server, 0));
  return true;
}

bool ServerProcess::HasEnded(int wait_ms) const {
  // Without a descriptor for the process (it has been reaped already) there is nothing to wait for.
  pollfd ended = {process_.get(), POLLIN, 0};
  if (!process_.is_open()) return true;
  return poll(&ended, 1, wait_ms) > 0;
}

}  // namespace linux_host
