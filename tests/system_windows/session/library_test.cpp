// A program of others, built with the C++ client library.
#include "tests/system/harness.h"

namespace system_test {
namespace {

TEST_F(OnBench, AProgramBuiltWithTheClientLibraryScansAChain) {
  const Finished scan = Run({Program("scan_chain").string(), "WFX0001"});
  EXPECT_EQ(scan.err, "");
  EXPECT_EQ(scan.out,
            "WFX0001: 2 devices\n"
            "device 0: IDCODE 0x0684617F\n"
            "device 1: IDCODE 0x1BA01477\n");
}

}  // namespace
}  // namespace system_test
