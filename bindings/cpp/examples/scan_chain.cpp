// Lists the probes, or scans the JTAG chain behind one: scan_chain [PROBE]
#include <wirefox/client.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

// JTAG cycles as a probe takes them: four in a byte, TMS in the high nibble and TDI in the low one.
class Cycles {
 public:
  void Add(bool tms, bool tdi, int count = 1) {
    for (; count > 0; --count, ++count_) {
      if (count_ % 8 == 0) bytes_.insert(bytes_.end(), 2, 0);
      bytes_[count_ / 4] |= static_cast<std::uint8_t>((tms << 4 | tdi) << count_ % 4);
    }
  }
  std::size_t count() const { return count_; }
  const wirefox::Bytes& bytes() const { return bytes_; }

 private:
  wirefox::Bytes bytes_;  // a whole number of pairs
  std::size_t count_ = 0;
};

// After a reset each device shows its IDCODE, whose first bit is 1, or when it has none a single 0.
void PrintIdCodes(wirefox::Session& session, std::size_t devices) {
  Cycles cycles;
  cycles.Add(true, false, 5);   // Test-Logic-Reset, from whatever state
  cycles.Add(false, false);     // Run-Test/Idle
  cycles.Add(true, false);      // Select-DR-Scan
  cycles.Add(false, false, 2);  // Capture-DR, Shift-DR
  std::size_t bit = cycles.count();
  cycles.Add(false, true, static_cast<int>(32 * devices));
  cycles.Add(true, true);       // Exit1-DR
  cycles.Add(true, false);      // Update-DR
  cycles.Add(false, false, 1);  // Run-Test/Idle
  const wirefox::Bytes tdo = session.SendJtagPacket(cycles.bytes());

  const auto next = [&] { return tdo.at(bit / 8) >> bit % 8 & 1; };
  for (std::size_t device = 0; device < devices; ++device) {
    if (next() == 0) {
      std::printf("device %zu: no IDCODE\n", device);
      ++bit;
      continue;
    }
    std::uint32_t id = 0;
    for (int i = 0; i < 32; ++i, ++bit) id |= static_cast<std::uint32_t>(next()) << i;
    std::printf("device %zu: IDCODE 0x%08X\n", device, static_cast<unsigned>(id));
  }
}

void ScanChain(wirefox::Service& service, const std::string& probe) {
  service.SetMode(probe, wirefox::TzTransferMode::JTAG);
  const std::size_t devices = service.EnumerateDevices(probe).size();
  std::printf("%s: %zu devices\n", probe.c_str(), devices);
  wirefox::Session session = service.AcquireDevice(probe, 0);
  PrintIdCodes(session, devices);
}  // here the target is released

}  // namespace

int main(int argc, char** argv) {
  try {
    wirefox::Service service;  // starts the service if need be
    if (argc > 1) {
      ScanChain(service, argv[1]);
    } else {
      for (const std::string& probe : service.EnumerateWirefoxs())
        std::printf("%s\n", probe.c_str());
    }
    return 0;
  } catch (const wirefox::Error& error) {
    std::fprintf(stderr, "scan_chain: %s\n", error.what());
    return 10 + static_cast<int>(error.code());
  }
}
