// Starting the process that serves a class.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/kernel/file_descriptor.h"

namespace linux_host {

// Tells a server that it is started for a client.
inline constexpr char kEmbedding[] = "-Embedding";

// The words of a command line: separated by blanks, a word in double quotes may hold some. The
// first one is the program. A quote inside a quoted word belongs to it unless a blank or the end
// follows: paths may hold quotes on this host. A whole command in quotes that is the path of a file
// is one word, whatever it holds.
std::vector<std::string> SplitCommand(const std::string& command);

// A server that was started.
class ServerProcess {
 public:
  // Starts the program in a session of its own, with standard streams on /dev/null, no other open
  // files, no signal blocked or ignored, and this process's environment. It belongs to nobody here:
  // it is neither waited for nor ended with its client. False when it cannot be run.
  bool Start(const std::vector<std::string>& command);

  // Waits until it has ended, for at most that long.
  bool HasEnded(int wait_ms) const;

 private:
  FileDescriptor process_;
};

}  // namespace linux_host
