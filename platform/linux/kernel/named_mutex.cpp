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

std::string LocksDirectory() { return HomePath(HomeKind::kRuntime) + "/locks"; }

// Any sequence of UTF-16 units as a path below the directory of locks: what is not plain is written
// in hexadecimal, and long names continue in directories, which end in a plus sign as no name does.
std::string FilePath(const std::wstring& name) {
  constexpr std::size_t kPieceSize = 200;
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string path = LocksDirectory() + "/";
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

// Only the account that made the file may open it, as with Windows' default security.
int OpenFile(const std::string& path, bool create) {
  const std::string directory = path.substr(0, path.rfind('/'));
  for (bool was_missing = false;;) {
    if (create && !MakeDirectories(directory, 0700)) return -1;
    const int file =
        open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | (create ? O_CREAT : 0), 0600);
    // Once more when the directory was removed between the two calls.
    if (file >= 0 || !create || errno != ENOENT || std::exchange(was_missing, true)) return file;
  }
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
  // Again when the file was removed before it could be locked.
  do {
    file.Reset(OpenFile(path, create));
    if (file.get() < 0 || LockByte(file.get(), F_OFD_SETLKW, F_WRLCK, kOpeningByte) != 0 ||
        fstat(file.get(), &status) != 0) {
      SetLastError(ErrorOf(errno));
      return nullptr;
    }
  } while (status.st_nlink == 0);
  const bool used = OthersHoldUseByte(file.get());
  if (!used && !create) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return nullptr;
  }
  const bool sound =
      S_ISREG(status.st_mode) && (!used || status.st_size >= static_cast<off_t>(sizeof(Shared)));
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
  if (!used && HasItsName(descriptor_)) unlink(path_.c_str());
  LockByte(descriptor_, F_OFD_SETLK, F_UNLCK, kOpeningByte);
  return !used;
}

void SharedLock::RemoveUnusedFiles() {
  std::vector<std::string> paths = {LocksDirectory()};
  std::error_code error;
  std::filesystem::recursive_directory_iterator entry(paths[0], error);
  for (; !error && entry != std::filesystem::end(entry); entry.increment(error)) {
    paths.push_back(entry->path());
  }
  // What lies in a directory comes after it.
  std::for_each(paths.rbegin(), paths.rend(), [](const std::string& path) {
    if (rmdir(path.c_str()) == 0 || errno != ENOTDIR) return;
    FileDescriptor file;
    file.Reset(OpenFile(path, false));
    if (file.get() >= 0 && LockByte(file.get(), F_OFD_SETLKW, F_WRLCK, kOpeningByte) == 0 &&
        !OthersHoldUseByte(file.get()) && HasItsName(file.get())) {
      unlink(path.c_str());
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
