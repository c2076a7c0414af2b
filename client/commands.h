// The commands' definitions, one for each row of the table in command_table.cpp.
#pragma once

#include "client/command.h"

namespace client {

// commands/commands_list.cpp
Action DefineList(CLI::App& app);
Action DefineTargets(CLI::App& app);
Action DefineVersion(CLI::App& app);

// commands/commands_wait.cpp
Action DefineWatch(CLI::App& app);
Action DefineHold(CLI::App& app);

// commands/commands_top.cpp
Action DefineTop(CLI::App& app);

// commands/commands_probe.cpp
Action DefineStatus(CLI::App& app);
Action DefineMode(CLI::App& app);
Action DefineVTarg(CLI::App& app);
Action DefineClock(CLI::App& app);
Action DefineTimeout(CLI::App& app);
Action DefineLed(CLI::App& app);
Action DefineIdentify(CLI::App& app);
Action DefineXres(CLI::App& app);
Action DefineSwvSetup(CLI::App& app);
Action DefineHwRev(CLI::App& app);

// commands/commands_jtag.cpp, commands_swd.cpp, commands_i2c.cpp
Action DefineJtag(CLI::App& app);
Action DefineSwd(CLI::App& app);
Action DefineI2c(CLI::App& app);

// commands/commands_bulk.cpp
Action DefineBulk(CLI::App& app);
Action DefineSwv(CLI::App& app);

// commands/commands_port.cpp
Action DefineAcquirePort(CLI::App& app);

// serve/commands_serve.cpp
Action DefineServe(CLI::App& app);

// svf/commands_play.cpp
Action DefinePlay(CLI::App& app);

// doctor/commands_doctor.cpp
Action DefineDoctor(CLI::App& app);

// commands/commands_script.cpp
Action DefineAcquire(CLI::App& app);
Action DefineRelease(CLI::App& app);
Action DefineScript(CLI::App& app);

// shell/
Action DefineCompletion(CLI::App& app);
Action DefineManual(CLI::App& app);
// For a shell's completion: prints what may stand where the cursor is, a line each, and behind a
// tabulator what it means. `words` are the one at the cursor with a '=' in front, and those before
// it. A line ":files" asks for paths; behind its tabulator stands what of the word is no path.
int Complete(std::span<const std::string> words, const Connector& connector, std::ostream& out);

}  // namespace client
