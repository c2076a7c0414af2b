#include "platform/linux/services/dbus_registration.h"

#include <string>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/kernel/home.h"
#include "platform/linux/services/registered_class.h"
#include "platform/linux/services/registration_files.h"
#include "platform/linux/services/registration_texts.h"
#include "platform/linux/services/server_process.h"

namespace linux_host {
namespace {

// The text of each file; empty: there shall be none.
struct DBusFiles {
  std::string activation;
  std::string system_activation;
  std::string policy;
};

DBusFiles FilesFor(const ClassPlan& plan) {
  const RegisteredClass registered = FindRegisteredClass(*plan.component().id);
  DBusFiles files;
  if (registered.command.empty()) return files;
  const std::string& name = plan.bus_name();
  if (registered.service.empty()) {
    std::vector<std::string> command = SplitCommand(registered.command);
    command.emplace_back(kEmbedding);
    files.activation = ActivationText(name, command, InstallationVariables());
  } else if (IsUnitName(registered.service)) {
    const bool is_the_machines = ServicesAreTheMachines();
    (is_the_machines ? files.system_activation : files.activation) =
        UnitActivationText(name, registered.service, is_the_machines);
    if (is_the_machines) files.policy = DBusPolicyText(name, ServesOtherAccounts());
  }
  return files;
}

bool Put(RegistrationFolder kind, const std::string& file, const std::string& text) {
  const std::string folder = FolderOf(kind);
  if (folder.empty()) return text.empty();
  const std::string path = folder + "/" + file;
  return (text.empty() ? RemoveRegistrationFile(path) : WriteRegistrationFile(path, text)) ==
         ERROR_SUCCESS;
}

bool PutAll(const ClassPlan& plan, const DBusFiles& files) {
  const std::string activation_file = plan.bus_name() + ".service";
  return Put(RegistrationFolder::kActivation, activation_file, files.activation) &&
         Put(RegistrationFolder::kDBusPolicy, plan.bus_name() + ".conf", files.policy) &&
         Put(RegistrationFolder::kSystemActivation, activation_file, files.system_activation);
}

const ClassPlan* PlanOf(const interface_schema::Library& library) {
  return library.component ? ClassPlan::For(library) : nullptr;
}

}  // namespace

bool WriteDBusRegistration(const interface_schema::Library& library) {
  const ClassPlan* plan = PlanOf(library);
  return !plan || PutAll(*plan, FilesFor(*plan));
}

bool RemoveDBusRegistration(const interface_schema::Library& library) {
  const ClassPlan* plan = PlanOf(library);
  return !plan || PutAll(*plan, {});
}

}  // namespace linux_host
