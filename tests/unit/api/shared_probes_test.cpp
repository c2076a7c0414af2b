// Eight clients at once on three probes, in whatever mode the others leave them: what each one is
// told, and what the probes received.
#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <random>

#include "tests/unit/api/bench_fixture.h"
#include "tests/unit/random_seed.h"

namespace {

constexpr int kClients = 8;
constexpr int kCalls = 1000;
constexpr std::uint32_t kMemory = 0x20000000;
constexpr std::uint32_t kIdcode = 0x2BA01477;
const std::array<const wchar_t*, 3> kProbes = {L"P1", L"S1", L"E1"};

constexpr char kSwdTarget[] =
    R"("swd": {"idcode": "0x2BA01477", "memory": {"address": "0x20000000", "size": 256}},
       "i2c": {"address": "0x50", "size": 256})";

std::string Narrow(const std::wstring& text) { return {text.begin(), text.end()}; }

// An OUT packet that the service took. Which probe it went to is seen on the wire only: the handle
// of a session that has ended may be that of another client's, on another probe, a moment later.
struct Packet {
  Bytes bytes;
  Bytes chain_reply;  // of a JTAG packet, when it went to the probe with the chain
  Bytes reply;
};

void AppendWord(Bytes& bytes, std::uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

std::uint32_t WordAt(const Bytes& bytes, std::size_t at) {
  return bytes.at(at) | bytes.at(at + 1) << 8 | bytes.at(at + 2) << 16 |
         static_cast<std::uint32_t>(bytes.at(at + 3)) << 24;
}

// ADIv5 requests: of the debug port when `port` is 0, of the access port when it is 1.
void AppendRequest(Bytes& bytes, unsigned port, bool read, unsigned address) {
  unsigned header = port << 1 | (read ? 4u : 0u) | (address >> 2 & 3u) << 3;
  header |= (std::popcount(header) & 1u) << 5 | 0x81u;
  bytes.push_back(static_cast<std::uint8_t>(header));
}

void AppendWrite(Bytes& bytes, unsigned port, unsigned address, std::uint32_t value) {
  AppendRequest(bytes, port, false, address);
  AppendWord(bytes, value);
}

class Client {
 public:
  Client(CTzWirefox& object, sim::Bench& bench, int index, std::uint32_t seed)
      : object_(object), bench_(bench), index_(index), random_(seed) {}

  void Work() {
    for (int i = 0; i < kCalls; ++i) {
      probe_ = Below(kProbes.size());
      // Modes change seldom, so that most calls find the one they need.
      static constexpr void (Client::*kSteps[])() = {
          &Client::Mode, &Client::Targets, &Client::Targets, &Client::Acquire, &Client::Acquire,
          &Client::Jtag, &Client::Jtag,    &Client::Jtag,    &Client::Jtag,    &Client::Swd,
          &Client::Swd,  &Client::Swd,     &Client::I2c,     &Client::I2c,     &Client::Rest};
      (this->*kSteps[Below(std::size(kSteps))])();
    }
  }

  // OUT packets that the service took, in order.
  std::vector<Packet> sent;
  int answered_swd = 0;
  int answered_i2c = 0;

 private:
  std::size_t Below(std::size_t end) { return random_() % end; }
  std::int64_t& handle() { return handles_[probe_]; }

  void Expect(HRESULT result, std::initializer_list<TzErrorCode> allowed) {
    EXPECT_EQ(result, S_OK);
    EXPECT_NE(std::find(allowed.begin(), allowed.end(), error_), allowed.end())
        << "client " << index_ << ", probe " << probe_ << ": error " << static_cast<int>(error_);
  }

  void Mode() {
    static constexpr TzTransferMode kModes[] = {TzTransferMode::JTAG, TzTransferMode::SWD,
                                                TzTransferMode::I2C,  TzTransferMode::SWD_SWV,
                                                TzTransferMode::IDLE, TzTransferMode::VSER};
    // On the probe with the chain mostly the first.
    const TzTransferMode mode = kModes[probe_ == 0 && Below(2) == 0 ? 0 : Below(std::size(kModes))];
    Expect(object_.SetMode(Text(kProbes[probe_]), mode, 0, OwnPid(), &error_),
           {TzErrorCode::SUCCESS});
  }

  void Targets() {
    Result devices;
    Expect(object_.EnumerateDevices(Text(kProbes[probe_]), &devices, &error_),
           {TzErrorCode::SUCCESS});
    const auto strings = devices.AsStrings();
    ASSERT_TRUE(strings.has_value());
    for (const std::wstring& target : *strings) {
      const std::wstring id = target.substr(0, 8);
      EXPECT_TRUE(id == L"1BA01477" || id == L"0684617F" || id == L"2BA01477" || id == L"00000000")
          << Narrow(target);
    }
  }

  void Acquire() {
    std::int64_t handle_value = 0;
    Expect(object_.AcquireDevice(Text(kProbes[probe_]), 0, OwnPid(), &handle_value, &error_),
           {TzErrorCode::SUCCESS, TzErrorCode::IN_USE, TzErrorCode::INVALID_DEVICE});
    if (error_ == TzErrorCode::SUCCESS) handle() = handle_value;
  }

  // Through reset into Shift-DR: whatever the packets before left, this one's reply is the chain's
  // ids and then its own TDI bits.
  void Jtag() {
    Bytes packet = {0xF0, 0xF0, 0xF0, 0x20};
    packet.resize(4 + 2 * (8 + Below(Below(8) == 0 ? 9000 : 200)));
    for (std::size_t i = 4; i < packet.size(); ++i) {
      packet[i] = static_cast<std::uint8_t>(random_() & 0x0F);
    }
    Result result;
    Expect(object_.SendJtagPacket(Array(packet), 1, handle(), &result, &error_),
           {TzErrorCode::SUCCESS, TzErrorCode::NOT_ACQUIRED, TzErrorCode::INVALID_MODE});
    if (error_ != TzErrorCode::SUCCESS) return;
    const Bytes reply = result.AsBytes().value_or(Bytes{});
    ASSERT_EQ(reply.size(), packet.size() / 2);
    // The first two bytes come before the register is shifted.
    Bytes expected = {reply[0], reply[1], 0x7F, 0x61, 0x84, 0x06, 0x77, 0x14, 0xA0, 0x1B};
    for (std::size_t i = 4; expected.size() < reply.size(); i += 2) {
      expected.push_back(static_cast<std::uint8_t>(packet[i] | packet[i + 1] << 4));
    }
    expected.resize(reply.size());
    sent.push_back({packet, expected, reply});
  }

  // Writes a word of memory that no other client touches, and reads it back.
  void Swd() {
    const auto value = static_cast<std::uint32_t>(random_());
    const std::uint32_t address = kMemory + 4 * static_cast<std::uint32_t>(index_);
    Bytes packet;
    AppendRequest(packet, 0, true, 0);
    AppendWrite(packet, 0, 0, 0x1E);        // clear what an earlier client left pending
    AppendWrite(packet, 0, 8, 0);           // SELECT
    AppendWrite(packet, 0, 4, 0x50000000);  // power up
    AppendWrite(packet, 1, 0, 0x23000052);  // words
    AppendWrite(packet, 1, 4, address);
    AppendWrite(packet, 1, 0xC, value);
    AppendWrite(packet, 1, 4, address);
    AppendRequest(packet, 1, true, 0xC);
    AppendRequest(packet, 0, true, 0xC);
    Result result;
    Expect(object_.SendSwdPacket(Array(packet), handle(), &result, &error_),
           {TzErrorCode::SUCCESS, TzErrorCode::NOT_ACQUIRED, TzErrorCode::INVALID_MODE});
    if (error_ != TzErrorCode::SUCCESS) return;
    sent.push_back({packet, {}, {}});
    const Bytes reply = result.AsBytes().value_or(Bytes{});
    ASSERT_EQ(reply.size(), 3 * 5 + 7);
    if ((reply[4] & 5) != 1) return;  // the line was not brought to serial wire since the mode
    ++answered_swd;
    EXPECT_EQ(WordAt(reply, 0), kIdcode);
    EXPECT_EQ(WordAt(reply, reply.size() - 5), value);
    EXPECT_EQ(reply.back() & 5, 1);
    EXPECT_TRUE(std::ranges::any_of(kProbes, [&](const wchar_t* probe) {
      return WordAt(bench_.SwdMemory(Narrow(probe), address, 4), 0) == value;
    }));
  }

  void I2c() {
    const auto cell = static_cast<std::uint8_t>(index_);
    const auto value = static_cast<std::uint8_t>(random_());
    Result result;
    Expect(object_.SendI2CPacket(Array({0xA0, cell, value}), handle(), 0, &result, &error_),
           // The last for the Evk board, which has no engine for it.
           {TzErrorCode::SUCCESS, TzErrorCode::NOT_ACQUIRED, TzErrorCode::INVALID_MODE,
            TzErrorCode::WFX_ERROR});
    if (error_ != TzErrorCode::SUCCESS) return;
    ++answered_i2c;
    EXPECT_EQ(result.AsBytes().value_or(Bytes{}).size(), 5u);
    EXPECT_TRUE(std::ranges::any_of(kProbes, [&](const wchar_t* probe) {
      return bench_.I2cMemory(Narrow(probe), 0x50).at(cell) == value;
    }));
  }

  void Rest() {
    const Text name(kProbes[probe_]);
    switch (Below(5)) {
      case 0:
        Expect(object_.ReleaseDevice(handle(), &error_),
               {TzErrorCode::SUCCESS, TzErrorCode::NOT_ACQUIRED});
        break;
      case 1:
        Expect(object_.SetLedState(name, TzLed::LED_1_RED, TzLedState::ON, &error_),
               {TzErrorCode::SUCCESS});
        break;
      case 2: {
        LONG revision = 0;
        Expect(object_.GetHwRevID(name, &revision, &error_), {TzErrorCode::SUCCESS});
        EXPECT_EQ(revision, 3);
        break;
      }
      case 3: {
        TzWFXStatus status = {};
        Expect(object_.GetWirefoxStatus(name, &status, &error_), {TzErrorCode::SUCCESS});
        EXPECT_EQ(status.ACTIVE_INTERFACE & ~0x1F, 0);
        EXPECT_EQ(status.VTARG_MEASURED, 330);
        break;
      }
      default: {
        Result names;
        Expect(object_.EnumerateWirefoxs(&names, &error_), {TzErrorCode::SUCCESS});
        EXPECT_EQ(names.AsStrings().value_or(std::vector<std::wstring>{}).size(), 3u);
      }
    }
  }

  CTzWirefox& object_;
  sim::Bench& bench_;
  const int index_;
  std::mt19937 random_;
  std::array<std::int64_t, 3> handles_ = {1, 1, 1};
  std::size_t probe_ = 0;
  TzErrorCode error_ = TzErrorCode::SUCCESS;
};

class SharedProbes : public BenchTest {
 protected:
  SharedProbes()
      : BenchTest(std::string(R"("jtag": {"taps": [{"idcode": "0x1BA01477"},
                                   {"idcode": "0x0684617F", "ir_length": 5}]}, )") +
                  kSwdTarget) {
    bench_->AddProbe(std::string(R"({"name": "S1", )") + kSwdTarget + "}");
    bench_->Rearrange("E1", std::string("{") + kSwdTarget + "}");
    Result names;
    object_->EnumerateWirefoxs(&names, &error_);
    for (int i = 0; i < kClients; ++i) {
      void* object = nullptr;
      EXPECT_EQ(CTzWirefox::Create(module_, nullptr, api::kInterfaceIdV3, &object), S_OK);
      objects_.push_back(static_cast<CTzWirefox*>(static_cast<ITzWirefox_v3*>(object)));
    }
  }
  ~SharedProbes() override {
    for (CTzWirefox* object : objects_) object->Release();
  }

  // What the probe received for its targets, in one piece.
  Bytes TakeStream(const wchar_t* probe) {
    Bytes stream;
    for (const sim::Received& received : bench_->TakeRecords(Narrow(probe))) {
      if (received.endpoint == 0x02) {
        stream.insert(stream.end(), received.data.begin(), received.data.end());
      }
    }
    return stream;
  }

  std::vector<CTzWirefox*> objects_;
};

DWORD WINAPI RunClient(void* client) {
  static_cast<Client*>(client)->Work();
  return 0;
}

TEST_F(SharedProbes, EightClientsLoseAndMixNothing) {
  const std::uint32_t seed = unit::RandomSeed();
  for (const wchar_t* probe : kProbes) bench_->Record(Narrow(probe));
  std::vector<std::unique_ptr<Client>> clients;
  std::array<HANDLE, kClients> threads{};
  for (int i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<Client>(*objects_[static_cast<std::size_t>(i)], *bench_, i,
                                               seed + static_cast<std::uint32_t>(i)));
  }
  for (int i = 0; i < kClients; ++i) {
    const auto at = static_cast<std::size_t>(i);
    threads[at] = CreateThread(nullptr, 0, RunClient, clients[at].get(), 0, nullptr);
  }
  for (const HANDLE thread : threads) {
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);
  }

  std::array<Bytes, 3> streams;
  for (std::size_t i = 0; i < kProbes.size(); ++i) streams[i] = TakeStream(kProbes[i]);
  int jtag = 0, swd = 0, i2c = 0;
  for (const auto& client : clients) {
    // Each packet whole, and each client's in its order.
    std::array<Bytes::const_iterator, 3> from = {streams[0].begin(), streams[1].begin(),
                                                 streams[2].begin()};
    for (const Packet& packet : client->sent) {
      std::size_t probe = 0;
      auto found = streams[0].cend();
      for (; probe < streams.size(); ++probe) {
        found = std::search(from[probe], streams[probe].cend(), packet.bytes.begin(),
                            packet.bytes.end());
        if (found != streams[probe].cend()) break;
      }
      ASSERT_LT(probe, streams.size());
      from[probe] = found + static_cast<std::ptrdiff_t>(packet.bytes.size());
      if (probe != 0 || packet.reply.empty()) continue;
      ++jtag;
      EXPECT_EQ(packet.reply, packet.chain_reply);
    }
    swd += client->answered_swd;
    i2c += client->answered_i2c;
  }
  EXPECT_GT(jtag, 20);
  EXPECT_GT(swd, 50);
  EXPECT_GT(i2c, 20);
}

}  // namespace
