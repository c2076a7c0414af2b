#include "sim/capture.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "base/little_endian.h"
#include "sim/linux_status.h"

namespace sim {
namespace {

using probe_driver::UsbTransfer;

constexpr std::uint32_t kMagic = 0xA1B2C3D4;  // times in microseconds
constexpr std::uint32_t kLinkType = 220;
constexpr std::uint32_t kSnapLength = 0x04000000;
constexpr std::size_t kHeaderSize = 64;
constexpr std::uint8_t kControlTransfer = 2;
constexpr std::uint8_t kBulkTransfer = 3;
constexpr std::int32_t kInProgress = -115;

bool IsIn(const UsbTransfer& transfer) {
  return ((transfer.endpoint != 0 ? transfer.endpoint : transfer.setup.request_type) & 0x80) != 0;
}

}  // namespace

bool Capture::Open(const std::string& path) {
  file_ = std::ofstream(path, std::ios::binary | std::ios::trunc);
  if (!file_) return false;
  std::array<std::uint8_t, 24> header{};
  StoreLe32(&header[0], kMagic);
  StoreLe16(&header[4], 2);  // format 2.4
  StoreLe16(&header[6], 4);
  StoreLe32(&header[16], kSnapLength);
  StoreLe32(&header[20], kLinkType);
  Put(header);
  file_.flush();
  return file_.good();
}

std::uint64_t Capture::Submitted(std::uint8_t usb_address, const UsbTransfer& transfer) {
  const std::uint64_t id = ++last_id_;
  const bool in = IsIn(transfer);
  Event event{
      'S', id, usb_address, kInProgress, transfer.length, transfer.endpoint == 0, in ? '<' : '\0',
      {}};
  if (!in) event.data = {transfer.data, transfer.length};
  Write(transfer, event);
  return id;
}

void Capture::Completed(std::uint8_t usb_address, std::uint64_t id, const UsbTransfer& transfer) {
  const bool in = IsIn(transfer);
  Event event{
      'C', id, usb_address, LinuxStatus(transfer.status), transfer.actual, false, in ? '\0' : '>',
      {}};
  if (in) event.data = {transfer.data, transfer.actual};
  Write(transfer, event);
}

void Capture::Put(std::span<const std::uint8_t> bytes) {
  file_.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

void Capture::Write(const UsbTransfer& transfer, const Event& event) {
  using namespace std::chrono;
  const auto now = system_clock::now().time_since_epoch();
  const auto seconds = static_cast<std::uint64_t>(duration_cast<std::chrono::seconds>(now).count());
  const auto micros =
      static_cast<std::uint32_t>(duration_cast<microseconds>(now).count() % 1'000'000);
  const auto stored = static_cast<std::uint32_t>(
      std::min<std::size_t>(event.data.size(), kSnapLength - kHeaderSize));
  const bool has_data = event.no_data == '\0';
  const std::uint8_t direction = IsIn(transfer) ? 0x80 : 0x00;

  std::array<std::uint8_t, 16 + kHeaderSize> record{};
  StoreLe32(&record[0], static_cast<std::uint32_t>(seconds));
  StoreLe32(&record[4], micros);
  StoreLe32(&record[8], kHeaderSize + stored);
  StoreLe32(&record[12], static_cast<std::uint32_t>(kHeaderSize + event.data.size()));

  std::uint8_t* const usb = &record[16];
  StoreLe64(usb, event.id);
  usb[8] = static_cast<std::uint8_t>(event.type);
  usb[9] = transfer.endpoint == 0 ? kControlTransfer : kBulkTransfer;
  usb[10] = static_cast<std::uint8_t>((transfer.endpoint & 0x0F) | direction);
  usb[11] = event.usb_address;
  StoreLe16(usb + 12, 1);  // bus
  usb[14] = event.with_setup ? 0 : '-';
  usb[15] = static_cast<std::uint8_t>(has_data ? 0 : event.no_data);
  StoreLe64(usb + 16, seconds);
  StoreLe32(usb + 24, micros);
  StoreLe32(usb + 28, static_cast<std::uint32_t>(event.status));
  StoreLe32(usb + 32, event.length);
  StoreLe32(usb + 36, stored);
  if (event.with_setup) {
    const probe_driver::SetupPacket& setup = transfer.setup;
    usb[40] = setup.request_type;
    usb[41] = setup.request;
    StoreLe16(usb + 42, setup.value);
    StoreLe16(usb + 44, setup.index);
    StoreLe16(usb + 46, setup.length);
  }
  // What stays 0 belongs to other kinds of transfers.
  Put(record);
  Put(event.data.first(stored));
  // Whoever looks from outside sees each event at once, also when this process is killed.
  file_.flush();
}

}  // namespace sim
