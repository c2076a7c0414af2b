#include "platform/linux/automation/interface_plan.h"

#include <oaidl.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

using interface_schema::Direction;
using interface_schema::FieldType;
using interface_schema::Interface;
using interface_schema::Library;
using interface_schema::Method;
using interface_schema::Parameter;
using interface_schema::Record;
using interface_schema::ValueType;

const Record* FindRecord(const Library& library, const wchar_t* name) {
  if (!name) return nullptr;
  for (const interface_schema::UserType& type : library.types) {
    if (type.record && std::wstring_view(type.record->name) == name) return type.record;
  }
  return nullptr;
}

std::string RecordMembers(const Record& record) {
  std::string members;
  for (const interface_schema::Field& field : record.fields) {
    members += FieldSignature(field);
  }
  return members;
}

// False when calls are not made for such a parameter.
bool PlanParameter(const Library& library, const Parameter& source, ParameterPlan& plan) {
  plan.type = source.type;
  plan.is_output = source.direction != Direction::kIn;
  plan.is_result = source.direction == Direction::kOutRetval;
  plan.record = nullptr;
  if (source.type != ValueType::kRecord) return true;
  plan.record = FindRecord(library, source.user_type);
  if (!plan.record || plan.record->size > kMaxRecordBytes || !plan.is_output) return false;
  plan.record_members = RecordMembers(*plan.record);
  return std::all_of(
      plan.record->fields.begin(), plan.record->fields.end(), [&](const auto& field) {
        return field.offset + (field.type == FieldType::kSigned16 ? 2u : 1u) <= plan.record->size;
      });
}

bool PlanMethod(const Library& library, const Method& source, MethodPlan& plan) {
  plan.method = &source;
  plan.name = WideToUtf8(source.name);
  std::string input_names, output_names;
  for (const Parameter& parameter : source.parameters) {
    ParameterPlan& planned = plan.parameters.emplace_back();
    if (!PlanParameter(library, parameter, planned)) return false;
    std::string& signature = planned.is_output ? plan.output_signature : plan.input_signature;
    std::string& names = planned.is_output ? output_names : input_names;
    signature += Signature(planned);
    names += WideToUtf8(parameter.name) + '\0';
  }
  plan.parameter_names = input_names + output_names;
  return true;
}

}  // namespace

char FieldSignature(const interface_schema::Field& field) {
  return field.type == FieldType::kUnsigned8 ? 'y' : 'n';
}

std::string Signature(const ParameterPlan& parameter) {
  switch (parameter.type) {
    case ValueType::kBstr:
      return "s";
    case ValueType::kLong:
    case ValueType::kProcessId:
    case ValueType::kEnumeration:
      return "i";
    case ValueType::kShort:
      return "n";
    case ValueType::kChar:
      return "y";
    case ValueType::kInt64:
      return "x";
    case ValueType::kByteArray:
      return "ay";
    case ValueType::kStringArray:
      return "as";
    case ValueType::kRecord:
      return "(" + parameter.record_members + ")";
  }
  return "";
}

bool ClassPlan::Build(const Library& library) {
  library_ = &library;
  component_ = library.component;
  const std::string name = WideToUtf8(component_->name);
  bus_name_ = "org.wirefox." + name;
  object_path_ = "/org/wirefox/" + name;

  std::vector<const Interface*> chain;
  for (const Interface* i = component_->default_interface; i; i = i->base) {
    chain.insert(chain.begin(), i);
  }
  for (const Interface* description : chain) {
    auto plan = std::make_unique<InterfacePlan>();
    plan->description = description;
    plan->name = "org.wirefox." + WideToUtf8(description->name);
    plan->methods.resize(description->methods.size());
    for (std::size_t i = 0; i < plan->methods.size(); ++i) {
      MethodPlan& method = plan->methods[i];
      if (!PlanMethod(library, description->methods[i], method)) return false;
      method.interface_name = plan->name.c_str();
      methods_.push_back(&method);
    }
    interfaces_.push_back(std::move(plan));
  }
  return true;
}

const ClassPlan* ClassPlan::For(const Library& library) {
  // Never destroyed: proxies may outlive every other part of the process.
  static auto& mutex = *new std::mutex;
  static auto& plans = *new std::map<const Library*, std::unique_ptr<ClassPlan>>;
  if (!library.component) return nullptr;
  std::lock_guard lock(mutex);
  auto [entry, is_new] = plans.try_emplace(&library);
  if (is_new) {
    std::unique_ptr<ClassPlan> plan(new ClassPlan);
    if (plan->Build(library)) entry->second = std::move(plan);
  }
  return entry->second.get();
}

const MethodPlan& ClassPlan::method(MethodCall call) const {
  return **std::find_if(methods_.begin(), methods_.end(),
                        [&](const MethodPlan* plan) { return plan->method->call == call; });
}

bool ClassPlan::Answers(REFIID id) const {
  if (IsEqualIID(id, IID_IUnknown) || IsEqualIID(id, IID_IDispatch)) return true;
  return std::any_of(interfaces_.begin(), interfaces_.end(),
                     [&](const auto& plan) { return IsEqualIID(id, *plan->description->id); });
}

}  // namespace linux_host
