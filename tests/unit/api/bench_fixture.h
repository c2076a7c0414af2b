// A client object in front of a whole simulated bench, with the real device classes and passes
// between them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "config/evk_configure.h"
#include "config/wfx_configure.h"
#include "platform/test_host.h"
#include "sim/bench.h"
#include "tests/unit/api/api_fixture.h"

class BenchTest : public testing::Test {
 protected:
  // The bench has the probe P1, of the kind and with the targets that `members` gives as members of
  // a JSON object, and the Evk board E1. Both are in the table afterwards, without any target.
  explicit BenchTest(const std::string& members);
  ~BenchTest() override;

  void SetMode(TzTransferMode mode);
  // The targets' strings after a scan.
  std::vector<std::wstring> Scan();
  std::int64_t Acquire(LONG target);
  // A JTAG packet's reply, and its outcome in error_.
  std::optional<Bytes> Jtag(const Bytes& cycles, bool read = true);
  std::optional<Bytes> Swd(const Bytes& requests);

  // OUT data that P1 has received on an endpoint since Record was called.
  Bytes Sent(std::uint8_t endpoint);

  test_host::TestClock clock_;
  std::unique_ptr<sim::Bench> bench_;
  CTzEvkConfigure evk_;
  CTzWfxConfigure wfx_;
  CountingModule module_;
  CTzWirefox* object_ = nullptr;
  std::int64_t handle_ = 0;
  LogCapture log_;
  TzErrorCode error_ = TzErrorCode::SUCCESS;
};
