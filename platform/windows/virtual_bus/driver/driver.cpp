// The driver's entry, its control device, and the way of each request to the object that it is for.
#include "platform/windows/virtual_bus/bus_protocol.h"
#include "platform/windows/virtual_bus/driver/bus.h"
#include "platform/windows/virtual_bus/driver/kernel.h"
#include "platform/windows/virtual_bus/driver/request_queue.h"

namespace virtual_bus {
namespace {

DEVICE_OBJECT* control_device = nullptr;

// The player's handle on the control device, a file object; null while there is none.
void* volatile player = nullptr;

DeviceKind KindOf(const DEVICE_OBJECT* device) {
  return static_cast<const DeviceExtension*>(device->DeviceExtension)->kind;
}

ProbeDevice& ProbeOf(const DEVICE_OBJECT* device) {
  return *static_cast<ProbeDevice*>(device->DeviceExtension);
}

NTSTATUS BecomePlayer(IRP* irp) {
  const bool free = InterlockedCompareExchangePointer(&player, FileOf(irp), nullptr) == nullptr;
  return Finish(irp, free ? STATUS_SUCCESS : STATUS_SHARING_VIOLATION);
}

NTSTATUS ControlTheBus(IRP* irp) {
  const auto& control = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  const auto* const input = static_cast<const std::uint8_t*>(irp->AssociatedIrp.SystemBuffer);
  const ULONG size = input ? control.InputBufferLength : 0;
  if (control.IoControlCode == kPlay) return BecomePlayer(irp);
  if (FileOf(irp) != player) return Finish(irp, STATUS_ACCESS_DENIED);
  switch (control.IoControlCode) {
    case kPlug:
      return Finish(irp, size < Plug::kSize ? STATUS_INVALID_PARAMETER : bus.Plug(input));
    case kUnplug:
      return Finish(irp, size < 4 ? STATUS_INVALID_PARAMETER : bus.Unplug(LoadLe32(input)));
    case kNext:
      return requests.Next(irp);
    case kFetch:
      return requests.Fetch(irp);
    case kComplete:
      return requests.Complete(irp);
    default:
      return Finish(irp, STATUS_INVALID_DEVICE_REQUEST);
  }
}

NTSTATUS NTAPI Create(DEVICE_OBJECT* device, IRP* irp) {
  if (KindOf(device) == DeviceKind::kProbe) return ProbeOf(device).Open(irp);
  return Finish(irp, STATUS_SUCCESS);
}

// A player that has ended takes its devices with it, so that no client waits for ever.
NTSTATUS NTAPI Close(DEVICE_OBJECT* device, IRP* irp) {
  if (KindOf(device) == DeviceKind::kProbe) return ProbeOf(device).Close(irp);
  if (KindOf(device) == DeviceKind::kControl && FileOf(irp) == player) {
    bus.UnplugAll();
    requests.DropNotices();
    player = nullptr;
  }
  return Finish(irp, STATUS_SUCCESS);
}

NTSTATUS NTAPI DeviceControl(DEVICE_OBJECT* device, IRP* irp) {
  switch (KindOf(device)) {
    case DeviceKind::kProbe:
      return ProbeOf(device).Control(irp);
    case DeviceKind::kControl:
      return ControlTheBus(irp);
    default:
      return Finish(irp, STATUS_INVALID_DEVICE_REQUEST);
  }
}

NTSTATUS NTAPI PlugAndPlay(DEVICE_OBJECT* device, IRP* irp) {
  switch (KindOf(device)) {
    case DeviceKind::kProbe:
      return ProbeOf(device).PlugAndPlay(irp);
    case DeviceKind::kBus:
      return bus.PlugAndPlay(irp);
    default:
      return Finish(irp, STATUS_INVALID_DEVICE_REQUEST);
  }
}

NTSTATUS NTAPI AddDevice(DRIVER_OBJECT*, DEVICE_OBJECT* root) { return bus.Attach(root); }

void NTAPI Unload(DRIVER_OBJECT*) {
  bus.UnplugAll();
  UNICODE_STRING link;
  RtlInitUnicodeString(&link, kControlDeviceLink);
  IoDeleteSymbolicLink(&link);
  IoDeleteDevice(control_device);
}

NTSTATUS MakeControlDevice(DRIVER_OBJECT* driver) {
  UNICODE_STRING name;
  UNICODE_STRING link;
  RtlInitUnicodeString(&name, kControlDevice);
  RtlInitUnicodeString(&link, kControlDeviceLink);
  NTSTATUS status = IoCreateDevice(driver, sizeof(DeviceExtension), &name, FILE_DEVICE_UNKNOWN, 0,
                                   FALSE, &control_device);
  if (!NT_SUCCESS(status)) return status;
  static_cast<DeviceExtension*>(control_device->DeviceExtension)->kind = DeviceKind::kControl;
  status = IoCreateSymbolicLink(&link, &name);
  if (!NT_SUCCESS(status)) {
    IoDeleteDevice(control_device);
    return status;
  }
  control_device->Flags &= ~DO_DEVICE_INITIALIZING;
  return STATUS_SUCCESS;
}

}  // namespace
}  // namespace virtual_bus

extern "C" NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING*) {
  using namespace virtual_bus;
  requests.Initialize();
  bus.Initialize(driver);
  driver->MajorFunction[IRP_MJ_CREATE] = Create;
  driver->MajorFunction[IRP_MJ_CLOSE] = Close;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = DeviceControl;
  driver->MajorFunction[IRP_MJ_PNP] = PlugAndPlay;
  driver->DriverUnload = Unload;
  driver->DriverExtension->AddDevice = AddDevice;
  return MakeControlDevice(driver);
}
