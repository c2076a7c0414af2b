#include "usb/usb_endpoint.h"

#include "support/handle.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/usb/opened_device.h"
#include "usb/kept_memory.h"

namespace {

using unit::Bytes;
using unit::HexText;

class EndPointTest : public OpenedDeviceTest {
 protected:
  EndPointTest() { EXPECT_TRUE(device_.Open(0)); }

  // What a driver is given: the record's header.
  std::string HeaderOf(CTzUSBEndPoint& endpoint, Bytes data) {
    OVERLAPPED overlapped = Overlapped();
    auto length = static_cast<std::uint32_t>(data.size());
    RequestRecord* const record = endpoint.StartTransfer(data.data(), length, &overlapped);
    if (!record) return "none";
    const std::string text = HexText(Bytes(record->Bytes(), record->Bytes() + 13)) + " | " +
                             HexText(Bytes(record->Bytes() + 13, record->Bytes() + 14)) + " | " +
                             HexText(Bytes(record->Bytes() + 22, record->Bytes() + 38));
    endpoint.CompleteTransfer(data.data(), length, &overlapped, record, nullptr);
    return text + " +" + std::to_string(record->Size() - 38);
  }

  // A blocking transfer, of what `data` holds or into it: whether it succeeded, and what moved.
  std::string Transferred(CTzUSBEndPoint& endpoint, Bytes data) {
    const std::size_t room = data.size();
    auto length = static_cast<std::uint32_t>(room);
    const bool done = endpoint.Transfer(data.data(), length);
    EXPECT_EQ(length, endpoint.BytesTransferred());
    EXPECT_EQ(Bytes(room - length, 0xEE), Bytes(data.begin() + length, data.end()));
    data.resize(length);
    return (done ? "done " : "failed ") + HexText(data);
  }

  // A transfer that is started, waited for and completed.
  bool Exchanged(CTzUSBEndPoint& endpoint, std::uint8_t* data, std::uint32_t& length) {
    OVERLAPPED overlapped = Overlapped();
    RequestRecord* const record = endpoint.StartTransfer(data, length, &overlapped);
    const bool waited = record && endpoint.WaitTransfer(&overlapped, 2000);
    return endpoint.CompleteTransfer(data, length, &overlapped, record, nullptr) && waited;
  }

  OVERLAPPED Overlapped() {
    event_.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    OVERLAPPED overlapped{};
    overlapped.hEvent = event_.Get();
    return overlapped;
  }

  KernelHandle event_;
  // In the place of a driver where requests only fail.
  KernelHandle no_file_{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  DriverFile no_driver_{no_file_.Get()};
  DriverFile closed_;
};

TEST_F(EndPointTest, RecordsAreLaidOutAsTheDriverReadsThem) {
  const std::uint8_t descriptor[] = {7, 5, 0x02, 2, 0, 2, 0};
  CTzBulkEndPoint bulk(no_driver_, descriptor);
  // Direct: the address alone.
  EXPECT_EQ("00*13 | 02 | 00*16 +0", HeaderOf(bulk, {1, 2, 3}));
  EXPECT_EQ(0U, ElapsedMs([&] { EXPECT_EQ("failed ", Transferred(bulk, {0xEE})); }));
  // Buffered: the payload behind the record.
  bulk.SetDirect(false);
  EXPECT_EQ("00*13 | 02 | 00*8 26 00 00 00 03 00 00 00 +3", HeaderOf(bulk, {1, 2, 3}));

  CTzControlEndPoint control(no_driver_, nullptr);
  const struct {
    std::uint32_t timeout_ms;
    ControlRequest request;
    const char* header;
  } cases[] = {
      {500, {0, 2, 1, 0x41, 0x0104, 0x0203}, "C0 41 04 01 03 02 02 00 01 00 00 00 00"},
      {0, {1, 1, 0, 0x0B, 0xFFFF, 0}, "21 0B FF FF 00 00 02 00 00 00 00 00 00"},
      {1000, {2, 0, 1, 0, 0, 0x84}, "82 00 00 00 84 00 02 00 01 00 00 00 00"},
      {2500, {0xFF, 7, 3, 1, 0, 0}, "FF 01 00 00 00 00 02 00 02 00 00 00 00"},
  };
  for (const auto& [timeout_ms, request, header] : cases) {
    control.SetTimeoutMs(timeout_ms);
    control.SetRequest(request);
    EXPECT_EQ(std::string(header) + " | 00 | 00*8 26 00 00 00 02 00 00 00 +2",
              HeaderOf(control, {0xAA, 0xBB}));
    EXPECT_EQ(request.direction == 1, control.IsIn());
  }
}

TEST_F(EndPointTest, IsochronousRecordsCarryAPacketTable) {
  // 0x300 bytes a packet, two packets each microframe.
  const std::uint8_t descriptor[] = {7, 5, 0x83, 1, 0x00, 0x0B, 1};
  CTzIsocEndPoint endpoint(no_driver_, descriptor);
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

TEST_F(EndPointTest, TransfersMoveWhatTheDeviceSendsInBothForms) {
  CTzUSBEndPoint& in = EndPoint(0x84);
  CTzUSBEndPoint& out = EndPoint(0x02);
  Bytes large(200000);
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::uint8_t>(i * 7 >> 3);
  for (const bool direct : {true, false}) {
    in.SetDirect(direct);
    out.SetDirect(direct);
    bus_.Play("out 02 : 01 02 03 -> ok \n out 02 : " + HexText(large) + R"( -> ok
        in 84 8 -> 11 22 33       # fewer than asked for
        in 84 4 -> ok             # nothing
        in 84 4 -> stall
        in 84 4 -> error
        in 84 4 -> flagged        # moved well, but for a word of the bus or the driver
        in 84 4 -> marked
        in 84 4 -> 01 02 03 04)");
    EXPECT_EQ("done 01 02 03", Transferred(out, {1, 2, 3}));
    EXPECT_EQ("done " + HexText(large), Transferred(out, large));
    EXPECT_EQ("done 11 22 33", Transferred(in, Bytes(8, 0xEE)));
    EXPECT_EQ("done ", Transferred(in, Bytes(4, 0xEE)));
    const struct {
      std::uint32_t bus_status, driver_status, last_error;
    } failures[] = {{0xC0000004, 0, 997}, {0xC0000011, 0, 997}, {0xC0000011, 0, 0}, {0, 0x11, 0}};
    for (const auto& failure : failures) {
      EXPECT_EQ("failed ", Transferred(in, Bytes(4, 0xEE)));
      EXPECT_EQ(failure.bus_status, in.BusStatus());
      EXPECT_EQ(failure.driver_status, in.DriverStatus());
      EXPECT_EQ(failure.last_error, in.LastError());
    }
    EXPECT_EQ("done 01 02 03 04", Transferred(in, Bytes(4, 0xEE)));
    EXPECT_EQ(0U, in.DriverStatus()) << "the status words are those of the last transfer";
  }
  bus_.Play(R"(C0 44 00 00 00 00 04 00 -> AA BB CC DD
               40 A0 00 E6 00 00 01 00 : 01 -> ok)");
  CTzControlEndPoint& control = *device_.ControlEndPoint();
  control.SetRequest({.direction = 1, .request_code = 0x44});
  EXPECT_EQ("done AA BB CC DD", Transferred(control, Bytes(4, 0xEE)));
  control.SetRequest({.request_code = 0xA0, .value = 0xE600});
  EXPECT_EQ("done 01", Transferred(control, {1}));
}

// A driver may keep a transfer through a cancel, and through an abort of its pipe. Then the device
// is given up; what the driver has it may write into later, here when the file is closed.
TEST_F(EndPointTest, TransferWhoseTimeIsOverIsTakenBackOrTheDeviceGivenUp) {
  const struct {
    const char* answer;
    const char* blocking;  // what becomes of a blocking transfer
    std::uint64_t blocking_ms;
    const char* started;  // and of one that was started, waited for and completed
    std::uint64_t started_ms;
  } cases[] = {
      {"silent", "\n abort 84", 2000, "\n cancel 84", 2000},
      {"deaf", "\n abort 84", 2000, "\n cancel 84 \n abort 84", 4000},
      {"kept", "\n abort 84 \n cancel 84", 6000, "\n cancel 84 \n abort 84", 6000},
  };
  const std::string given_up = "[DriverFile::GiveUp]Device " + std::string(device_.DevicePath()) +
                               " keeps a request and is given up";
  bool anything_kept = IsAnythingKept();
  for (const auto& test : cases) {
    const bool kept = std::string(test.answer) == "kept";
    for (const auto& [blocking, direct] :
         {std::pair{true, false}, {true, true}, {false, false}, {false, true}}) {
      SCOPED_TRACE(std::string(test.answer) + (blocking ? " blocking" : "") +
                   (direct ? " direct" : ""));
      unit::LogFile log(1);
      ASSERT_TRUE(device_.Open(0));
      CTzUSBEndPoint& in = EndPoint(0x84);
      in.SetDirect(direct);
      in.SetTimeoutMs(2000);
      bus_.Play("in 84 300 -> " + std::string(test.answer) +
                (blocking ? test.blocking : test.started));
      ReplyBuffer data(301);
      std::uint32_t length = 300;
      EXPECT_EQ(blocking ? test.blocking_ms : test.started_ms, ElapsedMs([&] {
                  EXPECT_FALSE(blocking ? in.Transfer(data.Data(), length)
                                        : Exchanged(in, data.Data(), length));
                }));
      EXPECT_EQ(0U, length);
      EXPECT_EQ(997U, in.LastError());
      EXPECT_EQ(kept && direct, IsKept(data.Bytes().subspan(299, 1)));
      EXPECT_FALSE(IsKept(data.Bytes().last(1))) << "which the driver has not been given";
      if (blocking) data.Renew();
      EXPECT_EQ(kept && direct && !blocking, IsKept(data.Bytes()));
      EXPECT_EQ(anything_kept |= kept, IsAnythingKept());
      EXPECT_EQ(kept ? std::vector{given_up} : std::vector<std::string>(), log.Take());

      // Record and event serve the next transfer at once; or nothing reaches the bus any more.
      bus_.Play(kept ? "" : "in 84 300 -> 77");
      length = 300;
      EXPECT_EQ(!kept, Exchanged(in, data.Data(), length));
      if (!kept) continue;
      EXPECT_EQ("failed ", Transferred(EndPoint(0x02), Bytes(2, 0xEE)));
      EXPECT_EQ(1167U, EndPoint(0x02).LastError());
      EXPECT_FALSE(in.AbortTransfers());
      EXPECT_FALSE(device_.ControlEndPoint()->ResetPipe());
      EXPECT_EQ(std::vector<std::string>(), log.Take());
    }
  }
}

TEST_F(EndPointTest, TheLongestTimeoutEnds) {
  CTzUSBEndPoint& in = EndPoint(0x84);
  in.SetTimeoutMs(0xFFFFFFFF);
  bus_.Play("in 84 2 -> silent \n abort 84 \n in 84 2 -> deaf \n cancel 84 \n abort 84");
  EXPECT_EQ(0xFFFFFFFEU, ElapsedMs([&] { EXPECT_EQ("failed ", Transferred(in, {0xEE, 0xEE})); }));
  Bytes data(2);
  std::uint32_t length = 2;
  EXPECT_FALSE(Exchanged(in, data.data(), length)) << "and the next is ended by all means, too";
}

// A driver may hold what it was to send as well. It only reads that: the caller's memory goes as
// always, and its place must not make others' memory stay.
TEST_F(EndPointTest, OnlyMemoryThatADriverWritesIntoIsKept) {
  bus_.Play("out 02 : 01 02 -> kept \n abort 02 \n cancel 02");
  Bytes sent = {1, 2};
  std::uint32_t length = 2;
  EXPECT_FALSE(EndPoint(0x02).Transfer(sent.data(), length));
  EXPECT_FALSE(EndPoint(0x02).AbortTransfers()) << "the device is given up";
  EXPECT_FALSE(IsKept(sent));
  device_.Close();
  EXPECT_EQ(nullptr, ReplyBuffer(0).Data()) << "a reply that nobody makes room for costs nothing";
}

TEST_F(EndPointTest, TransferInFlightKeepsOthersFromStartingUntilTheDeviceIsClosed) {
  bus_.Play("in 84 8 -> 11 \n in 84 8 -> silent");
  CTzUSBEndPoint& in = EndPoint(0x84);
  EXPECT_EQ("done 11", Transferred(in, Bytes(8, 0xEE)));
  OVERLAPPED overlapped = Overlapped();
  Bytes data(8);
  const RequestRecord* const record = in.StartTransfer(data.data(), 8, &overlapped);
  ASSERT_NE(nullptr, record);
  EXPECT_EQ(997U, in.LastError());
  EXPECT_EQ("failed ", Transferred(in, Bytes(8, 0xEE)));
  EXPECT_EQ(static_cast<std::uint32_t>(ERROR_BUSY), in.LastError());
  device_.Close();
  EXPECT_EQ(static_cast<DWORD>(WAIT_OBJECT_0), WaitForSingleObject(event_.Get(), 0));
  EXPECT_EQ(8U, record->RequestedLength()) << "the system may still write into its block";
}

TEST_F(EndPointTest, WithoutADriverNothingIsStarted) {
  const std::uint8_t descriptor[] = {7, 5, 0x02, 2, 0x00, 0x02, 0};
  CTzBulkEndPoint endpoint(closed_, descriptor);
  SetLastError(0);
  EXPECT_EQ("failed ", Transferred(endpoint, Bytes(4, 0xEE)));
  EXPECT_EQ(static_cast<std::uint32_t>(ERROR_INVALID_HANDLE), endpoint.LastError());
  EXPECT_FALSE(endpoint.AbortTransfers());
  EXPECT_FALSE(endpoint.ResetPipe());
}

TEST_F(EndPointTest, TransferSizesAreWholePackets) {
  const struct {
    std::uint8_t packet_size;
    std::uint32_t size;
    std::uint32_t rounded;
  } cases[] = {{64, 100, 128}, {64, 128, 128}, {64, 0, 0}, {0, 100, 100}};
  for (const auto& [packet_size, size, rounded] : cases) {
    const std::uint8_t descriptor[] = {7, 5, 0x02, 2, packet_size, 0, 0};
    const CTzBulkEndPoint endpoint(closed_, descriptor);
    EXPECT_EQ(rounded, endpoint.WholePackets(size)) << size;
  }
}

TEST_F(EndPointTest, PipesAreAbortedResetAndToldTheSize) {
  bus_.ShowAll();
  bus_.Play("abort 02 \n reset 84 \n size 02 512");
  EXPECT_TRUE(EndPoint(0x02).AbortTransfers());
  EXPECT_TRUE(EndPoint(0x84).ResetPipe());
  EndPoint(0x02).SetTransferSize(100);
}

}  // namespace
