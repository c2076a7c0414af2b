// The file in which the program keeps a line with the name of each probe, as another thread of it
// writes that: emptied, filled and closed anew whenever probes come or go.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/kernel/file_descriptor.h"

namespace linux_host {

class ProbesFile {
 public:
  using Names = std::vector<std::string>;

  // Reads what is there.
  explicit ProbesFile(std::string path);

  const std::string& path() const { return path_; }
  // Readable when TakeEvents has something to take; -1 when the system could not watch.
  int descriptor() const { return inotify_.get(); }

  // Takes what the system has told since the last call, without waiting.
  void TakeEvents();
  // Whether the file has been written since it was read.
  bool has_changed() const { return has_changed_; }

  // False when names() stays as it is: the file is being written, whose end will be told; or it is
  // gone, as those who clear a folder for temporary files do, who change no probe.
  bool Read();
  // In the file's order, in UTF-8. Nothing when the file was never there, or cannot be this
  // program's: what stands in it is somebody else's list, and this program's is nowhere.
  const std::optional<Names>& names() const { return names_; }

 private:
  void Watch();

  std::string path_;
  FileDescriptor inotify_;
  int file_ = -1;    // watched: the file that has the path
  int folder_ = -1;  // watched while there is none
  bool has_changed_ = false;
  std::optional<Names> names_;
};

}  // namespace linux_host
