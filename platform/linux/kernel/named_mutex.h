// The part of a named mutex that all processes of the installation share: a robust mutex in a file
// below the runtime directory, which the system gives up when its owner dies.
//
// The file outlives its users, and so its existence proves nothing. Who uses it holds a shared lock
// on one byte of the file until the process ends; whoever opens it and finds no such lock makes the
// mutex anew.
#pragma once

#include <windows.h>

#include <pthread.h>

#include <string>
#include <utility>

#include "platform/linux/kernel/dispatcher.h"

namespace linux_host {

// One for each name and process. Lives as long as the process, so that opening it again costs no
// system call, unless its file was removed.
class SharedLock {
 public:
  enum class Outcome { kTaken, kAbandoned, kTimeOut, kFailed };

  // Opens the lock called `name`, or creates it when `create` is set. Null with error 2 when no
  // other process has it and `create` is not set, 5 when the account has no right to it.
  // `used_by_others` tells whether another process has it.
  static SharedLock* Open(const std::wstring& name, bool create, bool* used_by_others);

  // Closes its file. Nobody has it locked, or its file was removed.
  ~SharedLock();
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

  // Takes the name away from this lock: whoever opens it next makes another one. False when another
  // process uses it; nothing is done then.
  bool RemoveFile();

  // Removes the files of ended processes, and the folders that become empty.
  static void RemoveUnusedFiles();

  // Whether another process uses it now. No system call as long as none ever did.
  bool UsedByOthers();

  // Waits for `wait_ns` nanoseconds of real time at most (kNever: without limit). Only one thread
  // of the process at a time comes here. kAbandoned: taken from an owner that died; kFailed: the
  // file has been damaged.
  Outcome Lock(Deadline wait_ns);
  // Called by the thread that locked it.
  void Unlock();

 private:
  struct Shared;

  SharedLock(std::string path, int descriptor, Shared* shared)
      : path_(std::move(path)), descriptor_(descriptor), shared_(shared) {}

  const std::string path_;
  const int descriptor_;
  Shared* const shared_;
};

}  // namespace linux_host
