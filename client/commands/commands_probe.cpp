#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "client/commands.h"
#include "client/options.h"
#include "client/probe_advice.h"
#include "client/text.h"

namespace client {

namespace {

// Codes are not checked here against what the interface names: the probe decides.
constexpr std::int64_t kMaxCode = INT32_MAX;

// What the flag bits 0 and 1 leave open stays a number, as do the voltages: their units are the
// firmware's own.
std::string StatusText(const Output& output, const std::string& probe, const TzWFXStatus& status) {
  const auto yes_no = [](std::uint8_t flag) { return flag != 0 ? "yes" : "no"; };
  const auto version = [](std::int16_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%04x", static_cast<std::uint16_t>(value));
    return std::string(text.data());
  };
  std::string text = probe + "\n";
  const auto add = [&text](const std::string& label, const std::string& value) {
    text +=
        "  " + label + std::string(label.size() < 20 ? 20 - label.size() : 1, ' ') + value + "\n";
  };
  add("mode", NameOfValue(kTransferModes, status.ACTIVE_INTERFACE));
  add("port", status.ACTIVE_PORT == 0   ? "5"
              : status.ACTIVE_PORT == 1 ? "10"
                                        : "code " + std::to_string(status.ACTIVE_PORT));
  add("JTAG clock", NameOfValue(kJtagClocks, status.CLOCK_FREQUENCY));
  add("target supply",
      std::string(status.WFX_FLAGS_VTARG_ON != 0 ? "on" : "off") +
          (status.WFX_FLAGS_VTARG_FAULT != 0 ? ", " + output.Coloured(Colour::kBad, "FAULT") : ""));
  add("target voltage", NameOfValue(kVoltages, status.VTARG_SET) + ", measured " +
                            std::to_string(status.VTARG_MEASURED));
  add("firmware", version(status.WFX_VERSION));
  add("bootloader", version(status.BOOTLOADER_VERSION));
  add("Vorn", version(status.VORN_VERSION));
  add("FPGA", std::to_string(status.FPGA_VERSION) + ", power state " +
                  std::to_string(status.WFX_FLAGS_FPGA_POWER_STATE));
  add("software valid", yes_no(status.WFX_FLAGS_SW_VALID));
  add("1.3 V supply on", yes_no(status.WFX_FLAGS_VCC1_3_ON));
  for (const std::string& problem : ProblemsIn(status)) {
    add("problem", output.Coloured(Colour::kBad, problem));
  }
  return text;
}

// The voltage's name is made of volts and tenths.
std::string WithTenths(const std::string& volts) {
  return volts.size() == 1 ? volts + ".0" : volts;
}

// What a command does that is one call about its probe.
template <typename Options>
Action Call(const std::shared_ptr<Options>& options,
            TzErrorCode (*call)(ServiceClient& service, const Options& given)) {
  return [options, call](Context& context) {
    return ReportOnProbe(context, Outcome(call(context.service(), *options)), options->probe);
  };
}

}  // namespace

Action DefineStatus(CLI::App& app) {
  auto probe = std::make_shared<std::string>();
  AddProbe(app, *probe);
  return [probe](Context& context) {
    Result result;
    TzWFXStatus status{};
    result.error = context.service().GetWirefoxStatus(*probe, status);
    result.outputs["status"] = StatusOutputs(status);
    if (result.error == TzErrorCode::SUCCESS)
      result.text = StatusText(context.output, *probe, status);
    return ReportOnProbe(context, result, *probe);
  };
}

Action DefineMode(CLI::App& app) {
  struct Options {
    std::string probe;
    std::int64_t mode = 0;
    std::int64_t port = 5;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  AddNamed(app, "MODE", options->mode, kTransferModes, kMaxCode, "The mode")->required();
  Offer(app.add_option("--port", options->port, "The connector of the SWD modes (default 5)"),
        "5 10")
      ->check(CLI::IsMember({5, 10}));
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.SetMode(given.probe, static_cast<TzTransferMode>(given.mode), given.port == 10);
  });
}

Action DefineVTarg(CLI::App& app) {
  struct Options {
    std::string probe;
    std::int32_t voltage = 0;
    bool supply = false;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  const auto parse = [options = options.get()](const std::string& volts) {
    const auto code = ValueOfName(kVoltages, WithTenths(volts));
    if (!code) {
      throw CLI::ValidationError("VOLTS", "'" + volts + "' is none of 1.8, 2.5, 3.3, 5.0");
    }
    options->voltage = *code;
  };
  Offer(app.add_option_function<std::string>("VOLTS", parse, "1.8, 2.5, 3.3 or 5.0"),
        "1.8 2.5 3.3 5.0")
      ->required();
  AddOnOff(app, "--supply", options->supply, "Whether the probe supplies it (default off)");
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.SetVTarg(given.probe, static_cast<TzVTargVoltage>(given.voltage), given.supply);
  });
}

Action DefineClock(CLI::App& app) {
  struct Options {
    std::string probe;
    std::int64_t code = 0;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  AddNamed(app, "CODE", options->code, kJtagClocks, kMaxCode, "The frequency's code")->required();
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.SetJtagClock(given.probe, static_cast<TzJtagClock>(given.code));
  });
}

Action DefineTimeout(CLI::App& app) {
  struct Options {
    std::string probe;
    std::int64_t endpoint = 0;
    std::int64_t timeout_ms = 0;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  AddNamed(app, "EP", options->endpoint, kEndPoints, kMaxCode,
           "The endpoint's address; one that reads has bit 7 set, such as 0x84")
      ->required();
  AddNumber(app, "MS", options->timeout_ms, INT32_MIN, INT32_MAX, "Milliseconds")->required();
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.SetTimeOut(given.probe, static_cast<TzWirefoxEndPoint>(given.endpoint),
                              static_cast<std::int32_t>(given.timeout_ms));
  });
}

Action DefineLed(CLI::App& app) {
  struct Options {
    std::string probe;
    std::int64_t led = 0;
    std::int64_t state = 0;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  AddNamed(app, "LED", options->led, kLeds, kMaxCode, "The LED")->required();
  AddNamed(app, "STATE", options->state, kLedStates, kMaxCode, "Its state")->required();
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.SetLedState(given.probe, static_cast<TzLed>(given.led),
                               static_cast<TzLedState>(given.state));
  });
}

Action DefineIdentify(CLI::App& app) {
  struct Options {
    std::string probe;
    std::int64_t state = 0;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  AddNamed(app, "STATE", options->state, kIdentifyStates, kMaxCode, "The pattern")->required();
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.VisualIdentify(given.probe, static_cast<TzLedIdentifyState>(given.state));
  });
}

Action DefineXres(CLI::App& app) {
  struct Options {
    std::string probe;
    bool active = false;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  AddOnOff(app, "STATE", options->active, "Whether the line is driven")->required();
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.ToggleXres(given.probe, given.active);
  });
}

Action DefineSwvSetup(CLI::App& app) {
  struct Options {
    std::string probe;
    std::int64_t frequency_hz = 0;
    bool manchester = false;
    std::int64_t commit_time = 0;
  };
  auto options = std::make_shared<Options>();
  AddProbe(app, options->probe);
  AddNumber(app, "HZ", options->frequency_hz, INT32_MIN, INT32_MAX, "The target's bit rate")
      ->required();
  app.add_flag("--manchester", options->manchester, "Manchester coding instead of UART");
  AddNumber(app, "--commit", options->commit_time, INT16_MIN, INT16_MAX,
            "Commit time, as the probe's firmware takes it (default 0)");
  return Call<Options>(options, [](ServiceClient& service, const Options& given) {
    return service.SetupSWV(given.probe, static_cast<std::int32_t>(given.frequency_hz),
                            given.manchester, static_cast<std::int16_t>(given.commit_time));
  });
}

Action DefineHwRev(CLI::App& app) {
  auto probe = std::make_shared<std::string>();
  AddProbe(app, *probe);
  return [probe](Context& context) {
    Result result;
    std::int32_t revision = 0;
    result.error = context.service().GetHwRevID(*probe, revision);
    result.outputs["revID"] = revision;
    if (result.error == TzErrorCode::SUCCESS) {
      result.text = "hardware revision " + std::to_string(revision) + "\n";
    }
    return ReportOnProbe(context, result, *probe);
  };
}

}  // namespace client
