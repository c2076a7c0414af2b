// Shows the device table to other programs: who holds what, and how much each probe has to do. The
// activity file (base/activity_layout.h) is written where the table changes, by stores into memory
// alone.
#pragma once

#include "config/device_table.h"

// All of it with the device-table lock held. Without a file nothing is shown, and nothing else
// changes: one that cannot be made is tried for again whenever the table is shown. It is never made
// through a link, nor in place of another running service's.

// From now on this process shows its table, beside the file of that path; null: it does not. For a
// process that serves clients: one that only registers must not take the file from a service.
void StartActivityFile(const wchar_t* devices_changed_path);

// Shows all of the table.
void ShowDeviceTable();

// Shows the probe's mode, voltage and targets, and counts. Its place is that of the last
// ShowDeviceTable; a probe that was not in the table then has none.
void ShowProbe(const ProbeEntry& probe);

// The process ends: nobody is to believe the file any more, and it goes.
void EndActivityFile();

// A client's call on a probe: counted and shown when it has ended, however it ends.
class ShownCall {
 public:
  explicit ShownCall(ProbeEntry& probe) : probe_(probe) {}
  ~ShownCall() {
    ++probe_.calls;
    ShowProbe(probe_);
  }
  ShownCall(const ShownCall&) = delete;
  ShownCall& operator=(const ShownCall&) = delete;

 private:
  ProbeEntry& probe_;
};
