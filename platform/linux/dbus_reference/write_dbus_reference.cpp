// Fills the parts of the message bus reference that the interface table tells into the text around
// them: lines @NAMES@, @METHODS@, @ENUMERATIONS@, @RECORDS@ and @MONITOR@.
// usage: write_dbus_reference TEXT PAGE [--check]      with --check: is the page what it would be?

#include <cctype>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

#include "api/interface_table.h"
#include "platform/linux/dbus/introspection.h"
#include "platform/linux/kernel/text.h"

namespace {

using linux_host::ClassPlan;
using linux_host::MethodPlan;
using linux_host::WideToUtf8;

std::string Code(const std::string& text) { return "`" + text + "`"; }

std::string Wide(const wchar_t* text) { return text ? WideToUtf8(text) : std::string(); }

// Of a heading, as those who show pages make it.
std::string Anchor(std::string heading) {
  for (char& c : heading) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return heading;
}

std::string NamesText(const ClassPlan& plan) {
  std::string text = "| | |\n|---|---|\n| bus name | " + Code(plan.bus_name()) + " |\n| object | " +
                     Code(plan.object_path()) + " |\n";
  for (const auto& interface : plan.interfaces()) {
    text += "| interface | " + Code(interface->name) + ", " +
            std::to_string(interface->methods.size()) +
            (interface->methods.size() == 1 ? " method |\n" : " methods |\n");
  }
  return text + "| interface | " + Code(plan.monitor_name()) + ", one property and one signal |\n";
}

// The inputs in their order, and then the outputs.
std::string ArgumentsText(const MethodPlan& plan) {
  std::string text;
  for (const bool outputs : {false, true}) {
    for (std::size_t i = 0; i < plan.parameters.size(); ++i) {
      if (plan.parameters[i].is_output != outputs) continue;
      const interface_schema::Parameter& source = plan.method->parameters[i];
      const std::string type = Wide(source.user_type);
      text += std::string("| ") + (outputs ? "out" : "in") + " | " + Code(Wide(source.name)) +
              " | " + Code(Signature(plan.parameters[i])) + " | " +
              (type.empty() ? "" : "[" + type + "](#" + Anchor(type) + ")") + " |\n";
    }
  }
  return text;
}

std::string MethodsText(const ClassPlan& plan) {
  std::string text;
  for (const auto& interface : plan.interfaces()) {
    text += "### " + interface->name + "\n";
    for (const MethodPlan& method : interface->methods) {
      text += "\n#### " + method.name + "(" + method.input_signature + ") → " +
              method.output_signature + "\n\n" + Wide(method.method->help) +
              "\n\n| | Argument | Type | Numbers of |\n|---|---|---|---|\n" + ArgumentsText(method);
    }
    text += "\n";
  }
  text.pop_back();
  return text;
}

std::string EnumerationsText(const ClassPlan& plan) {
  std::string text;
  for (const interface_schema::UserType& type : plan.library().types) {
    if (!type.enumeration) continue;
    const interface_schema::Enumeration& enumeration = *type.enumeration;
    text += "### " + Wide(enumeration.name) + "\n\n" + Wide(enumeration.help) +
            "\n\n| Name | Number | |\n|---|---|---|\n";
    for (const interface_schema::Constant& constant : enumeration.constants) {
      text += "| " + Code(Wide(constant.name)) + " | " + std::to_string(constant.value) + " | " +
              Wide(constant.help) + " |\n";
    }
    text += "\n";
  }
  text.pop_back();
  return text;
}

std::string RecordsText(const ClassPlan& plan) {
  std::string text;
  for (const interface_schema::UserType& type : plan.library().types) {
    if (!type.record) continue;
    text += "### " + Wide(type.record->name) + "\n\n" + Wide(type.record->help) +
            "\n\n| Place | Field | Type |\n|---|---|---|\n";
    int place = 0;
    for (const interface_schema::Field& field : type.record->fields) {
      text += "| " + std::to_string(place++) + " | " + Code(Wide(field.name)) + " | " +
              Code(std::string(1, linux_host::FieldSignature(field))) + " |\n";
    }
  }
  return text;
}

std::string MonitorText(const ClassPlan& plan) {
  using Texts = linux_host::MonitorTexts;
  return "### " + plan.monitor_name() + "\n\n" + Texts::kHelp +
         ".\n\n| | | Type | |\n|---|---|---|---|\n| property | " + Code(Texts::kProbes) +
         " | `as` | " + Texts::kProbesHelp + " |\n| signal | " + Code(Texts::kChanged) +
         " | `as` " + Code(Texts::kChangedArgument) + " | " + Texts::kChangedHelp + " |\n";
}

std::string FileText(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string PageText(const ClassPlan& plan, const std::string& source) {
  const std::map<std::string, std::string (*)(const ClassPlan&)> parts = {
      {"@NAMES@", &NamesText},
      {"@METHODS@", &MethodsText},
      {"@ENUMERATIONS@", &EnumerationsText},
      {"@RECORDS@", &RecordsText},
      {"@MONITOR@", &MonitorText},
  };
  std::string page;
  std::istringstream lines(source);
  for (std::string line; std::getline(lines, line);) {
    const auto part = parts.find(line);
    page += part == parts.end() ? line + "\n" : part->second(plan);
  }
  return page;
}

}  // namespace

int main(int count, char** words) {
  const ClassPlan* plan = ClassPlan::For(api::kLibrary);
  if (count < 3 || !plan) return 2;
  const std::string page = PageText(*plan, FileText(words[1]));
  if (count > 3 && std::string_view(words[3]) == "--check") {
    if (page == FileText(words[2])) return 0;
    std::cerr << words[2]
              << " is not what the table says: build the target update_dbus_reference\n";
    return 1;
  }
  std::ofstream file(words[2], std::ios::binary);
  file << page << std::flush;
  return file ? 0 : 1;
}
