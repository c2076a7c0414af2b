#include "sim/bench.h"

#include <nlohmann/json.hpp>

#include "sim/bench_core.h"
#include "sim/description/description.h"
#include "sim/timer_thread.h"

namespace sim {
namespace {

// Counts what it has in flight in an object of its own, which completions keep alive.
class BenchDevice : public probe_driver::UsbDevice {
 public:
  BenchDevice(std::shared_ptr<BenchCore> core, std::shared_ptr<Attachment> attachment)
      : core_(std::move(core)),
        attachment_(std::move(attachment)),
        in_flight_(std::make_shared<InFlight>()) {}

  ~BenchDevice() override {
    core_->Abort(*attachment_, *in_flight_, -1);
    in_flight_->AwaitNone();
  }

  probe_driver::DriverFacts Facts() override { return core_->Facts(*attachment_); }
  void Submit(probe_driver::UsbTransfer& transfer) override {
    core_->Submit(attachment_, in_flight_, transfer);
  }
  void Cancel(probe_driver::UsbTransfer& transfer) override {
    core_->Cancel(*attachment_, transfer);
  }
  void AbortPipe(std::uint8_t endpoint) override {
    core_->Abort(*attachment_, *in_flight_, endpoint);
  }
  bool ResetPipe(std::uint8_t endpoint) override { return core_->ResetPipe(attachment_, endpoint); }

 private:
  const std::shared_ptr<BenchCore> core_;
  const std::shared_ptr<Attachment> attachment_;
  const std::shared_ptr<InFlight> in_flight_;
};

}  // namespace

std::string Bench::DefaultDescription() {
  return R"({
  "probes": [
    {"name": "WFX0001", "kind": "wirefox", "state": "fresh",
     "jtag": {"taps": [{"idcode": "0x1BA01477", "ir_length": 4},
                       {"idcode": "0x0684617F", "ir_length": 5}]}},
    {"name": "WFX0002", "kind": "wirefox", "state": "configured",
     "swd": {"idcode": "0x2BA01477", "memory": {"address": "0x20000000", "size": "0x10000"}},
     "i2c": {"address": "0x50", "size": 256}},
    {"name": "EVK0001", "kind": "evk", "state": "configured",
     "swd": {"idcode": "0x2BA01477", "memory": {"address": "0x20000000", "size": "0x10000"}}}
  ]
})";
}

std::string Bench::DemoDescription() {
  nlohmann::json bench = ParseJson(DefaultDescription());
  bench["probes"][0].update(ParseJson(R"({
     "jtag": {"taps": [{"idcode": "0x4BA00477", "ir_length": 4, "debug_port": {}},
                       {"idcode": "0x04008093", "ir_length": 6, "idcode_instruction": "0x9",
                        "scratch": {"instruction": "0x2", "bits": 32},
                        "configuration": {}, "boundary": {"bits": 48, "pins": "0xC0FFEE"}}]},
     "swd": {"idcode": "0x2BA01477", "memory": {"address": "0x20000000", "size": "0x10000"}}})"));
  return bench.dump();
}

std::unique_ptr<Bench> Bench::Default(BenchOptions options) {
  return std::make_unique<Bench>(DefaultDescription(), std::move(options));
}

Bench::Bench(const std::string& description, BenchOptions options) {
  BenchDescription parsed = ParseBench(description);
  if (!options.scheduler) {
    timer_ = std::make_unique<TimerThread>();
    options.scheduler = [timer = timer_.get()](std::uint64_t delay_ms,
                                               std::function<void()> action) {
      timer->CallAfter(delay_ms, std::move(action));
    };
  }
  core_ = std::make_shared<BenchCore>(std::move(parsed), std::move(options.scheduler),
                                      std::move(options.instance));
  core_->Start();
}

Bench::~Bench() {
  core_->Close();
  timer_.reset();
}

std::vector<std::string> Bench::ListDevices() { return core_->Paths(); }

std::unique_ptr<probe_driver::UsbDevice> Bench::OpenDevice(const std::string& path) {
  std::shared_ptr<Attachment> attachment = core_->Find(path);
  if (!attachment) return nullptr;
  return std::make_unique<BenchDevice>(core_, std::move(attachment));
}

void Bench::SetListener(probe_driver::UsbBusListener* listener) { core_->SetListener(listener); }

bool Bench::Plug(const std::string& name) { return core_->Plug(name); }

bool Bench::Unplug(const std::string& name) { return core_->Unplug(name); }

std::vector<ProbeState> Bench::List() const { return core_->States(); }

ProbeState Bench::State(const std::string& name) const {
  for (ProbeState& state : core_->States()) {
    if (state.name == name) return std::move(state);
  }
  return {};
}

Bytes Bench::DumpRam(const std::string& name) const {
  Bytes bytes;
  core_->With(name, [&](ProbeSlot& slot) { bytes = slot.probe->released_ram(); });
  return bytes;
}

Bytes Bench::DumpFpga(const std::string& name) const {
  Bytes bytes;
  core_->With(name, [&](ProbeSlot& slot) { bytes = slot.probe->fpga_image(); });
  return bytes;
}

Bytes Bench::DumpConfiguration(const std::string& name) const {
  Bytes bytes;
  core_->With(name, [&](ProbeSlot& slot) { bytes = slot.probe->Configuration(); });
  return bytes;
}

bool Bench::ArmFault(const std::string& name, const Fault& fault) {
  return core_->With(name, [&](ProbeSlot& slot) { slot.faults.Arm(fault); });
}

bool Bench::ClearFaults(const std::string& name) {
  return core_->With(name, [](ProbeSlot& slot) { slot.faults.Clear(); });
}

bool Bench::Rearrange(const std::string& name, const std::string& changes) {
  return core_->Rearrange(name, changes);
}

void Bench::AddProbe(const std::string& description) { core_->Add(ParseProbeText(description)); }

bool Bench::CyclePower(const std::string& name) {
  return core_->With(name, [](ProbeSlot& slot) { slot.probe->CyclePower(); });
}

bool Bench::PushSwv(const std::string& name, const Bytes& data) {
  return core_->With(name, [&](ProbeSlot& slot) { slot.probe->PushSwv(data); });
}

bool Bench::CaptureTo(const std::string& path) { return core_->CaptureTo(path); }

}  // namespace sim
