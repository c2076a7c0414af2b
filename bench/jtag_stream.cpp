#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/instant_bus.h"
#include "bench/rows.h"
#include "bench/table.h"
#include "device/wfx_device.h"
#include "platform/linux/test_host.h"

namespace bench {
namespace {

constexpr std::size_t kSentBytes = std::size_t{10} << 20;
constexpr std::size_t kReplyBytes = kSentBytes / 2;
constexpr std::size_t kChunkBytes = 8192;  // what a chunk sends; its reply is half of it
constexpr int kRounds = 101;

}  // namespace

void JtagStreamRow() {
  InstantBus bus;
  test_host::UseBus(&bus);
  {
    CTzWfxDevice device(0, true);
    std::vector<std::uint8_t> sent(kSentBytes, 0x5A);
    std::vector<std::uint8_t> reply(kReplyBytes);
    std::vector<std::uint8_t> wire(kChunkBytes);
    const auto stream = [&] {
      if (device.JTAG_BufferedIo(static_cast<std::int32_t>(kSentBytes * 4), sent.data(), true,
                                 reply.data(), false) != 0) {
        std::fprintf(stderr, "bench: the JTAG stream failed\n");
        std::exit(1);
      }
    };
    const auto move = [&] {
      for (std::size_t at = 0; at < kSentBytes; at += kChunkBytes) {
        std::memcpy(wire.data(), sent.data() + at, kChunkBytes);
        std::memcpy(reply.data() + at / 2, wire.data(), kChunkBytes / 2);
      }
    };
    PrintRow("JTAG stream of 10 MiB, bus answers at once", "memcpy out and in, chunk by chunk",
             MeasureInTurns(kRounds, stream, move).Value(), Target{Wanted::kAtMost, 3});
  }
  test_host::UseBus(nullptr);
}

}  // namespace bench
