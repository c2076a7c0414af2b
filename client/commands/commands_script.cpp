#include <memory>
#include <sstream>
#include <string>

#include "client/commands.h"
#include "client/options.h"
#include "client/script.h"
#include "client/target_session.h"

namespace client {

Action DefineAcquire(CLI::App& app) {
  auto target = std::make_shared<TransferTarget>();
  AddProbe(app, target->probe);
  AddNumber(app, "--target", target->target, 0, INT32_MAX,
            "Number of the target behind the probe (default 0, the first)");
  return [target](Context& context) {
    std::int64_t handle = 0;
    Result result = AcquireTarget(context.service(), *target, kTargetModes, handle);
    result.outputs["wfxHandle"] = handle;
    if (result.error == TzErrorCode::SUCCESS) {
      context.sessions[context.assign_to] = {target->probe, handle};
    }
    return context.Report(result);
  };
}

Action DefineRelease(CLI::App& app) {
  auto name = std::make_shared<std::string>();
  app.add_option("SESSION", *name, "The session, as $NAME")->required();
  return [name](Context& context) {
    const auto session =
        name->starts_with('$') ? context.sessions.find(name->substr(1)) : context.sessions.end();
    if (session == context.sessions.end()) {
      return context.output.ReportUsage("there is no session " + *name);
    }
    const std::int64_t handle = session->second.handle;
    context.sessions.erase(session);
    return context.Report(Outcome(context.service().ReleaseDevice(handle)));
  };
}

Action DefineScript(CLI::App& app) {
  auto path = std::make_shared<std::string>();
  Offer(app.add_option("FILE", *path, "The script, or - for standard input"), kFileOffer)
      ->required();
  app.footer(
      "Each line is a command as on the command line, without wfx.\n"
      "  NAME = acquire PROBE [--target N]   holds a target; $NAME stands for it in the commands\n"
      "                                      jtag, swd, i2c, bulk, swv and acquire-port\n"
      "  release $NAME                       lets it go (the end of the script does, too)\n"
      "  - COMMAND                           may fail; any other failure ends the script\n"
      "  # ...                               a comment");
  return [path](Context& context) {
    if (*path == "-") {
      std::istream& text = *context.input;
      context.input = nullptr;
      return RunScript(context, text, "stdin");
    }
    std::string problem;
    auto content = ReadWholeFile(*path, problem);
    if (!content) return context.output.ReportUsage(problem);
    std::istringstream text(std::move(*content));
    return RunScript(context, text, *path);
  };
}

}  // namespace client
