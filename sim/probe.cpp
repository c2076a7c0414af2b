#include "sim/probe.h"

#include <algorithm>

#include "base/little_endian.h"
#include "sim/jtag_stream.h"
#include "sim/protocol.h"

namespace sim {
namespace {

using namespace protocol;

// In units of 10 mV. Below the first the target counts as unpowered.
constexpr std::uint16_t kMinSupply = 75;

std::uint16_t SupplyOfCode(std::uint8_t code) {
  switch (code) {
    case 14:
      return 180;
    case 13:
      return 250;
    case 11:
      return 330;
    case 7:
      return 500;
    default:
      return 0;
  }
}

}  // namespace

Probe::Probe(const ProbeDescription& description, After after)
    : description_(description), after_(std::move(after)), swv_(description.swv) {
  MakeTargets();
  i2c_ = std::make_unique<I2cBus>(description_.i2c);
}

void Probe::MakeTargets() {
  chain_.reset();
  swd_.clear();
  for (const SwdDescription& swd : description_.swd) {
    swd_.push_back(std::make_unique<SwdTarget>(swd));
  }
  chain_ = std::make_unique<JtagChain>(description_.jtag,
                                       swd_.empty() ? nullptr : &swd_.front()->memory());
}

void Probe::PowerUp(bool with_firmware) {
  runs_firmware_ = with_firmware;
  controller_.PowerUp();
  loader_.PowerUp();
  mode_ = connector_ = identify_ = clock_code_ = 0;
  external_ = false;
  leds_ = {};
  supply_on_ = false;
  voltage_code_ = 11;
  resets_ = 0;
  ticking_ = false;
  acquisition_ = {.number = acquisition_.number + 1};
  serial_in_.Clear();
  stream_in_.Clear();
  swv_in_.Clear();
  ResetLogic();
}

void Probe::ResetLogic() {
  registers_ = {};
  registers_[kTargetControl] = kLineBlocked;
  clock_reads_ = 0;
  swv_committed_ = false;
  swv_.Clear();
}

bool Probe::HasEndpoint(std::uint8_t endpoint) const {
  if (endpoint == 0) return true;
  return runs_firmware_ && (endpoint == kSerialOut || endpoint == kSerialIn ||
                            endpoint == kStreamOut || endpoint == kStreamIn || endpoint == kSwvIn);
}

InPipe& Probe::in(std::uint8_t endpoint) {
  if (endpoint == kSerialIn) return serial_in_;
  return endpoint == kSwvIn ? swv_in_ : stream_in_;
}

void Probe::Out(std::uint8_t endpoint, std::span<const std::uint8_t> data) {
  if (endpoint == kSerialOut) {
    if (mode_ == kVser) {
      const SerialDescription& serial = description_.serial;
      if (external_ ? serial.external_loopback : serial.internal_loopback) serial_in_.Stream(data);
    } else if (mode_ == kI2c) {
      I2cBus nothing({});
      serial_in_.Send((TargetPowered() ? *i2c_ : nothing).Native(data));
    }
    return;
  }
  if (loader_.receiving()) {
    loader_.Receive(data);
  } else if (acquisition_.armed) {
    acquisition_.staged.assign(data.begin(), data.end());
  } else if (mode_ == kJtag) {
    JtagChunk(data);
  } else if (mode_ == kSwd || mode_ == kSwdSwv) {
    stream_in_.Send(SwdPacket(data));
  } else if (mode_ == kI2c && !description_.is_evk) {
    I2cBus nothing({});
    stream_in_.Send((TargetPowered() ? *i2c_ : nothing).Engine(data, registers_[kI2cRestart]));
  }
}

void Probe::JtagChunk(std::span<const std::uint8_t> data) {
  const ChunkRule rule = RuleForChunk(data.size(), registers_[kJtagCount], registers_[kJtagFlags]);
  if (rule.cycles == 0) return;
  const bool powered = TargetPowered();
  const bool reaches_chain = powered && connector_ == 0;
  // The serial-wire line shares its pin with TMS; every serial-wire target listens.
  const bool reaches_line =
      powered && !swd_.empty() && (registers_[kTargetControl] & kLineBlocked) == 0;
  stream_in_.Send(RunChunk(data.data(), rule.cycles, [&](bool tms, bool tdi) {
    const bool tdo = reaches_chain ? chain_->Clock(tms, tdi) : true;
    if (reaches_line) {
      for (const auto& target : swd_) target->Clock(tms);
    }
    return rule.loopback ? tdi : tdo;
  }));
}

SwdTarget* Probe::ActiveSwdTarget() {
  if (!TargetPowered()) return nullptr;
  for (const auto& target : swd_) {
    if (target->description().connectors[connector_]) return target.get();
  }
  return nullptr;
}

// Requests one after another: a read is its header, a write its header and four bytes. A write
// that is cut short is not sent on, and answered as if nobody had been there.
std::vector<std::uint8_t> Probe::SwdPacket(std::span<const std::uint8_t> data) {
  SwdTarget* target = ActiveSwdTarget();
  std::vector<std::uint8_t> reply;
  std::size_t at = 0;
  while (at < data.size()) {
    const std::uint8_t header = data[at++];
    const bool read = (header & 0x04) != 0;
    const std::size_t left = data.size() - at;
    const bool whole = read || left >= 4;
    const std::uint32_t word = !read && whole ? LoadLe32(&data[at]) : 0;
    if (!read) at += 4;
    const SwdReply answer = target && whole ? target->Request(header, word) : SwdReply{};
    if (read) {
      reply.resize(reply.size() + 4);
      StoreLe32(&reply.end()[-4], answer.data);
    }
    reply.push_back(answer.ack);
  }
  return reply;
}

std::uint16_t Probe::MeasuredSupply() const {
  return supply_on_ ? SupplyOfCode(voltage_code_) : description_.external_supply;
}

bool Probe::TargetPowered() const { return MeasuredSupply() >= kMinSupply; }

void Probe::SetSupply(bool on, std::uint8_t code) {
  const bool was_powered = TargetPowered();
  supply_on_ = on;
  voltage_code_ = code;
  if (!was_powered && TargetPowered()) PowerUpTargets();
}

void Probe::PowerUpTargets() {
  chain_->PowerUp();
  for (const auto& target : swd_) target->PowerUp();
}

void Probe::CyclePower() {
  PowerUpTargets();
  if (acquisition_.waits_for_hand) Attempt(acquisition_.number);
}

std::vector<std::uint8_t> Probe::Configuration() const {
  for (const JtagTap& tap : chain_->taps()) {
    if (tap.description().configuration) return tap.configuration().stream();
  }
  return {};
}

SwvSampling Probe::Sampling() const { return {registers_[kSwvControl], registers_[kSwvDivisor]}; }

bool Probe::SamplesSwv() const {
  return runs_firmware_ && HasLogic() && (mode_ & kSwv) != 0 && swv_committed_ && TargetPowered();
}

void Probe::PushSwv(std::span<const std::uint8_t> data) {
  if (SamplesSwv()) swv_.Send(data, Sampling(), swv_in_);
}

void Probe::KeepTicking() {
  if (ticking_ || !SamplesSwv() || !swv_.sends_by_itself()) return;
  ticking_ = true;
  after_(1, [this] {
    ticking_ = false;
    if (SamplesSwv()) swv_.Tick(Sampling(), swv_in_);
    KeepTicking();
  });
}

void Probe::Rearrange(const ProbeDescription& description) {
  description_ = description;
  MakeTargets();
  i2c_ = std::make_unique<I2cBus>(description_.i2c);
  swv_ = SwvSource(description_.swv);
  KeepTicking();
}

void Probe::Describe(ProbeState& state) const {
  state.name = description_.name;
  state.is_evk = description_.is_evk;
  state.configured = runs_firmware_;
  state.vendor_id = description_.vendor_id;
  state.product_id = product_id();
  state.processor_held = controller_.held();
  state.fpga_loaded = loader_.loaded();
  state.mode = mode_;
  state.external = external_;
  state.connector = connector_;
  state.leds = leds_;
  state.identify = identify_;
  state.supply_on = supply_on_;
  state.voltage_code = voltage_code_;
  state.measured = MeasuredSupply();
  state.clock_code = clock_code_;
  state.reset_asserted = (registers_[kTargetControl] & kDriveReset) == kDriveReset;
  state.resets = resets_;
  state.swv_commit = swv_commit_;
  state.swv_lost = swv_.lost();
  state.target_caught = acquisition_.caught;
  state.acquire_attempts = acquisition_.attempts;
  for (const JtagTap& tap : chain_->taps()) {
    if (tap.description().boundary) state.pins = tap.Pins();
    if (!tap.description().configuration) continue;
    state.configuration_bits = tap.configuration().bits();
    state.configuration_crc = tap.configuration().Crc();
    state.configuration_done = tap.configuration().done();
  }
}

}  // namespace sim
