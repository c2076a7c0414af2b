// The methods that move data: what reaches the probe, and what comes back, also when something
// fails. JTAG packets are tried over the bench, in bench_test.cpp; modes and arrays that are
// refused, in every_method_test.cpp.
#include <algorithm>

#include "api/automation_arrays.h"
#include "tests/unit/api/api_fixture.h"
#include "usb/kept_memory.h"

namespace {

// A driver may have kept a request on a part of it.
TEST(ByteArrays, ArrayThatADriverHasKeptIsNotFreed) {
  static SAFEARRAY* const array = api::CreateByteArray(300);
  for (const bool kept : {false, true}) {
    const api::ByteArrayAccess access(array);
    if (kept) NoteKept(access.bytes().last(1));
  }
  EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
}

class Transfer : public ApiTest {
 protected:
  Transfer() : probe_(AddProbe(L"P1")) {
    SetTargets(probe_, {0x11});
    EXPECT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
  }

  Told Swd(const char* requests, const std::string& told) {
    return {[=, this] {
              return object_->SendSwdPacket(Array(HexBytes(requests)), handle_, &result_, &error_);
            },
            told};
  }
  Told I2c(const char* packet, LONG restart, const char* told) {
    return {[=, this] {
              return object_->SendI2CPacket(Array(HexBytes(packet)), handle_, restart, &result_,
                                            &error_);
            },
            told};
  }
  Told Bulk(std::int32_t endpoint, const char* data, CHAR read, const char* told) {
    return {[=, this] {
              return object_->BulkTransfer(TzWirefoxEndPoint(endpoint), Array(HexBytes(data)), read,
                                           handle_, &result_, &error_);
            },
            told};
  }

  ProbeEntry& probe_;
};

TEST_F(Transfer, SwdReplyHasFiveBytesForAReadAndOneForAWrite) {
  probe_.mode = 4;
  device_->reply = {0x77, 0x14, 0xA0, 0x2B, 1, 1, 0xEE, 0xEE};
  ExpectTold({
      Swd("A5", "SWDXfer(A5, room 512); SUCCESS: 77 14 A0 2B 01"),
      Swd("A5 81 01 02 03 04", "SWDXfer(A5 81 01 02 03 04, room 512); SUCCESS: 77 14 A0 2B 01 01"),
      // A write's data is no request, whatever it looks like.
      Swd("81 A5 A5 A5 A5", "SWDXfer(81 A5 A5 A5 A5, room 512); SUCCESS: 77"),
      // Cut short: after its header, within its data.
      Swd("81", "SWDXfer(81, room 512); SUCCESS: 77"),
      Swd("A5 81 01 02", "SWDXfer(A5 81 01 02, room 512); SUCCESS: 77 14 A0 2B 01 01"),
      Swd("", "SWDXfer(, room 512); SUCCESS: "),
  });
  // A long reply gets all the room that it needs.
  device_->reply.assign(5000, 0x5A);
  ExpectTold({
      Swd("A5*102", "SWDXfer(A5*102, room 512); SUCCESS: 5A*510"),
      Swd("A5*103", "SWDXfer(A5*103, room 515); SUCCESS: 5A*515"),
      Swd("A5*1000", "SWDXfer(A5*1000, room 5000); SUCCESS: 5A*5000"),
  });
  // A failure gives what had arrived.
  device_->reply = {9, 8};
  device_->failing = {{"SWDXfer", 8}};
  ExpectTold({Swd("A5", "SWDXfer(A5, room 512); WFX_ERROR: 09 08 00 00 00"),
              Swd("A5*103", "SWDXfer(A5*103, room 515); WFX_ERROR: 09 08 00*513")});
}

TEST_F(Transfer, I2cReplyHasTwoBytesMoreThanThePacket) {
  probe_.mode = 2;
  device_->reply = {7, 6, 5, 4, 3, 2, 1};
  ExpectTold({I2c("01 02 03 04", 0x83,
                  "I2CXfer(01 02 03 04, restart 131, room 6); SUCCESS: 07 06 05 04 03 02")});
  device_->reply = {7};
  ExpectTold({I2c("", 0x101, "I2CXfer(, restart 1, room 2); SUCCESS: 07 00")});
}

TEST_F(Transfer, BulkTransferAddressesTheEndpointByDirection) {
  probe_.mode = 272;
  device_->reply = {9, 8};
  ExpectTold({
      Bulk(6, "01 02 03", 1, "BulkXfer(86, 01 02 03, mode 272); SUCCESS: 09 08 03"),
      Bulk(6, "01 02 03", 2, "BulkXfer(86, 01 02 03, mode 272); SUCCESS: 09 08 03"),
      Bulk(1, "01 02 03", 0, "BulkXfer(01, 01 02 03, mode 272); SUCCESS: 01 02 03"),
      Bulk(0x101, "01 02 03", 0, "BulkXfer(01, 01 02 03, mode 272); SUCCESS: 01 02 03"),
      Bulk(0x81, "01 02 03", 0, "BulkXfer(81, 01 02 03, mode 272); SUCCESS: 09 08 03"),
      Bulk(2, "", 0, "BulkXfer(02, , mode 272); SUCCESS: "),
  });
}

TEST_F(Transfer, TraceBytesComeAsTheyAreCollectedAndEtmModeHasNoArray) {
  const auto swv = [&] { return object_->RequestSwvPackets(handle_, &result_, &error_); };
  probe_.mode = 12;
  device_->reply = {1, 2, 3};
  ExpectTold({{swv, "GetSWVData(); SUCCESS: 01 02 03"}});
  device_->reply.clear();
  ExpectTold({{swv, "GetSWVData(); SUCCESS: "}});
  probe_.mode = 32;
  ExpectTold({{[&] { return object_->RequestEtmPackets(handle_, &result_, &error_); }, "SUCCESS"}});
}

}  // namespace
