// The probe itself: descriptors, firmware, FPGA image, commands, and how it is described.
#include "tests/unit/sim/bench_script.h"

namespace sim {
namespace {

TEST(Descriptors, FreshControllerHasNoEndpointsAndAConfiguredProbeFive) {
  ExpectPlayed(R"(
    probe "state": "fresh", "product": "Kit"
    control 80 06 0100 0000 255 = 12 01 00 02 FF FF FF 40 0F 0F 01 10 00 00 01 02 03 01
    control 80 06 0200 0000 255 = 09 02 12 00 01 01 00 80 FA 09 04 00 00 00 FF 00 00 00
    control 80 06 0301 0409 255 = 10 03 57 00 69 00 72 00 65 00 66 00 6F 00 78 00
    control 80 06 0302 0409 255 = 08 03 4B 00 69 00 74 00
    out 02 01 = error | vendor 44 0000 14 = stall               ; nobody is there to answer
    probe "kind": "evk", "languages": [1033]
    control 80 06 0100 0000 18 = 12 01 00 02 FF FF FF 40 0F 0F 02 20 03 02 01 02 03 01
    control 80 06 0200 0000 255 = 09 02 35 00 01 01 00 80 FA 09 04 00 00 05 FF 00 00 00 \
        07 05 01 02 00 02 00 07 05 81 02 00 02 00 07 05 02 02 00 02 00 07 05 84 02 00 02 00 \
        07 05 86 02 00 02 00
    control 80 06 0300 0000 255 = 04 03 09 04 | control 80 06 0303 0409 255 = 04 03 50 00
    control 80 06 0304 0409 255 = stall | control 80 06 0101 0000 18 = stall
    # The other standard requests.
    control 82 00 0000 0081 2 = 00 00 | control 80 08 0000 0000 1 = 01
    control 81 0A 0000 0000 1 = 00 | control 00 09 0001 0000 0 | control 00 09 0002 0000 0 = stall
    control 01 0B 0000 0000 0 | control 01 0B 0001 0000 0 = stall
    control 00 05 0001 0000 0 = stall
)");
}

TEST(FreshController, TakesRamOnlyWhileItsProcessorIsHeldAndStartsWhatWasWritten) {
  ExpectPlayed(R"(
    probe "kind": "wirefox", "state": "fresh" | control 40 A0 0000 0000 2 01 02 = stall
    control 40 A0 E600 0000 2 01 00 = stall                     ; two bytes are data
    control 40 A0 E600 0000 1 01 | control 40 A0 E600 0000 1 00
    wait 1000 | show pid = 4097                                 ; there is nothing to start
    control 40 A0 E600 0000 1 01 | control 40 A0 0000 0000 2 01 02
    control 40 A0 E600 0000 2 00 09 | show processor_held = true
    control 40 A0 FFFF 0000 2 07 08 | dump "what": "ram" = FF*65536
    control 40 A0 E600 0000 1 00                                ; the address has wrapped
    dump "what": "ram" = 08 02 FF*58878 00 09 FF*6653 07
    control 40 A0 0000 0000 1 01 = stall | wait 4 | show plugged pid = true 4097
    wait 1 | show plugged = false | plug = P is plugged         ; it is coming back
    control 80 06 0100 0000 18 = gone | wait 99 | open = no probe
    wait 1 | open | show state pid = "configured" 4098 | vendor 43 003A 4 = 04 00 00 00
    control 40 A0 E600 0000 1 01 | vendor 44 0000 14 = stall    ; held, also with firmware
    # The firmware does not outlive the supply.
    unplug | show state pid = "fresh" 4097 | plug | open | show state = "fresh"
    control 40 A0 E600 0000 1 01 | control 40 A0 0100 0000 1 02 | control 40 A0 E600 0000 1 00
    wait 5 | unplug | wait 1000 | show plugged = false | plug   ; it stays away
)");
}

TEST(Fpga, LoadsExactlyTheAnnouncedLengthInTheOrderOfItsSteps) {
  ExpectPlayed(R"(
    probe "kind": "wirefox" | vendor 45 0009 2 = 05 00 | vendor 46 0000 2 = 01 02
    vendor 41 0101 3 = 04 00 00 | vendor 43 003A 4 = 04 00 00 00
    vendor 47 0000 16 | vendor 45 0005 16 | out 02 01 02 03 04 | out 02 05 06 | vendor 46 0000 16
    vendor 44 0000 14 = 00 27 0B 4A 01 00 03 02 04 01 11 00 00 01 | vendor 41 0101 3 | reg 11 = C0
    dump "what": "fpga" = 01 02 03 04 05 06
    # One byte too many, and one byte short: a new download takes the old image away.
    vendor 47 0000 16 | vendor 43 003A 4 = 04 00 00 00
    vendor 45 0001 16 | out 02 01 02 03 | vendor 46 0000 2 = 01 05
    vendor 44 0000 14 = 01 23 0B 4A 01 01 03 02 04 01 00 00 00 01
    vendor 47 0000 16 | vendor 44 0000 1 | vendor 45 0001 16 | out 02 01 | vendor 46 0000 2 = 01 05
    show fpga_loaded = false | vendor 47 0000 16 | control C0 45 0000 0001 2 = 00 00
    out 02 00*65537 | vendor 46 0000 16 | show fpga_loaded = true
    vendor 47 0000 16 | control C0 45 FFFF FFFF 2 = 00 00 | out 02 | vendor 46 0000 2 = 01 05
)");
}

TEST(Commands, EachSetsWhatItNamesAndRefusesWhatDoesNotExist) {
  ExpectPlayed(R"(
    probe "kind": "evk", "clock_settle_reads": 2
    vendor 48 0203 2 | vendor 48 0403 2 = 02 00 | vendor 48 0004 2 = 02 00 | show leds = [0,0,3,0]
    vendor 49 0001 2 | vendor 49 0004 2 = 02 00 | show identify = 1
    vendor 56 0000 6 = 00 00 4A 01 00 00 | vendor 55 000D 2 | vendor 55 000C 2 = 02 00
    vendor 51 0001 2 | vendor 56 0000 15 = 00 00 FA 00*12
    vendor 57 0084 2 | vendor 58 0000 4 = 00 00 00 84
    vendor 41 0110 3 | vendor 41 0003 3 = 02 00 00 | vendor 41 0200 3 = 02 00 00
    vendor 61 0001 10 | vendor 61 0002 10 = 02 00*9
    vendor 67 01F4 2 | vendor 5C 1910 64 = 00 00 00 03 00*60 | vendor 5C 1911 4 = 02 00 00 00
    vendor 99 0000 2 = stall | control 40 48 0000 0000 0 = stall
    # Result, flags (logic valid, supply on), code, measured, mode, versions, connector.
    vendor 44 0000 14 = 00 14 0D FA 00 10 03 02 04 01 00 01 00 01
    show external swv_commit clock_code = true 500 132
    vendor 55 000E 2 | show measured = 180 | vendor 55 000B 2 | show measured = 330
    vendor 55 0007 2 | show measured = 500 | vendor 52 0001 2 | show supply_on measured = false 330
    unplug | plug | open | show leds identify mode external = [0,0,0,0] 0 0 false
    show voltage_code clock_code connector = 11 0 0
    # The clock settles after some reads; both bits together drive the reset line.
    reg 3A = 03 | reg 39 FD | reg 39 05 | reg 39 = 05 | reg 3A = 01 | reg 3A = 01 | reg 3A = 03
    reg 11 = C0 | reg 11 F0 | reg 11 F0 | show reset_asserted resets = true 1
    reg 11 D0 | show reset_asserted = false | reg 11 E0 | show reset_asserted resets = false 1
)");
}

TEST(Description, BadEntriesAreNamedAndChangeNothing) {
  ExpectPlayed(R"(
    probe "kind": "evk"
    add "probe": {} = probe.name: is missing
    add "probe": {"name": "P"} = the name P is taken
    add "probe": {"name": "A", "kind": "x"} = probe A.kind: is not wirefox or evk
    add "probe": {"name": "A", "hue": 1} = probe A: has no member "hue"
    add "probe": {"name": "A", "vid": 65536} = probe A.vid: is out of range
    add "probe": {"name": "A", "vid": "0xZ"} = probe A.vid: is not a number
    add "probe": {"name": "A", "jtag": {"taps": [{"idcode": 2}]}} = \
        probe A.jtag.taps[0].idcode: has bit 0 clear
    add "probe": {"name": "A", "swd": {"memory": {"size": 1000000000}}} = \
        probe A.swd.memory.size: is out of range
    add "probe": {"name": "A", "i2c": [{"address": 128}]} = probe A.i2c[0].address: is out of range
    set "changes": {"name": "B"} = a probe's name cannot be changed
    set "changes": {"external_supply": 120, "pid": -1} = probe P.pid: is out of range
    show measured = 330 | set "changes": {"external_supply": 120, "pid": 9}
    show measured pid = 120 8194                                ; identities with the next plug
    unplug | plug | show measured pid = 120 9
    add "probe": {"name": "A", "plugged": false} | unplug "name": "A" = A is not plugged
    plug "name": "A" | set "name": "C", "changes": {} = there is no probe named C
    plug "name": "C" = there is no probe named C
    swv "data": "0" = an odd number of hexadecimal digits
    swv "data": "0g" = not a hexadecimal digit | fault "kind": "x" = there is no such kind of fault
    dump "what": "x" = what to dump is ram, fpga or configuration | dance = there is no command dance
)");
  EXPECT_THROW(Bench{R"({"probes": [{"name": "A"}, {"name": "A"}]})"}, std::invalid_argument);
}

}  // namespace
}  // namespace sim
