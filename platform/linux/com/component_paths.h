// Where the two ends of a private connection find each other: files in the runtime directories,
// named after the class.
//
//   NAME.sock    the socket of the process that serves the class
//   NAME.serve   locked by that process as long as it serves
//   NAME.start   locked by a client while it starts a server; a server that has served and ends
//                appends a byte
//
// Each is removed by its process. One that was killed leaves them to the next of its kind.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/kernel/file_descriptor.h"

namespace linux_host {

// A directory of runtime files; locks are taken in the account's own. Names are resolved inside it,
// so that a long path does not meet the limit of socket addresses.
class ComponentDirectory {
 public:
  explicit ComponentDirectory(std::string path) : path_(std::move(path)) {}

  // Tries for the lock of that file: the open descriptor holds it until it is closed. Not open,
  // with errno EWOULDBLOCK, while another holds it, and with another errno on failure. Who holds it
  // may remove the file.
  FileDescriptor TryLock(const std::string& file) const;

  // Appends a byte to that file, when there is one.
  void Mark(const std::string& file) const;

  // A socket that listens under that name, in place of one of an earlier process. Its mode says who
  // may connect. Not open, with errno, on failure.
  FileDescriptor Listen(const std::string& file, mode_t mode) const;

  // A connection to that socket, provided that its server runs as this account, as root or as the
  // machine's service. Not open when there is none; with errno EACCES when there is one that this
  // account may not use.
  FileDescriptor Connect(const std::string& file) const;

  void Remove(const std::string& file) const;

 private:
  std::string path_;
};

// The directory of this account's own servers and locks.
ComponentDirectory OwnComponentDirectory();
// The directory of the machine's servers, where clients look second.
ComponentDirectory MachineComponentDirectory();

std::string SocketFile(const ClassPlan& plan);
std::string ServeLockFile(const ClassPlan& plan);
std::string StartLockFile(const ClassPlan& plan);

}  // namespace linux_host
