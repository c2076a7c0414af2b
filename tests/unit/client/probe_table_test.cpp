// The table of probes, and what is shown of the processes in it.
#include <gtest/gtest.h>
#include <windows.h>

#include <optional>

#include "client/probe_table.h"
#include "client/running_program.h"
#include "client/text.h"

namespace client_test {
namespace {

TEST(ProbeTable, AlignsItsColumnsAndLeavesOpenWhatIsNotKnown) {
  constexpr std::uint32_t kNobodysPid = 0x7FFFFFFC;
  const std::uint32_t own = GetCurrentProcessId();
  const client::ProbeActivity busy = {
      "W\xC3\xA4hler\x1B[2J", 272, 9, 5, 7, {{1, true, own}, {2, true, kNobodysPid}, {3, true, 0}}};
  const std::vector<client::ShownProbe> probes = {
      {busy.name, 272, busy}, {"P", {}, {}}, {"idle", 0, client::ProbeActivity{}}};
  const std::vector<std::optional<client::ProbeRates>> rates = {
      client::ProbeRates{1234567.5, 0.4}, {}, {}};
  const std::string program = client::ProgramOf(own).name;
  EXPECT_EQ(program.substr(0, 11), "unit_client");
  EXPECT_EQ(client::ProbeTable(probes, &rates),
            "PROBE       MODE      VTARG  CALLS/S  BYTES/S  TARGET        HOLDER\n"
            "W\xC3\xA4hler?[2J  VSER_INT  9      1234568  0        0 0x00000001  " +
                std::to_string(own) + " " + program +
                "\n"
                "W\xC3\xA4hler?[2J                                     1 0x00000002  2147483644 "
                "(ended)\n"
                "W\xC3\xA4hler?[2J                                     2 0x00000003  held\n"
                "P           ?         ?      -        -        ?             ?\n"
                "idle        IDLE      -      -        -        -             -\n");
  EXPECT_EQ(client::Printable("a\t\x7F\xC2\x9B\xC2\xA9"), "a???\xC2\xA9");
}

}  // namespace
}  // namespace client_test
