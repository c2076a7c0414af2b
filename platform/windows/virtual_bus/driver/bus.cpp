#include "platform/windows/virtual_bus/driver/bus.h"

#include <cstddef>

namespace virtual_bus {
namespace {

ProbeDevice& DeviceAt(LIST_ENTRY* entry) { return *CONTAINING_RECORD(entry, ProbeDevice, entry); }

}  // namespace

Bus bus;

void Bus::Initialize(DRIVER_OBJECT* driver) {
  lock_.Initialize();
  InitializeListHead(&plugged_);
  driver_ = driver;
}

NTSTATUS Bus::Attach(DEVICE_OBJECT* root) {
  DEVICE_OBJECT* object = nullptr;
  const NTSTATUS status = IoCreateDevice(driver_, sizeof(DeviceExtension), nullptr,
                                         FILE_DEVICE_BUS_EXTENDER, 0, FALSE, &object);
  if (!NT_SUCCESS(status)) return status;
  static_cast<DeviceExtension*>(object->DeviceExtension)->kind = DeviceKind::kBus;
  below_ = IoAttachDeviceToDeviceStack(object, root);
  if (!below_) {
    IoDeleteDevice(object);
    return STATUS_NO_SUCH_DEVICE;
  }
  object->Flags &= ~DO_DEVICE_INITIALIZING;
  root_ = root;
  object_ = object;
  return STATUS_SUCCESS;
}

NTSTATUS Bus::Plug(const std::uint8_t* plug) {
  if (!object_) return STATUS_DEVICE_NOT_READY;
  ProbeDevice* device = nullptr;
  const NTSTATUS status = ProbeDevice::Create(driver_, plug, device);
  if (!NT_SUCCESS(status)) return status;
  bool taken = false;
  {
    const SpinGuard guard(lock_);
    for (LIST_ENTRY* at = plugged_.Flink; at != &plugged_; at = at->Flink) {
      if (DeviceAt(at).number() == device->number()) taken = true;
    }
    if (!taken) InsertTailList(&plugged_, &device->entry);
  }
  if (taken) {
    IoDeleteDevice(device->object());
    return STATUS_OBJECT_NAME_COLLISION;
  }
  IoInvalidateDeviceRelations(root_, BusRelations);
  return STATUS_SUCCESS;
}

NTSTATUS Bus::Unplug(std::uint32_t number) {
  ProbeDevice* const device = Take(&number);
  if (!device) return STATUS_NOT_FOUND;
  End(*device);
  return STATUS_SUCCESS;
}

void Bus::UnplugAll() {
  while (ProbeDevice* const device = Take(nullptr)) End(*device);
}

// Takes the device of that number off the list, or the first one.
ProbeDevice* Bus::Take(const std::uint32_t* number) {
  const SpinGuard guard(lock_);
  for (LIST_ENTRY* at = plugged_.Flink; at != &plugged_; at = at->Flink) {
    ProbeDevice& device = DeviceAt(at);
    if (number && device.number() != *number) continue;
    RemoveEntryList(at);
    return &device;
  }
  return nullptr;
}

// The system asks for the devices again, misses this one, and has it removed.
void Bus::End(ProbeDevice& device) {
  device.Leave();
  if (object_) IoInvalidateDeviceRelations(root_, BusRelations);
}

NTSTATUS Bus::PlugAndPlay(IRP* irp) {
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
    case IRP_MN_SURPRISE_REMOVAL:
      irp->IoStatus.Status = STATUS_SUCCESS;
      break;
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      irp->IoStatus.Status = AnswerRelations(irp);
      break;
    case IRP_MN_REMOVE_DEVICE: {
      irp->IoStatus.Status = STATUS_SUCCESS;
      DEVICE_OBJECT* const object = object_;
      object_ = nullptr;
      UnplugAll();
      IoSkipCurrentIrpStackLocation(irp);
      const NTSTATUS status = IoCallDriver(below_, irp);
      IoDetachDevice(below_);
      IoDeleteDevice(object);
      return status;
    }
    default:
      break;
  }
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(below_, irp);
}

NTSTATUS Bus::AnswerRelations(IRP* irp) {
  const auto& query = IoGetCurrentIrpStackLocation(irp)->Parameters.QueryDeviceRelations;
  if (query.Type != BusRelations) return irp->IoStatus.Status;
  // Counted first: memory is not asked for with the lock held. What is plugged between the two
  // looks is listed when the system asks for it.
  ULONG room = 0;
  {
    const SpinGuard guard(lock_);
    for (LIST_ENTRY* at = plugged_.Flink; at != &plugged_; at = at->Flink) ++room;
  }
  const std::size_t size = offsetof(DEVICE_RELATIONS, Objects) + (room + 1) * sizeof(void*);
  auto* const relations =
      static_cast<DEVICE_RELATIONS*>(ExAllocatePoolWithTag(PagedPool, size, kPoolTag));
  if (!relations) return STATUS_INSUFFICIENT_RESOURCES;
  relations->Count = 0;
  {
    const SpinGuard guard(lock_);
    for (LIST_ENTRY* at = plugged_.Flink; at != &plugged_ && relations->Count < room;
         at = at->Flink) {
      ObReferenceObject(DeviceAt(at).object());
      relations->Objects[relations->Count++] = DeviceAt(at).object();
    }
  }
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
  return STATUS_SUCCESS;
}

}  // namespace virtual_bus
