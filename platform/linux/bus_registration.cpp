#include "platform/linux/bus_registration.h"

#include <string>

#include "platform/linux/component_paths.h"
#include "platform/linux/registered_class.h"
#include "platform/linux/registration_files.h"
#include "platform/linux/registration_texts.h"
#include "platform/linux/server_process.h"

namespace linux_host {
namespace {

// The text of each file; empty: there shall be none.
struct BusFiles {
  std::string activation;
  std::string system_activation;
  std::string policy;
};

BusFiles FilesFor(const ClassPlan& plan) {
  const RegisteredClass registered = FindRegisteredClass(*plan.component().id);
  BusFiles files;
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
    if (is_the_machines) files.policy = BusPolicyText(name, ServesAllAccounts());
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

bool PutAll(const ClassPlan& plan, const BusFiles& files) {
  const std::string activation_file = plan.bus_name() + ".service";
  return Put(RegistrationFolder::kActivation, activation_file, files.activation) &&
         Put(RegistrationFolder::kBusPolicy, plan.bus_name() + ".conf", files.policy) &&
         Put(RegistrationFolder::kSystemActivation, activation_file, files.system_activation);
}

const ClassPlan* PlanOf(const interface_schema::Library& library) {
  return library.component == nullptr ? nullptr : ClassPlan::For(library);
}

}  // namespace

bool WriteBusRegistration(const interface_schema::Library& library) {
  const ClassPlan* plan = PlanOf(library);
  return plan == nullptr || PutAll(*plan, FilesFor(*plan));
}

bool RemoveBusRegistration(const interface_schema::Library& library) {
  const ClassPlan* plan = PlanOf(library);
  return plan == nullptr || PutAll(*plan, {});
}

}  // namespace linux_host
