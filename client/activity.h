// What a service of this machine shows of its device table: the activity file, read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/activity_view.h"
#include "client/service_client.h"

namespace client {

struct TargetActivity {
  std::uint32_t id = 0;
  bool held = false;
  std::uint32_t pid = 0;  // whose session it is; 0: nobody's
};

struct ProbeActivity {
  std::string name;
  std::uint32_t mode = 0;
  std::optional<std::uint32_t> voltage;  // by its code, once it was set
  std::uint64_t calls = 0;
  std::uint64_t bytes = 0;
  std::vector<TargetActivity> targets;
};

// In table order.
using TableActivity = std::vector<ProbeActivity>;

bool IsHeld(const ProbeActivity& probe);

// Null when there is none.
const ProbeActivity* FindProbe(const TableActivity& table, const std::string& name);

// One state of the table. Nothing when the service has ended, or was ended in the middle of a
// change.
std::optional<TableActivity> ReadActivity(const activity::View& view);

// Where the file of the service lies.
std::wstring ActivityPath(ServiceClient& service);

// The table as the service shows it now; nothing when it does not.
std::optional<TableActivity> AskActivity(ServiceClient& service);

}  // namespace client
