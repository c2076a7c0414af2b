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

  // The result's bytes, and the outcome in error_.
  std::optional<Bytes> Swd(const Bytes& requests) {
    Result result;
    EXPECT_EQ(object_->SendSwdPacket(Array(requests), handle_, &result, &error_), S_OK);
    return result.AsBytes();
  }

  std::optional<Bytes> I2c(const Bytes& packet, LONG restart) {
    Result result;
    EXPECT_EQ(object_->SendI2CPacket(Array(packet), handle_, restart, &result, &error_), S_OK);
    return result.AsBytes();
  }

  std::optional<Bytes> Bulk(std::int32_t endpoint, const Bytes& data, CHAR read) {
    Result result;
    EXPECT_EQ(object_->BulkTransfer(TzWirefoxEndPoint(endpoint), Array(data), read, handle_,
                                    &result, &error_),
              S_OK);
    return result.AsBytes();
  }

  std::optional<Bytes> Swv() {
    Result result;
    EXPECT_EQ(object_->RequestSwvPackets(handle_, &result, &error_), S_OK);
    return result.AsBytes();
  }

  ProbeEntry& probe_;
};

TEST_F(Transfer, SwdReplyHasFiveBytesForAReadAndOneForAWrite) {
  probe_.mode = 4;
  device_->reply = {0x77, 0x14, 0xA0, 0x2B, 1, 1, 0xEE, 0xEE};
  const struct {
    Bytes requests;
    Bytes reply;
  } kCases[] = {
      {{0xA5}, {0x77, 0x14, 0xA0, 0x2B, 1}},
      {{0xA5, 0x81, 1, 2, 3, 4}, {0x77, 0x14, 0xA0, 0x2B, 1, 1}},
      // A write's data is no request, whatever it looks like.
      {{0x81, 0xA5, 0xA5, 0xA5, 0xA5}, {0x77}},
      // Cut short: after its header, within its data.
      {{0x81}, {0x77}},
      {{0x81, 0xA5, 0xA5}, {0x77}},
      {{0xA5, 0x81, 1, 2}, {0x77, 0x14, 0xA0, 0x2B, 1, 1}},
      {{}, {}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(Hex(test.requests));
    EXPECT_EQ(Swd(test.requests), test.reply);
    EXPECT_EQ(error_, TzErrorCode::SUCCESS);
    EXPECT_EQ(device_->TakeCalls(), Calls{"SWDXfer(" + Hex(test.requests) + ", room 512)"});
  }
}

TEST_F(Transfer, LongSwdReplyGetsAllTheRoomItNeeds) {
  probe_.mode = 12;
  for (const std::size_t reads : {102u, 103u, 1000u}) {
    device_->reply.assign(5 * reads, 0x5A);
    const Bytes requests(reads, 0xA5);
    EXPECT_EQ(Swd(requests), device_->reply) << reads;
    const std::string room = std::to_string(std::max<std::size_t>(512, 5 * reads));
    EXPECT_EQ(device_->TakeCalls(), Calls{"SWDXfer(" + Hex(requests) + ", room " + room + ")"});
  }
}

TEST_F(Transfer, SwdFailureGivesWhatHadArrived) {
  probe_.mode = 4;
  device_->failing = {{"SWDXfer", 8}};
  device_->reply = {9, 8};
  EXPECT_EQ(Swd({0xA5}), (Bytes{9, 8, 0, 0, 0}));
  EXPECT_EQ(error_, TzErrorCode::WFX_ERROR);
}

TEST_F(Transfer, I2cReplyHasTwoBytesMoreThanThePacket) {
  probe_.mode = 2;
  device_->reply = {7, 6, 5, 4, 3, 2, 1};
  EXPECT_EQ(I2c({1, 2, 3, 4}, 0x83), (Bytes{7, 6, 5, 4, 3, 2}));
  EXPECT_EQ(device_->TakeCalls(), Calls{"I2CXfer(01 02 03 04, restart 131, room 6)"});
  device_->reply = {7};
  EXPECT_EQ(I2c({}, 0x101), (Bytes{7, 0}));
  EXPECT_EQ(device_->TakeCalls(), Calls{"I2CXfer(, restart 1, room 2)"});
}

TEST_F(Transfer, BulkTransferAddressesTheEndpointByDirection) {
  probe_.mode = 272;
  device_->reply = {9, 8};
  const Bytes data = {1, 2, 3};
  EXPECT_EQ(Bulk(6, data, 1), (Bytes{9, 8, 3}));
  EXPECT_EQ(Bulk(1, data, 0), (Bytes{1, 2, 3}));
  EXPECT_EQ(Bulk(0x101, data, 0), (Bytes{1, 2, 3}));
  EXPECT_EQ(Bulk(0x81, data, 0), (Bytes{9, 8, 3}));
  EXPECT_EQ(Bulk(2, {}, 0), Bytes{});
  EXPECT_EQ(device_->TakeCalls(),
            (Calls{"BulkXfer(86, 01 02 03, mode 272)", "BulkXfer(01, 01 02 03, mode 272)",
                   "BulkXfer(01, 01 02 03, mode 272)", "BulkXfer(81, 01 02 03, mode 272)",
                   "BulkXfer(02, , mode 272)"}));
}

TEST_F(Transfer, TraceBytesComeAsTheyAreCollectedAndEtmModeHasNoArray) {
  probe_.mode = 12;
  device_->reply = {1, 2, 3};
  EXPECT_EQ(Swv(), (Bytes{1, 2, 3}));
  device_->reply.clear();
  EXPECT_EQ(Swv(), Bytes{});
  EXPECT_EQ(error_, TzErrorCode::SUCCESS);
  probe_.mode = 32;
  Result none;
  EXPECT_EQ(Outcome(object_->RequestEtmPackets(handle_, &none, &error_)), TzErrorCode::SUCCESS);
  EXPECT_FALSE(none.IsSet());
}

}  // namespace
