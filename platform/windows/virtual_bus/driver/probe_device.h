// One device that is plugged in: its identity, its interface, and the handles of its clients.
#pragma once

#include "platform/windows/virtual_bus/bus_protocol.h"
#include "platform/windows/virtual_bus/driver/kernel.h"

namespace virtual_bus {

// The extension of a device object that the bus has made. Its clients' requests go to the player.
//
// The device object stays until the system has removed the device and the last handle is closed,
// so that requests on a handle that outlived the device are still answered.
class ProbeDevice : public DeviceExtension {
 public:
  // Makes a device from the player's kPlug input, which is Plug::kSize bytes. It is not told to the
  // system yet.
  static NTSTATUS Create(DRIVER_OBJECT* driver, const std::uint8_t* plug, ProbeDevice*& device);

  std::uint32_t number() const { return number_; }
  DEVICE_OBJECT* object() const { return object_; }

  // The device has left: what its clients have pending, and will ask for, fails.
  void Leave();

  // Dispatch routines.
  NTSTATUS Open(IRP* irp);
  NTSTATUS Close(IRP* irp);
  NTSTATUS Control(IRP* irp);
  NTSTATUS PlugAndPlay(IRP* irp);

  // Whether the bus lists it; under the bus's lock.
  LIST_ENTRY entry;

 private:
  NTSTATUS PresentInterface();
  void WithdrawInterface();
  NTSTATUS AnswerId(IRP* irp) const;
  NTSTATUS Remove(IRP* irp);
  // Gives up the system's hold on the device object, or a handle's; the last one deletes it.
  void Release();

  DEVICE_OBJECT* object_;
  std::uint32_t number_;
  GUID interface_class_;
  WCHAR device_id_[Plug::kTextSize];
  WCHAR instance_id_[Plug::kTextSize];
  UNICODE_STRING interface_;  // its link; empty while it is not presented
  volatile LONG gone_;
  volatile LONG removed_;
  volatile LONG users_;  // the system, and each handle
};

}  // namespace virtual_bus
