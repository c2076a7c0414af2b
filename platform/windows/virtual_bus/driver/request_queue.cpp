#include "platform/windows/virtual_bus/driver/request_queue.h"

#include <initializer_list>
#include <utility>

namespace virtual_bus {
namespace {

Request& RequestAt(LIST_ENTRY* entry) { return *CONTAINING_RECORD(entry, Request, entry); }

// A client's two buffers as the kernel hands them over.
struct Buffers {
  explicit Buffers(IRP* irp) {
    const auto& control = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
    code = control.IoControlCode;
    input_size = control.InputBufferLength;
    output_size = control.OutputBufferLength;
    neither = (code & kMethodMask) == kMethodNeither;
    input = static_cast<std::uint8_t*>(neither ? control.Type3InputBuffer
                                               : irp->AssociatedIrp.SystemBuffer);
    output =
        static_cast<std::uint8_t*>(neither ? irp->UserBuffer : irp->AssociatedIrp.SystemBuffer);
    if (!input) input_size = 0;
    if (!output) output_size = 0;
  }

  std::uint32_t ContentsSize() const { return input_size + (neither ? output_size : 0); }

  // Copies the contents from `offset` on, as many bytes as there is room for.
  std::uint32_t Copy(std::uint32_t offset, std::uint8_t* out, std::uint32_t room) const {
    const std::uint32_t size = ContentsSize();
    std::uint32_t copied = 0;
    for (; copied < room && offset + copied < size;) {
      const std::uint32_t at = offset + copied;
      const bool in_input = at < input_size;
      const std::uint32_t left = (in_input ? input_size : size) - at;
      const std::uint32_t piece = left < room - copied ? left : room - copied;
      RtlCopyMemory(out + copied, in_input ? input + at : output + (at - input_size), piece);
      copied += piece;
    }
    return copied;
  }

  std::uint32_t code;
  std::uint8_t* input;
  std::uint8_t* output;
  std::uint32_t input_size;
  std::uint32_t output_size;
  bool neither;
};

// Writes the message for a request, and of its contents what there is room for.
std::uint32_t Describe(const Request& request, std::uint8_t* out, std::uint32_t room) {
  Message message;
  message.id = request.id;
  message.kind = request.kind;
  message.device = request.device;
  message.file = reinterpret_cast<ULONG_PTR>(request.file);
  if (!request.irp) {
    message.Encode(out);
    return Message::kSize;
  }
  const Buffers buffers(request.irp);
  message.code = buffers.code;
  message.input_size = buffers.input_size;
  message.output_size = buffers.output_size;
  message.contents_size = buffers.ContentsSize();
  message.Encode(out);
  return Message::kSize + buffers.Copy(0, out + Message::kSize, room - Message::kSize);
}

}  // namespace

RequestQueue requests;

void RequestQueue::Initialize() {
  lock_.Initialize();
  InitializeListHead(&waiting_);
  InitializeListHead(&delivered_);
  InitializeListHead(&readers_);
}

NTSTATUS RequestQueue::Forward(IRP* irp, std::uint32_t device) {
  Owned<Request> request = Owned<Request>::Make();
  if (!request) return Finish(irp, STATUS_INSUFFICIENT_RESOURCES);
  request->device = device;
  request->file = FileOf(irp);
  request->irp = irp;
  const Buffers buffers(irp);
  if (buffers.input_size != 0) {
    request->record.Find(buffers.code, buffers.input_size, buffers.output_size);
  }
  IoMarkIrpPending(irp);
  Add(std::move(request));
  Deliver();
  return STATUS_PENDING;
}

// The cancel routine is set with the request in the list. Where it was cancelled before, nobody
// calls the routine any more, and the request ends here.
void RequestQueue::Add(Owned<Request> request) {
  IRP* cancelled = nullptr;
  Request* const added = request.Release();
  {
    const SpinGuard guard(lock_);
    if (added->kind == MessageKind::kRequest) added->id = ++last_id_;
    InsertTailList(&waiting_, &added->entry);
    if (!added->irp) return;
    IoSetCancelRoutine(added->irp, CancelForwarded);
    if (added->irp->Cancel && IoSetCancelRoutine(added->irp, nullptr)) {
      cancelled = added->irp;
      RemoveEntryList(&added->entry);
    }
  }
  if (!cancelled) return;
  const Owned<Request> ended(added);
  Finish(cancelled, STATUS_CANCELLED);
}

void RequestQueue::Notify(MessageKind kind, std::uint32_t device, const FILE_OBJECT* file) {
  Owned<Request> notice = Owned<Request>::Make();
  if (!notice) return;
  notice->kind = kind;
  notice->device = device;
  notice->file = file;
  Add(std::move(notice));
  Deliver();
}

void RequestQueue::TellCancelled(const Request& request) {
  Owned<Request> notice = Owned<Request>::Make();
  if (!notice) return;
  notice->kind = MessageKind::kCancelled;
  notice->device = request.device;
  notice->file = request.file;
  notice->id = request.id;
  Add(std::move(notice));
  Deliver();
}

// Brings messages and readers together. A reader that is being cancelled is left to its routine.
void RequestQueue::Deliver() {
  while (true) {
    IRP* reader = nullptr;
    Owned<Request> notice;
    ULONG_PTR size = 0;
    {
      const SpinGuard guard(lock_);
      if (IsListEmpty(&waiting_)) return;
      for (LIST_ENTRY* at = readers_.Flink; at != &readers_ && !reader; at = at->Flink) {
        IRP* const candidate = CONTAINING_RECORD(at, IRP, Tail.Overlay.ListEntry);
        if (IoSetCancelRoutine(candidate, nullptr)) reader = candidate;
      }
      if (!reader) return;
      RemoveEntryList(&reader->Tail.Overlay.ListEntry);
      Request& request = RequestAt(RemoveHeadList(&waiting_));
      size = Describe(request, static_cast<std::uint8_t*>(reader->AssociatedIrp.SystemBuffer),
                      Buffers(reader).output_size);
      if (!request.irp) {
        notice = Owned<Request>(&request);
      } else {
        InsertTailList(&delivered_, &request.entry);
      }
    }
    Finish(reader, STATUS_SUCCESS, size);
  }
}

NTSTATUS RequestQueue::Next(IRP* irp) {
  if (Buffers(irp).output_size < Message::kSize) return Finish(irp, STATUS_BUFFER_TOO_SMALL);
  bool cancelled = false;
  IoMarkIrpPending(irp);
  {
    const SpinGuard guard(lock_);
    IoSetCancelRoutine(irp, CancelNext);
    cancelled = irp->Cancel && IoSetCancelRoutine(irp, nullptr);
    if (!cancelled) InsertTailList(&readers_, &irp->Tail.Overlay.ListEntry);
  }
  if (cancelled) {
    Finish(irp, STATUS_CANCELLED);
  } else {
    Deliver();
  }
  return STATUS_PENDING;
}

NTSTATUS RequestQueue::Fetch(IRP* irp) {
  const Buffers buffers(irp);
  if (buffers.input_size < kFetchSize) return Finish(irp, STATUS_INVALID_PARAMETER);
  const std::uint64_t id = LoadLe64(buffers.input);
  const std::uint32_t offset = LoadLe32(buffers.input + 8);
  ULONG_PTR copied = 0;
  bool found = false;
  {
    const SpinGuard guard(lock_);
    const Request* const request = FindDelivered(id);
    found = request != nullptr;
    if (found) copied = Buffers(request->irp).Copy(offset, buffers.output, buffers.output_size);
  }
  return Finish(irp, found ? STATUS_SUCCESS : STATUS_NOT_FOUND, copied);
}

// A request that is being cancelled is left to its routine, and counts as gone.
NTSTATUS RequestQueue::Complete(IRP* irp) {
  const Buffers from(irp);
  if (from.input_size < Completion::kSize) return Finish(irp, STATUS_INVALID_PARAMETER);
  const Completion completion = Completion::Decode(from.input);
  if (std::uint64_t{Completion::kSize} + completion.output_size + completion.input_size >
      from.input_size) {
    return Finish(irp, STATUS_INVALID_PARAMETER);
  }
  Owned<Request> request;
  {
    const SpinGuard guard(lock_);
    Request* const found = FindDelivered(completion.id);
    if (found && IoSetCancelRoutine(found->irp, nullptr)) {
      RemoveEntryList(&found->entry);
      request = Owned<Request>(found);
    }
  }
  if (!request) return Finish(irp, STATUS_NOT_FOUND);

  const Buffers to(request->irp);
  const std::uint8_t* const output = from.input + Completion::kSize;
  const bool fits =
      completion.output_size <= to.output_size && completion.input_size <= to.input_size;
  if (fits && completion.output_size != 0) {
    RtlCopyMemory(to.output, output, completion.output_size);
  }
  if (fits) request->record.Write(output + completion.output_size, completion.input_size);
  Finish(request->irp, fits ? static_cast<NTSTATUS>(completion.status) : STATUS_INTERNAL_ERROR,
         fits ? completion.information : 0);
  return Finish(irp, fits ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER);
}

Request* RequestQueue::FindDelivered(std::uint64_t id) {
  for (LIST_ENTRY* at = delivered_.Flink; at != &delivered_; at = at->Flink) {
    if (RequestAt(at).id == id) return &RequestAt(at);
  }
  return nullptr;
}

void RequestQueue::Fail(std::uint32_t device, const FILE_OBJECT* file, NTSTATUS status) {
  while (true) {
    Owned<Request> request;
    bool was_delivered = false;
    {
      const SpinGuard guard(lock_);
      for (LIST_ENTRY* const list : {&waiting_, &delivered_}) {
        for (LIST_ENTRY* at = list->Flink; at != list && !request; at = at->Flink) {
          Request& candidate = RequestAt(at);
          if (!candidate.irp || candidate.device != device) continue;
          if (file && candidate.file != file) continue;
          if (!IoSetCancelRoutine(candidate.irp, nullptr)) continue;
          request = Owned<Request>(&candidate);
          was_delivered = list == &delivered_;
        }
      }
      if (!request) return;
      RemoveEntryList(&request->entry);
    }
    Finish(request->irp, status);
    if (was_delivered) TellCancelled(*request.Get());
  }
}

void RequestQueue::DropNotices() {
  const SpinGuard guard(lock_);
  for (LIST_ENTRY* at = waiting_.Flink; at != &waiting_;) {
    LIST_ENTRY* const next = at->Flink;
    if (!RequestAt(at).irp) {
      RemoveEntryList(at);
      const Owned<Request> dropped(&RequestAt(at));
    }
    at = next;
  }
}

Owned<Request> RequestQueue::Take(LIST_ENTRY& list, const IRP* irp) {
  for (LIST_ENTRY* at = list.Flink; at != &list; at = at->Flink) {
    if (RequestAt(at).irp != irp) continue;
    RemoveEntryList(at);
    return Owned<Request>(&RequestAt(at));
  }
  return {};
}

// Whoever else would end the request finds its cancel routine taken, and leaves it in its list.
void NTAPI RequestQueue::CancelForwarded(DEVICE_OBJECT*, IRP* irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  Owned<Request> request;
  bool was_delivered = false;
  {
    const SpinGuard guard(requests.lock_);
    request = requests.Take(requests.waiting_, irp);
    if (!request) {
      request = requests.Take(requests.delivered_, irp);
      was_delivered = static_cast<bool>(request);
    }
  }
  Finish(irp, STATUS_CANCELLED);
  if (was_delivered) requests.TellCancelled(*request.Get());
}

void NTAPI RequestQueue::CancelNext(DEVICE_OBJECT*, IRP* irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  {
    const SpinGuard guard(requests.lock_);
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
  }
  Finish(irp, STATUS_CANCELLED);
}

}  // namespace virtual_bus
