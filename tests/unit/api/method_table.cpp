#include "tests/unit/api/method_table.h"

namespace {

std::size_t Same(std::size_t size) { return size; }

// A call with the probe's name and these arguments, of a method without outputs but its outcome.
template <typename Function, typename... Arguments>
auto OnProbe(Function function, Arguments... arguments) {
  return [=](CTzWirefox& object, Call& call) {
    return (object.*function)(call.name, arguments..., &call.error);
  };
}

}  // namespace

const std::vector<Method>& Methods() {
  static const std::vector<std::string> kAcquiring = {"SetupPortAcquire", "StageSWDCommand",
                                                      "BeginPortAcquire"};
  static const std::vector<Method> methods = {
      {.name = "EnumerateWirefoxs",
       .call = [](auto& o, auto& c) { return o.EnumerateWirefoxs(&c.result, &c.error); },
       .by = By::kNothing},
      {.name = "EnumerateDevices",
       .call = [](auto& o, auto& c) { return o.EnumerateDevices(c.name, &c.result, &c.error); },
       .operations = {"GetDeviceStatus"}},
      {.name = "SetLedState",
       .call = OnProbe(&CTzWirefox::SetLedState, TzLed::LED_3_GREEN, TzLedState::ON),
       .operations = {"LedState"}},
      {.name = "VisualIdentify",
       .call = OnProbe(&CTzWirefox::VisualIdentify, TzLedIdentifyState::ID_ON),
       .operations = {"Identify"}},
      {.name = "GetWirefoxStatus",
       .call = [](auto& o, auto& c) { return o.GetWirefoxStatus(c.name, &c.status, &c.error); },
       .operations = {"GetDeviceStatus", "JTAG_GetClock"}},
      {.name = "ToggleXres",
       .call = OnProbe(&CTzWirefox::ToggleXres, CHAR{1}),
       .operations = {"ResetTarget"}},
      {.name = "SetupSWV",
       .call = OnProbe(&CTzWirefox::SetupSWV, 1000000, CHAR{0}, SHORT{5}),
       .operations = {"SetupSWV"}},
      {.name = "GetHwRevID",
       .call = [](auto& o, auto& c) { return o.GetHwRevID(c.name, &c.number, &c.error); },
       .operations = {"XferData"}},
      {.name = "GetPortAcquireStatus",
       .call = [](auto& o,
                  auto& c) { return o.GetPortAcquireStatus(c.name, 0, &c.number, &c.error); },
       .operations = {"RetrievePortAcquireResponse"}},
      {.name = "VendorRequest",
       .call =
           [](auto& o, auto& c) {
             return o.VendorRequest(c.name, 1, 2, 3, c.data, 1, &c.result, &c.error);
           },
       .operations = {"XferData"},
       .result_size = Same,
       .always_result = true},
      {.name = "AcquireDevice",
       .call = [](auto& o,
                  auto& c) { return o.AcquireDevice(c.name, 0, OwnPid(), &c.acquired, &c.error); },
       .unknown = TzErrorCode::INVALID_DEVICE},
      {.name = "PortAcquire",
       .call =
           [](auto& o, auto& c) {
             return o.PortAcquire(c.name, TzProgrammingMode::RESET, 0, 0, 0, 0, 0, &c.error);
           },
       .blocked = Blocked::kByAnyOwner,
       .operations = kAcquiring},
      {.name = "SetTimeOut",
       .call = OnProbe(&CTzWirefox::SetTimeOut, TzWirefoxEndPoint::EP1, 500, OwnPid()),
       .blocked = Blocked::kByAnotherOwner,
       .operations = {"SetTimeout"}},
      {.name = "SetJtagClock",
       .call = OnProbe(&CTzWirefox::SetJtagClock, TzJtagClock::FREQ_A_08_0, OwnPid()),
       .blocked = Blocked::kByAnotherOwner,
       .operations = {"GetDeviceStatus", "JTAG_SetClock", "SetMode"}},
      {.name = "SetMode",
       .call = OnProbe(&CTzWirefox::SetMode, TzTransferMode::SWD, CHAR{0}, OwnPid()),
       .blocked = Blocked::kByAnotherOwner,
       .operations = {"SetMode", "SetActiveIOConnector"}},
      {.name = "SetVTarg",
       .call = OnProbe(&CTzWirefox::SetVTarg, TzVTargVoltage::VTARG_1_8, CHAR{1}, OwnPid()),
       .blocked = Blocked::kByAnotherOwner,
       .operations = {"SetVTargVal", "TargetPowerOn"}},
      {.name = "ReleaseDevice",
       .call = [](auto& o, auto& c) { return o.ReleaseDevice(c.handle, &c.error); },
       .by = By::kSession},
      {.name = "SendJtagPacket",
       .call = [](auto& o,
                  auto& c) { return o.SendJtagPacket(c.data, 1, c.handle, &c.result, &c.error); },
       .by = By::kSession,
       .modes = {1},
       .result_size = [](std::size_t size) { return (size + 1) / 2; },
       .always_result = true,
       // The recording probe object has no endpoints, so that no JTAG packet gets anywhere.
       .done = TzErrorCode::WFX_ERROR},
      {.name = "SendSwdPacket",
       .call = [](auto& o,
                  auto& c) { return o.SendSwdPacket(c.data, c.handle, &c.result, &c.error); },
       .by = By::kSession,
       .operations = {"SWDXfer"},
       .modes = {4, 12},
       .result_size = [](std::size_t size) { return (size + 4) / 5; }},  // of writes
      {.name = "SendI2CPacket",
       .call = [](auto& o,
                  auto& c) { return o.SendI2CPacket(c.data, c.handle, 0, &c.result, &c.error); },
       .by = By::kSession,
       .operations = {"I2CXfer"},
       .modes = {2},
       .result_size = [](std::size_t size) { return size + 2; }},
      {.name = "BulkTransfer",
       .call =
           [](auto& o, auto& c) {
             return o.BulkTransfer(TzWirefoxEndPoint::EP1, c.data, 0, c.handle, &c.result,
                                   &c.error);
           },
       .by = By::kSession,
       .operations = {"BulkXfer"},
       .result_size = Same,
       .always_result = true},
      {.name = "RequestSwvPackets",
       .call = [](auto& o, auto& c) { return o.RequestSwvPackets(c.handle, &c.result, &c.error); },
       .by = By::kSession,
       .operations = {"GetSWVData"},
       .modes = {12}},
      {.name = "RequestEtmPackets",
       .call = [](auto& o, auto& c) { return o.RequestEtmPackets(c.handle, &c.result, &c.error); },
       .by = By::kSession,
       .modes = {32, 33, 0x120}},
      {.name = "PortAcquire(wfxHandle)",
       .call =
           [](auto& o, auto& c) {
             return o.PortAcquire(TzProgrammingMode::RESET, 0, 0, 0, 0, 0, c.handle, &c.error);
           },
       .by = By::kSession,
       .operations = kAcquiring},
  };
  return methods;
}
