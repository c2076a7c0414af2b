#include "bench/bare_probe.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "device/probe_protocol.h"

namespace bench {
namespace {

constexpr unsigned kTimeoutMs = 10'000;

void Check(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "bench: bare probe: %s failed\n", what);
  std::exit(1);
}

void Pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void LIBUSB_CALL NoteEnd(libusb_transfer* transfer) { *static_cast<int*>(transfer->user_data) = 1; }

}  // namespace

BareProbe::BareProbe(std::uint16_t vendor, std::uint16_t product)
    : out_(libusb_alloc_transfer(0)), in_(libusb_alloc_transfer(0)) {
  Check(out_ && in_ && libusb_init(&context_) == 0, "starting libusb");
  handle_ = libusb_open_device_with_vid_pid(context_, vendor, product);
  Check(handle_ && libusb_claim_interface(handle_, 0) == 0, "opening");
}

BareProbe::~BareProbe() {
  libusb_free_transfer(out_);
  libusb_free_transfer(in_);
  libusb_close(handle_);
  libusb_exit(context_);
}

void BareProbe::Command(std::uint8_t request, std::uint16_t value, std::uint16_t index,
                        std::uint32_t length) {
  constexpr std::uint8_t kVendorIn = 0xC0;  // from the device, which is the recipient
  std::array<std::uint8_t, probe::kMaxCommandReply> reply{};
  const int got = libusb_control_transfer(handle_, kVendorIn, request, value, index, reply.data(),
                                          static_cast<std::uint16_t>(length), kTimeoutMs);
  Check(got > 0 && reply[probe::kReplyStatus] == 0, "a command");
}

void BareProbe::WriteRegister(std::uint8_t address, std::uint8_t value) {
  Command(probe::kRequestFpgaRegister,
          static_cast<std::uint16_t>(value << 8 | probe::kRegisterWrite | address), 0,
          probe::kWriteRegisterLength);
}

void BareProbe::LoadFpga(std::span<std::uint8_t> image) {
  const auto last = static_cast<std::uint32_t>(image.size() - 1);
  Command(probe::kRequestFpgaPrepare, 0, 0, probe::kFpgaStepLength);
  Pause(10);
  Command(probe::kRequestFpgaLength, static_cast<std::uint16_t>(last),
          static_cast<std::uint16_t>(last >> 16), probe::kFpgaStepLength);
  Pause(50);
  int sent = 0;
  Check(libusb_bulk_transfer(handle_, probe::kEndpointStreamOut, image.data(),
                             static_cast<int>(image.size()), &sent, kTimeoutMs) == 0,
        "the image");
  Command(probe::kRequestFpgaFinish, 0, 0, probe::kFpgaStepLength);
  Command(probe::kRequestStatus, 0, 0, probe::kStatusReplySize);
}

void BareProbe::SetJtagMode() {
  Command(probe::kRequestSetMode, probe::kModeIdle, 0, probe::kSetModeLength);
  Command(probe::kRequestSetMode, probe::kModeJtag | probe::kModeExternal, 0,
          probe::kSetModeLength);
  Command(probe::kRequestConnector, 0, 0, probe::kConnectorAfterModeLength);
}

void BareProbe::SendJtag(std::span<std::uint8_t> cycles, std::span<std::uint8_t> reply) {
  while (!cycles.empty()) {
    const std::size_t remaining = probe::kJtagCyclesPerByte * cycles.size();
    WriteRegister(probe::kRegisterJtagCountLow, static_cast<std::uint8_t>(remaining));
    WriteRegister(probe::kRegisterJtagCountHigh,
                  static_cast<std::uint8_t>(probe::kJtagShift | remaining >> 8));
    const std::size_t sent =
        remaining <= static_cast<std::size_t>(probe::kJtagLastChunkCycles)
            ? cycles.size()
            : static_cast<std::size_t>(probe::kJtagChunkCycles / probe::kJtagCyclesPerByte);
    Exchange(cycles.first(sent), reply.first(sent / 2));
    cycles = cycles.subspan(sent);
    reply = reply.subspan(sent / 2);
  }
}

void BareProbe::Exchange(std::span<std::uint8_t> out, std::span<std::uint8_t> in) {
  int out_ended = 0;
  int in_ended = 0;
  libusb_fill_bulk_transfer(out_, handle_, probe::kEndpointStreamOut, out.data(),
                            static_cast<int>(out.size()), NoteEnd, &out_ended, kTimeoutMs);
  libusb_fill_bulk_transfer(in_, handle_, probe::kEndpointStreamIn, in.data(),
                            static_cast<int>(in.size()), NoteEnd, &in_ended, kTimeoutMs);
  Check(libusb_submit_transfer(out_) == 0 && libusb_submit_transfer(in_) == 0, "submitting");
  for (int* ended : {&out_ended, &in_ended}) {
    while (*ended == 0) Check(libusb_handle_events_completed(context_, ended) == 0, "waiting");
  }
  Check(out_->status == LIBUSB_TRANSFER_COMPLETED && in_->status == LIBUSB_TRANSFER_COMPLETED &&
            in_->actual_length == in_->length,
        "a chunk");
}

}  // namespace bench
