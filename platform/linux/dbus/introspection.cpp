#include "platform/linux/dbus/introspection.h"

#include <string_view>

#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

constexpr char kHead[] =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    "\"https://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n"
    "<node>\n";

// Those that the bus library answers for every object.
constexpr char kStandardInterfaces[] = R"( <interface name="org.freedesktop.DBus.Peer">
  <method name="Ping"/>
  <method name="GetMachineId">
   <arg type="s" name="machine_uuid" direction="out"/>
  </method>
 </interface>
 <interface name="org.freedesktop.DBus.Introspectable">
  <method name="Introspect">
   <arg name="xml_data" type="s" direction="out"/>
  </method>
 </interface>
 <interface name="org.freedesktop.DBus.Properties">
  <method name="Get">
   <arg name="interface_name" direction="in" type="s"/>
   <arg name="property_name" direction="in" type="s"/>
   <arg name="value" direction="out" type="v"/>
  </method>
  <method name="GetAll">
   <arg name="interface_name" direction="in" type="s"/>
   <arg name="props" direction="out" type="a{sv}"/>
  </method>
  <method name="Set">
   <arg name="interface_name" direction="in" type="s"/>
   <arg name="property_name" direction="in" type="s"/>
   <arg name="value" direction="in" type="v"/>
  </method>
  <signal name="PropertiesChanged">
   <arg type="s" name="interface_name"/>
   <arg type="a{sv}" name="changed_properties"/>
   <arg type="as" name="invalidated_properties"/>
  </signal>
 </interface>
)";

std::string Attribute(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// Nothing for an empty value.
std::string Annotation(int depth, const std::string& name, std::string_view value) {
  if (value.empty()) return "";
  return std::string(static_cast<std::size_t>(depth), ' ') + "<annotation name=\"" + name +
         "\" value=\"" + Attribute(value) + "\"/>\n";
}

std::string Wide(const wchar_t* text) { return text ? WideToUtf8(text) : std::string(); }

// An argument with the annotations in it; `direction` is empty for a signal's.
std::string Argument(const std::string& type, const std::string& name, const std::string& direction,
                     const std::string& annotations) {
  std::string text = "   <arg type=\"" + type + "\" name=\"" + Attribute(name) + "\"";
  if (!direction.empty()) text += " direction=\"" + direction + "\"";
  return text + (annotations.empty() ? "/>\n" : ">\n" + annotations + "   </arg>\n");
}

std::string MethodText(const MethodPlan& plan) {
  std::string text = "  <method name=\"" + plan.name + "\">\n" +
                     Annotation(3, kDocAnnotation, Wide(plan.method->help));
  for (const bool outputs : {false, true}) {
    for (std::size_t i = 0; i < plan.parameters.size(); ++i) {
      if (plan.parameters[i].is_output != outputs) continue;
      const interface_schema::Parameter& source = plan.method->parameters[i];
      text += Argument(Signature(plan.parameters[i]), Wide(source.name), outputs ? "out" : "in",
                       Annotation(4, kTypeAnnotation, Wide(source.user_type)));
    }
  }
  return text + "  </method>\n";
}

std::string ConstantsText(const interface_schema::Enumeration& enumeration) {
  std::string text;
  for (const interface_schema::Constant& constant : enumeration.constants) {
    if (!text.empty()) text += ", ";
    text += Wide(constant.name) + "=" + std::to_string(constant.value);
  }
  return text;
}

std::string FieldsText(const interface_schema::Record& record) {
  std::string text;
  for (const interface_schema::Field& field : record.fields) {
    if (!text.empty()) text += ", ";
    text += Wide(field.name) + ":" + FieldSignature(field);
  }
  return text;
}

std::string TypesText(const interface_schema::Library& library) {
  std::string text;
  for (const interface_schema::UserType& type : library.types) {
    text += type.record ? Annotation(2, kRecordAnnotation + Wide(type.record->name),
                                     FieldsText(*type.record))
                        : Annotation(2, kEnumerationAnnotation + Wide(type.enumeration->name),
                                     ConstantsText(*type.enumeration));
  }
  return text;
}

std::string MonitorText(const std::string& name) {
  using Texts = MonitorTexts;
  return " <interface name=\"" + name + "\">\n" + Annotation(2, kDocAnnotation, Texts::kHelp) +
         "  <property name=\"" + Texts::kProbes + "\" type=\"as\" access=\"read\">\n" +
         Annotation(3, kDocAnnotation, Texts::kProbesHelp) + "  </property>\n  <signal name=\"" +
         Texts::kChanged + "\">\n" + Annotation(3, kDocAnnotation, Texts::kChangedHelp) +
         Argument("as", Texts::kChangedArgument, "",
                  Annotation(4, kDocAnnotation, Texts::kChangedArgumentHelp)) +
         "  </signal>\n </interface>\n";
}

}  // namespace

std::string IntrospectionXml(const ClassPlan& plan, bool has_monitor) {
  std::string text = std::string(kHead) + kStandardInterfaces;
  for (const auto& interface : plan.interfaces()) {
    text += " <interface name=\"" + interface->name + "\">\n" +
            Annotation(2, kDocAnnotation, Wide(interface->description->help));
    if (interface == plan.interfaces().front()) text += TypesText(plan.library());
    for (const MethodPlan& method : interface->methods) text += MethodText(method);
    text += " </interface>\n";
  }
  if (has_monitor) text += MonitorText(plan.monitor_name());
  return text + "</node>\n";
}

}  // namespace linux_host
