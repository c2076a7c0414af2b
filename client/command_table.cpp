#include "client/commands.h"

namespace client {

std::span<const Command> AllCommands() {
  static constexpr auto kEverywhere = CommandPlace::kEverywhere;
  static constexpr auto kCommandLineOnly = CommandPlace::kCommandLineOnly;
  static constexpr auto kScriptOnly = CommandPlace::kScriptOnly;
  static constexpr auto kUnlisted = CommandPlace::kUnlisted;
  static constexpr Command kCommands[] = {
      {"list", "Name the probes", kEverywhere, DefineList, true, true},
      {"watch", "Name the probes now and whenever they change", kCommandLineOnly, DefineWatch, true,
       true},
      {"top", "Show who holds what and how busy the probes are", kCommandLineOnly, DefineTop,
       false},
      {"version", "Print the service's version", kEverywhere, DefineVersion},
      {"hold", "Keep the service running until interrupted", kCommandLineOnly, DefineHold},
      {"status", "Print what a probe says of itself", kEverywhere, DefineStatus},
      {"mode", "Switch a probe into a transfer mode", kEverywhere, DefineMode},
      {"vtarg", "Set the target's voltage", kEverywhere, DefineVTarg},
      {"clock", "Set the JTAG clock", kEverywhere, DefineClock},
      {"timeout", "Set how long an endpoint may take", kEverywhere, DefineTimeout},
      {"led", "Switch an LED of a probe", kEverywhere, DefineLed},
      {"identify", "Make a probe show itself by its LEDs", kEverywhere, DefineIdentify},
      {"xres", "Drive or release the target's reset line", kEverywhere, DefineXres},
      {"swv-setup", "Set up the trace receiver", kEverywhere, DefineSwvSetup},
      {"hwrev", "Print a probe's hardware revision", kEverywhere, DefineHwRev},
      {"targets", "Find the targets behind a probe", kEverywhere, DefineTargets},
      {"jtag", "Clock JTAG cycles, or scan registers", kEverywhere, DefineJtag},
      {"swd", "Send SWD requests, or access registers and memory", kEverywhere, DefineSwd},
      {"i2c", "Run I2C transactions", kEverywhere, DefineI2c},
      {"bulk", "Move bytes through an endpoint", kEverywhere, DefineBulk},
      {"swv", "Fetch trace data", kEverywhere, DefineSwv},
      {"acquire-port", "Catch a target in its test mode", kEverywhere, DefineAcquirePort},
      {"play", "Play an SVF file through a JTAG chain", kEverywhere, DefinePlay},
      {"serve", "Let OpenOCD and other tools use a JTAG chain", kCommandLineOnly, DefineServe},
      {"doctor", "Find out what does not work, and what to do", kCommandLineOnly, DefineDoctor,
       false},
      {"script", "Run commands from a file, in one process", kCommandLineOnly, DefineScript, false,
       false, true},
      {"acquire", "Hold a target: NAME = acquire PROBE", kScriptOnly, DefineAcquire},
      {"release", "Let a session go", kScriptOnly, DefineRelease},
      {"completion", "Print what a shell needs to complete wfx", kUnlisted, DefineCompletion,
       false},
      {"manual", "Print the manual page", kUnlisted, DefineManual, false},
  };
  return kCommands;
}

}  // namespace client
