// A registry hive in a file that several processes read and write.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>

#include "platform/linux/registry/hive.h"

namespace linux_host {

// Greater files are taken for damaged, and none is made.
inline constexpr std::size_t kMaxHiveBytes = 4 << 20;

// Not safe for several threads: the registry's lock is held at every call.
class HiveFile {
 public:
  // `path` need not exist: that is an empty hive. Beside it lie its lock file and, while it is
  // written, the new file.
  explicit HiveFile(std::string path);
  ~HiveFile();
  HiveFile(const HiveFile&) = delete;
  HiveFile& operator=(const HiveFile&) = delete;

  const std::string& path() const { return path_; }

  // Stores the latest state, which any process may have written, valid until the next call.
  // Statuses 0, 5, 30 (the file cannot be read), 1015 (it is damaged; said once in the journal).
  std::uint32_t Read(const RegistryKey** root);

  // `change` alters the latest state, says whether it did and returns a status. What it altered is
  // written, durably and as a whole, while no other process writes. A damaged file is renamed out
  // of the way first and an empty hive takes its place. On failure nothing is altered: statuses of
  // `change`, 5, 29 (the file cannot be written), 30, 1450 (the hive would grow too large).
  using Alteration = std::function<std::uint32_t(RegistryKey& root, bool* altered)>;
  std::uint32_t Change(const Alteration& alteration);

  // Removes the file and its lock when there are no values and no keys but empty ones below the
  // root. False when there are, or it cannot be told. What was put aside as damaged stays.
  bool RemoveIfBare();

 private:
  bool IsCurrent() const;
  void Load();
  std::uint32_t Save();
  std::uint32_t PutAside();
  void Forget();

  const std::string path_;
  // The file that `root_` was read from, -1 when there was none. It stays open so that no other
  // file can get its inode number meanwhile: a replaced file is recognised by its number, without
  // doubt.
  int file_ = -1;
  struct stat file_state_ = {};
  bool loaded_ = false;
  std::uint32_t status_ = 0;  // of the file as loaded
  RegistryKey root_;
};

}  // namespace linux_host
