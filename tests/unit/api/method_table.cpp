#include "tests/unit/api/method_table.h"

namespace {

std::size_t Same(std::size_t size) { return size; }

}  // namespace

const std::vector<Method>& Methods() {
  static const std::vector<Method> methods = {
      {.name = "EnumerateWirefoxs",
       .call = [](auto& o, auto& c) { return o.EnumerateWirefoxs(&c.result, &c.error); },
       .by = By::kNothing},
      {.name = "EnumerateDevices",
       .call = [](auto& o, auto& c) { return o.EnumerateDevices(c.name, &c.result, &c.error); },
       .operations = {"GetDeviceStatus"}},
      {.name = "SetLedState",
       .call =
           [](auto& o, auto& c) {
             return o.SetLedState(c.name, TzLed::LED_3_GREEN, TzLedState::ON, &c.error);
           },
       .operations = {"LedState"}},
      {.name = "VisualIdentify",
       .call =
           [](auto& o, auto& c) {
             return o.VisualIdentify(c.name, TzLedIdentifyState::ID_ON, &c.error);
           },
       .operations = {"Identify"}},
      {.name = "GetWirefoxStatus",
       .call = [](auto& o, auto& c) { return o.GetWirefoxStatus(c.name, &c.status, &c.error); },
       .operations = {"GetDeviceStatus", "JTAG_GetClock"}},
      {.name = "ToggleXres",
       .call = [](auto& o, auto& c) { return o.ToggleXres(c.name, 1, &c.error); },
       .operations = {"ResetTarget"}},
      {.name = "SetupSWV",
       .call = [](auto& o, auto& c) { return o.SetupSWV(c.name, 1000000, 0, 5, &c.error); },
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
                  auto& c) { return o.AcquireDevice(c.name, 0, OwnPid(), &c.acquired, &c.error); }},
      {.name = "PortAcquire",
       .call =
           [](auto& o, auto& c) {
             return o.PortAcquire(c.name, TzProgrammingMode::RESET, 0, 0, 0, 0, 0, &c.error);
           },
       .blocked = Blocked::kByAnyOwner,
       .operations = {"SetupPortAcquire", "StageSWDCommand", "BeginPortAcquire"}},
      {.name = "SetTimeOut",
       .call =
           [](auto& o, auto& c) {
             return o.SetTimeOut(c.name, TzWirefoxEndPoint::EP1, 500, OwnPid(), &c.error);
           },
       .blocked = Blocked::kByAnotherOwner,
       .operations = {"SetTimeout"}},
      {.name = "SetJtagClock",
       .call =
           [](auto& o, auto& c) {
             return o.SetJtagClock(c.name, TzJtagClock::FREQ_A_08_0, OwnPid(), &c.error);
           },
       .blocked = Blocked::kByAnotherOwner,
       .operations = {"GetDeviceStatus", "JTAG_SetClock", "SetMode"}},
      {.name = "SetMode",
       .call =
           [](auto& o, auto& c) {
             return o.SetMode(c.name, TzTransferMode::SWD, 0, OwnPid(), &c.error);
           },
       .blocked = Blocked::kByAnotherOwner,
       .operations = {"SetMode", "SetActiveIOConnector"}},
      {.name = "SetVTarg",
       .call =
           [](auto& o, auto& c) {
             return o.SetVTarg(c.name, TzVTargVoltage::VTARG_1_8, 1, OwnPid(), &c.error);
           },
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
       .always_result = true},
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
       .operations = {"SetupPortAcquire", "StageSWDCommand", "BeginPortAcquire"}},
  };
  return methods;
}
