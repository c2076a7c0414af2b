#include "sim/bench_core.h"

#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace sim {

using probe_driver::UsbStatus;

BenchCore::Session::~Session() {
  const bool has_news = std::exchange(core_.has_news_, false);
  lock_.unlock();
  done_.Run();
  if (has_news) core_.news_.Tell();
}

BenchCore::BenchCore(BenchDescription description, Scheduler scheduler, std::string instance)
    : driver_(description.driver),
      detach_ms_(description.detach_ms),
      return_ms_(description.return_ms),
      keeps_paths_(description.keeps_paths),
      described_(std::move(description.probes)),
      scheduler_(std::move(scheduler)),
      instance_(std::move(instance)) {}

void BenchCore::Start() {
  const Session session(*this);
  for (const ProbeDescription& description : described_) {
    ProbeSlot& slot = MakeSlot(description);
    if (description.plugged) Attach(slot, description.configured);
  }
  described_.clear();
}

void BenchCore::Close() {
  news_.SetListener(nullptr);
  Session session(*this);
  closed_ = true;
  for (const auto& slot : slots_) Detach(*slot, session.done());
}

ProbeSlot& BenchCore::MakeSlot(const ProbeDescription& description) {
  auto slot = std::make_unique<ProbeSlot>();
  slot->next = description;
  ProbeSlot* made = slot.get();
  slot->probe = std::make_unique<Probe>(description, [this, made](std::uint64_t delay_ms,
                                                                  std::function<void()> action) {
    Later(*made, delay_ms, [action = std::move(action)](ProbeSlot&, Completions&) { action(); });
  });
  slots_.push_back(std::move(slot));
  return *made;
}

ProbeSlot* BenchCore::FindSlot(const std::string& name) {
  for (const auto& slot : slots_) {
    if (slot->next.name == name) return slot.get();
  }
  return nullptr;
}

void BenchCore::Attach(ProbeSlot& slot, bool with_firmware) {
  if (slot.probe->description().source != slot.next.source) slot.probe->Rearrange(slot.next);
  slot.probe->PowerUp(with_firmware);
  ++slot.generation;
  ++attachments_;
  if (!keeps_paths_ || slot.path_number == 0) slot.path_number = attachments_;
  auto attachment = std::make_shared<Attachment>();
  attachment->path = PathOf(slot);
  attachment->usb_address = static_cast<std::uint8_t>(1 + (attachments_ - 1) % 127);
  attachment->slot = &slot;
  slot.attachment = attachment;
  slot.restarting = false;
  present_.emplace(attachment->path, attachment);
  Note(true, attachment->path);
}

void BenchCore::Note(bool arrived, const std::string& path) {
  news_.Add(arrived, path);
  has_news_ = true;
}

std::string BenchCore::PathOf(const ProbeSlot& slot) const {
  std::string name;
  for (const char c : slot.next.name) {
    const auto byte = static_cast<unsigned char>(c);
    name += std::isalnum(byte) ? static_cast<char>(std::tolower(byte)) : '_';
  }
  char ids[40];
  std::snprintf(ids, sizeof ids, "\\\\?\\usb#vid_%04x&pid_%04x#", slot.next.vendor_id,
                slot.probe->product_id());
  return ids + name + "#" + instance_ + (instance_.empty() ? "" : "-") +
         std::to_string(slot.path_number);
}

void BenchCore::Detach(ProbeSlot& slot, Completions& done) {
  slot.restarting = false;
  ++slot.generation;
  const std::shared_ptr<Attachment> attachment = std::move(slot.attachment);
  slot.attachment.reset();
  if (!attachment) return;
  attachment->present = false;
  for (EndpointQueue& queue : attachment->queues) {
    for (Pending& pending : queue.transfers) {
      Finish(*attachment, pending, UsbStatus::kDisconnected, done);
    }
    queue.transfers.clear();
  }
  present_.erase(attachment->path);
  Note(false, attachment->path);
}

// The request that released the processor has been answered; the firmware takes a moment to drop
// off the bus and another one to come up.
void BenchCore::Restart(ProbeSlot& slot) {
  Later(slot, detach_ms_, [this](ProbeSlot& leaving, Completions& done) {
    Detach(leaving, done);
    leaving.restarting = true;
    Later(leaving, return_ms_, [this](ProbeSlot& back, Completions&) { Attach(back, true); });
  });
}

void BenchCore::Later(ProbeSlot& slot, std::uint64_t delay_ms,
                      std::function<void(ProbeSlot&, Completions&)> action) {
  if (closed_) return;
  scheduler_(delay_ms, [weak = weak_from_this(), at = &slot, generation = slot.generation,
                        action = std::move(action)] {
    const std::shared_ptr<BenchCore> core = weak.lock();
    if (!core) return;
    Session session(*core);
    if (core->closed_ || at->generation != generation) return;
    action(*at, session.done());
    if (at->attachment) core->Pump(*at->attachment, session.done());
  });
}

std::vector<std::string> BenchCore::Paths() {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> paths;
  for (const auto& [path, attachment] : present_) paths.push_back(path);
  return paths;
}

std::shared_ptr<Attachment> BenchCore::Find(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const auto it = present_.find(path);
  return it == present_.end() ? nullptr : it->second;
}

bool BenchCore::Plug(const std::string& name) {
  const Session session(*this);
  ProbeSlot* slot = FindSlot(name);
  if (!slot || slot->attachment || slot->restarting || closed_) return false;
  Attach(*slot, slot->next.configured);
  return true;
}

bool BenchCore::Unplug(const std::string& name) {
  Session session(*this);
  ProbeSlot* slot = FindSlot(name);
  if (!slot || (!slot->attachment && !slot->restarting)) return false;
  Detach(*slot, session.done());
  return true;
}

ProbeState BenchCore::StateOf(const ProbeSlot& slot) const {
  ProbeState state;
  slot.probe->Describe(state);
  state.plugged = slot.attachment != nullptr;
  if (slot.attachment) {
    state.path = slot.attachment->path;
  } else if (!slot.restarting) {
    // What it will be when it is plugged.
    state.configured = slot.next.configured;
    state.vendor_id = slot.next.vendor_id;
    state.product_id =
        slot.next.configured ? slot.next.configured_product_id : slot.next.fresh_product_id;
  }
  return state;
}

std::vector<ProbeState> BenchCore::States() {
  const std::lock_guard lock(mutex_);
  std::vector<ProbeState> states;
  for (const auto& slot : slots_) states.push_back(StateOf(*slot));
  return states;
}

bool BenchCore::Rearrange(const std::string& name, const std::string& changes) {
  const nlohmann::json members = ParseJson(changes);
  if (!members.is_object()) throw std::invalid_argument("the changes are not a JSON object");
  if (members.contains("name")) throw std::invalid_argument("a probe's name cannot be changed");
  Session session(*this);
  ProbeSlot* slot = FindSlot(name);
  if (!slot) return false;
  nlohmann::json whole = ParseJson(slot->next.source);
  whole.update(members);
  slot->next = ParseProbe(whole);
  if (!slot->attachment) return true;
  // Identities stay as they are until the probe is plugged again: it does not change its
  // descriptors while it is attached.
  ProbeDescription now = slot->probe->description();
  now.external_supply = slot->next.external_supply;
  now.clock_settle_reads = slot->next.clock_settle_reads;
  now.jtag = slot->next.jtag;
  now.swd = slot->next.swd;
  now.i2c = slot->next.i2c;
  now.swv = slot->next.swv;
  now.serial = slot->next.serial;
  slot->probe->Rearrange(now);
  Pump(*slot->attachment, session.done());
  return true;
}

void BenchCore::Add(const ProbeDescription& description) {
  const Session session(*this);
  if (FindSlot(description.name)) {
    throw std::invalid_argument("the name " + description.name + " is taken");
  }
  ProbeSlot& slot = MakeSlot(description);
  if (description.plugged && !closed_) Attach(slot, description.configured);
}

bool BenchCore::CaptureTo(const std::string& path) {
  const std::lock_guard lock(mutex_);
  return capture_.Open(path);
}

bool BenchCore::With(const std::string& name, const std::function<void(ProbeSlot&)>& use) {
  Session session(*this);
  ProbeSlot* slot = FindSlot(name);
  if (!slot) return false;
  use(*slot);
  if (slot->attachment) Pump(*slot->attachment, session.done());
  return true;
}

probe_driver::DriverFacts BenchCore::Facts(const Attachment& attachment) {
  probe_driver::DriverFacts facts = driver_;
  facts.usb_address = attachment.usb_address;
  return facts;
}

}  // namespace sim
