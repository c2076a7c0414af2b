// The interfaces of a type library's class, worked out once for calls: signatures and names on the
// message bus, methods by their calls.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/interface_schema.h"

namespace linux_host {

using interface_schema::CallWord;
using interface_schema::kMaxCallWords;
using interface_schema::MethodCall;

struct ParameterPlan {
  interface_schema::ValueType type;
  bool is_output;
  bool is_result;                          // of late-bound calls
  const interface_schema::Record* record;  // of record parameters, else null
  std::string record_members;              // signature of the record's fields
};

struct MethodPlan {
  const interface_schema::Method* method;
  std::vector<ParameterPlan> parameters;
  std::string name;              // on the message bus
  const char* interface_name;    // on the message bus
  std::string input_signature;   // of the inputs in declaration order
  std::string output_signature;  // of the outputs in declaration order
  std::string parameter_names;   // the inputs' and then the outputs', each ended by a zero
};

// One interface with the methods that it adds.
struct InterfacePlan {
  const interface_schema::Interface* description;
  std::string name;  // on the message bus
  std::vector<MethodPlan> methods;
};

// How one value travels.
std::string Signature(const ParameterPlan& parameter);
char FieldSignature(const interface_schema::Field& field);

class ClassPlan {
 public:
  // Null when the library has no class, or its class is beyond what calls are made for: records as
  // outputs only and within kMaxRecordBytes. Made at the first use and kept for the life of the
  // process.
  static const ClassPlan* For(const interface_schema::Library& library);

  const interface_schema::Library& library() const { return *library_; }
  const interface_schema::ComponentClass& component() const { return *component_; }
  // From the first version to the class's default interface.
  const std::vector<std::unique_ptr<InterfacePlan>>& interfaces() const { return interfaces_; }
  // The method that has this call, which is one of the library's.
  const MethodPlan& method(MethodCall call) const;

  // Whether objects of the class answer for this interface with their one pointer: IUnknown,
  // IDispatch and every version.
  bool Answers(REFIID id) const;

  const std::string& bus_name() const { return bus_name_; }        // org.wirefox.CLASS
  const std::string& object_path() const { return object_path_; }  // /org/wirefox/CLASS
  // Of the interface that tells of probes, beside those of the class.
  std::string monitor_name() const { return bus_name_ + "Monitor1"; }

 private:
  ClassPlan() = default;
  bool Build(const interface_schema::Library& library);

  const interface_schema::Library* library_ = nullptr;
  const interface_schema::ComponentClass* component_ = nullptr;
  std::vector<std::unique_ptr<InterfacePlan>> interfaces_;
  std::vector<const MethodPlan*> methods_;
  std::string bus_name_;
  std::string object_path_;
};

inline constexpr std::size_t kMaxRecordBytes = 256;

}  // namespace linux_host
