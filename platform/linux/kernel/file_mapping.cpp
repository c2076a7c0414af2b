#include "platform/linux/kernel/file_mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/handle_table.h"
#include "platform/linux/kernel/home.h"
#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

// Who made it goes on writing; a redirection of his to it would cut off what is mapped.
constexpr mode_t kFileMode = 0444;

class File : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kFile;

  // `delete_path` is empty, or goes with the handle.
  File(FileDescriptor descriptor, std::string delete_path)
      : KernelObject(kKind),
        descriptor_(std::move(descriptor)),
        delete_path_(std::move(delete_path)) {}

  int descriptor() const { return descriptor_.get(); }

 private:
  void LastHandleClosed() override {
    struct stat own;
    struct stat named;
    const bool is_there = !delete_path_.empty() && fstat(descriptor(), &own) == 0 &&
                          lstat(delete_path_.c_str(), &named) == 0;
    // Another file may have the name by now.
    if (is_there && own.st_dev == named.st_dev && own.st_ino == named.st_ino) {
      unlink(delete_path_.c_str());
    }
  }

  const FileDescriptor descriptor_;
  const std::string delete_path_;
};

class FileMapping : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kFileMapping;

  FileMapping(ObjectRef<File> file, std::size_t size)
      : KernelObject(kKind), file_(std::move(file)), size_(size) {}

  int descriptor() const { return file_->descriptor(); }
  std::size_t size() const { return size_; }

 private:
  const ObjectRef<File> file_;
  const std::size_t size_;
};

DWORD ErrorOf(int error) {
  switch (error) {
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EEXIST:
      return ERROR_FILE_EXISTS;
    case ENOSPC:
    case EDQUOT:
      return ERROR_DISK_FULL;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    default:
      return ERROR_ACCESS_DENIED;
  }
}

template <typename Value>
Value Fail(DWORD error, Value value) {
  SetLastError(error);
  return value;
}

// Somebody else's file says what he likes, and may be cut off while it is looked at.
bool IsTrusted(int descriptor) {
  struct stat about;
  return fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode) &&
         (about.st_uid == geteuid() || about.st_uid == 0 || about.st_uid == MachineAccount());
}

DWORD FitSize(int descriptor, DWORD protection, DWORD size) {
  // A page that the disk has no room for when it is written to would end the process.
  if (protection == PAGE_READWRITE) {
    const int error = posix_fallocate(descriptor, 0, size);
    return error == 0 ? ERROR_SUCCESS : ErrorOf(error);
  }
  struct stat about;
  const bool fits = fstat(descriptor, &about) == 0 && about.st_size >= off_t{size};
  return fits ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY;
}

// The views of this process, with their sizes.
struct Views {
  std::mutex mutex;
  std::map<const void*, std::size_t> sizes;
};

Views& OpenViews() {
  static auto& views = *new Views;
  return views;
}

}  // namespace

HANDLE OpenOrdinaryFile(LPCWSTR path, DWORD access, DWORD disposition, DWORD flags) {
  const bool is_new = disposition == CREATE_NEW;
  if (!is_new && (disposition != OPEN_EXISTING || access != GENERIC_READ)) {
    return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  }
  const std::string name = WideToUtf8(path);
  // Without waiting: somebody may have put a pipe there.
  constexpr int kGuarded = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  FileDescriptor descriptor(
      open(name.c_str(), (is_new ? O_RDWR | O_CREAT | O_EXCL : O_RDONLY) | kGuarded, kFileMode));
  if (!descriptor.is_open()) return Fail(ErrorOf(errno), INVALID_HANDLE_VALUE);
  if (!is_new && !IsTrusted(descriptor.get())) {
    return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
  }
  const bool goes = (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0;
  const HANDLE handle =
      MakeHandle(MakeObject<File>(std::move(descriptor), goes ? name : std::string()));
  return handle ? handle : INVALID_HANDLE_VALUE;
}

}  // namespace linux_host

using linux_host::Fail;
using linux_host::FileMapping;
using linux_host::LookUp;
using linux_host::OpenViews;

BOOL DeleteFileW(LPCWSTR path) {
  if (unlink(linux_host::WideToUtf8(path).c_str()) == 0) return TRUE;
  return Fail(linux_host::ErrorOf(errno), FALSE);
}

HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES, DWORD protection, DWORD size_high,
                          DWORD size, LPCWSTR name) {
  auto object = LookUp<linux_host::File>(file);
  if (!object) return nullptr;
  const bool modelled = protection == PAGE_READONLY || protection == PAGE_READWRITE;
  if (!modelled || size_high != 0 || size == 0 || name) {
    return Fail<HANDLE>(ERROR_INVALID_PARAMETER, nullptr);
  }
  const DWORD error = linux_host::FitSize(object->descriptor(), protection, size);
  if (error != ERROR_SUCCESS) return Fail<HANDLE>(error, nullptr);
  return MakeHandle(linux_host::MakeObject<FileMapping>(std::move(object), size));
}

LPVOID MapViewOfFile(HANDLE mapping, DWORD access, DWORD offset_high, DWORD offset, SIZE_T size) {
  const auto object = LookUp<FileMapping>(mapping);
  if (!object) return nullptr;
  if (offset_high != 0 || offset != 0 || size != object->size()) {
    return Fail<LPVOID>(ERROR_INVALID_PARAMETER, nullptr);
  }
  const int protection = PROT_READ | (access & FILE_MAP_WRITE ? PROT_WRITE : 0);
  void* const view = mmap(nullptr, size, protection, MAP_SHARED, object->descriptor(), 0);
  if (view == MAP_FAILED) return Fail<LPVOID>(linux_host::ErrorOf(errno), nullptr);
  const std::lock_guard lock(OpenViews().mutex);
  OpenViews().sizes[view] = size;
  return view;
}

BOOL UnmapViewOfFile(LPCVOID view) {
  const std::lock_guard lock(OpenViews().mutex);
  const auto found = OpenViews().sizes.find(view);
  if (found == OpenViews().sizes.end()) return Fail(ERROR_INVALID_ADDRESS, FALSE);
  munmap(const_cast<void*>(view), found->second);
  OpenViews().sizes.erase(found);
  return TRUE;
}
