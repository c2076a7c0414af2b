// The bus itself: the device at the root of the system that the plugged devices hang from.
#pragma once

#include "platform/windows/virtual_bus/driver/kernel.h"
#include "platform/windows/virtual_bus/driver/probe_device.h"

namespace virtual_bus {

class Bus {
 public:
  void Initialize(DRIVER_OBJECT* driver);

  // AddDevice: the system has found the device at its root.
  NTSTATUS Attach(DEVICE_OBJECT* root);

  // Of the player's requests. A number is plugged once at a time.
  NTSTATUS Plug(const std::uint8_t* plug);
  NTSTATUS Unplug(std::uint32_t number);
  void UnplugAll();

  // Dispatch routine of the bus's device object.
  NTSTATUS PlugAndPlay(IRP* irp);

 private:
  ProbeDevice* Take(const std::uint32_t* number);
  void End(ProbeDevice& device);
  NTSTATUS AnswerRelations(IRP* irp);

  SpinLock lock_;
  LIST_ENTRY plugged_;
  DRIVER_OBJECT* driver_ = nullptr;
  DEVICE_OBJECT* object_ = nullptr;  // null while the system has not started the bus
  DEVICE_OBJECT* root_ = nullptr;    // whom our device object is attached to
  DEVICE_OBJECT* below_ = nullptr;   // the next of that stack
};

// The driver's one bus.
extern Bus bus;

}  // namespace virtual_bus
