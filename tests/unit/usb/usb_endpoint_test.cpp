#include "usb/usb_endpoint.h"

#include "support/handle.h"
#include "tests/unit/usb/usb_fixture.h"

namespace {

using unit::Bytes;
using unit::HexText;

class EndPointTest : public ScriptedBusTest {
 protected:
  EndPointTest() { EXPECT_TRUE(device_.Open(0)); }

  // What the driver is given: the record's header, in a transfer that is refused.
  std::string HeaderOf(CTzUSBEndPoint& endpoint, Bytes data) {
    OVERLAPPED overlapped = Overlapped();
    auto length = static_cast<std::uint32_t>(data.size());
    RequestRecord* const record = endpoint.StartTransfer(data.data(), length, &overlapped);
    if (record == nullptr) return "none";
    const std::string text = HexText(Bytes(record->Bytes(), record->Bytes() + 13)) + " | " +
                             HexText(Bytes(record->Bytes() + 13, record->Bytes() + 14)) + " | " +
                             HexText(Bytes(record->Bytes() + 22, record->Bytes() + 38));
    endpoint.CompleteTransfer(data.data(), length, &overlapped, record, nullptr);
    return text + " +" + std::to_string(record->Size() - 38);
  }

  OVERLAPPED Overlapped() {
    event_.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    OVERLAPPED overlapped{};
    overlapped.hEvent = event_.Get();
    return overlapped;
  }

  KernelHandle event_;
};

TEST_F(EndPointTest, RecordsAreLaidOutAsTheDriverReadsThem) {
  CTzUSBEndPoint& bulk = EndPoint(0x02);
  // Direct: the address alone.
  EXPECT_EQ("00*13 | 02 | 00*16 +0", HeaderOf(bulk, {1, 2, 3}));
  // Buffered: the payload behind the record.
  bulk.SetDirect(false);
  EXPECT_EQ("00*13 | 02 | 00*8 26 00 00 00 03 00 00 00 +3", HeaderOf(bulk, {1, 2, 3}));

  CTzControlEndPoint& control = *device_.ControlEndPoint();
  struct Case {
    std::uint32_t timeout_ms;
    ControlRequest request;
    const char* header;
  };
  const Case cases[] = {
      {500, {0, 2, 1, 0x41, 0x0104, 0x0203}, "C0 41 04 01 03 02 02 00 01 00 00 00 00"},
      {0, {1, 1, 0, 0x0B, 0xFFFF, 0}, "21 0B FF FF 00 00 02 00 00 00 00 00 00"},
      {1000, {2, 0, 1, 0, 0, 0x84}, "82 00 00 00 84 00 02 00 01 00 00 00 00"},
      {2500, {0x3F, 7, 3, 1, 0, 0}, "FF 01 00 00 00 00 02 00 02 00 00 00 00"},
  };
  for (const Case& c : cases) {
    control.SetTimeoutMs(c.timeout_ms);
    control.SetRequest(c.request);
    EXPECT_EQ(std::string(c.header) + " | 00 | 00*8 26 00 00 00 02 00 00 00 +2",
              HeaderOf(control, {0xAA, 0xBB}));
    EXPECT_EQ(c.request.direction == 1, control.IsIn());
  }
}

TEST_F(EndPointTest, IsochronousRecordsCarryAPacketTable) {
  const HANDLE no_such_driver = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const KernelHandle owner(no_such_driver);
  // 0x300 bytes a packet, two packets each microframe.
  const std::uint8_t descriptor[] = {7, 5, 0x83, 1, 0x00, 0x0B, 1};
  CTzIsocEndPoint endpoint(no_such_driver, descriptor);
  EXPECT_EQ(0x600, endpoint.MaxPacketSize());
  EXPECT_EQ(2, endpoint.PacketsPerMicroframe());
  EXPECT_EQ("00*13 | 83 | 26 00 00 00 10 00*11 +16", HeaderOf(endpoint, Bytes(0x601)));
  endpoint.SetDirect(false);
  EXPECT_EQ("00*13 | 83 | 26 00 00 00 08 00 00 00 2E 00 00 00 00 06 00 00 +1544",
            HeaderOf(endpoint, Bytes(0x600)));
  EXPECT_EQ("none", HeaderOf(endpoint, {}));
  // As a signed length this is negative: no packets.
  OVERLAPPED overlapped = Overlapped();
  EXPECT_EQ(nullptr, endpoint.StartTransfer(nullptr, 0x80000000, &overlapped));
}

TEST_F(EndPointTest, TransfersMoveWhatTheDeviceSends) {
  bus_.Play(R"(
      out 02 : 01 02 03 -> ok
      in 84 8 -> 11 22 33       # fewer than asked for
      in 84 4 -> ok             # nothing
      C0 44 00 00 00 00 04 00 -> AA BB CC DD
      40 A0 00 E6 00 00 01 00 : 01 -> ok
  )");
  for (const bool direct : {true, false}) {
    EndPoint(0x02).SetDirect(direct);
    EndPoint(0x84).SetDirect(direct);
    if (!direct) {
      bus_.Play("out 02 : 01 02 03 -> ok \n in 84 8 -> 11 22 33 \n in 84 4 -> ok");
    }
    Bytes out = {1, 2, 3};
    std::uint32_t length = 3;
    EXPECT_TRUE(EndPoint(0x02).Transfer(out.data(), length));
    EXPECT_EQ(3U, length);

    Bytes in(8, 0xEE);
    length = 8;
    EXPECT_TRUE(EndPoint(0x84).Transfer(in.data(), length));
    EXPECT_EQ(3U, length);
    EXPECT_EQ("11 22 33 EE EE EE EE EE", HexText(in));

    length = 4;
    EXPECT_TRUE(EndPoint(0x84).Transfer(in.data(), length));
    EXPECT_EQ(0U, length);
    EXPECT_EQ(0U, EndPoint(0x84).BytesTransferred());
    if (!direct) break;

    CTzControlEndPoint& control = *device_.ControlEndPoint();
    control.SetRequest({.direction = 1, .request_code = 0x44});
    length = 4;
    EXPECT_TRUE(control.Transfer(in.data(), length));
    EXPECT_EQ("AA BB CC DD EE EE EE EE", HexText(in));
    control.SetRequest({.request_code = 0xA0, .value = 0xE600});
    length = 1;
    EXPECT_TRUE(control.Transfer(out.data(), length));
  }
  bus_.ExpectPlayed();
}

TEST_F(EndPointTest, FailuresOnTheWireFailTheTransfer) {
  for (const bool direct : {true, false}) {
    CTzUSBEndPoint& in = EndPoint(0x84);
    in.SetDirect(direct);
    bus_.Play("in 84 4 -> stall \n in 84 4 -> flagged \n in 84 4 -> error");
    Bytes data(4);
    for (const char* what : {"stall", "flagged", "error"}) {
      std::uint32_t length = 4;
      EXPECT_FALSE(in.Transfer(data.data(), length)) << what;
      EXPECT_NE(0U, in.BusStatus()) << what;
      EXPECT_EQ(0U, length) << what;
    }
    bus_.ExpectPlayed();
    // The status words are those of the last transfer.
    bus_.Play("in 84 4 -> 01 02 03 04");
    std::uint32_t length = 4;
    EXPECT_TRUE(in.Transfer(data.data(), length));
    EXPECT_EQ(0U, in.BusStatus());
    bus_.ExpectPlayed();
  }
}

TEST_F(EndPointTest, TimedOutTransferIsAbortedOnceAndGives997) {
  bus_.Play(R"(
      in 84 4 -> silent
      abort 84
  )");
  CTzUSBEndPoint& in = EndPoint(0x84);
  in.SetTimeoutMs(2000);
  Bytes data(4);
  std::uint32_t length = 4;
  const std::uint64_t before = clock_.NowMs();
  EXPECT_FALSE(in.Transfer(data.data(), length));
  EXPECT_EQ(2000U, clock_.NowMs() - before);
  EXPECT_EQ(0U, length);
  EXPECT_EQ(997U, in.LastError());
  bus_.ExpectPlayed();
}

TEST_F(EndPointTest, TransfersInFlightEndBeforeTheirBuffersMayGo) {
  bus_.Play(R"(
      in 84 8 -> silent
      cancel 84                  # by CompleteTransfer: the wait has left it in flight
      in 84 8 -> 77
  )");
  CTzUSBEndPoint& in = EndPoint(0x84);
  OVERLAPPED overlapped = Overlapped();
  Bytes data(8);
  std::uint32_t length = 8;
  RequestRecord* record = in.StartTransfer(data.data(), length, &overlapped);
  ASSERT_NE(nullptr, record);
  EXPECT_EQ(997U, in.LastError());
  EXPECT_FALSE(in.WaitTransfer(&overlapped, 100));

  // One transfer at a time: a second start is refused and leaves the first alone.
  OVERLAPPED other{};
  EXPECT_EQ(nullptr, in.StartTransfer(data.data(), length, &other));
  EXPECT_EQ(static_cast<std::uint32_t>(ERROR_BUSY), in.LastError());

  EXPECT_FALSE(in.CompleteTransfer(data.data(), length, &overlapped, record, nullptr));
  EXPECT_EQ(0U, length);

  // Record, event and block serve the next transfer at once.
  length = 8;
  record = in.StartTransfer(data.data(), length, &overlapped);
  ASSERT_NE(nullptr, record);
  EXPECT_TRUE(in.WaitTransfer(&overlapped, 100));
  EXPECT_TRUE(in.CompleteTransfer(data.data(), length, &overlapped, record, nullptr));
  EXPECT_EQ(1U, length);
  bus_.ExpectPlayed();
}

TEST_F(EndPointTest, ClosingTheDeviceEndsWhatIsInFlight) {
  bus_.Play("in 84 8 -> silent");
  OVERLAPPED overlapped = Overlapped();
  Bytes data(8);
  EXPECT_NE(nullptr, EndPoint(0x84).StartTransfer(data.data(), 8, &overlapped));
  device_.Close();
  EXPECT_EQ(static_cast<DWORD>(WAIT_OBJECT_0), WaitForSingleObject(event_.Get(), 0));
}

TEST_F(EndPointTest, WithoutADriverNothingIsStarted) {
  const std::uint8_t descriptor[] = {7, 5, 0x02, 2, 0x00, 0x02, 0};
  CTzBulkEndPoint endpoint(INVALID_HANDLE_VALUE, descriptor);
  Bytes data(4);
  std::uint32_t length = 4;
  SetLastError(0);
  EXPECT_FALSE(endpoint.Transfer(data.data(), length));
  EXPECT_EQ(0U, length);
  EXPECT_EQ(static_cast<std::uint32_t>(ERROR_INVALID_HANDLE), endpoint.LastError());
  EXPECT_FALSE(endpoint.AbortTransfers());
  EXPECT_FALSE(endpoint.ResetPipe());
}

TEST_F(EndPointTest, TransferSizesAreWholePackets) {
  struct Case {
    std::uint8_t packet_size;
    std::uint32_t size;
    std::uint32_t rounded;
  };
  for (const Case& c :
       {Case{64, 100, 128}, Case{64, 128, 128}, Case{64, 0, 0}, Case{0, 100, 100}}) {
    const std::uint8_t descriptor[] = {7, 5, 0x02, 2, c.packet_size, 0, 0};
    const CTzBulkEndPoint endpoint(INVALID_HANDLE_VALUE, descriptor);
    EXPECT_EQ(c.rounded, endpoint.WholePackets(c.size)) << c.size;
  }
}

TEST_F(EndPointTest, LargeBufferedTransfersArriveWhole) {
  Bytes data(200000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 7 >> 3);
  const std::string text = "out 02 : " + HexText(data) + " -> ok\n";
  EndPoint(0x02).SetDirect(false);
  for (int round = 0; round < 2; ++round) {
    bus_.Play(text);
    auto length = static_cast<std::uint32_t>(data.size());
    EXPECT_TRUE(EndPoint(0x02).Transfer(data.data(), length));
    EXPECT_EQ(data.size(), length);
    bus_.ExpectPlayed();
  }
}

TEST_F(EndPointTest, PipesAreAbortedAndReset) {
  bus_.Play("abort 02 \n reset 02 \n abort 84 \n reset 84");
  EXPECT_TRUE(EndPoint(0x02).AbortTransfers());
  EXPECT_TRUE(EndPoint(0x02).ResetPipe());
  EXPECT_TRUE(EndPoint(0x84).AbortTransfers());
  EXPECT_TRUE(EndPoint(0x84).ResetPipe());
  bus_.ExpectPlayed();
}

}  // namespace
