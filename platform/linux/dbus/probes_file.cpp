#include "platform/linux/dbus/probes_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace linux_host {
namespace {

constexpr std::uint32_t kFileEvents = IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
// The folder is one for temporary files, where much else happens: it is watched only as long as the
// file is missing.
constexpr std::uint32_t kFolderEvents = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;
constexpr char kLineEnd[] = "\r\n";

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == path.npos ? "." : path.substr(0, slash + 1);
}

// Whether it is a file that this account writes. In a folder that all share, others' files cannot
// be written to even by root.
bool IsOwn(int descriptor, const std::string& path) {
  struct stat about;
  return fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode) && about.st_uid == geteuid() &&
         faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

// Until the descriptor is closed, whoever opens the file to write waits. False when somebody has it
// open to write already. Where the system grants no lease there is none.
bool HoldWritersOff(int descriptor) {
  // Who waits is told of by a signal: not by the one that ends a process.
  fcntl(descriptor, F_SETSIG, SIGURG);
  return fcntl(descriptor, F_SETLEASE, F_RDLCK) == 0 || errno != EAGAIN;
}

std::string ReadAll(int descriptor) {
  std::string text;
  std::array<char, 4096> bytes;
  ssize_t length;
  while ((length = read(descriptor, bytes.data(), bytes.size())) > 0 ||
         (length < 0 && errno == EINTR)) {
    if (length > 0) text.append(bytes.data(), static_cast<std::size_t>(length));
  }
  return text;
}

ProbesFile::Names LinesOf(const std::string& text) {
  ProbesFile::Names lines;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find(kLineEnd, begin)) != text.npos;
       begin = end + std::strlen(kLineEnd)) {
    lines.push_back(text.substr(begin, end - begin));
  }
  return lines;
}

}  // namespace

ProbesFile::ProbesFile(std::string path)
    : path_(std::move(path)), inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  Watch();
  Read();
}

// The same file has the same watch, so this may be done whenever something has happened to it.
void ProbesFile::Watch() {
  const auto watch_file = [&] {
    return inotify_add_watch(inotify_.get(), path_.c_str(), kFileEvents);
  };
  int file = watch_file();
  if (file < 0) {
    folder_ = inotify_add_watch(inotify_.get(), FolderOf(path_).c_str(), kFolderEvents);
    // It may have come before its folder was watched.
    file = watch_file();
  }
  if (file >= 0 && folder_ >= 0) inotify_rm_watch(inotify_.get(), std::exchange(folder_, -1));
  if (file == file_) return;
  // The watch of a file that was deleted has gone with it.
  if (file_ >= 0) inotify_rm_watch(inotify_.get(), file_);
  file_ = file;
  has_changed_ = has_changed_ || file >= 0;
}

void ProbesFile::TakeEvents() {
  alignas(inotify_event) std::array<char, 4096> buffer;
  ssize_t length;
  bool was_closed_alone = true;
  while ((length = read(inotify_.get(), buffer.data(), buffer.size())) > 0) {
    for (ssize_t offset = 0; offset < length;) {
      inotify_event event;
      std::memcpy(&event, buffer.data() + offset, sizeof event);
      has_changed_ = has_changed_ || event.wd == file_ || (event.mask & IN_Q_OVERFLOW) != 0;
      was_closed_alone = was_closed_alone && event.mask == IN_CLOSE_WRITE;
      offset += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
  if (!was_closed_alone || file_ < 0) Watch();
}

bool ProbesFile::Read() {
  has_changed_ = false;
  // Without waiting: somebody may have put a pipe there.
  const FileDescriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file.is_open() && errno == ENOENT) return false;
  const bool is_own = file.is_open() && IsOwn(file.get(), path_);
  if (is_own && !HoldWritersOff(file.get())) return false;
  names_.reset();
  if (is_own) names_ = LinesOf(ReadAll(file.get()));
  return true;
}

}  // namespace linux_host
