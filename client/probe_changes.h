// The service's word that probes have come or gone: a file that it writes anew each time.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

#include "client/stop_signal.h"

namespace client {

class ProbeChanges {
 public:
  enum class Event { kStopped, kChanged, kNothing };

  // The file as GetDevicesChangedLocation names it.
  explicit ProbeChanges(const std::string& file);
  ~ProbeChanges();
  ProbeChanges(const ProbeChanges&) = delete;
  ProbeChanges& operator=(const ProbeChanges&) = delete;

  // False when the file's folder cannot be watched: Wait then only waits.
  bool valid() const { return folder_ != INVALID_HANDLE_VALUE; }

  // Takes the file as it is for known. To be called before the probes are asked for, so that no
  // change falls between the two: the question itself may find one and have the file written.
  void Mark();

  // Until the file is not as it was marked, or the time is over.
  Event Wait(const StopSignal& stop, DWORD timeout_ms);

 private:
  struct Stamp {
    std::string content;
    std::filesystem::file_time_type written;

    bool operator==(const Stamp&) const = default;
  };

  Stamp Look() const;

  const std::filesystem::path file_;
  const HANDLE folder_;
  Stamp marked_;
};

}  // namespace client
