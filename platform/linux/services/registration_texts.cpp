#include "platform/linux/services/registration_texts.h"

#include <algorithm>
#include <cstdio>

namespace linux_host {
namespace {

constexpr char kHeading[] = "# Written when the server was registered; unregistering removes it.\n";

// What every service is confined to. The probes are reached through the USB bus's device files and
// told of through netlink, clients through local sockets.
constexpr char kConfinement[] =
    "NoNewPrivileges=yes\n"
    "LockPersonality=yes\n"
    "MemoryDenyWriteExecute=yes\n"
    "RestrictAddressFamilies=AF_UNIX AF_NETLINK\n"
    "RestrictNamespaces=yes\n"
    "RestrictRealtime=yes\n"
    "RestrictSUIDSGID=yes\n"
    "SystemCallArchitectures=native\n"
    "SystemCallErrorNumber=EPERM\n"
    "SystemCallFilter=@system-service\n";

// What only the system's manager can do. /tmp stays the machine's: clients watch the
// devices-changed file there. So do the list of processes, by which a session's owner is known to
// live, and the network's namespace, in which device events are heard. The one capability lets root
// reach the sockets of benches, and log files, of other accounts.
constexpr char kMachineConfinement[] =
    "CapabilityBoundingSet=CAP_DAC_OVERRIDE\n"
    "DevicePolicy=closed\n"
    "DeviceAllow=char-usb_device rw\n"
    "IPAddressDeny=any\n"
    "ProtectClock=yes\n"
    "ProtectControlGroups=yes\n"
    "ProtectHostname=yes\n"
    "ProtectKernelLogs=yes\n"
    "ProtectKernelModules=yes\n"
    "ProtectKernelTunables=yes\n"
    "ProtectSystem=full\n";

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// In double quotes, with C's escapes, a percent sign doubled: systemd fills in its own texts there.
std::string UnitWord(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (IsControl(c)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(c));
      quoted += escape;
      continue;
    }
    if (c == '"' || c == '\\') quoted += '\\';
    if (c == '%') quoted += '%';
    quoted += c;
  }
  return quoted + '"';
}

// systemd refuses some characters in a program's path, which a shell then takes as an argument.
bool NeedsShell(const std::string& path) {
  return std::ranges::any_of(
      path, [](char c) { return IsControl(c) || c == '"' || c == '\'' || c == '\\'; });
}

// The colon keeps systemd from replacing what begins with a dollar sign.
std::string ExecStart(const std::vector<std::string>& command) {
  std::string line = "ExecStart=:";
  if (NeedsShell(command.front())) line += "/bin/sh -c \"exec \\\"$0\\\" \\\"$@\\\"\" ";
  for (const std::string& word : command) {
    if (&word != &command.front()) line += ' ';
    line += UnitWord(word);
  }
  return line + '\n';
}

std::string OneLine(std::string text) {
  std::ranges::replace_if(text, IsControl, ' ');
  for (std::size_t at = text.find('%'); at != text.npos; at = text.find('%', at + 2)) {
    text.insert(at, 1, '%');
  }
  return text;
}

// For the buses' command lines, which know a shell's quotes and nothing else of it.
std::string ShellWord(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\"'\"'";
    } else {
      quoted += c;
    }
  }
  return quoted + '\'';
}

// A value of an activation file, which has escapes of its own.
std::string EntryValue(const std::string& text) {
  std::string value;
  for (const char c : text) {
    if (c == '\\')
      value += "\\\\";
    else if (c == '\n')
      value += "\\n";
    else if (c == '\r')
      value += "\\r";
    else if (c == '\t')
      value += "\\t";
    else
      value += c;
  }
  return value;
}

std::string ActivationEntries(const std::string& bus_name, const std::string& command) {
  std::string text = kHeading;
  text += "[D-BUS Service]\nName=" + bus_name + "\nExec=" + EntryValue(command) + "\n";
  return text;
}

}  // namespace

bool IsUnitName(const std::string& name) {
  constexpr std::size_t kMaxCharacters = 200;
  return !name.empty() && name.size() <= kMaxCharacters && name.front() != '.' &&
         std::ranges::all_of(name, [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                  c == '-' || c == '_' || c == '.';
         });
}

std::string UnitText(const UnitDescription& unit) {
  std::string text = kHeading;
  text += "[Unit]\nDescription=" + OneLine(unit.description) + "\n";
  std::vector<std::string> needs = unit.needs;
  // USB's device files can be named below once the kernel knows of USB.
  if (unit.is_the_machines) needs.emplace_back("modprobe@usbcore.service");
  for (const std::string& needed : needs) {
    text += "Wants=" + needed + "\nAfter=" + needed + "\n";
  }
  text += "\n[Service]\nType=notify\n" + ExecStart(unit.command);
  for (const auto& [name, value] : unit.variables) {
    text += "Environment=" + UnitWord(name + "=" + value) + "\n";
  }
  // Fresh probes get their firmware before the service is ready.
  text += "TimeoutStartSec=120\n";
  text += kConfinement;
  if (!unit.is_the_machines) return text;
  text += kMachineConfinement;
  // An installation of its own may lie in a home directory.
  if (unit.variables.empty()) text += "ProtectHome=read-only\n";
  return text;
}

std::string ActivationText(const std::string& bus_name, const std::vector<std::string>& command,
                           const Variables& variables) {
  std::string line;
  if (!variables.empty()) {
    // Not through env, to which a path with an equals sign is one more variable.
    std::string script = "export";
    for (std::size_t i = 1; i <= variables.size(); ++i) script += " \"$" + std::to_string(i) + '"';
    script += "; shift " + std::to_string(variables.size()) + "; exec \"$@\"";
    line = "/bin/sh -c " + ShellWord(script) + " sh";
    for (const auto& [name, value] : variables) line += ' ' + ShellWord(name + "=" + value);
  }
  for (const std::string& word : command) {
    if (!line.empty()) line += ' ';
    line += ShellWord(word);
  }
  return ActivationEntries(bus_name, line);
}

std::string UnitActivationText(const std::string& bus_name, const std::string& unit, bool as_root) {
  // Without systemd there is nobody to start it.
  std::string text = ActivationEntries(bus_name, "/bin/false");
  if (as_root) text += "User=root\n";
  return text + "SystemdService=" + unit + ".service\n";
}

std::string DBusPolicyText(const std::string& bus_name, bool for_all) {
  const std::string call = "    <allow send_destination=\"" + bus_name + "\"/>\n";
  std::string text =
      "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN\"\n"
      " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
      "<!-- Written when the server was registered; unregistering removes it. -->\n"
      "<busconfig>\n"
      "  <policy user=\"root\">\n"
      "    <allow own=\"" +
      bus_name + "\"/>\n" + call + "  </policy>\n";
  if (for_all) text += "  <policy context=\"default\">\n" + call + "  </policy>\n";
  return text + "</busconfig>\n";
}

}  // namespace linux_host
