// What an object on the message bus says of itself when it is asked: the interfaces of its class,
// with the help texts, enumerations and records of the class's library as annotations. (The bus
// library's own answer knows no annotations.)
#pragma once

#include <string>

#include "platform/linux/automation/interface_plan.h"

namespace linux_host {

// The interface beside those of the class that tells of probes which come and go. One more version
// of it would have a number of its own.
struct MonitorTexts {
  static constexpr char kHelp[] =
      "Tells of probes that come and go, so that nobody has to watch a file";
  static constexpr char kProbes[] = "Probes";
  static constexpr char kProbesHelp[] =
      "The names of the probes that are ready. Reading them costs no USB request";
  static constexpr char kChanged[] = "Changed";
  static constexpr char kChangedHelp[] =
      "Probes have come or gone, perhaps the same one at once. Several changes in a row are told "
      "as "
      "one";
  static constexpr char kChangedArgument[] = "probes";
  static constexpr char kChangedArgumentHelp[] = "The names of the probes that are ready now";
};

// Readers of documentation know this one: gdbus-codegen, for example.
inline constexpr char kDocAnnotation[] = "org.gtk.GDBus.DocString";
// Of an argument: the name of its enumeration or record in the library.
inline constexpr char kTypeAnnotation[] = "org.wirefox.Type";
// Of the first interface, followed by the name: "NAME=VALUE, ..." and "FIELD:TYPE, ...".
inline constexpr char kEnumerationAnnotation[] = "org.wirefox.Enumeration.";
inline constexpr char kRecordAnnotation[] = "org.wirefox.Record.";

// The object's description as a document of its own, with the standard interfaces.
std::string IntrospectionXml(const ClassPlan& plan, bool has_monitor);

}  // namespace linux_host
