#include "platform/linux/kernel/named_mutex.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <new>
#include <utility>
#include <vector>

#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/home.h"

namespace linux_host {

// What the file holds. It is made anew whenever nobody uses it, so that it need not be understood
// across versions.
struct SharedLock::Shared {
  std::atomic<std::uint32_t> processes;  // that have opened it since it was made
  pthread_mutex_t mutex;
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

namespace {

// Bytes of the file on which locks are held: while it is being opened, exclusively; while it is in
// use, shared. They are the open file's and end with it.
constexpr off_t kOpeningByte = 0;
constexpr off_t kUseByte = 1;

int LockByte(int descriptor, int command, short type, off_t byte) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  int result;
  do {
    result = fcntl(descriptor, command, &lock);
  } while (result < 0 && errno == EINTR);
  if (command == F_OFD_GETLK && result == 0) return lock.l_type == F_UNLCK ? 0 : 1;
  return result;
}

bool OthersHoldUseByte(int descriptor) {
  return LockByte(descriptor, F_OFD_GETLK, F_WRLCK, kUseByte) != 0;
}

constexpr char kLocksFolder[] = "locks";

// Any sequence of UTF-16 units as a path below the runtime directory: what is not plain is written
// in hexadecimal, and long names continue in directories, which end in a plus sign as no name does.
std::string FilePath(const std::wstring& name) {
  constexpr std::size_t kPieceSize = 200;
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string path = std::string(kLocksFolder) + "/";
  std::size_t piece = 0;
  for (const wchar_t unit : name) {
    if (piece >= kPieceSize) {
      path += "+/";
      piece = 0;
    }
    const bool plain = (unit >= L'0' && unit <= L'9') || (unit >= L'A' && unit <= L'Z') ||
                       (unit >= L'a' && unit <= L'z') || unit == L'-' || unit == L'_';
    if (plain) {
      path += static_cast<char>(unit);
      ++piece;
      continue;
    }
    path += '%';
    for (int shift = 12; shift >= 0; shift -= 4) path += kDigits[(unit >> shift) & 0xF];
    piece += 5;
  }
  return path;
}

DWORD ErrorOf(int error) {
  switch (error) {
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case ENOMEM:
    case ENOSPC:
    case EMFILE:
    case ENFILE:
      return ERROR_NOT_ENOUGH_MEMORY;
    default:
      return ERROR_ACCESS_DENIED;
  }
}

// The folder of `path`. Root's files may lie in the directory of the service's account, which can
// put links there: none is followed.
FileDescriptor OpenFolder(const std::string& path, bool create) {
  FileDescriptor folder(
      open(HomePath(HomeKind::kRuntime).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (std::size_t at = 0, end; folder.is_open(); at = end + 1) {
    end = path.find('/', at);
    if (end == std::string::npos) break;
    const std::string name = path.substr(at, end - at);
    if (create) mkdirat(folder.get(), name.c_str(), 0700);
    folder = FileDescriptor(
        openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  }
  return folder;
}

std::string NameIn(const std::string& path) { return path.substr(path.rfind('/') + 1); }

FileDescriptor OpenFile(const std::string& path, bool create) {
  const std::string name = NameIn(path);
  for (bool was_missing = false;;) {
    const FileDescriptor folder = OpenFolder(path, create);
    const int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | (create ? O_CREAT : 0);
    FileDescriptor file(folder.is_open() ? openat(folder.get(), name.c_str(), flags, 0600) : -1);
    // Once more when the directory was removed between the two calls.
    if (file.is_open() || !create || errno != ENOENT || std::exchange(was_missing, true)) {
      return file;
    }
  }
}

bool Unlink(const std::string& path) {
  const FileDescriptor folder = OpenFolder(path, false);
  return folder.is_open() && unlinkat(folder.get(), NameIn(path).c_str(), 0) == 0;
}

// Only the account that made the file uses it, as with Windows' default security: root could open
// those of others, too, and would trust what they wrote there. Nor is it a file of this account
// that another one has linked to.
bool IsOwnFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink <= 1;
}

// Whether the file still has its name, which may be another file's otherwise. Under the lock that
// keeps newcomers out.
bool HasItsName(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && status.st_nlink > 0;
}

void InitialiseMutex(pthread_mutex_t& mutex) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

}  // namespace

SharedLock* SharedLock::Open(const std::wstring& name, bool create, bool* used_by_others) {
  const std::string path = FilePath(name);
  struct stat status = {};
  FileDescriptor file;
  bool used = false;
  // Again when the file was removed before it could be locked; what another account has left goes.
  for (bool is_in_place = false; !is_in_place;) {
    file = OpenFile(path, create);
    if (file.get() < 0 || LockByte(file.get(), F_OFD_SETLKW, F_WRLCK, kOpeningByte) != 0 ||
        fstat(file.get(), &status) != 0) {
      SetLastError(ErrorOf(errno));
      return nullptr;
    }
    used = OthersHoldUseByte(file.get());
    is_in_place = status.st_nlink > 0;
    const bool is_left = create && !used && !IsOwnFile(status);
    if (is_in_place && is_left && Unlink(path)) is_in_place = false;
  }
  if (!used && !create) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return nullptr;
  }
  const bool sound =
      IsOwnFile(status) && (!used || status.st_size >= static_cast<off_t>(sizeof(Shared)));
  if (!sound || (!used && ftruncate(file.get(), sizeof(Shared)) != 0)) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  void* const memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (memory == MAP_FAILED) {
    SetLastError(ErrorOf(errno));
    return nullptr;
  }
  auto* const shared = static_cast<Shared*>(memory);
  if (!used) {
    new (&shared->processes) std::atomic<std::uint32_t>(0);
    InitialiseMutex(shared->mutex);
  }
  shared->processes.fetch_add(1);
  LockByte(file.get(), F_OFD_SETLK, F_RDLCK, kUseByte);
  LockByte(file.get(), F_OFD_SETLK, F_UNLCK, kOpeningByte);
  *used_by_others = used;
  return new SharedLock(path, file.Take(), shared);
}

SharedLock::~SharedLock() {
  munmap(shared_, sizeof(Shared));
  close(descriptor_);
}

bool SharedLock::RemoveFile() {
  LockByte(descriptor_, F_OFD_SETLKW, F_WRLCK, kOpeningByte);
  const bool used = OthersHoldUseByte(descriptor_);
  if (!used && HasItsName(descriptor_)) Unlink(path_);
  LockByte(descriptor_, F_OFD_SETLK, F_UNLCK, kOpeningByte);
  return !used;
}

void SharedLock::RemoveUnusedFiles() {
  const std::string home = HomePath(HomeKind::kRuntime) + "/";
  std::vector<std::string> paths = {kLocksFolder};
  std::error_code error;
  std::filesystem::recursive_directory_iterator entry(home + paths[0], error);
  for (; !error && entry != std::filesystem::end(entry); entry.increment(error)) {
    paths.push_back(entry->path().string().substr(home.size()));
  }
  // What lies in a directory comes after it.
  std::for_each(paths.rbegin(), paths.rend(), [&](const std::string& path) {
    if (rmdir((home + path).c_str()) == 0 || errno != ENOTDIR) return;
    const FileDescriptor file = OpenFile(path, false);
    if (file.get() >= 0 && LockByte(file.get(), F_OFD_SETLKW, F_WRLCK, kOpeningByte) == 0 &&
        !OthersHoldUseByte(file.get()) && HasItsName(file.get())) {
      Unlink(path);
    }
  });
}

bool SharedLock::UsedByOthers() {
  if (shared_->processes.load(std::memory_order_relaxed) == 1) return false;
  if (OthersHoldUseByte(descriptor_)) return true;
  // They have ended. The count is set right under the lock that keeps newcomers out.
  LockByte(descriptor_, F_OFD_SETLKW, F_WRLCK, kOpeningByte);
  const bool used = OthersHoldUseByte(descriptor_);
  if (!used) shared_->processes.store(1);
  LockByte(descriptor_, F_OFD_SETLK, F_UNLCK, kOpeningByte);
  return used;
}

SharedLock::Outcome SharedLock::Lock(Deadline wait_ns) {
  int result = pthread_mutex_trylock(&shared_->mutex);
  if (result == EBUSY && wait_ns == kNever) {
    result = pthread_mutex_lock(&shared_->mutex);
  } else if (result == EBUSY && wait_ns > 0) {
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    const Deadline ns = until.tv_nsec + wait_ns;
    until.tv_sec += ns / 1'000'000'000;
    until.tv_nsec = ns % 1'000'000'000;
    result = pthread_mutex_timedlock(&shared_->mutex, &until);
  }
  switch (result) {
    case 0:
      return Outcome::kTaken;
    case EOWNERDEAD:
      pthread_mutex_consistent(&shared_->mutex);
      return Outcome::kAbandoned;
    case EBUSY:
    case ETIMEDOUT:
      return Outcome::kTimeOut;
    default:
      return Outcome::kFailed;
  }
}

void SharedLock::Unlock() { pthread_mutex_unlock(&shared_->mutex); }

}  // namespace linux_host
