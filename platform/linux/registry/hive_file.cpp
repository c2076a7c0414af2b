#include "platform/linux/registry/hive_file.h"

#include <windows.h>

#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/notices.h"

namespace linux_host {
namespace {

constexpr char kJournalSource[] = "wirefox";

bool IsRefusal(int error) { return error == EACCES || error == EPERM || error == EROFS; }

std::uint32_t WriteStatus(int error) {
  return IsRefusal(error) ? ERROR_ACCESS_DENIED : ERROR_WRITE_FAULT;
}

bool IsSameState(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

std::optional<std::string> ReadAll(int file, std::size_t limit) {
  std::string text;
  char buffer[65536];
  for (;;) {
    const ssize_t length = read(file, buffer, sizeof(buffer));
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return std::nullopt;
    if (length == 0 || text.size() > limit) return text;
    text.append(buffer, static_cast<std::size_t>(length));
  }
}

std::string DirectoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == path.npos ? "." : path.substr(0, slash + 1);
}

// Makes a rename in the directory survive a power failure.
void SyncDirectory(const std::string& path) {
  const FileDescriptor directory(
      open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.is_open()) fsync(directory.get());
}

std::string LockPath(const std::string& path) { return path + ".lock"; }

// Waits until no other process writes the hive; ends with the descriptor.
FileDescriptor LockForWriting(const std::string& path) {
  for (;;) {
    // Writable for its owner alone: a stranger who could open it could hold all writers up.
    FileDescriptor lock(
        open(LockPath(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.is_open()) return lock;
    while (flock(lock.get(), LOCK_EX) != 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      close(lock.Take());
      errno = error;
      return lock;
    }
    // The hive may have been removed meanwhile, and the lock with it.
    struct stat state;
    if (fstat(lock.get(), &state) != 0 || state.st_nlink > 0) return lock;
  }
}

// Whether a hive holds nothing but keys that stay for ever: those below the root, where classes and
// libraries of anyone stand.
bool IsBare(const RegistryKey& root) {
  return root.values.empty() &&
         std::all_of(root.subkeys.begin(), root.subkeys.end(), [](const auto& entry) {
           return entry.second->values.empty() && entry.second->subkeys.empty();
         });
}

}  // namespace

HiveFile::HiveFile(std::string path) : path_(std::move(path)) {}

HiveFile::~HiveFile() { Forget(); }

void HiveFile::Forget() {
  if (file_ >= 0) close(std::exchange(file_, -1));
  root_ = RegistryKey();
  loaded_ = false;
}

bool HiveFile::IsCurrent() const {
  if (!loaded_) return false;
  struct stat state;
  if (stat(path_.c_str(), &state) != 0) return errno == ENOENT && file_ < 0 && status_ == 0;
  return file_ >= 0 && IsSameState(state, file_state_);
}

void HiveFile::Load() {
  Forget();
  // Not waiting, should someone have put a pipe there.
  FileDescriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file.is_open()) {
    status_ = errno == ENOENT    ? ERROR_SUCCESS
              : IsRefusal(errno) ? ERROR_ACCESS_DENIED
                                 : ERROR_READ_FAULT;
    loaded_ = true;
    return;
  }
  if (fstat(file.get(), &file_state_) != 0) {
    status_ = ERROR_READ_FAULT;
    return;
  }
  HiveFault fault;
  if (!S_ISREG(file_state_.st_mode)) {
    fault = {1, "this is not a file"};
  } else if (static_cast<std::size_t>(file_state_.st_size) > kMaxHiveBytes) {
    fault = {1, "the file is too large"};
  } else if (const auto text = ReadAll(file.get(), kMaxHiveBytes)) {
    fault = ParseHive(*text, root_);
  } else {
    status_ = ERROR_READ_FAULT;
    return;
  }
  file_ = file.Take();
  loaded_ = true;
  status_ = fault.line == 0 ? ERROR_SUCCESS : ERROR_REGISTRY_CORRUPT;
  if (fault.line != 0) {
    root_ = RegistryKey();
    WriteJournal(LOG_ERR, kJournalSource,
                 "The registry file is damaged: " + path_ + ", line " + std::to_string(fault.line) +
                     ": " + fault.what + ". Registering again puts it aside and begins a new one.");
  }
}

std::uint32_t HiveFile::Read(const RegistryKey** root) {
  if (!IsCurrent()) Load();
  *root = &root_;
  return status_;
}

std::uint32_t HiveFile::Change(const Alteration& alteration) {
  const FileDescriptor lock = LockForWriting(path_);
  if (!lock.is_open()) return WriteStatus(errno);
  if (!IsCurrent()) Load();
  if (status_ == ERROR_REGISTRY_CORRUPT) {
    if (const std::uint32_t status = PutAside()) return status;
  } else if (status_ != ERROR_SUCCESS) {
    return status_;
  }
  bool altered = false;
  std::uint32_t status = alteration(root_, &altered);
  if (status == ERROR_SUCCESS && altered) status = Save();
  // What could not be written did not happen: the next call reads the file again.
  if (status != ERROR_SUCCESS && altered) Forget();
  return status;
}

bool HiveFile::RemoveIfBare() {
  const RegistryKey* root;
  // Looked at before the lock, which would make its file, and again under it.
  if (Read(&root) != ERROR_SUCCESS || !IsBare(*root)) return false;
  const FileDescriptor lock = LockForWriting(path_);
  if (!lock.is_open() || Read(&root) != ERROR_SUCCESS || !IsBare(*root)) return false;
  unlink(path_.c_str());
  unlink(LockPath(path_).c_str());
  return true;
}

std::uint32_t HiveFile::PutAside() {
  for (int number = 1;; ++number) {
    const std::string aside = path_ + ".damaged-" + std::to_string(number);
    struct stat state;
    if (lstat(aside.c_str(), &state) == 0) continue;
    if (errno != ENOENT || rename(path_.c_str(), aside.c_str()) != 0) return WriteStatus(errno);
    WriteJournal(LOG_WARNING, kJournalSource,
                 "The damaged registry file is kept as " + aside + ".");
    break;
  }
  Load();
  return status_;
}

std::uint32_t HiveFile::Save() {
  const std::string text = FormatHive(root_);
  if (text.size() > kMaxHiveBytes) return ERROR_NO_SYSTEM_RESOURCES;
  const std::string new_path = path_ + ".new";
  // One that a crash has left is worth nothing, and not to be followed if it is a link.
  unlink(new_path.c_str());
  FileDescriptor file(
      open(new_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!file.is_open()) return WriteStatus(errno);
  // Users read root's hive whatever root's mask is. The directory keeps others out of a user's.
  fchmod(file.get(), 0644);
  struct stat state;
  if (!file.WriteAll(text) || fsync(file.get()) != 0 || fstat(file.get(), &state) != 0 ||
      rename(new_path.c_str(), path_.c_str()) != 0) {
    const std::uint32_t status = WriteStatus(errno);
    unlink(new_path.c_str());
    return status;
  }
  SyncDirectory(path_);
  if (file_ >= 0) close(file_);
  file_ = file.Take();
  file_state_ = state;
  loaded_ = true;
  return ERROR_SUCCESS;
}

}  // namespace linux_host
