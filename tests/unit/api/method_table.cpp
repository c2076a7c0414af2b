#include "tests/unit/api/method_table.h"

namespace {

std::size_t Same(std::size_t size) { return size; }

// Arguments that are taken from a call, and places for what it gives.
constexpr auto kHandle = &Call::handle;
constexpr auto kData = &Call::data;

template <typename Value>
struct Place {
  Value Call::*member;
};
constexpr Place<Result> kResult = {&Call::result};
constexpr Place<LONG> kNumber = {&Call::number};

template <typename Value>
Value Given(Call&, Value value) {
  return value;
}
template <typename Value>
Value Given(Call& call, Value Call::*member) {
  return call.*member;
}
template <typename Value>
auto Given(Call& call, Place<Value> place) {
  return &(call.*place.member);
}

template <typename Function, typename... Arguments>
Method Calling(const char* name, const char* calls, By by, Function function,
               Arguments... arguments) {
  return {.name = name,
          .call =
              [=](CTzWirefox& object, Call& call) {
                return (object.*function)(Given(call, arguments)..., &call.error);
              },
          .calls = calls,
          .by = by};
}

template <typename Function, typename... Arguments>
Method OnProbe(const char* name, const char* calls, Function function, Arguments... arguments) {
  return Calling(name, calls, By::kName, function, &Call::name, arguments...);
}

template <typename... Arguments>
Method OnSession(const char* name, const char* calls, std::vector<std::uint32_t> modes,
                 Arguments... arguments) {
  Method method = Calling(name, calls, By::kSession, arguments...);
  method.modes = std::move(modes);
  return method;
}

Method BlockedBy(Blocked blocked, Method method) {
  method.blocked = blocked;
  return method;
}

Method Giving(bool always, std::size_t (*result_size)(std::size_t), Method method) {
  method.result_size = result_size;
  method.always_result = always;
  return method;
}

Method WithOutcomes(TzErrorCode unknown, TzErrorCode done, Method method) {
  method.unknown = unknown;
  method.done = done;
  return method;
}

using Object = CTzWirefox;
constexpr auto kReset = TzProgrammingMode::RESET;
constexpr char kAcquiring[] =
    "SetupPortAcquire(9, xres); StageSWDCommand(A5); BeginPortAcquire(); ";
constexpr auto kByAnother = Blocked::kByAnotherOwner;

}  // namespace

const std::vector<Method>& Methods() {
  static const std::vector<Method> methods = {
      Calling("EnumerateWirefoxs", "", By::kNothing, &Object::EnumerateWirefoxs, kResult),
      OnProbe("EnumerateDevices", "GetDeviceStatus(); ", &Object::EnumerateDevices, kResult),
      OnProbe("SetLedState", "LedState(3, 300); ", &Object::SetLedState, TzLed(3), TzLedState(300)),
      OnProbe("VisualIdentify", "Identify(3); ", &Object::VisualIdentify, TzLedIdentifyState(3)),
      OnProbe("GetWirefoxStatus", "GetDeviceStatus(); JTAG_GetClock(); ", &Object::GetWirefoxStatus,
              Place<TzWFXStatus>{&Call::status}),
      OnProbe("ToggleXres", "ResetTarget(drive); ", &Object::ToggleXres, CHAR{-1}),
      OnProbe("SetupSWV", "SetupSWV(1000000, 0, 65535); ", &Object::SetupSWV, 1000000, CHAR{0},
              SHORT{-1}),
      OnProbe("GetHwRevID", "XferData(in, 5C, 6416, 0, 00*64); ", &Object::GetHwRevID, kNumber),
      OnProbe("GetPortAcquireStatus", "RetrievePortAcquireResponse(room 100); ",
              &Object::GetPortAcquireStatus, CHAR{0}, kNumber),
      Giving(true, Same,
             OnProbe("VendorRequest", "XferData(out, 01, 2, 3, 01 02 03); ", &Object::VendorRequest,
                     1, 2, 3, kData, CHAR{1}, kResult)),
      WithOutcomes(TzErrorCode::INVALID_DEVICE, TzErrorCode::SUCCESS,
                   OnProbe("AcquireDevice", "", &Object::AcquireDevice, 0, OwnPid(),
                           Place<std::int64_t>{&Call::acquired})),
      BlockedBy(Blocked::kByAnyOwner,
                OnProbe("PortAcquire", kAcquiring, PortAcquireByName{&Object::PortAcquire}, kReset,
                        1, CHAR{0}, 2, 3, 9)),
      // An endpoint's address gets no direction bit.
      BlockedBy(kByAnother, OnProbe("SetTimeOut", "SetTimeout(06, 500); ", &Object::SetTimeOut,
                                    TzWirefoxEndPoint(0x106), 500, OwnPid())),
      BlockedBy(
          kByAnother,
          OnProbe("SetJtagClock", "GetDeviceStatus(); JTAG_SetClock(74565); SetMode(0, external); ",
                  &Object::SetJtagClock, TzJtagClock(0x12345), OwnPid())),
      BlockedBy(kByAnother, OnProbe("SetMode", "SetMode(4, external); SetActiveIOConnector(1); ",
                                    &Object::SetMode, TzTransferMode::SWD, CHAR{2}, OwnPid())),
      // The supply is switched only after the voltage is set.
      BlockedBy(kByAnother, OnProbe("SetVTarg", "SetVTargVal(99); TargetPowerOn(on); ",
                                    &Object::SetVTarg, TzVTargVoltage(99), CHAR{-1}, OwnPid())),
      OnSession("ReleaseDevice", "", {}, &Object::ReleaseDevice, kHandle),
      // The recording probe object has no endpoints, so that no JTAG packet gets anywhere.
      WithOutcomes(TzErrorCode::NOT_ACQUIRED, TzErrorCode::WFX_ERROR,
                   Giving(
                       true, [](std::size_t size) { return (size + 1) / 2; },
                       OnSession("SendJtagPacket", "", {1}, &Object::SendJtagPacket, kData, CHAR{1},
                                 kHandle, kResult))),
      Giving(
          false, [](std::size_t size) { return (size + 4) / 5; },  // of writes
          OnSession("SendSwdPacket", "SWDXfer(01 02 03, room 512); ", {4, 12},
                    &Object::SendSwdPacket, kData, kHandle, kResult)),
      Giving(
          false, [](std::size_t size) { return size + 2; },
          OnSession("SendI2CPacket", "I2CXfer(01 02 03, restart 131, room 5); ", {2},
                    &Object::SendI2CPacket, kData, kHandle, 0x183, kResult)),
      Giving(
          true, Same,
          OnSession("BulkTransfer", "BulkXfer(01, 01 02 03, mode 1); ", {}, &Object::BulkTransfer,
                    TzWirefoxEndPoint::EP1, kData, CHAR{0}, kHandle, kResult)),
      OnSession("RequestSwvPackets", "GetSWVData(); ", {12}, &Object::RequestSwvPackets, kHandle,
                kResult),
      OnSession("RequestEtmPackets", "", {32, 33, 0x120}, &Object::RequestEtmPackets, kHandle,
                kResult),
      OnSession("PortAcquire(wfxHandle)", kAcquiring, {}, PortAcquireByHandle{&Object::PortAcquire},
                kReset, 1, CHAR{0}, 2, 3, 9, kHandle),
  };
  return methods;
}
