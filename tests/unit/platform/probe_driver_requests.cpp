#include <gtest/gtest.h>

#include <map>
#include <span>

#include "base/little_endian.h"
#include "platform/probe_driver/driver_requests.h"
#include "platform/probe_driver/probe_driver.h"
#include "tests/unit/platform/fake_probe.h"

namespace {

using namespace probe_driver;
using unit::Bytes;
using Log = std::vector<std::string>;

// Timers that fire when the test says so.
class ManualTimers : public DriverTimers {
 public:
  std::uint64_t Start(std::uint32_t ms, std::function<void()> fire) override {
    started_ms.push_back(ms);
    timers_[++last_] = std::move(fire);
    return last_;
  }
  void Stop(std::uint64_t id) override { timers_.erase(id); }

  void FireAll() {
    for (const auto& [id, fire] : std::exchange(timers_, {})) fire();
  }
  std::size_t pending() const { return timers_.size(); }

  std::vector<std::uint32_t> started_ms;

 private:
  std::map<std::uint64_t, std::function<void()>> timers_;
  std::uint64_t last_ = 0;
};

class ProbeDriverRequests : public testing::Test {
 protected:
  struct Result {
    DriverError refusal = kSuccess;
    int completions = 0;
    DriverError error = kSuccess;
    std::uint32_t bytes = 0;
  };

  // Hands a request to the driver with one buffer for both directions, as clients do.
  Result& Send(std::uint32_t code, Bytes& buffer) { return Send(code, buffer, std::span(buffer)); }

  Result& Send(std::uint32_t code, Bytes& input, std::span<std::uint8_t> output) {
    auto& sent = requests_.emplace_back(std::make_unique<Sent>());
    DriverRequest& request = sent->request;
    request.code = code;
    request.input = input.data();
    request.input_size = static_cast<std::uint32_t>(input.size());
    request.output = output.data();
    request.output_size = static_cast<std::uint32_t>(output.size());
    request.complete = [result = &sent->result](DriverRequest& completed) {
      ++result->completions;
      result->error = completed.error;
      result->bytes = completed.bytes;
    };
    sent->result.refusal = driver_.Submit(request);
    return sent->result;
  }

  DriverRequest& LastRequest() { return requests_.back()->request; }

  unit::FakeProbe probe_;
  ManualTimers timers_;

 private:
  struct Sent {
    DriverRequest request;
    Result result;
  };
  std::vector<std::unique_ptr<Sent>> requests_;

 protected:
  ProbeDriver driver_{probe_.Open(), timers_};
};

void Store(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  StoreLe32(bytes.data() + offset, value);
}

// A record with `payload` behind the header.
Bytes ControlRecord(const Bytes& setup, std::uint32_t seconds, const Bytes& payload) {
  Bytes bytes(38 + payload.size());
  std::copy(setup.begin(), setup.end(), bytes.begin());
  Store(bytes, 8, seconds);
  Store(bytes, 30, 38);
  Store(bytes, 34, static_cast<std::uint32_t>(payload.size()));
  std::copy(payload.begin(), payload.end(), bytes.begin() + 38);
  return bytes;
}

Bytes DataRecord(std::uint8_t endpoint, const Bytes& payload = {}) {
  Bytes bytes = ControlRecord({}, 0, payload);
  bytes[13] = endpoint;
  return bytes;
}

Bytes DirectRecord(std::uint8_t endpoint) {
  Bytes bytes(38);
  bytes[13] = endpoint;
  return bytes;
}

// Takes everything that goes out, and sends `reply`.
auto Answer(const Bytes& reply) {
  return [=](UsbTransfer& transfer) {
    const bool in = (transfer.endpoint ? transfer.endpoint : transfer.setup.request_type) & 0x80;
    transfer.actual = in ? static_cast<std::uint32_t>(reply.size()) : transfer.length;
    if (in) std::copy(reply.begin(), reply.end(), transfer.data);
    return true;
  };
}

TEST_F(ProbeDriverRequests, EveryFormOfTransferReachesTheBusAndBringsItsReplyToItsPlace) {
  const Bytes control_in = ControlRecord({0xC0, 0x41, 0x34, 0x12, 0x78, 0x56, 3, 0}, 1, {9, 9, 9});
  const Bytes control_out = ControlRecord({0x40, 0xA0, 0, 0xE6, 0, 0, 1, 0}, 0, {1});
  const Bytes bulk_in = DataRecord(0x84, {9, 9});
  const struct {
    const char* name;
    std::uint32_t code;
    Bytes record;
    Bytes output;  // empty: the record goes both ways, unless it is a direct one
    Bytes reply;
    const char* on_the_bus;
    std::uint32_t bytes;
  } cases[] = {
      {"control in", 0x220020, control_in, {}, {7, 8}, "00 setup C0 41 1234 5678 0003 in 3", 40},
      {"control out", 0x220020, control_out, {}, {}, "00 setup 40 A0 E600 0000 0001 out 01", 39},
      {"bulk out", 0x220024, DataRecord(0x02, {1, 2, 3}), {}, {}, "02 out 01 02 03", 41},
      {"bulk in, output apart", 0x220024, bulk_in, Bytes(40, 0xEE), {1, 2}, "84 in 2", 40},
      {"direct in", 0x22004B, DirectRecord(0x84), Bytes(6), {5, 6, 7, 8}, "84 in 6", 4},
      {"direct in without room", 0x22004B, DirectRecord(0x84), {}, {}, "84 in 0", 0},
      {"direct out", 0x22004B, DirectRecord(0x02), {4, 5}, {}, "02 out 04 05", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const bool direct = c.code == 0x22004B;
    const bool shared = !direct && c.output.empty();
    Bytes record = c.record;
    Bytes output = c.output;
    probe_.answer = Answer(c.reply);
    const Result& result = Send(c.code, record, shared ? record : output);
    EXPECT_EQ(Log{c.on_the_bus}, probe_.TakeLog());
    EXPECT_EQ(kSuccess, result.refusal);
    EXPECT_EQ(1, result.completions);
    EXPECT_EQ(c.bytes, result.bytes);
    EXPECT_EQ(0U, StartResult(LastRequest()));

    // Behind the header, unless the direct form has none; nothing else changes.
    Bytes expected = direct ? c.output : c.record;
    std::copy(c.reply.begin(), c.reply.end(), expected.begin() + (direct ? 0 : 38));
    EXPECT_EQ(expected, shared ? record : output);
    EXPECT_TRUE(shared || record == c.record);
  }
}

TEST_F(ProbeDriverRequests, EveryOutcomeHasItsErrorItsBusStatusAndItsByteCount) {
  struct Case {
    UsbStatus status;
    std::uint32_t moved;
    std::uint32_t bus_word;
    DriverError error;
    std::uint32_t expected_bus_word;
    std::uint32_t bytes;
    std::uint32_t start_result;
  };
  const Case cases[] = {
      {UsbStatus::kOk, 0, 0, kSuccess, 0, 38, 0},
      {UsbStatus::kOk, 2, 0x1234, kSuccess, 0x1234, 40, 0},
      {UsbStatus::kOk, 1000, 0, kSuccess, 0, 42, 0},  // more than was asked for is cut
      {UsbStatus::kStall, 0, 0, kGeneralFailure, 0xC0000004, 0, 997},
      {UsbStatus::kStall, 2, 0xC0000030, kGeneralFailure, 0xC0000030, 40, 997},
      {UsbStatus::kAborted, 2, 0, kAborted, 0xC0010000, 0, 997},
      {UsbStatus::kOverrun, 4, 0, kGeneralFailure, 0xC0000008, 42, 997},
      {UsbStatus::kError, 0, 0, kGeneralFailure, 0xC0000011, 0, 997},
      {UsbStatus::kDisconnected, 2, 0, kDeviceNotConnected, 0xC0007000, 0, 1167},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.status));
    probe_.answer = [&](UsbTransfer& transfer) {
      transfer.status = c.status;
      transfer.actual = c.moved;
      transfer.bus_status = c.bus_word;
      return true;
    };
    Bytes record = DataRecord(0x84, Bytes(4));
    const Result& result = Send(0x220024, record);
    EXPECT_EQ(c.error, result.error);
    EXPECT_EQ(c.bytes, result.bytes);
    EXPECT_EQ(c.expected_bus_word, LoadLe32(record.data() + 18));
    EXPECT_EQ(c.start_result, StartResult(LastRequest()));
  }
  Bytes version(4);
  EXPECT_EQ(kDeviceNotConnected, Send(0x220000, version).refusal) << "once it has left";
}

TEST_F(ProbeDriverRequests, QueriesReturnExactlyTheirSize) {
  probe_.facts.alternate_setting = 3;
  probe_.facts.usb_address = 7;
  probe_.facts.text = "driver";
  probe_.facts.second_text = std::string(300, 'x');
  Bytes text(256);
  std::copy_n("driver", 6, text.begin());
  Bytes long_text(256, 'x');
  long_text[255] = 0;  // what is too long is cut and still ends
  const std::pair<std::uint32_t, Bytes> cases[] = {
      {0x220000, {0, 5, 5, 1}}, {0x220004, {0, 6, 0, 0}}, {0x220008, {3}},       {0x220010, {7}},
      {0x22004C, {2, 0, 0, 0}}, {0x22003C, text},         {0x220040, long_text},
  };
  for (const auto& [code, expected] : cases) {
    SCOPED_TRACE(code);
    Bytes buffer(expected.size(), 0xEE);
    const Result& result = Send(code, buffer);
    EXPECT_EQ(kSuccess, result.refusal);
    EXPECT_EQ(expected.size(), result.bytes);
    EXPECT_EQ(expected, buffer);
    Bytes short_buffer(expected.size() - 1, 0xEE);
    EXPECT_EQ(kInsufficientBuffer, Send(code, short_buffer).refusal);
    EXPECT_EQ(Bytes(expected.size() - 1, 0xEE), short_buffer);
  }
}

TEST_F(ProbeDriverRequests, PipeRequestsReachTheirEndpoint) {
  Bytes endpoint = {0x84};
  EXPECT_EQ(1, Send(0x220044, endpoint, {}).completions);
  EXPECT_EQ(1, Send(0x22002C, endpoint, {}).completions);
  Bytes size = {0x84, 0, 2, 0, 0};
  EXPECT_EQ(5U, Send(0x220038, size).bytes);
  EXPECT_EQ((Bytes{0x84, 0, 2, 0, 0}), size);
  EXPECT_EQ((Log{"abort 132", "reset 132"}), probe_.TakeLog());
  Bytes missing = {0x0F};
  EXPECT_EQ(kGeneralFailure, Send(0x22002C, missing, {}).refusal);
}

TEST_F(ProbeDriverRequests, IsochronousPacketsReportInTheRecordsTable) {
  probe_.isochronous = true;
  probe_.answer = [](UsbTransfer& transfer) {
    transfer.actual = 3;
    transfer.packets[0].actual = 3;
    for (auto& packet : transfer.packets.subspan(1)) packet.status = UsbStatus::kStall;
    return true;
  };
  const auto table = [](Bytes record, std::uint32_t offset, std::uint32_t size) {
    Store(record, 22, offset);
    Store(record, 26, size);
    return record;
  };
  Bytes buffered = table(DataRecord(0x81, Bytes(20)), 38, 16);
  Store(buffered, 30, 54);
  Store(buffered, 34, 4);
  Bytes direct = table(DirectRecord(0x81), 38, 8);
  direct.resize(46);
  Bytes payload(4);
  Bytes sent = buffered;
  EXPECT_EQ(57U, Send(0x220024, sent).bytes);
  EXPECT_EQ("03 00*11 04 00 00 C0 00 00 00 00",
            unit::HexText(Bytes(sent.begin() + 38, sent.end())));
  sent = direct;
  EXPECT_EQ(3U, Send(0x22004B, sent, payload).bytes);
  EXPECT_EQ("03 00 00 00 00 00 00 00", unit::HexText(Bytes(sent.begin() + 38, sent.end())));
  for (const auto& [offset, size] : {std::pair{37U, 8U},
                                     {38U, 4U},
                                     {39U, 16U},
                                     {60U, 8U},
                                     {0xFFFFFFFFU, 8U},
                                     {38U, 0xFFFFFFF8U}}) {
    Bytes refused = table(buffered, offset, size);
    EXPECT_EQ(kInvalidParameter, Send(0x220024, refused).refusal) << offset;
    refused = table(direct, offset, size);
    EXPECT_EQ(kInvalidParameter, Send(0x22004B, refused, payload).refusal) << offset;
  }
}

TEST_F(ProbeDriverRequests, RequestsThatContradictThemselvesAreRefusedUntouched) {
  const auto changed = [](Bytes record, std::size_t offset, std::uint32_t value) {
    Store(record, offset, value);
    return record;
  };
  const Bytes control = ControlRecord({0xC0, 1, 0, 0, 0, 0, 4, 0}, 0, Bytes(4));
  const Bytes bulk = DataRecord(0x84, Bytes(4));
  const struct {
    const char* what;
    std::uint32_t code;
    Bytes input;
    DriverError refusal;
  } cases[] = {
      {"no record", 0x220020, {}, kInvalidParameter},
      {"short record", 0x220020, Bytes(37), kInvalidParameter},
      {"short bulk record", 0x220024, Bytes(37), kInvalidParameter},
      {"short direct record", 0x22004B, Bytes(37), kInvalidParameter},
      {"payload within the header", 0x220020, changed(control, 30, 37), kInvalidParameter},
      {"payload beyond the record", 0x220020, changed(control, 30, 43), kInvalidParameter},
      {"payload offset near 2^32", 0x220024, changed(bulk, 30, 0xFFFFFFFF), kInvalidParameter},
      {"payload longer than the record", 0x220024, changed(bulk, 34, 5), kInvalidParameter},
      {"payload length near 2^32", 0x220024, changed(bulk, 34, 0xFFFFFFFE), kInvalidParameter},
      {"wLength beyond the payload", 0x220020, changed(control, 34, 3), kInvalidParameter},
      {"data transfer on endpoint 0", 0x220024, DataRecord(0, Bytes(4)), kInvalidParameter},
      {"direct transfer on endpoint 0", 0x22004B, DirectRecord(0x80), kInvalidParameter},
      {"direct record with a payload", 0x22004B, changed(DirectRecord(2), 34, 4),
       kInvalidParameter},
      {"isochronous packets", 0x220024, changed(bulk, 26, 8), kNotSupported},
      {"direct isochronous packets", 0x22004B, changed(DirectRecord(2), 26, 8), kNotSupported},
      {"pipe request without endpoint", 0x220044, {}, kInvalidParameter},
      {"transfer size without size", 0x220038, {0x84, 0, 0, 0}, kInvalidParameter},
      {"unknown code", 0x220048, Bytes(64), kInvalidFunction},
      {"other device type", 0x002C0020, Bytes(64), kInvalidFunction},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes buffer = c.input;
    const Result& result = Send(c.code, buffer);
    EXPECT_EQ(c.refusal, result.refusal);
    EXPECT_EQ(0, result.completions);
    EXPECT_EQ(c.input, buffer);
  }
  Bytes record = bulk;
  Bytes small_output(41);
  EXPECT_EQ(kInsufficientBuffer, Send(0x220024, record, small_output).refusal);
  EXPECT_TRUE(probe_.TakeLog().empty());
}

TEST_F(ProbeDriverRequests, TimeOutOfTheRecordAbortsASilentControlTransferOnly) {
  Bytes limited = ControlRecord({0x40, 1, 0, 0, 0, 0, 0, 0}, 5, {});
  Bytes unlimited = ControlRecord({0x40, 2, 0, 0, 0, 0, 0, 0}, 0, {});
  Bytes huge = ControlRecord({0x40, 3, 0, 0, 0, 0, 0, 0}, 0xFFFFFFFF, {});
  Result& first = Send(0x220020, limited);
  Result& second = Send(0x220020, unlimited);
  Result& third = Send(0x220020, huge);
  // A second longer than the record says, and never so long that the count wraps.
  EXPECT_EQ((std::vector<std::uint32_t>{6000, 0x7FFFFFFF / 1000 * 1000}), timers_.started_ms);
  timers_.FireAll();
  EXPECT_EQ(kAborted, first.error);
  EXPECT_EQ(1, first.completions);
  EXPECT_EQ(0, second.completions);
  EXPECT_EQ(1, third.completions);
  probe_.CompleteAll(UsbStatus::kOk);  // before the records go

  // An answer in time leaves no timer behind; one at once needs none.
  const Result& result = Send(0x220020, limited);
  EXPECT_EQ(1U, timers_.pending());
  probe_.CompleteAll(UsbStatus::kOk);
  EXPECT_EQ(kSuccess, result.error);
  EXPECT_EQ(0U, timers_.pending());
  probe_.answer = Answer({});
  Send(0x220020, limited);
  EXPECT_EQ(3U, timers_.started_ms.size());
}

}  // namespace
