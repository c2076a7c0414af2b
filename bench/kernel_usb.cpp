// The service's way to a probe on the kernel's USB and libusb's own way to a second probe like it,
// in turns. Run by kernel_usb_guest, which makes a table of the seconds that it prints.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "bench/bare_probe.h"
#include "bench/baselines.h"
#include "bench/client_session.h"

namespace {

constexpr std::uint16_t kVendor = 0x0F0F;
constexpr std::uint16_t kTwinProduct = 0x1099;  // no id of the service's settings

double Seconds(const std::function<void()>& call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A line for each turn with its seconds: the service's call, the bare program's, and those of as
// many bytes to another process and back, which no service can do without.
int Jtag(std::size_t size, int least_pairs, double least_seconds) {
  bench::SocketEcho echo;
  bench::ClientSession client(L"WFX0001", TzTransferMode::JTAG);
  bench::BareProbe bare(kVendor, kTwinProduct);
  bare.SetJtagMode();
  std::vector<std::uint8_t> cycles(size);
  std::vector<std::uint8_t> reply(size / 2);
  SAFEARRAY* const packet = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(size));
  double spent = 0;
  for (int pair = 0; pair < least_pairs || spent < least_seconds; ++pair) {
    double through = 0;
    double direct = 0;
    // Neither is always the one that finds the machine at rest.
    for (const bool is_services : {pair % 2 == 0, pair % 2 != 0}) {
      if (is_services) through = Seconds([&] { client.SendJtagPacket(packet); });
      if (!is_services) direct = Seconds([&] { bare.SendJtag(cycles, reply); });
    }
    const double between = Seconds([&] { echo.Call(cycles, reply); });
    std::printf("%.6f %.6f %.6f\n", through, direct, between);
    spent += through + direct;
  }
  SafeArrayDestroy(packet);
  return 0;
}

int Load(const char* image_file) {
  std::ifstream file(image_file, std::ios::binary);
  std::vector<std::uint8_t> image{std::istreambuf_iterator<char>(file), {}};
  if (image.empty()) return 1;
  bench::BareProbe(kVendor, kTwinProduct).LoadFpga(image);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "jtag" && argc == 5) {
    return Jtag(std::strtoul(argv[2], nullptr, 10), std::atoi(argv[3]), std::atof(argv[4]));
  }
  if (what == "load" && argc == 3) return Load(argv[2]);
  std::fprintf(stderr, "usage: wirefox_bench_usb jtag BYTES PAIRS SECONDS | load IMAGE\n");
  return 2;
}
