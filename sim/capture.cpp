#include "sim/capture.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <vector>

namespace sim {
namespace {

using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;

constexpr std::uint32_t kMagic = 0xA1B2C3D4;  // times in microseconds
constexpr std::uint32_t kLinkType = 220;
constexpr std::uint32_t kSnapLength = 0x04000000;
constexpr std::size_t kHeaderSize = 64;
constexpr std::uint8_t kControlTransfer = 2;
constexpr std::uint8_t kBulkTransfer = 3;
constexpr std::int32_t kInProgress = -115;

// The number that Linux gives this end of a transfer.
std::int32_t Errno(UsbStatus status) {
  switch (status) {
    case UsbStatus::kOk:
      return 0;
    case UsbStatus::kStall:
      return -32;  // EPIPE
    case UsbStatus::kAborted:
      return -104;  // ECONNRESET
    case UsbStatus::kDisconnected:
      return -108;  // ESHUTDOWN
    case UsbStatus::kOverrun:
      return -75;  // EOVERFLOW
    case UsbStatus::kError:
      break;
  }
  return -71;  // EPROTO
}

// Little-endian bytes, one after another.
class Writer {
 public:
  explicit Writer(std::size_t size) { bytes_.reserve(size); }
  void Number(std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) bytes_.push_back(static_cast<char>(value >> (8 * i)));
  }
  const std::vector<char>& bytes() const { return bytes_; }

 private:
  std::vector<char> bytes_;
};

bool IsIn(const UsbTransfer& transfer) {
  return ((transfer.endpoint != 0 ? transfer.endpoint : transfer.setup.request_type) & 0x80) != 0;
}

}  // namespace

bool Capture::Open(const std::string& path) {
  file_ = std::ofstream(path, std::ios::binary | std::ios::trunc);
  if (!file_) return false;
  Writer header(24);
  header.Number(kMagic, 4);
  header.Number(2, 2);  // format 2.4
  header.Number(4, 2);
  header.Number(0, 8);  // UTC
  header.Number(kSnapLength, 4);
  header.Number(kLinkType, 4);
  file_.write(header.bytes().data(), static_cast<std::streamsize>(header.bytes().size()));
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
  Event event{'C', id, usb_address, Errno(transfer.status), transfer.actual, false, in ? '\0' : '>',
              {}};
  if (in) event.data = {transfer.data, transfer.actual};
  Write(transfer, event);
}

void Capture::Write(const UsbTransfer& transfer, const Event& event) {
  using namespace std::chrono;
  const auto now = system_clock::now().time_since_epoch();
  const auto seconds = static_cast<std::uint64_t>(duration_cast<std::chrono::seconds>(now).count());
  const auto micros =
      static_cast<std::uint64_t>(duration_cast<microseconds>(now).count() % 1'000'000);
  const auto stored = static_cast<std::uint32_t>(
      std::min<std::size_t>(event.data.size(), kSnapLength - kHeaderSize));
  const bool has_data = event.no_data == '\0';
  const std::uint8_t direction = IsIn(transfer) ? 0x80 : 0x00;

  Writer record(16 + kHeaderSize);
  record.Number(seconds, 4);
  record.Number(micros, 4);
  record.Number(kHeaderSize + stored, 4);
  record.Number(kHeaderSize + event.data.size(), 4);

  record.Number(event.id, 8);
  record.Number(static_cast<std::uint8_t>(event.type), 1);
  record.Number(transfer.endpoint == 0 ? kControlTransfer : kBulkTransfer, 1);
  record.Number((transfer.endpoint & 0x0F) | direction, 1);
  record.Number(event.usb_address, 1);
  record.Number(1, 2);  // bus
  record.Number(event.with_setup ? 0 : '-', 1);
  record.Number(static_cast<std::uint8_t>(has_data ? 0 : event.no_data), 1);
  record.Number(seconds, 8);
  record.Number(micros, 4);
  record.Number(static_cast<std::uint32_t>(event.status), 4);
  record.Number(event.length, 4);
  record.Number(stored, 4);
  const probe_driver::SetupPacket& setup = transfer.setup;
  if (event.with_setup) {
    record.Number(setup.request_type, 1);
    record.Number(setup.request, 1);
    record.Number(setup.value, 2);
    record.Number(setup.index, 2);
    record.Number(setup.length, 2);
  } else {
    record.Number(0, 8);
  }
  record.Number(0, 4);  // interval
  record.Number(0, 4);  // start frame
  record.Number(0, 4);  // transfer flags
  record.Number(0, 4);  // isochronous descriptors
  file_.write(record.bytes().data(), static_cast<std::streamsize>(record.bytes().size()));
  if (stored != 0) file_.write(reinterpret_cast<const char*>(event.data.data()), stored);
  // Whoever looks from outside sees each event at once, also when this process is killed.
  file_.flush();
}

}  // namespace sim
