// The requests of all devices' clients on their way to the player and back, and the notices that
// go the same way.
#pragma once

#include "platform/windows/virtual_bus/bus_protocol.h"
#include "platform/windows/virtual_bus/driver/caller_record.h"
#include "platform/windows/virtual_bus/driver/kernel.h"

namespace virtual_bus {

// A client's request, or a notice.
struct Request {
  LIST_ENTRY entry;
  MessageKind kind = MessageKind::kRequest;
  std::uint64_t id = 0;
  std::uint32_t device = 0;
  const FILE_OBJECT* file = nullptr;
  IRP* irp = nullptr;  // null: a notice
  CallerRecord record;
};

// Any thread may call. The operations take the queue's lock, and give it back before requests are
// completed.
class RequestQueue {
 public:
  void Initialize();

  // Takes a client's device-control request. Returns what its dispatch routine returns.
  NTSTATUS Forward(IRP* irp, std::uint32_t device);

  // Puts a notice in line. Without memory there is none: the player then learns of the end of a
  // handle when the device goes.
  void Notify(MessageKind kind, std::uint32_t device, const FILE_OBJECT* file);

  // Ends what a device's clients have pending, on one handle or, when `file` is null, on all.
  void Fail(std::uint32_t device, const FILE_OBJECT* file, NTSTATUS status);

  // The player has gone: nobody reads the notices that wait.
  void DropNotices();

  // The player's side. Each takes the player's request and completes it, Next when a message is
  // there.
  NTSTATUS Next(IRP* irp);
  NTSTATUS Fetch(IRP* irp);
  NTSTATUS Complete(IRP* irp);

 private:
  static void NTAPI CancelForwarded(DEVICE_OBJECT* device, IRP* irp);
  static void NTAPI CancelNext(DEVICE_OBJECT* device, IRP* irp);

  void Add(Owned<Request> request);
  void Deliver();
  void TellCancelled(const Request& request);
  Owned<Request> Take(LIST_ENTRY& list, const IRP* irp);
  Request* FindDelivered(std::uint64_t id);

  SpinLock lock_;
  LIST_ENTRY waiting_;    // requests and notices that the player has not seen
  LIST_ENTRY delivered_;  // requests that it has
  LIST_ENTRY readers_;    // the player's kNext requests, by their Tail.Overlay.ListEntry
  std::uint64_t last_id_ = 0;
};

// The driver's one queue.
extern RequestQueue requests;

}  // namespace virtual_bus
