// A client object in front of a whole simulated bench, with the real device classes and passes
// between them.
#pragma once

#include <memory>
#include <string>

#include "config/evk_configure.h"
#include "config/wfx_configure.h"
#include "platform/test_host.h"
#include "sim/bench.h"
#include "tests/unit/api/api_fixture.h"

class BenchTest : public ApiTest {
 protected:
  // The bench has the probe P1, of the kind and with the targets that `members` gives as members of
  // a JSON object, and the Evk board E1. Both are in the table afterwards, without any target.
  // Failures are logged.
  explicit BenchTest(const std::string& members);
  ~BenchTest() override;

  TzErrorCode SetMode(TzTransferMode mode) {
    return Outcome(object_->SetMode(Text(L"P1"), mode, 0, OwnPid(), &error_));
  }
  // A JTAG packet's reply, and its outcome in error_.
  std::optional<Bytes> Jtag(const Bytes& cycles, bool read = true);

  test_host::TestClock clock_;
  std::unique_ptr<sim::Bench> bench_;
  CTzEvkConfigure evk_;
  CTzWfxConfigure wfx_;
};
