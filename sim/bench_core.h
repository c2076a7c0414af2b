// The inside of a bench: the probes, who is on the bus, and the transfers between, under one lock.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/probe_driver/bus_news.h"
#include "sim/attachment.h"
#include "sim/bench.h"
#include "sim/capture.h"
#include "sim/description/description.h"
#include "sim/probe.h"

namespace sim {

// A place of the bench with its probe.
struct ProbeSlot {
  std::unique_ptr<Probe> probe;
  ProbeDescription next;                   // what the probe is when it is plugged next
  std::shared_ptr<Attachment> attachment;  // null when the probe is not on the bus
  bool restarting = false;                 // has left to come back with its firmware
  std::uint64_t generation = 0;            // counts attachments and removals
  std::uint64_t path_number = 0;           // of the last path; 0: none yet
  FaultList faults;
};

// Every public operation takes the lock, and gives it back before completions and listeners run.
class BenchCore : public std::enable_shared_from_this<BenchCore> {
 public:
  BenchCore(BenchDescription description, Scheduler scheduler, std::string instance);

  // Attaches the probes that are described as plugged.
  void Start();
  // Takes every probe off the bus and the listener away; no action of the scheduler has an effect
  // afterwards.
  void Close();

  std::vector<std::string> Paths();
  std::shared_ptr<Attachment> Find(const std::string& path);
  void SetListener(probe_driver::UsbBusListener* listener) { news_.SetListener(listener); }

  void Submit(const std::shared_ptr<Attachment>& attachment, const std::shared_ptr<InFlight>& owner,
              probe_driver::UsbTransfer& transfer);
  void Cancel(Attachment& attachment, probe_driver::UsbTransfer& transfer);
  // Ends what `owner` has pending on an endpoint, or on all of them when `endpoint` is negative.
  void Abort(Attachment& attachment, const InFlight& owner, int endpoint);
  bool ResetPipe(const std::shared_ptr<Attachment>& attachment, std::uint8_t endpoint);
  probe_driver::DriverFacts Facts(const Attachment& attachment);

  bool Plug(const std::string& name);
  bool Unplug(const std::string& name);
  std::vector<ProbeState> States();
  bool Rearrange(const std::string& name, const std::string& changes);
  void Add(const ProbeDescription& description);
  bool CaptureTo(const std::string& path);

  // Calls `use(slot)` under the lock, then lets waiting transfers go on. False: no such probe.
  bool With(const std::string& name, const std::function<void(ProbeSlot&)>& use);

 private:
  // Holds the lock; when it ends, gives the lock back, runs the completions, tells the listener.
  class Session {
   public:
    explicit Session(BenchCore& core) : core_(core), lock_(core.mutex_) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Completions& done() { return done_; }

   private:
    BenchCore& core_;
    std::unique_lock<std::mutex> lock_;
    Completions done_;
  };

  ProbeSlot* FindSlot(const std::string& name);
  ProbeSlot& MakeSlot(const ProbeDescription& description);
  void Attach(ProbeSlot& slot, bool with_firmware);
  std::string PathOf(const ProbeSlot& slot) const;
  void Detach(ProbeSlot& slot, Completions& done);
  void Restart(ProbeSlot& slot);
  // Runs an action under the lock unless the probe was attached or removed meanwhile.
  void Later(ProbeSlot& slot, std::uint64_t delay_ms,
             std::function<void(ProbeSlot&, Completions&)> action);
  void Note(bool arrived, const std::string& path);
  ProbeState StateOf(const ProbeSlot& slot) const;

  // Transfers (transfers.cpp).
  void Pump(Attachment& attachment, Completions& done);
  bool Process(Attachment& attachment, Pending& pending, EndpointQueue& queue, Completions& done);
  void ProcessControl(Attachment& attachment, Pending& pending, Completions& done);
  bool ProcessOut(Attachment& attachment, Pending& pending, Completions& done);
  bool ProcessIn(Attachment& attachment, Pending& pending, Completions& done);
  void ProcessUnplug(Attachment& attachment, Pending& pending, Completions& done);
  void ApplyHalts(Attachment& attachment, const probe_driver::SetupPacket& setup,
                  ControlReply& reply);
  void ApplyReply(Pending& pending, ControlReply& reply);
  void Finish(const Attachment& attachment, Pending& pending, probe_driver::UsbStatus status,
              Completions& done);
  void Hold(Attachment& attachment, Pending& pending);
  void ResetPipeLocked(Attachment& attachment, std::uint8_t endpoint);

  std::mutex mutex_;
  const probe_driver::DriverFacts driver_;
  const std::uint32_t detach_ms_;
  const std::uint32_t return_ms_;
  const bool keeps_paths_;
  std::vector<ProbeDescription> described_;  // until Start
  const Scheduler scheduler_;
  const std::string instance_;
  bool closed_ = false;

  std::vector<std::unique_ptr<ProbeSlot>> slots_;
  std::map<std::string, std::shared_ptr<Attachment>> present_;
  std::uint64_t attachments_ = 0;  // ever made: numbers them
  std::uint64_t held_ = 0;         // numbers transfers that a fault holds
  Capture capture_;

  probe_driver::BusNews news_;
  bool has_news_ = false;
};

}  // namespace sim
