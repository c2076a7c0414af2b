#include "platform/linux/com/leftovers.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/com/component_paths.h"
#include "platform/linux/kernel/home.h"
#include "platform/linux/kernel/mutexes.h"
#include "platform/linux/registry/registry.h"
#include "platform/linux/services/registration_files.h"

namespace linux_host {
namespace {

bool RemoveRegistry() {
  Registry& registry = Registry::Get();
  const std::lock_guard lock(registry.mutex);
  return registry.RemoveIfBare();
}

bool IsOwn(const std::string& folder) {
  struct stat state {};
  return lstat(folder.c_str(), &state) == 0 && S_ISDIR(state.st_mode) && state.st_uid == geteuid();
}

// What killed processes have left: others hold the lock, and remove the files themselves.
void RemoveComponentFiles(const ClassPlan& plan) {
  const ComponentDirectory directory = OwnComponentDirectory();
  if (const FileDescriptor lock = directory.TryLock(ServeLockFile(plan)); lock.is_open()) {
    directory.Remove(SocketFile(plan));
    directory.Remove(ServeLockFile(plan));
  }
  if (const FileDescriptor lock = directory.TryLock(StartLockFile(plan)); lock.is_open()) {
    directory.Remove(StartLockFile(plan));
  }
}

}  // namespace

void RemoveLeftovers(const interface_schema::Library& library) {
  const ClassPlan* plan = ClassPlan::For(library);
  if (!plan || !RemoveRegistry()) return;
  // Root's may be the one of the machine's service, whose account can put there what it likes.
  if (!IsOwn(HomePath(HomeKind::kRuntime))) return;
  RemoveComponentFiles(*plan);
  RemoveMutexFiles();
  RemoveEmptyRegistrationFolders();
  rmdir(HomePath(HomeKind::kRuntime).c_str());
  if (InstallationHome().empty()) rmdir(HomePath(HomeKind::kState).c_str());
}

}  // namespace linux_host
