#include "tests/unit/sim/bench_script.h"

namespace sim {
namespace {

// Two targets, the first with 4 KiB of memory. Headers: A5 reads the identification, 8D CTRL/STAT,
// BD the read buffer, AF TAR, 9F DRW; 81 writes ABORT, A9 CTRL/STAT, B1 SELECT, A3 CSW, 8B TAR, BB
// DRW. A read's reply is its word and the acknowledgement: 1, 4 for a fault, 7 from nobody.
constexpr char kTargets[] = R"(
    probe "kind": "evk", "swd": [{"idcode": "0x2BA01477", "connectors": [0], "memory": \
        {"address": "0x20000000", "size": 4096}}, {"idcode": "0x0BC11477", "connectors": [1]}]
)";
// Line reset, identification, debug power, word accesses with single increment.
constexpr char kBegin[] = R"(
    line | swd A5 = 77 14 A0 2B 01
    swd A9 00 00 00 50 A3 12 00 00 23 = 01 01
)";

TEST(Swd, TargetHearsNothingUntilTheLineIsResetAndItsIdentificationRead) {
  ExpectPlayed(std::string(kTargets) + R"(
    vendor 41 0104 3 | swd A5 = 00 00 00 00 07
    line | swd 8D A5 = 00 00 00 00 07 00 00 00 00 07
    line | swd A5 8D = 77 14 A0 2B 01 00 00 00 00 01
    # Malformed headers lose the line until its next reset: parity, start, stop, park.
    swd 85 A5 = 00 00 00 00 07 00 00 00 00 07
    line 00 F0*13 | swd A5 A4 A5 = 77 14 A0 2B 01 00 00 00 00 07 00 00 00 00 07
    line 00 F0*13 | swd A5 E5 A5 = 77 14 A0 2B 01 00 00 00 00 07 00 00 00 00 07
    line 00 F0*13 | swd A5 25 A5 = 77 14 A0 2B 01 00 00 00 00 07 00 00 00 00 07
    # So do levels that are no reset, and 48 cycles are two short of one; upper bits keep them away.
    line 00 F0*13 | swd A5 = 77 14 A0 2B 01
    line 40 A0 50 | line 80 A0 50 | swd A5 = 77 14 A0 2B 01
    line 00 F0*12 00 00 | swd A5 = 00 00 00 00 07
    line 00 C0 F0*12 00 | swd A5 = 77 14 A0 2B 01 ; exactly 50
    line 00 F0*13 C0 30 70 E0 F0*13 | swd A5 = 00 00 00 00 07 ; back to JTAG
    line | swd A5 = 77 14 A0 2B 01
    # Each connector has its target; all hear the reset.
    vendor 61 0001 10 | swd A5 = 77 14 C1 0B 01
)");
}

TEST(Swd, MemoryIsReadWithPostedReadsAndAFaultSticksUntilItIsCleared) {
  ExpectPlayed(std::string(kTargets) + kBegin + R"(
    swd 8B 00 00 00 20 BB 44 33 22 11 BB 88 77 66 55 = 01 01 01
    swd 8B 00 00 00 20 9F 9F BD AF BD = 01 00 00 00 00 01 44 33 22 11 01 \
        88 77 66 55 01 88 77 66 55 01 08 00 00 20 01
    swd 8B FC 03 00 20 BB 01 00 00 00 AF BD = 01 01 08 00 00 20 01 00 00 00 20 01 ; a kibibyte
    swd 95 = 00 00 00 20 01 ; RESEND
    # Bytes travel on the lane of their address, halves on theirs.
    swd A3 10 00 00 23 8B 01 00 00 20 BB 00 AB 00 00 BB 00 00 CD 00 = 01 01 01 01
    swd 8B 02 00 00 20 9F BD = 01 00 00 00 20 01 00 00 CD 00 01
    swd A3 11 00 00 23 8B 02 00 00 20 BB 00 00 EF BE AF BD = 01 01 01 \
        00 00 CD 00 01 04 00 00 20 01
    swd A3 02 00 00 23 8B 00 00 00 20 9F BD AF BD = 01 01 04 00 00 20 01 \
        44 AB EF BE 01 44 AB EF BE 01 00 00 00 20 01 ; no increment
    # A fault sticks until it is cleared.
    set "changes": {"external_supply": 330}
    line | swd A5 8B 00 00 00 00 81 04 00 00 00 = 77 14 A0 2B 01 04 01 ; no debug power
)" + kBegin + R"(
    swd 8B 00 00 00 30 9F = 01 00 00 00 00 01 ; the access that fails is acknowledged
    swd 9F BD 8B 00 00 00 20 = 00 00 00 00 04 00 00 00 00 04 04
    swd A5 8D = 77 14 A0 2B 01 20 00 00 F0 01 ; powered, sticky error
    swd 81 04 00 00 00 8B FC 0F 00 20 BB 01 00 00 00 BB = 01 01 01 07 ; at its end, and cut short
    swd 8B 00 10 00 20 9F 9F = 01 00 00 00 00 01 00 00 00 00 04 ; behind it
    swd 81 04 00 00 00 B1 F0 00 00 00 9F BD = 01 01 00 00 00 00 01 11 00 77 24 01 ; identification
    swd B1 F0 00 00 01 9F BD = 01 11 00 77 24 01 00 00 00 00 01 ; there is one port only
    swd = nothing | out 02 A5 A5 | in 84 7 = overrun 77 14 A0 2B 01 77 14
    # An access port that is slow: only what does not need it is done at once.
    set "changes": {"swd": {"idcode": "0x2BA01477", "waits": 2}} | line | swd A5 = 77 14 A0 2B 01
    swd A9 00 00 00 50 8B 08 00 00 20 8B 08 00 00 20 = 01 02 02 | swd AF 8D = 00 00 00 00 01 40 00 00 F0 01
    set "changes": {"swd": [{"idcode": "0x2BA01477", "connectors": [0], "memory": \
        {"address": "0x20000000", "size": 4096}}]}
    set "changes": {"external_supply": 0} | line | swd A5 = 00 00 00 00 07
    vendor 55 000B 2 | vendor 51 0001 2
)" + kBegin + R"(
    swd 8B FC 0F 00 20 9F BD = 01 00 00 00 00 01 00 00 00 00 01 ; what was written is lost
)");
}

}  // namespace
}  // namespace sim
