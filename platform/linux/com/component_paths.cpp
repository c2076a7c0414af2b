#include "platform/linux/com/component_paths.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/linux/kernel/home.h"

namespace linux_host {
namespace {

FileDescriptor OpenDirectory(const std::string& path) {
  return FileDescriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// The address of a file in an open directory, short however long the directory's path is.
sockaddr_un AddressIn(const FileDescriptor& directory, const std::string& file) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = "/proc/self/fd/" + std::to_string(directory.get()) + "/" + file;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

bool IsTrustedPeer(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == 0 || peer.uid == geteuid() || peer.uid == MachineAccount();
}

}  // namespace

FileDescriptor ComponentDirectory::TryLock(const std::string& file) const {
  for (bool was_missing = false;;) {
    FileDescriptor lock(
        open((path_ + "/" + file).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.is_open()) {
      if (errno != ENOENT || std::exchange(was_missing, true)) return lock;
      HomePath(HomeKind::kRuntime);  // makes it
      continue;
    }
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      lock.Reset();
      errno = error;
      return lock;
    }
    // The one before may have removed the file between the two calls.
    struct stat state;
    if (fstat(lock.get(), &state) != 0 || state.st_nlink > 0) return lock;
  }
}

void ComponentDirectory::Mark(const std::string& file) const {
  const FileDescriptor marked(
      open((path_ + "/" + file).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW));
  if (marked.is_open()) (void)!write(marked.get(), "\n", 1);
}

FileDescriptor ComponentDirectory::Listen(const std::string& file, mode_t mode) const {
  const FileDescriptor directory = OpenDirectory(path_);
  if (!directory.is_open()) return FileDescriptor();
  FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // Listens under a passing name first: nobody meets a socket that does not listen yet.
  const std::string passing = file + "." + std::to_string(getpid());
  const sockaddr_un address = AddressIn(directory, passing);
  unlinkat(directory.get(), passing.c_str(), 0);
  const bool is_up =
      listener.is_open() &&
      bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      fchmodat(directory.get(), passing.c_str(), mode, 0) == 0 &&
      listen(listener.get(), SOMAXCONN) == 0 &&
      renameat(directory.get(), passing.c_str(), directory.get(), file.c_str()) == 0;
  if (is_up) return listener;
  const int error = errno;
  unlinkat(directory.get(), passing.c_str(), 0);
  errno = error;
  return FileDescriptor();
}

FileDescriptor ComponentDirectory::Connect(const std::string& file) const {
  const FileDescriptor directory = OpenDirectory(path_);
  if (!directory.is_open()) {
    errno = ENOENT;
    return FileDescriptor();
  }
  FileDescriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = AddressIn(directory, file);
  if (!connection.is_open() ||
      connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    connection.Reset();
    errno = error;
  } else if (!IsTrustedPeer(connection.get())) {
    connection.Reset();
    errno = ENOENT;
  }
  return connection;
}

void ComponentDirectory::Remove(const std::string& file) const {
  unlink((path_ + "/" + file).c_str());
}

ComponentDirectory OwnComponentDirectory() {
  return ComponentDirectory(HomePath(HomeKind::kRuntime));
}

ComponentDirectory MachineComponentDirectory() {
  return ComponentDirectory(MachineHomePath(HomeKind::kRuntime));
}

std::string SocketFile(const ClassPlan& plan) { return plan.bus_name() + ".sock"; }
std::string ServeLockFile(const ClassPlan& plan) { return plan.bus_name() + ".serve"; }
std::string StartLockFile(const ClassPlan& plan) { return plan.bus_name() + ".start"; }

}  // namespace linux_host
