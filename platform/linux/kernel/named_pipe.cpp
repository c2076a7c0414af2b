#include <sys/socket.h>
#include <sys/un.h>
#include <windows.h>

#include <cerrno>
#include <string>

#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/text.h"

namespace {

using linux_host::FileDescriptor;

DWORD ErrorOf(int error) {
  switch (error) {
    case 0:
    case EAGAIN:  // somebody listens, and has enough to do
      return ERROR_SUCCESS;
    case EACCES:
      return ERROR_ACCESS_DENIED;
    default:
      return ERROR_FILE_NOT_FOUND;
  }
}

// The only sure sign of a listener: the file of a socket outlives it. Comes back at once.
int TryToConnect(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  path.copy(address.sun_path, path.size());
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.is_open()) return errno;
  const auto* place = reinterpret_cast<const sockaddr*>(&address);
  return connect(socket.get(), place, sizeof address) == 0 ? 0 : errno;
}

}  // namespace

BOOL WaitNamedPipeW(LPCWSTR name, DWORD) {
  const DWORD error = ErrorOf(TryToConnect(linux_host::WideToUtf8(name)));
  if (error == ERROR_SUCCESS) return TRUE;
  SetLastError(error);
  return FALSE;
}
