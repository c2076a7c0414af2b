// I2C, serial, trace and port acquisition.
#include "tests/unit/sim/bench_script.h"

namespace sim {
namespace {

TEST(Streams, CarryI2cInBothFormatsAndSerialBytes) {
  ExpectPlayed(R"(
    probe "kind": "wirefox", "i2c": [{"address": "0x50", "size": 16}, \
        {"address": "0x51", "size": 512}]
    vendor 47 0000 16 | vendor 45 0000 16 | out 02 00 | vendor 46 0000 16 | vendor 41 0102 3
    out 02 A0 0E 11 22 33 | in 84 7 = 01 0E 11 22 33
    # A restart at the second byte; the pointer wraps, and reading goes on behind it.
    reg 08 81 | out 02 A0 0E A1 00 00 00 | in 84 8 = 01 0E A1 11 22 33
    out 02 A0 07 41 00 00 | in 84 7 = 00 07 41 00 00            ; nobody in the second phase
    reg 08 FF | out 02 A0 01 55 | in 84 5 = 01 01 55            ; behind the end: a single phase
    reg 08 01 | out 02 A1 00 | in 84 4 = 01 FF | out 02 40 01 02 | in 84 5 = 00 00 00
    # A large memory has two pointer bytes.
    out 02 A2 01 23 77 | in 84 6 = 01 01 23 77 | out 02 | in 84 2 = nothing
    reg 08 82 | out 02 A2 01 23 A3 00 | in 84 7 = 01 01 23 A3 77
    set "changes": {"external_supply": 74} | out 02 A0 00 | in 84 4 = 00 00
    probe "kind": "evk", "i2c": {"address": "0x50", "size": 16} | vendor 41 0102 3
    out 01 10 02 50 03 AB | in 81 64 = 01 03 AB | out 01 14 01 50 01 D0 03 | in 81 64 = 01 03 AB
    out 01 11 02 20 | in 81 64 = 00 00 00 | out 01 14 01 50 01 A0 03 | in 81 64 = 00 03 00
    out 01 10 3F 50 01 | in 81 64 = 00 | out 01 14 01 50 | in 81 64 = 00  ; less than they promise
    out 02 A0 00 | in 84 4 = waits                              ; a board has no engine
    # Serial bytes loop back on the side that the mode chose.
    probe "kind": "evk", "serial": {"internal_loopback": false} | vendor 41 0110 3
    out 01 01 02 | out 01 03 | in 81 64 = 01 02 03              ; bytes, not packets
    out 01 04 05 | vendor 41 0010 3 | out 01 06 | in 81 64 = 04 05  ; a mode keeps what waits
    in 81 64 = waits
)");
}

TEST(Swv, TraceArrivesAsItIsSampledAndAFullBufferLosesBytesAndWholePackets) {
  ExpectPlayed(R"(
    probe "kind": "evk", "swv": {"rate_hz": 2000000} | vendor 41 010C 3 | reg 23 18 | reg 20 02
    swv "data": "01" | in 86 512 = waits | vendor 67 0001 2 | swv "data": "0304" | in 86 512 = 03 04
    reg 23 0C | swv "data": "06" | in 86 512 = 06               ; of the slow clock
    reg 23 17 | swv "data": "07" | reg 23 18 | reg 20 03 | swv "data": "08" | in 86 512 = waits
    # A full buffer loses bytes and says so.
    set "changes": {"swv": {"buffer": 4}} | swv "data": "010203040506" | show swv_lost = 2
    in 86 4 = 01 02 03 04 | swv "data": "08" | in 86 512 = 70 08
    unplug | plug | open | vendor 41 010C 3 | swv "data": "08" | in 86 512 = waits
    probe "kind": "evk", "swv": {"bytes_per_ms": 3} | vendor 41 010C 3 | vendor 67 0001 2
    wait 3 | in 86 512 = 00 00 00 00 00 80 01 74
    vendor 41 0104 3 | wait 10 | vendor 41 010C 3               ; only while its mode lasts
    wait 6 | in 86 512 = 01 69 01 63 01 6B 01 20 01 30 01 0A 0B 00 00 00 00 C0 0A
    probe "kind": "evk", "swv": {"bytes_per_ms": 20, "buffer": 24} | vendor 41 010C 3
    vendor 67 0001 2 | wait 3 | in 86 512 = 00 00 00 00 00 80 01 74 01 69 01 63 01 6B 01 20 01 30 \
        01 0A 70 C0 0A
    wait 1 | in 86 512 = 70 01 0A 0B 02 00 00 00 C0 0A 01 74 01 69 01 63 01 6B 01 20
    show swv_lost = 38 | wait 4 | in 86 512 = 01 33 01 0A 0B 03 00 00 00 C0 0A 01 74 01 69 01 63 \
        01 6B 01 20 01 34                                       ; then the eighth round begins
    wait 1 | in 86 512 = 70 01 6B 01 20 01 37 01 0A 0B 07 00 00 00 C0 0A 00 00 00 00 00 80
)");
}

// What is staged reads the identification, or writes the key 0xAABBCCDD to 0x11223344 before.
TEST(PortAcquire, PartIsCaughtOnlyAsItIsConfiguredByTheProbeOrByHand) {
  ExpectPlayed(R"(
    probe "kind": "evk", "swd": {"idcode": "0x2BA01477"} | vendor 60 0000 2 = 05 00
    vendor 5F 0101 10 | vendor 60 0000 2 = 05 00 | out 02 A5 | vendor 60 0000 10
    wait 9 | in 84 100 = waits | wait 1 | in 84 100 = 77 14 A0 2B 01
    show target_caught acquire_attempts = true 1
    # A key, the reset line, and three attempts; what is not so misses the part.
    set "changes": {"swd": {"idcode": "0x2BA01477", "acquire": {"reset": "xres", "attempt": 3, \
        "address": "0x11223344", "key": "0xAABBCCDD"}}}
    vendor 5F 0105 10 | out 02 8B 44 33 22 11 BB DD CC BB AA A5 | vendor 60 0000 10
    wait 29 | show acquire_attempts = 2 | wait 1 | in 84 100 = 01 01 77 14 A0 2B 01
    show target_caught acquire_attempts = true 3 | line | swd A5 = 77 14 A0 2B 01
    reg 11 F0 | line | swd A5 = 00 00 00 00 07                  ; caught until its next reset
    vendor 5F 0102 10 | out 02 8B 44 33 22 11 BB DD CC BB AA A5 | vendor 60 0000 10
    wait 100 | in 84 100 = 01 01 00 00 00 00 07 | show target_caught acquire_attempts = false 2
    # Power instead of the reset line, another key, another place, none.
    vendor 5F 0005 10 | out 02 8B 44 33 22 11 BB DD CC BB AA A5 | vendor 60 0000 10
    wait 100 | in 84 100 = 01 01 00 00 00 00 07
    vendor 5F 0105 10 | out 02 8B 44 33 22 11 BB DC CC BB AA A5 | vendor 60 0000 10
    wait 100 | in 84 100 = 01 01 00 00 00 00 07
    vendor 5F 0105 10 | out 02 8B 40 33 22 11 BB DD CC BB AA A5 | vendor 60 0000 10
    wait 100 | in 84 100 = 04 04 00 00 00 00 07
    vendor 5F 0105 10 | out 02 A5 | vendor 60 0000 10 | wait 100 | in 84 100 = 00 00 00 00 07
    # Without retries the user cycles the power.
    probe "kind": "evk", "swd": {"idcode": 731911287, "acquire": {"reset": "power", "attempt": 2}}
    vendor 5F 0000 10 | out 02 A5 | vendor 60 0000 10 | wait 10000
    cycle-power | in 84 100 = waits | cycle-power | in 84 100 = 77 14 A0 2B 01
    vendor 5F 0000 10 | out 02 A5 | vendor 60 0000 10 | vendor 41 0104 3  ; a mode ends the wait
    cycle-power | show acquire_attempts = 0 | vendor 5F 0105 10 | out 02 A5 | vendor 60 0000 10
    vendor 41 0104 3 | wait 100 | show acquire_attempts = 0
)");
}

}  // namespace
}  // namespace sim
