// CTzWfxConfigure: loading the FPGA of a Wirefox probe from its image file.
#include <windows.h>

#include <array>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <span>

#include "config/wfx_configure.h"
#include "device/probe_protocol.h"
#include "support/log.h"
#include "support/paths.h"

namespace {

enum FpgaResult : std::uint32_t {
  kLoaded = 0,
  kNoImage = 1,
  kFailed = 3,
  kNoEndpoint = 4,
  kProbeError5 = 5,
};

constexpr int kAttempts = 6;
constexpr DWORD kPreparePauseMs = 10;
constexpr DWORD kAnnouncePauseMs = 50;

// The finish reply: a nonzero status byte is followed by the probe's error.
constexpr std::size_t kFinishError = 1;
constexpr std::uint8_t kError5 = 5;

struct Image {
  std::unique_ptr<std::uint8_t[]> bytes;
  std::uint32_t size = 0;
};

// `file` stands at its end. A file that yields fewer bytes than its end announces is no image: the
// probe would be told a length that does not come.
std::optional<Image> ReadImage(std::ifstream& file) {
  const std::streamoff end = file.tellg();
  if (end < 0 || end > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  Image image;
  image.size = static_cast<std::uint32_t>(end);
  image.bytes.reset(new (std::nothrow) std::uint8_t[image.size]);
  if (!image.bytes) return std::nullopt;
  file.seekg(0);
  file.read(reinterpret_cast<char*>(image.bytes.get()), end);
  if (file.gcount() != end) return std::nullopt;
  return image;
}

class FpgaLoader {
 public:
  FpgaLoader(CTzDevice& device, const Image& image) : device_(device), image_(image) {}

  std::uint32_t Run() {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      if (!Attempt()) return kFailed;
      if (status_[probe::kStatusResult] == 0) break;
    }
    // Also after the last attempt it is the finish reply that decides, not the status.
    if (finish_reply_[probe::kReplyStatus] == 0) return kLoaded;
    return finish_reply_[kFinishError] == kError5 ? kProbeError5 : kFailed;
  }

 private:
  // Sends the whole image; false when a request failed.
  bool Attempt() {
    // An empty image announces the length that follows from it, all ones.
    const std::uint32_t last = image_.size - 1;
    if (!Request(probe::kRequestFpgaPrepare, 0, 0, finish_reply_)) return false;
    Sleep(kPreparePauseMs);
    if (!Request(probe::kRequestFpgaLength, static_cast<std::uint16_t>(last),
                 static_cast<std::uint16_t>(last >> 16), finish_reply_)) {
      return false;
    }
    Sleep(kAnnouncePauseMs);
    SendImage();
    return Request(probe::kRequestFpgaFinish, 0, 0, finish_reply_) &&
           Request(probe::kRequestStatus, 0, 0, status_);
  }

  // How the transfer ended is not looked at: finish reply and status judge the attempt.
  void SendImage() {
    std::uint32_t length = image_.size;
    static_cast<void>(
        device_.BulkXfer(probe::kEndpointStreamOut, image_.bytes.get(), length, probe::kModeIdle));
  }

  bool Request(std::uint8_t code, std::uint16_t value, std::uint16_t index,
               std::span<std::uint8_t> reply) {
    return device_.XferData(probe::kProbeToHost, code, value, index, reply.data(),
                            static_cast<std::uint32_t>(reply.size())) == 0;
  }

  CTzDevice& device_;
  const Image& image_;
  // All three commands answer here; only the answer to the last, finish, is judged.
  std::array<std::uint8_t, probe::kFpgaStepLength> finish_reply_{};
  std::array<std::uint8_t, probe::kStatusReplySize> status_{};
};

}  // namespace

std::uint32_t CTzWfxConfigure::ConfigureFPGA(CTzDevice& device) {
  const std::string name = GetFPGAFileName(device);
  if (name.empty()) return kNoImage;
  const std::string path = IsAbsoluteName(name) ? name : GetModuleDirectory() + name;
  const CTzUSBDevice& usb = *device.GetUSBDevice();
  // The label has had this second parenthesis from the first release on; tools look for it.
  Log(LOG_XFER, "CTzWfxConfigure::ConfigureFPGA())",
      "Programming FPGA of device VID=%4.4X, PID=%4.4X with hex file %s", usb.VendorId(),
      usb.ProductId(), path.c_str());
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return kNoImage;
  CTzUSBEndPoint* const endpoint = device.GetEndPoint(probe::kEndpointStreamOut);
  if (!endpoint) return kNoEndpoint;
  const std::optional<Image> image = ReadImage(file);
  if (!image) return kNoImage;
  file.close();

  endpoint->SetTransferSize(image->size);
  return FpgaLoader(device, *image).Run();
}
